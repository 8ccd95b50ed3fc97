// Vector path of JIncrRaster_Variance (radii 3 to 5), rows side by side.
//
// Along a row the running sum is one serial chain of 2N rounded additions per
// pixel, so the scalar row runs at the latency of an addition times 2N. Rows
// are independent chains, though: the node claims the rows row + k*d that are
// referenced and not yet computed (d = 2 in turbo mode, where odd rows are
// copies) and runs up to 32 of them in the lanes of four 8-wide vectors (two
// 16-wide ones with AVX-512; variance_simd_rows.h), lane k doing exactly the scalar operations of row row + k*d in the scalar order:
//   - the start at pixel -1 is the same chain of fused multiply-adds
//     (rows from the top, columns from the left), then the true division by
//     N^2 and the multiplication back;
//   - each step subtracts and adds squares rounded on their own (the squares
//     are computed once per input row and column, which rounds them the same
//     way), rows from the top, and divides by N^2.
// The squares (and the values of the start) are laid out column by column so
// that one load gives the same tap of consecutive lanes (lane_table.h).
//
// What it bought: BM_Variance in bench/variance_bench.cpp (radius 4, 2064 x
// 256 plane, every row referenced first as in the driver), CPU time on a
// shared 2-core AMD EPYC with AVX-512, GCC 12 -O3: 4.58 ms scalar against
// 0.50 ms in blocks of rows (9.1x), turbo 2.29 against 0.32 ms. The squares
// go into the table through 8 x 8 transposes; written one by one they took as
// long as the chains. The results leave the lanes the same way
// (lane_table::writeRows): storing them pixel by pixel had become half of the
// time; on a shared 2-core Xeon (Sapphire Rapids class) BM_Variance went from
// 1.09 to 0.83 ms, turbo 0.75 to 0.54 ms. Sixteen lanes per vector do not
// shorten a chain but carry twice the rows through one instruction; with
// them and the results handed on every eight pixels, while they are in the
// first-level cache, the same run gave 0.67 ms, turbo 0.46 ms.

#include <immintrin.h>

#include <vector>

#include "base/cpu_info.h"
#include "base/simd_target.h"
#include "denoise/raster/lane_table.h"
#include "denoise/raster/variance.h"

namespace {

using lane_table::kMaxRows;

MURMEX_TARGET_BEGIN("avx2,fma")
namespace avx2 {
using lane_table::avx2::Lanes;
#include "denoise/raster/variance_simd_rows.h"
}  // namespace avx2
MURMEX_TARGET_END

MURMEX_TARGET_BEGIN("avx512f,avx512dq,avx512bw,avx512vl,fma")
namespace avx512 {
using lane_table::avx512::Lanes;
#include "denoise/raster/variance_simd_rows.h"
}  // namespace avx512
MURMEX_TARGET_END

}  // namespace

bool JIncrRaster_Variance::computeRowsSIMD(int row, float* out)
{
    const int d = turbo() ? 2 : 1;
    const bool wide = JCPUInfo::useSIMD(JCPUInfo::AVX512);
    const int laneWidth = wide ? lane_table::avx512::Lanes::kWidth : lane_table::avx2::Lanes::kWidth;
    float* outs[kMaxRows];
    outs[0] = out;
    const int n = claimRows(row, d, kMaxRows, outs);
    if (n == 1)
        return false;
    const int r = radius_;
    const int taps = 2 * r + 1;
    const int nIn = (n - 1) * d + taps;
    try {
        // Lane k reads input rows row + k*d - r .. row + k*d + r, all of
        // which its own reference took; together they are one run of rows.
        const float* in[(kMaxRows - 1) * 2 + 11];
        for (int i = 0; i < nIn; ++i)
            in[i] = input_.getScanline(row - r + i);
        thread_local std::vector<float> squareStore, valueStore;
        const int groups = (n + laneWidth - 1) / laneWidth;
        const int lanes = groups * laneWidth;
        using lane_table::build;
        const lane_table::Table squares =
            build<lane_table::Square>(in, nIn, d, -r - 1, width() + taps, lanes, taps - 1, squareStore);
        const lane_table::Table values =
            build<lane_table::Value>(in, nIn, d, -r - 1, taps, lanes, taps - 1, valueStore);
        if (wide)
            avx512::laneRowsOf<avx512::Lanes>(squares, values, r, width(), outs, n);
        else
            avx2::laneRowsOf<avx2::Lanes>(squares, values, r, width(), outs, n);
    } catch (...) {
        releaseClaimedRows(row, d, n, false);
        throw;
    }
    releaseClaimedRows(row, d, n, true);
    for (int k = 0; k < n; ++k)
        for (int y = row + k * d - r; y <= row + k * d + r; ++y)
            input_.unrefScanline(y);
    return true;
}
