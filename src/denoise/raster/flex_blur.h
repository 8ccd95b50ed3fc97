// JIncrRaster_FlexBlur: the alternative smoothing kernel of the wavelet, an
// edge-preserving sigma filter over the 9 x 9 taps at spacing s (input rows
// y + i*s and columns x + j*s, i, j = -4..4). The wavelet builds it only when
// its kernel selector is set, which nothing in the engine does: it is an
// experiment switch. Row y, pixel x, with c = in(y, x), all in float:
//   d[k]  = |v - c| for the eight ring taps at distance s (DirectedBlur's order);
//   delta = the fourth smallest d[k] (a local noise scale: on a straight edge
//           at least five of the eight ring taps lie on the centre's side);
//   T     = (selector * 0.25f) * delta;
//   acc   = sum of (v - c) over the 81 taps with |v - c| <= T, rows top to
//           bottom, columns left to right; n = their number (the centre counts);
//   out   = c + acc / n.
// So a flat plane comes back exactly, taps across an edge higher than T are
// left out, and the selector (1..10) widens the tolerance from 0.25 to 2.5
// times the local noise scale.
#pragma once

#include "denoise/raster/incr_raster.h"

class JIncrRaster_FlexBlur : public JIncrRaster {
public:
    // The selector is clamped to 1..10. Asks the input for a margin of
    // 4*spacing + 4; throws JEx for a spacing outside 0..maxSpacing.
    JIncrRaster_FlexBlur(JIncrRaster& input, int spacing, int selector);

    void computeScanline(int row, float* out) override;
    void refInputs(int row) override;

    int spacing() const { return spacing_; }
    int selector() const { return selector_; }

    // Keeps the margin 4*s + 4 and every row and column offset within int.
    static constexpr int maxSpacing = 1 << 26;

private:
    JIncrRaster& input_;
    int spacing_;
    int selector_;
};
