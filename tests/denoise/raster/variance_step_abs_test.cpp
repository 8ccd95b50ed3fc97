#include "denoise/raster/variance_step_abs.h"

#include <cmath>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "base/ex.h"
#include "support/bits.h"
#include "support/plane_node.h"
#include "support/planes.h"
#include "support/simd_paths.h"

using murmex_test::PlaneNode;

namespace {

float mirroredAt(const std::vector<float>& p, int w, int h, int x, int y)
{
    return p[static_cast<size_t>(murmex_test::mirroredRow(y, h)) * w + murmex_test::mirroredColumn(x, w)];
}

// Sum of |v| over rows y + j*s (j = -rows..rows, from the top) and columns
// x + i*s (i = -cols..cols, from the left).
float tapSum(const std::vector<float>& p, int w, int h, int x, int y, int s, int rows, int cols)
{
    float a = 0.0f;
    for (int j = -rows; j <= rows; ++j)
        for (int i = -cols; i <= cols; ++i)
            a = a + std::fabs(mirroredAt(p, w, h, x + i * s, y + j * s));
    return a;
}

// The node's rows written out pixel by pixel. Radius 2 keeps one running sum
// per residue class, seeded from the stored value of each full pixel.
std::vector<float> literalStepAbs(const std::vector<float>& p, int w, int h, int radius, int s)
{
    std::vector<float> out(p.size());
    for (int y = 0; y < h; ++y) {
        float* o = &out[static_cast<size_t>(y) * w];
        if (radius == 1 || radius == 3) {
            const int rows = radius == 1 ? 2 : 3;
            const float taps = radius == 1 ? 9.0f : 49.0f;
            for (int x = 0; x < w; ++x) {
                const float m = tapSum(p, w, h, x, y, s, rows, radius) / taps;
                o[x] = m * m;
            }
            continue;
        }
        std::vector<float> ring(s);
        for (int x = 0; x < w; ++x) {
            if (x < s) {
                const float m = tapSum(p, w, h, x, y, s, 2, 2) / 25.0f;
                o[x] = m * m;
                ring[x] = std::sqrt(o[x]) * 25.0f;
                continue;
            }
            float a = ring[x % s];
            for (int j = -2; j <= 2; ++j) {
                a = a - std::fabs(mirroredAt(p, w, h, x - 3 * s, y + j * s));
                a = a + std::fabs(mirroredAt(p, w, h, x + 2 * s, y + j * s));
            }
            ring[x % s] = a;
            o[x] = (a / 25.0f) * (a / 25.0f);
        }
    }
    return out;
}

std::vector<float> checkerboard(int w, int h)
{
    std::vector<float> p(static_cast<size_t>(w) * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            p[static_cast<size_t>(y) * w + x] = static_cast<float>((x + y) & 1);
    return p;
}

}  // namespace

TEST(VarianceStepAbsTest, PlusMinusOnePlaneWithStepThreeGivesOne)
{
    const int w = 31, h = 12;
    std::vector<float> p(static_cast<size_t>(w) * h);
    std::mt19937 rng(4);
    for (float& v : p)
        v = (rng() & 1) ? 1.0f : -1.0f;
    PlaneNode in(w, h, p);
    JIncrRaster_VarianceStepAbs node(in, 2, 3);
    for (float v : murmex_test::pullPlane(node))
        EXPECT_EQ(v, 1.0f);
}

TEST(VarianceStepAbsTest, CheckerboardWithEvenStepSeesOnlyItsOwnColour)
{
    // With step 2 every tap has the parity of the centre, so all 25 taps are
    // the centre's value: A = 25 or 0 and the output is the board itself.
    const int w = 26, h = 14;
    const std::vector<float> p = checkerboard(w, h);
    murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& path) {
        PlaneNode in(w, h, p);
        JIncrRaster_VarianceStepAbs node(in, 2, 2);
        const std::vector<float> out = murmex_test::pullPlane(node);
        for (size_t i = 0; i < p.size(); ++i)
            ASSERT_EQ(out[i], p[i]) << path.name() << " pixel " << i;
    });
}

TEST(VarianceStepAbsTest, CheckerboardWithStepOneCountsTheOtherColour)
{
    // 5 x 5 window on a 0/1 board: 12 of the taps differ in parity from the
    // centre and 13 share it, so a 0 centre sums 12 and a 1 centre sums 13.
    const int w = 21, h = 9;
    const std::vector<float> p = checkerboard(w, h);
    PlaneNode in(w, h, p);
    JIncrRaster_VarianceStepAbs node(in, 2, 1);
    const std::vector<float> out = murmex_test::pullPlane(node);
    const float low = (12.0f / 25.0f) * (12.0f / 25.0f);
    const float high = (13.0f / 25.0f) * (13.0f / 25.0f);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            EXPECT_NEAR(out[y * w + x], ((x + y) & 1) ? high : low, 1e-6f) << x << "," << y;
}

TEST(VarianceStepAbsTest, RadiusOneSumsFifteenTapsAndStillDividesByNine)
{
    // Three columns by five rows on the board: a 0 centre has 8 taps of 1, a
    // 1 centre 7. Every pixel is computed in full, so the values are exact.
    const int w = 15, h = 11;
    const std::vector<float> p = checkerboard(w, h);
    PlaneNode in(w, h, p);
    JIncrRaster_VarianceStepAbs node(in, 1, 1);
    const std::vector<float> out = murmex_test::pullPlane(node);
    const float m0 = 8.0f / 9.0f, m1 = 7.0f / 9.0f;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            EXPECT_EQ(out[y * w + x], ((x + y) & 1) ? m1 * m1 : m0 * m0) << x << "," << y;
}

TEST(VarianceStepAbsTest, RadiusThreeUsesSevenBySevenTaps)
{
    // 49 taps: 24 differ in parity from the centre, 25 share it.
    const int w = 16, h = 10;
    const std::vector<float> p = checkerboard(w, h);
    PlaneNode in(w, h, p);
    JIncrRaster_VarianceStepAbs node(in, 3, 1);
    const std::vector<float> out = murmex_test::pullPlane(node);
    const float m0 = 24.0f / 49.0f, m1 = 25.0f / 49.0f;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            EXPECT_EQ(out[y * w + x], ((x + y) & 1) ? m1 * m1 : m0 * m0) << x << "," << y;
}

TEST(VarianceStepAbsTest, MatchesTheLiteralComputationForEachRadius)
{
    const int w = 53, h = 23;
    const std::vector<float> p = murmex_test::mixedPlane(w, h, 9);
    for (int radius = 1; radius <= 3; ++radius)
        for (int s : {1, 2, 3, 4, 5}) {
            PlaneNode in(w, h, p);
            JIncrRaster_VarianceStepAbs node(in, radius, s);
            JCPUInfo::SIMDSupported = false;
            const std::vector<float> got = murmex_test::pullPlane(node);
            JCPUInfo::reset();
            const std::vector<float> want = literalStepAbs(p, w, h, radius, s);
            EXPECT_TRUE(murmex_test::sameBits(got.data(), want.data(), w * h)) << "radius " << radius << " step " << s;
        }
}

TEST(VarianceStepAbsTest, OtherRadiiLeaveTheRowUnwritten)
{
    const int w = 9, h = 9;
    for (int radius : {0, 4}) {
        PlaneNode in(w, h, murmex_test::randomPlane(w, h, 2));
        JIncrRaster_VarianceStepAbs node(in, radius, 1);
        std::vector<float> row(w, 7.0f);
        node.refScanline(4);
        node.computeScanline(4, row.data());
        for (float v : row)
            EXPECT_EQ(v, 7.0f) << "radius " << radius;
        node.unrefScanline(4);
        EXPECT_TRUE(murmex_test::allRowsReleased(in)) << "radius " << radius;
    }
}

TEST(VarianceStepAbsTest, RadiusOneReferencesTheFiveRowsItReads)
{
    PlaneNode in(10, 20, murmex_test::randomPlane(10, 20, 6));
    JIncrRaster_VarianceStepAbs node(in, 1, 2);
    node.refScanline(10);
    for (int y = 0; y < 20; ++y) {
        const bool read = y == 6 || y == 8 || y == 10 || y == 12 || y == 14;
        EXPECT_EQ(in.refCount(y), read ? 1 : 0) << "row " << y;
    }
    node.getScanline(10);
    node.unrefScanline(10);
    EXPECT_TRUE(murmex_test::allRowsReleased(in));
    EXPECT_TRUE(murmex_test::allRowsReleased(node));
}

TEST(VarianceStepAbsTest, TurboOddRowsEqualTheEvenRowAbove)
{
    const int w = 24, h = 11;
    const std::vector<float> p = murmex_test::randomPlane(w, h, 12, -1.0f, 1.0f);
    PlaneNode in(w, h, p), inFull(w, h, p);
    JIncrRaster_VarianceStepAbs turbo(in, 2, 2), full(inFull, 2, 2);
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

TEST(VarianceStepAbsTest, StepBelowOneIsRejected)
{
    PlaneNode in(8, 8, 0.0f);
    EXPECT_THROW(JIncrRaster_VarianceStepAbs(in, 2, 0), JEx);
}

TEST(VarianceStepAbsTest, VectorPathsGiveTheScalarBitsForRadiusTwo)
{
    // Awkward widths, every row (the top and bottom ones read mirrored rows),
    // steps on and off the vector path, with and without turbo.
    for (int w : {1, 5, 13, 37, 67, 130})
        for (int s : {1, 2, 3, 4, 5, 8, 12})
            for (bool turbo : {false, true}) {
                const int h = 7 + (w % 5);
                const std::vector<float> p = murmex_test::mixedPlane(w, h, 100 + w + s);
                std::vector<float> scalar;
                murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& path) {
                    PlaneNode in(w, h, p);
                    JIncrRaster_VarianceStepAbs node(in, 2, s);
                    node.setTurbo(turbo);
                    const std::vector<float> out = murmex_test::pullPlane(node);
                    if (!path.enabled)
                        scalar = out;
                    else
                        EXPECT_TRUE(murmex_test::sameBits(scalar.data(), out.data(), w * h))
                            << path.name() << " width " << w << " step " << s << " turbo " << turbo;
                    EXPECT_TRUE(murmex_test::allRowsReleased(in));
                });
            }
}

TEST(VarianceStepAbsTest, VectorPathsGiveTheScalarBitsForRadiusTwoRowsComputedTogether)
{
    // Every row referenced first, so that the vector path runs blocks of rows
    // side by side; widths with and without a part of an 8-pixel block (the
    // rows leave the lanes in 8 x 8 blocks); heights below, around and above
    // a block of 32 rows, so that blocks start and end on rows that read
    // mirrored rows.
    for (int w : {1, 7, 16, 33, 257})
        for (int h : {3, 12, 45, 100})
            for (int s : {1, 2, 3, 4, 5})
                for (bool turbo : {false, true}) {
                    const std::vector<float> p = murmex_test::mixedPlane(w, h, 500 + w + h * 3 + s);
                    std::vector<float> scalar;
                    murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& path) {
                        PlaneNode in(w, h, p);
                        JIncrRaster_VarianceStepAbs node(in, 2, s);
                        node.setTurbo(turbo);
                        const std::vector<float> out = murmex_test::pullPlaneReferencedFirst(node);
                        if (!path.enabled)
                            scalar = out;
                        else
                            EXPECT_TRUE(murmex_test::sameBits(scalar.data(), out.data(), w * h))
                                << path.name() << " width " << w << " height " << h << " step " << s << " turbo "
                                << turbo;
                        EXPECT_TRUE(murmex_test::allRowsReleased(node));
                        EXPECT_TRUE(murmex_test::allRowsReleased(in));
                    });
                    if (!turbo && w > 2 * s) {
                        const std::vector<float> want = literalStepAbs(p, w, h, 2, s);
                        EXPECT_TRUE(murmex_test::sameBits(scalar.data(), want.data(), w * h))
                            << "width " << w << " height " << h << " step " << s;
                    }
                }
}

TEST(VarianceStepAbsTest, RowsComputedTogetherReadOnlyTheRowsTheyTap)
{
    if (JCPUInfo::detectedLevel() < JCPUInfo::AVX2)
        GTEST_SKIP() << "no AVX2";
    murmex_test::ScopedSIMDPath vector({true, JCPUInfo::AVX2});
    const int w = 16, h = 60, s = 4;
    PlaneNode in(w, h, murmex_test::randomPlane(w, h, 9, -1.0f, 1.0f));
    JIncrRaster_VarianceStepAbs node(in, 2, s);
    // Rows 10 and 11 together tap rows 2, 3, 6, 7, ..., 18, 19 only.
    node.refScanline(10);
    node.refScanline(11);
    node.getScanline(10);
    EXPECT_TRUE(node.rowPresent(11));
    for (int y = 0; y < h; ++y) {
        const bool tapped = y >= 2 && y <= 19 && (y % 4 == 2 || y % 4 == 3);
        EXPECT_EQ(in.computeCount(y), tapped ? 1 : 0) << y;
    }
    node.unrefScanline(10);
    node.unrefScanline(11);
    EXPECT_TRUE(murmex_test::allRowsReleased(node));
    EXPECT_TRUE(murmex_test::allRowsReleased(in));
}

TEST(VarianceStepAbsThreadTest, ThreadsPullingInterleavedRowsGetTheScalarBitsOnce)
{
    const int w = 41, h = 101;
    const std::vector<float> p = murmex_test::randomPlane(w, h, 78, -1.0f, 1.0f);
    for (int s : {1, 3})
        for (bool turbo : {false, true}) {
            std::vector<float> scalar;
            {
                murmex_test::ScopedSIMDPath off({false, JCPUInfo::Scalar});
                PlaneNode in(w, h, p);
                JIncrRaster_VarianceStepAbs node(in, 2, s);
                node.setTurbo(turbo);
                scalar = murmex_test::pullPlane(node);
            }
            PlaneNode in(w, h, p);
            JIncrRaster_VarianceStepAbs node(in, 2, s);
            node.setTurbo(turbo);
            const std::vector<std::vector<float>> seen = murmex_test::pullPlaneFromThreads(node, 4, 7, 26);
            for (int t = 0; t < 4; ++t)
                EXPECT_TRUE(murmex_test::sameBits(scalar.data(), seen[t].data(), w * h))
                    << "thread " << t << " step " << s << " turbo " << turbo;
            for (int y = 0; y < h; ++y)
                EXPECT_EQ(in.computeCount(y), 1) << y;
            EXPECT_TRUE(murmex_test::allRowsReleased(node));
            EXPECT_TRUE(murmex_test::allRowsReleased(in));
        }
}
