// JIncrRaster_Variance: the local energy of a detail plane, the mean of the
// squares over the (2r+1) x (2r+1) window centred on each pixel (no mean is
// subtracted: detail planes have zero mean, so this is their variance).
//   out[x] = S / N^2,  N = 2r + 1,  S = sum of v^2 over the window
// S is a single-precision running sum along the row. It starts at pixel -1
// with fused multiply-adds (rows from the top, columns from the left), goes
// through the mean and back (S = (S / N^2) * N^2, both rounded), then moves
// one column per pixel, per row from the top: S = S - old^2, S = S + new^2,
// each square rounded, nothing fused. The drift of that sum is accepted.
// In turbo mode an odd row is a copy of the row above it.
// There is no vector path: every pixel's sum depends on the previous one
// through 2N rounded additions, so no lanes can share the work without
// changing the roundings, and squaring the values in vector form beforehand
// measured no faster (the chain of additions sets the pace).
#pragma once

#include "denoise/raster/incr_raster.h"

class JIncrRaster_Variance : public JIncrRaster {
public:
    // The radius is clamped to 1..5.
    JIncrRaster_Variance(JIncrRaster& input, int radius);

    void computeScanline(int row, float* out) override;
    void refInputs(int row) override;

    int radius() const { return radius_; }

private:
    // The running sum over the fetched rows rows[0..2r] (top first).
    void runningSum(const float* const* rows, float* out) const;
    // The window sum centred at pixel -1, turned through the mean and back.
    float initialSum(const float* const* rows) const;

    JIncrRaster& input_;
    int radius_;
};
