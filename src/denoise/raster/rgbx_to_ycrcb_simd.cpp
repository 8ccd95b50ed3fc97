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
#include "base/simd_target.h"
#include "color/rgbx_simd.h"
#include "denoise/raster/rgbx_to_ycrcb.h"

namespace {

MURMEX_TARGET_BEGIN("avx512f,avx512dq,avx512bw,avx512vl,fma")
namespace avx512 {

struct Lanes : rgbx_simd::Lanes16 {
    static void loadRGB(const float* in, F& r, F& g, F& b)
    {
        rgbx_simd::split16(_mm512_loadu_ps(in), _mm512_loadu_ps(in + 16), _mm512_loadu_ps(in + 32),
                           _mm512_loadu_ps(in + 48), r, g, b);
    }
};

#include "denoise/raster/rgbx_to_ycrcb_simd_row.h"

}  // namespace avx512
MURMEX_TARGET_END

MURMEX_TARGET_BEGIN("avx2,fma")
namespace avx2 {

struct Lanes : rgbx_simd::Lanes8 {
    // The lanes hold pixels 0 2 4 6 | 1 3 5 7; store puts them back in order.
    static void loadRGB(const float* in, F& r, F& g, F& b)
    {
        rgbx_simd::split8(_mm256_loadu_ps(in), _mm256_loadu_ps(in + 8), _mm256_loadu_ps(in + 16),
                          _mm256_loadu_ps(in + 24), r, g, b);
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
