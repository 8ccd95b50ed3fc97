#include "denoise/raster/constant.h"

#include "base/ex.h"
#include "base/qtless/qobject.h"

namespace {

int rowLength(int width)
{
    if (width < 0)
        throw JEx(qtless::QObject::tr("A constant plane needs a width of at least 0"));
    return width + 4;
}

}  // namespace

JIncrRaster_Constant::JIncrRaster_Constant(float value, int width, int height)
    : JIncrRaster(width, height), length_(rowLength(width))
{
    // The four floats after the row are slack for vector readers, not pixels;
    // they are zeroed so that reading them is defined.
    buffer_ = std::make_unique<float[]>(length_);
    data_ = buffer_.get();
    for (int x = 0; x < width; ++x)
        data_[x] = value;
}

void JIncrRaster_Constant::refInputs(int)
{
}

float* JIncrRaster_Constant::getScanline(int)
{
    return data_;
}
