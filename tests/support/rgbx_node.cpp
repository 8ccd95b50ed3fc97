#include "support/rgbx_node.h"

#include <cstring>
#include <stdexcept>

#include "support/planes.h"

namespace murmex_test {

RGBXNode::RGBXNode(int width, int height, std::vector<float> pixels)
    : JIncrRaster(width, height), pixels_(std::move(pixels))
{
    if (pixels_.size() != static_cast<size_t>(width) * height * 4)
        throw std::invalid_argument("RGBXNode: pixel count does not match width * height * 4");
    setDataType(RGBX);
}

void RGBXNode::computeScanline(int row, float* out)
{
    std::memcpy(out, pixels_.data() + static_cast<size_t>(row) * width() * 4, sizeof(float) * 4 * width());
}

void RGBXNode::refInputs(int)
{
}

std::vector<float> mixedRGBX(int width, int height, uint32_t seed)
{
    return mixedPlane(width * 4, height, seed);
}

}  // namespace murmex_test
