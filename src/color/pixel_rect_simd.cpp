// Vector path of JPixelRect::loadYCrCb: 16 or 8 pixels at a time, the rest
// one at a time with JPixel::toYCrCb. Each lane takes the scalar steps in the
// same order and precision: the 16-bit sample converted exactly, divided by
// 65535 (a correctly rounded division either way), separate products and
// sums from the left as in JPixel::rgbToYCrCb (no fused multiply-add), and
// the chroma offset added in double. So the planes are bit-identical.
//
// What it bought: the automatic sampler on 24 megapixels
// (BM_AutoSamplePeakHeap24MP in bench/autosample_bench.cpp, CPU time, median
// of 3, the synthetic scene's own generation included) went from 717 ms to
// 567 ms; the per-pixel conversion had been a fifth of the sampler's time.
// Shared 2-core Intel Xeon (AVX-512) build machine under load, Release build.
#include <immintrin.h>

#include "base/simd_target.h"
#include "color/pixel_rect_simd.h"
#include "color/rgbx_simd.h"

namespace {

MURMEX_TARGET_BEGIN("avx512f,avx512dq,avx512bw,avx512vl,fma")
namespace avx512 {

struct Lanes : rgbx_simd::Lanes16 {
    // Four pixels' samples widened to 32-bit integers and converted exactly.
    // The zero-masking forms with a full mask are the plain instructions; GCC
    // 12 warns about the unmasked intrinsics' undefined pass-through operand.
    static F fourPixels(const JPixel* p)
    {
        const __mmask16 all = 0xFFFF;
        return _mm512_maskz_cvtepi32_ps(
            all, _mm512_maskz_cvtepu16_epi32(all, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p))));
    }

    static void loadPixels(const JPixel* p, F& r, F& g, F& b)
    {
        rgbx_simd::split16(fourPixels(p), fourPixels(p + 4), fourPixels(p + 8), fourPixels(p + 12), r, g, b);
    }
};

#include "color/pixel_rect_simd_row.h"

}  // namespace avx512
MURMEX_TARGET_END

MURMEX_TARGET_BEGIN("avx2,fma")
namespace avx2 {

struct Lanes : rgbx_simd::Lanes8 {
    static F twoPixels(const JPixel* p)
    {
        return _mm256_cvtepi32_ps(_mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))));
    }

    // The lanes hold pixels 0 2 4 6 | 1 3 5 7; store puts them back in order.
    static void loadPixels(const JPixel* p, F& r, F& g, F& b)
    {
        rgbx_simd::split8(twoPixels(p), twoPixels(p + 2), twoPixels(p + 4), twoPixels(p + 6), r, g, b);
    }
};

#include "color/pixel_rect_simd_row.h"

}  // namespace avx2
MURMEX_TARGET_END

}  // namespace

namespace pixel_rect_simd {

int toYCrCbAVX512(const JPixel* px, float* y, float* cr, float* cb, int n)
{
    return avx512::toYCrCbRow<avx512::Lanes>(px, y, cr, cb, n);
}

int toYCrCbAVX2(const JPixel* px, float* y, float* cr, float* cb, int n)
{
    return avx2::toYCrCbRow<avx2::Lanes>(px, y, cr, cb, n);
}

}  // namespace pixel_rect_simd
