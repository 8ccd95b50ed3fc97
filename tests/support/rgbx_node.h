// A source node for tests: an RGBX JIncrRaster (data type 1, four floats per
// pixel) whose rows are copied from memory (row-major, width * height * 4
// floats). Unlike an adapter it can hold any float, negatives and values
// above 1 included.
#pragma once

#include <cstdint>
#include <vector>

#include "denoise/raster/incr_raster.h"

namespace murmex_test {

class RGBXNode : public JIncrRaster {
public:
    RGBXNode(int width, int height, std::vector<float> pixels);

    void computeScanline(int row, float* out) override;
    // A source node has no inputs.
    void refInputs(int row) override;

    // Channel c (0 red, 1 green, 2 blue, 3 x) of pixel (x, y).
    float at(int x, int y, int c) const { return pixels_[(static_cast<size_t>(y) * width() + x) * 4 + c]; }

private:
    std::vector<float> pixels_;
};

// width * height RGBX pixels, each channel from mixedPlane's mix of values
// near 0 and 1, negatives and ordinary values, from a fixed seed.
std::vector<float> mixedRGBX(int width, int height, uint32_t seed);

}  // namespace murmex_test
