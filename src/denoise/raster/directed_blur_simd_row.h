// One vector step and one row of the directed blur, written once for any
// vector width. L is a lane type that wraps one instruction set's intrinsics:
//   L::F          a vector of L::kWidth floats; L::Mask, the tail mask
//   L::load<Tail>(p, mask), L::store<Tail>(p, mask, v), L::set1(f), L::zero()
//   L::add, L::mul, L::div, L::min, L::max, L::absDiff, L::fmadd
//   L::tailMask(count)  lanes 0 .. count-1
// This file has no include guard on purpose: directed_blur_simd.cpp includes
// it once per instruction set, each time inside its own namespace and under
// MURMEX_TARGET_BEGIN (base/simd_target.h), so that both instances compile for their own unit (a
// function without the target attribute cannot inline the intrinsics).

// One ring tap: w = 1 / max(T, d); num += w * v (rounded product); den += w.
template <class L>
inline void tap(typename L::F v, typename L::F dv, typename L::F T, typename L::F& num, typename L::F& den)
{
    const typename L::F w = L::div(L::set1(1.0f), L::max(T, dv));
    num = L::add(num, L::mul(w, v));
    den = L::add(den, w);
}

template <class L, bool Tail>
inline void blurStep(const float* const* r, int s, int x, typename L::Mask mask, float* out)
{
    using F = typename L::F;
    const float* r0 = r[0] + x;
    const float* r1 = r[1] + x;
    const float* r2 = r[2] + x;
    const float* r3 = r[3] + x;
    const float* r4 = r[4] + x;
    const int s2 = 2 * s;
    const auto load = [mask](const float* p) { return L::template load<Tail>(p, mask); };

    const F c = load(r2);
    const F zero = L::absDiff(c, c);

    // Ring taps (distance s), which are also the inner taps of the four lines.
    const F vNW = load(r1 - s), vN = load(r1), vNE = load(r1 + s);
    const F vW = load(r2 - s), vE = load(r2 + s);
    const F vSW = load(r3 - s), vS = load(r3), vSE = load(r3 + s);
    const F dNW = L::absDiff(vNW, c), dN = L::absDiff(vN, c), dNE = L::absDiff(vNE, c);
    const F dW = L::absDiff(vW, c), dE = L::absDiff(vE, c);
    const F dSW = L::absDiff(vSW, c), dS = L::absDiff(vS, c), dSE = L::absDiff(vSE, c);

    // Directional sums over k = -2, -1, 0, +1, +2.
    F a = L::absDiff(load(r0 - s2), c);
    a = L::add(L::add(L::add(a, dNW), zero), dSE);
    a = L::add(a, L::absDiff(load(r4 + s2), c));
    F b = L::absDiff(load(r2 - s2), c);
    b = L::add(L::add(L::add(b, dW), zero), dE);
    b = L::add(b, L::absDiff(load(r2 + s2), c));
    F cc = L::absDiff(load(r0 + s2), c);
    cc = L::add(L::add(L::add(cc, dNE), zero), dSW);
    cc = L::add(cc, L::absDiff(load(r4 - s2), c));
    F d = L::absDiff(load(r0), c);
    d = L::add(L::add(L::add(d, dN), zero), dS);
    d = L::add(d, L::absDiff(load(r4), c));

    F m = a;
    m = L::min(cc, m);
    m = L::min(b, m);
    m = L::min(d, m);
    const F t = L::mul(m, L::set1(0.2f));
    const F T = L::fmadd(t, L::set1(1.27f), L::set1(1e-10f));

    F num = L::zero();
    F den = L::set1(1e-10f);
    tap<L>(vNW, dNW, T, num, den);
    tap<L>(vN, dN, T, num, den);
    tap<L>(vNE, dNE, T, num, den);
    tap<L>(vW, dW, T, num, den);
    tap<L>(vE, dE, T, num, den);
    tap<L>(vSW, dSW, T, num, den);
    tap<L>(vS, dS, T, num, den);
    tap<L>(vSE, dSE, T, num, den);
    L::template store<Tail>(out + x, mask, L::div(num, den));
}

template <class L>
void blurRow(const float* const* r, int s, int width, float* out)
{
    int x = 0;
    for (; x + L::kWidth <= width; x += L::kWidth)
        blurStep<L, false>(r, s, x, L::tailMask(L::kWidth), out);
    if (x < width)
        blurStep<L, true>(r, s, x, L::tailMask(width - x), out);
}
