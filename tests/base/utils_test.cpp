#include "base/utils.h"

#include <bit>
#include <cstdint>
#include <limits>

#include <gtest/gtest.h>

TEST(UtilsTest, Swap32ReversesTheFourBytes)
{
    EXPECT_EQ(swap32(0x01020304u), 0x04030201u);
    EXPECT_EQ(swap32(0xff000000u), 0x000000ffu);
}

TEST(UtilsTest, Swapf32AppliedTwiceReturnsTheSameBitPattern)
{
    const float values[] = {1.5f, -0.0f, 3.0e-40f, std::numeric_limits<float>::quiet_NaN(), 1.0e30f};
    for (float v : values)
        EXPECT_EQ(std::bit_cast<uint32_t>(swapf32(swapf32(v))), std::bit_cast<uint32_t>(v));
    // 1.0f is 0x3f800000; reversed it is 0x0000803f.
    EXPECT_EQ(std::bit_cast<uint32_t>(swapf32(1.0f)), 0x0000803fu);
}

TEST(UtilsTest, Move32CopiesWordsFromSourceToDestination)
{
    const uint32_t src[4] = {1, 2, 0xdeadbeef, 4};
    uint32_t dst[5] = {9, 9, 9, 9, 9};
    move32(src, dst, 3);
    EXPECT_EQ(dst[0], 1u);
    EXPECT_EQ(dst[1], 2u);
    EXPECT_EQ(dst[2], 0xdeadbeefu);
    EXPECT_EQ(dst[3], 9u);
    move32(src, dst, 0);
    EXPECT_EQ(dst[0], 1u);
}

TEST(UtilsTest, RoundToNearestRoundsHalvesAwayFromZero)
{
    EXPECT_EQ(roundToNearest(2.5f), 3);
    EXPECT_EQ(roundToNearest(-2.5f), -3);
    EXPECT_EQ(roundToNearest(-0.4f), 0);
    EXPECT_EQ(roundToNearest(0.49f), 0);
    EXPECT_EQ(roundToNearest(1.5f), 2);
    EXPECT_EQ(roundToNearest(-1.6f), -2);
    EXPECT_EQ(roundToNearest(7.0f), 7);
}

TEST(UtilsTest, YieldReturns)
{
    yield();
    SUCCEED();
}
