// The variance nodes as the denoise driver uses them, scalar rows against the
// vector paths, on a 2064 x 256 plane of seeded values (a 2000-pixel strip
// with its margins): Variance with radius 4 (luminance details) and
// VarianceStepAbs with radius 2 and steps 1 to 4 (chrominance details of
// levels 0 to 3). Every input row is computed once before timing and kept,
// and every output row is referenced before any is pulled, as in the driver,
// so the time is the node's own. items_per_second counts output pixels.

#include <benchmark/benchmark.h>

#include "base/cpu_info.h"
#include "denoise/raster/incr_raster.h"
#include "denoise/raster/variance.h"
#include "denoise/raster/variance_step_abs.h"
#include "held_plane.h"
#include "node_bench.h"

namespace {

constexpr int kWidth = 2064;
constexpr int kHeight = 256;

void pullAll(benchmark::State& state, JIncrRaster& node)
{
    for (auto _ : state) {
        for (int y = 0; y < kHeight; ++y)
            node.refScanline(y);
        for (int y = 0; y < kHeight; ++y) {
            benchmark::DoNotOptimize(node.getScanline(y));
            node.unrefScanline(y);
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kWidth) * kHeight);
}

// Args: the instruction set (JCPUInfo::Level: 0 scalar, 2 AVX2, 3 AVX-512),
// turbo rows on or off.
void BM_Variance(benchmark::State& state)
{
    const int level = static_cast<int>(state.range(0));
    if (!murmex_bench::selectPath(state, level != JCPUInfo::Scalar, level))
        return;
    murmex_bench::HeldPlane in(kWidth, kHeight, 17, -0.05f, 0.05f);
    JIncrRaster_Variance node(in, 4);
    node.setTurbo(state.range(1) != 0);
    pullAll(state, node);
    JCPUInfo::reset();
}

// Args: the instruction set as above, step.
void BM_VarianceStepAbs(benchmark::State& state)
{
    const int level = static_cast<int>(state.range(0));
    if (!murmex_bench::selectPath(state, level != JCPUInfo::Scalar, level))
        return;
    murmex_bench::HeldPlane in(kWidth, kHeight, 17, -0.05f, 0.05f);
    JIncrRaster_VarianceStepAbs node(in, 2, static_cast<int>(state.range(1)));
    pullAll(state, node);
    JCPUInfo::reset();
}

BENCHMARK(BM_Variance)->ArgNames({"level", "turbo"})->ArgsProduct({{0, 2, 3}, {0, 1}});
BENCHMARK(BM_VarianceStepAbs)->ArgNames({"level", "step"})->ArgsProduct({{0, 2, 3}, {1, 2, 3, 4}});

}  // namespace
