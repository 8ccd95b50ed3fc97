// Vector path of JIncrRaster_Sharpen: 16 or 8 neighbouring pixels at once,
// each lane through the scalar steps in the same order and precision: the
// horizontal pass as separate products and sums from tap -3k upwards,
// starting from 0; then one fused multiply-add; then the halo limits, where
// std::min(a, b) is min(b, a) of the vector unit and std::max likewise (both
// return their first argument on a tie, as the vector forms return their
// second). So the rows are bit-identical to the scalar ones. The fused
// multiply-add needs the FMA unit, so the vector path starts at the AVX2
// level; the remaining pixels are done one at a time.
//
// What it bought (bench/sharpen_bench.cpp, CPU time per 4096-pixel row at the
// default sigma 1.2 (twelve taps), halos limited, median of 3): 38 us scalar,
// 5.8 us AVX2, 3.9 us AVX-512, on the shared 2-core Intel Xeon (AVX-512)
// build machine under load, Release build.
#include <immintrin.h>

#include "base/cpu_info.h"
#include "denoise/raster/sharpen.h"
#include "denoise/raster/simd_target.h"

namespace {

MURMEX_TARGET_BEGIN("avx512f,avx512dq,avx512bw,avx512vl,fma")
namespace avx512 {

struct Lanes {
    using F = __m512;
    static constexpr int kWidth = 16;
    static F load(const float* p) { return _mm512_loadu_ps(p); }
    static void store(float* p, F v) { _mm512_storeu_ps(p, v); }
    static F set1(float f) { return _mm512_set1_ps(f); }
    static F zero() { return _mm512_setzero_ps(); }
    static F add(F a, F b) { return _mm512_add_ps(a, b); }
    static F sub(F a, F b) { return _mm512_sub_ps(a, b); }
    static F mul(F a, F b) { return _mm512_mul_ps(a, b); }
    static F fmadd(F a, F b, F c) { return _mm512_fmadd_ps(a, b, c); }
    // The zero-masking forms with a full mask are the plain instructions; GCC
    // 12 warns about the unmasked intrinsics' undefined pass-through operand.
    static F min(F a, F b) { return _mm512_maskz_min_ps(0xFFFF, a, b); }
    static F max(F a, F b) { return _mm512_maskz_max_ps(0xFFFF, a, b); }
};

#include "denoise/raster/sharpen_simd_row.h"

}  // namespace avx512
MURMEX_TARGET_END

MURMEX_TARGET_BEGIN("avx2,fma")
namespace avx2 {

struct Lanes {
    using F = __m256;
    static constexpr int kWidth = 8;
    static F load(const float* p) { return _mm256_loadu_ps(p); }
    static void store(float* p, F v) { _mm256_storeu_ps(p, v); }
    static F set1(float f) { return _mm256_set1_ps(f); }
    static F zero() { return _mm256_setzero_ps(); }
    static F add(F a, F b) { return _mm256_add_ps(a, b); }
    static F sub(F a, F b) { return _mm256_sub_ps(a, b); }
    static F mul(F a, F b) { return _mm256_mul_ps(a, b); }
    static F fmadd(F a, F b, F c) { return _mm256_fmadd_ps(a, b, c); }
    static F min(F a, F b) { return _mm256_min_ps(a, b); }
    static F max(F a, F b) { return _mm256_max_ps(a, b); }
};

#include "denoise/raster/sharpen_simd_row.h"

}  // namespace avx2
MURMEX_TARGET_END

}  // namespace

void JIncrRaster_Sharpen::computeScanline_SIMD(int row, float* out)
{
    const float* v = vblur_->getScanline(row);
    const float* o = input_.getScanline(row);
    const bool limit = suppressHalos_.load(std::memory_order_relaxed) != 0;
    const int n = width();
    int x = 0;
    if (JCPUInfo::useSIMD(JCPUInfo::AVX512))
        x = avx512::sharpenRow<avx512::Lanes>(v, o, center_, 3 * k_, amount_, limit, out, n);
    else if (JCPUInfo::useSIMD(JCPUInfo::AVX2))
        x = avx2::sharpenRow<avx2::Lanes>(v, o, center_, 3 * k_, amount_, limit, out, n);
    sharpenPixels(v, o, limit, out, x, n);
    input_.unrefScanline(row);
    vblur_->unrefScanline(row);
}
