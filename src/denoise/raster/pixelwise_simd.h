// Vector rows of the two-input pixel-wise nodes (Add, Subtract): 16 or 8
// results per instruction while whole vectors fit in the row, one rounded
// operation per pixel as in the scalar path, so the rows are bit-identical.
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

}  // namespace pixelwise_simd
