#include "denoise/raster/variance.h"

#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "support/bits.h"
#include "support/plane_node.h"
#include "support/planes.h"
#include "support/simd_paths.h"

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

bool hasRowVectorPath()
{
    return JCPUInfo::detectedLevel() >= JCPUInfo::AVX2;
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

TEST(VarianceTest, VectorPathsGiveTheScalarBitsForRadiiThreeToFive)
{
    // Awkward widths and one of whole 8-pixel blocks (the rows leave the
    // lanes in 8 x 8 blocks); heights below, around and above a block of 32
    // rows, so that blocks start and end on rows that read mirrored rows at
    // the top and bottom; each pulled row by row (no row below is referenced, one row at a
    // time) and with every row referenced first (rows in blocks).
    for (int w : {1, 7, 16, 33, 257})
        for (int h : {1, 3, 12, 45, 100})
            for (int r = 3; r <= 5; ++r)
                for (bool turbo : {false, true}) {
                    const std::vector<float> p = murmex_test::mixedPlane(w, h, 300 + w * 7 + h + r);
                    std::vector<float> scalar;
                    murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& path) {
                        for (bool ahead : {false, true}) {
                            PlaneNode in(w, h, p);
                            JIncrRaster_Variance node(in, r);
                            node.setTurbo(turbo);
                            const std::vector<float> out =
                                ahead ? murmex_test::pullPlaneReferencedFirst(node) : murmex_test::pullPlane(node);
                            if (!path.enabled && !ahead)
                                scalar = out;
                            else
                                EXPECT_TRUE(murmex_test::sameBits(scalar.data(), out.data(), w * h))
                                    << path.name() << " width " << w << " height " << h << " radius " << r
                                    << " turbo " << turbo << " ahead " << ahead;
                            EXPECT_TRUE(murmex_test::allRowsReleased(node));
                            EXPECT_TRUE(murmex_test::allRowsReleased(in));
                            if (ahead) {
                                for (int y = 0; y < h; ++y)
                                    EXPECT_EQ(in.computeCount(y), 1) << path.name() << " row " << y;
                            }
                        }
                    });
                    // The literal loop mirrors columns only for rows wider than the radius.
                    if (!turbo && w > r) {
                        const std::vector<float> want = literalVariance(p, w, h, r);
                        EXPECT_TRUE(murmex_test::sameBits(scalar.data(), want.data(), w * h))
                            << "width " << w << " height " << h << " radius " << r;
                    }
                }
}

TEST(VarianceTest, VectorPathComputesTheReferencedRowsBelowTogether)
{
    if (!hasRowVectorPath())
        GTEST_SKIP() << "no AVX2";
    // Blocks of 32 rows: four vectors of lanes with AVX2, two with AVX-512.
    for (const int level : {static_cast<int>(JCPUInfo::AVX2), static_cast<int>(JCPUInfo::AVX512)}) {
        if (level > JCPUInfo::detectedLevel())
            continue;
        const int block = 32;
        const int w = 20, h = 150;
        for (bool turbo : {false, true}) {
            murmex_test::ScopedSIMDPath vector({true, level});
            PlaneNode in(w, h, murmex_test::randomPlane(w, h, 5, -1.0f, 1.0f));
            JIncrRaster_Variance node(in, 4);
            node.setTurbo(turbo);
            for (int y = 0; y < h; ++y)
                node.refScanline(y);
            // A row in the middle first: its block takes the next rows of its
            // kind (every row, or every even row in turbo mode, whose odd rows
            // are copies), as far as the raster goes.
            const int step = turbo ? 2 : 1;
            const int first = turbo ? 8 : 9;
            node.getScanline(first);
            for (int y = 0; y < h; ++y) {
                const bool inBlock = y >= first && y < first + block * step && (y - first) % step == 0;
                EXPECT_EQ(node.rowPresent(y), inBlock) << "level " << level << " turbo " << turbo << " row " << y;
            }
            // Then row 0: its block stops at the first row already present.
            node.getScanline(0);
            for (int y = 0; y < first; ++y)
                EXPECT_EQ(node.rowPresent(y), y % step == 0) << "level " << level << " turbo " << turbo << " row " << y;
            for (int y = 0; y < h; ++y) {
                const float* row = node.getScanline(y);
                (void)row;
            }
            for (int y = 0; y < h; ++y)
                EXPECT_EQ(in.computeCount(y), 1) << "level " << level << " turbo " << turbo << " row " << y;
            for (int y = 0; y < h; ++y)
                node.unrefScanline(y);
            EXPECT_TRUE(murmex_test::allRowsReleased(node));
            EXPECT_TRUE(murmex_test::allRowsReleased(in));
        }
    }
}

TEST(VarianceTest, VectorPathLeavesRowsNobodyReferencedAlone)
{
    if (!hasRowVectorPath())
        GTEST_SKIP() << "no AVX2";
    murmex_test::ScopedSIMDPath vector({true, JCPUInfo::AVX2});
    const int w = 16, h = 30;
    PlaneNode in(w, h, murmex_test::randomPlane(w, h, 6, -1.0f, 1.0f));
    JIncrRaster_Variance node(in, 3);
    for (int y = 0; y < 5; ++y)
        node.refScanline(y);
    node.getScanline(0);
    for (int y = 0; y < h; ++y)
        EXPECT_EQ(node.rowPresent(y), y < 5) << y;
    // Input rows below row 4 + 3 were never referenced, so never computed.
    for (int y = 0; y < h; ++y)
        EXPECT_EQ(in.computeCount(y), y <= 7 ? 1 : 0) << y;
    for (int y = 0; y < 5; ++y)
        node.unrefScanline(y);
    EXPECT_TRUE(murmex_test::allRowsReleased(node));
    EXPECT_TRUE(murmex_test::allRowsReleased(in));
}

TEST(VarianceThreadTest, ThreadsPullingInterleavedRowsGetTheScalarBitsOnce)
{
    // Four threads pull every row of one node in different orders while the
    // vector path computes blocks of rows: a thread that asks for a row
    // another thread is computing in its block waits for it.
    const int w = 45, h = 97;
    const std::vector<float> p = murmex_test::randomPlane(w, h, 77, -1.0f, 1.0f);
    for (bool turbo : {false, true}) {
        std::vector<float> scalar;
        {
            murmex_test::ScopedSIMDPath off({false, JCPUInfo::Scalar});
            PlaneNode in(w, h, p);
            JIncrRaster_Variance node(in, 4);
            node.setTurbo(turbo);
            scalar = murmex_test::pullPlane(node);
        }
        PlaneNode in(w, h, p);
        JIncrRaster_Variance node(in, 4);
        node.setTurbo(turbo);
        const std::vector<std::vector<float>> seen = murmex_test::pullPlaneFromThreads(node, 4, 5, 24);
        for (int t = 0; t < 4; ++t)
            EXPECT_TRUE(murmex_test::sameBits(scalar.data(), seen[t].data(), w * h)) << "thread " << t;
        for (int y = 0; y < h; ++y)
            EXPECT_EQ(in.computeCount(y), 1) << y;
        EXPECT_TRUE(murmex_test::allRowsReleased(node));
        EXPECT_TRUE(murmex_test::allRowsReleased(in));
    }
}
