// JIncrRaster_MeanAbs: the mean absolute value of a plane, as used when a
// noise sample is measured on a detail band.
//   result = float(sum |in(x, y)| / (double(float(w * h)) + 0.0001))
// over the region x in 0..W-2, y in 0..H-2: the region's right and bottom are
// exclusive, so the last column and the last row of the input are left out,
// deliberately. The sum of the float absolute values is accumulated in double.
// The node has no rows of its own: the constructor references the region's
// input rows and calcResult, called once, reads and releases them.
#pragma once

#include "base/rect.h"
#include "denoise/raster/incr_raster.h"

class JIncrRaster_MeanAbs : public JIncrRaster {
public:
    explicit JIncrRaster_MeanAbs(JIncrRaster& input);

    void refInputs(int row) override;
    // Consumes the references taken by the constructor; call it once.
    float calcResult();

private:
    JIncrRaster& input_;
    JRect<int> region_;
};
