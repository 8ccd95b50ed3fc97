// The vector row of window_stats, written once for any vector width; L is a
// lane type of base/simd_lanes.h. This file has no include guard on purpose:
// window_stats_simd.cpp includes it once per instruction set, each time
// inside its own namespace and under a MURMEX_TARGET_BEGIN
// (base/simd_target.h).

// Candidates j0 .. j0 + L::kWidth - 1 of row by in each step.
template <class L>
void windowRow(const window_stats::Decimated& d, int by, int s, int n, float* out, long stride)
{
    using namespace window_stats;
    using F = typename L::F;
    for (int j0 = 0; j0 < n; j0 += L::kWidth) {
        for (int c = 0; c < 3; c++) {
            F minMean = L::set1(1e6f), maxMean = L::set1(-1e6f);
            F minVar = L::set1(1e6f), maxVar = L::set1(-1e6f);
            F sumMean = L::zero(), sumVar = L::zero();
            for (int y = by; y < by + s; y++) {
                const float* m[2] = {d.plane(c, 0, y) + j0, d.plane(c, 1, y) + j0};
                const float* v[2] = {d.plane(3 + c, 0, y) + j0, d.plane(3 + c, 1, y) + j0};
                for (int x = 0; x < s; x++) {
                    const F bm = L::load(m[x & 1] + (x >> 1));
                    const F bv = L::load(v[x & 1] + (x >> 1));
                    minMean = L::min(bm, minMean);
                    maxMean = L::max(bm, maxMean);
                    minVar = L::min(bv, minVar);
                    maxVar = L::max(bv, maxVar);
                    sumMean = L::add(sumMean, bm);
                    if (c == 0)
                        sumVar = L::add(sumVar, bv);
                }
            }
            L::store(out + (kMinMean + c) * stride + j0, minMean);
            L::store(out + (kMaxMean + c) * stride + j0, maxMean);
            L::store(out + (kMinVar + c) * stride + j0, minVar);
            L::store(out + (kMaxVar + c) * stride + j0, maxVar);
            L::store(out + (kSumMean + c) * stride + j0, sumMean);
            if (c == 0)
                L::store(out + kSumVarY * stride + j0, sumVar);
        }
        if (!d.hasDirs())
            continue;
        for (int k = 0; k < 4; k++) {
            F sum = L::set1(1e-6f);
            for (int y = by; y < by + s; y++) {
                const float* p[2] = {d.plane(6 + k, 0, y) + j0, d.plane(6 + k, 1, y) + j0};
                for (int x = 0; x < s; x++)
                    sum = L::add(sum, L::load(p[x & 1] + (x >> 1)));
            }
            L::store(out + (kDirSum + k) * stride + j0, sum);
        }
    }
}
