// JIncrRaster_FilterMask: applies the painted filter mask to one channel of a
// strip, keeping the unfiltered value where the mask is 1 and the filtered one
// where it is 0:
//   out[x] = fmaf(m, o[x], (1 - m) * f[x])
// with m the mask weight of column xStart + x (one fused multiply-add onto the
// rounded (1 - m) * f). A row whose mask row is empty is a copy of the
// filtered row and never touches the unfiltered input. The vector path gives
// the same rows.
//
// Threads: the one mask row buffer is shared by every thread computing rows of
// this node; its mutex is held from filling the buffer until the blended row
// is written, so rows that need the mask are blended one at a time.
#pragma once

#include <atomic>
#include <memory>

#include "base/mutex.h"
#include "denoise/raster/incr_raster.h"

class JFilterMask;

class JIncrRaster_FilterMask : public JIncrRaster {
public:
    enum MaskChannel { Luminance = 0, Chroma = 1 };

    // Width and height are those of unfiltered; xStart..xEnd (inclusive) are
    // the mask columns of the row. Throws JEx when they are fewer than the
    // row's pixels.
    JIncrRaster_FilterMask(JIncrRaster& unfiltered, JIncrRaster& filtered, JFilterMask& mask, int xStart, int xEnd);

    void computeScanline(int row, float* out) override;
    // References row `row` of filtered, and of unfiltered when the mask row is
    // not empty or the bypass flag is set.
    void refInputs(int row) override;

    // Luminance for the Y node, Chroma for the Cr and Cb nodes; Luminance initially.
    void setMaskChannel(MaskChannel channel);
    MaskChannel maskChannel() const { return static_cast<MaskChannel>(channel_.load(std::memory_order_relaxed)); }

    // With the bypass flag set every row is a copy of the filtered row, yet
    // refInputs still references the unfiltered row, a reference that is never
    // dropped. Nothing in the engine sets the flag; the asymmetry is kept as it is.
    void setBypass(bool bypass);
    bool bypass() const { return bypass_.load(std::memory_order_relaxed) != 0; }

private:
    bool maskRowEmpty(int row) const;
    // out[x] = fmaf(m[x], o[x], (1 - m[x]) * f[x]) for x in 0..n-1, by the
    // widest vector path available; returns the pixels it did.
    static int blend_SIMD(const float* m, const float* o, const float* f, float* out, int n);

    int xStart_;
    int xEnd_;
    std::unique_ptr<float[]> maskRow_;
    JMutex maskMutex_;
    JIncrRaster& unfiltered_;
    JIncrRaster& filtered_;
    JFilterMask& mask_;
    std::atomic<int> bypass_{0};
    std::atomic<int> channel_{Luminance};
};
