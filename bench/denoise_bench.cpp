// Whole-image noise removal: a 12-megapixel synthetic scene with noise,
// default filter settings with constant noise maps, on the scalar and on the
// widest vector path, with and without turbo rows. BM_Denoise12MP runs all
// cores as workers and reports megapixels per second of wall time;
// BM_Denoise12MP_Serial computes every row on the calling thread, so that its
// CPU time is the whole work (a steadier figure on a shared machine, where
// the wall time of the workers depends on what else runs). Both report the
// engine's peak heap per run, beyond the host's two images.
#include <algorithm>
#include <cstddef>

#include <benchmark/benchmark.h>

#include "alloc_counter.h"

#include "base/cpu_info.h"
#include "base/rect.h"
#include "denoise/denoise.h"
#include "filter/noise_filter_settings.h"
#include "profile/map_3d.h"
#include "support/memory_image.h"
#include "support/scene.h"

namespace {

// Built once; the driver reads it through the adapter interface, which counts
// reads, hence not const.
murmex_test::MemoryImage& noisyScene()
{
    static murmex_test::MemoryImage in = [] {
        murmex_test::MemoryImage img = murmex_test::makeScene(4000, 3000);
        murmex_test::addNoise(img, 1500.0, 7);
        return img;
    }();
    return in;
}

void runDenoise12MP(benchmark::State& state, int threads)
{
    const bool vector = state.range(0) != 0;
    const bool turbo = state.range(1) != 0;
    const int w = 4000, h = 3000;
    murmex_test::MemoryImage& in = noisyScene();
    murmex_test::MemoryImage out(w, h);
    JNoiseFilterSettings settings;
    for (int ch = 0; ch < 3; ++ch)
        for (int l = 0; l < JNoiseFilterSettings::kLevels; ++l)
            for (int i = 0; i < J3DMap::kCells; ++i)
                settings.getNoiseMap(ch, l).setCellValue(i, 2e-4f / static_cast<float>(1 << l));

    JCPUInfo::SIMDSupported = vector && JCPUInfo::detectedLevel() > JCPUInfo::Scalar;
    JCPUInfo::SIMDLevel = vector ? JCPUInfo::detectedLevel() : static_cast<int>(JCPUInfo::Scalar);
    std::size_t peak = 0;
    for (auto _ : state) {
        const std::size_t before = murmex_bench::liveHeapBytes();
        murmex_bench::resetHeapPeak();
        {
            JDenoise d;
            d.setFilterSettings(&settings);
            d.setTurbo(turbo);
            d.setNumThreads(threads);
            JRect<int> rect(0, 0, w, h);
            d.removeNoise(&in, &rect, &out, nullptr);
        }
        peak = std::max(peak, murmex_bench::heapPeakBytes() - before);
    }
    // Without workers the driver keeps the image's height as its rows per
    // request; later runs in this program must not inherit it.
    JDenoise::rows_per_thread_override.store(-1);
    JCPUInfo::reset();
    state.counters["Mpx/s"] = benchmark::Counter(static_cast<double>(w) * h * 1e-6 * state.iterations(),
                                                 benchmark::Counter::kIsRate);
    state.counters["peak_MiB"] = static_cast<double>(peak) / (1024.0 * 1024.0);
}

void BM_Denoise12MP(benchmark::State& state)
{
    runDenoise12MP(state, JCPUInfo::numProcessors);
}

void BM_Denoise12MP_Serial(benchmark::State& state)
{
    runDenoise12MP(state, 0);
}

}  // namespace

BENCHMARK(BM_Denoise12MP)
    ->ArgNames({"vector", "turbo"})
    ->Args({0, 0})
    ->Args({1, 0})
    ->Args({0, 1})
    ->Args({1, 1})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(1);

// CPU time is the calling thread's, which here does all the work; Mpx/s is
// per wall second.
BENCHMARK(BM_Denoise12MP_Serial)
    ->ArgNames({"vector", "turbo"})
    ->Args({0, 0})
    ->Args({1, 0})
    ->Args({0, 1})
    ->Args({1, 1})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);
