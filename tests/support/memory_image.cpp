#include "support/memory_image.h"

#include <cstring>

#include <gtest/gtest.h>

namespace murmex_test {

MemoryImage::MemoryImage(int width, int height)
    : width_(width), height_(height), data_(static_cast<size_t>(width) * height * 4, 0),
      writes_(static_cast<size_t>(width) * height, 0)
{
}

bool MemoryImage::inside(int y, int xStart, int xEnd) const
{
    return y >= 0 && y < height_ && xStart >= 0 && xEnd < width_ && xStart <= xEnd;
}

void MemoryImage::getScanline(int y, int xStart, int xEnd, unsigned short* pixels)
{
    ++getCalls_;
    if (!inside(y, xStart, xEnd)) {
        ADD_FAILURE() << "getScanline outside the image: row " << y << ", columns " << xStart << ".." << xEnd;
        return;
    }
    std::memcpy(pixels, &data_[(static_cast<size_t>(y) * width_ + xStart) * 4],
                static_cast<size_t>(xEnd - xStart + 1) * 4 * sizeof(uint16_t));
}

void MemoryImage::putScanline(int y, int xStart, int xEnd, const unsigned short* pixels)
{
    ++putCalls_;
    if (!inside(y, xStart, xEnd)) {
        ADD_FAILURE() << "putScanline outside the image: row " << y << ", columns " << xStart << ".." << xEnd;
        return;
    }
    std::memcpy(&data_[(static_cast<size_t>(y) * width_ + xStart) * 4], pixels,
                static_cast<size_t>(xEnd - xStart + 1) * 4 * sizeof(uint16_t));
    for (int x = xStart; x <= xEnd; ++x)
        ++writes_[static_cast<size_t>(y) * width_ + x];
}

void MemoryImage::setPixel(int x, int y, uint16_t r, uint16_t g, uint16_t b, uint16_t xs)
{
    at(x, y, 0) = r;
    at(x, y, 1) = g;
    at(x, y, 2) = b;
    at(x, y, 3) = xs;
}

void MemoryImage::fill(uint16_t r, uint16_t g, uint16_t b, uint16_t xs)
{
    for (int y = 0; y < height_; ++y)
        for (int x = 0; x < width_; ++x)
            setPixel(x, y, r, g, b, xs);
}

}  // namespace murmex_test
