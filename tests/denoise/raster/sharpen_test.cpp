#include "denoise/raster/sharpen.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "denoise/raster/box_blur.h"
#include "support/bits.h"
#include "support/plane_node.h"
#include "support/planes.h"
#include "support/simd_paths.h"

using murmex_test::PlaneNode;

namespace {

std::vector<float> literalKernel(float sigma, int k)
{
    std::vector<float> w;
    float sum = 0.0f;
    for (int i = -3 * k; i <= 3 * k; ++i) {
        w.push_back(std::exp(-static_cast<float>(i * i) / ((sigma + sigma) * sigma)));
        sum = sum + w.back();
    }
    for (float& x : w)
        x = x / sum;
    return w;
}

// The unsharp mask spelled out: vertical pass with fused multiply-adds over
// all taps, horizontal pass with plain products and sums over taps
// -3k..3k-1, then one fused multiply-add and the optional halo limits.
std::vector<float> literalSharpen(const std::vector<float>& p, int w, int h, float sigma, int k, float amount,
                                  bool halos)
{
    const std::vector<float> taps = literalKernel(sigma, k);
    const int r = 3 * k;
    std::vector<float> v(p.size());
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            float s = 0.0f;
            for (int i = -r; i <= r; ++i)
                s = std::fma(taps[i + r], p[static_cast<size_t>(murmex_test::mirroredRow(y + i, h)) * w + x], s);
            v[static_cast<size_t>(y) * w + x] = s;
        }
    std::vector<float> out(p.size());
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            float b = 0.0f;
            for (int i = -r; i < r; ++i) {
                const float t = taps[i + r] * v[static_cast<size_t>(y) * w + murmex_test::mirroredColumn(x + i, w)];
                b = b + t;
            }
            const float o = p[static_cast<size_t>(y) * w + x];
            float s = std::fma(amount, o - b, b);
            if (halos) {
                const float d = o < 1.0f - o ? o : 1.0f - o;
                const float hi = o + 0.5f * d;
                const float lo = o - 0.5f * d;
                if (s > hi)
                    s = hi;
                if (s < lo)
                    s = lo;
            }
            out[static_cast<size_t>(y) * w + x] = s;
        }
    return out;
}

}  // namespace

TEST(SharpenTest, KernelWidthFollowsSigma)
{
    PlaneNode in(30, 30, 0.0f);
    JIncrRaster_Sharpen a(in, 0.4f, 2.0f), b(in, 2.5f, 2.0f), c(in, 10.0f, 2.0f);
    EXPECT_EQ(a.k(), 1);
    EXPECT_EQ(b.k(), 3);
    EXPECT_EQ(c.k(), 3);
    EXPECT_EQ(a.verticalBlur().k(), 1);
    EXPECT_EQ(c.verticalBlur().k(), 3);
    // Margins for the horizontal pass on the input and the vertical blur.
    EXPECT_GE(in.margin(), 13);
    EXPECT_EQ(c.verticalBlur().margin(), 13);
}

TEST(SharpenTest, MatchesTheLiteralUnsharpMaskOnEveryPath)
{
    // 27 columns: one 16-wide vector, one 8-wide one and a scalar tail.
    const int w = 27, h = 21;
    const std::vector<float> p = murmex_test::randomPlane(w, h, 52);
    murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& path) {
        for (float sigma : {0.4f, 1.5f, 2.5f})
            for (bool halos : {false, true}) {
                PlaneNode in(w, h, p);
                JIncrRaster_Sharpen node(in, sigma, 1.8f);
                node.suppressHalos(halos);
                const std::vector<float> got = murmex_test::pullPlane(node);
                const std::vector<float> want = literalSharpen(p, w, h, sigma, node.k(), 1.8f, halos);
                EXPECT_TRUE(murmex_test::sameBits(got.data(), want.data(), w * h))
                    << path.name() << ", sigma " << sigma << " halos " << halos;
            }
    });
}

TEST(SharpenTest, EveryVectorPathGivesTheScalarBitsOnRandomRows)
{
    // Values around and beyond 0..1 so that both halo limits bind, widths
    // around the vector sizes.
    for (int w : {1, 5, 8, 15, 16, 17, 33, 250}) {
        const int h = 9;
        const std::vector<float> p = murmex_test::randomPlane(w, h, static_cast<uint32_t>(100 + w), -0.5f, 1.5f);
        for (bool halos : {false, true}) {
            std::vector<float> scalar;
            {
                murmex_test::ScopedSIMDPath off({false, JCPUInfo::Scalar});
                PlaneNode in(w, h, p);
                JIncrRaster_Sharpen node(in, 1.7f, 2.6f);
                node.suppressHalos(halos);
                scalar = murmex_test::pullPlane(node);
            }
            murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& path) {
                PlaneNode in(w, h, p);
                JIncrRaster_Sharpen node(in, 1.7f, 2.6f);
                node.suppressHalos(halos);
                const std::vector<float> got = murmex_test::pullPlane(node);
                EXPECT_TRUE(murmex_test::sameBits(got.data(), scalar.data(), w * h))
                    << path.name() << ", width " << w << ", halos " << halos;
            });
        }
    }
}

TEST(SharpenTest, AmountOneReturnsTheInput)
{
    const int w = 16, h = 12;
    const std::vector<float> p = murmex_test::randomPlane(w, h, 8);
    PlaneNode in(w, h, p);
    JIncrRaster_Sharpen node(in, 1.5f, 1.0f);
    const std::vector<float> out = murmex_test::pullPlane(node);
    for (size_t i = 0; i < p.size(); ++i)
        EXPECT_NEAR(out[i], p[i], 1e-6f) << i;
}

TEST(SharpenTest, AmountZeroReturnsTheBlurredValue)
{
    const int w = 16, h = 12;
    const std::vector<float> p = murmex_test::randomPlane(w, h, 9);
    PlaneNode in(w, h, p);
    JIncrRaster_Sharpen node(in, 1.0f, 0.0f);
    const std::vector<float> out = murmex_test::pullPlane(node);
    const std::vector<float> blur = literalSharpen(p, w, h, 1.0f, 1, 0.0f, false);
    EXPECT_TRUE(murmex_test::sameBits(out.data(), blur.data(), w * h));
    // It is a blur: the spread of the values shrinks.
    const auto [inLo, inHi] = std::minmax_element(p.begin(), p.end());
    const auto [outLo, outHi] = std::minmax_element(out.begin(), out.end());
    EXPECT_LT(*outHi - *outLo, *inHi - *inLo);
}

TEST(SharpenTest, SuppressHalosPassesBlackAndWhiteUnchanged)
{
    const int w = 14, h = 10;
    std::vector<float> p = murmex_test::randomPlane(w, h, 10);
    for (size_t i = 0; i < p.size(); i += 3)
        p[i] = (i / 3) % 2 ? 1.0f : 0.0f;
    PlaneNode in(w, h, p);
    JIncrRaster_Sharpen node(in, 2.0f, 7.0f);
    node.suppressHalos(true);
    const std::vector<float> out = murmex_test::pullPlane(node);
    for (size_t i = 0; i < p.size(); i += 3)
        EXPECT_EQ(out[i], p[i]) << i;
}

TEST(SharpenTest, SuppressHalosKeepsMidGreyWithinAQuarter)
{
    // A 0.5 pixel beside black and white neighbours: without the limit the
    // mask pushes it far; with it the value stays in 0.25..0.75.
    const int w = 12, h = 12;
    std::vector<float> p(w * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            p[y * w + x] = ((x / 2 + y / 2) % 2) ? 1.0f : 0.0f;
    for (int y = 0; y < h; y += 3)
        for (int x = 1; x < w; x += 3)
            p[y * w + x] = 0.5f;
    PlaneNode in(w, h, p), inFree(w, h, p);
    JIncrRaster_Sharpen limited(in, 1.0f, 20.0f), free(inFree, 1.0f, 20.0f);
    limited.suppressHalos(true);
    const std::vector<float> out = murmex_test::pullPlane(limited);
    const std::vector<float> unlimited = murmex_test::pullPlane(free);
    bool pushedOut = false;
    for (int y = 0; y < h; y += 3)
        for (int x = 1; x < w; x += 3) {
            EXPECT_GE(out[y * w + x], 0.25f);
            EXPECT_LE(out[y * w + x], 0.75f);
            pushedOut |= unlimited[y * w + x] < 0.25f || unlimited[y * w + x] > 0.75f;
        }
    EXPECT_TRUE(pushedOut);
}

TEST(SharpenTest, ConstantPlaneLosesTheMissingLastTap)
{
    // c through the vertical pass stays (nearly) c; the horizontal pass sums
    // every tap but the last, so amount 0 gives c * (1 - w_3k), a little
    // below c, and amount 1 gives c back.
    const float c = 0.5f;
    for (float sigma : {0.6f, 2.5f}) {
        PlaneNode in(20, 20, c), in1(20, 20, c);
        JIncrRaster_Sharpen blur(in, sigma, 0.0f), same(in1, sigma, 1.0f);
        const float last = blur.tap(3 * blur.k());
        for (float v : murmex_test::pullPlane(blur)) {
            EXPECT_NEAR(v, c * (1.0f - last), 1e-6f);
            EXPECT_LT(v, c);
        }
        for (float v : murmex_test::pullPlane(same))
            EXPECT_NEAR(v, c, 1e-6f);
    }
}

TEST(SharpenTest, ReferencesAreBalancedWithoutFindEdges)
{
    PlaneNode in(15, 11, murmex_test::randomPlane(15, 11, 1));
    JIncrRaster_Sharpen node(in, 1.2f, 2.0f);
    murmex_test::pullPlane(node);
    EXPECT_TRUE(murmex_test::allRowsReleased(node));
    EXPECT_TRUE(murmex_test::allRowsReleased(node.verticalBlur()));
    EXPECT_TRUE(murmex_test::allRowsReleased(in));
}

TEST(SharpenTest, FindEdgesKeepsItsEdgeMapReference)
{
    // The edge map row is referenced but never read or released.
    PlaneNode in(15, 11, murmex_test::randomPlane(15, 11, 1));
    JIncrRaster_Sharpen node(in, 1.2f, 2.0f);
    node.findEdges(true);
    node.refScanline(5);
    node.getScanline(5);
    node.unrefScanline(5);
    EXPECT_EQ(node.blurredEdges().refCount(5), 1);
    EXPECT_FALSE(node.blurredEdges().rowPresent(5));
    EXPECT_TRUE(murmex_test::allRowsReleased(node.verticalBlur()));
}
