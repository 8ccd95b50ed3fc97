#include "denoise/raster/to_rgb.h"

#include <algorithm>

#include "base/cpu_info.h"
#include "base/ex.h"
#include "base/qtless/qobject.h"

JIncrRaster_ToRGB::JIncrRaster_ToRGB(JIncrRaster& y, JIncrRaster& cr, JIncrRaster& cb, JImageAdapter* destination,
                                     int xStart, int xEnd, int leadIn)
    : JIncrRaster(y.width(), y.height()),
      destination_(destination),
      xStart_(xStart),
      xEnd_(xEnd),
      leadIn_(leadIn),
      pixels_(static_cast<size_t>(std::max(0, leadIn)) + static_cast<size_t>(y.width()) + 4),
      y_(y),
      cr_(cr),
      cb_(cb),
      kept_(static_cast<size_t>(std::max(0, y.height())))
{
    // The adapter reads xEnd - xStart + 1 pixels from pixel leadIn of the
    // buffer; refuse a range that would make it read outside the buffer.
    if (leadIn < 0 || xEnd - xStart + 1 > y.width() + 4)
        throw JEx(qtless::QObject::tr("Output columns %1..%2 do not fit a strip of width %3 with lead-in %4")
                      .arg(xStart)
                      .arg(xEnd)
                      .arg(y.width())
                      .arg(leadIn));
    requireDataType(Plane, y);
    requireDataType(Plane, cr);
    requireDataType(Plane, cb);
}

void JIncrRaster_ToRGB::write(int row, const JPixel* px)
{
    if (row > writeLimit_.load(std::memory_order_acquire)) {
        const size_t n = pixels_.pixels();
        std::unique_ptr<JPixel[]> kept(new JPixel[n]);
        std::copy(px, px + n, kept.get());
        kept_[static_cast<size_t>(row)] = std::move(kept);
        return;
    }
    JMutexLocker lock(pixelsMutex_);
    destination_->putScanline(row, xStart_, xEnd_, reinterpret_cast<const unsigned short*>(px + leadIn_));
}

void JIncrRaster_ToRGB::setWriteLimit(int last)
{
    writeLimit_.store(last, std::memory_order_release);
}

void JIncrRaster_ToRGB::commitRow(int row)
{
    if (row < 0 || row >= height())
        return;
    std::unique_ptr<JPixel[]> kept = std::move(kept_[static_cast<size_t>(row)]);
    if (!kept)
        return;
    JMutexLocker lock(pixelsMutex_);
    destination_->putScanline(row, xStart_, xEnd_, reinterpret_cast<const unsigned short*>(kept.get() + leadIn_));
}

void JIncrRaster_ToRGB::refInputs(int row)
{
    y_.refScanline(row);
    cr_.refScanline(row);
    cb_.refScanline(row);
}

void JIncrRaster_ToRGB::computeScanline(int row, float* out)
{
    if (JCPUInfo::SIMDSupported.load(std::memory_order_relaxed)) {
        computeScanline_SIMD(row, out);
        return;
    }
    const float* y = y_.getScanline(row);
    const float* cr = cr_.getScanline(row);
    const float* cb = cb_.getScanline(row);
    JPixelBuffers::Lease pixels = pixels_.take();
    JPixel* px = pixels.data();
    const int n = width();
    for (int x = 0; x < n; ++x)
        px[x].fromYCrCb(y[x], cr[x], cb[x]);
    write(row, px);
    y_.unrefScanline(row);
    cr_.unrefScanline(row);
    cb_.unrefScanline(row);
}
