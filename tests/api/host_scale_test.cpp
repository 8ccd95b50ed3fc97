// The settings block of the host record against the filter settings. The
// expected settings are hand-derived from the host scales and the settings'
// ranges (strength Y 0, 0.55, 1; strength Cr/Cb 0, 0.75, 1; smoothness 0, 3,
// 8; contrast 0.5, 1, 1.5; USM amount 1, 3, 5; USM radius 0.4, 1.7, 3.0) and
// chosen where the single-precision arithmetic is exact.
#include "api/host_scale.h"

#include <cstring>

#include <gtest/gtest.h>

#include "color/image_lib.h"
#include "filter/noise_filter_settings.h"
#include "murmex/murmex.h"

using JImageLib::Cb;
using JImageLib::Cr;
using JImageLib::Y;

namespace {

DnFilterParams middles()
{
    DnFilterParams p;
    std::memset(&p, 0, sizeof p);
    p.lumStrength = 10.0f;
    p.lumSmoothness = 10.0f;
    p.lumContrast = 10.0f;
    p.chromaStrength = 10.0f;
    p.chromaSmoothness = 10.0f;
    p.chromaContrast = 10.0f;
    p.sharpenAmount = 200.0f;
    p.sharpenRadius = 1.7f;
    return p;
}

}  // namespace

TEST(HostScaleTest, MiddleOfEveryScaleGivesExactlyTheDefault)
{
    JNoiseFilterSettings s;
    // Move everything away from the defaults first, so the test sees writes.
    for (int ch = 0; ch < 3; ch++) {
        s.setStrength(ch, -7.0f);
        s.setSmoothness(ch, -7.0f);
        s.setContrast(ch, -7.0f);
    }
    s.setUSMAmount(-7.0f);
    s.setUSMRadius(-7.0f);
    dnSettingsFromHost(middles(), s);
    EXPECT_EQ(s.getStrength(Y), 0.55f);
    EXPECT_EQ(s.getStrength(Cr), 0.75f);
    EXPECT_EQ(s.getStrength(Cb), 0.75f);
    for (int ch = 0; ch < 3; ch++) {
        EXPECT_EQ(s.getSmoothness(ch), 3.0f);
        EXPECT_EQ(s.getContrast(ch), 1.0f);
    }
    EXPECT_EQ(s.getUSMAmount(), 3.0f);
    EXPECT_EQ(s.getUSMRadius(), 1.7f);
}

TEST(HostScaleTest, DefaultsReadBackAsTheMiddleOfEveryScale)
{
    JNoiseFilterSettings s;
    dnSettingsFromHost(middles(), s);
    DnFilterParams back;
    std::memset(&back, 0, sizeof back);
    dnSettingsToHost(s, back);
    for (int i = 0; i < DnHostScaleCount; i++)
        EXPECT_EQ(*DnHostScaleField(&back, i), DnHostScales[i].middle) << DnHostScales[i].name;
}

TEST(HostScaleTest, BelowAndAboveTheMiddleFollowTheirOwnSegment)
{
    DnFilterParams p = middles();
    p.lumSmoothness = 15.0f;    // 3 + 5 * 5 / 10
    p.lumContrast = 0.0f;       // the low end: 0.5
    p.chromaStrength = 20.0f;   // the high end: 1
    p.chromaSmoothness = 5.0f;  // 0 + 3 * 5 / 10
    p.chromaContrast = 20.0f;   // 1.5
    p.sharpenAmount = 100.0f;   // 1 + 2 * 100 / 200
    p.sharpenRadius = 0.4f;     // the low end
    JNoiseFilterSettings s;
    dnSettingsFromHost(p, s);
    EXPECT_EQ(s.getSmoothness(Y), 5.5f);
    EXPECT_EQ(s.getContrast(Y), 0.5f);
    EXPECT_EQ(s.getStrength(Cr), 1.0f);
    EXPECT_EQ(s.getStrength(Cb), 1.0f);
    EXPECT_EQ(s.getSmoothness(Cr), 1.5f);
    EXPECT_EQ(s.getSmoothness(Cb), 1.5f);
    EXPECT_EQ(s.getContrast(Cr), 1.5f);
    EXPECT_EQ(s.getContrast(Cb), 1.5f);
    EXPECT_EQ(s.getUSMAmount(), 2.0f);
    EXPECT_EQ(s.getUSMRadius(), 0.4f);
}

TEST(HostScaleTest, ValuesOffTheScaleExtrapolateWithoutClamping)
{
    DnFilterParams p = middles();
    p.lumSmoothness = 25.0f;     // 3 + 5 * 15 / 10
    p.chromaStrength = 30.0f;    // 0.75 + 0.25 * 20 / 10
    p.chromaSmoothness = -10.0f; // 0 + 3 * -10 / 10
    p.sharpenAmount = 600.0f;    // 3 + 2 * 400 / 200
    JNoiseFilterSettings s;
    dnSettingsFromHost(p, s);
    EXPECT_EQ(s.getSmoothness(Y), 10.5f);
    EXPECT_EQ(s.getStrength(Cr), 1.25f);
    EXPECT_EQ(s.getSmoothness(Cr), -3.0f);
    EXPECT_EQ(s.getUSMAmount(), 7.0f);

    DnFilterParams back = middles();
    dnSettingsToHost(s, back);
    EXPECT_EQ(back.lumSmoothness, 25.0f);
    EXPECT_EQ(back.chromaStrength, 30.0f);
    EXPECT_EQ(back.chromaSmoothness, -10.0f);
    EXPECT_EQ(back.sharpenAmount, 600.0f);
}

TEST(HostScaleTest, ReadingBackIgnoresCbAndTakesCr)
{
    JNoiseFilterSettings s;
    s.setStrength(Cr, 1.0f);
    s.setStrength(Cb, 0.0f);
    s.setSmoothness(Cr, 3.0f);
    s.setSmoothness(Cb, 8.0f);
    s.setContrast(Cr, 0.5f);
    s.setContrast(Cb, 1.5f);
    DnFilterParams p = middles();
    dnSettingsToHost(s, p);
    EXPECT_EQ(p.chromaStrength, 20.0f);
    EXPECT_EQ(p.chromaSmoothness, 10.0f);
    EXPECT_EQ(p.chromaContrast, 0.0f);
}

TEST(HostScaleTest, ReadingBackConvertsEverySettingByItsRange)
{
    JNoiseFilterSettings s;
    s.setStrength(Y, 0.55f);      // 10
    s.setSmoothness(Y, 5.5f);     // 10 + 10 * 2.5 / 5
    s.setContrast(Y, 0.75f);      // 0 + 10 * 0.25 / 0.5
    s.setStrength(Cr, 0.875f);    // 10 + 10 * 0.125 / 0.25
    s.setUSMAmount(2.0f);         // 0 + 200 * 1 / 2
    s.setUSMRadius(0.4f);         // 0.4
    DnFilterParams p = middles();
    dnSettingsToHost(s, p);
    EXPECT_EQ(p.lumStrength, 10.0f);
    EXPECT_EQ(p.lumSmoothness, 15.0f);
    EXPECT_EQ(p.lumContrast, 5.0f);
    EXPECT_EQ(p.chromaStrength, 15.0f);
    EXPECT_EQ(p.sharpenAmount, 100.0f);
    EXPECT_EQ(p.sharpenRadius, 0.4f);
}

TEST(HostScaleTest, InexactValuesRoundOnceInSinglePrecision)
{
    // Y strength from host 5: 0 + (0.55f * 5) / 10 in single precision.
    DnFilterParams p = middles();
    p.lumStrength = 5.0f;
    p.sharpenRadius = 3.0f;
    JNoiseFilterSettings s;
    dnSettingsFromHost(p, s);
    volatile float product = 0.55f * 5.0f;
    EXPECT_EQ(s.getStrength(Y), 0.0f + product / 10.0f);
    EXPECT_FLOAT_EQ(s.getUSMRadius(), 3.0f);
}

TEST(HostScaleTest, FlagsAreWrittenAsBooleansAndReadBackAsZeroOrOne)
{
    DnFilterParams p = middles();
    p.suppressHalos = 0;
    p.lowFrequency = 7;
    JNoiseFilterSettings s;
    ASSERT_TRUE(s.getUSMSuppressHalos());
    ASSERT_FALSE(s.getLowFreqFlag());
    dnSettingsFromHost(p, s);
    EXPECT_FALSE(s.getUSMSuppressHalos());
    EXPECT_TRUE(s.getLowFreqFlag());

    DnFilterParams back = middles();
    back.suppressHalos = 9;
    back.lowFrequency = 9;
    dnSettingsToHost(s, back);
    EXPECT_EQ(back.suppressHalos, 0);
    EXPECT_EQ(back.lowFrequency, 1);
}

TEST(HostScaleTest, ReadingBackLeavesTheFieldsOutsideTheSettingsBlock)
{
    DnFilterParams p;
    std::memset(&p, 0x5a, sizeof p);
    const char* path = "kept";
    p.profilePath = path;
    DnFilterParams before = p;
    JNoiseFilterSettings s;
    dnSettingsToHost(s, p);
    EXPECT_EQ(p.profilePath, path);
    EXPECT_EQ(p.buildProfile, before.buildProfile);
    EXPECT_EQ(p.saveProfile, before.saveProfile);
    EXPECT_EQ(p.threads, before.threads);
    EXPECT_EQ(p.turbo, before.turbo);
    EXPECT_EQ(p.background, before.background);
    EXPECT_EQ(p.width, before.width);
    EXPECT_EQ(p.height, before.height);
}
