// The shrink node as the denoise driver uses it, scalar rows against the
// vector paths, on a 2064 x 16 plane (a 2000-pixel strip with its margins):
// coefficients and energies of noise, colours that stay within one cell of
// the maps for many pixels as a smooth low-pass plane does, a noise map of
// about the energies' size and the floor 0.5, so that most pixels take the
// floor as in flat parts of a picture. Every input row is computed and held
// before timing, and the planes are few rows high so that they stay in the
// second-level cache, as the driver's rows are when they are shrunk;
// items_per_second counts output pixels.

#include <benchmark/benchmark.h>

#include "base/cpu_info.h"
#include "denoise/raster/shrink.h"
#include "held_plane.h"
#include "node_bench.h"

namespace {

constexpr int kWidth = 2064;
constexpr int kHeight = 16;

void runShrink(benchmark::State& state, bool vector, int level)
{
    if (!murmex_bench::selectPath(state, vector, level))
        return;
    murmex_bench::HeldPlane a(kWidth, kHeight, 1, -0.05f, 0.05f);
    murmex_bench::HeldPlane y(kWidth, kHeight, 2, 0.40f, 0.42f);
    murmex_bench::HeldPlane cr(kWidth, kHeight, 3, 0.50f, 0.52f);
    murmex_bench::HeldPlane cb(kWidth, kHeight, 4, 0.47f, 0.49f);
    murmex_bench::HeldPlane v(kWidth, kHeight, 5, 0.0f, 0.002f);
    J3DMap noise;
    for (int c = 0; c < noise.cellCount(); ++c)
        noise.setCellValue(c, 0.001f);
    JIncrRaster_Shrink shrink(a, y, cr, cb, v, noise, nullptr);
    shrink.setThreshold(0.5f);
    murmex_bench::pullEveryRow(state, shrink);
}

void BM_Shrink_Scalar(benchmark::State& state) { runShrink(state, false, JCPUInfo::Scalar); }
void BM_Shrink_AVX2(benchmark::State& state) { runShrink(state, true, JCPUInfo::AVX2); }
void BM_Shrink_AVX512(benchmark::State& state) { runShrink(state, true, JCPUInfo::AVX512); }

BENCHMARK(BM_Shrink_Scalar);
BENCHMARK(BM_Shrink_AVX2);
BENCHMARK(BM_Shrink_AVX512);

}  // namespace
