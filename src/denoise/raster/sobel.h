// JIncrRaster_Sobel: the clipped gradient energy of a plane.
//   out[x] = min(1, gain * G),  G = (gx^2 + gy^2) * 0.0625 for radius 1 and
//   (gx^2 + gy^2) / 529 for radius 2
// gx and gy are the horizontal and vertical Sobel responses (3 x 3, or 5 x 5
// with the weights in sobel.cpp). Every term is a weight times the difference
// of two mirror-image taps, so a flat plane gives exactly 0. Radius 2 sums
// per row from the top for gx and per column from the left for gy:
//   gx += outer_j * (v_j[x-2] - v_j[x+2]) + inner_j * (v_j[x-1] - v_j[x+1])
//   gy += outer_i * (v_-2[c] - v_2[c]) + inner_i * (v_-1[c] - v_1[c]), c = x-2+i
#pragma once

#include "denoise/raster/incr_raster.h"

class JIncrRaster_Sobel : public JIncrRaster {
public:
    // The radius is clamped to 1..2.
    JIncrRaster_Sobel(JIncrRaster& input, int radius, float gain);

    void computeScanline(int row, float* out) override;
    void refInputs(int row) override;

    int radius() const { return radius_; }
    float gain() const { return gain_; }

private:
    JIncrRaster& input_;
    int radius_;
    float gain_;
};
