#include "base/qtless/qbytearray.h"

#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

using qtless::QByteArray;

namespace {

// The count lives in the four bytes before the data.
int32_t storedCount(const QByteArray& a)
{
    int32_t c;
    std::memcpy(&c, a.data() - 4, 4);
    return c;
}

}  // namespace

TEST(QByteArrayTest, DefaultIsNull)
{
    QByteArray a;
    EXPECT_TRUE(a.isNull());
    EXPECT_EQ(a.size(), 0u);
    EXPECT_EQ(a.shareCount(), 0);
}

TEST(QByteArrayTest, SizedArrayIsZeroFilledWithCountOneInFirstFourBytes)
{
    QByteArray a(5);
    EXPECT_EQ(a.size(), 5u);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(a.data()[i], 0);
    EXPECT_EQ(a.shareCount(), 1);
    EXPECT_EQ(storedCount(a), 1);
}

TEST(QByteArrayTest, CopiesShareTheAllocationAndTheCount)
{
    QByteArray a(3);
    {
        QByteArray b(a);
        EXPECT_EQ(b.data(), a.data());
        EXPECT_EQ(storedCount(a), 2);
        b.data()[1] = 'x';
        EXPECT_EQ(a.data()[1], 'x');
        QByteArray c;
        c = b;
        EXPECT_EQ(storedCount(a), 3);
        c = c;
        EXPECT_EQ(storedCount(a), 3);
    }
    EXPECT_EQ(storedCount(a), 1);
}

TEST(QByteArrayTest, AssignmentReleasesThePreviousAllocation)
{
    QByteArray a(2);
    QByteArray b(4);
    QByteArray keep(b);
    b = a;
    EXPECT_EQ(storedCount(keep), 1);
    EXPECT_EQ(storedCount(a), 2);
    EXPECT_EQ(b.size(), 2u);
}

TEST(QByteArrayTest, SetRawDataRefersToUnownedBytesAndResetForgetsThem)
{
    char raw[3] = {'a', 'b', 'c'};
    QByteArray a(8);
    QByteArray other(a);
    a.setRawData(raw, 3);
    EXPECT_EQ(a.data(), raw);
    EXPECT_EQ(a.size(), 3u);
    EXPECT_EQ(a.shareCount(), 0);
    EXPECT_EQ(other.shareCount(), 1);
    QByteArray copy(a);
    EXPECT_EQ(copy.data(), raw);
    a.resetRawData();
    EXPECT_TRUE(a.isNull());
    EXPECT_EQ(a.size(), 0u);
}

TEST(QByteArrayThreadTest, CopiesMadeAndDroppedOnSeveralThreadsKeepTheCount)
{
    QByteArray a(16);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([a] {
            for (int i = 0; i < 2000; ++i) {
                QByteArray b(a);
                QByteArray c;
                c = b;
            }
        });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(storedCount(a), 1);
}

TEST(QByteArrayTest, SelfAssignmentKeepsTheArray)
{
    QByteArray a(3);
    a.data()[0] = 'k';
    QByteArray& ref = a;
    a = ref;
    ASSERT_FALSE(a.isNull());
    EXPECT_EQ(a.data()[0], 'k');
    EXPECT_EQ(storedCount(a), 1);
}
