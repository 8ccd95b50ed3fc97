#include "denoise/raster/add.h"

#include "base/cpu_info.h"
#include "denoise/raster/pixelwise.h"

JIncrRaster_Add::JIncrRaster_Add(JIncrRaster& a, JIncrRaster& b)
    : JIncrRaster(a.width(), a.height()), a_(a), b_(b)
{
    requireDataType(Plane, a);
    requireDataType(Plane, b);
}

void JIncrRaster_Add::refInputs(int row)
{
    a_.refScanline(row);
    b_.refScanline(row);
}

void JIncrRaster_Add::computeScanline(int row, float* out)
{
    if (JCPUInfo::SIMDSupported.load(std::memory_order_relaxed)) {
        computeScanline_SIMD(row, out);
        return;
    }
    pixelwise::scalarRow(a_, b_, row, width(), out, [](float a, float b) { return a + b; });
}
