#include "profile/map_3d.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <random>

#include <gtest/gtest.h>

#include "base/ex.h"
#include "support/bits.h"

namespace {

int cell(int i, int j, int k)
{
    return i * 64 + j * 8 + k;
}

}  // namespace

TEST(Map3DTest, NewMapIsAllZero)
{
    J3DMap map;
    EXPECT_EQ(map.cellCount(), 512);
    for (int c = 0; c < map.cellCount(); ++c) {
        EXPECT_EQ(map.getCellValue(c), 0.0f);
        EXPECT_EQ(map.getCellCount(c), 0);
    }
}

TEST(Map3DTest, LookupOfOneOneOneReadsCell511)
{
    J3DMap map;
    for (int c = 0; c < 512; ++c)
        map.setCellValue(c, static_cast<float>(c));
    EXPECT_EQ(map.lookup(1.0f, 1.0f, 1.0f), 511.0f);
    EXPECT_EQ(J3DMap::indexOf(1.0f, 1.0f, 1.0f), 511);
}

TEST(Map3DTest, LookupOfOneEighthReadsCell0)
{
    J3DMap map;
    for (int c = 0; c < 512; ++c)
        map.setCellValue(c, static_cast<float>(c));
    EXPECT_EQ(map.lookup(0.125f, 0.0f, 0.0f), 0.0f);
}

TEST(Map3DTest, CoordinateOrderIsFirstSlowest)
{
    EXPECT_EQ(J3DMap::indexOf(0.5f, 0.0f, 0.0f), cell(3, 0, 0));
    EXPECT_EQ(J3DMap::indexOf(0.0f, 0.5f, 0.0f), cell(0, 3, 0));
    EXPECT_EQ(J3DMap::indexOf(0.0f, 0.0f, 0.5f), cell(0, 0, 3));
}

TEST(Map3DTest, OutOfRangeCoordinatesWrapByTheirLowBits)
{
    EXPECT_EQ(J3DMap::cellCoord(1.2f), 1);   // 9.5988 -> 9 -> 1
    EXPECT_EQ(J3DMap::cellCoord(-0.5f), 5);  // -3.9995 -> -3 -> 5
    EXPECT_EQ(J3DMap::cellCoord(1e20f), 7);  // saturates to INT_MAX
    EXPECT_EQ(J3DMap::cellCoord(std::numeric_limits<float>::infinity()), 7);
    EXPECT_EQ(J3DMap::cellCoord(-1e20f), 0);  // saturates to INT_MIN
    EXPECT_EQ(J3DMap::cellCoord(std::numeric_limits<float>::quiet_NaN()), 0);
    EXPECT_EQ(J3DMap::cellCoord(-0.1f), 0);  // -0.7999 truncates to 0
}

TEST(Map3DTest, AddSampleLookupAndHasSampleShareTheWrap)
{
    J3DMap map;
    map.addSample(1.2f, -0.5f, 0.0f, 4.0f);
    EXPECT_EQ(map.getCellCount(cell(1, 5, 0)), 1);
    EXPECT_TRUE(map.hasSample(0.13f, 0.7f, 0.0f));
    EXPECT_EQ(map.lookup(0.13f, 0.7f, 0.0f), 4.0f);
}

TEST(Map3DTest, SamplesOfACellAreAveraged)
{
    J3DMap map;
    map.beginSampling();
    map.addSample(0.5f, 0.5f, 0.5f, 1.0f);
    map.addSample(0.45f, 0.5f, 0.5f, 2.0f);
    map.addSample(0.5f, 0.4f, 0.5f, 6.0f);
    map.endSampling();
    EXPECT_EQ(map.lookup(0.5f, 0.5f, 0.5f), 3.0f);
    EXPECT_TRUE(map.hasSample(0.5f, 0.5f, 0.5f));
}

TEST(Map3DTest, SingleMeasuredCellFillsEveryCell)
{
    J3DMap map;
    map.beginSampling();
    map.addSample(0.3f, 0.6f, 0.9f, 0.0371f);
    map.endSampling();
    for (int c = 0; c < 512; ++c)
        EXPECT_EQ(map.getCellValue(c), 0.0371f) << c;
}

TEST(Map3DTest, NoMeasuredCellGivesZeroEverywhere)
{
    J3DMap map;
    map.beginSampling();
    map.endSampling();
    for (int c = 0; c < 512; ++c)
        EXPECT_EQ(map.getCellValue(c), 0.0f) << c;
}

TEST(Map3DTest, TwoMeasuredCellsInterpolateByInverseSquareDistance)
{
    J3DMap map;
    map.beginSampling();
    map.addSample(0.0f, 0.0f, 0.0f, 1.0f);  // cell (0, 0, 0)
    map.addSample(1.0f, 0.5f, 0.25f, 5.0f);  // cell (7, 3, 1)
    map.endSampling();

    // Empty cell (2, 3, 4): squared distances in cell units 2²+3²+4² = 29 and
    // 5²+0²+3² = 34, scaled by 0.125².
    const double d0 = 29.0 / 64.0, d1 = 34.0 / 64.0;
    const double w0 = 1.0 / (d0 + 1e-6), w1 = 1.0 / (d1 + 1e-6);
    const double expected = (w0 * 1.0 + w1 * 5.0) / (w0 + w1);
    EXPECT_EQ(map.getCellValue(cell(2, 3, 4)), static_cast<float>(expected));
    EXPECT_FALSE(map.hasSample(0.3f, 0.4f, 0.55f));

    EXPECT_EQ(map.getCellValue(cell(0, 0, 0)), 1.0f);
    EXPECT_EQ(map.getCellValue(cell(7, 3, 1)), 5.0f);
    EXPECT_TRUE(map.hasSample(1.0f, 0.5f, 0.25f));
}

TEST(Map3DTest, FilledCellsKeepCountZero)
{
    J3DMap map;
    map.addSample(0.0f, 0.0f, 0.0f, 1.0f);
    map.addSample(1.0f, 1.0f, 1.0f, 3.0f);
    map.endSampling();
    int measured = 0;
    for (int c = 0; c < 512; ++c)
        measured += map.getCellCount(c) > 0;
    EXPECT_EQ(measured, 2);
}

TEST(Map3DTest, ClearResetsValuesAndCounts)
{
    J3DMap map;
    map.addSample(0.5f, 0.5f, 0.5f, 1.0f);
    map.clear();
    EXPECT_EQ(map.lookup(0.5f, 0.5f, 0.5f), 0.0f);
    EXPECT_FALSE(map.hasSample(0.5f, 0.5f, 0.5f));
}

TEST(Map3DTest, CellAccessOutsideTheGridThrows)
{
    J3DMap map;
    EXPECT_THROW(map.getCellValue(512), JEx);
    EXPECT_THROW(map.setCellValue(-1, 0.0f), JEx);
    EXPECT_THROW(map.getCellCount(600), JEx);
}

TEST(Map3DTest, IndexOfSIMDMatchesIndexOfLaneByLane)
{
    std::mt19937 rng(1234);
    std::uniform_real_distribution<float> dist(-2.0f, 3.0f);
    const float unusual[] = {0.0f, 1.0f, 0.125f, -0.5f, 1.2f, 1e20f, -1e20f,
                              std::numeric_limits<float>::quiet_NaN(),
                              std::numeric_limits<float>::infinity(), -0.0f};
    std::vector<float> xs, ys, zs;
    for (float s : unusual)
        for (float t : unusual) {
            xs.push_back(s);
            ys.push_back(t);
            zs.push_back(s);
        }
    for (int i = 0; i < 4000; ++i) {
        xs.push_back(dist(rng));
        ys.push_back(dist(rng));
        zs.push_back(dist(rng));
    }
    while (xs.size() % 4) {
        xs.push_back(0.5f);
        ys.push_back(0.5f);
        zs.push_back(0.5f);
    }
    for (size_t i = 0; i < xs.size(); i += 4) {
        const __m128i idx = J3DMap::indexOf_SIMD(_mm_loadu_ps(&xs[i]), _mm_loadu_ps(&ys[i]), _mm_loadu_ps(&zs[i]));
        int32_t lanes[4];
        _mm_storeu_si128(reinterpret_cast<__m128i*>(lanes), idx);
        for (int l = 0; l < 4; ++l)
            ASSERT_EQ(lanes[l], J3DMap::indexOf(xs[i + l], ys[i + l], zs[i + l])) << i + l;
    }
}

namespace {

// The fill of empty cells written out plainly, one cell and one division at
// a time: what endSampling must give bit for bit.
void fillEmptyCellsPlainly(float* values, const int32_t* counts)
{
    for (int c = 0; c < 512; ++c) {
        if (counts[c] != 0)
            continue;
        const int i = c >> 6, j = (c >> 3) & 7, k = c & 7;
        double sumWV = 0.0;
        double sumW = 0.0;
        for (int m = 0; m < 512; ++m) {
            if (counts[m] <= 0)
                continue;
            const double di = static_cast<double>(i - (m >> 6)) * 0.125;
            const double dj = static_cast<double>(j - ((m >> 3) & 7)) * 0.125;
            const double dk = static_cast<double>(k - (m & 7)) * 0.125;
            const double w = 1.0 / (di * di + dj * dj + dk * dk + 1e-6);
            sumWV += w * static_cast<double>(values[m]);
            sumW += w;
        }
        if (!(sumW > 1e-38))
            sumW = 1e-38;
        values[c] = static_cast<float>(sumWV / sumW);
    }
}

}  // namespace

TEST(Map3DTest, FilledCellsMatchThePlainSumsBitForBit)
{
    std::mt19937 rng(11);
    std::uniform_real_distribution<float> coord(0.0f, 1.0f);
    std::uniform_real_distribution<float> exponent(-30.0f, 30.0f);
    // From one measured cell to nearly all of them, so that the empty cells
    // come in every remainder of the four summed side by side.
    for (const int samples : {1, 2, 3, 5, 17, 60, 200, 700, 3000}) {
        J3DMap map;
        map.beginSampling();
        for (int s = 0; s < samples; ++s)
            map.addSample(coord(rng), coord(rng), coord(rng), std::exp2(exponent(rng)) * (coord(rng) - 0.3f));
        float values[512];
        int32_t counts[512];
        for (int c = 0; c < 512; ++c) {
            counts[c] = map.getCellCount(c);
            values[c] = counts[c] > 0 ? map.getCellValue(c) / static_cast<float>(counts[c]) : map.getCellValue(c);
        }
        fillEmptyCellsPlainly(values, counts);
        map.endSampling();
        EXPECT_TRUE(murmex_test::sameBits(map.cellValues(), values, 512)) << samples << " samples";
    }
}
