#include "autosample/window_stats.h"

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "base/cpu_info.h"

namespace {

using namespace window_stats;

// Random block grids: values drawn from a few magnitudes, with repeats so
// that extremes tie, as flat patches make them.
struct RandomGrids {
    RandomGrids(int gw, int gh, bool dirs, uint32_t seed) : gw(gw), gh(gh)
    {
        std::mt19937 rng(seed);
        std::uniform_real_distribution<float> u(0.0f, 1.0f);
        const size_t n = static_cast<size_t>(gw) * static_cast<size_t>(gh);
        for (int p = 0; p < 10; p++) {
            planes[p].resize(n);
            for (size_t i = 0; i < n; i++) {
                const float v = u(rng);
                planes[p][i] = i > 0 && rng() % 4 == 0 ? planes[p][i - 1] : (p >= 3 ? v * v * 1e-3f + 1e-6f : v);
            }
        }
        for (int c = 0; c < 3; c++) {
            grids.means[c] = planes[c].data();
            grids.vars[c] = planes[3 + c].data();
        }
        for (int k = 0; k < 4; k++)
            grids.dirs[k] = dirs ? planes[6 + k].data() : nullptr;
        grids.gw = gw;
        grids.gh = gh;
    }
    int gw, gh;
    std::vector<float> planes[10];
    Grids grids{};
};

// The statistics of candidate j written out as plain loops, as the sampler
// states them.
void expectPlainLoops(const RandomGrids& r, int by, int s, const std::vector<float>& out, long stride, int j)
{
    const int bx = 2 * j;
    for (int c = 0; c < 3; c++) {
        float lo = 1e6f, hi = -1e6f, vlo = 1e6f, vhi = -1e6f, sum = 0.0f, vsum = 0.0f;
        for (int y = by; y < by + s; y++) {
            for (int x = bx; x < bx + s; x++) {
                const float m = r.planes[c][static_cast<size_t>(y) * r.gw + x];
                const float v = r.planes[3 + c][static_cast<size_t>(y) * r.gw + x];
                if (m < lo)
                    lo = m;
                if (m > hi)
                    hi = m;
                if (v < vlo)
                    vlo = v;
                if (v > vhi)
                    vhi = v;
                sum = sum + m;
                vsum = vsum + v;
            }
        }
        ASSERT_EQ(out[(kMinMean + c) * stride + j], lo);
        ASSERT_EQ(out[(kMaxMean + c) * stride + j], hi);
        ASSERT_EQ(out[(kMinVar + c) * stride + j], vlo);
        ASSERT_EQ(out[(kMaxVar + c) * stride + j], vhi);
        ASSERT_EQ(out[(kSumMean + c) * stride + j], sum);
        if (c == 0) {
            ASSERT_EQ(out[kSumVarY * stride + j], vsum);
        }
    }
}

TEST(WindowStatsTest, CandidateCountStepsByTwoBlocksBelowTheGridLessTheSize)
{
    EXPECT_EQ(candidateCount(15, 4), 6);   // bx = 0, 2, .., 10
    EXPECT_EQ(candidateCount(15, 8), 4);   // bx = 0, 2, 4, 6
    EXPECT_EQ(candidateCount(15, 16), 0);
    EXPECT_EQ(candidateCount(127, 16), 56);
    EXPECT_EQ(candidateCount(17, 16), 1);
    EXPECT_EQ(candidateCount(16, 16), 0);
}

TEST(WindowStatsTest, ScalarRowMatchesPlainLoops)
{
    const RandomGrids r(41, 23, true, 7u);
    for (int s : {4, 8, 16}) {
        const int n = candidateCount(r.gw, s);
        const long stride = n;
        std::vector<float> out(kStatCount * static_cast<size_t>(stride));
        for (int by = 0; by < r.gh - s; by += 2) {
            rowScalar(r.grids, by, s, out.data(), stride);
            for (int j = 0; j < n; j++)
                expectPlainLoops(r, by, s, out, stride, j);
        }
    }
}

// Every vector row the processor offers gives the scalar row's bits, on
// grids of several widths (whole vectors and remainders) with and without
// directional measures.
TEST(WindowStatsTest, VectorRowsMatchScalarBitForBit)
{
    const int level = JCPUInfo::detectedLevel();
    if (level < JCPUInfo::AVX2)
        GTEST_SKIP() << "no vector row on this processor";
    int seed = 1;
    for (int gw : {15, 20, 37, 66, 127}) {
        for (bool dirs : {true, false}) {
            const RandomGrids r(gw, 40, dirs, static_cast<uint32_t>(seed++));
            Decimated d;
            d.build(r.grids);
            for (int s : {4, 8, 16}) {
                const int n = candidateCount(gw, s);
                if (n == 0)
                    continue;  // a grid no wider than the size offers no candidate
                const long stride = (n + 15) / 16 * 16;
                std::vector<float> want(kStatCount * static_cast<size_t>(stride), -7.0f);
                for (int by = 0; by < r.gh - s; by += 2) {
                    rowScalar(r.grids, by, s, want.data(), stride);
                    for (int path = JCPUInfo::AVX2; path <= level; path++) {
                        std::vector<float> got(want.size(), -7.0f);
                        if (path == JCPUInfo::AVX2)
                            rowAVX2(d, by, s, n, got.data(), stride);
                        else
                            rowAVX512(d, by, s, n, got.data(), stride);
                        const int stats = dirs ? kStatCount : kDirSum;
                        for (int k = 0; k < stats; k++)
                            ASSERT_EQ(std::memcmp(got.data() + k * stride, want.data() + k * stride,
                                                  static_cast<size_t>(n) * sizeof(float)),
                                      0)
                                << "gw " << gw << " s " << s << " by " << by << " stat " << k << " path " << path;
                    }
                }
            }
        }
    }
}

}  // namespace
