// ToRGB's scalar row against its vector paths: a 4096 x 64 strip of seeded
// Y, Cr, Cb with Y in -0.1..1.1 (so the clamps are not predictable), written
// to an adapter that discards the pixels. The input rows stay referenced, so
// the time is the conversion's own. items_per_second counts output pixels.
#include <cstring>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#include "base/cpu_info.h"
#include "base/image_adapter.h"
#include "denoise/raster/incr_raster.h"
#include "denoise/raster/to_rgb.h"
#include "node_bench.h"

namespace {

class SeededPlane : public JIncrRaster {
public:
    SeededPlane(int w, int h, unsigned seed, float lo, float hi) : JIncrRaster(w, h), plane_(static_cast<size_t>(w) * h)
    {
        std::mt19937 rng(seed);
        std::uniform_real_distribution<float> dist(lo, hi);
        for (float& v : plane_)
            v = dist(rng);
    }
    void computeScanline(int row, float* out) override
    {
        std::memcpy(out, plane_.data() + static_cast<size_t>(row) * width(), sizeof(float) * width());
    }
    void refInputs(int) override {}

private:
    std::vector<float> plane_;
};

class DiscardingImage : public JImageAdapter {
public:
    DiscardingImage(int w, int h) : w_(w), h_(h) {}
    int width() override { return w_; }
    int height() override { return h_; }
    void getScanline(int, int, int, unsigned short*) override {}
    void putScanline(int, int, int, const unsigned short* pixels) override { benchmark::DoNotOptimize(pixels[0]); }

private:
    int w_;
    int h_;
};

void runToRGB(benchmark::State& state, bool vector, int level)
{
    if (!murmex_bench::selectPath(state, vector, level))
        return;
    const int w = 4096, h = 64;
    SeededPlane y(w, h, 1, -0.1f, 1.1f), cr(w, h, 2, 0.0f, 1.0f), cb(w, h, 3, 0.0f, 1.0f);
    DiscardingImage out(w, h);
    JIncrRaster_ToRGB node(y, cr, cb, &out, 0, w - 1, 0);
    // One extra reference per input row keeps it cached across passes.
    for (int r = 0; r < h; ++r)
        for (JIncrRaster* p : {&y, &cr, &cb}) {
            p->refScanline(r);
            p->getScanline(r);
        }
    murmex_bench::pullEveryRow(state, node);
    for (int r = 0; r < h; ++r)
        for (JIncrRaster* p : {&y, &cr, &cb})
            p->unrefScanline(r);
}

void BM_ToRGB_Scalar(benchmark::State& state) { runToRGB(state, false, JCPUInfo::Scalar); }
void BM_ToRGB_SSE(benchmark::State& state) { runToRGB(state, true, JCPUInfo::SSE); }
void BM_ToRGB_AVX2(benchmark::State& state) { runToRGB(state, true, JCPUInfo::AVX2); }
void BM_ToRGB_AVX512(benchmark::State& state) { runToRGB(state, true, JCPUInfo::AVX512); }

BENCHMARK(BM_ToRGB_Scalar);
BENCHMARK(BM_ToRGB_SSE);
BENCHMARK(BM_ToRGB_AVX2);
BENCHMARK(BM_ToRGB_AVX512);

}  // namespace
