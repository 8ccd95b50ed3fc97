#include "autosample/tile_scan.h"

#include <algorithm>

#include "autosample/block_roughness_simd.h"
#include "autosample/block_stats_simd.h"
#include "base/cpu_info.h"
#include "color/lab_coord.h"
#include "color/pixel.h"

namespace {

constexpr int kPatchSizes[3] = {4, 8, 16};

// Roughness of one pixel along one direction: the variance of the five
// pixels through it, offsets -2..+2 apart by `stride` in the plane.
inline float lineVariance(const float* p, long stride)
{
    const float v0 = p[-2 * stride];
    const float v1 = p[-stride];
    const float v2 = p[0];
    const float v3 = p[stride];
    const float v4 = p[2 * stride];
    const float m = ((((v0 + v1) + v2) + v3) + v4) * 0.2f;
    const float d0 = v0 - m;
    const float d1 = v1 - m;
    const float d2 = v2 - m;
    const float d3 = v3 - m;
    const float d4 = v4 - m;
    return ((((d0 * d0 + d1 * d1) + d2 * d2) + d3 * d3) + d4 * d4) * 0.2f;
}

}  // namespace

JTileScan::JTileScan() : tile_(3), blockMeans_(3), blockVars_(3), blockDirs_(4) {}

void JTileScan::scan(JImageAdapter* image, const JRect<int>& r, bool relaxed, Result& out)
{
    relaxed_ = relaxed ? 1 : 0;
    JRect<int> rect = r;
    tile_.readYCrCb(image, rect);
    computeBlockStats();
    prepareRowStats();
    out.candidates.clear();
    for (int k = 0; k < 3; k++) {
        out.examined[k] = 0;
        searchCandidates(kPatchSizes[k], r.left, r.top, out.examined[k], out.candidates);
    }
}

void JTileScan::releaseTile()
{
    tile_.release();
}

void JTileScan::computeBlockStats()
{
    const JPixelRect& tile = tile_;
    const int tw = tile.width;
    gw_ = tile.width / 8 - 1;
    gh_ = tile.height / 8 - 1;
    blockMeans_.setDimensions(gw_, gh_);
    blockVars_.setDimensions(gw_, gh_);
    if (!relaxed_)
        blockDirs_.setDimensions(gw_, gh_);

    const bool avx2 = JCPUInfo::useSIMD(JCPUInfo::AVX2);
    for (int c = 0; c < 3; c++) {
        const float* plane = tile.plane(c);
        float* means = blockMeans_.plane(c);
        float* vars = blockVars_.plane(c);
        for (int by = 0; by < gh_; by++) {
            const long at = static_cast<long>(by) * gw_;
            int bx = 0;
            if (avx2)
                bx = block_stats_simd::blockRowAVX2(plane, tw, by, gw_, means + at, vars + at);
            for (; bx < gw_; bx++) {
                double sum = 0.0;
                double sumsq = 0.0;
                for (int y = 8 * by; y < 8 * by + 8; y++) {
                    const float* row = plane + static_cast<long>(y) * tw;
                    for (int x = 8 * bx; x < 8 * bx + 8; x++) {
                        const double v = row[x];
                        sum += v;
                        sumsq += v * v;
                    }
                }
                const double mean = sum * 0.015625;
                const double var = sumsq * 0.015625 - mean * mean;
                const long i = static_cast<long>(by) * gw_ + bx;
                means[i] = static_cast<float>(mean);
                vars[i] = static_cast<float>(var > 1e-6 ? var : 1e-6);
            }
        }
    }
    if (relaxed_)
        return;

    // Directional roughness of Y over a 7x7 window per block; the first block
    // row and column borrow the window of block 1 so that the five-pixel lines
    // stay inside the tile. The sum of 49 pixels is divided by 64, as intended.
    const float* plane = tile.plane(0);
    const long stride = tw;
    if (JCPUInfo::useSIMD(JCPUInfo::AVX2)) {
        std::vector<int> c0(static_cast<size_t>(gw_));
        std::vector<float> sums(4 * static_cast<size_t>(gw_));
        for (int bx = 0; bx < gw_; bx++)
            c0[bx] = 8 * std::max(bx, 1);
        for (int by = 0; by < gh_; by++) {
            block_roughness_simd::windowSumsAVX2(plane, stride, 8 * std::max(by, 1), c0.data(), gw_, sums.data());
            for (int bx = 0; bx < gw_; bx++)
                for (int k = 0; k < 4; k++)
                    blockDirs_.plane(k)[static_cast<long>(by) * gw_ + bx] = sums[4 * bx + k] * 0.015625f;
        }
        return;
    }
    for (int by = 0; by < gh_; by++) {
        const int r0 = 8 * std::max(by, 1);
        for (int bx = 0; bx < gw_; bx++) {
            const int c0 = 8 * std::max(bx, 1);
            float h = 0.0f, v = 0.0f, d = 0.0f, a = 0.0f;
            for (int y = r0; y < r0 + 7; y++) {
                const float* p = plane + static_cast<long>(y) * stride + c0;
                for (int x = 0; x < 7; x++, p++) {
                    h += lineVariance(p, 1);
                    v += lineVariance(p, stride);
                    d += lineVariance(p, stride + 1);
                    a += lineVariance(p, stride - 1);
                }
            }
            const long i = static_cast<long>(by) * gw_ + bx;
            blockDirs_.plane(0)[i] = h * 0.015625f;
            blockDirs_.plane(1)[i] = v * 0.015625f;
            blockDirs_.plane(2)[i] = d * 0.015625f;
            blockDirs_.plane(3)[i] = a * 0.015625f;
        }
    }
}

bool JTileScan::uniform(int j, int s, float& scoreY, float& meanVarY, float means[3]) const
{
    using namespace window_stats;
    static constexpr float kSpread[3] = {6.0f, 5.0f, 5.0f};
    static constexpr float kRatio[3] = {2.0f, 10.0f, 10.0f};
    const float* st = rowStats_.data() + j;
    const long n = rowStride_;
    const float area = static_cast<float>(s * s);
    for (int c = 0; c < 3; c++) {
        const float minMean = st[(kMinMean + c) * n] * 100.0f;
        const float maxMean = st[(kMaxMean + c) * n] * 100.0f;
        const float minVar = st[(kMinVar + c) * n] * 100.0f;
        const float maxVar = st[(kMaxVar + c) * n] * 100.0f;
        const float spread = maxMean - minMean;
        const float ratio = maxVar / (minVar >= 0.01f ? minVar : 0.01f);
        const float score = spread * spread + ratio * ratio;
        if (!(score < kSpread[c] * kSpread[c] + kRatio[c] * kRatio[c]))
            return false;
        means[c] = st[(kSumMean + c) * n] / area;
        if (c == 0) {
            scoreY = score;
            meanVarY = st[kSumVarY * n] / area;
        }
    }
    return true;
}

bool JTileScan::directionFree(int j, int s) const
{
    const float* st = rowStats_.data() + j;
    float sums[4];
    for (int k = 0; k < 4; k++)
        sums[k] = st[(window_stats::kDirSum + k) * rowStride_];
    const float area = static_cast<float>(s * s);
    const float largest = std::max(std::max(sums[0], sums[1]), std::max(sums[2], sums[3])) / area;
    const float smallest = std::min(std::min(sums[0], sums[1]), std::min(sums[2], sums[3])) / area;
    return !(largest / (smallest > 1e-6f ? smallest : 1e-6f) > 2.0f);
}

void JTileScan::computeRowStats(int by, int s)
{
    if (JCPUInfo::useSIMD(JCPUInfo::AVX512))
        window_stats::rowAVX512(decimated_, by, s, window_stats::candidateCount(gw_, s), rowStats_.data(), rowStride_);
    else if (JCPUInfo::useSIMD(JCPUInfo::AVX2))
        window_stats::rowAVX2(decimated_, by, s, window_stats::candidateCount(gw_, s), rowStats_.data(), rowStride_);
    else
        window_stats::rowScalar(grids(), by, s, rowStats_.data(), rowStride_);
}

window_stats::Grids JTileScan::grids() const
{
    window_stats::Grids g{};
    for (int c = 0; c < 3; c++) {
        g.means[c] = blockMeans_.plane(c);
        g.vars[c] = blockVars_.plane(c);
    }
    for (int k = 0; k < 4; k++)
        g.dirs[k] = relaxed_ ? nullptr : blockDirs_.plane(k);
    g.gw = gw_;
    g.gh = gh_;
    return g;
}

void JTileScan::prepareRowStats()
{
    // Rows of the largest count rounded up to whole vectors of 16.
    rowStride_ = (window_stats::candidateCount(gw_, kPatchSizes[0]) + 15) / 16 * 16;
    rowStats_.resize(static_cast<size_t>(window_stats::kStatCount) * static_cast<size_t>(rowStride_));
    if (JCPUInfo::useSIMD(JCPUInfo::AVX2))
        decimated_.build(grids());
}

void JTileScan::searchCandidates(int s, int tileX, int tileY, int& examined, std::vector<JAutoSampleRec>& out)
{
    const int n = window_stats::candidateCount(gw_, s);
    for (int by = 0; by < gh_ - s; by += 2) {
        computeRowStats(by, s);
        for (int j = 0; j < n; j++) {
            const int bx = 2 * j;
            examined++;
            float scoreY, meanVarY, means[3];
            if (!uniform(j, s, scoreY, meanVarY, means))
                continue;
            if (!relaxed_ && !directionFree(j, s))
                continue;
            JAutoSampleRec candidate;
            candidate.score = scoreY / static_cast<float>(s * s);
            candidate.yVariance = meanVarY;
            JPixel p;
            p.fromYCrCb(means[0], means[1], means[2]);
            candidate.lab.fromPixel(p);
            candidate.rect = JRect<int>(bx, by, bx + s, by + s);
            candidate.rect.scale(8);
            candidate.rect.offset(tileX, tileY);
            candidate.valid = 1;
            out.push_back(candidate);
        }
    }
}

