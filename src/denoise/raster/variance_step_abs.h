// JIncrRaster_VarianceStepAbs: a robust local energy, the square of the mean
// absolute value over a sparse window of taps `step` pixels and rows apart.
//   out[x] = (A / T) * (A / T),  A = sum of |v| over the taps (rows from the
//   top, columns from the left), T the tap count the radius divides by
// Radius 2: 5 x 5 taps, T = 25. The first `step` pixels are summed in full;
//   after that A is a running sum per residue class x mod step, seeded with
//   sqrtf(out) * 25 of the full pixels and moved per row from the top:
//   A = A - |v(x - 3 step)|, A = A + |v(x + 2 step)|.
// Radius 1: three columns over five rows (y - 2 step .. y + 2 step), still
//   divided by 9, deliberately. Radius 3: 7 x 7 taps, T = 49. Any other radius
//   leaves the row unwritten.
// In turbo mode an odd row is a copy of the row above it.
// Radius 2 has vector paths with the same values: rows side by side in lanes
// when the rows below are referenced, else classes side by side within a row
// (variance_step_abs_simd.cpp).
#pragma once

#include "denoise/raster/incr_raster.h"

class JIncrRaster_VarianceStepAbs : public JIncrRaster {
public:
    // Throws JEx for a step below 1 (the residue classes need one).
    JIncrRaster_VarianceStepAbs(JIncrRaster& input, int radius, int step);

    void computeScanline(int row, float* out) override;
    void refInputs(int row) override;

    int radius() const { return radius_; }
    int step() const { return step_; }

private:
    // First and last k of the input rows y + k*step the row reads.
    int firstTap() const;
    int lastTap() const;
    // Sum of |v| over taps rows[0..nRows-1] x columns x + k*step, k = -cols..cols.
    float fullSum(const float* const* rows, int nRows, int cols, int x) const;
    void radius2(const float* const* rows, float* out) const;
    // Pixels step .. of the radius-2 form in vector form, the same values as
    // radius2, starting from and leaving behind the ring of sums; returns the
    // first pixel it left to the scalar loop. See variance_step_abs_simd.cpp.
    int radius2_SIMD(const float* const* rows, float* out, float* ring) const;
    // Radius-2 rows row, row + d, row + 2d, ... (d = 2 in turbo mode) side by
    // side in vector lanes, as many as claimRows hands over; false, with
    // nothing done, when no row but `row` could be claimed.
    bool radius2RowsSIMD(int row, float* out);

    JIncrRaster& input_;
    int radius_;
    int step_;
};
