#include "color/color_palette.h"

namespace {

struct RGB {
    float r, g, b;
};

// Towards black for t <= 1, towards white above. Factors and mixing are in
// double; the mixed channels are rounded to float.
RGB shade(double r, double g, double b, double t)
{
    if (t <= 1.0)
        return {static_cast<float>(r * t), static_cast<float>(g * t), static_cast<float>(b * t)};
    double k = t - 1.0;
    return {static_cast<float>(k + (1.0 - k) * r), static_cast<float>(k + (1.0 - k) * g),
            static_cast<float>(k + (1.0 - k) * b)};
}

// Towards mid grey.
RGB greyMix(double r, double g, double b, double t)
{
    double k = 1.0 - t;
    return {static_cast<float>(t * r + 0.5 * k), static_cast<float>(t * g + 0.5 * k),
            static_cast<float>(t * b + 0.5 * k)};
}

// Base colour of each column, as float values.
const RGB kBase[12] = {
    {1.0f, 0.0f, 0.0f}, {1.0f, 0.5f, 0.0f}, {1.0f, 1.0f, 0.0f}, {0.7f, 1.0f, 0.0f},
    {0.0f, 1.0f, 0.0f}, {0.0f, 1.0f, 0.7f}, {0.0f, 1.0f, 1.0f}, {0.0f, 0.5f, 1.0f},
    {0.0f, 0.0f, 1.0f}, {1.0f, 0.0f, 1.0f}, {1.0f, 0.0f, 0.5f}, {0.5f, 0.5f, 0.5f},
};

enum class Mix { Shade, Grey };

struct Variation {
    Mix mix;
    double t;
};

// Rows 0..5 for columns 1..10, for column 0 and for the grey column 11. The
// red column and the greys follow lists of their own on purpose: red has no
// plain shade 1.0 row and the greys use shades only.
const Variation kMiddle[6] = {{Mix::Shade, 0.4}, {Mix::Grey, 0.3},  {Mix::Shade, 0.8},
                              {Mix::Shade, 1.0}, {Mix::Shade, 1.5}, {Mix::Shade, 1.8}};
const Variation kFirst[6] = {{Mix::Shade, 0.3}, {Mix::Shade, 0.7}, {Mix::Grey, 0.3},
                             {Mix::Shade, 1.1}, {Mix::Shade, 1.5}, {Mix::Shade, 1.7}};
const Variation kLast[6] = {{Mix::Shade, 0.1}, {Mix::Shade, 0.5}, {Mix::Shade, 0.9},
                            {Mix::Shade, 1.2}, {Mix::Shade, 1.6}, {Mix::Shade, 1.9}};

}  // namespace

JColorPalette* JColorPalette::getPalette()
{
    // A function-local static: the first build is thread-safe and the palette
    // is destroyed at process exit.
    static JColorPalette palette;
    return &palette;
}

JColorPalette::JColorPalette() : nrows_(kRows), ncols_(kCols)
{
    for (int col = 0; col < kCols; col++) {
        const Variation* list = col == 0 ? kFirst : (col == kCols - 1 ? kLast : kMiddle);
        const RGB& base = kBase[col];
        for (int row = 0; row < kRows; row++) {
            const Variation& v = list[row];
            RGB c = v.mix == Mix::Shade ? shade(base.r, base.g, base.b, v.t) : greyMix(base.r, base.g, base.b, v.t);
            entries_[row][col].fromRGB(c.r, c.g, c.b);
        }
    }
}

JLabCoord JColorPalette::findNearestEntry(JLabCoord& lab, int& row, int& col) const
{
    // Zeroed rather than left uninitialised, so that the no-match case returns
    // a defined value.
    JLabCoord best(0.0f, 0.0f, 0.0f);
    float bestDist = 1e38f;
    for (int j = 0; j < nrows_; j++) {
        for (int i = 0; i < ncols_; i++) {
            float d = entries_[j][i].deltaESqr(lab);
            if (d < bestDist) {
                bestDist = d;
                best = entries_[j][i];
                row = j;
                col = i;
            }
        }
    }
    return best;
}
