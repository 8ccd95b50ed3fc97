// A numpy array seen as an image that the library's scanline callbacks can
// read and write without the GIL.
//
// Shapes: H x W (grey), H x W x 1 (grey), H x W x 2 (grey and alpha),
// H x W x 3 (RGB), H x W x 4 (RGB and alpha); any strides. Sample types and
// their mapping onto the library's 16-bit scale:
//   uint16   as is (full scale 65535)
//   uint8    v * 257 in; round(v / 257) out
//   float32, float64   0..1: round(v * 65535) in, clipped to 0..1 first (NaN
//            reads as 0); v / 65535 out
// Grey is handed to the library as R = G = B and comes back as the rounded
// mean of R, G and B. Alpha is never passed to the library.
#pragma once

#include <cstddef>
#include <cstdint>

#include <pybind11/numpy.h>

namespace murmex_python {

enum class SampleType { UInt8, UInt16, Float32, Float64 };

class ArrayImage {
public:
    // Takes anything numpy.asarray accepts. Throws TypeError for an
    // unsupported sample type and ValueError for an unsupported shape or an
    // empty or oversized image; `what` names the argument in the message.
    // Arrays in a foreign byte order are converted to a native copy.
    static ArrayImage from(const pybind11::handle& object, const char* what);

    const pybind11::array& array() const { return array_; }
    int width() const { return width_; }
    int height() const { return height_; }
    int channels() const { return channels_; }
    bool hasAlpha() const { return channels_ == 2 || channels_ == 4; }
    SampleType sampleType() const { return type_; }
    bool writeable() const { return array_.writeable(); }

    // Fills rgbx with columns xStart..xEnd (inclusive) of row y as packed
    // 16-bit RGBX (x is 0). Touches only memory: safe without the GIL.
    void readRow(int y, int xStart, int xEnd, uint16_t* rgbx) const;
    // Stores the colour of the RGBX pixels into columns xStart..xEnd of row
    // y; alpha is left as it is. Touches only memory.
    void writeRow(int y, int xStart, int xEnd, const uint16_t* rgbx) const;

private:
    explicit ArrayImage(pybind11::array array);

    // Packed RGB or RGBA samples of this size: pixels and channels adjacent.
    bool packedColour(ptrdiff_t sampleSize) const;
    template <class T>
    void readRowAs(int y, int xStart, int xEnd, uint16_t* rgbx) const;
    template <class T>
    void writeRowAs(int y, int xStart, int xEnd, const uint16_t* rgbx) const;

    pybind11::array array_;
    char* data_ = nullptr;
    ptrdiff_t rowStride_ = 0, pixelStride_ = 0, channelStride_ = 0;
    int width_ = 0, height_ = 0, channels_ = 1;
    SampleType type_ = SampleType::UInt16;
};

}  // namespace murmex_python
