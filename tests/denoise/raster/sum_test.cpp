#include "denoise/raster/sum.h"

#include <memory>

#include <gtest/gtest.h>

#include "base/ex.h"
#include "support/bits.h"
#include "support/plane_node.h"
#include "support/planes.h"
#include "support/simd_paths.h"

using murmex_test::PlaneNode;

namespace {

std::vector<float> sumPlanes(int w, int h, const std::vector<std::vector<float>>& planes)
{
    std::vector<std::unique_ptr<PlaneNode>> nodes;
    std::vector<JIncrRaster*> inputs;
    for (const auto& p : planes) {
        nodes.push_back(std::make_unique<PlaneNode>(w, h, p));
        inputs.push_back(nodes.back().get());
    }
    JIncrRaster_Sum node(inputs.data(), static_cast<int>(inputs.size()));
    return murmex_test::pullPlane(node);
}

}  // namespace

TEST(SumTest, OneInputIsACopyOfIt)
{
    const int w = 13, h = 3;
    const auto a = murmex_test::mixedPlane(w, h, 5);
    murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& p) {
        const auto got = sumPlanes(w, h, {a});
        EXPECT_TRUE(murmex_test::sameBits(a.data(), got.data(), w * h)) << p.name();
    });
}

TEST(SumTest, AddsInArrayOrder)
{
    // (1e8 + -1e8) + 1 is 1, while 1e8 + (-1e8 + 1) would round to 0.
    const int w = 17, h = 1;
    const std::vector<float> a(w, 1e8f), b(w, -1e8f), c(w, 1.0f);
    murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& p) {
        const auto got = sumPlanes(w, h, {a, b, c});
        for (int x = 0; x < w; ++x)
            EXPECT_EQ(got[x], 1.0f) << p.name() << " x " << x;
        const auto reversed = sumPlanes(w, h, {c, b, a});
        for (int x = 0; x < w; ++x)
            EXPECT_EQ(reversed[x], 0.0f) << p.name() << " x " << x;
    });
}

TEST(SumTest, EveryPixelIsTheLeftToRightSum)
{
    const int w = 21, h = 4;
    std::vector<std::vector<float>> planes;
    for (uint32_t s = 0; s < 6; ++s)
        planes.push_back(murmex_test::randomPlane(w, h, 40 + s, -1.0f, 1.0f));
    std::vector<float> expected(w * h);
    for (int i = 0; i < w * h; ++i) {
        float v = planes[0][i];
        for (size_t k = 1; k < planes.size(); ++k)
            v = v + planes[k][i];
        expected[i] = v;
    }
    murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& p) {
        const auto got = sumPlanes(w, h, planes);
        EXPECT_TRUE(murmex_test::sameBits(expected.data(), got.data(), w * h)) << p.name();
    });
}

TEST(SumTest, SizeComesFromTheFirstInputAndThePointersAreCopied)
{
    PlaneNode a(6, 4, 1.0f);
    PlaneNode b(6, 4, 2.0f);
    JIncrRaster* inputs[2] = {&a, &b};
    JIncrRaster_Sum node(inputs, 2);
    inputs[0] = inputs[1] = nullptr;
    EXPECT_EQ(node.width(), 6);
    EXPECT_EQ(node.height(), 4);
    const auto got = murmex_test::pullPlane(node);
    for (float v : got)
        EXPECT_EQ(v, 3.0f);
}

TEST(SumTest, NoInputsThrows)
{
    PlaneNode a(2, 2, 1.0f);
    JIncrRaster* inputs[1] = {&a};
    EXPECT_THROW(JIncrRaster_Sum(inputs, 0), JEx);
}

TEST(SumTest, MirroredRowsAtTopAndBottomReadTheMirroredInputRows)
{
    const int w = 3, h = 4;
    const auto a = murmex_test::randomPlane(w, h, 61);
    const auto b = murmex_test::randomPlane(w, h, 62);
    PlaneNode na(w, h, a);
    PlaneNode nb(w, h, b);
    JIncrRaster* inputs[2] = {&na, &nb};
    JIncrRaster_Sum node(inputs, 2);
    for (int y : {-1, -3, h, h + 2}) {
        const int r = murmex_test::mirroredRow(y, h);
        node.refScanline(y);
        const float* row = node.getScanline(y);
        for (int x = 0; x < w; ++x)
            EXPECT_EQ(row[x], a[r * w + x] + b[r * w + x]) << "row " << y;
        node.unrefScanline(y);
    }
}

TEST(SumTest, EveryInputRowIsReleasedAfterAFullPull)
{
    const int w = 9, h = 5;
    PlaneNode a(w, h, 1.0f), b(w, h, 2.0f), c(w, h, 3.0f);
    JIncrRaster* inputs[3] = {&a, &b, &c};
    JIncrRaster_Sum node(inputs, 3);
    murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& p) {
        murmex_test::pullPlane(node);
        EXPECT_TRUE(murmex_test::allRowsReleased(a)) << p.name();
        EXPECT_TRUE(murmex_test::allRowsReleased(b)) << p.name();
        EXPECT_TRUE(murmex_test::allRowsReleased(c)) << p.name();
        EXPECT_TRUE(murmex_test::allRowsReleased(node)) << p.name();
    });
}

TEST(SumTest, VectorPathsMatchScalarBitForBit)
{
    const int h = 3;
    for (int w : {1, 5, 8, 9, 15, 16, 17, 30, 47, 64, 100}) {
        std::vector<std::vector<float>> planes;
        for (uint32_t s = 0; s < 5; ++s)
            planes.push_back(murmex_test::mixedPlane(w, h, 1000 * s + w));
        std::vector<float> scalar;
        murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& p) {
            const auto got = sumPlanes(w, h, planes);
            if (!p.enabled)
                scalar = got;
            else
                EXPECT_TRUE(murmex_test::sameBits(scalar.data(), got.data(), w * h)) << p.name() << ", width " << w;
        });
    }
}
