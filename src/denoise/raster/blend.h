// JIncrRaster_Blend: mixes two planes by a mask plane.
//   out[x] = fmaf(mask[x], a[x], (1 - mask[x]) * b[x])
// i.e. (1 - mask) and its product with b are rounded to float, then mask*a is
// fused onto that product with one rounding. Width and height are those of a.
// The vector path gives the same rows.
#pragma once

#include "denoise/raster/incr_raster.h"

class JIncrRaster_Blend : public JIncrRaster {
public:
    JIncrRaster_Blend(JIncrRaster& a, JIncrRaster& b, JIncrRaster& mask);

    void computeScanline(int row, float* out) override;
    void refInputs(int row) override;
    virtual void computeScanline_SIMD(int row, float* out);

private:
    JIncrRaster& a_;
    JIncrRaster& b_;
    JIncrRaster& mask_;
};
