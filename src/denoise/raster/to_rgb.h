// JIncrRaster_ToRGB: the writing end of a strip. Pulling row r joins row r of
// the Y, Cr and Cb planes into 16-bit pixels and stores them:
//   pixel[x] = JPixel::fromYCrCb(Y[x], Cr[x], Cb[x])   (clamped, truncated, x = 65535)
//   destination->putScanline(r, xStart, xEnd, pixel + leadIn)
// The first leadIn pixels of a strip row (its overlap with the previous strip)
// are not written. The node's own row is left untouched: the write is the work.
// A denoise worker may compute rows of the next batch before the driver has
// handed it out; those rows are kept and written when the batch pulls them
// (setWriteLimit, commitRow), so that no row reaches the adapter before its
// batch does.
#pragma once

#include <atomic>
#include <climits>
#include <memory>
#include <vector>

#include "base/image_adapter.h"
#include "base/mutex.h"
#include "color/pixel.h"
#include "denoise/raster/incr_raster.h"
#include "denoise/raster/pixel_buffers.h"

class JIncrRaster_ToRGB : public JIncrRaster {
public:
    // Width and height of y. The planes and the adapter are not owned. Throws
    // JEx when xStart..xEnd holds more pixels than the strip row from leadIn
    // on (plus the buffer's four spare pixels), or when leadIn is negative.
    JIncrRaster_ToRGB(JIncrRaster& y, JIncrRaster& cr, JIncrRaster& cb, JImageAdapter* destination, int xStart,
                      int xEnd, int leadIn);

    void computeScanline(int row, float* out) override;
    void refInputs(int row) override;
    // Rows up to `last` are written as they are computed; a row further down
    // is kept until commitRow. Without a limit every row is written at once.
    void setWriteLimit(int last);
    // Writes the row if it was kept.
    void commitRow(int row) override;
    // The same pixels as the scalar path, several at a time.
    virtual void computeScanline_SIMD(int row, float* out);

private:
    // Hands the built row px to the adapter, one row at a time.
    void write(int row, const JPixel* px);

    JImageAdapter* destination_;
    int xStart_;
    int xEnd_;
    int leadIn_;
    // Rows of leadIn + width + 4 pixels, built outside the mutex; the
    // adapter writes one at a time, under it.
    JPixelBuffers pixels_;
    JMutex pixelsMutex_;
    JIncrRaster& y_;
    JIncrRaster& cr_;
    JIncrRaster& cb_;
    std::atomic<int> writeLimit_{INT_MAX};
    // The kept rows, each written by the thread that commits it (which saw
    // the row finished, and with it this entry).
    std::vector<std::unique_ptr<JPixel[]>> kept_;
};
