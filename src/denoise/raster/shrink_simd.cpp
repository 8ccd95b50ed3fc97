// Vector path of JIncrRaster_Shrink: 16 (AVX-512) or 8 (AVX2) pixels per step,
// the map cells found with the same wrapping quantisation as J3DMap::indexOf
// and gathered from the maps' values; the remaining pixels one at a time as in
// the scalar path (an input may be a Constant, whose row has only four floats
// of slack). Every operation is a single IEEE rounding (sub, div, sqrt, two
// multiplies in the scalar order, no fusing) and the comparisons use the
// scalar predicates, NaN included, so the rows are bit-identical.
// What it bought: on a 2048 x 512 plane with random energies (AMD EPYC with
// AVX-512, processor time per pass, inputs included) the scalar path took
// about 16 ms and either vector path about
// 1.5 ms. Running one step ahead (shrinkRow) then took BM_Shrink_AVX512 from
// 0.96-1.11 to 1.07-1.24 Gpixel/s and BM_Shrink_AVX2 from 0.68-0.87 to
// 0.85-1.06 on a shared 2-core Xeon (Sapphire Rapids class); in the denoise
// driver the shrink's processor time fell by about 15%.
#include <immintrin.h>

#include <cstdint>

#include "base/cpu_info.h"
#include "base/simd_target.h"
#include "denoise/raster/shrink.h"

namespace {

struct ShrinkRow {
    const float* a;
    const float* coord[3];  // y, cr, cb
    const float* v;
    const float* noise;     // 512 cell values
    const float* strength;  // 512 cell values, or null for the threshold
    float threshold;
    float contrast;
};

MURMEX_TARGET_BEGIN("avx512f,avx512dq,avx512bw,avx512vl,fma")
namespace avx512 {

// The masked forms with an explicit source (all lanes set) keep GCC 12 from
// warning about the undefined source of the plain forms.
constexpr __mmask16 kAll = 0xFFFF;

// A step of 16 pixels halfway: the gain before its square root, and the
// floor it is compared with.
struct Halfway {
    __m512 g, t;
};

// The cells of pixels x .. x + 15, their map values and the gains up to the
// division.
inline __attribute__((always_inline)) Halfway front(const ShrinkRow& r, int x, __m512 threshold)
{
    const __m512 scale = _mm512_set1_ps(7.999f);
    const __m512 limit = _mm512_set1_ps(2147483648.0f);
    const __m512i intMax = _mm512_set1_epi32(INT32_MAX);
    const __m512i seven = _mm512_set1_epi32(7);
    const __m512 eps = _mm512_set1_ps(1e-8f);
    const __m512 zero = _mm512_setzero_ps();
    __m512i idx = _mm512_setzero_si512();
    for (int c = 0; c < 3; ++c) {
        const __m512 s = _mm512_mul_ps(_mm512_loadu_ps(r.coord[c] + x), scale);
        // NaN and out-of-range lanes convert to INT_MIN; large positive
        // ones are set to INT_MAX as in J3DMap::cellCoord.
        __m512i i = _mm512_mask_cvttps_epi32(intMax, kAll, s);
        i = _mm512_mask_mov_epi32(i, _mm512_cmp_ps_mask(s, limit, _CMP_GE_OQ), intMax);
        idx = _mm512_add_epi32(_mm512_mask_slli_epi32(idx, kAll, idx, 3), _mm512_and_si512(i, seven));
    }
    const __m512 noise = _mm512_mask_i32gather_ps(zero, kAll, idx, r.noise, 4);
    Halfway h;
    h.t = r.strength ? _mm512_mask_i32gather_ps(zero, kAll, idx, r.strength, 4) : threshold;
    const __m512 v = _mm512_loadu_ps(r.v + x);
    const __m512 m = _mm512_mask_blend_ps(_mm512_cmp_ps_mask(v, eps, _CMP_GT_OQ), eps, v);
    h.g = _mm512_div_ps(_mm512_sub_ps(m, noise), m);
    return h;
}

// The rest of the step: square root, floor, contrast, coefficient.
inline __attribute__((always_inline)) void back(const ShrinkRow& r, int x, const Halfway& h, __m512 contrast,
                                                float* out)
{
    const __m512 zero = _mm512_setzero_ps();
    const __m512 g = _mm512_mask_blend_ps(_mm512_cmp_ps_mask(h.g, zero, _CMP_LE_OQ), h.g, zero);
    const __m512 s = _mm512_mask_sqrt_ps(zero, kAll, g);
    const __m512 gain = _mm512_mask_blend_ps(_mm512_cmp_ps_mask(h.t, s, _CMP_GE_OQ), s, h.t);
    const __m512 ca = _mm512_mul_ps(contrast, _mm512_loadu_ps(r.a + x));
    _mm512_storeu_ps(out + x, _mm512_mul_ps(ca, gain));
}

// Each step is one long chain (cells, gather, division, square root); the
// row runs one step ahead, the next step's front before this step's back,
// so that the chains of neighbouring steps overlap.
int shrinkRow(const ShrinkRow& r, float* out, int n)
{
    if (n < 16)
        return 0;
    const __m512 threshold = _mm512_set1_ps(r.threshold);
    const __m512 contrast = _mm512_set1_ps(r.contrast);
    Halfway h = front(r, 0, threshold);
    int x = 16;
    for (; x + 16 <= n; x += 16) {
        const Halfway next = front(r, x, threshold);
        back(r, x - 16, h, contrast, out);
        h = next;
    }
    back(r, x - 16, h, contrast, out);
    return x;
}

}  // namespace avx512
MURMEX_TARGET_END

MURMEX_TARGET_BEGIN("avx2,fma")
namespace avx2 {

// The same steps with 8 pixels each.
struct Halfway {
    __m256 g, t;
};

inline __attribute__((always_inline)) Halfway front(const ShrinkRow& r, int x, __m256 threshold)
{
    const __m256 scale = _mm256_set1_ps(7.999f);
    const __m256 limit = _mm256_set1_ps(2147483648.0f);
    const __m256i intMax = _mm256_set1_epi32(INT32_MAX);
    const __m256i seven = _mm256_set1_epi32(7);
    const __m256 eps = _mm256_set1_ps(1e-8f);
    __m256i idx = _mm256_setzero_si256();
    for (int c = 0; c < 3; ++c) {
        const __m256 s = _mm256_mul_ps(_mm256_loadu_ps(r.coord[c] + x), scale);
        // NaN and out-of-range lanes convert to INT_MIN; large positive
        // ones are set to INT_MAX as in J3DMap::cellCoord.
        __m256i i = _mm256_cvttps_epi32(s);
        const __m256i over = _mm256_castps_si256(_mm256_cmp_ps(s, limit, _CMP_GE_OQ));
        i = _mm256_blendv_epi8(i, intMax, over);
        idx = _mm256_add_epi32(_mm256_slli_epi32(idx, 3), _mm256_and_si256(i, seven));
    }
    const __m256 noise = _mm256_i32gather_ps(r.noise, idx, 4);
    Halfway h;
    h.t = r.strength ? _mm256_i32gather_ps(r.strength, idx, 4) : threshold;
    const __m256 v = _mm256_loadu_ps(r.v + x);
    const __m256 m = _mm256_blendv_ps(eps, v, _mm256_cmp_ps(v, eps, _CMP_GT_OQ));
    h.g = _mm256_div_ps(_mm256_sub_ps(m, noise), m);
    return h;
}

inline __attribute__((always_inline)) void back(const ShrinkRow& r, int x, const Halfway& h, __m256 contrast,
                                                float* out)
{
    const __m256 zero = _mm256_setzero_ps();
    const __m256 g = _mm256_blendv_ps(h.g, zero, _mm256_cmp_ps(h.g, zero, _CMP_LE_OQ));
    const __m256 s = _mm256_sqrt_ps(g);
    const __m256 gain = _mm256_blendv_ps(s, h.t, _mm256_cmp_ps(h.t, s, _CMP_GE_OQ));
    const __m256 ca = _mm256_mul_ps(contrast, _mm256_loadu_ps(r.a + x));
    _mm256_storeu_ps(out + x, _mm256_mul_ps(ca, gain));
}

int shrinkRow(const ShrinkRow& r, float* out, int n)
{
    if (n < 8)
        return 0;
    const __m256 threshold = _mm256_set1_ps(r.threshold);
    const __m256 contrast = _mm256_set1_ps(r.contrast);
    Halfway h = front(r, 0, threshold);
    int x = 8;
    for (; x + 8 <= n; x += 8) {
        const Halfway next = front(r, x, threshold);
        back(r, x - 8, h, contrast, out);
        h = next;
    }
    back(r, x - 8, h, contrast, out);
    return x;
}

}  // namespace avx2
MURMEX_TARGET_END

}  // namespace

void JIncrRaster_Shrink::computeScanline_SIMD(int row, float* out)
{
    ShrinkRow r;
    r.a = detail_.getScanline(row);
    r.coord[0] = y_.getScanline(row);
    r.coord[1] = cr_.getScanline(row);
    r.coord[2] = cb_.getScanline(row);
    r.v = energy_.getScanline(row);
    r.noise = noiseMap_.cellValues();
    r.strength = strengthMap_ ? strengthMap_->cellValues() : nullptr;
    r.threshold = threshold();
    r.contrast = contrast();

    const int n = width();
    int x = 0;
    if (JCPUInfo::useSIMD(JCPUInfo::AVX512))
        x = avx512::shrinkRow(r, out, n);
    else if (JCPUInfo::useSIMD(JCPUInfo::AVX2))
        x = avx2::shrinkRow(r, out, n);
    for (; x < n; ++x) {
        const float ys = r.coord[0][x], crs = r.coord[1][x], cbs = r.coord[2][x];
        const float nv = noiseMap_.lookup(ys, crs, cbs);
        const float t = strengthMap_ ? strengthMap_->lookup(ys, crs, cbs) : r.threshold;
        out[x] = shrinkPixel(r.a[x], r.v[x], nv, t, r.contrast);
    }

    releaseInputs(row);
}
