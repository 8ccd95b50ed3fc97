#include "denoise/raster/mean_abs.h"

#include <cmath>

#include <gtest/gtest.h>

#include "support/plane_node.h"
#include "support/planes.h"

using murmex_test::PlaneNode;

TEST(MeanAbsTest, TwoByTwoPlaneReadsOnlyTheFirstPixelAndDividesByOnePointZeroZeroZeroOne)
{
    PlaneNode input(2, 2, std::vector<float>{-3.0f, 100.0f, 200.0f, 300.0f});
    JIncrRaster_MeanAbs node(input);
    EXPECT_EQ(node.calcResult(), static_cast<float>(3.0 / 1.0001));
    EXPECT_EQ(input.computeCount(0), 1);
    EXPECT_EQ(input.computeCount(1), 0);
}

TEST(MeanAbsTest, PlaneOfWidthOneSumsNothing)
{
    PlaneNode input(1, 5, 7.0f);
    JIncrRaster_MeanAbs node(input);
    EXPECT_EQ(node.calcResult(), 0.0f);
    EXPECT_TRUE(murmex_test::allRowsReleased(input));
}

TEST(MeanAbsTest, PlaneOfHeightOneSumsNothing)
{
    PlaneNode input(5, 1, 7.0f);
    JIncrRaster_MeanAbs node(input);
    EXPECT_EQ(input.refCount(0), 0);
    EXPECT_EQ(node.calcResult(), 0.0f);
    EXPECT_EQ(input.totalComputes(), 0);
}

TEST(MeanAbsTest, MeanOverTheRegionLeavingOutTheLastColumnAndRow)
{
    const int w = 7, h = 5;
    const auto plane = murmex_test::randomPlane(w, h, 99, -1.0f, 1.0f);
    double sum = 0.0;
    for (int y = 0; y < h - 1; ++y)
        for (int x = 0; x < w - 1; ++x)
            sum += std::fabs(plane[y * w + x]);
    const float count = 24.0f;  // (7 - 1) * (5 - 1)
    const float expected = static_cast<float>(sum / (static_cast<double>(count) + 0.0001));
    PlaneNode input(w, h, plane);
    JIncrRaster_MeanAbs node(input);
    EXPECT_EQ(node.calcResult(), expected);
}

TEST(MeanAbsTest, HandDerivedMeanOfAThreeByThreePlane)
{
    // Region: pixels (0,0), (1,0), (0,1), (1,1) = 1, -2, 3, -4: sum 10 over 4.0001.
    PlaneNode input(3, 3, std::vector<float>{1.0f, -2.0f, 50.0f, 3.0f, -4.0f, 60.0f, 70.0f, 80.0f, 90.0f});
    JIncrRaster_MeanAbs node(input);
    EXPECT_EQ(node.calcResult(), static_cast<float>(10.0 / 4.0001));
}

TEST(MeanAbsTest, ConstructorReferencesTheRegionRowsAndTheResultReleasesThem)
{
    const int w = 4, h = 6;
    PlaneNode input(w, h, 1.0f);
    JIncrRaster_MeanAbs node(input);
    for (int y = 0; y < h; ++y)
        EXPECT_EQ(input.refCount(y), y < h - 1 ? 1 : 0) << "row " << y;
    EXPECT_EQ(input.totalComputes(), 0);
    node.calcResult();
    EXPECT_TRUE(murmex_test::allRowsReleased(input));
    for (int y = 0; y < h; ++y)
        EXPECT_EQ(input.computeCount(y), y < h - 1 ? 1 : 0) << "row " << y;
}

TEST(MeanAbsTest, SumIsAccumulatedInDouble)
{
    // 1 followed by 1023 values of 2^-25 (a quarter of the spacing of floats
    // near 1): each would vanish in a float sum, the double sum keeps them.
    const int w = 1025, h = 2;
    std::vector<float> plane(w * h, std::ldexp(1.0f, -25));
    plane[0] = 1.0f;
    PlaneNode input(w, h, plane);
    JIncrRaster_MeanAbs node(input);
    const double sum = 1.0 + 1023.0 * std::ldexp(1.0, -25);
    EXPECT_EQ(node.calcResult(), static_cast<float>(sum / (1024.0 + 0.0001)));
    float floatSum = 1.0f;
    for (int i = 0; i < 1023; ++i)
        floatSum += std::ldexp(1.0f, -25);
    EXPECT_NE(static_cast<float>(sum / (1024.0 + 0.0001)), static_cast<float>(floatSum / (1024.0 + 0.0001)));
}
