// JIncrRaster_Enhance: the difference of two planes, amplified.
//   out[x] = factor * (a[x] - b[x])   (the difference rounded, then the product)
// Width and height are those of a. A complete node that the pipeline does not
// build at present.
#pragma once

#include "denoise/raster/incr_raster.h"

class JIncrRaster_Enhance : public JIncrRaster {
public:
    JIncrRaster_Enhance(JIncrRaster& a, JIncrRaster& b, float factor);

    void computeScanline(int row, float* out) override;
    void refInputs(int row) override;

private:
    JIncrRaster& a_;
    JIncrRaster& b_;
    float factor_;
};
