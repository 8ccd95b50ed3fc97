// JIncrRaster_BoxBlur: the mean of the N x N window (N = 2r + 1) around each
// pixel, the box filter the Sharpen node runs over its edge detector.
// Row y, with a float running sum S over the window's input rows y-r..y+r:
//   S = (sum of the window centred at pixel -1, rows top to bottom, columns
//        left to right) / N^2 * N^2;
//   for x = 0..W-1, per row from the top: S = S - in[x-r-1] + in[x+r];
//   out[x] = S / N^2.
// The running sum drifts by the rounding of its updates, deliberately.
// Turbo mode: an odd row is the mean of this node's rows y-1 and y+1.
#pragma once

#include "denoise/raster/incr_raster.h"

class JIncrRaster_BoxBlur : public JIncrRaster {
public:
    // The radius is clamped to 1..4; the input is asked for a margin of r + 4.
    JIncrRaster_BoxBlur(JIncrRaster& input, int radius);

    void computeScanline(int row, float* out) override;
    void refInputs(int row) override;

    int radius() const { return radius_; }

private:
    static constexpr int maxRadius = 4;

    JIncrRaster& input_;
    int radius_;
};
