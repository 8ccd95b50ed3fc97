#include "filter/filter_mask.h"

#include <algorithm>

#include "base/ex.h"
#include "base/qtless/qobject.h"

using qtless::QObject;

JFilterMask::JFilterMask() : JFilterMask(0, 0) {}

JFilterMask::JFilterMask(int width, int height)
    : lumRows_(static_cast<size_t>(std::max(height, 0))),
      chromaRows_(static_cast<size_t>(std::max(height, 0))),
      width_(width),
      height_(std::max(height, 0))
{
}

void JFilterMask::checkRow(int row) const
{
    if (row < 0 || row >= height_)
        throw JEx(QObject::tr("Filter mask row %1 out of range").arg(row));
}

void JFilterMask::setLumRow(int row, std::vector<uint16_t> words)
{
    checkRow(row);
    lumRows_[static_cast<size_t>(row)] = std::move(words);
}

void JFilterMask::setChromaRow(int row, std::vector<uint16_t> words)
{
    checkRow(row);
    chromaRows_[static_cast<size_t>(row)] = std::move(words);
}

static bool allNull(const std::vector<std::vector<uint16_t>>& rows)
{
    for (const std::vector<uint16_t>& r : rows) {
        if (!r.empty())
            return false;
    }
    return true;
}

bool JFilterMask::isLumEmpty() const
{
    return allNull(lumRows_);
}

bool JFilterMask::isChromaEmpty() const
{
    return allNull(chromaRows_);
}

bool JFilterMask::isLumEmpty(int row) const
{
    checkRow(row);
    return lumRows_[static_cast<size_t>(row)].empty();
}

bool JFilterMask::isChromaEmpty(int row) const
{
    checkRow(row);
    return chromaRows_[static_cast<size_t>(row)].empty();
}

void JFilterMask::getLumScanline(int row, int x0, int x1, float* out) const
{
    readScanline(lumRows_, row, x0, x1, out);
}

void JFilterMask::getChromaScanline(int row, int x0, int x1, float* out) const
{
    readScanline(chromaRows_, row, x0, x1, out);
}

void JFilterMask::readScanline(const Rows& rows, int row, int x0, int x1, float* out) const
{
    if (x1 < x0)
        return;
    if (row < 0 || row >= height_ || x1 < 0 || x0 >= width_) {
        const long long n = static_cast<long long>(x1) - x0 + 1;
        std::fill(out, out + n, 0.0f);
        return;
    }

    const int a = std::max(0, std::min(x0, width_ - 1));
    const int b = std::max(a, std::min(x1, width_ - 1));
    for (int x = x0; x < a; ++x)
        out[x - x0] = 0.0f;
    for (long long x = static_cast<long long>(b) + 1; x <= x1; ++x)
        out[x - x0] = 0.0f;

    const std::vector<uint16_t>& words = rows[static_cast<size_t>(row)];
    if (words.empty()) {
        std::fill(out + (a - x0), out + (b - x0) + 1, 0.0f);
        return;
    }

    // A row that has neither reached column b nor met its terminator when its
    // words run out is malformed; stop there instead of reading past it.
    size_t pos = 0;
    auto wordAt = [&](size_t i) {
        if (i >= words.size())
            throw JEx(QObject::tr("Filter mask row %1 has no terminator").arg(row));
        return static_cast<int>(words[i]);
    };

    // Skip whole runs that end at or before column a. The terminator is not a
    // run: meeting it here means the row ends before a and nothing is written.
    int start = 0;
    int word = wordAt(pos);
    while (true) {
        const int length = word >> 6;
        if (length == 0)
            return;
        if (start + length > a)
            break;
        start += length;
        word = wordAt(++pos);
    }

    // Expand from column a, the first run shortened by a - start, until column
    // b is written or the terminator is met.
    int remaining = (word >> 6) - (a - start);
    int x = a;
    while (true) {
        const float weight = levelWeight(word & 63);
        for (; remaining > 0 && x <= b; --remaining, ++x)
            out[x - x0] = weight;
        if (x > b)
            return;
        word = wordAt(++pos);
        remaining = word >> 6;
        if (remaining == 0)
            return;
    }
}
