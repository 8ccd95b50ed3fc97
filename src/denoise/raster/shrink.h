// JIncrRaster_Shrink: scales each coefficient of a wavelet detail plane by the
// share of its local energy that is signal, looked up at the pixel's colour.
//   m = max(v, 1e-8); g = max((m - n) / m, 0); s = sqrtf(g)
//   out = (contrast * a) * (t >= s ? t : s)
// with a the detail, v the energy, n the noise map and t the strength map at
// (y, cr, cb), or the threshold without a strength map. Single precision, the
// product rounded in the order written. The vector path gives the same rows.
#pragma once

#include <atomic>
#include <cmath>

#include "denoise/raster/incr_raster.h"
#include "profile/map_3d.h"

class JIncrRaster_Shrink : public JIncrRaster {
public:
    JIncrRaster_Shrink(JIncrRaster& detail, JIncrRaster& y, JIncrRaster& cr, JIncrRaster& cb, JIncrRaster& energy,
                       J3DMap& noiseMap, J3DMap* strengthMap);

    void computeScanline(int row, float* out) override;
    // References row `row` of detail, y, cr, cb and energy, in that order.
    void refInputs(int row) override;
    virtual void computeScanline_SIMD(int row, float* out);

    // Multiplies the surviving detail; 1.0 initially.
    void setContrast(float contrast);
    // The gain floor used without a strength map; 1.0 initially, which keeps
    // every coefficient.
    void setThreshold(float threshold);
    float contrast() const { return contrast_.load(std::memory_order_relaxed); }
    float threshold() const { return threshold_.load(std::memory_order_relaxed); }

    // The row formula for one pixel: detail a, energy v, noise n, floor t.
    static float shrinkPixel(float a, float v, float n, float t, float contrast)
    {
        const float m = v > 1e-8f ? v : 1e-8f;
        float g = (m - n) / m;
        if (g <= 0.0f)
            g = 0.0f;
        const float s = sqrtf(g);
        const float gain = t >= s ? t : s;
        return (contrast * a) * gain;
    }

private:
    void releaseInputs(int row);

    JIncrRaster& detail_;
    JIncrRaster& y_;
    JIncrRaster& cr_;
    JIncrRaster& cb_;
    JIncrRaster& energy_;
    J3DMap& noiseMap_;
    J3DMap* strengthMap_;
    std::atomic<float> contrast_{1.0f};
    std::atomic<float> threshold_{1.0f};
};
