// The vector steps and rows of the directed blur, written once for any
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

// One vector step's ring: the eight ring values (NW, N, NE, W, E, SW, S, SE),
// their distances from the centre, and the threshold from the flattest of the
// four lines.
template <class L>
struct Ring {
    typename L::F v[8], dv[8], T;
};

// The steps are inlined into the rows, where their vectors stay in registers.
template <class L, bool Tail>
inline __attribute__((always_inline)) void ringOf(const float* const* r, int s, int x, typename L::Mask mask, Ring<L>& ring)
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
    F* v = ring.v;
    F* dv = ring.dv;
    v[0] = load(r1 - s), v[1] = load(r1), v[2] = load(r1 + s);
    v[3] = load(r2 - s), v[4] = load(r2 + s);
    v[5] = load(r3 - s), v[6] = load(r3), v[7] = load(r3 + s);
    for (int i = 0; i < 8; ++i)
        dv[i] = L::absDiff(v[i], c);

    // Directional sums over k = -2, -1, 0, +1, +2.
    F a = L::absDiff(load(r0 - s2), c);
    a = L::add(L::add(L::add(a, dv[0]), zero), dv[7]);
    a = L::add(a, L::absDiff(load(r4 + s2), c));
    F b = L::absDiff(load(r2 - s2), c);
    b = L::add(L::add(L::add(b, dv[3]), zero), dv[4]);
    b = L::add(b, L::absDiff(load(r2 + s2), c));
    F cc = L::absDiff(load(r0 + s2), c);
    cc = L::add(L::add(L::add(cc, dv[2]), zero), dv[5]);
    cc = L::add(cc, L::absDiff(load(r4 - s2), c));
    F d = L::absDiff(load(r0), c);
    d = L::add(L::add(L::add(d, dv[1]), zero), dv[6]);
    d = L::add(d, L::absDiff(load(r4), c));

    F m = a;
    m = L::min(cc, m);
    m = L::min(b, m);
    m = L::min(d, m);
    const F t = L::mul(m, L::set1(0.2f));
    ring.T = L::fmadd(t, L::set1(1.27f), L::set1(1e-10f));
}

// The weighted mean of a step's ring, stored at out + x.
template <class L, bool Tail>
inline __attribute__((always_inline)) void weightedMean(const Ring<L>& ring, int x, typename L::Mask mask, float* out)
{
    typename L::F num = L::zero();
    typename L::F den = L::set1(1e-10f);
    for (int i = 0; i < 8; ++i)
        tap<L>(ring.v[i], ring.dv[i], ring.T, num, den);
    L::template store<Tail>(out + x, mask, L::div(num, den));
}

template <class L, bool Tail>
inline __attribute__((always_inline)) void blurStep(const float* const* r, int s, int x, typename L::Mask mask, float* out)
{
    Ring<L> ring;
    ringOf<L, Tail>(r, s, x, mask, ring);
    weightedMean<L, Tail>(ring, x, mask, out);
}

// A row step by step.
template <class L>
void blurRow(const float* const* r, int s, int width, float* out)
{
    int x = 0;
    for (; x + L::kWidth <= width; x += L::kWidth)
        blurStep<L, false>(r, s, x, L::tailMask(L::kWidth), out);
    if (x < width)
        blurStep<L, true>(r, s, x, L::tailMask(width - x), out);
}

// The same row one step ahead. Every division of a step waits for its
// threshold, the end of a long chain of dependent operations; here the next
// step's ring and threshold are computed before this step's weights, so that
// the chain runs while the divider works through the weights. Two rings live
// in registers at once, which needs the 32 vector registers of AVX-512.
template <class L>
void blurRowAhead(const float* const* r, int s, int width, float* out)
{
    constexpr int W = L::kWidth;
    const typename L::Mask full = L::tailMask(W);
    int x = 0;
    if (width >= W) {
        Ring<L> ring;
        ringOf<L, false>(r, s, 0, full, ring);
        for (x = W; x + W <= width; x += W) {
            Ring<L> next;
            ringOf<L, false>(r, s, x, full, next);
            weightedMean<L, false>(ring, x - W, full, out);
            ring = next;
        }
        weightedMean<L, false>(ring, x - W, full, out);
    }
    if (x < width)
        blurStep<L, true>(r, s, x, L::tailMask(width - x), out);
}
