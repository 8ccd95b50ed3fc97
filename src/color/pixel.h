// JPixel: one 16-bit RGBX pixel as image adapters deliver it (full scale
// 65535), with its conversions to and from YCrCb.
//
// RGB -> YCrCb (single precision, each product and sum rounded, left to right;
// the 0.5 offsets added in double and the sum rounded to float):
//   Y  = (0.2989 r + 0.5866 g) + 0.1145 b
//   Cr = ((0.5 r - 0.4183 g) - 0.0817 b) + 0.5
//   Cb = ((-0.1687 r - 0.3312 g) + 0.5 b) + 0.5
// YCrCb -> RGB, with cr' = cr - 0.5 and cb' = cb - 0.5 in double, rounded:
//   r = y + 1.4022 cr';  g = (y - 0.7145 cr') - 0.3456 cb';  b = y + 1.7710 cb'
// then clamped to 0..1. The inverse coefficients are deliberately not the
// exact inverse of the forward ones, so a round trip is not exact.
#pragma once

#include <cstdint>

struct JPixel {
    uint16_t red;
    uint16_t green;
    uint16_t blue;
    uint16_t x;  // fourth channel; never read by a conversion

    // Each channel divided by 65535 in single precision, then RGB -> YCrCb.
    void toYCrCb(float& y, float& cr, float& cb) const;
    // YCrCb -> RGB (clamped), each channel times 65535 in single precision and
    // truncated toward zero: never rounded up, deliberately. Sets x to 65535.
    void fromYCrCb(float y, float cr, float cb);

    // The two transforms; JLabCoord shares the first. rgbToYCrCb does not
    // clamp, yCrCbToRGB clamps its results to 0..1.
    static void rgbToYCrCb(float r, float g, float b, float& y, float& cr, float& cb);
    static void yCrCbToRGB(float y, float cr, float cb, float& r, float& g, float& b);
};

// Scanlines are arrays of JPixel handed to adapters as unsigned short*.
static_assert(sizeof(JPixel) == 8, "JPixel must be four packed 16-bit samples");
