#include "profile/map_3d.h"

#include "base/ex.h"
#include "base/qtless/qobject.h"

using qtless::QObject;

J3DMap::J3DMap()
{
    clear();
}

void J3DMap::clear()
{
    for (int i = 0; i < kCells; ++i) {
        values_[i] = 0.0f;
        counts_[i] = 0;
    }
}

void J3DMap::beginSampling()
{
    clear();
}

void J3DMap::addSample(float x, float y, float z, float v)
{
    const int c = indexOf(x, y, z);
    values_[c] += v;
    counts_[c] += 1;
}

void J3DMap::endSampling()
{
    for (int c = 0; c < kCells; ++c) {
        if (counts_[c] > 0)
            values_[c] = values_[c] / static_cast<float>(counts_[c]);
    }

    for (int c = 0; c < kCells; ++c) {
        if (counts_[c] != 0)
            continue;
        const int i = c >> 6, j = (c >> 3) & 7, k = c & 7;
        double sumWV = 0.0;
        double sumW = 0.0;
        for (int m = 0; m < kCells; ++m) {
            if (counts_[m] <= 0)
                continue;
            const double di = static_cast<double>(i - (m >> 6)) * 0.125;
            const double dj = static_cast<double>(j - ((m >> 3) & 7)) * 0.125;
            const double dk = static_cast<double>(k - (m & 7)) * 0.125;
            const double w = 1.0 / (di * di + dj * dj + dk * dk + 1e-6);
            sumWV += w * static_cast<double>(values_[m]);
            sumW += w;
        }
        if (!(sumW > 1e-38))
            sumW = 1e-38;
        values_[c] = static_cast<float>(sumWV / sumW);
    }
}

static void checkCell(int index)
{
    if (index < 0 || index >= J3DMap::kCells)
        throw JEx(QObject::tr("3-D map cell %1 out of range").arg(index));
}

float J3DMap::getCellValue(int index) const
{
    checkCell(index);
    return values_[index];
}

void J3DMap::setCellValue(int index, float value)
{
    checkCell(index);
    values_[index] = value;
}

int J3DMap::getCellCount(int index) const
{
    checkCell(index);
    return counts_[index];
}

__m128i J3DMap::indexOf_SIMD(__m128 x, __m128 y, __m128 z)
{
    const __m128 scale = _mm_set1_ps(7.999f);
    const __m128 limit = _mm_set1_ps(2147483648.0f);
    const __m128i seven = _mm_set1_epi32(7);
    const __m128i intMax = _mm_set1_epi32(INT32_MAX);
    auto coord = [&](__m128 c) {
        const __m128 s = _mm_mul_ps(c, scale);
        // The conversion gives INT_MIN for NaN and out-of-range lanes; the
        // large positive ones become INT_MAX like the scalar cellCoord.
        __m128i i = _mm_cvttps_epi32(s);
        const __m128i over = _mm_castps_si128(_mm_cmpge_ps(s, limit));
        i = _mm_or_si128(_mm_andnot_si128(over, i), _mm_and_si128(over, intMax));
        return _mm_and_si128(i, seven);
    };
    const __m128i ci = _mm_slli_epi32(coord(x), 6);
    const __m128i cj = _mm_slli_epi32(coord(y), 3);
    const __m128i ck = coord(z);
    return _mm_add_epi32(_mm_add_epi32(ci, cj), ck);
}
