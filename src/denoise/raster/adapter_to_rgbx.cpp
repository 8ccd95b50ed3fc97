#include "denoise/raster/adapter_to_rgbx.h"

#include <algorithm>

JIncrRaster_AdapterToRGBX::JIncrRaster_AdapterToRGBX(JImageAdapter* source, int xStart, int xEnd)
    : JIncrRaster(xEnd - xStart + 1, source->height()),
      source_(source),
      xStart_(xStart),
      xEnd_(xEnd),
      pixels_(static_cast<size_t>(std::max(0, xEnd - xStart + 9)))
{
    setDataType(RGBX);
}

void JIncrRaster_AdapterToRGBX::refInputs(int)
{
}

void JIncrRaster_AdapterToRGBX::computeScanline(int row, float* out)
{
    JPixelBuffers::Lease pixels = pixels_.take();
    {
        JMutexLocker lock(pixelsMutex_);
        source_->getScanline(row, xStart_, xEnd_, reinterpret_cast<unsigned short*>(pixels.data()));
    }
    const int n = width();
    for (int x = 0; x < n; ++x) {
        const JPixel& p = pixels.data()[x];
        float* o = out + 4 * x;
        o[0] = static_cast<float>(p.red) * 1.5259022e-05f;
        o[1] = static_cast<float>(p.green) * 1.5259022e-05f;
        o[2] = static_cast<float>(p.blue) * 1.5259022e-05f;
        o[3] = static_cast<float>(p.x) * 1.5259022e-05f;
    }
}
