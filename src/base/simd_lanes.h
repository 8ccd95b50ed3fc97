// The plain float operations of the vector row loops, one lane type per
// instruction set: L::F is a vector of L::kWidth floats; load and store are
// unaligned; fmadd(a, b, c) = a*b + c and fnmadd(a, b, c) = -(a*b) + c, each
// rounded once (as fmaf); min(a, b) and max(a, b) are the vector unit's (a < b
// ? a : b and a > b ? a : b: the second operand when the comparison fails).
// A row loop is written once as a template over a lane type; its own lane
// type derives from one of these and adds what is particular to it.
// Each function carries its instruction set, so it inlines into code compiled
// for that set (MURMEX_TARGET_BEGIN, simd_target.h).
#pragma once

#include <immintrin.h>

namespace simd_lanes {

#define MURMEX_LANES16 __attribute__((target("avx512f,avx512dq,avx512bw,avx512vl,fma")))
#define MURMEX_LANES8 __attribute__((target("avx2,fma")))

struct Lanes16 {
    using F = __m512;
    static constexpr int kWidth = 16;

    MURMEX_LANES16 static F load(const float* p) { return _mm512_loadu_ps(p); }
    MURMEX_LANES16 static void store(float* p, F v) { _mm512_storeu_ps(p, v); }
    MURMEX_LANES16 static F set1(float f) { return _mm512_set1_ps(f); }
    MURMEX_LANES16 static F zero() { return _mm512_setzero_ps(); }
    MURMEX_LANES16 static F add(F a, F b) { return _mm512_add_ps(a, b); }
    MURMEX_LANES16 static F sub(F a, F b) { return _mm512_sub_ps(a, b); }
    MURMEX_LANES16 static F mul(F a, F b) { return _mm512_mul_ps(a, b); }
    MURMEX_LANES16 static F div(F a, F b) { return _mm512_div_ps(a, b); }
    MURMEX_LANES16 static F fmadd(F a, F b, F c) { return _mm512_fmadd_ps(a, b, c); }
    MURMEX_LANES16 static F fnmadd(F a, F b, F c) { return _mm512_fnmadd_ps(a, b, c); }
    // The zero-masking forms with a full mask are the plain instructions; GCC
    // 12 warns about the unmasked intrinsics' undefined pass-through operand.
    MURMEX_LANES16 static F min(F a, F b) { return _mm512_maskz_min_ps(0xFFFF, a, b); }
    MURMEX_LANES16 static F max(F a, F b) { return _mm512_maskz_max_ps(0xFFFF, a, b); }
};

struct Lanes8 {
    using F = __m256;
    static constexpr int kWidth = 8;

    MURMEX_LANES8 static F load(const float* p) { return _mm256_loadu_ps(p); }
    MURMEX_LANES8 static void store(float* p, F v) { _mm256_storeu_ps(p, v); }
    MURMEX_LANES8 static F set1(float f) { return _mm256_set1_ps(f); }
    MURMEX_LANES8 static F zero() { return _mm256_setzero_ps(); }
    MURMEX_LANES8 static F add(F a, F b) { return _mm256_add_ps(a, b); }
    MURMEX_LANES8 static F sub(F a, F b) { return _mm256_sub_ps(a, b); }
    MURMEX_LANES8 static F mul(F a, F b) { return _mm256_mul_ps(a, b); }
    MURMEX_LANES8 static F div(F a, F b) { return _mm256_div_ps(a, b); }
    MURMEX_LANES8 static F fmadd(F a, F b, F c) { return _mm256_fmadd_ps(a, b, c); }
    MURMEX_LANES8 static F fnmadd(F a, F b, F c) { return _mm256_fnmadd_ps(a, b, c); }
    MURMEX_LANES8 static F min(F a, F b) { return _mm256_min_ps(a, b); }
    MURMEX_LANES8 static F max(F a, F b) { return _mm256_max_ps(a, b); }
};

#undef MURMEX_LANES16
#undef MURMEX_LANES8

}  // namespace simd_lanes
