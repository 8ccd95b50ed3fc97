// The automatic sampler on large images: the time to search a 12-megapixel
// scene, and the sampler's own peak heap on a 24-megapixel one, which must
// stay near one tile of three float planes (12 MiB) plus the block grids per
// scanning thread whatever the image size. The scene is generated on the fly
// as scanlines are read, so the image itself takes no memory (the generation
// is part of the time, and with several threads it runs one row at a time).
// BM_MeasureProfile is the whole measurement an entry point runs (search,
// noise of every patch, maps) on the scene held in memory, as a host holds
// it: elapsed time and the processor time of all threads.
#include <algorithm>
#include <cstdint>
#include <vector>

#include <benchmark/benchmark.h>

#include "alloc_counter.h"
#include "api/profile_measure.h"
#include "autosample/auto_sampler.h"
#include "base/image_adapter.h"
#include "profile/noise_profile.h"

namespace {

uint32_t mix(uint32_t x, uint32_t y)
{
    uint32_t h = x * 0x9E3779B1u ^ (y + 0x7F4A7C15u) * 0x85EBCA77u;
    h ^= h >> 15;
    h *= 0x2C1B3C6Du;
    h ^= h >> 12;
    return h;
}

// Cells of 400 pixels, each holding a flat square of 250 pixels in one of a
// few colours with uniform grey noise of +-1200, on a texture of random
// 6-pixel cells.
class SceneAdapter : public JImageAdapter {
public:
    SceneAdapter(int w, int h) : w_(w), h_(h) {}
    int width() override { return w_; }
    int height() override { return h_; }
    void getScanline(int y, int xStart, int xEnd, unsigned short* pixels) override
    {
        for (int x = xStart; x <= xEnd; x++, pixels += 4) {
            const int cx = x / 400, cy = y / 400;
            const int ix = x % 400, iy = y % 400;
            uint16_t r, g, b;
            if (ix >= 75 && ix < 325 && iy >= 75 && iy < 325) {
                static const uint16_t colours[6][3] = {{40000, 20000, 20000}, {20000, 40000, 22000},
                                                       {22000, 24000, 45000}, {30000, 30000, 30000},
                                                       {50000, 45000, 20000}, {15000, 15000, 15000}};
                const uint16_t* c = colours[(cx * 7 + cy * 3) % 6];
                const int n = static_cast<int>(mix(static_cast<uint32_t>(x), static_cast<uint32_t>(y)) % 2401) - 1200;
                r = static_cast<uint16_t>(c[0] + n);
                g = static_cast<uint16_t>(c[1] + n);
                b = static_cast<uint16_t>(c[2] + n);
            } else {
                const uint32_t t = mix(static_cast<uint32_t>(x / 6), static_cast<uint32_t>(y / 6));
                r = static_cast<uint16_t>(6554 + (t & 0xFFFF) % 52428);
                g = static_cast<uint16_t>(6554 + (t >> 16) % 52428);
                b = static_cast<uint16_t>(6554 + (t >> 8 & 0xFFFF) % 52428);
            }
            pixels[0] = r;
            pixels[1] = g;
            pixels[2] = b;
            pixels[3] = 65535;
        }
    }
    void putScanline(int, int, int, const unsigned short*) override {}

private:
    int w_, h_;
};

int validCount(JAutoSampler& s)
{
    int n = 0;
    for (int i = 0; i < s.sampleCount(); i++)
        n += s.getSample(i)->valid;
    return n;
}

// The scene generated once and kept as RGBX rows.
class HeldScene : public JImageAdapter {
public:
    HeldScene(int w, int h) : w_(w), h_(h), pixels_(static_cast<size_t>(w) * static_cast<size_t>(h) * 4)
    {
        SceneAdapter scene(w, h);
        for (int y = 0; y < h; y++)
            scene.getScanline(y, 0, w - 1, pixels_.data() + static_cast<size_t>(y) * static_cast<size_t>(w) * 4);
    }
    int width() override { return w_; }
    int height() override { return h_; }
    void getScanline(int y, int xStart, int xEnd, unsigned short* pixels) override
    {
        const unsigned short* row = pixels_.data() + (static_cast<size_t>(y) * static_cast<size_t>(w_) + xStart) * 4;
        std::copy(row, row + static_cast<size_t>(xEnd - xStart + 1) * 4, pixels);
    }
    void putScanline(int, int, int, const unsigned short*) override {}

private:
    int w_, h_;
    std::vector<unsigned short> pixels_;
};

void BM_AutoSample12MP(benchmark::State& state)
{
    const bool relaxed = state.range(0) != 0;
    SceneAdapter image(4240, 2832);
    int found = 0;
    for (auto _ : state) {
        JAutoSampler sampler;
        sampler.setThreads(static_cast<int>(state.range(1)));
        sampler.sample(&image, relaxed, nullptr);
        found = validCount(sampler);
    }
    state.counters["Mpx/s"] = benchmark::Counter(4240.0 * 2832.0 * 1e-6 * static_cast<double>(state.iterations()),
                                                 benchmark::Counter::kIsRate);
    state.counters["patches"] = found;
}

void BM_AutoSamplePeakHeap24MP(benchmark::State& state)
{
    SceneAdapter image(6000, 4000);
    double peakMiB = 0.0;
    for (auto _ : state) {
        murmex_bench::resetHeapPeak();
        const std::size_t before = murmex_bench::liveHeapBytes();
        {
            JAutoSampler sampler;
            sampler.setThreads(static_cast<int>(state.range(0)));
            sampler.sample(&image, false, nullptr);
        }
        peakMiB = static_cast<double>(murmex_bench::heapPeakBytes() - before) / (1024.0 * 1024.0);
    }
    state.counters["peak_heap_MiB"] = peakMiB;
    // One tile of three float planes, for comparison.
    state.counters["tile_MiB"] = 1024.0 * 1024.0 * 3.0 * sizeof(float) / (1024.0 * 1024.0);
}

// Arguments: megapixels (12 or 24) and threads.
void BM_MeasureProfile(benchmark::State& state)
{
    const bool large = state.range(0) == 24;
    HeldScene image(large ? 6000 : 4240, large ? 4000 : 2832);
    int samples = 0;
    for (auto _ : state) {
        JNoiseProfile profile;
        dnMeasureProfile(&image, profile, false, nullptr, static_cast<int>(state.range(1)));
        samples = profile.sampleCount();
    }
    state.counters["samples"] = samples;
}

}  // namespace

BENCHMARK(BM_AutoSample12MP)
    ->ArgNames({"relaxed", "threads"})
    ->ArgsProduct({{0, 1}, {1, 2}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime();
BENCHMARK(BM_AutoSamplePeakHeap24MP)->ArgName("threads")->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_MeasureProfile)
    ->ArgNames({"MP", "threads"})
    ->ArgsProduct({{12, 24}, {1, 2}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime();
