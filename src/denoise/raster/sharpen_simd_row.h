// The vector loop of JIncrRaster_Sharpen, written once for any vector width.
// L is a lane type of base/simd_lanes.h.
// This file has no include guard on purpose: sharpen_simd.cpp includes it
// once per instruction set, each time inside its own namespace and under a
// MURMEX_TARGET_BEGIN (base/simd_target.h).

// Pixels 0 .. x-1 of the row; returns x, the rest is left to the caller.
// taps points at tap 0 of taps -r .. r.
template <class L>
int sharpenRow(const float* v, const float* o, const float* taps, int r, float amount, bool limit, float* out, int n)
{
    using F = typename L::F;
    int x = 0;
    for (; x + L::kWidth <= n; x += L::kWidth) {
        F b = L::zero();
        for (int i = -r; i < r; ++i)
            b = L::add(b, L::mul(L::set1(taps[i]), L::load(v + x + i)));
        const F ov = L::load(o + x);
        F s = L::fmadd(L::set1(amount), L::sub(ov, b), b);
        if (limit) {
            const F d = L::min(L::sub(L::set1(1.0f), ov), ov);       // std::min(o, 1 - o)
            const F half = L::mul(L::set1(0.5f), d);
            s = L::min(L::add(ov, half), s);                           // std::min(s, hi)
            s = L::max(L::sub(ov, half), s);                           // std::max(s, lo)
        }
        L::store(out + x, s);
    }
    return x;
}
