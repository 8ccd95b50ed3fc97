// Vector paths of JIncrRaster_VarianceStepAbs, radius 2.
//
// Rows side by side (radius2RowsSIMD), when the rows below are referenced,
// as in the denoise driver: like Variance, the node claims up to 32 rows
// (every row, or every even row in turbo mode) and runs each in a lane of
// four 8-wide vectors (two 16-wide ones with AVX-512;
// variance_step_abs_simd_rows.h), lane k doing the scalar operations of its row in the
// scalar order: the first `step` pixels in full (rows from the top, columns
// from the left, starting at +0), the seed sqrtf(out) * 25, then per residue
// class the ten rounded updates per pixel. |v| is the value with its sign bit
// cleared, as fabsf. The magnitudes are laid out by lane_table.h. What it
// bought: BM_VarianceStepAbs in bench/variance_bench.cpp (2064 x 256 plane,
// every row referenced first), CPU time on a shared 2-core AMD EPYC with
// AVX-512, GCC 12 -O3: step 1 3.77 ms scalar against 0.38 ms (9.9x), step 2
// 1.90 against 0.38, step 3 1.32 against 0.41, step 4 1.10 against 0.39 (the
// four-wide path below gave 0.97 there). The results leave the lanes in 8 x
// 8 transposes (lane_table::writeRows) rather than pixel by pixel: on a
// shared 2-core Xeon (Sapphire Rapids class), steps 1 to 4 went from 0.76,
// 0.86, 0.88, 0.93 ms to 0.60, 0.61, 0.65, 0.64 ms; with 16-wide lanes and
// the results handed on every 64 pixels, to 0.55, 0.58, 0.62, 0.62 ms.
//
// Within one row (radius2_SIMD), when only that row is wanted: the running
// sums of the residue classes x mod step are independent chains, so four
// neighbouring pixels (four different classes when step >= 4) move together, each lane
// through the same ten rounded additions as in the scalar path: the rows are
// bit-identical to the scalar ones (|v| by clearing the sign bit, as fabsf).
// A lane's sum comes from the lane one step back, which for a step that is a
// multiple of four is a whole vector stored earlier. Other steps stay scalar:
// with step 5 the unaligned reload of the previous sums cost more than it saved
// (6.1 against 5.1 us per 2000-pixel row), and below 4 there are not enough
// independent classes to fill the lanes. Measured on a shared 2-core AMD EPYC,
// 2000-pixel rows: step 4 3.6 us against 5.0 us scalar, step 8 2.3 against
// 6.8, step 16 1.0 against 7.1. Four lanes beat eight there: with the same
// number of classes, more independent chains hide the latency of the adds.
#include <immintrin.h>

#include <vector>

#include "base/cpu_info.h"
#include "base/simd_target.h"
#include "denoise/raster/lane_table.h"
#include "denoise/raster/variance_step_abs.h"

namespace {

// Pixels x = step, step + 4, ... in groups of four, while a group fits in the
// row. sums[x] holds A of pixel x; sums[0..step-1] are the seeds.
inline __attribute__((always_inline)) int movingSums4(const float* const* rows, float* out, float* sums,
                                                       int w, int s)
{
    const __m128 magnitude = _mm_castsi128_ps(_mm_set1_epi32(0x7fffffff));
    const __m128 taps = _mm_set1_ps(25.0f);
    int x = s;
    for (; x + 4 <= w; x += 4) {
        __m128 a = _mm_loadu_ps(sums + x - s);
        for (int j = 0; j < 5; ++j) {
            a = _mm_sub_ps(a, _mm_and_ps(magnitude, _mm_loadu_ps(rows[j] + x - 3 * s)));
            a = _mm_add_ps(a, _mm_and_ps(magnitude, _mm_loadu_ps(rows[j] + x + 2 * s)));
        }
        _mm_storeu_ps(sums + x, a);
        const __m128 m = _mm_div_ps(a, taps);
        _mm_storeu_ps(out + x, _mm_mul_ps(m, m));
    }
    return x;
}

__attribute__((target("avx2,fma")))
int movingSumsAVX2(const float* const* rows, float* out, float* sums, int w, int s)
{
    return movingSums4(rows, out, sums, w, s);
}

__attribute__((target("sse4.1")))
int movingSumsSSE(const float* const* rows, float* out, float* sums, int w, int s)
{
    return movingSums4(rows, out, sums, w, s);
}

using lane_table::kMaxRows;

MURMEX_TARGET_BEGIN("avx2,fma")
namespace avx2 {
using lane_table::avx2::Lanes;
#include "denoise/raster/variance_step_abs_simd_rows.h"
}  // namespace avx2
MURMEX_TARGET_END

MURMEX_TARGET_BEGIN("avx512f,avx512dq,avx512bw,avx512vl,fma")
namespace avx512 {
using lane_table::avx512::Lanes;
#include "denoise/raster/variance_step_abs_simd_rows.h"
}  // namespace avx512
MURMEX_TARGET_END

}  // namespace

bool JIncrRaster_VarianceStepAbs::radius2RowsSIMD(int row, float* out)
{
    const int d = turbo() ? 2 : 1;
    const bool wide = JCPUInfo::useSIMD(JCPUInfo::AVX512);
    const int laneWidth = wide ? lane_table::avx512::Lanes::kWidth : lane_table::avx2::Lanes::kWidth;
    float* outs[kMaxRows];
    outs[0] = out;
    const int n = claimRows(row, d, kMaxRows, outs);
    if (n == 1)
        return false;
    const int s = step_;
    const int nIn = (n - 1) * d + 4 * s + 1;
    try {
        // Only the rows some lane taps: lane k references rows
        // row + k*d + j*s, j = -2..2, and nothing guarantees the others.
        thread_local std::vector<const float*> in;
        in.assign(nIn, nullptr);
        for (int k = 0; k < n; ++k)
            for (int j = 0; j < 5; ++j) {
                const float*& r = in[k * d + j * s];
                if (!r)
                    r = input_.getScanline(row - 2 * s + k * d + j * s);
            }
        thread_local std::vector<float> store;
        const int groups = (n + laneWidth - 1) / laneWidth;
        const lane_table::Table t = lane_table::build<lane_table::Magnitude>(
            in.data(), nIn, d, -3 * s, width() + 5 * s, groups * laneWidth, 4 * s, store);
        if (wide)
            avx512::laneRowsOf<avx512::Lanes>(t, s, width(), outs, n);
        else
            avx2::laneRowsOf<avx2::Lanes>(t, s, width(), outs, n);
    } catch (...) {
        releaseClaimedRows(row, d, n, false);
        throw;
    }
    releaseClaimedRows(row, d, n, true);
    for (int k = 0; k < n; ++k)
        for (int j = -2; j <= 2; ++j)
            input_.unrefScanline(row + k * d + j * s);
    return true;
}

int JIncrRaster_VarianceStepAbs::radius2_SIMD(const float* const* rows, float* out, float* ring) const
{
    const int s = step_;
    const int w = width();
    if (s % 4 != 0 || !JCPUInfo::useSIMD(JCPUInfo::SSE))
        return s;
    thread_local std::vector<float> sums;
    if (sums.size() < static_cast<size_t>(w))
        sums.resize(w);
    for (int c = 0; c < s; ++c)
        sums[c] = ring[c];
    const int x = JCPUInfo::useSIMD(JCPUInfo::AVX2) ? movingSumsAVX2(rows, out, sums.data(), w, s)
                                                    : movingSumsSSE(rows, out, sums.data(), w, s);
    // Hand the last sum of every class back to the scalar loop.
    for (int p = x - s; p < x; ++p)
        ring[p % s] = sums[p];
    return x;
}
