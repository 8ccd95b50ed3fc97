#include "color/pixel.h"

namespace {

// 1 or more gives 1; 0 or less gives 0. A NaN also gives 0, so that the
// conversion to an integer in fromYCrCb is always defined.
float clampUnit(float v)
{
    if (v >= 1.0f)
        return 1.0f;
    if (!(v > 0.0f))
        return 0.0f;
    return v;
}

uint16_t toSample(float v)
{
    return static_cast<uint16_t>(static_cast<int>(v * 65535.0f));
}

}  // namespace

void JPixel::rgbToYCrCb(float r, float g, float b, float& y, float& cr, float& cb)
{
    y = 0.2989f * r + 0.5866f * g + 0.1145f * b;
    const float crSum = 0.5f * r - 0.4183f * g - 0.0817f * b;
    const float cbSum = -0.1687f * r - 0.3312f * g + 0.5f * b;
    cr = static_cast<float>(static_cast<double>(crSum) + 0.5);
    cb = static_cast<float>(static_cast<double>(cbSum) + 0.5);
}

void JPixel::yCrCbToRGB(float y, float cr, float cb, float& r, float& g, float& b)
{
    const float crd = static_cast<float>(static_cast<double>(cr) - 0.5);
    const float cbd = static_cast<float>(static_cast<double>(cb) - 0.5);
    r = clampUnit(y + 1.4022f * crd);
    g = clampUnit(y - 0.7145f * crd - 0.3456f * cbd);
    b = clampUnit(y + 1.7710f * cbd);
}

void JPixel::toYCrCb(float& y, float& cr, float& cb) const
{
    rgbToYCrCb(static_cast<float>(red) / 65535.0f, static_cast<float>(green) / 65535.0f,
               static_cast<float>(blue) / 65535.0f, y, cr, cb);
}

void JPixel::fromYCrCb(float y, float cr, float cb)
{
    float r, g, b;
    yCrCbToRGB(y, cr, cb, r, g, b);
    red = toSample(r);
    green = toSample(g);
    blue = toSample(b);
    x = 65535;
}
