// Whole-image noise removal: a 12-megapixel synthetic scene with noise, all
// cores as workers, default filter settings with constant noise maps.
// Reports megapixels per second and the engine's peak memory beyond the
// host's two images, on the scalar and on the widest vector path.
#include <sys/resource.h>

#include <benchmark/benchmark.h>

#include "base/cpu_info.h"
#include "base/rect.h"
#include "denoise/denoise.h"
#include "filter/noise_filter_settings.h"
#include "profile/map_3d.h"
#include "support/memory_image.h"
#include "support/scene.h"

namespace {

long peakRssKiB()
{
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return u.ru_maxrss;
}

void BM_Denoise12MP(benchmark::State& state)
{
    const bool vector = state.range(0) != 0;
    const bool turbo = state.range(1) != 0;
    const int w = 4000, h = 3000;
    static murmex_test::MemoryImage in = [] {
        murmex_test::MemoryImage img = murmex_test::makeScene(4000, 3000);
        murmex_test::addNoise(img, 1500.0, 7);
        return img;
    }();
    murmex_test::MemoryImage out(w, h);
    JNoiseFilterSettings settings;
    for (int ch = 0; ch < 3; ++ch)
        for (int l = 0; l < JNoiseFilterSettings::kLevels; ++l)
            for (int i = 0; i < J3DMap::kCells; ++i)
                settings.getNoiseMap(ch, l).setCellValue(i, 2e-4f / static_cast<float>(1 << l));

    JCPUInfo::SIMDSupported = vector && JCPUInfo::detectedLevel() > JCPUInfo::Scalar;
    JCPUInfo::SIMDLevel = vector ? JCPUInfo::detectedLevel() : static_cast<int>(JCPUInfo::Scalar);
    const long before = peakRssKiB();
    for (auto _ : state) {
        JDenoise d;
        d.setFilterSettings(&settings);
        d.setTurbo(turbo);
        d.setNumThreads(JCPUInfo::numProcessors);
        JRect<int> rect(0, 0, w, h);
        d.removeNoise(&in, &rect, &out, nullptr);
    }
    JCPUInfo::reset();
    state.counters["Mpx/s"] = benchmark::Counter(static_cast<double>(w) * h * 1e-6 * state.iterations(),
                                                 benchmark::Counter::kIsRate);
    state.counters["peak_MiB"] = static_cast<double>(peakRssKiB() - before) / 1024.0;
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
