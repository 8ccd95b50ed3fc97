#include "denoise/raster/scale.h"

JIncrRaster_Scale::JIncrRaster_Scale(JIncrRaster& input, float factor)
    : JIncrRaster(input.width(), input.height()), input_(input), factor_(factor)
{
    requireDataType(Plane, input);
}

void JIncrRaster_Scale::refInputs(int row)
{
    input_.refScanline(row);
}

void JIncrRaster_Scale::computeScanline(int row, float* out)
{
    const float* in = input_.getScanline(row);
    for (int x = 0; x < width(); ++x)
        out[x] = in[x] * factor_;
    input_.unrefScanline(row);
}
