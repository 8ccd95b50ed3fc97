// JNoiseSample: one measured uniform patch of an image: where it lies, its
// mean colour (L*a*b*, and YCrCb and RGB derived from it) and the strength of
// its noise in each YCrCb channel at each of five wavelet levels.
//
// noise[c][l] = mean |detail| of channel c at level l / 0.6875, where the
// mean covers the level's detail plane of the patch (last row and column left
// out). Level 0 is always measured; levels 1, 2, 3, 4 only when the patch's
// smaller side exceeds 14, 22, 38, 54 in turn. Unmeasured levels hold
// -1.0.
//
// A plain value: the fields lie in this order without gaps from rect to the
// noise table, the layout the host's noise-sample record copies.
#pragma once

#include <cstdint>

#include "base/image_adapter.h"
#include "base/rect.h"
#include "color/lab_coord.h"

namespace qtless {
class QDataStream;
}

class JNoiseSample {
public:
    static constexpr int kChannels = 3;
    static constexpr int kLevels = 5;
    // Scale from the mean absolute detail coefficient to the stored value.
    static constexpr float kMeanAbsDivisor = 0.6875f;
    // A level is measured when min(width, height) is above its threshold.
    static constexpr int kLevelThreshold[kLevels] = {0, 14, 22, 38, 54};

    // Flag 1, auxiliary 0, rect (0,0,0,0), colour means 0. The Lab colour and
    // the noise table carry no meaning until analyze or a read fills them;
    // they start as (0, 0, 0) and -1.0 (not measured) so that copying a fresh
    // sample never reads indeterminate values.
    JNoiseSample();

    // Measures the patch rect of image.
    void analyze(JImageAdapter* image, JRect<int>& rect);

    float getNoise(int c, int l) const { return noise[c][l]; }
    void setNoise(int c, int l, float v) { noise[c][l] = v; }

    // Set to 1 by the constructor and by analyze; no operation reads it.
    int32_t flag;
    // 0 after construction and after analyze; no operation reads it.
    float aux;
    JRect<int> rect;
    // Y, Cr, Cb and R, G, B of the mean colour, derived from lab.
    float ycrcb[3];
    float rgb[3];
    JLabCoord lab;
    float noise[kChannels][kLevels];

private:
    void measureChannel(JImageAdapter* region, int c);
};

// 18 floats: L, a, b, then noise[0][0..4], noise[1][0..4], noise[2][0..4].
// Reading recomputes the YCrCb and RGB means from the Lab colour; rect, flag
// and auxiliary value keep what the object held.
qtless::QDataStream& operator<<(qtless::QDataStream& s, const JNoiseSample& n);
qtless::QDataStream& operator>>(qtless::QDataStream& s, JNoiseSample& n);
