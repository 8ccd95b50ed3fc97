// JIncrRaster_AdapterToRGBX: the reading end of a strip. Row r holds columns
// xStart..xEnd of the adapter's row r as float RGBX (data type 1):
//   out[4x + k] = (float)sample_k * 1.5259022e-05   (k = red, green, blue, x)
// one single-precision product per sample; the fourth channel is scaled too.
#pragma once

#include "base/image_adapter.h"
#include "base/mutex.h"
#include "color/pixel.h"
#include "denoise/raster/incr_raster.h"
#include "denoise/raster/pixel_buffers.h"

class JIncrRaster_AdapterToRGBX : public JIncrRaster {
public:
    // Width xEnd - xStart + 1, the adapter's height. The adapter is not owned.
    JIncrRaster_AdapterToRGBX(JImageAdapter* source, int xStart, int xEnd);

    void computeScanline(int row, float* out) override;
    // A source node: no inputs.
    void refInputs(int row) override;

private:
    JImageAdapter* source_;
    int xStart_;
    int xEnd_;
    // Rows of xEnd - xStart + 9 pixels; the adapter fills one at a time,
    // under the mutex, and each is converted outside it.
    JPixelBuffers pixels_;
    JMutex pixelsMutex_;
};
