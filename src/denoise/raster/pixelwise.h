// Scalar row of the two-input pixel-wise nodes (Add, Subtract):
//   out[x] = op(a[x], b[x])
// with row `row` of each input, which is released again once the row is done.
#pragma once

#include "denoise/raster/incr_raster.h"

namespace pixelwise {

template <class Op>
void scalarRow(JIncrRaster& a, JIncrRaster& b, int row, int width, float* out, Op op)
{
    const float* pa = a.getScanline(row);
    const float* pb = b.getScanline(row);
    for (int x = 0; x < width; ++x)
        out[x] = op(pa[x], pb[x]);
    a.unrefScanline(row);
    b.unrefScanline(row);
}

}  // namespace pixelwise
