// JLabCoord: a CIE L*a*b* coordinate (D65 white, Rec. 709 primaries), used to
// place noise samples and palette colours in colour space.
//
// RGB -> Lab: a pure power law r^2.2 (no linear segment near black), the
// Rec. 709 matrix to XYZ, then L = 116 y^(1/3) - 16 (903.3 y at or below
// 0.008856), a = 500 (f(x) - f(y)), b = 200 (f(y) - f(z)).
// Lab -> RGB: the inverse, clamped to 0..1, then the display gamma 1/2.2.
// All in single precision, left to right, except the steps of Lab -> XYZ that
// are marked double.
#pragma once

#include "color/pixel.h"

class JLabCoord {
public:
    // Deliberately leaves the fields uninitialised.
    JLabCoord() {}
    JLabCoord(float L, float a, float b) : L(L), a(a), b(b) {}
    JLabCoord(const JLabCoord&) = default;
    JLabCoord& operator=(const JLabCoord&) = default;

    // Exact float equality of L, then a, then b: -0 equals 0, NaN never equals.
    bool operator==(const JLabCoord& o) const;

    // r, g, b in 0..1.
    void fromRGB(float r, float g, float b);
    // Each channel in 0..1, never outside.
    void toRGB(float& r, float& g, float& b) const;
    // toRGB, then the RGB -> YCrCb transform of JPixel.
    void toYCrCb(float& y, float& cr, float& cb) const;
    // Each channel times 1.5259022e-05, then fromRGB. This multiplies by the
    // rounded reciprocal where JPixel::toYCrCb divides by 65535; both kept.
    void fromPixel(const JPixel& p);

    // CIE 1976 difference: sqrtf(dL*dL + da*da + db*db), each difference o - this.
    float deltaE(const JLabCoord& o) const;
    // The same sum without the square root, for orderings and thresholds.
    float deltaESqr(const JLabCoord& o) const;

    float L;
    float a;
    float b;
};
