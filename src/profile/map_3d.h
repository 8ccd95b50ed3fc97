// J3DMap: a dense 8 x 8 x 8 grid over the unit cube (Y, Cr, Cb in the profile),
// 512 values and 512 counts; cell (i, j, k) has index i*64 + j*8 + k.
//
// Cell of a coordinate: (int)(c * 7.999f), truncated toward zero, saturating
// (NaN gives INT_MIN), then AND 7, so values outside [0, 1] wrap by their low
// bits instead of clamping. Empty cells are filled in endSampling with the
// inverse-square-distance mean of the measured ones, weights and sums in double:
//   w = 1 / (di*di + dj*dj + dk*dk + 1e-6), di = (i - i') * 0.125
//   value = (float)((sum w*value) / max(sum w, 1e-38))
#pragma once

#include <cstdint>
#include <immintrin.h>

class J3DMap {
public:
    static constexpr int kCells = 512;

    // All values and counts 0.
    J3DMap();
    void clear();
    void beginSampling();

    // Cell of (x, y, z): value += v, count += 1.
    void addSample(float x, float y, float z, float v);
    // Divides sums by counts, then fills the cells without samples.
    void endSampling();

    // Value of the cell of (x, y, z); no interpolation between cells.
    float lookup(float x, float y, float z) const { return values_[indexOf(x, y, z)]; }
    // Whether the cell of (x, y, z) has a count above 0; after endSampling,
    // whether it was measured rather than filled.
    bool hasSample(float x, float y, float z) const { return counts_[indexOf(x, y, z)] > 0; }

    int cellCount() const { return kCells; }
    // Raw access by index; throw JEx outside 0..511.
    float getCellValue(int index) const;
    void setCellValue(int index, float value);
    int getCellCount(int index) const;
    // The 512 values in index order, for vector paths that gather from them.
    const float* cellValues() const { return values_; }

    // Cell coordinate 0..7 of one coordinate value.
    static int cellCoord(float c);
    // Cell index of a point.
    static int indexOf(float x, float y, float z)
    {
        return cellCoord(x) * 64 + cellCoord(y) * 8 + cellCoord(z);
    }
    // Cell indices of four points at once, lane by lane the same as indexOf.
    static __m128i indexOf_SIMD(__m128 x, __m128 y, __m128 z);

private:
    float values_[kCells];
    int32_t counts_[kCells];
};

inline int J3DMap::cellCoord(float c)
{
    const float s = c * 7.999f;
    int i;
    // A plain cast is undefined outside the int range; saturate as the
    // hardware conversion of the vector path does, but with large positive
    // values going to INT_MAX (and so to cell 7).
    if (s != s)
        i = INT32_MIN;
    else if (s >= 2147483648.0f)
        i = INT32_MAX;
    else if (s < -2147483648.0f)
        i = INT32_MIN;
    else
        i = static_cast<int>(s);
    return i & 7;
}
