#include "denoise/raster/enhance.h"

#include <gtest/gtest.h>

#include "support/bits.h"
#include "support/plane_node.h"
#include "support/planes.h"

using murmex_test::PlaneNode;

TEST(EnhanceTest, FactorTimesTheRoundedDifference)
{
    const int w = 9, h = 4;
    const auto a = murmex_test::mixedPlane(w, h, 13);
    const auto b = murmex_test::mixedPlane(w, h, 14);
    PlaneNode na(w, h, a), nb(w, h, b);
    JIncrRaster_Enhance node(na, nb, 1.3f);
    std::vector<float> expected(w * h);
    for (int i = 0; i < w * h; ++i) {
        const float d = a[i] - b[i];
        expected[i] = 1.3f * d;
    }
    const auto got = murmex_test::pullPlane(node);
    EXPECT_TRUE(murmex_test::sameBits(expected.data(), got.data(), w * h));
    EXPECT_TRUE(murmex_test::allRowsReleased(na));
    EXPECT_TRUE(murmex_test::allRowsReleased(nb));
}

TEST(EnhanceTest, HandDerivedValues)
{
    PlaneNode a(2, 1, std::vector<float>{3.0f, 0.5f});
    PlaneNode b(2, 1, std::vector<float>{1.0f, 1.5f});
    JIncrRaster_Enhance node(a, b, 2.5f);
    EXPECT_EQ(murmex_test::pullPlane(node), (std::vector<float>{5.0f, -2.5f}));
}

TEST(EnhanceTest, MirroredRowsAtTopAndBottomReadTheMirroredInputRows)
{
    const int w = 3, h = 5;
    const auto a = murmex_test::randomPlane(w, h, 15);
    const auto b = murmex_test::randomPlane(w, h, 16);
    PlaneNode na(w, h, a), nb(w, h, b);
    JIncrRaster_Enhance node(na, nb, 3.0f);
    for (int y : {-1, -4, h, h + 3}) {
        const int r = murmex_test::mirroredRow(y, h);
        node.refScanline(y);
        const float* row = node.getScanline(y);
        for (int x = 0; x < w; ++x)
            EXPECT_EQ(row[x], 3.0f * (a[r * w + x] - b[r * w + x])) << "row " << y;
        node.unrefScanline(y);
    }
}
