#include "denoise/raster/rgbx_to_mask.h"

JIncrRaster_RGBXToMask::JIncrRaster_RGBXToMask(JIncrRaster* rgbx)
    : JIncrRaster(rgbx->width(), rgbx->height()), rgbx_(rgbx)
{
    requireDataType(RGBX, *rgbx);
}

void JIncrRaster_RGBXToMask::refInputs(int row)
{
    rgbx_->refScanline(row);
}

void JIncrRaster_RGBXToMask::computeScanline(int row, float* out)
{
    const float* in = rgbx_->getScanline(row);
    const int n = width();
    for (int x = 0; x < n; ++x)
        out[x] = in[4 * x + 3];
    rgbx_->unrefScanline(row);
}
