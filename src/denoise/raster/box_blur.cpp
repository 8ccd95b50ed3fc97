#include "denoise/raster/box_blur.h"

#include <algorithm>

JIncrRaster_BoxBlur::JIncrRaster_BoxBlur(JIncrRaster& input, int radius)
    : JIncrRaster(input.width(), input.height()),
      input_(input),
      radius_(std::min(std::max(radius, 1), maxRadius))
{
    requireDataType(Plane, input);
    input_.requestReflection(radius_ + 4);
}

void JIncrRaster_BoxBlur::refInputs(int row)
{
    if (turbo() && (row & 1)) {
        refScanline(row - 1);
        refScanline(row + 1);
        return;
    }
    for (int k = -radius_; k <= radius_; ++k)
        input_.refScanline(row + k);
}

void JIncrRaster_BoxBlur::computeScanline(int row, float* out)
{
    if (turbo() && (row & 1)) {
        avgScanlines(row - 1, row + 1, out);
        unrefScanline(row - 1);
        unrefScanline(row + 1);
        return;
    }

    const int r = radius_;
    const int n = 2 * r + 1;
    const float area = static_cast<float>(n * n);
    const float* in[2 * maxRadius + 1];
    for (int k = 0; k < n; ++k)
        in[k] = input_.getScanline(row - r + k);

    float sum = 0.0f;
    for (int k = 0; k < n; ++k)
        for (int x = -1 - r; x <= -1 + r; ++x)
            sum += in[k][x];
    sum = sum / area;
    sum = sum * area;

    for (int x = 0; x < width(); ++x) {
        for (int k = 0; k < n; ++k)
            sum = sum - in[k][x - r - 1] + in[k][x + r];
        out[x] = sum / area;
    }

    for (int k = 0; k < n; ++k)
        input_.unrefScanline(row - r + k);
}
