// The directed blur's scalar row against its vector paths, on a 1024 x 64
// plane of seeded noise, for spacings 1, 4 and 16. Every row of the blur is
// referenced first, so each input row is computed once and the time is the
// blur's own. items_per_second counts output pixels.
//
// BM_DirectedBlur_RingOnly_AVX512 is what the AVX-512 row could not beat:
// the same eight ring weights (a true division each), products, sums and
// final division over the same plane, with a fixed threshold in place of the
// four directional sums, and without the node's row handling. The gap
// between it and BM_DirectedBlur_AVX512 is the directional sums and the
// rows' bookkeeping.
#include <immintrin.h>

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

// 16 pixels of ring weights per step, as the AVX-512 row computes them.
__attribute__((target("avx512f,avx512dq,avx512vl"))) void ringOnlyRow(const float* const* r, int s, int width,
                                                                      float* out)
{
    const __m512 one = _mm512_set1_ps(1.0f), T = _mm512_set1_ps(0.01f), start = _mm512_set1_ps(1e-10f);
    for (int x = 0; x + 16 <= width; x += 16) {
        const __m512 c = _mm512_loadu_ps(r[2] + x);
        const float* taps[8] = {r[1] + x - s, r[1] + x, r[1] + x + s, r[2] + x - s,
                                r[2] + x + s, r[3] + x - s, r[3] + x, r[3] + x + s};
        __m512 num = _mm512_setzero_ps(), den = start;
        for (const float* p : taps) {
            const __m512 v = _mm512_loadu_ps(p);
            const __m512 dv = _mm512_abs_ps(_mm512_sub_ps(v, c));
            const __m512 w = _mm512_div_ps(one, _mm512_maskz_max_ps(0xffff, T, dv));
            num = _mm512_add_ps(num, _mm512_mul_ps(w, v));
            den = _mm512_add_ps(den, w);
        }
        _mm512_storeu_ps(out + x, _mm512_div_ps(num, den));
    }
}

void BM_DirectedBlur_RingOnly_AVX512(benchmark::State& state)
{
    if (JCPUInfo::detectedLevel() < JCPUInfo::AVX512) {
        state.SkipWithError("vector level not available on this processor");
        return;
    }
    const int w = 1024, h = 64;
    const int s = static_cast<int>(state.range(0));
    // The plane with 2s + 2 columns on either side, as the blur's input rows
    // have their margins.
    const int pad = 2 * s + 2, stride = w + 2 * pad;
    std::vector<float> plane(static_cast<size_t>(stride) * h);
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> dist(0.0f, 1.0f);
    for (float& v : plane)
        v = dist(rng);
    std::vector<float> out(w);
    for (auto _ : state)
        for (int y = 2; y < h - 2; ++y) {
            const float* rows[5];
            for (int k = 0; k < 5; ++k)
                rows[k] = plane.data() + static_cast<size_t>(y - 2 + k) * stride + pad;
            ringOnlyRow(rows, s, w, out.data());
            benchmark::DoNotOptimize(out.data());
        }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(w) * (h - 4));
}

BENCHMARK(BM_DirectedBlur_Scalar)->Arg(1)->Arg(4)->Arg(16);
BENCHMARK(BM_DirectedBlur_AVX2)->Arg(1)->Arg(4)->Arg(16);
BENCHMARK(BM_DirectedBlur_AVX512)->Arg(1)->Arg(4)->Arg(16);
BENCHMARK(BM_DirectedBlur_RingOnly_AVX512)->Arg(1)->Arg(4)->Arg(16);

}  // namespace
