#include "autosample/block_roughness_simd.h"

#include <immintrin.h>

namespace block_roughness_simd {

namespace {

// lineVariance of the sampler for eight neighbouring pixels at once.
__attribute__((target("avx2,fma"))) inline __m256 lineVariance8(const float* p, long stride)
{
    const __m256 v0 = _mm256_loadu_ps(p - 2 * stride);
    const __m256 v1 = _mm256_loadu_ps(p - stride);
    const __m256 v2 = _mm256_loadu_ps(p);
    const __m256 v3 = _mm256_loadu_ps(p + stride);
    const __m256 v4 = _mm256_loadu_ps(p + 2 * stride);
    const __m256 fifth = _mm256_set1_ps(0.2f);
    const __m256 m =
        _mm256_mul_ps(_mm256_add_ps(_mm256_add_ps(_mm256_add_ps(_mm256_add_ps(v0, v1), v2), v3), v4), fifth);
    const __m256 d0 = _mm256_sub_ps(v0, m);
    const __m256 d1 = _mm256_sub_ps(v1, m);
    const __m256 d2 = _mm256_sub_ps(v2, m);
    const __m256 d3 = _mm256_sub_ps(v3, m);
    const __m256 d4 = _mm256_sub_ps(v4, m);
    __m256 s = _mm256_add_ps(_mm256_mul_ps(d0, d0), _mm256_mul_ps(d1, d1));
    s = _mm256_add_ps(s, _mm256_mul_ps(d2, d2));
    s = _mm256_add_ps(s, _mm256_mul_ps(d3, d3));
    s = _mm256_add_ps(s, _mm256_mul_ps(d4, d4));
    return _mm256_mul_ps(s, fifth);
}

// Blocks b .. b+N-1 of a row together, so that their 4N running sums are
// independent chains the processor can overlap.
template <int N>
__attribute__((target("avx2,fma"))) inline void windowSums(const float* plane, long stride, int r0, const int* c0,
                                                           float* out)
{
    const long steps[4] = {1, stride, stride + 1, stride - 1};
    float sums[N][4] = {};
    alignas(32) float lanes[N][4][8];
    for (int y = r0; y < r0 + 7; y++) {
        const float* row = plane + static_cast<long>(y) * stride;
        for (int b = 0; b < N; b++)
            for (int k = 0; k < 4; k++)
                _mm256_store_ps(lanes[b][k], lineVariance8(row + c0[b], steps[k]));
        for (int x = 0; x < 7; x++)
            for (int b = 0; b < N; b++)
                for (int k = 0; k < 4; k++)
                    sums[b][k] += lanes[b][k][x];
    }
    for (int b = 0; b < N; b++)
        for (int k = 0; k < 4; k++)
            out[4 * b + k] = sums[b][k];
}

}  // namespace

__attribute__((target("avx2,fma"))) void windowSumsAVX2(const float* plane, long stride, int r0, const int* c0, int n,
                                                       float* out)
{
    int b = 0;
    for (; b + 4 <= n; b += 4)
        windowSums<4>(plane, stride, r0, c0 + b, out + 4 * b);
    for (; b < n; b++)
        windowSums<1>(plane, stride, r0, c0 + b, out + 4 * b);
}

}  // namespace block_roughness_simd
