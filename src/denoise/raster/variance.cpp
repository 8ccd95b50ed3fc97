#include "denoise/raster/variance.h"

#include <algorithm>
#include <cmath>

#include "base/cpu_info.h"


JIncrRaster_Variance::JIncrRaster_Variance(JIncrRaster& input, int radius)
    : JIncrRaster(input.width(), input.height()), input_(input), radius_(std::min(std::max(radius, 1), 5))
{
    requireDataType(Plane, input);
    input.requestReflection(radius_ + 1);
}

void JIncrRaster_Variance::refInputs(int row)
{
    if (turbo() && (row & 1)) {
        refScanline(row - 1);
        return;
    }
    for (int y = row - radius_; y <= row + radius_; ++y)
        input_.refScanline(y);
}

void JIncrRaster_Variance::computeScanline(int row, float* out)
{
    if (turbo() && (row & 1)) {
        // A copy, not the mean of the rows above and below as in the blurs.
        copyScanline(row - 1, out);
        unrefScanline(row - 1);
        return;
    }
    if (radius_ >= 3 && JCPUInfo::useSIMD(JCPUInfo::AVX2) && computeRowsSIMD(row, out))
        return;
    const float* rows[11];
    const int n = 2 * radius_ + 1;
    for (int j = 0; j < n; ++j)
        rows[j] = input_.getScanline(row - radius_ + j);
    runningSum(rows, out);
    for (int y = row - radius_; y <= row + radius_; ++y)
        input_.unrefScanline(y);
}

float JIncrRaster_Variance::initialSum(const float* const* rows) const
{
    const int r = radius_;
    const int n = 2 * r + 1;
    const float area = static_cast<float>(n * n);
    float s = 0.0f;
    for (int j = 0; j < n; ++j)
        for (int c = -1 - r; c <= -1 + r; ++c)
            s = std::fma(rows[j][c], rows[j][c], s);
    return (s / area) * area;
}

void JIncrRaster_Variance::runningSum(const float* const* rows, float* out) const
{
    const int r = radius_;
    const int n = 2 * r + 1;
    const float area = static_cast<float>(n * n);
    float s = initialSum(rows);
    for (int x = 0; x < width(); ++x) {
        for (int j = 0; j < n; ++j) {
            const float o = rows[j][x - r - 1];
            const float v = rows[j][x + r];
            s = s - o * o;
            s = s + v * v;
        }
        out[x] = s / area;
    }
}
