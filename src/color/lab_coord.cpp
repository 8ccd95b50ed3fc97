#include "color/lab_coord.h"

#include <cmath>

namespace {

// White point (0.950456, 1.0, 1.088754), applied as these reciprocals.
constexpr float kXnInv = 1.0521265f;
constexpr float kZnInv = 0.9184811f;
// The strict threshold between the cube-root and the linear segment: a value
// equal to it takes the linear one.
constexpr float kEpsilon = 0.008856f;
constexpr float kThird = 0.33333334f;

struct XYZ {
    float X;
    float Y;
    float Z;
};

XYZ rgbToXYZ(float r, float g, float b)
{
    const float rl = powf(r, 2.2f);
    const float gl = powf(g, 2.2f);
    const float bl = powf(b, 2.2f);
    return XYZ{0.412453f * rl + 0.357580f * gl + 0.180423f * bl,
               0.212671f * rl + 0.715160f * gl + 0.072169f * bl,
               0.019334f * rl + 0.119193f * gl + 0.950227f * bl};
}

float labF(float t)
{
    if (t > kEpsilon)
        return powf(t, kThird);
    return 7.787f * t + 0.13793103f;
}

JLabCoord xyzToLab(const XYZ& c)
{
    const float x = c.X * kXnInv;
    const float y = c.Y;
    const float z = c.Z * kZnInv;
    const float L = y > kEpsilon ? 116.0f * powf(y, kThird) - 16.0f : 903.3f * y;
    const float fy = labF(y);
    return JLabCoord(L, 500.0f * (labF(x) - fy), 200.0f * (fy - labF(z)));
}

// One of X and Z from its f value (double) and its white component. The
// branch is chosen on the linear candidate, deliberately, not on f itself.
float fromF(double f, double white, float whiteInv)
{
    const float linear = static_cast<float>((f - 16.0 / 116.0) * white * 0.12841916);
    if (linear * whiteInv > kEpsilon) {
        const float fs = static_cast<float>(f);
        const float cube = fs * fs * fs;
        return static_cast<float>(static_cast<double>(cube) * white);
    }
    return linear;
}

XYZ labToXYZ(float L, float a, float b)
{
    float Y;
    if (L > 8.0f) {
        const float t = (L + 16.0f) * 0.0086206896f;
        Y = t * t * t;
    } else {
        Y = L * 0.0011070520f;
    }
    // fy comes from Y, not from (L + 16) / 116.
    const float fy = Y > kEpsilon ? powf(Y, kThird) : 7.787f * Y + 0.13793103f;
    const double fx = static_cast<double>(fy) + static_cast<double>(a) * 0.002;
    const double fz = static_cast<double>(fy) - static_cast<double>(b) * 0.005;
    return XYZ{fromF(fx, 0.950456, kXnInv), Y, fromF(fz, 1.088754, kZnInv)};
}

float clampUnit(float v)
{
    if (v >= 1.0f)
        return 1.0f;
    if (!(v > 0.0f))
        return 0.0f;
    return v;
}

void xyzToRGB(const XYZ& c, float& r, float& g, float& b)
{
    r = clampUnit(3.240479f * c.X - 1.537150f * c.Y - 0.498535f * c.Z);
    g = clampUnit(-0.969256f * c.X + 1.875992f * c.Y + 0.041556f * c.Z);
    b = clampUnit(0.055648f * c.X - 0.204043f * c.Y + 1.057311f * c.Z);
    r = powf(r, 0.45454544f);
    g = powf(g, 0.45454544f);
    b = powf(b, 0.45454544f);
}

}  // namespace

bool JLabCoord::operator==(const JLabCoord& o) const
{
    return L == o.L && a == o.a && b == o.b;
}

void JLabCoord::fromRGB(float r, float g, float bl)
{
    *this = xyzToLab(rgbToXYZ(r, g, bl));
}

void JLabCoord::toRGB(float& r, float& g, float& bl) const
{
    xyzToRGB(labToXYZ(L, a, b), r, g, bl);
}

void JLabCoord::toYCrCb(float& y, float& cr, float& cb) const
{
    float r, g, bl;
    toRGB(r, g, bl);
    JPixel::rgbToYCrCb(r, g, bl, y, cr, cb);
}

void JLabCoord::fromPixel(const JPixel& p)
{
    fromRGB(static_cast<float>(p.red) * 1.5259022e-05f, static_cast<float>(p.green) * 1.5259022e-05f,
            static_cast<float>(p.blue) * 1.5259022e-05f);
}

float JLabCoord::deltaE(const JLabCoord& o) const
{
    return sqrtf(deltaESqr(o));
}

float JLabCoord::deltaESqr(const JLabCoord& o) const
{
    const float dL = o.L - L;
    const float da = o.a - a;
    const float db = o.b - b;
    return dL * dL + da * da + db * db;
}
