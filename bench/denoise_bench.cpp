// Whole-image noise removal: a 12-megapixel synthetic scene with noise,
// default filter settings with constant noise maps, on the scalar and on the
// widest vector path, with and without turbo rows. BM_Denoise12MP runs all
// cores as workers and reports megapixels per second of wall time;
// BM_Denoise12MP_Serial computes every row on the calling thread, so that its
// CPU time is the whole work (a steadier figure on a shared machine, where
// the wall time of the workers depends on what else runs). Both report the
// engine's peak heap per run, beyond the host's two images.
//
// BM_DenoiseWorkers is the engine's figure for a host at default settings:
// 12 and 24 megapixels, 0, 1 and 2 workers, widest vector path, no turbo.
// Besides wall-time megapixels per second it reports the process's CPU
// seconds per run (all threads), which shows time lost to waiting, and on a
// virtual machine the share of the processors' time that the host gave to
// other guests meanwhile ("steal"), which slows the runs without showing in
// either.
#include <sys/resource.h>
#include <time.h>

#include <algorithm>
#include <cstddef>
#include <fstream>
#include <map>
#include <string>

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

// Default settings with every noise map constant per level, finer levels
// noisier.
void setConstantNoise(JNoiseFilterSettings& settings)
{
    for (int ch = 0; ch < 3; ++ch)
        for (int l = 0; l < JNoiseFilterSettings::kLevels; ++l)
            for (int i = 0; i < J3DMap::kCells; ++i)
                settings.getNoiseMap(ch, l).setCellValue(i, 2e-4f / static_cast<float>(1 << l));
}

void runDenoise12MP(benchmark::State& state, int threads)
{
    const bool vector = state.range(0) != 0;
    const bool turbo = state.range(1) != 0;
    const int w = 4000, h = 3000;
    murmex_test::MemoryImage& in = noisyScene();
    murmex_test::MemoryImage out(w, h);
    JNoiseFilterSettings settings;
    setConstantNoise(settings);

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

long minorFaults()
{
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return u.ru_minflt;
}

// The machine's stolen and total processor ticks so far (the "cpu" line of
// /proc/stat: user, nice, system, idle, iowait, irq, softirq, steal); zeros
// where it cannot be read.
struct Ticks {
    double steal = 0.0;
    double total = 0.0;
};

Ticks processorTicks()
{
    std::ifstream stat("/proc/stat");
    std::string cpu;
    Ticks t;
    if (!(stat >> cpu) || cpu != "cpu")
        return {};
    for (int field = 0; field < 8; ++field) {
        double v = 0.0;
        if (!(stat >> v))
            return {};
        t.total += v;
        if (field == 7)
            t.steal = v;
    }
    return t;
}

double processCpuSeconds()
{
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

// The scene at 12 (4000 x 3000) or 24 (6000 x 4000) megapixels, built once.
murmex_test::MemoryImage& noisySceneMP(int megapixels)
{
    static std::map<int, murmex_test::MemoryImage> scenes;
    auto it = scenes.find(megapixels);
    if (it == scenes.end()) {
        const int w = megapixels == 24 ? 6000 : 4000;
        const int h = megapixels == 24 ? 4000 : 3000;
        murmex_test::MemoryImage img = murmex_test::makeScene(w, h);
        murmex_test::addNoise(img, 1500.0, 7);
        it = scenes.emplace(megapixels, std::move(img)).first;
    }
    return it->second;
}

void BM_DenoiseWorkers(benchmark::State& state)
{
    murmex_test::MemoryImage& in = noisySceneMP(static_cast<int>(state.range(0)));
    const int threads = static_cast<int>(state.range(1));
    const int w = in.width(), h = in.height();
    murmex_test::MemoryImage out(w, h);
    JNoiseFilterSettings settings;
    setConstantNoise(settings);
    JCPUInfo::reset();
    std::size_t peak = 0;
    double cpu = 0.0;
    long faults = 0;
    const Ticks ticksBefore = processorTicks();
    for (auto _ : state) {
        const std::size_t before = murmex_bench::liveHeapBytes();
        murmex_bench::resetHeapPeak();
        const double cpuBefore = processCpuSeconds();
        const long faultsBefore = minorFaults();
        {
            JDenoise d;
            d.setFilterSettings(&settings);
            d.setTurbo(false);
            d.setNumThreads(threads);
            JRect<int> rect(0, 0, w, h);
            d.removeNoise(&in, &rect, &out, nullptr);
        }
        cpu += processCpuSeconds() - cpuBefore;
        faults += minorFaults() - faultsBefore;
        peak = std::max(peak, murmex_bench::heapPeakBytes() - before);
        JDenoise::rows_per_thread_override.store(-1);
    }
    state.counters["Mpx/s"] = benchmark::Counter(static_cast<double>(w) * h * 1e-6 * state.iterations(),
                                                 benchmark::Counter::kIsRate);
    state.counters["cpu_s"] = cpu / static_cast<double>(state.iterations());
    const Ticks ticksAfter = processorTicks();
    if (ticksAfter.total > ticksBefore.total)
        state.counters["steal_pct"] =
            100.0 * (ticksAfter.steal - ticksBefore.steal) / (ticksAfter.total - ticksBefore.total);
    // Pages the process touched for the first time during the runs: the
    // engine's fresh row buffers (the two images are faulted in before).
    state.counters["page_faults"] = static_cast<double>(faults) / static_cast<double>(state.iterations());
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

BENCHMARK(BM_DenoiseWorkers)
    ->ArgNames({"MP", "workers"})
    ->ArgsProduct({{12, 24}, {0, 1, 2}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(1);
