#include "base/qtless/qdatastream.h"

#include <bit>
#include <cerrno>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/ex.h"
#include "support/temp_dir.h"

using qtless::QByteArray;
using qtless::QDataStream;
using qtless::QFile;
using qtless::QString;
using Bytes = std::vector<unsigned char>;

namespace {

Bytes bytesOf(const QByteArray& a)
{
    return Bytes(a.data(), a.data() + a.size());
}

// Writes with fn on a fresh memory stream and returns the bytes it holds.
template <class F>
Bytes memoryBytes(F&& fn)
{
    QDataStream s(QByteArray(), qtless::IO_WriteOnly);
    fn(s);
    return bytesOf(s.device()->buffer());
}

QByteArray arrayOf(const Bytes& b)
{
    QByteArray a(static_cast<int>(b.size()));
    if (!b.empty())
        std::memcpy(a.data(), b.data(), b.size());
    return a;
}

// Big-endian bytes of a 32-bit value, assembled by hand.
Bytes be32(unsigned int v)
{
    return {static_cast<unsigned char>(v >> 24), static_cast<unsigned char>(v >> 16),
            static_cast<unsigned char>(v >> 8), static_cast<unsigned char>(v)};
}

Bytes cat(std::initializer_list<Bytes> parts)
{
    Bytes r;
    for (const Bytes& p : parts)
        r.insert(r.end(), p.begin(), p.end());
    return r;
}

}  // namespace

TEST(QDataStreamTest, CStringAbIsLengthThreeThenBytesAndZero)
{
    EXPECT_EQ(memoryBytes([](QDataStream& s) { s << "ab"; }), (Bytes{0, 0, 0, 3, 0x61, 0x62, 0}));
}

TEST(QDataStreamTest, NullCStringIsAZeroLength)
{
    EXPECT_EQ(memoryBytes([](QDataStream& s) { s << static_cast<const char*>(nullptr); }),
              (Bytes{0, 0, 0, 0}));
}

TEST(QDataStreamTest, QStringIsLengthPlusOneThenUtf8BytesAndZero)
{
    EXPECT_EQ(memoryBytes([](QDataStream& s) { s << QString("h\xC3\xA9"); }),
              (Bytes{0, 0, 0, 4, 'h', 0xc3, 0xa9, 0}));
    EXPECT_EQ(memoryBytes([](QDataStream& s) { s << QString(); }), (Bytes{0, 0, 0, 0}));
}

TEST(QDataStreamTest, IntsAndFloatsAreBigEndian32BitValues)
{
    const Bytes got = memoryBytes([](QDataStream& s) {
        s << -2 << 0x01020304u << 1.5f << -0.0f;
    });
    EXPECT_EQ(got, cat({Bytes{0xff, 0xff, 0xff, 0xfe}, Bytes{1, 2, 3, 4}, Bytes{0x3f, 0xc0, 0, 0},
                        Bytes{0x80, 0, 0, 0}}));
}

TEST(QDataStreamTest, WriteBytesIsLengthThenBytesWithoutTerminator)
{
    EXPECT_EQ(memoryBytes([](QDataStream& s) { s.writeBytes("xyz", 2); }), (Bytes{0, 0, 0, 2, 'x', 'y'}));
    EXPECT_EQ(memoryBytes([](QDataStream& s) { s.writeBytes(nullptr, 0); }), (Bytes{0, 0, 0, 0}));
}

TEST(QDataStreamTest, ReadBytesWithZeroLengthGivesNull)
{
    QDataStream s(arrayOf({0, 0, 0, 0, 0, 0, 0, 2, 'q', 'r'}), qtless::IO_ReadOnly);
    char* p = reinterpret_cast<char*>(&s);
    unsigned int n = 99;
    s.readBytes(p, n);
    EXPECT_EQ(p, nullptr);
    EXPECT_EQ(n, 0u);
    s.readBytes(p, n);
    std::unique_ptr<char[]> owned(p);
    ASSERT_EQ(n, 2u);
    EXPECT_EQ(p[0], 'q');
    EXPECT_EQ(p[1], 'r');
}

TEST(QDataStreamTest, ReadingQStringStopsAtTheFirstZeroByte)
{
    QDataStream s(arrayOf({0, 0, 0, 4, 'a', 0, 'b', 0, 0, 0, 0, 0}), qtless::IO_ReadOnly);
    QString a("old");
    QString b("old");
    s >> a >> b;
    EXPECT_EQ(a, QString("a"));
    EXPECT_TRUE(b.isEmpty());
}

TEST(QDataStreamTest, QStringWithoutTerminatorInTheDataIsReadWhole)
{
    QDataStream s(arrayOf({0, 0, 0, 2, 'o', 'k'}), qtless::IO_ReadOnly);
    QString a;
    s >> a;
    EXPECT_EQ(a, QString("ok"));
}

TEST(QDataStreamTest, MemoryStreamReadsTheArrayAndWritesOverACopyOfIt)
{
    QByteArray a = arrayOf({0, 0, 0, 7, 0, 0, 0, 8});
    QDataStream s(a, qtless::IO_ReadWrite);
    int v = 0;
    s >> v;
    EXPECT_EQ(v, 7);
    QDataStream w(a, qtless::IO_WriteOnly);
    w << 1;
    EXPECT_EQ(bytesOf(w.device()->buffer()), (Bytes{0, 0, 0, 1, 0, 0, 0, 8}));
    EXPECT_EQ(bytesOf(a), (Bytes{0, 0, 0, 7, 0, 0, 0, 8}));
}

TEST(QDataStreamTest, ReadingBeyondTheDataThrowsUnexpectedEndOfFile)
{
    QDataStream s(arrayOf({0, 0, 0, 1}), qtless::IO_ReadOnly);
    int v;
    s >> v;
    try {
        s >> v;
        FAIL() << "no exception";
    } catch (const JEx& e) {
        EXPECT_STREQ(e.what(), "Unexpected end of file");
    }
}

TEST(QDataStreamTest, FileStreamDoesNotTruncateTheFile)
{
    murmex_test::TempDir dir;
    const std::string path = dir.file("keep.bin");
    murmex_test::writeFileBytes(path, Bytes(10, 'z'));
    {
        QFile f(path.c_str());
        QDataStream s(&f);
        EXPECT_EQ(s.name(), QString(path.c_str()));
        s << 7;
    }
    EXPECT_EQ(murmex_test::readFileBytes(path), cat({be32(7), Bytes(6, 'z')}));
}

TEST(QDataStreamTest, FileStreamCreatesAMissingFile)
{
    murmex_test::TempDir dir;
    const std::string path = dir.file("new.bin");
    {
        QFile f(path.c_str());
        QDataStream s(&f);
        s << "ab";
    }
    EXPECT_EQ(murmex_test::readFileBytes(path), (Bytes{0, 0, 0, 3, 'a', 'b', 0}));
}

TEST(QDataStreamTest, OpeningFileInMissingDirectoryThrowsErrorOpening)
{
    murmex_test::TempDir dir;
    const std::string path = dir.file("none/p.dnp");
    QFile f(path.c_str());
    try {
        QDataStream s(&f);
        FAIL() << "no exception";
    } catch (const JEx& e) {
        EXPECT_EQ(std::string(e.what()), "Error opening " + path + ": " + std::strerror(ENOENT));
    }
}

// Round trips of every encoding, over a file and over memory.
class QDataStreamRoundTripTest : public ::testing::TestWithParam<bool> {
protected:
    // Writes with w, then reads the result back with r.
    template <class W, class R>
    void roundTrip(W&& w, R&& r)
    {
        if (GetParam()) {
            murmex_test::TempDir dir;
            const std::string path = dir.file("rt.bin");
            QFile f(path.c_str());
            {
                QDataStream s(&f);
                w(s);
            }
            QDataStream s(&f);
            r(s);
        } else {
            QByteArray written;
            {
                QDataStream s(QByteArray(), qtless::IO_WriteOnly);
                w(s);
                written = s.device()->buffer();
            }
            QDataStream s(written, qtless::IO_ReadOnly);
            r(s);
        }
    }
};

TEST_P(QDataStreamRoundTripTest, Ints)
{
    const int values[] = {0, 1, -1, std::numeric_limits<int>::min(), std::numeric_limits<int>::max(), 123456};
    roundTrip([&](QDataStream& s) { for (int v : values) s << v; },
              [&](QDataStream& s) {
                  for (int v : values) {
                      int got = 0;
                      s >> got;
                      EXPECT_EQ(got, v);
                  }
              });
}

TEST_P(QDataStreamRoundTripTest, UnsignedInts)
{
    const unsigned int values[] = {0u, 1u, 0xffffffffu, 0x80000000u, 0x01020304u};
    roundTrip([&](QDataStream& s) { for (unsigned int v : values) s << v; },
              [&](QDataStream& s) {
                  for (unsigned int v : values) {
                      unsigned int got = 0;
                      s >> got;
                      EXPECT_EQ(got, v);
                  }
              });
}

TEST_P(QDataStreamRoundTripTest, FloatsKeepTheirBitPatterns)
{
    const float values[] = {0.0f, -0.0f, 1.5f, -3.25e-7f, std::numeric_limits<float>::infinity(),
                            std::numeric_limits<float>::denorm_min(), std::numeric_limits<float>::quiet_NaN()};
    roundTrip([&](QDataStream& s) { for (float v : values) s << v; },
              [&](QDataStream& s) {
                  for (float v : values) {
                      float got = 0;
                      s >> got;
                      EXPECT_EQ(std::bit_cast<unsigned int>(got), std::bit_cast<unsigned int>(v));
                  }
              });
}

TEST_P(QDataStreamRoundTripTest, CStringsAndQStrings)
{
    roundTrip(
        [](QDataStream& s) {
            s << "ab" << static_cast<const char*>(nullptr) << QString("profile \xC3\xA9") << QString() << "";
        },
        [](QDataStream& s) {
            QString a, b, c, d, e;
            s >> a >> b >> c >> d >> e;
            EXPECT_EQ(a, QString("ab"));
            EXPECT_TRUE(b.isEmpty());
            EXPECT_EQ(c, QString("profile \xC3\xA9"));
            EXPECT_TRUE(d.isEmpty());
            EXPECT_TRUE(e.isEmpty());
        });
}

TEST_P(QDataStreamRoundTripTest, CStringReadBackWithReadBytesKeepsItsZero)
{
    roundTrip([](QDataStream& s) { s << "ab"; },
              [](QDataStream& s) {
                  char* p = nullptr;
                  unsigned int n = 0;
                  s.readBytes(p, n);
                  std::unique_ptr<char[]> owned(p);
                  ASSERT_EQ(n, 3u);
                  EXPECT_EQ(std::string(p, 3), std::string("ab\0", 3));
              });
}

TEST_P(QDataStreamRoundTripTest, BytesSmallEmptyAndAbove65536)
{
    std::vector<char> big(70001);
    for (size_t i = 0; i < big.size(); ++i)
        big[i] = static_cast<char>(i * 31 + 7);
    roundTrip(
        [&](QDataStream& s) {
            s.writeBytes("hi", 2);
            s.writeBytes(nullptr, 0);
            s.writeBytes(big.data(), static_cast<unsigned int>(big.size()));
            s << 42;
        },
        [&](QDataStream& s) {
            char* p = nullptr;
            unsigned int n = 0;
            s.readBytes(p, n);
            std::unique_ptr<char[]> small(p);
            ASSERT_EQ(n, 2u);
            EXPECT_EQ(std::string(p, 2), "hi");
            s.readBytes(p, n);
            EXPECT_EQ(p, nullptr);
            EXPECT_EQ(n, 0u);
            s.readBytes(p, n);
            std::unique_ptr<char[]> large(p);
            ASSERT_EQ(n, big.size());
            EXPECT_EQ(std::memcmp(p, big.data(), n), 0);
            int tail = 0;
            s >> tail;
            EXPECT_EQ(tail, 42);
        });
}

INSTANTIATE_TEST_SUITE_P(FileAndMemory, QDataStreamRoundTripTest, ::testing::Values(true, false),
                         [](const ::testing::TestParamInfo<bool>& i) { return i.param ? "File" : "Memory"; });
