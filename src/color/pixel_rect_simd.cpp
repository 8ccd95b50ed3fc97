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

#include "color/pixel_rect_simd.h"
#include "color/rgbx_simd.h"

namespace {

__attribute__((target("avx512f,avx512dq,avx512bw,avx512vl,fma"))) __m512 fourPixels16(const JPixel* p)
{
    // The zero-masking forms with a full mask are the plain instructions; GCC
    // 12 warns about the unmasked intrinsics' undefined pass-through operand.
    const __mmask16 all = 0xFFFF;
    return _mm512_maskz_cvtepi32_ps(
        all, _mm512_maskz_cvtepu16_epi32(all, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p))));
}

__attribute__((target("avx2,fma"))) __m256 twoPixels8(const JPixel* p)
{
    return _mm256_cvtepi32_ps(_mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))));
}

}  // namespace

namespace pixel_rect_simd {

__attribute__((target("avx512f,avx512dq,avx512bw,avx512vl,fma"))) int toYCrCbAVX512(const JPixel* px, float* y,
                                                                                    float* cr, float* cb, int n)
{
    const __m512 full = _mm512_set1_ps(65535.0f);
    int x = 0;
    for (; x + 16 <= n; x += 16) {
        __m512 r, g, b;
        rgbx_simd::split16(fourPixels16(px + x), fourPixels16(px + x + 4), fourPixels16(px + x + 8),
                           fourPixels16(px + x + 12), r, g, b);
        r = _mm512_div_ps(r, full);
        g = _mm512_div_ps(g, full);
        b = _mm512_div_ps(b, full);
        const __m512 yv = _mm512_add_ps(_mm512_add_ps(_mm512_mul_ps(_mm512_set1_ps(0.2989f), r),
                                                      _mm512_mul_ps(_mm512_set1_ps(0.5866f), g)),
                                        _mm512_mul_ps(_mm512_set1_ps(0.1145f), b));
        const __m512 crSum = _mm512_sub_ps(_mm512_sub_ps(_mm512_mul_ps(_mm512_set1_ps(0.5f), r),
                                                         _mm512_mul_ps(_mm512_set1_ps(0.4183f), g)),
                                           _mm512_mul_ps(_mm512_set1_ps(0.0817f), b));
        const __m512 cbSum = _mm512_add_ps(_mm512_sub_ps(_mm512_mul_ps(_mm512_set1_ps(-0.1687f), r),
                                                         _mm512_mul_ps(_mm512_set1_ps(0.3312f), g)),
                                           _mm512_mul_ps(_mm512_set1_ps(0.5f), b));
        _mm512_storeu_ps(y + x, yv);
        _mm512_storeu_ps(cr + x, rgbx_simd::plusHalf16(crSum));
        _mm512_storeu_ps(cb + x, rgbx_simd::plusHalf16(cbSum));
    }
    return x;
}

__attribute__((target("avx2,fma"))) int toYCrCbAVX2(const JPixel* px, float* y, float* cr, float* cb, int n)
{
    const __m256 full = _mm256_set1_ps(65535.0f);
    int x = 0;
    for (; x + 8 <= n; x += 8) {
        __m256 r, g, b;
        rgbx_simd::split8(twoPixels8(px + x), twoPixels8(px + x + 2), twoPixels8(px + x + 4), twoPixels8(px + x + 6),
                          r, g, b);
        r = _mm256_div_ps(r, full);
        g = _mm256_div_ps(g, full);
        b = _mm256_div_ps(b, full);
        const __m256 yv = _mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(_mm256_set1_ps(0.2989f), r),
                                                      _mm256_mul_ps(_mm256_set1_ps(0.5866f), g)),
                                        _mm256_mul_ps(_mm256_set1_ps(0.1145f), b));
        const __m256 crSum = _mm256_sub_ps(_mm256_sub_ps(_mm256_mul_ps(_mm256_set1_ps(0.5f), r),
                                                         _mm256_mul_ps(_mm256_set1_ps(0.4183f), g)),
                                           _mm256_mul_ps(_mm256_set1_ps(0.0817f), b));
        const __m256 cbSum = _mm256_add_ps(_mm256_sub_ps(_mm256_mul_ps(_mm256_set1_ps(-0.1687f), r),
                                                         _mm256_mul_ps(_mm256_set1_ps(0.3312f), g)),
                                           _mm256_mul_ps(_mm256_set1_ps(0.5f), b));
        rgbx_simd::storeInOrder8(y + x, yv);
        rgbx_simd::storeInOrder8(cr + x, rgbx_simd::plusHalf8(crSum));
        rgbx_simd::storeInOrder8(cb + x, rgbx_simd::plusHalf8(cbSum));
    }
    return x;
}

}  // namespace pixel_rect_simd
