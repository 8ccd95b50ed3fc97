// Vector path of JIncrRaster_Variance (radii 3 to 5), rows side by side.
//
// Along a row the running sum is one serial chain of 2N rounded additions per
// pixel, so the scalar row runs at the latency of an addition times 2N. Rows
// are independent chains, though: the node claims the rows row + k*d that are
// referenced and not yet computed (d = 2 in turbo mode, where odd rows are
// copies) and runs up to 32 of them in the lanes of four 8-wide vectors, lane
// k doing exactly the scalar operations of row row + k*d in the scalar order:
//   - the start at pixel -1 is the same chain of fused multiply-adds
//     (rows from the top, columns from the left), then the true division by
//     N^2 and the multiplication back;
//   - each step subtracts and adds squares rounded on their own (the squares
//     are computed once per input row and column, which rounds them the same
//     way), rows from the top, and divides by N^2.
// The squares (and the values of the start) are laid out column by column so
// that one load gives the same tap of eight consecutive lanes (lane_table.h).
//
// What it bought: BM_Variance in bench/variance_bench.cpp (radius 4, 2064 x
// 256 plane, every row referenced first as in the driver), CPU time on a
// shared 2-core AMD EPYC with AVX-512, GCC 12 -O3: 4.58 ms scalar against
// 0.50 ms in blocks of rows (9.1x), turbo 2.29 against 0.32 ms. The squares
// go into the table through 8 x 8 transposes; written one by one they took as
// long as the chains. The results leave the lanes the same way
// (lane_table::writeRows): storing them pixel by pixel had become half of the
// time; on a shared 2-core Xeon (Sapphire Rapids class) BM_Variance went from
// 1.09 to 0.83 ms, turbo 0.75 to 0.54 ms. AVX-512 lanes are not used: sixteen lanes in one
// register would not shorten the chain, and four 8-wide chains in flight
// already hide the latency of the additions.

#include <immintrin.h>

#include <vector>

#include "denoise/raster/lane_table.h"
#include "denoise/raster/variance.h"

namespace {

#define MURMEX_AVX2 __attribute__((target("avx2,fma")))

constexpr int kLanes = 8;
constexpr int kMaxGroups = 4;
constexpr int kMaxRows = kLanes * kMaxGroups;

// Lanes 8g .. 8g+7 of every group g < G, for all pixels of the rows. Column
// c of the tables is column c - r - 1 of the input rows.
template <int G>
MURMEX_AVX2 void laneRows(const lane_table::Table& squares, const lane_table::Table& values, int r, int width,
                          float* const* outs, int n)
{
    const int taps = 2 * r + 1;
    const __m256 area = _mm256_set1_ps(static_cast<float>(taps * taps));
    int tapEntry[11];
    for (int j = 0; j < taps; ++j)
        tapEntry[j] = squares.entry(j);

    __m256 s[G];
    for (int g = 0; g < G; ++g)
        s[g] = _mm256_setzero_ps();
    for (int j = 0; j < taps; ++j)
        for (int c = 0; c < taps; ++c) {
            const float* v = values.column(c) + tapEntry[j];
            for (int g = 0; g < G; ++g) {
                const __m256 x = _mm256_loadu_ps(v + kLanes * g);
                s[g] = _mm256_fmadd_ps(x, x, s[g]);
            }
        }
    for (int g = 0; g < G; ++g)
        s[g] = _mm256_mul_ps(_mm256_div_ps(s[g], area), area);

    thread_local std::vector<float> staging;
    staging.resize(static_cast<size_t>(width) * kLanes * G);
    for (int x = 0; x < width; ++x) {
        const float* leaving = squares.column(x);
        const float* entering = squares.column(x + taps);
        for (int j = 0; j < taps; ++j)
            for (int g = 0; g < G; ++g) {
                s[g] = _mm256_sub_ps(s[g], _mm256_loadu_ps(leaving + tapEntry[j] + kLanes * g));
                s[g] = _mm256_add_ps(s[g], _mm256_loadu_ps(entering + tapEntry[j] + kLanes * g));
            }
        float* result = staging.data() + static_cast<size_t>(x) * kLanes * G;
        for (int g = 0; g < G; ++g)
            _mm256_storeu_ps(result + kLanes * g, _mm256_div_ps(s[g], area));
    }
    lane_table::writeRows(staging.data(), kLanes * G, width, outs, n);
}

}  // namespace

bool JIncrRaster_Variance::computeRowsSIMD(int row, float* out)
{
    const int d = turbo() ? 2 : 1;
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
        const int groups = (n + kLanes - 1) / kLanes;
        const int lanes = groups * kLanes;
        using lane_table::build;
        const lane_table::Table squares =
            build<lane_table::Square>(in, nIn, d, -r - 1, width() + taps, lanes, taps - 1, squareStore);
        const lane_table::Table values =
            build<lane_table::Value>(in, nIn, d, -r - 1, taps, lanes, taps - 1, valueStore);
        switch (groups) {
        case 1: laneRows<1>(squares, values, r, width(), outs, n); break;
        case 2: laneRows<2>(squares, values, r, width(), outs, n); break;
        case 3: laneRows<3>(squares, values, r, width(), outs, n); break;
        default: laneRows<4>(squares, values, r, width(), outs, n); break;
        }
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
