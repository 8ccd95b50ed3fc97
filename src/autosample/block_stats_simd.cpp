#include "autosample/block_stats_simd.h"

#include <immintrin.h>

#include "denoise/raster/lane_table.h"

namespace block_stats_simd {

namespace {

// Four blocks' running sums from four floats.
__attribute__((target("avx2,fma"))) inline void accumulate(__m128 v, __m256d& sum, __m256d& sumsq)
{
    const __m256d d = _mm256_cvtps_pd(v);
    sum = _mm256_add_pd(sum, d);
    sumsq = _mm256_add_pd(sumsq, _mm256_mul_pd(d, d));
}

// Mean and floored variance of four blocks, rounded to float.
__attribute__((target("avx2,fma"))) inline void finish(__m256d sum, __m256d sumsq, float* mean, float* var)
{
    const __m256d sixtyFourth = _mm256_set1_pd(0.015625);
    const __m256d m = _mm256_mul_pd(sum, sixtyFourth);
    const __m256d v = _mm256_sub_pd(_mm256_mul_pd(sumsq, sixtyFourth), _mm256_mul_pd(m, m));
    // max_pd(v, floor) is v > floor ? v : floor, as the scalar comparison.
    _mm_storeu_ps(mean, _mm256_cvtpd_ps(m));
    _mm_storeu_ps(var, _mm256_cvtpd_ps(_mm256_max_pd(v, _mm256_set1_pd(1e-6))));
}

}  // namespace

__attribute__((target("avx2,fma"))) int blockRowAVX2(const float* plane, long stride, int by, int gw, float* means,
                                                    float* vars)
{
    const int k = gw / 8 * 8;
    for (int bx = 0; bx < k; bx += 8) {
        __m256d sumLo = _mm256_setzero_pd(), sumHi = _mm256_setzero_pd();
        __m256d sqLo = _mm256_setzero_pd(), sqHi = _mm256_setzero_pd();
        for (int y = 8 * by; y < 8 * by + 8; y++) {
            const float* row = plane + static_cast<long>(y) * stride + 8 * bx;
            __m256 r[8];
            for (int i = 0; i < 8; i++)
                r[i] = _mm256_loadu_ps(row + 8 * i);
            // r[i] held block i's eight pixels; now r[x] holds pixel x of each.
            lane_table::transpose8(r);
            for (int x = 0; x < 8; x++) {
                accumulate(_mm256_castps256_ps128(r[x]), sumLo, sqLo);
                accumulate(_mm256_extractf128_ps(r[x], 1), sumHi, sqHi);
            }
        }
        finish(sumLo, sqLo, means + bx, vars + bx);
        finish(sumHi, sqHi, means + bx + 4, vars + bx + 4);
    }
    return k;
}

}  // namespace block_stats_simd
