// JIncrRaster_DirectedBlur: the wavelet's edge-preserving smoothing kernel.
//
// Row y, spacing s, centre c = in(y, x), every step single precision:
//   A, B, C, D = sums of |in - c| over the taps k = -2, -1, +1, +2 (k*s apart) of
//   the diagonal, horizontal, anti-diagonal and vertical line; m = their minimum
//   chosen in the order A, C, B, D; t = m * 0.2f; T = fmaf(t, 1.27f, 1e-10f);
//   out = (sum of w*v) / (1e-10f + sum of w) over the eight taps v at distance s,
//   w = 1 / max(T, |v - c|), each product rounded before it is added (no fusing).
// In turbo mode odd rows are the mean of this node's own rows y - 1 and y + 1.
#pragma once

#include "denoise/raster/incr_raster.h"

class JIncrRaster_DirectedBlur : public JIncrRaster {
public:
    // Asks the input for a margin of 2 * spacing + 4 pixels. A negative spacing,
    // or one whose margin does not fit in an int, throws JEx.
    JIncrRaster_DirectedBlur(JIncrRaster& input, int spacing);

    void computeScanline(int row, float* out) override;
    void refInputs(int row) override;
    // The vector path: AVX-512 or AVX2 + FMA, whichever JCPUInfo allows, else
    // the scalar row. Gives the same bits as the scalar path.
    virtual void computeScanline_SIMD(int row, float* out);

    JIncrRaster* input() const { return input_; }
    int spacing() const { return spacing_; }

private:
    // Rows y - 2s, y - s, y, y + s, y + 2s of the input, in that order.
    struct InputRows {
        const float* r[5];
    };

    bool averagesOwnRows(int row) const { return turbo() && (row & 1); }
    InputRows fetchInputRows(int row);
    void releaseInputRows(int row);
    void averageOwnRows(int row, float* out);

    // The scalar row formula over pixels 0 .. width - 1.
    static void blurPixels(const InputRows& in, int s, int width, float* out);

    JIncrRaster* input_;
    int spacing_;
};
