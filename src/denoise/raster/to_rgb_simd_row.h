// The vector loop of JIncrRaster_ToRGB, written once for any vector width. L
// is a lane type that wraps one instruction set's intrinsics:
//   L::F, L::I    vectors of L::kWidth floats and of L::kWidth 32-bit integers
//   L::load(p), L::set1(f), L::add, L::sub, L::mul on L::F
//   L::minusHalf(v)   v - 0.5 in double, rounded back to float
//   L::sample(v)      v clamped to 0 .. 1, times 65535, truncated
//   L::orI(a, b), L::shiftLeft16(a), L::set1I(i) on L::I
//   L::storePixels(px, rg, bx)  interleaves the R|G<<16 and B|X<<16 words
//                               into L::kWidth JPixels at px
// This file has no include guard on purpose: to_rgb_simd.cpp includes it once
// per instruction set, each time inside its own namespace and under a
// MURMEX_TARGET_BEGIN (base/simd_target.h), so that each instance compiles for its own unit (a
// function without the target attribute cannot inline the intrinsics).

// Pixels 0 .. x-1 of the row; returns x, the rest is left to the caller.
template <class L>
int toRGBRow(const float* y, const float* cr, const float* cb, JPixel* px, int n)
{
    using F = typename L::F;
    using I = typename L::I;
    const I xFull = L::set1I(static_cast<int>(0xFFFF0000u));
    int x = 0;
    for (; x + L::kWidth <= n; x += L::kWidth) {
        const F yv = L::load(y + x);
        const F crd = L::minusHalf(L::load(cr + x));
        const F cbd = L::minusHalf(L::load(cb + x));
        const F r = L::add(yv, L::mul(L::set1(1.4022f), crd));
        const F g = L::sub(L::sub(yv, L::mul(L::set1(0.7145f), crd)), L::mul(L::set1(0.3456f), cbd));
        const F b = L::add(yv, L::mul(L::set1(1.7710f), cbd));
        const I rg = L::orI(L::sample(r), L::shiftLeft16(L::sample(g)));
        const I bx = L::orI(L::sample(b), xFull);
        L::storePixels(px + x, rg, bx);
    }
    return x;
}
