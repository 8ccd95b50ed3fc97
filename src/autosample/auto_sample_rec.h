// JAutoSampleRec: one square patch found by the auto sampler, either a
// candidate kept in the sample index or the patch chosen for a palette slot.
#pragma once

#include "base/rect.h"
#include "color/lab_coord.h"

struct JAutoSampleRec {
    // The patch in image pixels; right and bottom exclusive.
    JRect<int> rect;
    // Mean colour of the patch.
    JLabCoord lab{0.0f, 0.0f, 0.0f};
    // Uniformity score of the Y channel divided by the patch's area in blocks;
    // smaller is flatter.
    float score = 0.0f;
    // Mean of the 8x8-block variances of Y over the patch: the noise it shows.
    float yVariance = 0.0f;
    // 1 when the record holds a patch, 0 for an empty palette slot.
    int valid = 0;
    // Chain links of the index's spatial and colour tables.
    JAutoSampleRec* nextSpatial = nullptr;
    JAutoSampleRec* nextColour = nullptr;
};
