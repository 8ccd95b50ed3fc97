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
#include "base/simd_lanes.h"
#include "base/simd_target.h"

namespace {

MURMEX_TARGET_BEGIN("avx512f,avx512dq,avx512bw,avx512vl,fma")
namespace avx512 {
using Lanes = simd_lanes::Lanes16;
#include "denoise/raster/sharpen_simd_row.h"
}  // namespace avx512
MURMEX_TARGET_END

MURMEX_TARGET_BEGIN("avx2,fma")
namespace avx2 {
using Lanes = simd_lanes::Lanes8;
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
