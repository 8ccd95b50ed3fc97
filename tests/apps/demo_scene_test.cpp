#include "murmex/demo_scene.h"

#include <cmath>

#include <gtest/gtest.h>

#include "murmex/app_error.h"

namespace murmex_app {
namespace {

double meanOf(const Image& im, int c, int x0, int y0, int x1, int y1)
{
    double sum = 0.0;
    for (int y = y0; y < y1; ++y)
        for (int x = x0; x < x1; ++x)
            sum += im.rgbx[(static_cast<size_t>(y) * im.width + x) * 4 + c];
    return sum / ((x1 - x0) * (y1 - y0));
}

// Standard deviation of noisy - clean in channel c over a rectangle.
double noiseDeviation(const Image& noisy, const Image& clean, int c, int x0, int y0, int x1, int y1)
{
    double sum = 0.0, sum2 = 0.0;
    int n = 0;
    for (int y = y0; y < y1; ++y)
        for (int x = x0; x < x1; ++x) {
            const size_t i = (static_cast<size_t>(y) * noisy.width + x) * 4 + c;
            const double d = double(noisy.rgbx[i]) - double(clean.rgbx[i]);
            sum += d;
            sum2 += d * d;
            ++n;
        }
    return std::sqrt(sum2 / n - (sum / n) * (sum / n));
}

TEST(DemoScene, HasTheRequestedSizeOpaqueRgbAndSaturatedColours)
{
    const Image scene = renderDemoScene(400, 266);
    EXPECT_EQ(scene.width, 400);
    EXPECT_EQ(scene.height, 266);
    ASSERT_EQ(scene.rgbx.size(), 400u * 266u * 4u);
    bool saturatedRed = false, saturatedBlue = false;
    for (size_t i = 0; i < scene.rgbx.size(); i += 4) {
        EXPECT_EQ(scene.rgbx[i + 3], 65535);
        saturatedRed = saturatedRed || (scene.rgbx[i] > 50000 && scene.rgbx[i + 1] < 10000 && scene.rgbx[i + 2] < 10000);
        saturatedBlue = saturatedBlue || (scene.rgbx[i + 2] > 45000 && scene.rgbx[i] < 10000);
    }
    EXPECT_TRUE(saturatedRed);
    EXPECT_TRUE(saturatedBlue);
    EXPECT_THROW(renderDemoScene(8, 8), AppError);
}

TEST(DemoScene, NoiseIsReproducibleFromItsSeed)
{
    const Image clean = renderDemoScene(64, 48);
    EXPECT_EQ(addCameraNoise(clean, 9).rgbx, addCameraNoise(clean, 9).rgbx);
    EXPECT_NE(addCameraNoise(clean, 9).rgbx, addCameraNoise(clean, 10).rgbx);
}

TEST(DemoScene, NoiseIsStrongerInTheShadows)
{
    // Two flat images: dark and bright grey, in encoded values.
    Image dark, bright;
    for (Image* im : {&dark, &bright}) {
        im->width = 128;
        im->height = 128;
        im->rgbx.assign(128 * 128 * 4, 65535);
    }
    for (size_t i = 0; i < dark.rgbx.size(); i += 4)
        for (int c = 0; c < 3; ++c) {
            dark.rgbx[i + c] = 6554;     // 0.1
            bright.rgbx[i + c] = 45875;  // 0.7
        }
    const Image darkNoisy = addCameraNoise(dark, 1), brightNoisy = addCameraNoise(bright, 1);
    for (int c = 0; c < 3; ++c)
        EXPECT_GT(noiseDeviation(darkNoisy, dark, c, 0, 0, 128, 128),
                  1.5 * noiseDeviation(brightNoisy, bright, c, 0, 0, 128, 128));
}

TEST(DemoScene, ChromaNoiseIsCoarserThanLuminanceNoise)
{
    Image grey;
    grey.width = grey.height = 128;
    grey.rgbx.assign(128 * 128 * 4, 65535);
    for (size_t i = 0; i < grey.rgbx.size(); i += 4)
        grey.rgbx[i] = grey.rgbx[i + 1] = grey.rgbx[i + 2] = 26214;
    NoiseModel model;
    const Image noisy = addCameraNoise(grey, 3, model);
    // Correlation of horizontal neighbours of red - green (chroma) against that
    // of the mean of the channels' fine part: chroma is smoothed, so neighbours agree more.
    auto neighbourCorrelation = [&](auto value) {
        double sxy = 0, sx = 0, sy = 0, sxx = 0, syy = 0;
        int n = 0;
        for (int y = 0; y < 128; ++y)
            for (int x = 0; x + 1 < 128; ++x) {
                const double a = value(x, y), b = value(x + 1, y);
                sxy += a * b, sx += a, sy += b, sxx += a * a, syy += b * b;
                ++n;
            }
        const double cov = sxy / n - sx / n * sy / n;
        return cov / std::sqrt((sxx / n - sx / n * sx / n) * (syy / n - sy / n * sy / n));
    };
    auto sample = [&](int x, int y, int c) { return double(noisy.rgbx[(static_cast<size_t>(y) * 128 + x) * 4 + c]); };
    const double chroma = neighbourCorrelation([&](int x, int y) { return sample(x, y, 0) - sample(x, y, 2); });
    const double white = neighbourCorrelation([&](int x, int y) { return sample(x, y, 0) + sample(x, y, 2) + 2 * sample(x, y, 1); });
    EXPECT_GT(chroma, 0.3);
    EXPECT_GT(chroma, white + 0.1);
}

TEST(DemoScene, PsnrFollowsItsDefinition)
{
    Image a;
    a.width = 2;
    a.height = 1;
    a.rgbx = {1000, 2000, 3000, 65535, 4000, 5000, 6000, 65535};
    Image b = a;
    EXPECT_TRUE(std::isinf(psnr16(a, b)));
    b.rgbx[0] += 300;  // one sample off by 300; x is not counted
    b.rgbx[3] = 0;
    const double mse = 300.0 * 300.0 / 6.0;
    EXPECT_NEAR(psnr16(a, b), 10.0 * std::log10(65535.0 * 65535.0 / mse), 1e-9);
    Image c = a;
    c.width = 1;
    EXPECT_THROW(psnr16(a, c), AppError);
}

TEST(DemoScene, FlatChartPatchesAreFlat)
{
    const Image scene = renderDemoScene(600, 400);
    // The mid-grey chart patch: column 3, row 0 of the chart at u 0.04..0.46, v 0.50..0.94.
    const int x0 = static_cast<int>((0.04 + 0.42 * 3.2 / 6) * 600), y0 = static_cast<int>((0.50 + 0.44 * 0.2 / 4) * 400);
    const double m = meanOf(scene, 1, x0, y0, x0 + 20, y0 + 10);
    EXPECT_NEAR(m, 0.5 * 65535, 1.0);
}

}  // namespace
}  // namespace murmex_app
