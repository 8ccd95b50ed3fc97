#include "denoise/raster/flex_blur.h"

#include <algorithm>
#include <cmath>

#include "base/ex.h"
#include "base/qtless/qobject.h"

namespace {

int checkedSpacing(int spacing)
{
    if (spacing < 0 || spacing > JIncrRaster_FlexBlur::maxSpacing)
        throw JEx(qtless::QObject::tr("Blur spacing out of range"));
    return spacing;
}

}  // namespace

JIncrRaster_FlexBlur::JIncrRaster_FlexBlur(JIncrRaster& input, int spacing, int selector)
    : JIncrRaster(input.width(), input.height()),
      input_(input),
      spacing_(checkedSpacing(spacing)),
      selector_(std::min(std::max(selector, 1), 10))
{
    requireDataType(Plane, input);
    input_.requestReflection(4 * spacing_ + 4);
}

void JIncrRaster_FlexBlur::refInputs(int row)
{
    for (int k = -4; k <= 4; ++k)
        input_.refScanline(row + k * spacing_);
}

void JIncrRaster_FlexBlur::computeScanline(int row, float* out)
{
    const int s = spacing_;
    const float* in[9];
    for (int k = 0; k < 9; ++k)
        in[k] = input_.getScanline(row + (k - 4) * s);
    const float* above = in[3];
    const float* centre = in[4];
    const float* below = in[5];
    const float tolerance = static_cast<float>(selector_) * 0.25f;

    for (int x = 0; x < width(); ++x) {
        const float c = centre[x];
        float d[8] = {
            std::fabs(above[x - s] - c), std::fabs(above[x] - c),  std::fabs(above[x + s] - c),
            std::fabs(centre[x - s] - c),                          std::fabs(centre[x + s] - c),
            std::fabs(below[x - s] - c), std::fabs(below[x] - c),  std::fabs(below[x + s] - c),
        };
        std::nth_element(d, d + 3, d + 8);
        const float threshold = tolerance * d[3];

        float acc = 0.0f;
        int n = 0;
        for (int i = 0; i < 9; ++i) {
            for (int j = -4; j <= 4; ++j) {
                const float diff = in[i][x + j * s] - c;
                if (std::fabs(diff) <= threshold) {
                    acc += diff;
                    ++n;
                }
            }
        }
        out[x] = c + acc / static_cast<float>(n);
    }

    for (int k = 0; k < 9; ++k)
        input_.unrefScanline(row + (k - 4) * s);
}
