#include "host/auto_settings.h"

#include <cmath>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "host/engine_output.h"
#include "host/host_error.h"
#include "host/host_settings.h"
#include "support/scene.h"
#include "support/test_images.h"

namespace murmex_host {
namespace {

using murmex_test::MemoryImage;

void getScanline(void* context, int y, int xStart, int xEnd, unsigned short* pixels)
{
    static_cast<MemoryImage*>(context)->getScanline(y, xStart, xEnd, pixels);
}

// Reads from in, writes to out.
struct Job {
    MemoryImage* in;
    MemoryImage* out;
};

void jobGetScanline(void* context, int y, int xStart, int xEnd, unsigned short* pixels)
{
    static_cast<Job*>(context)->in->getScanline(y, xStart, xEnd, pixels);
}

void jobPutScanline(void* context, int y, int xStart, int xEnd, unsigned short* pixels)
{
    static_cast<Job*>(context)->out->putScanline(y, xStart, xEnd, pixels);
}

std::vector<uint8_t> measureProfile(MemoryImage& image)
{
    unsigned char* data = nullptr;
    int length = 0;
    const EngineResult r = callEngine(
        [&] { return DnBuildProfile2(&image, &data, &length, getScanline, image.width(), image.height(), 0, nullptr); });
    EXPECT_FALSE(r.failed()) << r.message();
    std::vector<uint8_t> bytes(data, data + length);
    DnFreeMemory(data);
    return bytes;
}

DnFilterParams chooseFor(MemoryImage& image, const std::vector<uint8_t>& profile, NoiseEstimate* noise = nullptr)
{
    DnFilterParams params{};
    const NoiseEstimate n =
        chooseAutoSettings(ScanlineImage{&image, getScanline, image.width(), image.height()}, profile, params);
    if (noise)
        *noise = n;
    return params;
}

MemoryImage noisyScene(double sigma, uint32_t seed)
{
    MemoryImage image = murmex_test::makeScene(480, 360);
    if (sigma > 0)
        murmex_test::addNoise(image, sigma, seed);
    return image;
}

TEST(AutoSettings, ImageNoiseOfGreyNoiseOnFlatGreyIsItsDeviation)
{
    // Grey noise lands in luminance only: Y carries sigma (the Y row sums
    // to 1), Cr and Cb nothing.
    MemoryImage image = murmex_test::flatImage(400, 300, 30000, 30000, 30000);
    murmex_test::addGreyNoise(image, 0.01, 7);
    float noise[3];
    estimateImageNoise(ScanlineImage{&image, getScanline, image.width(), image.height()}, noise);
    EXPECT_NEAR(noise[0], 0.01f, 0.0005f);
    EXPECT_LT(noise[1], 0.0002f);
    EXPECT_LT(noise[2], 0.0002f);
}

TEST(AutoSettings, ProfileNoiseIsTheMedianOfTheMeasuredSamples)
{
    std::vector<DnNoiseSample> samples(3);
    const float y[3] = {0.03f, 0.01f, 0.02f};
    for (int i = 0; i < 3; ++i) {
        samples[i].noiseY[0] = y[i];
        samples[i].noiseCr[0] = i == 0 ? -1.0f : 0.004f;  // not measured in sample 0
        samples[i].noiseCb[0] = 0.005f;
    }
    float noise[3];
    profileNoise(samples, noise);
    EXPECT_EQ(noise[0], 0.02f);
    EXPECT_EQ(noise[1], 0.004f);
    EXPECT_EQ(noise[2], 0.005f);
    profileNoise({}, noise);
    EXPECT_EQ(noise[0], 0.0f);
}

TEST(AutoSettings, StrongerNoiseGetsStrongerLuminanceSettings)
{
    MemoryImage weak = noisyScene(250.0, 11);
    MemoryImage strong = noisyScene(1500.0, 11);
    const DnFilterParams a = chooseFor(weak, measureProfile(weak));
    const DnFilterParams b = chooseFor(strong, measureProfile(strong));
    // Strength sets how far the filter may go; smoothness only corrects the
    // profile's noise to the image's own and need not grow.
    EXPECT_GT(b.lumStrength, a.lumStrength);
}

TEST(AutoSettings, AProfileThatOverstatesTheNoiseGetsLessSmoothness)
{
    // Smoothness scales the profile's noise: a profile reading four times
    // the image's own noise must be taken down.
    NoiseEstimate right;
    for (int ch = 0; ch < 3; ++ch) {
        right.image[ch] = right.profile[ch] = ch == 0 ? 0.008f : 0.005f;
        right.detail[ch] = 4.0f * right.image[ch];
    }
    right.samples = 5;
    NoiseEstimate over = right;
    for (float& p : over.profile)
        p *= 4.0f;
    DnFilterParams a{}, b{};
    chooseSettings(right, a);
    chooseSettings(over, b);
    EXPECT_LT(b.lumSmoothness, a.lumSmoothness);
    EXPECT_LT(b.chromaSmoothness, a.chromaSmoothness);
}

TEST(AutoSettings, NoiseFreeImageIsLeftAlmostUntouched)
{
    MemoryImage clean = noisyScene(0.0, 0);
    const std::vector<uint8_t> profile = measureProfile(clean);
    DnFilterParams params = chooseFor(clean, profile);
    params.threads = 0;
    params.width = clean.width();
    params.height = clean.height();
    MemoryImage out(clean.width(), clean.height());
    Job job{&clean, &out};
    const EngineResult r = callEngine([&] {
        return DnRemoveNoise2(&job, &params, 0, 0, clean.width(), clean.height(), profile.data(),
                              static_cast<int>(profile.size()), jobGetScanline, jobPutScanline, nullptr);
    });
    ASSERT_FALSE(r.failed()) << r.message();
    EXPECT_GT(murmex_test::psnr(out, clean), 60.0);
}

TEST(AutoSettings, EmptyProfileKeepsTheDefaults)
{
    MemoryImage image = noisyScene(800.0, 3);
    DnFilterParams chosen = chooseFor(image, {});
    DnFilterParams defaults{};
    setDefaultSettings(defaults);
    EXPECT_EQ(std::memcmp(&chosen, &defaults, sizeof chosen), 0);
}

TEST(AutoSettings, TheSameImageGetsTheSameSettings)
{
    MemoryImage image = noisyScene(900.0, 5);
    const std::vector<uint8_t> profile = measureProfile(image);
    const DnFilterParams a = chooseFor(image, profile);
    const DnFilterParams b = chooseFor(image, profile);
    EXPECT_EQ(settingsJson(a), settingsJson(b));
    std::vector<uint16_t> rgbx = image.data();
    DnFilterParams c{};
    chooseAutoSettings(rgbx.data(), image.width(), image.height(), profile, c);
    EXPECT_EQ(settingsJson(a), settingsJson(c));
}

TEST(AutoSettings, AnUnreadableProfileIsAnError)
{
    MemoryImage image = noisyScene(0.0, 0);
    const std::vector<uint8_t> junk(64, 0xAB);
    EXPECT_THROW(chooseFor(image, junk), HostError);
}

}  // namespace
}  // namespace murmex_host
