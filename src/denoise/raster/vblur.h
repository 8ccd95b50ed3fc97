// JIncrRaster_VBlur: the vertical pass of a Gaussian blur.
//   out[x] = sum over i = -3k .. 3k of w_i * in(y + i, x), accumulated from
//   i = -3k upwards with fused multiply-adds, starting from 0
// The kernel: k = (int)ceilf(sigma), then min(k, 3), then max(k, 1);
// w_i = expf(-i^2 / ((sigma + sigma) * sigma)), each divided by the sum of
// all taps taken from -3k upwards. The vector path gives the same rows.
#pragma once

#include "denoise/raster/incr_raster.h"

class JIncrRaster_VBlur : public JIncrRaster {
public:
    // Largest kernel: taps -9 .. 9.
    static constexpr int kMaxTaps = 19;

    JIncrRaster_VBlur(JIncrRaster& input, float sigma);

    void computeScanline(int row, float* out) override;
    void refInputs(int row) override;
    virtual void computeScanline_SIMD(int row, float* out);

    // The kernel's half-width unit for sigma.
    static int kernelUnit(float sigma);
    // Fills taps[0 .. 6k] with w_{-3k} .. w_{3k}.
    static void buildKernel(float sigma, int k, float* taps);

    float sigma() const { return sigma_; }
    int k() const { return k_; }
    // Tap i for -3k <= i <= 3k.
    float tap(int i) const { return center_[i]; }

private:
    JIncrRaster& input_;
    float sigma_;
    int k_;
    float kernel_[kMaxTaps];
    const float* center_;
    // Each tap repeated four times, for loading whole vectors of one tap.
    alignas(16) float kernel4_[4 * kMaxTaps];
    const float* center4_;
};
