#include "autosample/window_stats.h"

#include <algorithm>

namespace window_stats {

int candidateCount(int gw, int s)
{
    return gw - s > 0 ? (gw - s + 1) / 2 : 0;
}

void rowScalar(const Grids& g, int by, int s, float* out, long stride)
{
    const int n = candidateCount(g.gw, s);
    for (int j = 0; j < n; j++) {
        const int bx = 2 * j;
        for (int c = 0; c < 3; c++) {
            const float* m = g.means[c];
            const float* v = g.vars[c];
            float minMean = 1e6f, maxMean = -1e6f, minVar = 1e6f, maxVar = -1e6f;
            float sumMean = 0.0f, sumVar = 0.0f;
            for (int y = by; y < by + s; y++) {
                const long row = static_cast<long>(y) * g.gw;
                for (int x = bx; x < bx + s; x++) {
                    const float bm = m[row + x];
                    const float bv = v[row + x];
                    minMean = std::min(minMean, bm);
                    maxMean = std::max(maxMean, bm);
                    minVar = std::min(minVar, bv);
                    maxVar = std::max(maxVar, bv);
                    sumMean += bm;
                    sumVar += bv;
                }
            }
            out[(kMinMean + c) * stride + j] = minMean;
            out[(kMaxMean + c) * stride + j] = maxMean;
            out[(kMinVar + c) * stride + j] = minVar;
            out[(kMaxVar + c) * stride + j] = maxVar;
            out[(kSumMean + c) * stride + j] = sumMean;
            if (c == 0)
                out[kSumVarY * stride + j] = sumVar;
        }
        if (!g.dirs[0])
            continue;
        for (int k = 0; k < 4; k++) {
            const float* dir = g.dirs[k];
            float sum = 1e-6f;
            for (int y = by; y < by + s; y++) {
                const long row = static_cast<long>(y) * g.gw;
                for (int x = bx; x < bx + s; x++)
                    sum += dir[row + x];
            }
            out[(kDirSum + k) * stride + j] = sum;
        }
    }
}

void Decimated::build(const Grids& g)
{
    dirs_ = g.dirs[0] != nullptr;
    gh_ = g.gh;
    // Whole vectors of 16 past the last candidate, each reaching 8 columns on.
    stride_ = (g.gw + 1) / 2 + 32;
    const int planes = dirs_ ? 10 : 6;
    data_.assign(static_cast<size_t>(planes) * 2 * static_cast<size_t>(gh_) * static_cast<size_t>(stride_), 0.0f);
    for (int p = 0; p < planes; p++) {
        const float* src = p < 3 ? g.means[p] : p < 6 ? g.vars[p - 3] : g.dirs[p - 6];
        for (int y = 0; y < g.gh; y++) {
            const float* row = src + static_cast<long>(y) * g.gw;
            for (int parity = 0; parity < 2; parity++) {
                float* out = data_.data() + ((static_cast<long>(p) * 2 + parity) * gh_ + y) * stride_;
                for (int x = parity; x < g.gw; x += 2)
                    out[x / 2] = row[x];
            }
        }
    }
}

}  // namespace window_stats
