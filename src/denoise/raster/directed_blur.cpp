#include "denoise/raster/directed_blur.h"

#include <climits>
#include <cmath>
#include <cstdint>

#include "base/cpu_info.h"
#include "base/ex.h"
#include "base/qtless/qobject.h"

JIncrRaster_DirectedBlur::JIncrRaster_DirectedBlur(JIncrRaster& input, int spacing)
    : JIncrRaster(input.width(), input.height()), input_(&input), spacing_(spacing)
{
    // Rows up to y + 2s and the margin 2s + 4 must stay within an int; a spacing
    // beyond that (a decomposition 31 levels deep) would overflow them.
    if (spacing < 0 || static_cast<int64_t>(input.height()) + 2 * static_cast<int64_t>(spacing) + 4 > INT_MAX)
        throw JEx(qtless::QObject::tr("Invalid wavelet spacing"));
    requireDataType(Plane, input);
    input.requestReflection(2 * spacing + 4);
}

void JIncrRaster_DirectedBlur::refInputs(int row)
{
    if (averagesOwnRows(row)) {
        refScanline(row - 1);
        refScanline(row + 1);
        return;
    }
    for (int k = -2; k <= 2; ++k)
        input_->refScanline(row + k * spacing_);
}

JIncrRaster_DirectedBlur::InputRows JIncrRaster_DirectedBlur::fetchInputRows(int row)
{
    InputRows in;
    for (int k = -2; k <= 2; ++k)
        in.r[k + 2] = input_->getScanline(row + k * spacing_);
    return in;
}

void JIncrRaster_DirectedBlur::releaseInputRows(int row)
{
    for (int k = -2; k <= 2; ++k)
        input_->unrefScanline(row + k * spacing_);
}

void JIncrRaster_DirectedBlur::averageOwnRows(int row, float* out)
{
    avgScanlines(row - 1, row + 1, out);
    unrefScanline(row - 1);
    unrefScanline(row + 1);
}

void JIncrRaster_DirectedBlur::computeScanline(int row, float* out)
{
    if (averagesOwnRows(row)) {
        averageOwnRows(row, out);
        return;
    }
    if (JCPUInfo::SIMDSupported.load(std::memory_order_relaxed)) {
        computeScanline_SIMD(row, out);
        return;
    }
    const InputRows in = fetchInputRows(row);
    blurPixels(in, spacing_, width(), out);
    releaseInputRows(row);
}

void JIncrRaster_DirectedBlur::blurPixels(const InputRows& in, int s, int width, float* out)
{
    const float* mid = in.r[2];
    for (int x = 0; x < width; ++x) {
        const float c = mid[x];

        // Absolute differences from the centre along four lines through it.
        float a = 0.0f;  // diagonal
        float b = 0.0f;  // horizontal
        float cc = 0.0f; // anti-diagonal
        float d = 0.0f;  // vertical
        for (int k = -2; k <= 2; ++k) {
            const float* row = in.r[k + 2];
            a += std::fabs(row[x + k * s] - c);
            b += std::fabs(mid[x + k * s] - c);
            cc += std::fabs(row[x - k * s] - c);
            d += std::fabs(row[x] - c);
        }

        // The flattest direction sets the threshold; the order of the choice
        // decides ties and is kept.
        float m = a;
        if (cc < m)
            m = cc;
        if (b < m)
            m = b;
        if (d < m)
            m = d;
        const float t = m * 0.2f;
        const float T = std::fma(t, 1.27f, 1e-10f);

        // Weighted mean of the ring at distance s; the centre is left out.
        const float ring[8] = {
            in.r[1][x - s], in.r[1][x], in.r[1][x + s],
            mid[x - s],                 mid[x + s],
            in.r[3][x - s], in.r[3][x], in.r[3][x + s],
        };
        float num = 0.0f;
        float den = 1e-10f;
        for (const float v : ring) {
            const float dv = std::fabs(v - c);
            const float w = 1.0f / ((T >= dv) ? T : dv);
            const float wv = w * v;
            num += wv;
            den += w;
        }
        out[x] = num / den;
    }
}
