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

namespace {

// The weight 1 / (di*di + dj*dj + dk*dk + 1e-6) of every offset between two
// cells, each coordinate of the offset from -7 to 7: the offset from cell
// (i', j', k') to cell (i, j, k) is entry spread(i, j, k) - spread(i', j', k').
class InverseSquareWeights {
public:
    InverseSquareWeights()
    {
        for (int a = -7; a <= 7; ++a)
            for (int b = -7; b <= 7; ++b)
                for (int c = -7; c <= 7; ++c) {
                    const double di = static_cast<double>(a) * 0.125;
                    const double dj = static_cast<double>(b) * 0.125;
                    const double dk = static_cast<double>(c) * 0.125;
                    w_[kCentre + a * 225 + b * 15 + c] = 1.0 / (di * di + dj * dj + dk * dk + 1e-6);
                }
    }

    // A cell's coordinates in the table's layout, 15 apart.
    static int spread(int cell) { return (cell >> 6) * 225 + ((cell >> 3) & 7) * 15 + (cell & 7); }
    double operator[](int offset) const { return w_[kCentre + offset]; }

private:
    static constexpr int kCentre = 7 * 225 + 7 * 15 + 7;
    double w_[15 * 15 * 15];
};

}  // namespace

void J3DMap::endSampling()
{
    for (int c = 0; c < kCells; ++c) {
        if (counts_[c] > 0)
            values_[c] = values_[c] / static_cast<float>(counts_[c]);
    }

    // The measured cells, in index order, and the empty ones.
    int measured[kCells], empty[kCells];
    double measuredValue[kCells];
    int nMeasured = 0, nEmpty = 0;
    for (int c = 0; c < kCells; ++c) {
        if (counts_[c] > 0) {
            measuredValue[nMeasured] = static_cast<double>(values_[c]);
            measured[nMeasured++] = InverseSquareWeights::spread(c);
        } else if (counts_[c] == 0) {
            empty[nEmpty++] = c;
        }
    }

    // Each empty cell sums over the measured ones in index order. Four empty
    // cells are summed side by side: four independent chains of additions
    // instead of one, each in its own order.
    static const InverseSquareWeights weight;
    constexpr int kSide = 4;
    for (int e = 0; e < nEmpty; e += kSide) {
        const int n = nEmpty - e < kSide ? nEmpty - e : kSide;
        int at[kSide];
        for (int q = 0; q < kSide; ++q)
            at[q] = InverseSquareWeights::spread(empty[e + (q < n ? q : 0)]);
        double sumWV[kSide] = {}, sumW[kSide] = {};
        for (int m = 0; m < nMeasured; ++m) {
            for (int q = 0; q < kSide; ++q) {
                const double w = weight[at[q] - measured[m]];
                sumWV[q] += w * measuredValue[m];
                sumW[q] += w;
            }
        }
        for (int q = 0; q < n; ++q) {
            if (!(sumW[q] > 1e-38))
                sumW[q] = 1e-38;
            values_[empty[e + q]] = static_cast<float>(sumWV[q] / sumW[q]);
        }
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
