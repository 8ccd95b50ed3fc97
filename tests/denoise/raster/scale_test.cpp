#include "denoise/raster/scale.h"

#include <gtest/gtest.h>

#include "support/bits.h"
#include "support/plane_node.h"
#include "support/planes.h"

using murmex_test::PlaneNode;

TEST(ScaleTest, EveryPixelTimesTheFactor)
{
    const int w = 9, h = 4;
    const auto plane = murmex_test::mixedPlane(w, h, 9);
    PlaneNode input(w, h, plane);
    JIncrRaster_Scale node(input, 0.7f);
    std::vector<float> expected(w * h);
    for (int i = 0; i < w * h; ++i)
        expected[i] = plane[i] * 0.7f;
    const auto got = murmex_test::pullPlane(node);
    EXPECT_TRUE(murmex_test::sameBits(expected.data(), got.data(), w * h));
    EXPECT_TRUE(murmex_test::allRowsReleased(input));
}

TEST(ScaleTest, HandDerivedValues)
{
    PlaneNode input(3, 1, std::vector<float>{1.0f, -2.0f, 0.25f});
    JIncrRaster_Scale node(input, 4.0f);
    EXPECT_EQ(murmex_test::pullPlane(node), (std::vector<float>{4.0f, -8.0f, 1.0f}));
}

TEST(ScaleTest, MirroredRowsAtTopAndBottomReadTheMirroredInputRows)
{
    const int w = 3, h = 4;
    const auto plane = murmex_test::randomPlane(w, h, 10);
    PlaneNode input(w, h, plane);
    JIncrRaster_Scale node(input, 2.0f);
    for (int y : {-1, -2, h, h + 1}) {
        const int r = murmex_test::mirroredRow(y, h);
        node.refScanline(y);
        const float* row = node.getScanline(y);
        for (int x = 0; x < w; ++x)
            EXPECT_EQ(row[x], plane[r * w + x] * 2.0f) << "row " << y;
        node.unrefScanline(y);
    }
    EXPECT_TRUE(murmex_test::allRowsReleased(input));
}
