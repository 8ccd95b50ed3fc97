#include "base/byte_stream.h"

#include <bit>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "base/ex.h"
#include "support/scripted_device.h"

using murmex_test::ScriptedDevice;
using Bytes = std::vector<unsigned char>;

namespace {

std::string endOfFileMessage(JByteStream& s)
{
    try {
        s.getu32();
    } catch (const JEx& e) {
        return e.what();
    }
    return "<no exception>";
}

}  // namespace

TEST(ByteStreamTest, ByteOrderValuesAreBigEndianZeroLittleEndianOne)
{
    EXPECT_EQ(static_cast<int>(JByteStream::BigEndian), 0);
    EXPECT_EQ(static_cast<int>(JByteStream::LittleEndian), 1);
}

TEST(ByteStreamTest, Putu32IsBigEndianByDefaultAndLittleEndianWhenSet)
{
    ScriptedDevice d;
    JByteStream s(&d);
    s.putu32(0x01020304u);
    s.flush();
    EXPECT_EQ(d.output, (Bytes{1, 2, 3, 4}));
    s.setByteOrder(JByteStream::LittleEndian);
    s.putu32(0x01020304u);
    s.setByteOrder(JByteStream::BigEndian);
    s.putu32(0x0a0b0c0du);
    s.flush();
    EXPECT_EQ(d.output, (Bytes{1, 2, 3, 4, 4, 3, 2, 1, 10, 11, 12, 13}));
}

TEST(ByteStreamTest, SignedFloatAndByteValuesAreWrittenAndReadBack)
{
    ScriptedDevice d;
    JByteStream s(&d);
    s.put32(-2);
    s.putf32(1.5f);
    s.putu8(0xab);
    s.flush();
    // 1.5f is sign 0, exponent 127, mantissa 0x400000: 0x3fc00000.
    EXPECT_EQ(d.output, (Bytes{0xff, 0xff, 0xff, 0xfe, 0x3f, 0xc0, 0x00, 0x00, 0xab}));

    ScriptedDevice in(d.output);
    JByteStream r(&in);
    EXPECT_EQ(r.get32(), -2);
    EXPECT_EQ(std::bit_cast<unsigned int>(r.getf32()), 0x3fc00000u);
    EXPECT_EQ(r.getu8(), 0xab);
}

TEST(ByteStreamTest, LittleEndianReadsSwapTheBytes)
{
    ScriptedDevice d({1, 2, 3, 4});
    JByteStream s(&d);
    s.setByteOrder(JByteStream::LittleEndian);
    EXPECT_EQ(s.getu32(), 0x04030201u);
}

TEST(ByteStreamTest, ReadingPastTheEndThrowsUnexpectedEndOfFile)
{
    ScriptedDevice d;
    JByteStream s(&d);
    EXPECT_EQ(endOfFileMessage(s), "Unexpected end of file");
    ScriptedDevice e({1, 2, 3, 4});
    JByteStream t(&e);
    EXPECT_EQ(t.getu32(), 0x01020304u);
    EXPECT_EQ(endOfFileMessage(t), "Unexpected end of file");
}

TEST(ByteStreamTest, DataEndingTwoBytesIntoValueCompletesItWithZeroFilledBufferBytes)
{
    ScriptedDevice d({0xaa, 0xbb});
    JByteStream s(&d);
    EXPECT_EQ(s.getu32(), 0xaabb0000u);
    // Nothing is left: the next value finds the end of the data.
    EXPECT_EQ(endOfFileMessage(s), "Unexpected end of file");
}

TEST(ByteStreamTest, DataEndingTwoBytesIntoValueCompletesItWithStaleBufferBytes)
{
    // 65536 + 2 bytes: after the first full buffer, the last refill brings two
    // bytes into positions 0 and 1; positions 2 and 3 still hold bytes 2 and 3
    // of the first buffer.
    Bytes data(65538);
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<unsigned char>(i * 7 + 1);
    ScriptedDevice d(data);
    JByteStream s(&d);
    for (int i = 0; i < 16384; ++i)
        s.getu32();
    const unsigned int expect = (unsigned(data[65536]) << 24) | (unsigned(data[65537]) << 16) |
                                (unsigned(data[2]) << 8) | unsigned(data[3]);
    EXPECT_EQ(s.getu32(), expect);
}

TEST(ByteStreamTest, RefillReadsTheDeviceOnceForTheRestOfTheBuffer)
{
    // A device that hands out one byte per read: the single refill brings one
    // byte and the value is completed from the zero-filled buffer.
    ScriptedDevice d({0x11, 0x22, 0x33, 0x44}, 1);
    JByteStream s(&d);
    EXPECT_EQ(s.getu32(), 0x11000000u);
    EXPECT_EQ(d.readCalls, 1);
    EXPECT_EQ(d.readRequests, (std::vector<unsigned int>{65536}));
}

TEST(ByteStreamTest, RefillMovesUnreadBytesToTheFrontAndAsksForTheRest)
{
    ScriptedDevice d({1, 2, 3, 4, 5, 6}, 6);
    JByteStream s(&d);
    EXPECT_EQ(s.getu32(), 0x01020304u);
    d.input.insert(d.input.end(), {7, 8});
    EXPECT_EQ(s.getu32(), 0x05060708u);
    EXPECT_EQ(d.readRequests, (std::vector<unsigned int>{65536, 65534}));
}

TEST(ByteStreamTest, PendingBytesAreWrittenOnlyAfterPassingTheWriteLimit)
{
    ScriptedDevice d;
    JByteStream s(&d);
    for (unsigned int i = 0; i < 16383; ++i)  // 65532 bytes: the last put started at 65528
        s.putu32(i);
    EXPECT_EQ(d.writeCalls, 0);
    s.putu32(16383);  // writePos 65532 is beyond 65528: write out first
    EXPECT_EQ(d.output.size(), 65532u);
    s.flush();
    ASSERT_EQ(d.output.size(), 65536u);
    for (unsigned int i = 0; i < 16384; ++i) {
        const unsigned char* p = d.output.data() + 4 * i;
        ASSERT_EQ((unsigned(p[0]) << 24) | (unsigned(p[1]) << 16) | (unsigned(p[2]) << 8) | p[3], i);
    }
}

TEST(ByteStreamTest, WriteOutLoopsUntilTheDeviceTookEverything)
{
    ScriptedDevice d({}, 3);
    JByteStream s(&d);
    for (unsigned char i = 0; i < 10; ++i)
        s.putu8(i);
    s.flush();
    EXPECT_EQ(d.output, (Bytes{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
    EXPECT_EQ(d.writeCalls, 4);
    EXPECT_EQ(d.flushCalls, 0);
}

TEST(ByteStreamTest, BulkWriteAbove65536BypassesBufferWithoutSwap)
{
    ScriptedDevice d;
    JByteStream s(&d);
    const JByteStream::ByteOrder native =
        std::endian::native == std::endian::little ? JByteStream::LittleEndian : JByteStream::BigEndian;
    s.setByteOrder(native);
    Bytes data(65537);
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<unsigned char>(i % 251);
    s.putu8(0x55);
    s.write8(data.data(), 65537);
    // Pending byte first, then the block straight to the device.
    EXPECT_EQ(d.writeCalls, 2);
    Bytes expect{0x55};
    expect.insert(expect.end(), data.begin(), data.end());
    EXPECT_EQ(d.output, expect);
}

TEST(ByteStreamTest, BulkWriteWithSwapGoesThroughTheBuffer)
{
    ScriptedDevice d;
    JByteStream s(&d);
    const JByteStream::ByteOrder foreign =
        std::endian::native == std::endian::little ? JByteStream::BigEndian : JByteStream::LittleEndian;
    s.setByteOrder(foreign);
    Bytes data(65537, 0x33);
    s.write8(data.data(), 65537);
    EXPECT_LT(d.output.size(), data.size());  // the tail is still in the buffer
    s.flush();
    EXPECT_EQ(d.output, data);
}

TEST(ByteStreamTest, WriteOf65536BytesGoesThroughTheBuffer)
{
    ScriptedDevice d;
    JByteStream s(&d);
    s.setByteOrder(std::endian::native == std::endian::little ? JByteStream::LittleEndian
                                                               : JByteStream::BigEndian);
    Bytes data(65536, 0x44);
    s.write8(data.data(), 65536);
    EXPECT_EQ(d.output.size(), 65529u);  // written out when the 65530th byte was put
    s.flush();
    EXPECT_EQ(d.output, data);
}

TEST(ByteStreamTest, BulkReadAbove65536CopiesBufferedBytesThenReadsTheRest)
{
    Bytes data(70000);
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<unsigned char>((i * 13) >> 3);
    ScriptedDevice d(data);
    JByteStream s(&d);
    EXPECT_EQ(s.getu8(), data[0]);  // fills the buffer with 65536 bytes
    Bytes out(69999);
    s.read8(out.data(), 69999);
    EXPECT_EQ(out, Bytes(data.begin() + 1, data.end()));
    EXPECT_EQ(d.readRequests, (std::vector<unsigned int>{65536, 69999 - 65535}));
    EXPECT_EQ(endOfFileMessage(s), "Unexpected end of file");
}

TEST(ByteStreamTest, BulkReadPastTheEndThrowsUnexpectedEndOfInput)
{
    ScriptedDevice d(Bytes(65537, 1));
    JByteStream s(&d);
    Bytes out(65538);
    try {
        s.read8(out.data(), 65538);
        FAIL() << "no exception";
    } catch (const JEx& e) {
        EXPECT_STREQ(e.what(), "Unexpected end of input");
    }
}

TEST(ByteStreamTest, SmallRead8TakesBytesThroughTheBuffer)
{
    ScriptedDevice d({1, 2, 3, 4, 5});
    JByteStream s(&d);
    unsigned char out[3];
    s.read8(out, 3);
    EXPECT_EQ(Bytes(out, out + 3), (Bytes{1, 2, 3}));
    EXPECT_EQ(s.getu8(), 4);
    EXPECT_EQ(d.readCalls, 1);
}

TEST(ByteStreamTest, CloseWritesPendingBytesClosesAndDetachesTheDevice)
{
    ScriptedDevice d;
    JByteStream s(&d);
    s.putu8(1);
    s.close();
    EXPECT_EQ(d.output, (Bytes{1}));
    EXPECT_EQ(d.closeCalls, 1);
    EXPECT_EQ(s.device(), nullptr);
    s.close();
    EXPECT_EQ(d.closeCalls, 1);
}

TEST(ByteStreamTest, AttachClosesThePreviousDevice)
{
    ScriptedDevice a;
    ScriptedDevice b({9});
    JByteStream s(&a);
    s.putu8(7);
    s.attach(&b);
    EXPECT_EQ(a.output, (Bytes{7}));
    EXPECT_EQ(a.closeCalls, 1);
    EXPECT_EQ(s.device(), &b);
    EXPECT_EQ(s.getu8(), 9);
}
