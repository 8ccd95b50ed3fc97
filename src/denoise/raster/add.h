// JIncrRaster_Add: the pixel-wise sum of two planes.
//   out[x] = a[x] + b[x]
// Width and height are those of a. The vector path gives the same rows.
#pragma once

#include "denoise/raster/incr_raster.h"

class JIncrRaster_Add : public JIncrRaster {
public:
    JIncrRaster_Add(JIncrRaster& a, JIncrRaster& b);

    void computeScanline(int row, float* out) override;
    void refInputs(int row) override;
    virtual void computeScanline_SIMD(int row, float* out);

private:
    JIncrRaster& a_;
    JIncrRaster& b_;
};
