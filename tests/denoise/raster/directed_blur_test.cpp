#include "denoise/raster/directed_blur.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

#include "base/ex.h"
#include "support/bits.h"
#include "support/plane_node.h"
#include "support/planes.h"
#include "support/simd_paths.h"

namespace {

using murmex_test::PlaneNode;
using murmex_test::pullPlane;
using murmex_test::sameBits;

// The blur written out pixel by pixel from its description, on a plane whose
// rows and columns are mirrored at the edges (offsets below the plane's size).
std::vector<float> literalBlur(const std::vector<float>& plane, int w, int h, int s)
{
    auto in = [&](int y, int x) {
        return plane[static_cast<size_t>(murmex_test::mirroredRow(y, h)) * w + murmex_test::mirroredColumn(x, w)];
    };
    std::vector<float> out(plane.size());
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const float c = in(y, x);
            float a = 0.0f, b = 0.0f, cc = 0.0f, d = 0.0f;
            for (int k = -2; k <= 2; ++k) {
                if (k == 0)
                    continue;
                a = a + std::fabs(in(y + k * s, x + k * s) - c);
                b = b + std::fabs(in(y, x + k * s) - c);
                cc = cc + std::fabs(in(y + k * s, x - k * s) - c);
                d = d + std::fabs(in(y + k * s, x) - c);
            }
            float m = a;
            if (cc < m) m = cc;
            if (b < m) m = b;
            if (d < m) m = d;
            const float t = m * 0.2f;
            const float T = std::fma(t, 1.27f, 1e-10f);
            const int ring[8][2] = {{-1, -1}, {-1, 0}, {-1, 1}, {0, -1}, {0, 1}, {1, -1}, {1, 0}, {1, 1}};
            float num = 0.0f;
            float den = 1e-10f;
            for (const auto& o : ring) {
                const float v = in(y + o[0] * s, x + o[1] * s);
                const float dist = std::fabs(v - c);
                const float w8 = 1.0f / (T >= dist ? T : dist);
                const float product = w8 * v;
                num = num + product;
                den = den + w8;
            }
            out[static_cast<size_t>(y) * w + x] = num / den;
        }
    }
    return out;
}

// Distance in units in the last place between two finite floats of one sign.
int64_t ulps(float a, float b)
{
    const int64_t ia = murmex_test::floatBits(a);
    const int64_t ib = murmex_test::floatBits(b);
    return ia > ib ? ia - ib : ib - ia;
}

std::vector<float> blurPlane(const std::vector<float>& plane, int w, int h, int s, bool turbo = false)
{
    PlaneNode input(w, h, plane);
    JIncrRaster_DirectedBlur blur(input, s);
    blur.setTurbo(turbo);
    std::vector<float> out = pullPlane(blur);
    EXPECT_TRUE(murmex_test::allRowsReleased(blur));
    EXPECT_TRUE(murmex_test::allRowsReleased(input));
    return out;
}

TEST(DirectedBlurTest, ScalarRowsMatchTheLiteralLoop)
{
    murmex_test::ScopedSIMDPath scalar({false, JCPUInfo::Scalar});
    const int w = 13, h = 11;
    for (int s = 1; s <= 2; ++s) {
        for (uint32_t seed : {11u, 12u}) {
            const std::vector<float> plane = seed == 11u ? murmex_test::randomPlane(w, h, seed)
                                                         : murmex_test::mixedPlane(w, h, seed);
            const std::vector<float> expected = literalBlur(plane, w, h, s);
            const std::vector<float> actual = blurPlane(plane, w, h, s);
            EXPECT_TRUE(sameBits(expected.data(), actual.data(), w * h)) << "spacing " << s << ", seed " << seed;
        }
    }
}

TEST(DirectedBlurTest, RequestsMarginOfTwiceTheSpacingPlusFour)
{
    const int expected[] = {6, 8, 12, 20, 36};
    for (int k = 0; k < 5; ++k) {
        PlaneNode input(40, 8, 0.0f);
        JIncrRaster_DirectedBlur blur(input, 1 << k);
        EXPECT_EQ(blur.spacing(), 1 << k);
        EXPECT_EQ(blur.input(), &input);
        EXPECT_EQ(input.margin(), expected[k]);
        EXPECT_EQ(blur.margin(), 0);
        EXPECT_EQ(blur.width(), 40);
        EXPECT_EQ(blur.height(), 8);
    }
}

TEST(DirectedBlurTest, SpacingWhoseRowsOrMarginOverflowIsRejected)
{
    PlaneNode input(4, 4, 0.0f);
    EXPECT_THROW(JIncrRaster_DirectedBlur(input, -1), JEx);
    EXPECT_THROW(JIncrRaster_DirectedBlur(input, std::numeric_limits<int>::max() / 2), JEx);
    EXPECT_THROW(JIncrRaster_DirectedBlur(input, std::numeric_limits<int>::min()), JEx);
    EXPECT_EQ(input.margin(), 0);
}

TEST(DirectedBlurTest, PowerOfTwoConstantComesBackExactly)
{
    // m = 0, T = 1e-10f and every weight is W = 1 / 1e-10f: the numerator's
    // partial sums are those of the denominator times c (scaling by a power of
    // two commutes with rounding), and 1e-10f + W rounds to W, so out = c.
    murmex_test::forEachSIMDPath([](const murmex_test::SIMDPath& path) {
        for (float c : {0.0f, 0.5f, 0.25f, 1.0f, 2.0f, 0.0009765625f}) {
            for (int s : {1, 4}) {
                const std::vector<float> out = blurPlane(std::vector<float>(21 * 9, c), 21, 9, s);
                for (float v : out)
                    ASSERT_EQ(murmex_test::floatBits(v), murmex_test::floatBits(c)) << path.name() << " c " << c;
            }
        }
    });
}

TEST(DirectedBlurTest, ConstantPlaneComesBackWithinAFewUnitsInTheLastPlace)
{
    // Eight equal products summed in float against eight equal weights summed
    // the same way: each running sum is off by at most about 8 rounding steps,
    // so the quotient stays within 8 units in the last place of the constant.
    murmex_test::forEachSIMDPath([](const murmex_test::SIMDPath& path) {
        for (float c : {0.3f, 0.7123f, 0.1f, 0.999f, 1.0e-3f, 0.6f, 0.75f}) {
            const std::vector<float> out = blurPlane(std::vector<float>(19 * 7, c), 19, 7, 2);
            for (float v : out)
                ASSERT_LE(ulps(v, c), 8) << path.name() << " c " << c << " gave " << v;
        }
    });
}

TEST(DirectedBlurTest, ImpulseGivesZeroAtItsCentreAndStaysNearZeroAround)
{
    const int w = 9, h = 9;
    for (float height : {1.0f, 100.0f}) {
        std::vector<float> plane(w * h, 0.0f);
        plane[4 * w + 4] = height;
        murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& path) {
            const std::vector<float> out = blurPlane(plane, w, h, 1);
            // The centre is excluded and all its ring taps are 0.
            EXPECT_EQ(murmex_test::floatBits(out[4 * w + 4]), 0u) << path.name();

            // Right-hand neighbour: three of the four lines are flat, so T = 1e-10f;
            // its seven zero taps weigh W = 1 / 1e-10f each and the impulse, the
            // fourth ring tap, weighs 1 / height.
            const float W = 1.0f / 1e-10f;
            const float wi = 1.0f / height;
            float den = 1e-10f;
            den = den + W;
            den = den + W;
            den = den + W;
            den = den + wi;
            for (int i = 0; i < 4; ++i)
                den = den + W;
            const float num = 0.0f + wi * height;
            EXPECT_EQ(out[4 * w + 5], num / den) << path.name();
            EXPECT_LT(out[4 * w + 5], 1e-10f);

            for (int y = 0; y < h; ++y) {
                for (int x = 0; x < w; ++x) {
                    const float v = out[y * w + x];
                    if (std::abs(y - 4) <= 1 && std::abs(x - 4) <= 1) {
                        EXPECT_GE(v, 0.0f);
                        EXPECT_LT(v, 1e-10f) << path.name() << " at " << x << ", " << y;
                    } else {
                        // No ring tap reaches the impulse: the mean of zeros.
                        EXPECT_EQ(murmex_test::floatBits(v), 0u) << path.name() << " at " << x << ", " << y;
                    }
                }
            }
        });
    }
}

TEST(DirectedBlurTest, TurboOddRowsAreTheMeanOfTheirOwnNeighbours)
{
    for (int h : {9, 10}) {
        const int w = 17;
        const std::vector<float> plane = murmex_test::randomPlane(w, h, 33u);
        const std::vector<float> full = blurPlane(plane, w, h, 2, false);
        murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& path) {
            const std::vector<float> turbo = blurPlane(plane, w, h, 2, true);
            for (int y = 0; y < h; ++y) {
                for (int x = 0; x < w; ++x) {
                    float expected = full[y * w + x];
                    if (y % 2 == 1) {
                        const int below = murmex_test::mirroredRow(y + 1, h);
                        expected = (full[(y - 1) * w + x] + full[below * w + x]) * 0.5f;
                    }
                    ASSERT_EQ(murmex_test::floatBits(turbo[y * w + x]), murmex_test::floatBits(expected))
                        << path.name() << " h " << h << " at " << x << ", " << y;
                }
            }
        });
    }
}

TEST(DirectedBlurTest, TurboOddRowReferencesItsOwnRowsNotTheInput)
{
    PlaneNode input(12, 6, 0.5f);
    JIncrRaster_DirectedBlur blur(input, 1);
    blur.setTurbo(true);
    blur.refScanline(3);
    EXPECT_EQ(blur.refCount(2), 1);
    EXPECT_EQ(blur.refCount(4), 1);
    // Rows 2 and 4 reference input rows 0..4 and 2..5 (6 mirrors to 4).
    EXPECT_EQ(input.refCount(0), 1);
    EXPECT_EQ(input.refCount(3), 2);
    EXPECT_EQ(input.refCount(4), 3);
    blur.getScanline(3);
    blur.unrefScanline(3);
    EXPECT_TRUE(murmex_test::allRowsReleased(blur));
    EXPECT_TRUE(murmex_test::allRowsReleased(input));
}

TEST(DirectedBlurTest, VectorPathsGiveTheScalarBits)
{
    const int widths[] = {1, 2, 3, 5, 7, 8, 9, 15, 16, 17, 23, 31, 33, 47, 64, 65};
    const int heights[] = {1, 2, 6, 37};
    uint32_t seed = 100;
    for (int w : widths) {
        for (int h : heights) {
            for (int s = 1; s <= 16; ++s) {
                ++seed;
                const bool turbo = (seed % 3) == 0;
                const std::vector<float> plane =
                    (seed & 1) ? murmex_test::mixedPlane(w, h, seed) : murmex_test::randomPlane(w, h, seed, -1.0f, 2.0f);
                std::vector<float> scalar;
                murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& path) {
                    const std::vector<float> out = blurPlane(plane, w, h, s, turbo);
                    if (!path.enabled)
                        scalar = out;
                    else
                        ASSERT_TRUE(sameBits(scalar.data(), out.data(), w * h))
                            << path.name() << " w " << w << " h " << h << " s " << s << " turbo " << turbo;
                });
            }
        }
    }
}

}  // namespace
