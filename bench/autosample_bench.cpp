// The automatic sampler on large images: the time to search a 12-megapixel
// scene, and the sampler's own peak heap on a 24-megapixel one, which must
// stay near one tile of three float planes (12 MiB) plus the block grids
// whatever the image size. The scene is generated on the fly as scanlines
// are read, so the image itself takes no memory.
#include <cstdint>

#include <benchmark/benchmark.h>

#include "alloc_counter.h"
#include "autosample/auto_sampler.h"
#include "base/image_adapter.h"

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

void BM_AutoSample12MP(benchmark::State& state)
{
    const bool relaxed = state.range(0) != 0;
    SceneAdapter image(4240, 2832);
    int found = 0;
    for (auto _ : state) {
        JAutoSampler sampler;
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
            sampler.sample(&image, false, nullptr);
        }
        peakMiB = static_cast<double>(murmex_bench::heapPeakBytes() - before) / (1024.0 * 1024.0);
    }
    state.counters["peak_heap_MiB"] = peakMiB;
    // One tile of three float planes, for comparison.
    state.counters["tile_MiB"] = 1024.0 * 1024.0 * 3.0 * sizeof(float) / (1024.0 * 1024.0);
}

}  // namespace

BENCHMARK(BM_AutoSample12MP)->ArgName("relaxed")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_AutoSamplePeakHeap24MP)->Unit(benchmark::kMillisecond)->Iterations(1);
