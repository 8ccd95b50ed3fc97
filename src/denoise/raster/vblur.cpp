#include "denoise/raster/vblur.h"

#include <cmath>

#include "base/cpu_info.h"

int JIncrRaster_VBlur::kernelUnit(float sigma)
{
    // (int)ceilf(sigma), then min 3, then max 1. The clamping happens on the
    // float so that a huge sigma cannot overflow the conversion; a NaN gives 1.
    const float c = std::ceil(sigma);
    if (c >= 3.0f)
        return 3;
    if (c >= 1.0f)
        return static_cast<int>(c);
    return 1;
}

void JIncrRaster_VBlur::buildKernel(float sigma, int k, float* taps)
{
    const int n = 6 * k + 1;
    const float spread = (sigma + sigma) * sigma;
    float sum = 0.0f;
    for (int j = 0; j < n; ++j) {
        const int i = j - 3 * k;
        taps[j] = std::exp(-static_cast<float>(i * i) / spread);
        sum = sum + taps[j];
    }
    for (int j = 0; j < n; ++j)
        taps[j] = taps[j] / sum;
}

JIncrRaster_VBlur::JIncrRaster_VBlur(JIncrRaster& input, float sigma)
    : JIncrRaster(input.width(), input.height()), input_(input), sigma_(sigma), k_(kernelUnit(sigma))
{
    requireDataType(Plane, input);
    buildKernel(sigma_, k_, kernel_);
    center_ = kernel_ + 3 * k_;
    for (int j = 0; j < 6 * k_ + 1; ++j)
        for (int l = 0; l < 4; ++l)
            kernel4_[4 * j + l] = kernel_[j];
    center4_ = kernel4_ + 4 * 3 * k_;
}

void JIncrRaster_VBlur::refInputs(int row)
{
    for (int i = -3 * k_; i <= 3 * k_; ++i)
        input_.refScanline(row + i);
}

void JIncrRaster_VBlur::computeScanline(int row, float* out)
{
    if (JCPUInfo::SIMDSupported.load(std::memory_order_relaxed)) {
        computeScanline_SIMD(row, out);
        return;
    }
    const int r = 3 * k_;
    const float* in[kMaxTaps];
    for (int i = -r; i <= r; ++i)
        in[i + r] = input_.getScanline(row + i);
    for (int x = 0; x < width(); ++x) {
        float s = 0.0f;
        for (int i = -r; i <= r; ++i)
            s = std::fma(center_[i], in[i + r][x], s);
        out[x] = s;
    }
    for (int i = -r; i <= r; ++i)
        input_.unrefScanline(row + i);
}
