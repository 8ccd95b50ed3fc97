#include "denoise/raster/blend.h"

#include <cmath>
#include <random>

#include <gtest/gtest.h>

#include "support/bits.h"
#include "support/plane_node.h"
#include "support/planes.h"
#include "support/simd_paths.h"

using murmex_test::PlaneNode;

namespace {

std::vector<float> blendPlanes(int w, int h, const std::vector<float>& a, const std::vector<float>& b,
                               const std::vector<float>& mask)
{
    PlaneNode na(w, h, a);
    PlaneNode nb(w, h, b);
    PlaneNode nm(w, h, mask);
    JIncrRaster_Blend node(na, nb, nm);
    return murmex_test::pullPlane(node);
}

}  // namespace

TEST(BlendTest, MaskOneGivesA)
{
    const int w = 11, h = 2;
    const auto a = murmex_test::randomPlane(w, h, 1, 0.1f, 1.0f);
    const auto b = murmex_test::randomPlane(w, h, 2, 0.1f, 1.0f);
    murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& p) {
        const auto got = blendPlanes(w, h, a, b, std::vector<float>(w * h, 1.0f));
        EXPECT_TRUE(murmex_test::sameBits(a.data(), got.data(), w * h)) << p.name();
    });
}

TEST(BlendTest, MaskZeroGivesB)
{
    const int w = 11, h = 2;
    const auto a = murmex_test::randomPlane(w, h, 3, -1.0f, 1.0f);
    const auto b = murmex_test::randomPlane(w, h, 4, -1.0f, 1.0f);
    murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& p) {
        const auto got = blendPlanes(w, h, a, b, std::vector<float>(w * h, 0.0f));
        EXPECT_TRUE(murmex_test::sameBits(b.data(), got.data(), w * h)) << p.name();
    });
}

TEST(BlendTest, MaskHalfGivesTheMean)
{
    // 0.5*b is exact and 0.5*a + 0.5*b is rounded once, as is (a + b) * 0.5.
    const int w = 11, h = 2;
    const auto a = murmex_test::randomPlane(w, h, 5, -1.0f, 1.0f);
    const auto b = murmex_test::randomPlane(w, h, 6, -1.0f, 1.0f);
    std::vector<float> mean(w * h);
    for (int i = 0; i < w * h; ++i)
        mean[i] = (a[i] + b[i]) * 0.5f;
    murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& p) {
        const auto got = blendPlanes(w, h, a, b, std::vector<float>(w * h, 0.5f));
        EXPECT_TRUE(murmex_test::sameBits(mean.data(), got.data(), w * h)) << p.name();
    });
}

TEST(BlendTest, MaskTimesAIsFusedOntoTheRoundedRest)
{
    // Pixels chosen where one fused multiply-add and separate roundings differ.
    std::mt19937 rng(77);
    std::uniform_real_distribution<float> dist(-2.0f, 2.0f);
    std::vector<float> a, b, mask, fused;
    while (a.size() < 37) {
        const float va = dist(rng), vb = dist(rng), vm = dist(rng);
        const float rest = (1.0f - vm) * vb;
        const float product = vm * va;
        const float unfused = product + rest;
        const float f = std::fma(vm, va, rest);
        if (f == unfused)
            continue;
        a.push_back(va);
        b.push_back(vb);
        mask.push_back(vm);
        fused.push_back(f);
    }
    const int w = 37;
    murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& p) {
        const auto got = blendPlanes(w, 1, a, b, mask);
        EXPECT_TRUE(murmex_test::sameBits(fused.data(), got.data(), w)) << p.name();
    });
}

TEST(BlendTest, HandDerivedValue)
{
    // mask 0.25: 0.75 * 8 = 6, then 0.25 * 4 + 6 = 7.
    PlaneNode a(1, 1, 4.0f), b(1, 1, 8.0f), m(1, 1, 0.25f);
    JIncrRaster_Blend node(a, b, m);
    EXPECT_EQ(murmex_test::pullPlane(node), std::vector<float>{7.0f});
}

TEST(BlendTest, MirroredRowsAtTopAndBottomReadTheMirroredInputRows)
{
    const int w = 5, h = 3;
    const auto a = murmex_test::randomPlane(w, h, 81);
    const auto b = murmex_test::randomPlane(w, h, 82);
    const auto m = murmex_test::randomPlane(w, h, 83);
    PlaneNode na(w, h, a), nb(w, h, b), nm(w, h, m);
    JIncrRaster_Blend node(na, nb, nm);
    for (int y : {-1, -2, h, h + 1}) {
        const int r = murmex_test::mirroredRow(y, h);
        node.refScanline(y);
        const float* row = node.getScanline(y);
        for (int x = 0; x < w; ++x) {
            const int i = r * w + x;
            EXPECT_EQ(row[x], std::fma(m[i], a[i], (1.0f - m[i]) * b[i])) << "row " << y;
        }
        node.unrefScanline(y);
    }
}

TEST(BlendTest, EveryInputRowIsReleasedAfterAFullPull)
{
    const int w = 9, h = 5;
    PlaneNode a(w, h, 1.0f), b(w, h, 2.0f), m(w, h, 0.5f);
    JIncrRaster_Blend node(a, b, m);
    murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& p) {
        murmex_test::pullPlane(node);
        EXPECT_TRUE(murmex_test::allRowsReleased(a)) << p.name();
        EXPECT_TRUE(murmex_test::allRowsReleased(b)) << p.name();
        EXPECT_TRUE(murmex_test::allRowsReleased(m)) << p.name();
        EXPECT_TRUE(murmex_test::allRowsReleased(node)) << p.name();
    });
}

TEST(BlendTest, VectorPathsMatchScalarBitForBit)
{
    const int h = 3;
    for (int w : {1, 6, 8, 9, 15, 16, 17, 31, 33, 100}) {
        const auto a = murmex_test::mixedPlane(w, h, 300 + w);
        const auto b = murmex_test::mixedPlane(w, h, 400 + w);
        const auto m = murmex_test::mixedPlane(w, h, 500 + w);
        std::vector<float> scalar;
        murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& p) {
            const auto got = blendPlanes(w, h, a, b, m);
            if (!p.enabled)
                scalar = got;
            else
                EXPECT_TRUE(murmex_test::sameBits(scalar.data(), got.data(), w * h)) << p.name() << ", width " << w;
        });
    }
}
