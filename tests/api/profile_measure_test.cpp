// Measuring a profile from an image: the patches the sampler accepts, each
// measured on its own rectangle, and nothing else.
#include "api/profile_measure.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>

#include "autosample/auto_sampler.h"
#include "base/cpu_info.h"
#include "profile/noise_profile.h"
#include "profile/noise_sample.h"
#include "support/memory_image.h"
#include "support/scene.h"

using murmex_test::MemoryImage;

namespace {

MemoryImage patches(uint32_t seed)
{
    static const uint16_t colours[6][3] = {
        {52000, 50000, 47000}, {9000, 9000, 9000},    {30000, 30000, 30000},
        {20000, 42000, 20000}, {45000, 15000, 12000}, {12000, 18000, 44000},
    };
    MemoryImage img(384, 256);
    for (int y = 0; y < 256; y++)
        for (int x = 0; x < 384; x++) {
            const uint16_t* c = colours[(y / 128) * 3 + x / 128];
            img.setPixel(x, y, c[0], c[1], c[2]);
        }
    murmex_test::addNoise(img, 900.0, seed);
    return img;
}

class ThrowingImage : public JImageAdapter {
public:
    explicit ThrowingImage(bool standard) : standard_(standard) {}
    int width() override { return 256; }
    int height() override { return 256; }
    void getScanline(int, int, int, unsigned short*) override
    {
        if (standard_)
            throw std::out_of_range("row");
        throw 3.5;
    }
    void putScanline(int, int, int, const unsigned short*) override {}

private:
    bool standard_;
};

bool sameBits(const JNoiseSample& a, const JNoiseSample& b)
{
    return std::memcmp(&a.rect, &b.rect, sizeof a.rect) == 0 && std::memcmp(a.noise, b.noise, sizeof a.noise) == 0 &&
           std::memcmp(&a.lab, &b.lab, sizeof a.lab) == 0;
}

}  // namespace

TEST(ProfileMeasureTest, AddsEveryAcceptedPatchMeasuredOnItsRectangleAndNothingElse)
{
    for (bool relaxed : {false, true}) {
        MemoryImage img = patches(3);
        JNoiseProfile profile;
        profile.addSample(JNoiseSample());  // reset must drop this
        dnMeasureProfile(&img, profile, relaxed, nullptr, 1);

        JAutoSampler sampler;
        sampler.sample(&img, relaxed, nullptr);
        std::vector<JNoiseSample> expected;
        for (int i = 0; i < sampler.sampleCount(); i++) {
            JAutoSampleRec* rec = sampler.getSample(i);
            if (!rec->valid)
                continue;
            JNoiseSample s;
            s.analyze(&img, rec->rect);
            expected.push_back(s);
        }
        ASSERT_GE(expected.size(), 2u) << "the image should offer several flat patches";
        ASSERT_LT(static_cast<int>(expected.size()), sampler.sampleCount()) << "some slots stay empty";
        ASSERT_EQ(profile.sampleCount(), static_cast<int>(expected.size()));
        for (size_t i = 0; i < expected.size(); i++)
            EXPECT_TRUE(sameBits(profile.getSample(static_cast<int>(i)), expected[i])) << "sample " << i;
    }
}

TEST(ProfileMeasureTest, MarksTheProfileAsMeasuredOnThisImage)
{
    MemoryImage img = patches(4);
    JNoiseProfile profile;
    ASSERT_EQ(profile.getOrigin(), 2);
    dnMeasureProfile(&img, profile, false, nullptr, 1);
    EXPECT_EQ(profile.getOrigin(), 3);
    // The maps were built: some level-0 luminance noise is known.
    EXPECT_GT(profile.highestLevel(), 0);
}

TEST(ProfileMeasureTest, StandardExceptionsPassUnchanged)
{
    ThrowingImage img(true);
    JNoiseProfile profile;
    EXPECT_THROW(dnMeasureProfile(&img, profile, false, nullptr, 1), std::out_of_range);
}

TEST(ProfileMeasureTest, UnknownExceptionBecomesAPlainStandardException)
{
    ThrowingImage img(false);
    JNoiseProfile profile;
    try {
        dnMeasureProfile(&img, profile, false, nullptr, 1);
        FAIL() << "no exception";
    } catch (const std::exception& e) {
        EXPECT_STREQ(e.what(), "std::exception");
    } catch (...) {
        FAIL() << "the unknown exception passed through";
    }
}

namespace {

// The profile's file bytes: samples, maps and header, everything it keeps.
std::vector<unsigned char> profileBytes(JNoiseProfile& profile)
{
    unsigned char* data = nullptr;
    int length = 0;
    profile.save(&data, &length);
    std::vector<unsigned char> bytes(data, data + length);
    delete[] data;
    return bytes;
}

// Reads rows through another image and throws once a row at or below
// `from` is asked for: a host failing in the second row of tiles.
class FailingBelow : public JImageAdapter {
public:
    FailingBelow(JImageAdapter* image, int from) : image_(image), from_(from) {}
    int width() override { return image_->width(); }
    int height() override { return image_->height(); }
    void getScanline(int y, int xStart, int xEnd, unsigned short* pixels) override
    {
        if (y >= from_)
            throw std::out_of_range("row");
        image_->getScanline(y, xStart, xEnd, pixels);
    }
    void putScanline(int, int, int, const unsigned short*) override {}

private:
    JImageAdapter* image_;
    int from_;
};

}  // namespace

// The tile scan spread over threads gives the profile of one thread, to the
// bit, for every count; a scene of 3 x 3 tile positions of which the last row
// is too short to load, strict and relaxed.
TEST(ProfileMeasureThreadTest, SameProfileBitForBitWithAnyThreadCount)
{
    MemoryImage img = murmex_test::makeScene(2000, 1900);
    murmex_test::addNoise(img, 700.0, 11);
    for (bool relaxed : {false, true}) {
        JNoiseProfile one;
        dnMeasureProfile(&img, one, relaxed, nullptr, 1);
        const std::vector<unsigned char> want = profileBytes(one);
        ASSERT_GE(one.sampleCount(), 3);
        for (int threads : {0, 2, 3, 4, 8}) {
            JNoiseProfile profile;
            dnMeasureProfile(&img, profile, relaxed, nullptr, threads);
            EXPECT_EQ(profileBytes(profile), want) << threads << " threads" << (relaxed ? ", relaxed" : "");
        }
    }
}

TEST(ProfileMeasureThreadTest, FailureInALaterTileReachesTheCallerWithAnyThreadCount)
{
    MemoryImage big(2000, 1900);
    FailingBelow failing(&big, 1000);
    for (int threads : {1, 2, 4}) {
        JNoiseProfile profile;
        EXPECT_THROW(dnMeasureProfile(&failing, profile, false, nullptr, threads), std::out_of_range) << threads;
    }
}

TEST(ProfileMeasureTest, DefaultThreadCountIsOnePerProcessorUpToTheLimit)
{
    const int n = dnDefaultMeasureThreads();
    EXPECT_GE(n, 1);
    EXPECT_LE(n, kMaxMeasureThreads);
    EXPECT_EQ(n, std::min(JCPUInfo::numProcessors, kMaxMeasureThreads));
}
