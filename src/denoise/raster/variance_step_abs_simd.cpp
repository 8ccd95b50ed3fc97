// Vector path of JIncrRaster_VarianceStepAbs, radius 2. The running sums of
// the residue classes x mod step are independent chains, so four neighbouring
// pixels (four different classes when step >= 4) move together, each lane
// through the same ten rounded additions as in the scalar path: the rows are
// bit-identical to the scalar ones (|v| by clearing the sign bit, as fabsf).
// A lane's sum comes from the lane one step back, which for a step that is a
// multiple of four is a whole vector stored earlier. Other steps stay scalar:
// with step 5 the unaligned reload of the previous sums cost more than it saved
// (6.1 against 5.1 us per 2000-pixel row), and below 4 there are not enough
// independent classes to fill the lanes. Measured on a shared 2-core AMD EPYC,
// 2000-pixel rows: step 4 3.6 us against 5.0 us scalar, step 8 2.3 against
// 6.8, step 16 1.0 against 7.1. Four lanes beat eight there: with the same
// number of classes, more independent chains hide the latency of the adds.
#include <immintrin.h>

#include <vector>

#include "base/cpu_info.h"
#include "denoise/raster/variance_step_abs.h"

namespace {

// Pixels x = step, step + 4, ... in groups of four, while a group fits in the
// row. sums[x] holds A of pixel x; sums[0..step-1] are the seeds.
inline __attribute__((always_inline)) int movingSums4(const float* const* rows, float* out, float* sums,
                                                       int w, int s)
{
    const __m128 magnitude = _mm_castsi128_ps(_mm_set1_epi32(0x7fffffff));
    const __m128 taps = _mm_set1_ps(25.0f);
    int x = s;
    for (; x + 4 <= w; x += 4) {
        __m128 a = _mm_loadu_ps(sums + x - s);
        for (int j = 0; j < 5; ++j) {
            a = _mm_sub_ps(a, _mm_and_ps(magnitude, _mm_loadu_ps(rows[j] + x - 3 * s)));
            a = _mm_add_ps(a, _mm_and_ps(magnitude, _mm_loadu_ps(rows[j] + x + 2 * s)));
        }
        _mm_storeu_ps(sums + x, a);
        const __m128 m = _mm_div_ps(a, taps);
        _mm_storeu_ps(out + x, _mm_mul_ps(m, m));
    }
    return x;
}

__attribute__((target("avx2,fma")))
int movingSumsAVX2(const float* const* rows, float* out, float* sums, int w, int s)
{
    return movingSums4(rows, out, sums, w, s);
}

__attribute__((target("sse4.1")))
int movingSumsSSE(const float* const* rows, float* out, float* sums, int w, int s)
{
    return movingSums4(rows, out, sums, w, s);
}

}  // namespace

int JIncrRaster_VarianceStepAbs::radius2_SIMD(const float* const* rows, float* out, float* ring) const
{
    const int s = step_;
    const int w = width();
    if (s % 4 != 0 || !JCPUInfo::useSIMD(JCPUInfo::SSE))
        return s;
    thread_local std::vector<float> sums;
    if (sums.size() < static_cast<size_t>(w))
        sums.resize(w);
    for (int c = 0; c < s; ++c)
        sums[c] = ring[c];
    const int x = JCPUInfo::useSIMD(JCPUInfo::AVX2) ? movingSumsAVX2(rows, out, sums.data(), w, s)
                                                    : movingSumsSSE(rows, out, sums.data(), w, s);
    // Hand the last sum of every class back to the scalar loop.
    for (int p = x - s; p < x; ++p)
        ring[p % s] = sums[p];
    return x;
}
