// RGBXToYCrCb's scalar row against its vector paths: a 4096 x 64 strip of
// seeded RGBX floats in 0..1, held by the source node, converted to each of
// the three planes. items_per_second counts output pixels.
#include <vector>

#include <benchmark/benchmark.h>

#include "base/cpu_info.h"
#include "color/image_lib.h"
#include "denoise/raster/rgbx_to_ycrcb.h"
#include "support/planes.h"
#include "node_bench.h"
#include "support/rgbx_node.h"

namespace {

void runRGBXToYCrCb(benchmark::State& state, bool vector, int level)
{
    if (!murmex_bench::selectPath(state, vector, level))
        return;
    const int w = 4096, h = 64;
    murmex_test::RGBXNode rgbx(w, h, murmex_test::randomPlane(4 * w, h, 5, 0.0f, 1.0f));
    // One extra reference per input row keeps it cached across passes.
    for (int r = 0; r < h; ++r) {
        rgbx.refScanline(r);
        rgbx.getScanline(r);
    }
    const auto channel = static_cast<JImageLib::YCrCbIndex>(state.range(0));
    JIncrRaster_RGBXToYCrCb node(&rgbx, channel);
    murmex_bench::pullEveryRow(state, node);
    for (int r = 0; r < h; ++r)
        rgbx.unrefScanline(r);
}

void BM_RGBXToYCrCb_Scalar(benchmark::State& state) { runRGBXToYCrCb(state, false, JCPUInfo::Scalar); }
void BM_RGBXToYCrCb_AVX2(benchmark::State& state) { runRGBXToYCrCb(state, true, JCPUInfo::AVX2); }
void BM_RGBXToYCrCb_AVX512(benchmark::State& state) { runRGBXToYCrCb(state, true, JCPUInfo::AVX512); }

BENCHMARK(BM_RGBXToYCrCb_Scalar)->ArgName("channel")->DenseRange(0, 2);
BENCHMARK(BM_RGBXToYCrCb_AVX2)->ArgName("channel")->DenseRange(0, 2);
BENCHMARK(BM_RGBXToYCrCb_AVX512)->ArgName("channel")->DenseRange(0, 2);

}  // namespace
