// JColorPalette: the fixed table of 72 reference colours (12 hues by 6
// shades) in L*a*b* by which noise profiles and the auto sampler organise
// colours.
//
// Column i is one base colour, row j one variation of it (darker, greyer,
// lighter). There is one palette per process: getPalette() builds it on the
// first call, safely when several threads call first, and it lives until
// process exit.
#pragma once

#include "color/lab_coord.h"

class JColorPalette {
public:
    static JColorPalette* getPalette();

    int ncols() const { return ncols_; }
    int nrows() const { return nrows_; }

    // No bounds check.
    JLabCoord getColor(int row, int col) const { return entries_[row][col]; }

    // The entry nearest to lab by squared colour distance, scanning rows 0..5
    // and, within a row, columns 0..11; an entry must be strictly closer to
    // replace the best so far, so the first of equally near entries wins.
    // When nothing is nearer than 1e38 (a NaN component), row and col are left
    // unchanged and the returned coordinate is meaningless.
    JLabCoord findNearestEntry(JLabCoord& lab, int& row, int& col) const;

    JColorPalette(const JColorPalette&) = delete;
    JColorPalette& operator=(const JColorPalette&) = delete;

private:
    JColorPalette();

    static constexpr int kRows = 6;
    static constexpr int kCols = 12;

    int nrows_;
    int ncols_;
    JLabCoord entries_[kRows][kCols];
};
