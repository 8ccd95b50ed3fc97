#include "support/test_images.h"

#include <cmath>
#include <random>

namespace murmex_test {

std::vector<double> gaussianValues(int n, uint32_t seed)
{
    std::mt19937 gen(seed);
    std::vector<double> out;
    out.reserve(static_cast<size_t>(n));
    const double twoPi = 6.283185307179586;
    while (static_cast<int>(out.size()) < n) {
        // Uniform values in (0, 1] and [0, 1) from 32-bit draws.
        double u1 = (static_cast<double>(gen()) + 1.0) / 4294967296.0;
        double u2 = static_cast<double>(gen()) / 4294967296.0;
        double r = std::sqrt(-2.0 * std::log(u1));
        out.push_back(r * std::cos(twoPi * u2));
        if (static_cast<int>(out.size()) < n)
            out.push_back(r * std::sin(twoPi * u2));
    }
    return out;
}

MemoryImage flatImage(int width, int height, uint16_t r, uint16_t g, uint16_t b)
{
    MemoryImage img(width, height);
    img.fill(r, g, b);
    return img;
}

void addGreyNoise(MemoryImage& image, double sigma, uint32_t seed)
{
    const int w = image.width();
    const int h = image.height();
    std::vector<double> n = gaussianValues(w * h, seed);
    for (int y = 0; y < h; y++) {
        for (int x = 0; x < w; x++) {
            double d = n[static_cast<size_t>(y) * w + x] * sigma * 65535.0;
            for (int c = 0; c < 3; c++) {
                double v = std::floor(image.at(x, y, c) + d + 0.5);
                if (v < 0.0)
                    v = 0.0;
                if (v > 65535.0)
                    v = 65535.0;
                image.at(x, y, c) = static_cast<uint16_t>(v);
            }
        }
    }
}

}  // namespace murmex_test
