#include "support/scene.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace murmex_test {

namespace {

uint16_t clamp16(double v)
{
    return static_cast<uint16_t>(std::lround(std::clamp(v, 0.0, 65535.0)));
}

}  // namespace

MemoryImage makeScene(int width, int height)
{
    MemoryImage img(width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const double u = width > 1 ? static_cast<double>(x) / (width - 1) : 0.0;
            const double v = height > 1 ? static_cast<double>(y) / (height - 1) : 0.0;
            // Gradient background.
            double r = 9000 + 30000 * u;
            double g = 14000 + 26000 * v;
            double b = 30000 + 12000 * (1 - u);
            // Hard vertical step edge in the middle third.
            if (x >= width / 2 && y > height / 3 && y < 2 * height / 3) {
                r = 52000;
                g = 50000;
                b = 47000;
            }
            // Saturated red and black blocks.
            if (x < width / 6 && y > height / 2) {
                r = 65535;
                g = 0;
                b = 0;
            }
            if (x > 5 * width / 6 && y < height / 4) {
                r = 0;
                g = 0;
                b = 0;
            }
            // Flat colour patches.
            if (y > 3 * height / 4 && x > width / 4 && x < width / 2) {
                r = 20000;
                g = 42000;
                b = 20000;
            }
            // Fine texture: a diagonal line pattern in the upper left.
            if (x < width / 3 && y < height / 3 && ((x + y) / 3) % 2 == 0) {
                r *= 0.8;
                g *= 0.8;
                b *= 0.8;
            }
            img.setPixel(x, y, clamp16(r), clamp16(g), clamp16(b));
        }
    }
    return img;
}

void addNoise(MemoryImage& image, double sigma, uint32_t seed)
{
    std::mt19937 rng(seed);
    std::normal_distribution<double> noise(0.0, sigma);
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            for (int c = 0; c < 3; ++c)
                image.at(x, y, c) = clamp16(image.at(x, y, c) + noise(rng));
}

double psnr(const MemoryImage& a, const MemoryImage& b)
{
    double sum = 0.0;
    size_t n = 0;
    const auto& da = a.data();
    const auto& db = b.data();
    for (size_t i = 0; i < da.size(); ++i) {
        if (i % 4 == 3)
            continue;
        const double d = static_cast<double>(da[i]) - db[i];
        sum += d * d;
        ++n;
    }
    const double mse = sum / static_cast<double>(n);
    return 10.0 * std::log10(65535.0 * 65535.0 / std::max(mse, 1e-12));
}

}  // namespace murmex_test
