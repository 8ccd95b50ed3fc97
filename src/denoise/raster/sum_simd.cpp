// Vector path of JIncrRaster_Sum: 16 or 8 pixels at a time, each vector of
// pixels accumulated over all inputs in array order while it sits in a
// register (one pass over the output instead of one per input). The remaining
// pixels, and whole rows when no vector level is on, go as in the scalar path.
// The additions per pixel are the scalar path's, in the same order, so the
// rows are bit-identical.
// Measured (bench/arithmetic_bench.cpp, five 2048 x 256 planes, shared 2-core
// AVX-512 build machine, CPU time): scalar 327 us, AVX2 150 us, AVX-512 171 us,
// from reading and writing the output once instead of once per input.
#include <immintrin.h>

#include <vector>

#include "base/cpu_info.h"
#include "denoise/raster/sum.h"

namespace {

__attribute__((target("avx512f,avx512dq,avx512bw,avx512vl,fma")))
int sumAVX512(const float* const* in, int count, float* out, int n)
{
    int x = 0;
    for (; x + 16 <= n; x += 16) {
        __m512 s = _mm512_loadu_ps(in[0] + x);
        for (int i = 1; i < count; ++i)
            s = _mm512_add_ps(s, _mm512_loadu_ps(in[i] + x));
        _mm512_storeu_ps(out + x, s);
    }
    return x;
}

__attribute__((target("avx2,fma")))
int sumAVX2(const float* const* in, int count, float* out, int n)
{
    int x = 0;
    for (; x + 8 <= n; x += 8) {
        __m256 s = _mm256_loadu_ps(in[0] + x);
        for (int i = 1; i < count; ++i)
            s = _mm256_add_ps(s, _mm256_loadu_ps(in[i] + x));
        _mm256_storeu_ps(out + x, s);
    }
    return x;
}

}  // namespace

void JIncrRaster_Sum::computeScanline_SIMD(int row, float* out)
{
    const int count = static_cast<int>(inputs_.size());
    std::vector<const float*> rows(inputs_.size());
    for (int i = 0; i < count; ++i)
        rows[i] = inputs_[i]->getScanline(row);
    const int n = width();
    int x = 0;
    if (JCPUInfo::useSIMD(JCPUInfo::AVX512))
        x = sumAVX512(rows.data(), count, out, n);
    else if (JCPUInfo::useSIMD(JCPUInfo::AVX2))
        x = sumAVX2(rows.data(), count, out, n);
    // The rest as in the scalar path: a copy of the first input, then one pass
    // per further input (same additions per pixel, same order).
    const int tail = x;
    for (x = tail; x < n; ++x)
        out[x] = rows[0][x];
    for (int i = 1; i < count; ++i)
        for (x = tail; x < n; ++x)
            out[x] += rows[i][x];
    for (JIncrRaster* in : inputs_)
        in->unrefScanline(row);
}
