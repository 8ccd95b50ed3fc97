#include "denoise/raster/blend.h"

#include <cmath>

#include "base/cpu_info.h"

JIncrRaster_Blend::JIncrRaster_Blend(JIncrRaster& a, JIncrRaster& b, JIncrRaster& mask)
    : JIncrRaster(a.width(), a.height()), a_(a), b_(b), mask_(mask)
{
    requireDataType(Plane, a);
    requireDataType(Plane, b);
    requireDataType(Plane, mask);
}

void JIncrRaster_Blend::refInputs(int row)
{
    a_.refScanline(row);
    b_.refScanline(row);
    mask_.refScanline(row);
}

void JIncrRaster_Blend::computeScanline(int row, float* out)
{
    if (JCPUInfo::SIMDSupported.load(std::memory_order_relaxed)) {
        computeScanline_SIMD(row, out);
        return;
    }
    const float* a = a_.getScanline(row);
    const float* b = b_.getScanline(row);
    const float* mask = mask_.getScanline(row);
    for (int x = 0; x < width(); ++x) {
        const float rest = (1.0f - mask[x]) * b[x];
        out[x] = std::fma(mask[x], a[x], rest);
    }
    a_.unrefScanline(row);
    b_.unrefScanline(row);
    mask_.unrefScanline(row);
}
