// Vector rows of JPixelRect::loadYCrCb: pixels 0 .. x-1 of a row converted as
// JPixel::toYCrCb converts them, bit for bit, into the three planes; each
// returns x, the pixels it did (a multiple of its width), leaving the rest to
// the caller. Only for a processor with the named instruction set.
#pragma once

#include "color/pixel.h"

namespace pixel_rect_simd {

int toYCrCbAVX512(const JPixel* px, float* y, float* cr, float* cb, int n);
int toYCrCbAVX2(const JPixel* px, float* y, float* cr, float* cb, int n);

}  // namespace pixel_rect_simd
