#include "denoise/raster/mean_sqr.h"

JIncrRaster_MeanSqr::JIncrRaster_MeanSqr(JIncrRaster& input)
    : JIncrRaster(input.width(), input.height()),
      input_(input),
      region_(0, 0, input.width() - 1, input.height() - 1)
{
    requireDataType(Plane, input);
    for (int y = region_.top; y < region_.bottom; ++y)
        input_.refScanline(y);
}

void JIncrRaster_MeanSqr::refInputs(int)
{
}
