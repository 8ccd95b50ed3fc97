#include "base/mem_device.h"

#include <vector>

#include <gtest/gtest.h>

TEST(MemDeviceTest, WritingOneByteIntoEmptyDeviceAllocates1024Bytes)
{
    JMemDevice d;
    EXPECT_EQ(d.capacity(), 0u);
    const unsigned char b = 7;
    EXPECT_EQ(d.write(&b, 1), 1u);
    EXPECT_EQ(d.capacity(), 1024u);
    EXPECT_EQ(d.size(), 1u);
    EXPECT_EQ(d.buf()[0], 7);
}

TEST(MemDeviceTest, WritingATotalOf1024BytesGrowsTo2048)
{
    JMemDevice d;
    std::vector<unsigned char> data(1023, 1);
    d.write(data.data(), 1023);
    EXPECT_EQ(d.capacity(), 1024u);
    const unsigned char b = 2;
    d.write(&b, 1);
    EXPECT_EQ(d.capacity(), 2048u);
    EXPECT_EQ(d.size(), 1024u);
    EXPECT_EQ(d.buf()[1022], 1);
    EXPECT_EQ(d.buf()[1023], 2);
}

TEST(MemDeviceTest, GrowthDoubles1024UntilStrictlyGreaterThanNeeded)
{
    JMemDevice d;
    std::vector<unsigned char> data(4096, 3);
    d.write(data.data(), 4096);
    EXPECT_EQ(d.capacity(), 8192u);
    JMemDevice e;
    e.write(data.data(), 4095);
    EXPECT_EQ(e.capacity(), 4096u);
}

TEST(MemDeviceTest, ConstructorFromBytesCopiesThem)
{
    unsigned char src[3] = {1, 2, 3};
    JMemDevice d(src, 3);
    src[0] = 9;
    EXPECT_EQ(d.size(), 3u);
    EXPECT_EQ(d.capacity(), 3u);
    EXPECT_EQ(d.position(), 0);
    unsigned char out[4] = {};
    EXPECT_EQ(d.read(out, 4), 3u);
    EXPECT_EQ(out[0], 1);
    EXPECT_EQ(out[2], 3);
    EXPECT_EQ(d.read(out, 4), 0u);
}

TEST(MemDeviceTest, CapacityConstructorIsEmpty)
{
    JMemDevice d(100);
    EXPECT_EQ(d.size(), 0u);
    EXPECT_EQ(d.capacity(), 100u);
    unsigned char out[1];
    EXPECT_EQ(d.read(out, 1), 0u);
    const unsigned char b[99] = {};
    d.write(b, 99);
    EXPECT_EQ(d.capacity(), 100u);
    d.write(b, 1);  // position + len reaches the capacity: grows
    EXPECT_EQ(d.capacity(), 1024u);
}

TEST(MemDeviceTest, OverwritingKeepsSizeAndSeekBeyondEndLeavesZeroGap)
{
    JMemDevice d;
    const unsigned char a[4] = {1, 2, 3, 4};
    d.write(a, 4);
    d.seek(1);
    const unsigned char b = 9;
    d.write(&b, 1);
    EXPECT_EQ(d.size(), 4u);
    EXPECT_EQ(d.position(), 2);
    d.seek(6);
    d.write(&b, 1);
    EXPECT_EQ(d.size(), 7u);
    const std::vector<unsigned char> expect = {1, 9, 3, 4, 0, 0, 9};
    EXPECT_EQ(std::vector<unsigned char>(d.buf(), d.buf() + d.size()), expect);
    d.seek(10);
    unsigned char out[1];
    EXPECT_EQ(d.read(out, 1), 0u);
}

TEST(MemDeviceTest, CloseFreesAndZeroesEverything)
{
    JMemDevice d;
    const unsigned char b = 1;
    d.write(&b, 1);
    d.close();
    EXPECT_EQ(d.size(), 0u);
    EXPECT_EQ(d.capacity(), 0u);
    EXPECT_EQ(d.position(), 0);
    EXPECT_EQ(d.buf(), nullptr);
    d.flush();
}
