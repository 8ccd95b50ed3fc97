// JIncrRaster_Scale: a plane multiplied by a constant factor.
//   out[x] = in[x] * factor
// A complete node that the pipeline does not build at present.
#pragma once

#include "denoise/raster/incr_raster.h"

class JIncrRaster_Scale : public JIncrRaster {
public:
    JIncrRaster_Scale(JIncrRaster& input, float factor);

    void computeScanline(int row, float* out) override;
    void refInputs(int row) override;

private:
    JIncrRaster& input_;
    float factor_;
};
