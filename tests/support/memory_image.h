// An in-memory 16-bit RGBX image behind the scanline adapter interface, for
// tests. Rows are stored packed, four samples per pixel.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/image_adapter.h"

namespace murmex_test {

class MemoryImage : public JImageAdapter {
public:
    MemoryImage(int width, int height);

    int width() override { return width_; }
    int height() override { return height_; }
    void getScanline(int y, int xStart, int xEnd, unsigned short* pixels) override;
    void putScanline(int y, int xStart, int xEnd, const unsigned short* pixels) override;

    // Sample c (0 red, 1 green, 2 blue, 3 x) of pixel (x, y).
    uint16_t& at(int x, int y, int c) { return data_[(static_cast<size_t>(y) * width_ + x) * 4 + c]; }
    uint16_t at(int x, int y, int c) const { return data_[(static_cast<size_t>(y) * width_ + x) * 4 + c]; }
    void setPixel(int x, int y, uint16_t r, uint16_t g, uint16_t b, uint16_t xs = 65535);
    void fill(uint16_t r, uint16_t g, uint16_t b, uint16_t xs = 65535);

    std::vector<uint16_t>& data() { return data_; }
    const std::vector<uint16_t>& data() const { return data_; }

    // How often each pixel was written by putScanline; getScanline and
    // putScanline fail the current test on coordinates outside the image.
    const std::vector<int>& writeCounts() const { return writes_; }
    int getCalls() const { return getCalls_; }
    int putCalls() const { return putCalls_; }

private:
    bool inside(int y, int xStart, int xEnd) const;

    int width_;
    int height_;
    std::vector<uint16_t> data_;
    std::vector<int> writes_;
    int getCalls_ = 0;
    int putCalls_ = 0;
};

}  // namespace murmex_test
