// JIncrRaster_Constant: a plane whose every pixel is one value (the driver's
// neutral chroma plane of 0.5).
//   out[x] = value
// One shared row serves every row index: getScanline returns the same pointer
// for any row, inside the raster or not, and nothing is ever computed, cached
// or pooled. The row has width + 4 floats and no margins, whatever a consumer
// asks for with requestReflection: a consumer must not read left of pixel 0 or
// beyond pixel width + 3.
#pragma once

#include <memory>

#include "denoise/raster/incr_raster.h"

class JIncrRaster_Constant : public JIncrRaster {
public:
    JIncrRaster_Constant(float value, int width, int height);

    void refInputs(int row) override;
    float* getScanline(int row) override;

private:
    std::unique_ptr<float[]> buffer_;
    float* data_;
    int length_;
};
