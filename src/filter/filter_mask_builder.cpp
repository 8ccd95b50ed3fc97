#include "filter/filter_mask_builder.h"

#include <cmath>

int JFilterMaskBuilder::levelFor(float weight)
{
    if (!(weight > 0.0f))
        return 0;
    if (weight >= 1.0f)
        return 63;
    int best = 0;
    float bestError = std::fabs(JFilterMask::levelWeight(0) - weight);
    for (int level = 1; level < 64; ++level) {
        const float error = std::fabs(JFilterMask::levelWeight(level) - weight);
        if (error < bestError) {
            bestError = error;
            best = level;
        }
    }
    return best;
}

std::vector<uint16_t> JFilterMaskBuilder::encodeRow(const float* weights, int width)
{
    std::vector<uint16_t> words;
    bool any = false;
    int x = 0;
    while (x < width) {
        const int level = levelFor(weights[x]);
        any = any || level != 0;
        int length = 1;
        while (length < 1023 && x + length < width && levelFor(weights[x + length]) == level)
            ++length;
        words.push_back(static_cast<uint16_t>((length << 6) | level));
        x += length;
    }
    if (!any)
        return {};
    words.push_back(0);
    return words;
}

JFilterMask JFilterMaskBuilder::build(int width, int height, const float* lum, const float* chroma)
{
    JFilterMask mask(width, height);
    for (int y = 0; y < height; ++y) {
        const size_t offset = static_cast<size_t>(y) * static_cast<size_t>(width);
        if (lum)
            mask.setLumRow(y, encodeRow(lum + offset, width));
        if (chroma)
            mask.setChromaRow(y, encodeRow(chroma + offset, width));
    }
    return mask;
}
