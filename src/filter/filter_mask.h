// JFilterMask: where the filter acts, as a weight 0..1 per pixel for the
// luminance channel and another for the chroma channels. Rows are run-length
// encoded, one table per channel; a null (empty) row means weight 0 along it.
//
// Encoded row: 16-bit run words from column 0, without gaps, ended by a word
// below 64 (run length 0). Run length = word >> 6 (1..1023 pixels); level =
// word & 63, widened to 8 bits as level8 = (level << 2) | (level >> 4), weight
// = level8 / 255.0f, so level 63 is exactly 1 and level 0 is 0.
#pragma once

#include <cstdint>
#include <vector>

class JFilterMask {
public:
    // A mask of no rows (empty on both channels).
    JFilterMask();
    // width x height, every row null.
    JFilterMask(int width, int height);

    int width() const { return width_; }
    int height() const { return height_; }

    // Installs the run words of a row; an empty vector makes the row null.
    // Throw JEx for a row outside the mask.
    void setLumRow(int row, std::vector<uint16_t> words);
    void setChromaRow(int row, std::vector<uint16_t> words);

    // True when every row of the channel is null (so for a mask of height 0).
    bool isLumEmpty() const;
    bool isChromaEmpty() const;
    // True when that row is null. Throw JEx for a row outside the mask.
    bool isLumEmpty(int row) const;
    bool isChromaEmpty(int row) const;

    // Weights of columns x0..x1 (inclusive) of the row into out[0 .. x1 - x0].
    // Columns and rows outside the mask read 0. Where the row's runs end
    // before x1, the remaining outputs are left as they were.
    void getLumScanline(int row, int x0, int x1, float* out) const;
    void getChromaScanline(int row, int x0, int x1, float* out) const;

    // The weight of a 6-bit level: ((level << 2) | (level >> 4)) / 255.0f.
    static float levelWeight(int level)
    {
        return static_cast<float>((level << 2) | (level >> 4)) / 255.0f;
    }

private:
    using Rows = std::vector<std::vector<uint16_t>>;

    void readScanline(const Rows& rows, int row, int x0, int x1, float* out) const;
    void checkRow(int row) const;

    Rows lumRows_;
    Rows chromaRows_;
    int width_;
    int height_;
};
