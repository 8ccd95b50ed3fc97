// JIncrRaster_MeanSqr: the region and row references of a whole-plane
// reduction over x in 0..W-2, y in 0..H-2 (right and bottom exclusive, as for
// JIncrRaster_MeanAbs). The constructor references the region's input rows;
// the class has no result operation, so nothing computes over them.
#pragma once

#include "base/rect.h"
#include "denoise/raster/incr_raster.h"

class JIncrRaster_MeanSqr : public JIncrRaster {
public:
    explicit JIncrRaster_MeanSqr(JIncrRaster& input);

    void refInputs(int row) override;

    const JRect<int>& region() const { return region_; }

private:
    JIncrRaster& input_;
    JRect<int> region_;
};
