#include "denoise/raster/vblur.h"

#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "support/bits.h"
#include "support/plane_node.h"
#include "support/planes.h"
#include "support/simd_paths.h"

using murmex_test::PlaneNode;

namespace {

// Taps -3k..3k written out: expf(-i^2 / ((sigma + sigma) * sigma)), divided
// by their sum taken from -3k upwards.
std::vector<float> literalKernel(float sigma, int k)
{
    std::vector<float> w;
    float sum = 0.0f;
    for (int i = -3 * k; i <= 3 * k; ++i) {
        const float num = -static_cast<float>(i * i);
        const float den = (sigma + sigma) * sigma;
        w.push_back(std::exp(num / den));
        sum = sum + w.back();
    }
    for (float& x : w)
        x = x / sum;
    return w;
}

std::vector<float> literalVBlur(const std::vector<float>& p, int w, int h, float sigma, int k)
{
    const std::vector<float> taps = literalKernel(sigma, k);
    std::vector<float> out(p.size());
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            float s = 0.0f;
            for (int i = -3 * k; i <= 3 * k; ++i)
                s = std::fma(taps[i + 3 * k], p[static_cast<size_t>(murmex_test::mirroredRow(y + i, h)) * w + x], s);
            out[static_cast<size_t>(y) * w + x] = s;
        }
    return out;
}

}  // namespace

TEST(VBlurTest, KernelUnitFollowsSigma)
{
    EXPECT_EQ(JIncrRaster_VBlur::kernelUnit(0.4f), 1);  // 7 taps
    EXPECT_EQ(JIncrRaster_VBlur::kernelUnit(1.0f), 1);
    EXPECT_EQ(JIncrRaster_VBlur::kernelUnit(1.5f), 2);
    EXPECT_EQ(JIncrRaster_VBlur::kernelUnit(2.5f), 3);  // 19 taps
    EXPECT_EQ(JIncrRaster_VBlur::kernelUnit(10.0f), 3);
    EXPECT_EQ(JIncrRaster_VBlur::kernelUnit(0.0f), 1);
    EXPECT_EQ(JIncrRaster_VBlur::kernelUnit(1e30f), 3);
}

TEST(VBlurTest, SigmaPointFourReadsSevenRowsAndTwoPointFiveNineteen)
{
    for (auto [sigma, rows] : {std::pair{0.4f, 7}, std::pair{2.5f, 19}, std::pair{10.0f, 19}}) {
        PlaneNode in(4, 40, 0.0f);
        JIncrRaster_VBlur node(in, sigma);
        node.refScanline(20);
        int referenced = 0;
        for (int y = 0; y < 40; ++y)
            referenced += in.refCount(y);
        EXPECT_EQ(referenced, rows) << "sigma " << sigma;
        node.getScanline(20);
        node.unrefScanline(20);
        EXPECT_TRUE(murmex_test::allRowsReleased(in));
    }
}

TEST(VBlurTest, KernelMatchesTheGaussianFormula)
{
    for (float sigma : {0.4f, 1.3f, 2.5f, 10.0f}) {
        PlaneNode in(4, 4, 0.0f);
        JIncrRaster_VBlur node(in, sigma);
        const std::vector<float> want = literalKernel(sigma, node.k());
        for (int i = -3 * node.k(); i <= 3 * node.k(); ++i) {
            EXPECT_EQ(murmex_test::floatBits(node.tap(i)), murmex_test::floatBits(want[i + 3 * node.k()]));
            EXPECT_EQ(node.tap(i), node.tap(-i));
        }
    }
}

TEST(VBlurTest, MatchesTheLiteralFusedSum)
{
    const int w = 19, h = 25;
    const std::vector<float> p = murmex_test::mixedPlane(w, h, 44);
    for (float sigma : {0.4f, 1.7f, 2.5f}) {
        PlaneNode in(w, h, p);
        JIncrRaster_VBlur node(in, sigma);
        const std::vector<float> want = literalVBlur(p, w, h, sigma, node.k());
        murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& path) {
            const std::vector<float> got = murmex_test::pullPlane(node);
            EXPECT_TRUE(murmex_test::sameBits(got.data(), want.data(), w * h)) << path.name() << " sigma " << sigma;
        });
    }
}

TEST(VBlurTest, ConstantPlaneStaysNearlyConstant)
{
    PlaneNode in(9, 30, 0.6f);
    JIncrRaster_VBlur node(in, 2.5f);
    for (float v : murmex_test::pullPlane(node))
        EXPECT_NEAR(v, 0.6f, 1e-6f);
}

TEST(VBlurTest, VectorPathsGiveTheScalarBits)
{
    // Awkward widths around the 4-, 8- and 16-wide steps; every row, so the
    // top and bottom rows read mirrored rows; turbo set on half the runs
    // (the node ignores it and must still agree).
    for (int w : {1, 3, 4, 7, 9, 15, 17, 31, 33, 100})
        for (float sigma : {0.4f, 1.2f, 2.5f})
            for (bool turbo : {false, true}) {
                const int h = 5 + w % 7;
                const std::vector<float> p = murmex_test::mixedPlane(w, h, 7 * w + 1);
                std::vector<float> scalar;
                murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& path) {
                    PlaneNode in(w, h, p);
                    JIncrRaster_VBlur node(in, sigma);
                    node.setTurbo(turbo);
                    const std::vector<float> out = murmex_test::pullPlane(node);
                    if (!path.enabled)
                        scalar = out;
                    else
                        EXPECT_TRUE(murmex_test::sameBits(scalar.data(), out.data(), w * h))
                            << path.name() << " width " << w << " sigma " << sigma;
                    EXPECT_TRUE(murmex_test::allRowsReleased(in));
                    EXPECT_TRUE(murmex_test::allRowsReleased(node));
                });
            }
}
