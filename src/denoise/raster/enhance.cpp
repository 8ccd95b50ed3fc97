#include "denoise/raster/enhance.h"

JIncrRaster_Enhance::JIncrRaster_Enhance(JIncrRaster& a, JIncrRaster& b, float factor)
    : JIncrRaster(a.width(), a.height()), a_(a), b_(b), factor_(factor)
{
    requireDataType(Plane, a);
    requireDataType(Plane, b);
}

void JIncrRaster_Enhance::refInputs(int row)
{
    a_.refScanline(row);
    b_.refScanline(row);
}

void JIncrRaster_Enhance::computeScanline(int row, float* out)
{
    const float* a = a_.getScanline(row);
    const float* b = b_.getScanline(row);
    for (int x = 0; x < width(); ++x)
        out[x] = factor_ * (a[x] - b[x]);
    a_.unrefScanline(row);
    b_.unrefScanline(row);
}
