// Vector helpers shared by the RGB -> YCrCb conversions: splitting RGBX
// pixels (four floats each) into red, green and blue vectors, the chroma
// offset added in double, and lane types for the conversions' row loops.
// Each function carries its own instruction set, so it inlines into vector
// code of that set or a wider one.
#pragma once

#include <immintrin.h>

#include "base/simd_lanes.h"

namespace rgbx_simd {

// Eight RGBX pixels, two per vector (p01 holds pixels 0 and 1, and so on),
// into r, g, b with the lanes in pixel order 0 2 4 6 | 1 3 5 7; storeInOrder8
// puts such a vector back in pixel order.
__attribute__((target("avx2,fma"))) inline void split8(__m256 p01, __m256 p23, __m256 p45, __m256 p67, __m256& r,
                                                      __m256& g, __m256& b)
{
    const __m256 rg0 = _mm256_unpacklo_ps(p01, p23);  // R0 R2 G0 G2 | R1 R3 G1 G3
    const __m256 bx0 = _mm256_unpackhi_ps(p01, p23);  // B0 B2 X0 X2 | B1 B3 X1 X3
    const __m256 rg1 = _mm256_unpacklo_ps(p45, p67);  // R4 R6 G4 G6 | R5 R7 G5 G7
    const __m256 bx1 = _mm256_unpackhi_ps(p45, p67);
    r = _mm256_shuffle_ps(rg0, rg1, _MM_SHUFFLE(1, 0, 1, 0));  // R0 R2 R4 R6 | R1 R3 R5 R7
    g = _mm256_shuffle_ps(rg0, rg1, _MM_SHUFFLE(3, 2, 3, 2));
    b = _mm256_shuffle_ps(bx0, bx1, _MM_SHUFFLE(1, 0, 1, 0));
}

__attribute__((target("avx2,fma"))) inline void storeInOrder8(float* p, __m256 v)
{
    _mm256_storeu_ps(p, _mm256_permutevar8x32_ps(v, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7)));
}

// Sixteen RGBX pixels, four per vector, into r, g, b in pixel order. The
// first step gathers red and green (or blue) of eight pixels into the two
// halves of a vector, the second joins the halves of two such vectors.
__attribute__((target("avx512f,avx512dq,avx512bw,avx512vl,fma"))) inline void split16(__m512 p0, __m512 p1,
                                                                                     __m512 p2, __m512 p3,
                                                                                     __m512& r, __m512& g,
                                                                                     __m512& b)
{
    const __m512i redGreen = _mm512_setr_epi32(0, 4, 8, 12, 16, 20, 24, 28, 1, 5, 9, 13, 17, 21, 25, 29);
    const __m512i blue = _mm512_setr_epi32(2, 6, 10, 14, 18, 22, 26, 30, 2, 6, 10, 14, 18, 22, 26, 30);
    const __m512i lowHalves = _mm512_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7, 16, 17, 18, 19, 20, 21, 22, 23);
    const __m512i highHalves = _mm512_setr_epi32(8, 9, 10, 11, 12, 13, 14, 15, 24, 25, 26, 27, 28, 29, 30, 31);
    const __m512 rg0 = _mm512_permutex2var_ps(p0, redGreen, p1);
    const __m512 rg1 = _mm512_permutex2var_ps(p2, redGreen, p3);
    const __m512 b0 = _mm512_permutex2var_ps(p0, blue, p1);
    const __m512 b1 = _mm512_permutex2var_ps(p2, blue, p3);
    r = _mm512_permutex2var_ps(rg0, lowHalves, rg1);
    g = _mm512_permutex2var_ps(rg0, highHalves, rg1);
    b = _mm512_permutex2var_ps(b0, lowHalves, b1);
}

// v + 0.5 in double, rounded back to float, lane by lane.
__attribute__((target("avx2,fma"))) inline __m256 plusHalf8(__m256 v)
{
    const __m256d half = _mm256_set1_pd(0.5);
    const __m256d lo = _mm256_add_pd(_mm256_cvtps_pd(_mm256_castps256_ps128(v)), half);
    const __m256d hi = _mm256_add_pd(_mm256_cvtps_pd(_mm256_extractf128_ps(v, 1)), half);
    return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm256_cvtpd_ps(lo)), _mm256_cvtpd_ps(hi), 1);
}

// The zero-masking forms with a full mask are the plain instructions; GCC 12
// warns about the unmasked intrinsics' undefined pass-through operand.
__attribute__((target("avx512f,avx512dq,avx512bw,avx512vl,fma"))) inline __m512 plusHalf16(__m512 v)
{
    const __mmask8 all = 0xFF;
    const __m512d half = _mm512_set1_pd(0.5);
    const __m512d lo = _mm512_add_pd(_mm512_maskz_cvtps_pd(all, _mm512_maskz_extractf32x8_ps(all, v, 0)), half);
    const __m512d hi = _mm512_add_pd(_mm512_maskz_cvtps_pd(all, _mm512_maskz_extractf32x8_ps(all, v, 1)), half);
    return _mm512_insertf32x8(_mm512_castps256_ps512(_mm512_maskz_cvtpd_ps(all, lo)), _mm512_maskz_cvtpd_ps(all, hi),
                              1);
}

// Lane types of the conversions: those of simd_lanes.h plus plusHalf, and
// for eight lanes a store that puts split8's lane order back into pixel order.
struct Lanes16 : simd_lanes::Lanes16 {
    __attribute__((target("avx512f,avx512dq,avx512bw,avx512vl,fma"))) static F plusHalf(F v) { return plusHalf16(v); }
};

struct Lanes8 : simd_lanes::Lanes8 {
    __attribute__((target("avx2,fma"))) static F plusHalf(F v) { return plusHalf8(v); }
    __attribute__((target("avx2,fma"))) static void store(float* p, F v) { storeInOrder8(p, v); }
};

}  // namespace rgbx_simd
