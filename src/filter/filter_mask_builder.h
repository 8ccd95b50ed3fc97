// JFilterMaskBuilder: encodes float weight planes into a JFilterMask, for
// hosts and tests that need a mask. Each weight is quantised to the 6-bit
// level whose widened weight ((level << 2) | (level >> 4)) / 255 is nearest
// (the lower level on a tie; NaN counts as 0, weights outside 0..1 clamp),
// equal neighbours are merged into runs of at most 1023 pixels, and every
// encoded row ends with the terminator word 0. A row whose levels are all 0
// is stored as a null row.
#pragma once

#include <cstdint>
#include <vector>

#include "filter/filter_mask.h"

class JFilterMaskBuilder {
public:
    // The 6-bit level for a weight.
    static int levelFor(float weight);
    // The run words of one row of `width` weights; empty when every level is 0.
    static std::vector<uint16_t> encodeRow(const float* weights, int width);
    // A width x height mask from two row-major planes of width * height
    // weights; a null plane leaves that channel empty.
    static JFilterMask build(int width, int height, const float* lum, const float* chroma);
};
