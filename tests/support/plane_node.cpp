#include "support/plane_node.h"

#include <cstring>
#include <stdexcept>

namespace murmex_test {

PlaneNode::PlaneNode(int width, int height, std::vector<float> plane)
    : JIncrRaster(width, height), plane_(std::move(plane)), computed_(new std::atomic<int>[height])
{
    if (plane_.size() != static_cast<size_t>(width) * height)
        throw std::invalid_argument("PlaneNode: plane size does not match width * height");
    for (int y = 0; y < height; ++y)
        computed_[y] = 0;
}

PlaneNode::PlaneNode(int width, int height, float value)
    : PlaneNode(width, height, std::vector<float>(static_cast<size_t>(width) * height, value))
{
}

void PlaneNode::computeScanline(int row, float* out)
{
    computed_[row].fetch_add(1, std::memory_order_relaxed);
    std::memcpy(out, plane_.data() + static_cast<size_t>(row) * width(), sizeof(float) * width());
}

void PlaneNode::refInputs(int)
{
}

int PlaneNode::computeCount(int row) const
{
    return computed_[row].load(std::memory_order_relaxed);
}

int PlaneNode::totalComputes() const
{
    int n = 0;
    for (int y = 0; y < height(); ++y)
        n += computeCount(y);
    return n;
}

}  // namespace murmex_test
