// Vector path of JIncrRaster_ToRGB: 16, 8 or 4 pixels at a time, the rest one
// at a time with JPixel::fromYCrCb. Every step is the scalar one in the same
// order and precision: the chroma offsets are taken off in double (each float
// widened, 0.5 subtracted, the difference rounded back), products and sums are
// separate roundings (no fused multiply-add, as in JPixel), max/min clamp
// exactly where the scalar comparisons do (a NaN gives 0, max returning its
// second operand), and cvtt truncates toward zero like the integer cast. So
// the pixels are identical to the scalar ones.
//
// What it bought (bench/to_rgb_bench.cpp, CPU time per 4096-pixel row, Y in
// -0.1..1.1 so the scalar clamps branch unpredictably): 66 us scalar, 3.8 us
// SSE4.1, 2.6 us AVX2, 1.6 us AVX-512, on the shared 2-core AMD EPYC build
// machine, Release build.
#include <immintrin.h>

#include "base/cpu_info.h"
#include "base/simd_lanes.h"
#include "base/simd_target.h"
#include "denoise/raster/to_rgb.h"

namespace {

MURMEX_TARGET_BEGIN("avx512f,avx512dq,avx512bw,avx512vl,fma")
namespace avx512 {

// The zero-masking forms with a full mask are the plain instructions; GCC 12
// warns about the unmasked intrinsics' undefined pass-through operand.
struct Lanes : simd_lanes::Lanes16 {
    using I = __m512i;

    static I set1I(int i) { return _mm512_set1_epi32(i); }
    static I orI(I a, I b) { return _mm512_or_si512(a, b); }
    static I shiftLeft16(I a) { return _mm512_maskz_slli_epi32(0xFFFF, a, 16); }

    static F minusHalf(F v)
    {
        const __mmask8 all = 0xFF;
        const __m512d half = _mm512_set1_pd(0.5);
        const __m512d lo = _mm512_sub_pd(_mm512_maskz_cvtps_pd(all, _mm512_maskz_extractf32x8_ps(all, v, 0)), half);
        const __m512d hi = _mm512_sub_pd(_mm512_maskz_cvtps_pd(all, _mm512_maskz_extractf32x8_ps(all, v, 1)), half);
        return _mm512_insertf32x8(_mm512_castps256_ps512(_mm512_maskz_cvtpd_ps(all, lo)),
                                  _mm512_maskz_cvtpd_ps(all, hi), 1);
    }

    static I sample(F v)
    {
        const __mmask16 all = 0xFFFF;
        v = _mm512_maskz_min_ps(all, _mm512_maskz_max_ps(all, v, _mm512_setzero_ps()), _mm512_set1_ps(1.0f));
        return _mm512_maskz_cvttps_epi32(all, _mm512_mul_ps(v, _mm512_set1_ps(65535.0f)));
    }

    static void storePixels(JPixel* px, I rg, I bx)
    {
        // 64-bit pixel order after the in-lane unpacks: lo holds pixels
        // 0,1,4,5,8,9,12,13 and hi 2,3,6,7,10,11,14,15.
        const __m512i first = _mm512_set_epi64(11, 10, 3, 2, 9, 8, 1, 0);
        const __m512i second = _mm512_set_epi64(15, 14, 7, 6, 13, 12, 5, 4);
        const __m512i lo = _mm512_maskz_unpacklo_epi32(0xFFFF, rg, bx);
        const __m512i hi = _mm512_maskz_unpackhi_epi32(0xFFFF, rg, bx);
        _mm512_storeu_si512(px, _mm512_permutex2var_epi64(lo, first, hi));
        _mm512_storeu_si512(px + 8, _mm512_permutex2var_epi64(lo, second, hi));
    }
};

#include "denoise/raster/to_rgb_simd_row.h"

}  // namespace avx512
MURMEX_TARGET_END

MURMEX_TARGET_BEGIN("avx2,fma")
namespace avx2 {

struct Lanes : simd_lanes::Lanes8 {
    using I = __m256i;

    static I set1I(int i) { return _mm256_set1_epi32(i); }
    static I orI(I a, I b) { return _mm256_or_si256(a, b); }
    static I shiftLeft16(I a) { return _mm256_slli_epi32(a, 16); }

    static F minusHalf(F v)
    {
        const __m256d half = _mm256_set1_pd(0.5);
        const __m256d lo = _mm256_sub_pd(_mm256_cvtps_pd(_mm256_castps256_ps128(v)), half);
        const __m256d hi = _mm256_sub_pd(_mm256_cvtps_pd(_mm256_extractf128_ps(v, 1)), half);
        return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm256_cvtpd_ps(lo)), _mm256_cvtpd_ps(hi), 1);
    }

    static I sample(F v)
    {
        v = _mm256_min_ps(_mm256_max_ps(v, _mm256_setzero_ps()), _mm256_set1_ps(1.0f));
        return _mm256_cvttps_epi32(_mm256_mul_ps(v, _mm256_set1_ps(65535.0f)));
    }

    static void storePixels(JPixel* px, I rg, I bx)
    {
        // Per 128-bit lane: lo holds pixels 0,1 | 4,5 and hi 2,3 | 6,7.
        const __m256i lo = _mm256_unpacklo_epi32(rg, bx);
        const __m256i hi = _mm256_unpackhi_epi32(rg, bx);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(px), _mm256_permute2x128_si256(lo, hi, 0x20));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(px + 4), _mm256_permute2x128_si256(lo, hi, 0x31));
    }
};

#include "denoise/raster/to_rgb_simd_row.h"

}  // namespace avx2
MURMEX_TARGET_END

MURMEX_TARGET_BEGIN("sse4.1")
namespace sse {

struct Lanes {
    using F = __m128;
    using I = __m128i;
    static constexpr int kWidth = 4;

    static F load(const float* p) { return _mm_loadu_ps(p); }
    static F set1(float f) { return _mm_set1_ps(f); }
    static F add(F a, F b) { return _mm_add_ps(a, b); }
    static F sub(F a, F b) { return _mm_sub_ps(a, b); }
    static F mul(F a, F b) { return _mm_mul_ps(a, b); }
    static I set1I(int i) { return _mm_set1_epi32(i); }
    static I orI(I a, I b) { return _mm_or_si128(a, b); }
    static I shiftLeft16(I a) { return _mm_slli_epi32(a, 16); }

    static F minusHalf(F v)
    {
        const __m128d half = _mm_set1_pd(0.5);
        const __m128d lo = _mm_sub_pd(_mm_cvtps_pd(v), half);
        const __m128d hi = _mm_sub_pd(_mm_cvtps_pd(_mm_movehl_ps(v, v)), half);
        return _mm_movelh_ps(_mm_cvtpd_ps(lo), _mm_cvtpd_ps(hi));
    }

    static I sample(F v)
    {
        v = _mm_min_ps(_mm_max_ps(v, _mm_setzero_ps()), _mm_set1_ps(1.0f));
        return _mm_cvttps_epi32(_mm_mul_ps(v, _mm_set1_ps(65535.0f)));
    }

    static void storePixels(JPixel* px, I rg, I bx)
    {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(px), _mm_unpacklo_epi32(rg, bx));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(px + 2), _mm_unpackhi_epi32(rg, bx));
    }
};

#include "denoise/raster/to_rgb_simd_row.h"

}  // namespace sse
MURMEX_TARGET_END

}  // namespace

void JIncrRaster_ToRGB::computeScanline_SIMD(int row, float*)
{
    const float* y = y_.getScanline(row);
    const float* cr = cr_.getScanline(row);
    const float* cb = cb_.getScanline(row);
    JPixelBuffers::Lease pixels = pixels_.take();
    const int n = width();
    JPixel* px = pixels.data();
    int x = 0;
    if (JCPUInfo::useSIMD(JCPUInfo::AVX512))
        x = avx512::toRGBRow<avx512::Lanes>(y, cr, cb, px, n);
    else if (JCPUInfo::useSIMD(JCPUInfo::AVX2))
        x = avx2::toRGBRow<avx2::Lanes>(y, cr, cb, px, n);
    else if (JCPUInfo::useSIMD(JCPUInfo::SSE))
        x = sse::toRGBRow<sse::Lanes>(y, cr, cb, px, n);
    for (; x < n; ++x)
        px[x].fromYCrCb(y[x], cr[x], cb[x]);
    write(row, px);
    y_.unrefScanline(row);
    cr_.unrefScanline(row);
    cb_.unrefScanline(row);
}
