// The directed blur's scalar row against its vector paths, on a 1024 x 64
// plane of seeded noise, for spacings 1, 4 and 16. Every row of the blur is
// referenced first, so each input row is computed once and the time is the
// blur's own. items_per_second counts output pixels.
#include <cstring>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#include "base/cpu_info.h"
#include "denoise/raster/directed_blur.h"
#include "denoise/raster/incr_raster.h"
#include "node_bench.h"

namespace {

// Rows copied from a plane in memory.
class BenchPlane : public JIncrRaster {
public:
    BenchPlane(int w, int h) : JIncrRaster(w, h), plane_(static_cast<size_t>(w) * h)
    {
        std::mt19937 rng(7);
        std::uniform_real_distribution<float> dist(0.0f, 1.0f);
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

void runBlur(benchmark::State& state, bool vector, int level)
{
    if (!murmex_bench::selectPath(state, vector, level))
        return;
    const int w = 1024, h = 64;
    const int spacing = static_cast<int>(state.range(0));
    BenchPlane input(w, h);
    JIncrRaster_DirectedBlur blur(input, spacing);
    murmex_bench::pullEveryRow(state, blur);
}

void BM_DirectedBlur_Scalar(benchmark::State& state) { runBlur(state, false, JCPUInfo::Scalar); }
void BM_DirectedBlur_AVX2(benchmark::State& state) { runBlur(state, true, JCPUInfo::AVX2); }
void BM_DirectedBlur_AVX512(benchmark::State& state) { runBlur(state, true, JCPUInfo::AVX512); }

BENCHMARK(BM_DirectedBlur_Scalar)->Arg(1)->Arg(4)->Arg(16);
BENCHMARK(BM_DirectedBlur_AVX2)->Arg(1)->Arg(4)->Arg(16);
BENCHMARK(BM_DirectedBlur_AVX512)->Arg(1)->Arg(4)->Arg(16);

}  // namespace
