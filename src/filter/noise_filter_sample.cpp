#include "filter/noise_filter_sample.h"

JNoiseFilterSample::JNoiseFilterSample() : JNoiseFilterSample(JLabCoord(0.0f, 0.0f, 0.0f)) {}

JNoiseFilterSample::JNoiseFilterSample(const JLabCoord& color) : color(color)
{
    for (int ch = 0; ch < 3; ch++) {
        factor[ch] = 1.0f;
        secondFactor[ch] = 1.0f;
    }
}
