// Input rows laid out for computing output rows side by side in vector lanes.
//
// A node whose row is one serial chain of roundings (a running sum) cannot
// spread a row over lanes, but it can run several rows at once, one per lane
// (see JIncrRaster::claimRows). Lane k computes output row row0 + k*d; its
// taps are input rows row0 + k*d + t for fixed offsets t. The table stores,
// column by column, input row i = m*d + p (counted from the first input row
// the block reads) at entry p*M + m, so that one unaligned load at
// entry(t) = (t % d)*M + t / d gives tap t of eight consecutive lanes.
// Entries past the last input row are zero. Used by the vector paths of
// Variance and VarianceStepAbs, which also hand their results back through
// writeRows below.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <vector>

#include "base/simd_target.h"

namespace lane_table {

#define MURMEX_LANES_AVX2 __attribute__((target("avx2,fma")))

// What an entry holds of its input value v: v itself, v*v (rounded), |v|.
enum Op { Value, Square, Magnitude };

struct Table {
    const float* data = nullptr;
    int colStride = 0;  // floats per column
    int M = 0;          // entries per residue class of the input row index
    int d = 1;
    int entry(int tap) const { return (tap % d) * M + tap / d; }
    const float* column(int c) const { return data + static_cast<ptrdiff_t>(c) * colStride; }
};

template <Op op>
MURMEX_LANES_AVX2 inline __m256 apply8(__m256 v)
{
    if constexpr (op == Square)
        return _mm256_mul_ps(v, v);
    else if constexpr (op == Magnitude)
        return _mm256_and_ps(v, _mm256_castsi256_ps(_mm256_set1_epi32(0x7fffffff)));
    else
        return v;
}

template <Op op>
inline float apply1(float v)
{
    if constexpr (op == Square)
        return v * v;
    else if constexpr (op == Magnitude)
        return __builtin_fabsf(v);
    else
        return v;
}

// r[0..7] become the columns of the 8 x 8 block whose rows they were.
MURMEX_LANES_AVX2 inline void transpose8(__m256 r[8])
{
    const __m256 t0 = _mm256_unpacklo_ps(r[0], r[1]), t1 = _mm256_unpackhi_ps(r[0], r[1]);
    const __m256 t2 = _mm256_unpacklo_ps(r[2], r[3]), t3 = _mm256_unpackhi_ps(r[2], r[3]);
    const __m256 t4 = _mm256_unpacklo_ps(r[4], r[5]), t5 = _mm256_unpackhi_ps(r[4], r[5]);
    const __m256 t6 = _mm256_unpacklo_ps(r[6], r[7]), t7 = _mm256_unpackhi_ps(r[6], r[7]);
    const __m256 u0 = _mm256_shuffle_ps(t0, t2, 0x44), u1 = _mm256_shuffle_ps(t0, t2, 0xee);
    const __m256 u2 = _mm256_shuffle_ps(t1, t3, 0x44), u3 = _mm256_shuffle_ps(t1, t3, 0xee);
    const __m256 u4 = _mm256_shuffle_ps(t4, t6, 0x44), u5 = _mm256_shuffle_ps(t4, t6, 0xee);
    const __m256 u6 = _mm256_shuffle_ps(t5, t7, 0x44), u7 = _mm256_shuffle_ps(t5, t7, 0xee);
    r[0] = _mm256_permute2f128_ps(u0, u4, 0x20);
    r[1] = _mm256_permute2f128_ps(u1, u5, 0x20);
    r[2] = _mm256_permute2f128_ps(u2, u6, 0x20);
    r[3] = _mm256_permute2f128_ps(u3, u7, 0x20);
    r[4] = _mm256_permute2f128_ps(u0, u4, 0x31);
    r[5] = _mm256_permute2f128_ps(u1, u5, 0x31);
    r[6] = _mm256_permute2f128_ps(u2, u6, 0x31);
    r[7] = _mm256_permute2f128_ps(u3, u7, 0x31);
}

// Fills `store` with columns x0 .. x0 + columns - 1 of the nIn input rows
// in[0..nIn-1] (op applied; a null row reads as zeros), for `lanes` lanes (a multiple of 8) whose taps
// reach up to input row (lanes - 1)*d + maxTap. Reads only those columns.
// Eight columns at a time are filled whole, every 8 x 8 block of them, so
// that their lines are written while they are in the first-level cache
// (filling one block of rows across the whole width at a time wrote each
// line in pieces, M / 8 passes apart).
template <Op op>
MURMEX_LANES_AVX2 Table build(const float* const* in, int nIn, int d, int x0, int columns, int lanes, int maxTap,
                              std::vector<float>& store)
{
    Table t;
    t.d = d;
    t.M = (lanes + maxTap / d + 7) / 8 * 8;
    t.colStride = d * t.M;
    store.resize(static_cast<size_t>(columns) * t.colStride);
    float* base = store.data();
    // Block b = p * (M / 8) + m0 / 8 holds input rows (m0 + q) * d + p, q = 0..7.
    const int blocks = t.colStride / 8;
    thread_local std::vector<const float*> src;
    src.resize(static_cast<size_t>(blocks) * 8);
    for (int p = 0; p < d; ++p)
        for (int m0 = 0; m0 < t.M; m0 += 8)
            for (int q = 0; q < 8; ++q) {
                const int i = (m0 + q) * d + p;
                src[static_cast<size_t>(p * t.M + m0 + q)] = i < nIn && in[i] ? in[i] + x0 : nullptr;
            }
    const __m256 zero = _mm256_setzero_ps();
    int c = 0;
    for (; c + 8 <= columns; c += 8)
        for (int b = 0; b < blocks; ++b) {
            const float* const* rows = src.data() + static_cast<size_t>(b) * 8;
            __m256 r[8];
            for (int q = 0; q < 8; ++q)
                r[q] = rows[q] ? apply8<op>(_mm256_loadu_ps(rows[q] + c)) : zero;
            transpose8(r);
            float* dst = base + static_cast<ptrdiff_t>(c) * t.colStride + b * 8;
            for (int q = 0; q < 8; ++q)
                _mm256_storeu_ps(dst + static_cast<ptrdiff_t>(q) * t.colStride, r[q]);
        }
    for (; c < columns; ++c)
        for (int b = 0; b < blocks; ++b) {
            const float* const* rows = src.data() + static_cast<size_t>(b) * 8;
            float* dst = base + static_cast<ptrdiff_t>(c) * t.colStride + b * 8;
            for (int q = 0; q < 8; ++q)
                dst[q] = rows[q] ? apply1<op>(rows[q][c]) : 0.0f;
        }
    t.data = base;
    return t;
}

// Pixel x0 + i of lane k is staged[i*stride + k] (stride a multiple of 8, at
// least n); writes it to outs[k][x0 + i] for the n lanes and i in
// 0..count-1. Blocks of 8 pixels by 8 lanes go through one transpose and
// leave as eight vector stores, where one store per pixel and lane would be
// the row's bottleneck.
MURMEX_LANES_AVX2 inline void writeRows(const float* staged, int stride, int x0, int count, float* const* outs,
                                        int n)
{
    int i = 0;
    for (; i + 8 <= count; i += 8)
        for (int k0 = 0; k0 < n; k0 += 8) {
            __m256 r[8];
            for (int q = 0; q < 8; ++q)
                r[q] = _mm256_loadu_ps(staged + static_cast<ptrdiff_t>(i + q) * stride + k0);
            transpose8(r);
            for (int q = 0; q < 8 && k0 + q < n; ++q)
                _mm256_storeu_ps(outs[k0 + q] + x0 + i, r[q]);
        }
    for (; i < count; ++i)
        for (int k = 0; k < n; ++k)
            outs[k][x0 + i] = staged[static_cast<ptrdiff_t>(i) * stride + k];
}

// The rows of side-by-side lanes that the Variance and VarianceStepAbs
// passes compute at once: four vectors of 8 lanes (AVX2) or two of 16
// (AVX-512). Blocks of 64 rows were faster for a node alone, but in the
// denoise driver they left their rows out of the cache before the shrink
// read them: the whole engine took about 10% longer.
constexpr int kMaxRows = 32;

// The operations the rows of lanes use, per instruction set: a vector of
// kWidth lanes (8 with AVX2, 16 with AVX-512), each operation one IEEE
// rounding per lane. Code written once over L is compiled per instruction
// set by including it inside MURMEX_TARGET_BEGIN with that set.
MURMEX_TARGET_BEGIN("avx2,fma")
namespace avx2 {
struct Lanes {
    using F = __m256;
    static constexpr int kWidth = 8;
    static F load(const float* p) { return _mm256_loadu_ps(p); }
    static void store(float* p, F v) { _mm256_storeu_ps(p, v); }
    static F set1(float f) { return _mm256_set1_ps(f); }
    static F zero() { return _mm256_setzero_ps(); }
    static F add(F a, F b) { return _mm256_add_ps(a, b); }
    static F sub(F a, F b) { return _mm256_sub_ps(a, b); }
    static F mul(F a, F b) { return _mm256_mul_ps(a, b); }
    static F div(F a, F b) { return _mm256_div_ps(a, b); }
    static F sqrt(F a) { return _mm256_sqrt_ps(a); }
    static F fmadd(F a, F b, F c) { return _mm256_fmadd_ps(a, b, c); }
};
}  // namespace avx2
MURMEX_TARGET_END

MURMEX_TARGET_BEGIN("avx512f,avx512dq,avx512bw,avx512vl,fma")
namespace avx512 {
struct Lanes {
    using F = __m512;
    static constexpr int kWidth = 16;
    static F load(const float* p) { return _mm512_loadu_ps(p); }
    static void store(float* p, F v) { _mm512_storeu_ps(p, v); }
    static F set1(float f) { return _mm512_set1_ps(f); }
    static F zero() { return _mm512_setzero_ps(); }
    static F add(F a, F b) { return _mm512_add_ps(a, b); }
    static F sub(F a, F b) { return _mm512_sub_ps(a, b); }
    static F mul(F a, F b) { return _mm512_mul_ps(a, b); }
    static F div(F a, F b) { return _mm512_div_ps(a, b); }
    // The all-lanes masked form is the plain instruction; GCC 12 warns about
    // the unmasked intrinsic's undefined pass-through operand.
    static F sqrt(F a) { return _mm512_maskz_sqrt_ps(static_cast<__mmask16>(0xffff), a); }
    static F fmadd(F a, F b, F c) { return _mm512_fmadd_ps(a, b, c); }
};
}  // namespace avx512
MURMEX_TARGET_END

}  // namespace lane_table
