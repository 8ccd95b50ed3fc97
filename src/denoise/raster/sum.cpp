#include "denoise/raster/sum.h"

#include "base/cpu_info.h"
#include "base/ex.h"
#include "base/qtless/qobject.h"

namespace {

// The size comes from the first input, so there has to be one.
JIncrRaster& firstInput(JIncrRaster** inputs, int count)
{
    if (count < 1 || !inputs || !inputs[0])
        throw JEx(qtless::QObject::tr("A sum needs at least one input"));
    return *inputs[0];
}

}  // namespace

JIncrRaster_Sum::JIncrRaster_Sum(JIncrRaster** inputs, int count)
    : JIncrRaster(firstInput(inputs, count).width(), inputs[0]->height()),
      inputs_(inputs, inputs + count)
{
    for (JIncrRaster* in : inputs_)
        requireDataType(Plane, *in);
}

void JIncrRaster_Sum::refInputs(int row)
{
    for (JIncrRaster* in : inputs_)
        in->refScanline(row);
}

void JIncrRaster_Sum::computeScanline(int row, float* out)
{
    if (JCPUInfo::SIMDSupported.load(std::memory_order_relaxed)) {
        computeScanline_SIMD(row, out);
        return;
    }
    const float* first = inputs_[0]->getScanline(row);
    for (int x = 0; x < width(); ++x)
        out[x] = first[x];
    for (size_t i = 1; i < inputs_.size(); ++i) {
        const float* in = inputs_[i]->getScanline(row);
        for (int x = 0; x < width(); ++x)
            out[x] += in[x];
    }
    for (JIncrRaster* in : inputs_)
        in->unrefScanline(row);
}
