// JIncrRaster_RGBXToMask: the fourth channel of an RGBX node as a plane.
//   out[x] = in[4x + 3]
#pragma once

#include "denoise/raster/incr_raster.h"

class JIncrRaster_RGBXToMask : public JIncrRaster {
public:
    // Width and height of the input, which is not owned and carries RGBX rows.
    explicit JIncrRaster_RGBXToMask(JIncrRaster* rgbx);

    void computeScanline(int row, float* out) override;
    void refInputs(int row) override;

private:
    JIncrRaster* rgbx_;
};
