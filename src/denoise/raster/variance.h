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
// Vector path (radii 3 to 5): within a row no lanes can share the work, since
// every pixel's sum depends on the previous one through 2N rounded additions,
// but the rows are independent chains. So the node computes up to 32 rows at
// once, one row per lane, each lane through exactly the scalar roundings; see
// variance_simd.cpp.
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
    // Rows row, row + d, row + 2d, ... (d = 2 in turbo mode) side by side in
    // vector lanes, as many as claimRows hands over; false, with nothing done,
    // when no row but `row` could be claimed.
    bool computeRowsSIMD(int row, float* out);

    JIncrRaster& input_;
    int radius_;
};
