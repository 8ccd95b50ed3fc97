// The vector loop of JPixelRect::loadYCrCb, written once for any vector
// width. L is a lane type of color/rgbx_simd.h with one more operation:
//   L::loadPixels(px, r, g, b)  the samples of L::kWidth pixels as floats,
//                               in the lane order that L::store puts back
//                               into pixel order
// This file has no include guard on purpose: pixel_rect_simd.cpp includes it
// once per instruction set, each time inside its own namespace and under a
// MURMEX_TARGET_BEGIN (base/simd_target.h).

// Pixels 0 .. x-1 of the row; returns x, the rest is left to the caller.
template <class L>
int toYCrCbRow(const JPixel* px, float* y, float* cr, float* cb, int n)
{
    using F = typename L::F;
    const F full = L::set1(65535.0f);
    int x = 0;
    for (; x + L::kWidth <= n; x += L::kWidth) {
        F r, g, b;
        L::loadPixels(px + x, r, g, b);
        r = L::div(r, full);
        g = L::div(g, full);
        b = L::div(b, full);
        const F yv = L::add(L::add(L::mul(L::set1(0.2989f), r), L::mul(L::set1(0.5866f), g)),
                            L::mul(L::set1(0.1145f), b));
        const F crSum = L::sub(L::sub(L::mul(L::set1(0.5f), r), L::mul(L::set1(0.4183f), g)),
                               L::mul(L::set1(0.0817f), b));
        const F cbSum = L::add(L::sub(L::mul(L::set1(-0.1687f), r), L::mul(L::set1(0.3312f), g)),
                               L::mul(L::set1(0.5f), b));
        L::store(y + x, yv);
        L::store(cr + x, L::plusHalf(crSum));
        L::store(cb + x, L::plusHalf(cbSum));
    }
    return x;
}
