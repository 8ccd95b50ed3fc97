// The vector loop of JIncrRaster_RGBXToYCrCb, written once for any vector
// width. L is a lane type of color/rgbx_simd.h (its fnmadd(a, b, c) is
// fmaf(-a, b, c), its plusHalf adds 0.5 in double) with one more operation:
//   L::loadRGB(in, r, g, b)  the red, green and blue floats of L::kWidth
//                            RGBX pixels at in, in the lane order that
//                            L::store puts back into pixel order
// This file has no include guard on purpose: rgbx_to_ycrcb_simd.cpp includes
// it once per instruction set, each time inside its own namespace and under a
// MURMEX_TARGET_BEGIN (base/simd_target.h).

// Pixels 0 .. x-1 of the row; returns x, the rest is left to the caller.
template <class L>
int convertRow(const float* in, float* out, int n, JImageLib::YCrCbIndex channel)
{
    using F = typename L::F;
    int x = 0;
    for (; x + L::kWidth <= n; x += L::kWidth) {
        F r, g, b;
        L::loadRGB(in + 4 * x, r, g, b);
        F v;
        if (channel == JImageLib::Y)
            v = L::fmadd(b, L::set1(0.1145f), L::fmadd(r, L::set1(0.2989f), L::mul(g, L::set1(0.5866f))));
        else if (channel == JImageLib::Cr)
            v = L::plusHalf(L::fnmadd(b, L::set1(0.0817f), L::fnmadd(g, L::set1(0.4183f), L::mul(r, L::set1(0.5f)))));
        else
            v = L::plusHalf(L::fmadd(b, L::set1(0.5f), L::fnmadd(g, L::set1(0.3312f), L::mul(r, L::set1(-0.1687f)))));
        L::store(out + x, v);
    }
    return x;
}
