// JIncrRaster_Sum: the pixel-wise sum of any number of planes, used to rebuild
// a channel from its shrunk wavelet details and its coarsest smooth plane.
//   out[x] = ((in0[x] + in1[x]) + in2[x]) + ...   (float additions in array order)
// Width and height are those of the first input. The vector path gives the
// same rows.
#pragma once

#include <vector>

#include "denoise/raster/incr_raster.h"

class JIncrRaster_Sum : public JIncrRaster {
public:
    // Copies the `count` pointers; count must be at least 1 (throws JEx otherwise).
    JIncrRaster_Sum(JIncrRaster** inputs, int count);

    void computeScanline(int row, float* out) override;
    void refInputs(int row) override;
    virtual void computeScanline_SIMD(int row, float* out);

private:
    std::vector<JIncrRaster*> inputs_;
};
