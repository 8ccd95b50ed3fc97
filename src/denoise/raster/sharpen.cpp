#include "denoise/raster/sharpen.h"

#include <algorithm>
#include <cmath>

#include "base/cpu_info.h"
#include "denoise/raster/box_blur.h"
#include "denoise/raster/sobel.h"

JIncrRaster_Sharpen::JIncrRaster_Sharpen(JIncrRaster& input, float sigma, float amount)
    : JIncrRaster(input.width(), input.height()),
      vblur_(std::make_unique<JIncrRaster_VBlur>(input, sigma)),
      sobel_(std::make_unique<JIncrRaster_Sobel>(input, 2, 40.0f)),
      edgeBlur_(std::make_unique<JIncrRaster_BoxBlur>(*sobel_, 2)),
      input_(input),
      sigma_(sigma),
      amount_(amount),
      k_(JIncrRaster_VBlur::kernelUnit(sigma))
{
    requireDataType(Plane, input);
    JIncrRaster_VBlur::buildKernel(sigma_, k_, kernel_);
    center_ = kernel_ + 3 * k_;
    input.requestReflection(3 * k_ + 4);
    vblur_->requestReflection(3 * k_ + 4);
}

JIncrRaster_Sharpen::~JIncrRaster_Sharpen() = default;

void JIncrRaster_Sharpen::refInputs(int row)
{
    input_.refScanline(row);
    vblur_->refScanline(row);
    if (findEdges_.load(std::memory_order_relaxed))
        edgeBlur_->refScanline(row);
}

void JIncrRaster_Sharpen::computeScanline(int row, float* out)
{
    if (JCPUInfo::SIMDSupported.load(std::memory_order_relaxed)) {
        computeScanline_SIMD(row, out);
        return;
    }
    const float* v = vblur_->getScanline(row);
    const float* o = input_.getScanline(row);
    sharpenPixels(v, o, suppressHalos_.load(std::memory_order_relaxed) != 0, out, 0, width());
    input_.unrefScanline(row);
    vblur_->unrefScanline(row);
}

void JIncrRaster_Sharpen::sharpenPixels(const float* v, const float* o, bool limit, float* out, int from,
                                        int n) const
{
    const int r = 3 * k_;
    for (int x = from; x < n; ++x) {
        float b = 0.0f;
        for (int i = -r; i < r; ++i)
            b = b + center_[i] * v[x + i];
        float s = std::fma(amount_, o[x] - b, b);
        if (limit) {
            const float d = std::min(o[x], 1.0f - o[x]);
            const float hi = o[x] + 0.5f * d;
            const float lo = o[x] - 0.5f * d;
            s = std::min(s, hi);
            s = std::max(s, lo);
        }
        out[x] = s;
    }
}
