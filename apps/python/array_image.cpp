#include "array_image.h"

#include <climits>
#include <cmath>
#include <string>
#include <type_traits>

namespace py = pybind11;

namespace murmex_python {

namespace {

std::string shapeText(const py::array& a)
{
    return py::str(py::tuple(a.attr("shape"))).cast<std::string>();
}

SampleType sampleTypeOf(const py::dtype& dtype, const char* what)
{
    const char kind = dtype.kind();
    const py::ssize_t size = dtype.itemsize();
    if (kind == 'u' && size == 1)
        return SampleType::UInt8;
    if (kind == 'u' && size == 2)
        return SampleType::UInt16;
    if (kind == 'f' && size == 4)
        return SampleType::Float32;
    if (kind == 'f' && size == 8)
        return SampleType::Float64;
    throw py::type_error(std::string(what) + ": dtype " + py::str(py::handle(dtype)).cast<std::string>() +
                         " is not supported; use uint8, uint16, float32 or float64");
}

template <class T>
uint16_t toScale(T v);
template <>
uint16_t toScale(uint16_t v)
{
    return v;
}
template <>
uint16_t toScale(uint8_t v)
{
    return static_cast<uint16_t>(v * 257);
}
template <>
uint16_t toScale(double v)
{
    if (!(v > 0.0))  // also NaN
        return 0;
    if (v >= 1.0)
        return 65535;
    return static_cast<uint16_t>(std::nearbyint(v * 65535.0));
}
template <>
uint16_t toScale(float v)
{
    return toScale<double>(v);
}

template <class T>
T fromScale(uint16_t v);
template <>
uint16_t fromScale(uint16_t v)
{
    return v;
}
template <>
uint8_t fromScale(uint16_t v)
{
    return static_cast<uint8_t>((v + 128) / 257);  // round(v / 257); no ties, 257 is odd
}
template <>
double fromScale(uint16_t v)
{
    return v / 65535.0;
}
template <>
float fromScale(uint16_t v)
{
    return static_cast<float>(v / 65535.0);
}

}  // namespace

ArrayImage::ArrayImage(py::array array) : array_(std::move(array))
{
}

ArrayImage ArrayImage::from(const py::handle& object, const char* what)
{
    py::array a = py::module_::import("numpy").attr("asarray")(object);
    const SampleType type = sampleTypeOf(a.dtype(), what);
    if (!a.dtype().attr("isnative").cast<bool>())
        a = a.attr("astype")(a.dtype().attr("newbyteorder")("="));

    const py::ssize_t ndim = a.ndim();
    const py::ssize_t channels = ndim == 3 ? a.shape(2) : 1;
    if ((ndim != 2 && ndim != 3) || channels < 1 || channels > 4)
        throw py::value_error(std::string(what) + ": shape " + shapeText(a) +
                              " is not an image; use H x W (grey), H x W x 3 (RGB) or H x W x 4 (RGB and alpha)");
    if (a.shape(0) < 1 || a.shape(1) < 1)
        throw py::value_error(std::string(what) + ": the image is empty (shape " + shapeText(a) + ")");
    if (a.shape(0) > INT_MAX / 8 || a.shape(1) > INT_MAX / 8)
        throw py::value_error(std::string(what) + ": the image is too large (shape " + shapeText(a) + ")");

    ArrayImage image(a);
    image.type_ = type;
    image.height_ = static_cast<int>(a.shape(0));
    image.width_ = static_cast<int>(a.shape(1));
    image.channels_ = static_cast<int>(channels);
    image.rowStride_ = a.strides(0);
    image.pixelStride_ = a.strides(1);
    image.channelStride_ = ndim == 3 ? a.strides(2) : 0;
    // Written only through writeRow, which the caller allows for writeable arrays only.
    image.data_ = const_cast<char*>(static_cast<const char*>(a.data()));
    return image;
}

bool ArrayImage::packedColour(ptrdiff_t sampleSize) const
{
    return channels_ >= 3 && channelStride_ == sampleSize && pixelStride_ == channels_ * sampleSize;
}

template <class T>
void ArrayImage::readRowAs(int y, int xStart, int xEnd, uint16_t* rgbx) const
{
    const char* row = data_ + y * rowStride_;
    if (packedColour(sizeof(T))) {
        // The usual layout: constant strides, which the compiler can use.
        const T* pixel = reinterpret_cast<const T*>(row) + xStart * channels_;
        const int step = channels_;
        for (int x = xStart; x <= xEnd; ++x, pixel += step, rgbx += 4) {
            rgbx[0] = toScale(pixel[0]);
            rgbx[1] = toScale(pixel[1]);
            rgbx[2] = toScale(pixel[2]);
            rgbx[3] = 0;
        }
        return;
    }
    const char* pixel = row + xStart * pixelStride_;
    for (int x = xStart; x <= xEnd; ++x, pixel += pixelStride_, rgbx += 4) {
        const uint16_t first = toScale(*reinterpret_cast<const T*>(pixel));
        const bool colour = channels_ >= 3;
        rgbx[0] = first;
        rgbx[1] = colour ? toScale(*reinterpret_cast<const T*>(pixel + channelStride_)) : first;
        rgbx[2] = colour ? toScale(*reinterpret_cast<const T*>(pixel + 2 * channelStride_)) : first;
        rgbx[3] = 0;
    }
}

template <class T>
void ArrayImage::writeRowAs(int y, int xStart, int xEnd, const uint16_t* rgbx) const
{
    char* row = data_ + y * rowStride_;
    if (packedColour(sizeof(T))) {
        T* pixel = reinterpret_cast<T*>(row) + xStart * channels_;
        const int step = channels_;
        for (int x = xStart; x <= xEnd; ++x, pixel += step, rgbx += 4) {
            pixel[0] = fromScale<T>(rgbx[0]);
            pixel[1] = fromScale<T>(rgbx[1]);
            pixel[2] = fromScale<T>(rgbx[2]);
        }
        return;
    }
    char* pixel = row + xStart * pixelStride_;
    if (channels_ >= 3) {
        for (int x = xStart; x <= xEnd; ++x, pixel += pixelStride_, rgbx += 4) {
            *reinterpret_cast<T*>(pixel) = fromScale<T>(rgbx[0]);
            *reinterpret_cast<T*>(pixel + channelStride_) = fromScale<T>(rgbx[1]);
            *reinterpret_cast<T*>(pixel + 2 * channelStride_) = fromScale<T>(rgbx[2]);
        }
    } else {
        for (int x = xStart; x <= xEnd; ++x, pixel += pixelStride_, rgbx += 4) {
            // The rounded mean; a sum of three never ends in a half.
            const unsigned sum = 1u + rgbx[0] + rgbx[1] + rgbx[2];
            *reinterpret_cast<T*>(pixel) = fromScale<T>(static_cast<uint16_t>(sum / 3));
        }
    }
}

namespace {

// Calls fn with a null pointer of the sample type's C++ type.
template <class Fn>
void withSampleType(SampleType type, Fn fn)
{
    switch (type) {
    case SampleType::UInt8:
        return fn(static_cast<uint8_t*>(nullptr));
    case SampleType::UInt16:
        return fn(static_cast<uint16_t*>(nullptr));
    case SampleType::Float32:
        return fn(static_cast<float*>(nullptr));
    case SampleType::Float64:
        return fn(static_cast<double*>(nullptr));
    }
}

}  // namespace

void ArrayImage::readRow(int y, int xStart, int xEnd, uint16_t* rgbx) const
{
    withSampleType(type_, [&](auto* tag) { readRowAs<std::remove_pointer_t<decltype(tag)>>(y, xStart, xEnd, rgbx); });
}

void ArrayImage::writeRow(int y, int xStart, int xEnd, const uint16_t* rgbx) const
{
    withSampleType(type_, [&](auto* tag) { writeRowAs<std::remove_pointer_t<decltype(tag)>>(y, xStart, xEnd, rgbx); });
}

}  // namespace murmex_python
