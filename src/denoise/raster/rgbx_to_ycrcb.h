// JIncrRaster_RGBXToYCrCb: one luminance or chrominance plane of an RGBX node.
// Single precision; the first product is rounded, each later term is fused on
// (fmaf), then the chroma offset 0.5 is added in double and rounded to float:
//   Y  = fma(B, 0.1145, fma(R, 0.2989, G*0.5866))
//   Cr = fma(-B, 0.0817, fma(-G, 0.4183, R*0.5)) + 0.5
//   Cb = fma(B, 0.5, fma(-G, 0.3312, R*(-0.1687))) + 0.5
// The fourth float of a pixel is ignored; nothing is clamped. The vector path
// (rgbx_to_ycrcb_simd.cpp) gives the same bits.
#pragma once

#include "color/image_lib.h"
#include "denoise/raster/incr_raster.h"

class JIncrRaster_RGBXToYCrCb : public JIncrRaster {
public:
    // Width and height of the input, which is not owned and carries RGBX rows.
    JIncrRaster_RGBXToYCrCb(JIncrRaster* rgbx, JImageLib::YCrCbIndex channel);

    // A channel outside Y, Cr, Cb writes nothing into the row.
    void computeScanline(int row, float* out) override;
    void refInputs(int row) override;
    // The same row, several pixels at a time.
    virtual void computeScanline_SIMD(int row, float* out);

private:
    // Pixels from..n-1 of a row, one at a time.
    void convertPixels(const float* in, float* out, int from, int n) const;

    JIncrRaster* rgbx_;
    JImageLib::YCrCbIndex channel_;
};
