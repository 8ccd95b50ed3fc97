#include "denoise/raster/shrink.h"

#include "base/cpu_info.h"

JIncrRaster_Shrink::JIncrRaster_Shrink(JIncrRaster& detail, JIncrRaster& y, JIncrRaster& cr, JIncrRaster& cb,
                                       JIncrRaster& energy, J3DMap& noiseMap, J3DMap* strengthMap)
    : JIncrRaster(detail.width(), detail.height()),
      detail_(detail),
      y_(y),
      cr_(cr),
      cb_(cb),
      energy_(energy),
      noiseMap_(noiseMap),
      strengthMap_(strengthMap)
{
    requireDataType(Plane, detail);
    requireDataType(Plane, y);
    requireDataType(Plane, cr);
    requireDataType(Plane, cb);
    requireDataType(Plane, energy);
}

void JIncrRaster_Shrink::setContrast(float contrast)
{
    contrast_.store(contrast, std::memory_order_relaxed);
}

void JIncrRaster_Shrink::setThreshold(float threshold)
{
    threshold_.store(threshold, std::memory_order_relaxed);
}

void JIncrRaster_Shrink::refInputs(int row)
{
    detail_.refScanline(row);
    y_.refScanline(row);
    cr_.refScanline(row);
    cb_.refScanline(row);
    energy_.refScanline(row);
}

void JIncrRaster_Shrink::releaseInputs(int row)
{
    detail_.unrefScanline(row);
    y_.unrefScanline(row);
    cr_.unrefScanline(row);
    cb_.unrefScanline(row);
    energy_.unrefScanline(row);
}

void JIncrRaster_Shrink::computeScanline(int row, float* out)
{
    if (JCPUInfo::SIMDSupported.load(std::memory_order_relaxed)) {
        computeScanline_SIMD(row, out);
        return;
    }
    const float* a = detail_.getScanline(row);
    const float* ys = y_.getScanline(row);
    const float* crs = cr_.getScanline(row);
    const float* cbs = cb_.getScanline(row);
    const float* v = energy_.getScanline(row);
    const float contrast = this->contrast();
    const float threshold = this->threshold();

    for (int x = 0; x < width(); ++x) {
        const float n = noiseMap_.lookup(ys[x], crs[x], cbs[x]);
        const float t = strengthMap_ ? strengthMap_->lookup(ys[x], crs[x], cbs[x]) : threshold;
        out[x] = shrinkPixel(a[x], v[x], n, t, contrast);
    }

    releaseInputs(row);
}
