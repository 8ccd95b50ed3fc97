#include "denoise/raster/mean_sqr.h"

#include <gtest/gtest.h>

#include "support/plane_node.h"

using murmex_test::PlaneNode;

TEST(MeanSqrTest, RegionLeavesOutTheLastColumnAndRow)
{
    PlaneNode input(7, 5, 1.0f);
    JIncrRaster_MeanSqr node(input);
    EXPECT_EQ(node.region().left, 0);
    EXPECT_EQ(node.region().top, 0);
    EXPECT_EQ(node.region().right, 6);
    EXPECT_EQ(node.region().bottom, 4);
    EXPECT_EQ(node.width(), 7);
    EXPECT_EQ(node.height(), 5);
}

TEST(MeanSqrTest, ConstructorReferencesTheRegionRowsWithoutComputingThem)
{
    const int w = 4, h = 6;
    PlaneNode input(w, h, 1.0f);
    JIncrRaster_MeanSqr node(input);
    for (int y = 0; y < h; ++y)
        EXPECT_EQ(input.refCount(y), y < h - 1 ? 1 : 0) << "row " << y;
    EXPECT_EQ(input.totalComputes(), 0);
    for (int y = 0; y < h - 1; ++y)
        input.unrefScanline(y);
}

TEST(MeanSqrTest, PlaneOfHeightOneReferencesNothing)
{
    PlaneNode input(5, 1, 1.0f);
    JIncrRaster_MeanSqr node(input);
    EXPECT_EQ(input.refCount(0), 0);
}
