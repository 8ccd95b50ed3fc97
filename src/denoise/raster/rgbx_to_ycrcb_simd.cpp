// Vector path of JIncrRaster_RGBXToYCrCb: 16 or 8 pixels at a time, the rest
// one at a time as in the scalar path. Each lane takes the scalar steps in
// the same order: the first product rounded, then each later term by a fused
// multiply-add (a vector FMA rounds once, as fmaf does; fnmadd(a, b, c) is
// fmaf(-a, b, c)), then the chroma offset added in double and rounded back.
// So the planes are bit-identical to the scalar ones. Fused multiply-adds
// need the FMA unit, so the vector path starts at the AVX2 level; below it
// the scalar loop runs.
//
// What it bought (bench/rgbx_to_ycrcb_bench.cpp, CPU time per 4096-pixel row,
// median of 3, Y / Cr / Cb): 25 / 27 / 26 us scalar, whose fused terms are
// library calls in a build for plain x86-64; 3.5 / 3.8 / 4.0 us AVX2 and
// 3.4 / 3.8 / 3.9 us AVX-512 (the row is bound by memory there), on the
// shared 2-core Intel Xeon (AVX-512) build machine under load, Release build.
#include <immintrin.h>

#include "base/cpu_info.h"
#include "denoise/raster/rgbx_to_ycrcb.h"
#include "denoise/raster/simd_target.h"

namespace {

MURMEX_TARGET_BEGIN("avx512f,avx512dq,avx512bw,avx512vl,fma")
namespace avx512 {

struct Lanes {
    using F = __m512;
    static constexpr int kWidth = 16;

    static F set1(float f) { return _mm512_set1_ps(f); }
    static F mul(F a, F b) { return _mm512_mul_ps(a, b); }
    static F fmadd(F a, F b, F c) { return _mm512_fmadd_ps(a, b, c); }
    static F fnmadd(F a, F b, F c) { return _mm512_fnmadd_ps(a, b, c); }
    static void store(float* p, F v) { _mm512_storeu_ps(p, v); }

    static void loadRGB(const float* in, F& r, F& g, F& b)
    {
        // Four vectors of four pixels each. The first step gathers red and
        // green (or blue) of eight pixels into the two halves of a vector,
        // the second joins the halves of two such vectors.
        const __m512 p0 = _mm512_loadu_ps(in);
        const __m512 p1 = _mm512_loadu_ps(in + 16);
        const __m512 p2 = _mm512_loadu_ps(in + 32);
        const __m512 p3 = _mm512_loadu_ps(in + 48);
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

    // The zero-masking forms with a full mask are the plain instructions; GCC
    // 12 warns about the unmasked intrinsics' undefined pass-through operand.
    static F plusHalf(F v)
    {
        const __mmask8 all = 0xFF;
        const __m512d half = _mm512_set1_pd(0.5);
        const __m512d lo = _mm512_add_pd(_mm512_maskz_cvtps_pd(all, _mm512_maskz_extractf32x8_ps(all, v, 0)), half);
        const __m512d hi = _mm512_add_pd(_mm512_maskz_cvtps_pd(all, _mm512_maskz_extractf32x8_ps(all, v, 1)), half);
        return _mm512_insertf32x8(_mm512_castps256_ps512(_mm512_maskz_cvtpd_ps(all, lo)),
                                  _mm512_maskz_cvtpd_ps(all, hi), 1);
    }
};

#include "denoise/raster/rgbx_to_ycrcb_simd_row.h"

}  // namespace avx512
MURMEX_TARGET_END

MURMEX_TARGET_BEGIN("avx2,fma")
namespace avx2 {

struct Lanes {
    using F = __m256;
    static constexpr int kWidth = 8;

    static F set1(float f) { return _mm256_set1_ps(f); }
    static F mul(F a, F b) { return _mm256_mul_ps(a, b); }
    static F fmadd(F a, F b, F c) { return _mm256_fmadd_ps(a, b, c); }
    static F fnmadd(F a, F b, F c) { return _mm256_fnmadd_ps(a, b, c); }

    // The lanes hold pixels 0 2 4 6 | 1 3 5 7 (loadRGB); store puts them back
    // in order.
    static void store(float* p, F v)
    {
        _mm256_storeu_ps(p, _mm256_permutevar8x32_ps(v, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7)));
    }

    static void loadRGB(const float* in, F& r, F& g, F& b)
    {
        // Per 128-bit lane, two pixels a vector; the unpacks pair pixels 0
        // and 2 (1 and 3) of a group of four, the shuffles join two groups.
        const __m256 p01 = _mm256_loadu_ps(in);
        const __m256 p23 = _mm256_loadu_ps(in + 8);
        const __m256 p45 = _mm256_loadu_ps(in + 16);
        const __m256 p67 = _mm256_loadu_ps(in + 24);
        const __m256 rg0 = _mm256_unpacklo_ps(p01, p23);  // R0 R2 G0 G2 | R1 R3 G1 G3
        const __m256 bx0 = _mm256_unpackhi_ps(p01, p23);  // B0 B2 X0 X2 | B1 B3 X1 X3
        const __m256 rg1 = _mm256_unpacklo_ps(p45, p67);  // R4 R6 G4 G6 | R5 R7 G5 G7
        const __m256 bx1 = _mm256_unpackhi_ps(p45, p67);
        r = _mm256_shuffle_ps(rg0, rg1, _MM_SHUFFLE(1, 0, 1, 0));  // R0 R2 R4 R6 | R1 R3 R5 R7
        g = _mm256_shuffle_ps(rg0, rg1, _MM_SHUFFLE(3, 2, 3, 2));
        b = _mm256_shuffle_ps(bx0, bx1, _MM_SHUFFLE(1, 0, 1, 0));
    }

    static F plusHalf(F v)
    {
        const __m256d half = _mm256_set1_pd(0.5);
        const __m256d lo = _mm256_add_pd(_mm256_cvtps_pd(_mm256_castps256_ps128(v)), half);
        const __m256d hi = _mm256_add_pd(_mm256_cvtps_pd(_mm256_extractf128_ps(v, 1)), half);
        return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm256_cvtpd_ps(lo)), _mm256_cvtpd_ps(hi), 1);
    }
};

#include "denoise/raster/rgbx_to_ycrcb_simd_row.h"

}  // namespace avx2
MURMEX_TARGET_END

}  // namespace

void JIncrRaster_RGBXToYCrCb::computeScanline_SIMD(int row, float* out)
{
    const float* in = rgbx_->getScanline(row);
    const int n = width();
    int x = 0;
    if (channel_ == JImageLib::Y || channel_ == JImageLib::Cr || channel_ == JImageLib::Cb) {
        if (JCPUInfo::useSIMD(JCPUInfo::AVX512))
            x = avx512::convertRow<avx512::Lanes>(in, out, n, channel_);
        else if (JCPUInfo::useSIMD(JCPUInfo::AVX2))
            x = avx2::convertRow<avx2::Lanes>(in, out, n, channel_);
    }
    convertPixels(in, out, x, n);
    rgbx_->unrefScanline(row);
}
