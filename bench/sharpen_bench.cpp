// Sharpen's scalar row against its vector paths: a 4096 x 64 plane of seeded
// values in -0.1..1.1 (so that the halo limits bind now and then), sigma 1.2
// (k = 2, twelve horizontal taps), amount 1.6, halos limited: the settings'
// defaults. The input and its vertical blur stay held, so the time is the
// horizontal pass's own. items_per_second counts output pixels.
#include <benchmark/benchmark.h>

#include "base/cpu_info.h"
#include "denoise/raster/sharpen.h"
#include "held_plane.h"
#include "node_bench.h"

namespace {

void runSharpen(benchmark::State& state, bool vector, int level)
{
    if (!murmex_bench::selectPath(state, vector, level))
        return;
    const int w = 4096, h = 64;
    murmex_bench::HeldPlane in(w, h, 3, -0.1f, 1.1f);
    JIncrRaster_Sharpen node(in, 1.2f, 1.6f);
    node.suppressHalos(true);
    JIncrRaster& blur = node.verticalBlur();
    for (int r = 0; r < h; ++r) {
        blur.refScanline(r);
        blur.getScanline(r);
    }
    murmex_bench::pullEveryRow(state, node);
    for (int r = 0; r < h; ++r)
        blur.unrefScanline(r);
}

void BM_Sharpen_Scalar(benchmark::State& state) { runSharpen(state, false, JCPUInfo::Scalar); }
void BM_Sharpen_AVX2(benchmark::State& state) { runSharpen(state, true, JCPUInfo::AVX2); }
void BM_Sharpen_AVX512(benchmark::State& state) { runSharpen(state, true, JCPUInfo::AVX512); }

BENCHMARK(BM_Sharpen_Scalar);
BENCHMARK(BM_Sharpen_AVX2);
BENCHMARK(BM_Sharpen_AVX512);

}  // namespace
