// JNoiseFilterSample: one colour-selective entry of the filter settings. Its
// strength factors scale the channel strengths for the colours near it: its
// own colour and the colours of its list.
#pragma once

#include <vector>

#include "color/lab_coord.h"

class JNoiseFilterSample {
public:
    // Colour (0, 0, 0), every factor 1.0, no further colours.
    JNoiseFilterSample();
    // The given colour, every factor 1.0, no further colours.
    explicit JNoiseFilterSample(const JLabCoord& color);

    JLabCoord color;
    // Strength factor per channel (Y, Cr, Cb).
    float factor[3];
    // A second factor per channel: stored, copied and serialised (interleaved
    // with factor), read by nothing in the engine.
    float secondFactor[3];
    // Further colours that belong to this entry.
    std::vector<JLabCoord> colors;
};
