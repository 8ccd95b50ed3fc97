#include "denoise/raster/sobel.h"

#include <algorithm>

namespace {

// Radius 2. Horizontal weights of the columns x-2 and x-1 for the rows
// y-2 .. y+2 (columns x+1 and x+2 take them negated, column x weighs 0); the
// vertical kernel is the transpose: rows y-2 and y-1 weigh the columns
// x-2 .. x+2 by these, rows y+1 and y+2 by their negation.
constexpr float kOuter[5] = {2, 3, 4, 3, 2};
constexpr float kInner[5] = {1, 2, 3, 2, 1};

float clipped(float gain, float g)
{
    const float e = gain * g;
    return e >= 1.0f ? 1.0f : e;
}

}  // namespace

JIncrRaster_Sobel::JIncrRaster_Sobel(JIncrRaster& input, int radius, float gain)
    : JIncrRaster(input.width(), input.height()), input_(input), radius_(std::min(std::max(radius, 1), 2)),
      gain_(gain)
{
    requireDataType(Plane, input);
    input.requestReflection(radius_ + 1);
}

void JIncrRaster_Sobel::refInputs(int row)
{
    for (int y = row - radius_; y <= row + radius_; ++y)
        input_.refScanline(y);
}

void JIncrRaster_Sobel::computeScanline(int row, float* out)
{
    const int w = width();
    if (radius_ == 1) {
        const float* t = input_.getScanline(row - 1);
        const float* m = input_.getScanline(row);
        const float* b = input_.getScanline(row + 1);
        for (int x = 0; x < w; ++x) {
            const float gx = (t[x - 1] - t[x + 1]) + 2.0f * (m[x - 1] - m[x + 1]) + (b[x - 1] - b[x + 1]);
            const float gy = (t[x - 1] + 2.0f * t[x] + t[x + 1]) - (b[x - 1] + 2.0f * b[x] + b[x + 1]);
            out[x] = clipped(gain_, (gx * gx + gy * gy) * 0.0625f);
        }
    } else {
        const float* rows[5];
        for (int j = 0; j < 5; ++j)
            rows[j] = input_.getScanline(row - 2 + j);
        for (int x = 0; x < w; ++x) {
            float gx = 0.0f;
            float gy = 0.0f;
            for (int j = 0; j < 5; ++j) {
                const float* v = rows[j];
                gx = gx + (kOuter[j] * (v[x - 2] - v[x + 2]) + kInner[j] * (v[x - 1] - v[x + 1]));
            }
            for (int i = 0; i < 5; ++i) {
                const int c = x - 2 + i;
                gy = gy + (kOuter[i] * (rows[0][c] - rows[4][c]) + kInner[i] * (rows[1][c] - rows[3][c]));
            }
            out[x] = clipped(gain_, (gx * gx + gy * gy) / 529.0f);
        }
    }
    for (int y = row - radius_; y <= row + radius_; ++y)
        input_.unrefScanline(y);
}
