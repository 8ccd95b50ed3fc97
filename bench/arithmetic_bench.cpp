// The pixel-wise arithmetic nodes (Subtract, Add, a Sum of five planes,
// Blend), scalar row against the vector paths, on a 2048 x 256 plane of
// seeded values. Every input row is computed once before timing and kept, so
// the time is the node's own. items_per_second counts output pixels.
#include <cstring>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#include "base/cpu_info.h"
#include "denoise/raster/add.h"
#include "denoise/raster/blend.h"
#include "denoise/raster/incr_raster.h"
#include "denoise/raster/subtract.h"
#include "denoise/raster/sum.h"

namespace {

constexpr int kWidth = 2048;
constexpr int kHeight = 256;

// Rows copied from a plane of seeded values.
class ArithPlane : public JIncrRaster {
public:
    explicit ArithPlane(unsigned seed) : JIncrRaster(kWidth, kHeight), plane_(static_cast<size_t>(kWidth) * kHeight)
    {
        std::mt19937 rng(seed);
        std::uniform_real_distribution<float> dist(0.0f, 1.0f);
        for (float& v : plane_)
            v = dist(rng);
    }
    void computeScanline(int row, float* out) override
    {
        std::memcpy(out, plane_.data() + static_cast<size_t>(row) * width(), sizeof(float) * width());
    }
    void refInputs(int) override {}

    // Holds every row so that pulls through a node never recompute it.
    void holdAllRows()
    {
        for (int y = 0; y < kHeight; ++y) {
            refScanline(y);
            getScanline(y);
        }
    }

private:
    std::vector<float> plane_;
};

enum Op { SubtractOp, AddOp, SumOp, BlendOp };

void runArith(benchmark::State& state, Op op, bool vector, int level)
{
    if (vector && JCPUInfo::detectedLevel() < level) {
        state.SkipWithError("vector level not available on this processor");
        return;
    }
    JCPUInfo::SIMDSupported = vector;
    JCPUInfo::SIMDLevel = vector ? level : static_cast<int>(JCPUInfo::Scalar);
    ArithPlane a(1), b(2), m(3);
    a.holdAllRows();
    b.holdAllRows();
    m.holdAllRows();
    JIncrRaster* five[5] = {&a, &b, &m, &a, &b};
    JIncrRaster_Subtract sub(a, b);
    JIncrRaster_Add add(a, b);
    JIncrRaster_Sum sum(five, 5);
    JIncrRaster_Blend blend(a, b, m);
    JIncrRaster* node = op == SubtractOp ? static_cast<JIncrRaster*>(&sub)
                        : op == AddOp    ? static_cast<JIncrRaster*>(&add)
                        : op == SumOp    ? static_cast<JIncrRaster*>(&sum)
                                         : static_cast<JIncrRaster*>(&blend);
    for (auto _ : state) {
        for (int y = 0; y < kHeight; ++y)
            node->refScanline(y);
        for (int y = 0; y < kHeight; ++y)
            benchmark::DoNotOptimize(node->getScanline(y));
        for (int y = 0; y < kHeight; ++y)
            node->unrefScanline(y);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kWidth) * kHeight);
    JCPUInfo::reset();
}

void BM_Subtract_Scalar(benchmark::State& s) { runArith(s, SubtractOp, false, JCPUInfo::Scalar); }
void BM_Subtract_AVX2(benchmark::State& s) { runArith(s, SubtractOp, true, JCPUInfo::AVX2); }
void BM_Subtract_AVX512(benchmark::State& s) { runArith(s, SubtractOp, true, JCPUInfo::AVX512); }
void BM_Add_Scalar(benchmark::State& s) { runArith(s, AddOp, false, JCPUInfo::Scalar); }
void BM_Add_AVX2(benchmark::State& s) { runArith(s, AddOp, true, JCPUInfo::AVX2); }
void BM_Add_AVX512(benchmark::State& s) { runArith(s, AddOp, true, JCPUInfo::AVX512); }
void BM_Sum5_Scalar(benchmark::State& s) { runArith(s, SumOp, false, JCPUInfo::Scalar); }
void BM_Sum5_AVX2(benchmark::State& s) { runArith(s, SumOp, true, JCPUInfo::AVX2); }
void BM_Sum5_AVX512(benchmark::State& s) { runArith(s, SumOp, true, JCPUInfo::AVX512); }
void BM_Blend_Scalar(benchmark::State& s) { runArith(s, BlendOp, false, JCPUInfo::Scalar); }
void BM_Blend_AVX2(benchmark::State& s) { runArith(s, BlendOp, true, JCPUInfo::AVX2); }
void BM_Blend_AVX512(benchmark::State& s) { runArith(s, BlendOp, true, JCPUInfo::AVX512); }

BENCHMARK(BM_Subtract_Scalar);
BENCHMARK(BM_Subtract_AVX2);
BENCHMARK(BM_Subtract_AVX512);
BENCHMARK(BM_Add_Scalar);
BENCHMARK(BM_Add_AVX2);
BENCHMARK(BM_Add_AVX512);
BENCHMARK(BM_Sum5_Scalar);
BENCHMARK(BM_Sum5_AVX2);
BENCHMARK(BM_Sum5_AVX512);
BENCHMARK(BM_Blend_Scalar);
BENCHMARK(BM_Blend_AVX2);
BENCHMARK(BM_Blend_AVX512);

}  // namespace
