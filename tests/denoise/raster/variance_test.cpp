#include "denoise/raster/variance.h"

#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "support/bits.h"
#include "support/plane_node.h"
#include "support/planes.h"

using murmex_test::PlaneNode;

namespace {

// Pixel (x, y) of a plane with the node's mirrored rows and columns.
float mirroredAt(const std::vector<float>& p, int w, int h, int x, int y)
{
    return p[static_cast<size_t>(murmex_test::mirroredRow(y, h)) * w + murmex_test::mirroredColumn(x, w)];
}

// The running mean of squares written out pixel by pixel: window sum at pixel
// -1 with fused multiply-adds, through the mean and back, then per row from
// the top minus the leaving square and plus the entering one.
std::vector<float> literalVariance(const std::vector<float>& p, int w, int h, int r)
{
    const int n = 2 * r + 1;
    const float area = static_cast<float>(n * n);
    std::vector<float> out(p.size());
    for (int y = 0; y < h; ++y) {
        float s = 0.0f;
        for (int j = y - r; j <= y + r; ++j)
            for (int c = -1 - r; c <= -1 + r; ++c) {
                const float v = mirroredAt(p, w, h, c, j);
                s = std::fma(v, v, s);
            }
        s = s / area;
        s = s * area;
        for (int x = 0; x < w; ++x) {
            for (int j = y - r; j <= y + r; ++j) {
                const float o = mirroredAt(p, w, h, x - r - 1, j);
                const float v = mirroredAt(p, w, h, x + r, j);
                const float o2 = o * o;
                const float v2 = v * v;
                s = s - o2;
                s = s + v2;
            }
            out[static_cast<size_t>(y) * w + x] = s / area;
        }
    }
    return out;
}

}  // namespace

TEST(VarianceTest, ConstantPlaneGivesItsSquareWithoutMeanSubtraction)
{
    PlaneNode exact(9, 7, 0.5f);
    JIncrRaster_Variance v1(exact, 2);
    for (float x : murmex_test::pullPlane(v1))
        EXPECT_EQ(x, 0.25f);

    PlaneNode inexact(23, 6, 0.3f);
    JIncrRaster_Variance v2(inexact, 4);
    for (float x : murmex_test::pullPlane(v2))
        EXPECT_NEAR(x, 0.09f, 1e-6f);
}

TEST(VarianceTest, RadiusZeroActsAsOneAndNineAsFive)
{
    const std::vector<float> p = murmex_test::randomPlane(14, 12, 11, -1.0f, 1.0f);
    PlaneNode in0(14, 12, p), in1(14, 12, p), in9(14, 12, p), in5(14, 12, p);
    JIncrRaster_Variance r0(in0, 0), r1(in1, 1), r9(in9, 9), r5(in5, 5);
    EXPECT_EQ(r0.radius(), 1);
    EXPECT_EQ(r9.radius(), 5);
    EXPECT_EQ(in0.margin(), 2);
    EXPECT_EQ(in9.margin(), 6);
    const std::vector<float> a0 = murmex_test::pullPlane(r0), a1 = murmex_test::pullPlane(r1);
    const std::vector<float> a9 = murmex_test::pullPlane(r9), a5 = murmex_test::pullPlane(r5);
    EXPECT_TRUE(murmex_test::sameBits(a0.data(), a1.data(), static_cast<int>(a0.size())));
    EXPECT_TRUE(murmex_test::sameBits(a9.data(), a5.data(), static_cast<int>(a9.size())));
}

TEST(VarianceTest, SingleNonZeroPixelSpreadsItsSquareOverTheWindow)
{
    // A 2 at (4, 4) of a 9 x 9 zero plane, radius 1: every window that holds
    // it sums 4, so the 3 x 3 block around it reads 4/9 and the rest 0.
    std::vector<float> p(81, 0.0f);
    p[4 * 9 + 4] = 2.0f;
    PlaneNode in(9, 9, p);
    JIncrRaster_Variance var(in, 1);
    const std::vector<float> out = murmex_test::pullPlane(var);
    for (int y = 0; y < 9; ++y)
        for (int x = 0; x < 9; ++x) {
            const bool inside = std::abs(x - 4) <= 1 && std::abs(y - 4) <= 1;
            EXPECT_EQ(out[y * 9 + x], inside ? 4.0f / 9.0f : 0.0f) << x << "," << y;
        }
}

TEST(VarianceTest, CornerPixelIsNotRepeatedByTheMirror)
{
    // A 1 at (0, 0): row and column -1 mirror index 1, not 0, so the pixel
    // enters only the windows of (0..1, 0..1), once each: 1/9 there. The
    // initial sum at pixel -1 already holds it: (1/9)*9 rounds back to 1.
    std::vector<float> p(25, 0.0f);
    p[0] = 1.0f;
    PlaneNode in(5, 5, p);
    JIncrRaster_Variance var(in, 1);
    const std::vector<float> out = murmex_test::pullPlane(var);
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 5; ++x)
            EXPECT_EQ(out[y * 5 + x], (x <= 1 && y <= 1) ? 1.0f / 9.0f : 0.0f) << x << "," << y;
}

TEST(VarianceTest, MatchesTheLiteralRunningSumForEveryRadius)
{
    const int w = 29, h = 13;
    const std::vector<float> p = murmex_test::mixedPlane(w, h, 5);
    for (int r = 1; r <= 5; ++r) {
        PlaneNode in(w, h, p);
        JIncrRaster_Variance var(in, r);
        const std::vector<float> got = murmex_test::pullPlane(var);
        const std::vector<float> want = literalVariance(p, w, h, r);
        EXPECT_TRUE(murmex_test::sameBits(got.data(), want.data(), w * h)) << "radius " << r;
    }
}

TEST(VarianceTest, IsCloseToTheMeanOfSquaresInDouble)
{
    const int w = 40, h = 9, r = 4;
    const std::vector<float> p = murmex_test::randomPlane(w, h, 8, -1.0f, 1.0f);
    PlaneNode in(w, h, p);
    JIncrRaster_Variance var(in, r);
    const std::vector<float> got = murmex_test::pullPlane(var);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            double s = 0.0;
            for (int j = -r; j <= r; ++j)
                for (int i = -r; i <= r; ++i) {
                    const double v = mirroredAt(p, w, h, x + i, y + j);
                    s += v * v;
                }
            EXPECT_NEAR(got[y * w + x], s / 81.0, 1e-5) << x << "," << y;
        }
}

TEST(VarianceTest, TurboOddRowsEqualTheEvenRowAbove)
{
    const int w = 17, h = 10;
    const std::vector<float> p = murmex_test::randomPlane(w, h, 21, -1.0f, 1.0f);
    PlaneNode in(w, h, p), inFull(w, h, p);
    JIncrRaster_Variance turbo(in, 3), full(inFull, 3);
    turbo.setTurbo(true);
    const std::vector<float> t = murmex_test::pullPlane(turbo);
    const std::vector<float> f = murmex_test::pullPlane(full);
    for (int y = 0; y < h; ++y) {
        const int src = (y % 2 == 1) ? y - 1 : y;
        EXPECT_TRUE(murmex_test::sameBits(&t[y * w], &f[src * w], w)) << "row " << y;
    }
    EXPECT_TRUE(murmex_test::allRowsReleased(turbo));
    EXPECT_TRUE(murmex_test::allRowsReleased(in));
}

TEST(VarianceTest, ReferencesAreBalanced)
{
    PlaneNode in(12, 8, murmex_test::randomPlane(12, 8, 3));
    JIncrRaster_Variance var(in, 5);
    var.refScanline(0);
    // Rows -5..5 of a height-8 plane map to rows 5,4,3,2,1,0,1,..,5.
    EXPECT_EQ(in.refCount(1), 2);
    EXPECT_EQ(in.refCount(6), 0);
    var.getScanline(0);
    var.unrefScanline(0);
    murmex_test::pullPlane(var);
    EXPECT_TRUE(murmex_test::allRowsReleased(var));
    EXPECT_TRUE(murmex_test::allRowsReleased(in));
}
