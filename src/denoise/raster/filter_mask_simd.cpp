// Vector path of the filter-mask blend: 16 (AVX-512) or 8 (AVX2) pixels per
// step, the rest left to the scalar loop. Each lane computes (1 - m) * f,
// rounded, then one fused multiply-add of m * o onto it, exactly as fmaf in
// the scalar loop, so the rows are bit-identical.
// What it bought: on a 2048 x 512 plane with a random mask (AMD EPYC with
// AVX-512, processor time per pass including mask decoding and the input
// rows) 3.3 ms on the scalar path, whose fmaf is a library call in a baseline
// x86-64 build, and 1.7 ms on either vector path. It also shortens the time
// the node's mutex is held, since masked rows are blended one at a time.
#include <immintrin.h>

#include "base/cpu_info.h"
#include "denoise/raster/filter_mask.h"

namespace {

__attribute__((target("avx512f,avx512dq,avx512bw,avx512vl,fma")))
int blendAVX512(const float* m, const float* o, const float* f, float* out, int n)
{
    const __m512 one = _mm512_set1_ps(1.0f);
    int x = 0;
    for (; x + 16 <= n; x += 16) {
        const __m512 mv = _mm512_loadu_ps(m + x);
        const __m512 rest = _mm512_mul_ps(_mm512_sub_ps(one, mv), _mm512_loadu_ps(f + x));
        _mm512_storeu_ps(out + x, _mm512_fmadd_ps(mv, _mm512_loadu_ps(o + x), rest));
    }
    return x;
}

__attribute__((target("avx2,fma")))
int blendAVX2(const float* m, const float* o, const float* f, float* out, int n)
{
    const __m256 one = _mm256_set1_ps(1.0f);
    int x = 0;
    for (; x + 8 <= n; x += 8) {
        const __m256 mv = _mm256_loadu_ps(m + x);
        const __m256 rest = _mm256_mul_ps(_mm256_sub_ps(one, mv), _mm256_loadu_ps(f + x));
        _mm256_storeu_ps(out + x, _mm256_fmadd_ps(mv, _mm256_loadu_ps(o + x), rest));
    }
    return x;
}

}  // namespace

int JIncrRaster_FilterMask::blend_SIMD(const float* m, const float* o, const float* f, float* out, int n)
{
    if (JCPUInfo::useSIMD(JCPUInfo::AVX512))
        return blendAVX512(m, o, f, out, n);
    if (JCPUInfo::useSIMD(JCPUInfo::AVX2))
        return blendAVX2(m, o, f, out, n);
    return 0;
}
