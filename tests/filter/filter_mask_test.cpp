#include "filter/filter_mask.h"

#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

#include "base/ex.h"

namespace {

constexpr float kUnwritten = -7.0f;

uint16_t run(int length, int level)
{
    return static_cast<uint16_t>((length << 6) | level);
}

std::vector<float> readLum(const JFilterMask& m, int row, int x0, int x1)
{
    std::vector<float> out(static_cast<size_t>(x1 - x0 + 1), kUnwritten);
    m.getLumScanline(row, x0, x1, out.data());
    return out;
}

}  // namespace

TEST(FilterMaskTest, LevelsWidenByRepeatingTheirTopTwoBits)
{
    // level8 = (level << 2) | (level >> 4), worked out by hand.
    EXPECT_EQ(JFilterMask::levelWeight(0), 0.0f);
    EXPECT_EQ(JFilterMask::levelWeight(1), 4.0f / 255.0f);
    EXPECT_EQ(JFilterMask::levelWeight(15), 60.0f / 255.0f);
    EXPECT_EQ(JFilterMask::levelWeight(16), 65.0f / 255.0f);
    EXPECT_EQ(JFilterMask::levelWeight(47), 190.0f / 255.0f);
    EXPECT_EQ(JFilterMask::levelWeight(48), 195.0f / 255.0f);
    EXPECT_EQ(JFilterMask::levelWeight(63), 1.0f);
}

TEST(FilterMaskTest, RunLevel32GivesWeight130Over255)
{
    JFilterMask m(5, 1);
    m.setLumRow(0, {run(5, 32), 0});
    for (float w : readLum(m, 0, 0, 4))
        EXPECT_EQ(w, 130.0f / 255.0f);
}

TEST(FilterMaskTest, Word0xFFFFIsARunOf1023AtWeightOneNotATerminator)
{
    JFilterMask m(1100, 1);
    m.setLumRow(0, {0xFFFF, run(77, 0), 0x003F});
    const std::vector<float> out = readLum(m, 0, 0, 1099);
    for (int x = 0; x < 1023; ++x)
        ASSERT_EQ(out[x], 1.0f) << x;
    for (int x = 1023; x < 1100; ++x)
        ASSERT_EQ(out[x], 0.0f) << x;
}

TEST(FilterMaskTest, Word0x003FEndsTheRow)
{
    JFilterMask m(10, 1);
    m.setLumRow(0, {0x003F, 0xFFFF});
    for (float w : readLum(m, 0, 0, 9))
        EXPECT_EQ(w, kUnwritten);
}

TEST(FilterMaskTest, ColumnsMinus5To5OfA10PixelRowGiveFiveZerosThenColumns0To5)
{
    JFilterMask m(10, 1);
    m.setLumRow(0, {run(2, 63), run(3, 32), run(5, 1), 0});
    const std::vector<float> out = readLum(m, 0, -5, 5);
    const float expected[11] = {0, 0, 0, 0, 0, 1.0f, 1.0f, 130.0f / 255.0f, 130.0f / 255.0f, 130.0f / 255.0f,
                                4.0f / 255.0f};
    for (int i = 0; i < 11; ++i)
        EXPECT_EQ(out[i], expected[i]) << i;
}

TEST(FilterMaskTest, AllNullRowTablesAreEmptyOnBothChannels)
{
    JFilterMask m(8, 4);
    EXPECT_TRUE(m.isLumEmpty());
    EXPECT_TRUE(m.isChromaEmpty());
    for (int y = 0; y < 4; ++y) {
        EXPECT_TRUE(m.isLumEmpty(y));
        EXPECT_TRUE(m.isChromaEmpty(y));
    }
    JFilterMask none;
    EXPECT_TRUE(none.isLumEmpty());
    EXPECT_TRUE(none.isChromaEmpty());
}

TEST(FilterMaskTest, ChannelsAreEmptyIndependently)
{
    JFilterMask m(4, 3);
    m.setChromaRow(2, {run(4, 10), 0});
    EXPECT_TRUE(m.isLumEmpty());
    EXPECT_FALSE(m.isChromaEmpty());
    EXPECT_TRUE(m.isChromaEmpty(1));
    EXPECT_FALSE(m.isChromaEmpty(2));
    EXPECT_TRUE(m.isLumEmpty(2));
    m.setChromaRow(2, {});
    EXPECT_TRUE(m.isChromaEmpty());
}

TEST(FilterMaskTest, ChromaScanlineReadsTheChromaRows)
{
    JFilterMask m(4, 1);
    m.setLumRow(0, {run(4, 63), 0});
    m.setChromaRow(0, {run(4, 16), 0});
    std::vector<float> out(4, kUnwritten);
    m.getChromaScanline(0, 0, 3, out.data());
    for (float w : out)
        EXPECT_EQ(w, 65.0f / 255.0f);
    m.getLumScanline(0, 0, 3, out.data());
    for (float w : out)
        EXPECT_EQ(w, 1.0f);
}

TEST(FilterMaskTest, ReversedColumnRangeWritesNothing)
{
    JFilterMask m(4, 1);
    m.setLumRow(0, {run(4, 63), 0});
    float out[2] = {kUnwritten, kUnwritten};
    m.getLumScanline(0, 3, 2, out);
    EXPECT_EQ(out[0], kUnwritten);
    EXPECT_EQ(out[1], kUnwritten);
}

TEST(FilterMaskTest, RowsAndColumnsOutsideTheMaskReadZero)
{
    JFilterMask m(4, 2);
    m.setLumRow(0, {run(4, 63), 0});
    m.setLumRow(1, {run(4, 63), 0});
    for (float w : readLum(m, -1, 0, 3))
        EXPECT_EQ(w, 0.0f);
    for (float w : readLum(m, 2, 0, 3))
        EXPECT_EQ(w, 0.0f);
    for (float w : readLum(m, 0, -6, -1))
        EXPECT_EQ(w, 0.0f);
    for (float w : readLum(m, 0, 4, 9))
        EXPECT_EQ(w, 0.0f);
}

TEST(FilterMaskTest, ColumnsRightOfTheMaskAreClippedToZero)
{
    JFilterMask m(10, 1);
    m.setLumRow(0, {run(10, 63), 0});
    const std::vector<float> out = readLum(m, 0, 8, 12);
    const float expected[5] = {1.0f, 1.0f, 0.0f, 0.0f, 0.0f};
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(out[i], expected[i]) << i;
}

TEST(FilterMaskTest, NullRowReadsZero)
{
    JFilterMask m(6, 2);
    m.setLumRow(0, {run(6, 63), 0});
    for (float w : readLum(m, 1, -2, 7))
        EXPECT_EQ(w, 0.0f);
}

TEST(FilterMaskTest, ReadingStartsInsideARunAndSkipsRunsEndingAtTheStart)
{
    // Runs: columns 0-2 level 63, 3-6 level 32, 7-9 level 1.
    JFilterMask m(10, 1);
    m.setLumRow(0, {run(3, 63), run(4, 32), run(3, 1), 0});
    const float l32 = 130.0f / 255.0f, l1 = 4.0f / 255.0f;

    const std::vector<float> fromRunStart = readLum(m, 0, 3, 7);
    const float e1[5] = {l32, l32, l32, l32, l1};
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(fromRunStart[i], e1[i]) << i;

    const std::vector<float> inside = readLum(m, 0, 5, 9);
    const float e2[5] = {l32, l32, l1, l1, l1};
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(inside[i], e2[i]) << i;

    const std::vector<float> one = readLum(m, 0, 9, 9);
    EXPECT_EQ(one[0], l1);
}

TEST(FilterMaskTest, RunsEndingBeforeTheLastColumnLeaveTheRestUnwritten)
{
    JFilterMask m(10, 1);
    m.setLumRow(0, {run(4, 63), 0});
    const std::vector<float> out = readLum(m, 0, 2, 7);
    const float expected[6] = {1.0f, 1.0f, kUnwritten, kUnwritten, kUnwritten, kUnwritten};
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(out[i], expected[i]) << i;
}

TEST(FilterMaskTest, TerminatorBeforeTheFirstColumnWritesNothingInTheRow)
{
    // Columns left of the mask are still written as 0.
    JFilterMask m(10, 1);
    m.setLumRow(0, {run(4, 63), 0});
    const std::vector<float> out = readLum(m, 0, -1, 7);
    EXPECT_EQ(out[0], 0.0f);
    const std::vector<float> late = readLum(m, 0, 6, 8);
    for (float w : late)
        EXPECT_EQ(w, kUnwritten);
}

TEST(FilterMaskTest, RunsLongerThanTheRowStopAtItsLastColumn)
{
    JFilterMask m(5, 1);
    m.setLumRow(0, {run(9, 63)});
    const std::vector<float> out = readLum(m, 0, 0, 6);
    const float expected[7] = {1, 1, 1, 1, 1, 0, 0};
    for (int i = 0; i < 7; ++i)
        EXPECT_EQ(out[i], expected[i]) << i;
}

TEST(FilterMaskTest, RowWithoutTerminatorReadPastItsWordsThrows)
{
    JFilterMask m(10, 1);
    m.setLumRow(0, {run(4, 63)});
    EXPECT_THROW(readLum(m, 0, 0, 9), JEx);
    EXPECT_THROW(readLum(m, 0, 6, 9), JEx);
}

TEST(FilterMaskTest, RowIndexOutsideTheMaskThrowsForRowQueriesAndSetters)
{
    JFilterMask m(4, 2);
    EXPECT_THROW(m.isLumEmpty(2), JEx);
    EXPECT_THROW(m.isChromaEmpty(-1), JEx);
    EXPECT_THROW(m.setLumRow(2, {0}), JEx);
    EXPECT_THROW(m.setChromaRow(-1, {0}), JEx);
}
