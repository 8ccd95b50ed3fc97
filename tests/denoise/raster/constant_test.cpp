#include "denoise/raster/constant.h"

#include <gtest/gtest.h>

#include "denoise/raster/subtract.h"
#include "support/bits.h"
#include "support/plane_node.h"
#include "support/planes.h"
#include "support/simd_paths.h"

using murmex_test::PlaneNode;

TEST(ConstantTest, EveryPixelOfTheRowIsTheValue)
{
    JIncrRaster_Constant node(0.5f, 7, 3);
    EXPECT_EQ(node.width(), 7);
    EXPECT_EQ(node.height(), 3);
    node.refScanline(1);
    const float* row = node.getScanline(1);
    for (int x = 0; x < 7; ++x)
        EXPECT_EQ(row[x], 0.5f);
    node.unrefScanline(1);
}

TEST(ConstantTest, RowPointerIsTheSameForEveryRowIndex)
{
    JIncrRaster_Constant node(2.0f, 5, 4);
    const float* first = node.getScanline(0);
    for (int y : {1, 3, -1, -4, -100, 4, 5, 1000})
        EXPECT_EQ(node.getScanline(y), first) << "row " << y;
}

TEST(ConstantTest, NothingIsComputedCachedOrPooled)
{
    JIncrRaster_Constant node(1.0f, 5, 4);
    node.requestReflection(6);
    for (int y = 0; y < 4; ++y) {
        node.refScanline(y);
        node.getScanline(y);
    }
    for (int y = 0; y < 4; ++y) {
        EXPECT_FALSE(node.rowPresent(y));
        node.unrefScanline(y);
    }
    EXPECT_EQ(node.pooledBuffers(), 0);
    EXPECT_TRUE(murmex_test::allRowsReleased(node));
}

TEST(ConstantTest, ServesAsTheNeutralInputOfAnotherNodeOnEveryPath)
{
    // Widths that leave vector tails: the consumer must not read past the row.
    for (int w : {1, 5, 13, 17, 35}) {
        const int h = 3;
        const auto plane = murmex_test::mixedPlane(w, h, 600 + w);
        std::vector<float> expected(w * h);
        for (int i = 0; i < w * h; ++i)
            expected[i] = plane[i] - 0.5f;
        murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& p) {
            PlaneNode a(w, h, plane);
            JIncrRaster_Constant neutral(0.5f, w, h);
            JIncrRaster_Subtract node(a, neutral);
            const auto got = murmex_test::pullPlane(node);
            EXPECT_TRUE(murmex_test::sameBits(expected.data(), got.data(), w * h)) << p.name() << ", width " << w;
        });
    }
}
