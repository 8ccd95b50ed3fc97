// The pixel-wise arithmetic nodes (Subtract, Add, a Sum of five planes,
// Blend), scalar row against the vector paths, on a 2048 x 256 plane of
// seeded values. Every input row is computed once before timing and kept, so
// the time is the node's own. items_per_second counts output pixels.

#include <benchmark/benchmark.h>

#include "base/cpu_info.h"
#include "denoise/raster/add.h"
#include "denoise/raster/blend.h"
#include "denoise/raster/incr_raster.h"
#include "denoise/raster/subtract.h"
#include "denoise/raster/sum.h"
#include "held_plane.h"

namespace {

constexpr int kWidth = 2048;
constexpr int kHeight = 256;

enum Op { SubtractOp, AddOp, SumOp, BlendOp };

void runArith(benchmark::State& state, Op op, bool vector, int level)
{
    if (vector && JCPUInfo::detectedLevel() < level) {
        state.SkipWithError("vector level not available on this processor");
        return;
    }
    JCPUInfo::SIMDSupported = vector;
    JCPUInfo::SIMDLevel = vector ? level : static_cast<int>(JCPUInfo::Scalar);
    murmex_bench::HeldPlane a(kWidth, kHeight, 1, 0.0f, 1.0f), b(kWidth, kHeight, 2, 0.0f, 1.0f),
        m(kWidth, kHeight, 3, 0.0f, 1.0f);
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
