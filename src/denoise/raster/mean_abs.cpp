#include "denoise/raster/mean_abs.h"

#include <cmath>

JIncrRaster_MeanAbs::JIncrRaster_MeanAbs(JIncrRaster& input)
    : JIncrRaster(input.width(), input.height()),
      input_(input),
      region_(0, 0, input.width() - 1, input.height() - 1)
{
    requireDataType(Plane, input);
    for (int y = region_.top; y < region_.bottom; ++y)
        input_.refScanline(y);
}

void JIncrRaster_MeanAbs::refInputs(int)
{
}

float JIncrRaster_MeanAbs::calcResult()
{
    double sum = 0.0;
    for (int y = region_.top; y < region_.bottom; ++y) {
        const float* in = input_.getScanline(y);
        for (int x = region_.left; x < region_.right; ++x)
            sum += std::fabs(in[x]);
        input_.unrefScanline(y);
    }
    // The pixel count is rounded to float before the 0.0001 is added (in double).
    const float count = static_cast<float>(static_cast<long long>(region_.width()) * region_.height());
    return static_cast<float>(sum / (static_cast<double>(count) + 0.0001));
}
