// Vector rows of the pixel-wise nodes: the two-input operations (Add,
// Subtract) and the mask blend (Blend, FilterMask). 16 or 8 results per
// instruction while whole vectors fit in the row, each lane doing the scalar
// path's operations with its roundings, so the rows are bit-identical.
// No vector reads past the row's end (a Constant input has only four floats
// of slack); the caller finishes the remaining pixels with its scalar loop.
// An operation is a type with
//   static __m512 v16(__m512 a, __m512 b);  (AVX-512 target)
//   static __m256 v8(__m256 a, __m256 b);   (AVX2 target)
#pragma once

#include <immintrin.h>

#include "base/cpu_info.h"

namespace pixelwise_simd {

#define MURMEX_PIXELWISE_AVX2 __attribute__((target("avx2,fma")))
#define MURMEX_PIXELWISE_AVX512 __attribute__((target("avx512f,avx512dq,avx512bw,avx512vl,fma")))

template <class Op>
MURMEX_PIXELWISE_AVX512 int row16(const float* a, const float* b, float* out, int n)
{
    int x = 0;
    for (; x + 16 <= n; x += 16)
        _mm512_storeu_ps(out + x, Op::v16(_mm512_loadu_ps(a + x), _mm512_loadu_ps(b + x)));
    return x;
}

template <class Op>
MURMEX_PIXELWISE_AVX2 int row8(const float* a, const float* b, float* out, int n)
{
    int x = 0;
    for (; x + 8 <= n; x += 8)
        _mm256_storeu_ps(out + x, Op::v8(_mm256_loadu_ps(a + x), _mm256_loadu_ps(b + x)));
    return x;
}

// Pixels 0 .. x-1 on the widest vector path allowed now; returns x.
template <class Op>
int row(const float* a, const float* b, float* out, int n)
{
    if (JCPUInfo::useSIMD(JCPUInfo::AVX512))
        return row16<Op>(a, b, out, n);
    if (JCPUInfo::useSIMD(JCPUInfo::AVX2))
        return row8<Op>(a, b, out, n);
    return 0;
}

// The mask blend fmaf(mask, a, (1 - mask) * b): 1 - mask and its product with
// b rounded, then mask * a fused onto the product with one rounding.
MURMEX_PIXELWISE_AVX512 inline int blend16(const float* mask, const float* a, const float* b, float* out, int n)
{
    const __m512 one = _mm512_set1_ps(1.0f);
    int x = 0;
    for (; x + 16 <= n; x += 16) {
        const __m512 m = _mm512_loadu_ps(mask + x);
        const __m512 rest = _mm512_mul_ps(_mm512_sub_ps(one, m), _mm512_loadu_ps(b + x));
        _mm512_storeu_ps(out + x, _mm512_fmadd_ps(m, _mm512_loadu_ps(a + x), rest));
    }
    return x;
}

MURMEX_PIXELWISE_AVX2 inline int blend8(const float* mask, const float* a, const float* b, float* out, int n)
{
    const __m256 one = _mm256_set1_ps(1.0f);
    int x = 0;
    for (; x + 8 <= n; x += 8) {
        const __m256 m = _mm256_loadu_ps(mask + x);
        const __m256 rest = _mm256_mul_ps(_mm256_sub_ps(one, m), _mm256_loadu_ps(b + x));
        _mm256_storeu_ps(out + x, _mm256_fmadd_ps(m, _mm256_loadu_ps(a + x), rest));
    }
    return x;
}

// Blended pixels 0 .. x-1 on the widest vector path allowed now; returns x.
inline int blend(const float* mask, const float* a, const float* b, float* out, int n)
{
    if (JCPUInfo::useSIMD(JCPUInfo::AVX512))
        return blend16(mask, a, b, out, n);
    if (JCPUInfo::useSIMD(JCPUInfo::AVX2))
        return blend8(mask, a, b, out, n);
    return 0;
}

}  // namespace pixelwise_simd
