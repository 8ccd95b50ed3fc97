#include "denoise/raster/filter_mask.h"

#include <cmath>

#include "base/cpu_info.h"
#include "base/ex.h"
#include "base/qtless/qobject.h"
#include "base/utils.h"
#include "filter/filter_mask.h"

using qtless::QObject;

JIncrRaster_FilterMask::JIncrRaster_FilterMask(JIncrRaster& unfiltered, JIncrRaster& filtered, JFilterMask& mask,
                                               int xStart, int xEnd)
    : JIncrRaster(unfiltered.width(), unfiltered.height()),
      xStart_(xStart),
      xEnd_(xEnd),
      unfiltered_(unfiltered),
      filtered_(filtered),
      mask_(mask)
{
    requireDataType(Plane, unfiltered);
    requireDataType(Plane, filtered);
    // The blend reads one mask value per pixel of the row from the buffer.
    const long long columns = static_cast<long long>(xEnd) - xStart + 1;
    if (columns < width())
        throw JEx(QObject::tr("Filter mask columns %1..%2 do not cover a row of %3 pixels")
                      .arg(xStart)
                      .arg(xEnd)
                      .arg(width()));
    // Zeroed, so that a mask row whose runs end early leaves defined values.
    maskRow_.reset(new float[static_cast<size_t>(columns)]());
}

void JIncrRaster_FilterMask::setMaskChannel(MaskChannel channel)
{
    channel_.store(channel, std::memory_order_relaxed);
}

void JIncrRaster_FilterMask::setBypass(bool bypass)
{
    bypass_.store(bypass ? 1 : 0, std::memory_order_relaxed);
}

bool JIncrRaster_FilterMask::maskRowEmpty(int row) const
{
    return maskChannel() == Chroma ? mask_.isChromaEmpty(row) : mask_.isLumEmpty(row);
}

void JIncrRaster_FilterMask::refInputs(int row)
{
    filtered_.refScanline(row);
    if (bypass())
        unfiltered_.refScanline(row);
    else if (!maskRowEmpty(row))
        unfiltered_.refScanline(row);
}

void JIncrRaster_FilterMask::computeScanline(int row, float* out)
{
    const float* f = filtered_.getScanline(row);
    if (!bypass() && !maskRowEmpty(row)) {
        const float* o = unfiltered_.getScanline(row);
        JMutexLocker lock(maskMutex_);
        float* m = maskRow_.get();
        if (maskChannel() == Chroma)
            mask_.getChromaScanline(row, xStart_, xEnd_, m);
        else
            mask_.getLumScanline(row, xStart_, xEnd_, m);
        int x = 0;
        if (JCPUInfo::SIMDSupported.load(std::memory_order_relaxed))
            x = blend_SIMD(m, o, f, out, width());
        for (; x < width(); ++x)
            out[x] = fmaf(m[x], o[x], (1.0f - m[x]) * f[x]);
        unfiltered_.unrefScanline(row);
    } else {
        move32(f, out, static_cast<size_t>(width()));
    }
    filtered_.unrefScanline(row);
}
