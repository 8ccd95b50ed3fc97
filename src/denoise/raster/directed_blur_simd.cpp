// Vector path of JIncrRaster_DirectedBlur: 8 (AVX2 + FMA) or 16 (AVX-512)
// pixels per step, each lane doing exactly the scalar operations in the scalar
// order, so the rows are bit-identical:
//   - the minimum "A, then C if C < m, B if B < m, D if D < m" is min_ps(X, m),
//     which returns X exactly when X < m;
//   - "T when T >= d, else d" is max_ps(T, d) (equal values have equal bits here,
//     T >= 1e-10 > 0, and a NaN on either side yields d in both);
//   - the threshold is the one fused multiply-add of the scalar path; the ring
//     products are rounded before they are added, the weights are true divisions
//     (no reciprocal estimate), and the numerator starts at +0 like the scalar one.
// The ring taps are also taps of the directional sums, so their |v - c| is
// computed once. The last partial vector of a row uses masked loads and stores.
//
// What it bought: 73 Mpixel/s scalar, 650 Mpixel/s AVX2 (8.9x) and 1.15
// Gpixel/s AVX-512 (15.8x), CPU time of BM_DirectedBlur_* in
// bench/directed_blur_bench.cpp (1024 x 64 plane, spacings 1, 4, 16 alike) on
// an AMD EPYC with AVX-512, GCC 12 -O3. The row is bound by its nine true
// divisions per pixel; reciprocal estimates would change the bits.
//
// The AVX-512 row works one step ahead (blurRowAhead), which keeps the
// divider busy while the next threshold is worked out. On a shared 2-core
// Xeon (Sapphire Rapids class, where a 16-lane division issues every 10
// cycles): BM_DirectedBlur_AVX512 295-345 against 365-400 Mpixel/s; over
// five rows held in the first-level cache, 105-125 against 91-96 cycles per
// 16 pixels, that is the nine divisions' own 90; in the denoise driver the
// blur's processor time fell by a fifth. The AVX2 row stays step by step:
// with 16 registers the second ring spills and the look-ahead gained
// nothing measurable.

#include <immintrin.h>

#include "base/cpu_info.h"
#include "denoise/raster/directed_blur.h"
#include "denoise/raster/lane_table.h"
#include "base/simd_target.h"

namespace {

MURMEX_TARGET_BEGIN("avx2,fma")
namespace avx2 {

// The plain operations are the variance passes'; the blur adds masked tails,
// min, max and absolute differences.
struct Lanes : lane_table::avx2::Lanes {
    using Mask = __m256i;

    template <bool Tail>
    static F load(const float* p, Mask mask)
    {
        if constexpr (Tail)
            return _mm256_maskload_ps(p, mask);
        else
            return _mm256_loadu_ps(p);
    }
    template <bool Tail>
    static void store(float* p, Mask mask, F v)
    {
        if constexpr (Tail)
            _mm256_maskstore_ps(p, mask, v);
        else
            _mm256_storeu_ps(p, v);
    }
    static Mask tailMask(int count)
    {
        return _mm256_cmpgt_epi32(_mm256_set1_epi32(count), _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7));
    }
    static F min(F a, F b) { return _mm256_min_ps(a, b); }
    static F max(F a, F b) { return _mm256_max_ps(a, b); }
    static F absDiff(F v, F c)
    {
        return _mm256_and_ps(_mm256_sub_ps(v, c), _mm256_castsi256_ps(_mm256_set1_epi32(0x7fffffff)));
    }
};

#include "denoise/raster/directed_blur_simd_row.h"

}  // namespace avx2
MURMEX_TARGET_END

MURMEX_TARGET_BEGIN("avx512f,avx512dq,avx512bw,avx512vl,fma")
namespace avx512 {

// The plain operations are the variance passes'; the blur adds masked tails,
// min, max and absolute differences.
struct Lanes : lane_table::avx512::Lanes {
    using Mask = __mmask16;

    template <bool Tail>
    static F load(const float* p, Mask mask)
    {
        if constexpr (Tail)
            return _mm512_maskz_loadu_ps(mask, p);
        else
            return _mm512_loadu_ps(p);
    }
    template <bool Tail>
    static void store(float* p, Mask mask, F v)
    {
        if constexpr (Tail)
            _mm512_mask_storeu_ps(p, mask, v);
        else
            _mm512_storeu_ps(p, v);
    }
    static Mask tailMask(int count) { return static_cast<Mask>((1u << count) - 1u); }
    // The all-lanes masked forms of min and max are the plain instructions;
    // GCC 12 warns about the unmasked intrinsics' undefined pass-through operand.
    static F min(F a, F b) { return _mm512_maskz_min_ps(static_cast<Mask>(0xffff), a, b); }
    static F max(F a, F b) { return _mm512_maskz_max_ps(static_cast<Mask>(0xffff), a, b); }
    static F absDiff(F v, F c) { return _mm512_abs_ps(_mm512_sub_ps(v, c)); }
};

#include "denoise/raster/directed_blur_simd_row.h"

}  // namespace avx512
MURMEX_TARGET_END

}  // namespace

void JIncrRaster_DirectedBlur::computeScanline_SIMD(int row, float* out)
{
    if (averagesOwnRows(row)) {
        averageOwnRows(row, out);
        return;
    }
    const InputRows in = fetchInputRows(row);
    if (JCPUInfo::useSIMD(JCPUInfo::AVX512))
        avx512::blurRowAhead<avx512::Lanes>(in.r, spacing_, width(), out);
    else if (JCPUInfo::useSIMD(JCPUInfo::AVX2))
        avx2::blurRow<avx2::Lanes>(in.r, spacing_, width(), out);
    else
        blurPixels(in, spacing_, width(), out);
    releaseInputRows(row);
}
