// JIncrRaster_Sharpen: the unsharp mask applied to the rebuilt luminance.
// The vertical Gaussian pass is an owned JIncrRaster_VBlur v; the horizontal
// pass runs here over taps -3k .. 3k-1 only (the last tap is left out,
// deliberately), plain products and sums from -3k upwards, not fused:
//   b = sum_{i=-3k}^{3k-1} w_i * v[x+i];  s = fmaf(amount, o[x] - b, b)
// With suppress-halos: d = min(o, 1 - o), then s = min(s, o + 0.5 d) and
// s = max(s, o - 0.5 d). The vector path (sharpen_simd.cpp) gives the same bits.
// It also owns an edge detector (Sobel radius 2, gain 40) and its box mean
// (radius 2); the row never reads them. With find-edges set, refInputs still
// references the box mean's row and that reference is never released, as it
// always has been (nothing in the engine sets find-edges).
#pragma once

#include <memory>

#include "denoise/raster/incr_raster.h"
#include "denoise/raster/vblur.h"

class JIncrRaster_BoxBlur;
class JIncrRaster_Sobel;

class JIncrRaster_Sharpen : public JIncrRaster {
public:
    JIncrRaster_Sharpen(JIncrRaster& input, float sigma, float amount);
    ~JIncrRaster_Sharpen() override;

    void computeScanline(int row, float* out) override;
    void refInputs(int row) override;
    // The same row, several pixels at a time (sharpen_simd.cpp).
    virtual void computeScanline_SIMD(int row, float* out);

    void suppressHalos(bool on) { suppressHalos_.store(on ? 1 : 0, std::memory_order_relaxed); }
    void findEdges(bool on) { findEdges_.store(on ? 1 : 0, std::memory_order_relaxed); }

    float sigma() const { return sigma_; }
    float amount() const { return amount_; }
    int k() const { return k_; }
    // Tap i for -3k <= i <= 3k.
    float tap(int i) const { return center_[i]; }
    JIncrRaster_VBlur& verticalBlur() { return *vblur_; }
    JIncrRaster_Sobel& edges() { return *sobel_; }
    JIncrRaster_BoxBlur& blurredEdges() { return *edgeBlur_; }

private:
    // Pixels from..n-1 of a row from the vertical blur v and the input o.
    void sharpenPixels(const float* v, const float* o, bool limit, float* out, int from, int n) const;

    // Flags set while the graph is built and read by the workers.
    std::atomic<int> suppressHalos_{0};
    std::atomic<int> findEdges_{0};
    std::unique_ptr<JIncrRaster_VBlur> vblur_;
    std::unique_ptr<JIncrRaster_Sobel> sobel_;
    std::unique_ptr<JIncrRaster_BoxBlur> edgeBlur_;
    JIncrRaster& input_;
    float sigma_;
    float amount_;
    int k_;
    float kernel_[JIncrRaster_VBlur::kMaxTaps];
    const float* center_;
};
