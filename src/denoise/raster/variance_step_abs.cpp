#include "denoise/raster/variance_step_abs.h"

#include <cmath>
#include <vector>

#include "base/cpu_info.h"
#include "base/ex.h"
#include "base/qtless/qobject.h"

JIncrRaster_VarianceStepAbs::JIncrRaster_VarianceStepAbs(JIncrRaster& input, int radius, int step)
    : JIncrRaster(input.width(), input.height()), input_(input), radius_(radius), step_(step)
{
    if (step < 1)
        throw JEx(qtless::QObject::tr("Variance step %1 is below 1").arg(step));
    requireDataType(Plane, input);
    input.requestReflection((radius + 1) * step + 4);
}

int JIncrRaster_VarianceStepAbs::firstTap() const
{
    // The radius-1 form reads five rows, and references all of them.
    return radius_ == 1 ? -2 : -radius_;
}

int JIncrRaster_VarianceStepAbs::lastTap() const
{
    return radius_ == 1 ? 2 : radius_;
}

void JIncrRaster_VarianceStepAbs::refInputs(int row)
{
    if (turbo() && (row & 1)) {
        refScanline(row - 1);
        return;
    }
    for (int k = firstTap(); k <= lastTap(); ++k)
        input_.refScanline(row + k * step_);
}

float JIncrRaster_VarianceStepAbs::fullSum(const float* const* rows, int nRows, int cols, int x) const
{
    float a = 0.0f;
    for (int j = 0; j < nRows; ++j)
        for (int k = -cols; k <= cols; ++k)
            a = a + std::fabs(rows[j][x + k * step_]);
    return a;
}

void JIncrRaster_VarianceStepAbs::computeScanline(int row, float* out)
{
    if (turbo() && (row & 1)) {
        copyScanline(row - 1, out);
        unrefScanline(row - 1);
        return;
    }
    if (radius_ == 2 && JCPUInfo::useSIMD(JCPUInfo::AVX2) && radius2RowsSIMD(row, out))
        return;
    const float* rows[7];
    int n = 0;
    for (int k = firstTap(); k <= lastTap(); ++k) {
        const float* r = input_.getScanline(row + k * step_);
        if (n < 7)
            rows[n++] = r;
    }
    if (radius_ == 1) {
        for (int x = 0; x < width(); ++x) {
            const float m = fullSum(rows, 5, 1, x) / 9.0f;
            out[x] = m * m;
        }
    } else if (radius_ == 2) {
        radius2(rows, out);
    } else if (radius_ == 3) {
        for (int x = 0; x < width(); ++x) {
            const float m = fullSum(rows, 7, 3, x) / 49.0f;
            out[x] = m * m;
        }
    }
    for (int k = firstTap(); k <= lastTap(); ++k)
        input_.unrefScanline(row + k * step_);
}

void JIncrRaster_VarianceStepAbs::radius2(const float* const* rows, float* out) const
{
    const int s = step_;
    const int w = width();
    thread_local std::vector<float> ring;
    if (ring.size() < static_cast<size_t>(s))
        ring.resize(s);
    int x = 0;
    for (; x < s && x < w; ++x) {
        const float m = fullSum(rows, 5, 2, x) / 25.0f;
        out[x] = m * m;
        // The ring is seeded from the stored value, not from the sum itself.
        ring[x] = std::sqrt(out[x]) * 25.0f;
    }
    if (x < w && JCPUInfo::SIMDSupported.load(std::memory_order_relaxed))
        x = radius2_SIMD(rows, out, ring.data());
    for (; x < w; ++x) {
        float a = ring[x % s];
        for (int j = 0; j < 5; ++j) {
            a = a - std::fabs(rows[j][x - 3 * s]);
            a = a + std::fabs(rows[j][x + 2 * s]);
        }
        ring[x % s] = a;
        out[x] = (a / 25.0f) * (a / 25.0f);
    }
}
