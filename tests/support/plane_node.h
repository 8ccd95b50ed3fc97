// A source node for tests: a single-channel JIncrRaster whose rows are copied
// from a plane held in memory (row-major, width * height floats). It counts
// how often each row was computed, so tests can check caching and release.
#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "denoise/raster/incr_raster.h"

namespace murmex_test {

class PlaneNode : public JIncrRaster {
public:
    PlaneNode(int width, int height, std::vector<float> plane);
    // A plane with every pixel set to value.
    PlaneNode(int width, int height, float value);

    void computeScanline(int row, float* out) override;
    // A source node has no inputs.
    void refInputs(int row) override;

    // Times row `row` (0..height-1) was computed.
    int computeCount(int row) const;
    // Times any row was computed.
    int totalComputes() const;
    // Pixel (x, y) of the plane, 0 <= x < width, 0 <= y < height.
    float at(int x, int y) const { return plane_[static_cast<size_t>(y) * width() + x]; }
    const std::vector<float>& plane() const { return plane_; }

private:
    std::vector<float> plane_;
    std::unique_ptr<std::atomic<int>[]> computed_;
};

}  // namespace murmex_test
