#include "support/planes.h"

#include <cmath>
#include <limits>
#include <random>
#include <thread>

#include "denoise/raster/incr_raster.h"

namespace murmex_test {

std::vector<float> randomPlane(int width, int height, uint32_t seed, float lo, float hi)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> dist(lo, hi);
    std::vector<float> plane(static_cast<size_t>(width) * height);
    for (float& v : plane)
        v = dist(rng);
    return plane;
}

std::vector<float> mixedPlane(int width, int height, uint32_t seed)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    std::uniform_int_distribution<int> kind(0, 7);
    std::vector<float> plane(static_cast<size_t>(width) * height);
    for (float& v : plane) {
        const float u = unit(rng);
        switch (kind(rng)) {
        case 0: v = u * 1e-6f; break;
        case 1: v = -u * 1e-6f; break;
        case 2: v = u * std::numeric_limits<float>::denorm_min() * 1000.0f; break;
        case 3: v = (u < 0.5f) ? 0.0f : -0.0f; break;
        case 4: v = std::nextafter(1.0f, 0.0f) - u * 1e-5f; break;
        case 5: v = 1.0f + u * 1e-5f; break;
        case 6: v = -u * 2.0f; break;
        default: v = u * 4.0f - 2.0f; break;
        }
    }
    return plane;
}

std::vector<float> pullPlane(JIncrRaster& node)
{
    const int w = node.width();
    std::vector<float> plane(static_cast<size_t>(w) * node.height());
    for (int y = 0; y < node.height(); ++y) {
        node.refScanline(y);
        const float* row = node.getScanline(y);
        for (int x = 0; x < w; ++x)
            plane[static_cast<size_t>(y) * w + x] = row[x];
        node.unrefScanline(y);
    }
    return plane;
}

std::vector<float> pullPlaneReferencedFirst(JIncrRaster& node)
{
    const int w = node.width();
    for (int y = 0; y < node.height(); ++y)
        node.refScanline(y);
    std::vector<float> plane(static_cast<size_t>(w) * node.height());
    for (int y = 0; y < node.height(); ++y) {
        const float* row = node.getScanline(y);
        for (int x = 0; x < w; ++x)
            plane[static_cast<size_t>(y) * w + x] = row[x];
        node.unrefScanline(y);
    }
    return plane;
}

std::vector<std::vector<float>> pullPlaneFromThreads(JIncrRaster& node, int threads, int stride, int offset)
{
    const int w = node.width(), h = node.height();
    for (int y = 0; y < h; ++y)
        node.refScanline(y);
    std::vector<std::vector<float>> seen(threads, std::vector<float>(static_cast<size_t>(w) * h));
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t)
        pool.emplace_back([&, t] {
            for (int i = 0; i < h; ++i) {
                const int y = (i * stride + t * offset) % h;
                const float* r = node.getScanline(y);
                for (int x = 0; x < w; ++x)
                    seen[t][static_cast<size_t>(y) * w + x] = r[x];
            }
        });
    for (auto& th : pool)
        th.join();
    for (int y = 0; y < h; ++y)
        node.unrefScanline(y);
    return seen;
}

::testing::AssertionResult allRowsReleased(JIncrRaster& node)
{
    for (int y = 0; y < node.height(); ++y) {
        if (node.refCount(y) != 0)
            return ::testing::AssertionFailure() << "row " << y << " holds " << node.refCount(y) << " references";
        if (node.rowPresent(y))
            return ::testing::AssertionFailure() << "row " << y << " still holds a buffer";
    }
    return ::testing::AssertionSuccess();
}

int mirroredRow(int y, int h)
{
    if (y >= 0 && y < h)
        return y;
    const int t = y < 0 ? -y : y + 1;
    const int q = t / h;
    const int s = t - q * h;
    return q % 2 == 0 ? s : h - s - 1;
}

int mirroredColumn(int x, int w)
{
    if (x < 0)
        return -x;
    if (x > w - 1)
        return (w - 1) - (x - (w - 1));
    return x;
}

}  // namespace murmex_test
