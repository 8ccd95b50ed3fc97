#include "denoise/raster/rgbx_to_ycrcb.h"

#include <cmath>

#include "base/cpu_info.h"

JIncrRaster_RGBXToYCrCb::JIncrRaster_RGBXToYCrCb(JIncrRaster* rgbx, JImageLib::YCrCbIndex channel)
    : JIncrRaster(rgbx->width(), rgbx->height()), rgbx_(rgbx), channel_(channel)
{
    requireDataType(RGBX, *rgbx);
}

void JIncrRaster_RGBXToYCrCb::refInputs(int row)
{
    rgbx_->refScanline(row);
}

void JIncrRaster_RGBXToYCrCb::computeScanline(int row, float* out)
{
    if (JCPUInfo::SIMDSupported.load(std::memory_order_relaxed)) {
        computeScanline_SIMD(row, out);
        return;
    }
    const float* in = rgbx_->getScanline(row);
    convertPixels(in, out, 0, width());
    rgbx_->unrefScanline(row);
}

void JIncrRaster_RGBXToYCrCb::convertPixels(const float* in, float* out, int from, int n) const
{
    switch (channel_) {
    case JImageLib::Y:
        for (int x = from; x < n; ++x) {
            const float R = in[4 * x], G = in[4 * x + 1], B = in[4 * x + 2];
            out[x] = fmaf(B, 0.1145f, fmaf(R, 0.2989f, G * 0.5866f));
        }
        break;
    case JImageLib::Cr:
        for (int x = from; x < n; ++x) {
            const float R = in[4 * x], G = in[4 * x + 1], B = in[4 * x + 2];
            const float c = fmaf(-B, 0.0817f, fmaf(-G, 0.4183f, R * 0.5f));
            out[x] = static_cast<float>(static_cast<double>(c) + 0.5);
        }
        break;
    case JImageLib::Cb:
        for (int x = from; x < n; ++x) {
            const float R = in[4 * x], G = in[4 * x + 1], B = in[4 * x + 2];
            const float c = fmaf(B, 0.5f, fmaf(-G, 0.3312f, R * (-0.1687f)));
            out[x] = static_cast<float>(static_cast<double>(c) + 0.5);
        }
        break;
    }
}
