#include "base/stream_device.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/ex.h"
#include "support/scripted_device.h"

using murmex_test::ScriptedDevice;

TEST(StreamDeviceTest, WriteExactlyLoopsOverShortWrites)
{
    ScriptedDevice d({}, 3);
    const unsigned char data[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    d.writeExactly(data, 8);
    EXPECT_EQ(d.output, std::vector<unsigned char>(data, data + 8));
    EXPECT_EQ(d.writeCalls, 3);
}

TEST(StreamDeviceTest, WriteExactlyThrowsUnexpectedEndOfOutputWhenNothingIsWritten)
{
    ScriptedDevice d({}, 0);
    const unsigned char data[2] = {1, 2};
    try {
        d.writeExactly(data, 2);
        FAIL() << "no exception";
    } catch (const JEx& e) {
        EXPECT_STREQ(e.what(), "Unexpected end of output");
    }
}

TEST(StreamDeviceTest, ReadExactlyLoopsOverShortReads)
{
    ScriptedDevice d({9, 8, 7, 6, 5}, 2);
    unsigned char out[5] = {};
    d.readExactly(out, 5);
    EXPECT_EQ(std::vector<unsigned char>(out, out + 5), (std::vector<unsigned char>{9, 8, 7, 6, 5}));
    EXPECT_EQ(d.readCalls, 3);
}

TEST(StreamDeviceTest, ReadExactlyThrowsUnexpectedEndOfInputAtTheEndOfData)
{
    ScriptedDevice d({1, 2, 3});
    unsigned char out[4];
    try {
        d.readExactly(out, 4);
        FAIL() << "no exception";
    } catch (const JEx& e) {
        EXPECT_STREQ(e.what(), "Unexpected end of input");
    }
}

TEST(StreamDeviceTest, ZeroLengthDoesNothing)
{
    ScriptedDevice d({}, 0);
    d.writeExactly(nullptr, 0);
    d.readExactly(nullptr, 0);
    EXPECT_EQ(d.writeCalls, 0);
    EXPECT_EQ(d.readCalls, 0);
}
