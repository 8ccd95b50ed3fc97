#include "filter/noise_filter_settings.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/ex.h"
#include "base/qtless/qdatastream.h"
#include "color/color_palette.h"
#include "profile/noise_profile.h"
#include "support/temp_dir.h"

namespace {

using Bytes = std::vector<unsigned char>;

void putU32(Bytes& b, uint32_t v)
{
    b.push_back(static_cast<unsigned char>(v >> 24));
    b.push_back(static_cast<unsigned char>(v >> 16));
    b.push_back(static_cast<unsigned char>(v >> 8));
    b.push_back(static_cast<unsigned char>(v));
}

void putF32(Bytes& b, float f)
{
    uint32_t v;
    std::memcpy(&v, &f, 4);
    putU32(b, v);
}

// The settings stream of a default object, field by field.
Bytes defaultStream(uint32_t version = 4664, bool withHalos = true)
{
    Bytes b;
    putU32(b, version);
    putU32(b, 20);
    const float strength[3] = {0.55f, 0.75f, 0.75f};
    for (int ch = 0; ch < 3; ch++) {
        putF32(b, strength[ch]);
        putF32(b, 3.0f);
        putF32(b, 1.0f);
    }
    putF32(b, 1.6f);
    putF32(b, 1.2f);
    if (withHalos)
        putU32(b, 1);
    putU32(b, 0);
    putU32(b, 3);
    JColorPalette* p = JColorPalette::getPalette();
    putU32(b, 72);
    for (int row = 0; row < 6; row++) {
        for (int col = 0; col < 12; col++) {
            JLabCoord c = p->getColor(row, col);
            putF32(b, c.L);
            putF32(b, c.a);
            putF32(b, c.b);
            for (int k = 0; k < 6; k++)
                putF32(b, 1.0f);
            putU32(b, 0);
        }
    }
    return b;
}

Bytes written(const JNoiseFilterSettings& f)
{
    qtless::QDataStream s(qtless::QByteArray(), qtless::IO_WriteOnly);
    s << f;
    qtless::QByteArray a = s.device()->buffer();
    return Bytes(reinterpret_cast<const unsigned char*>(a.data()),
                 reinterpret_cast<const unsigned char*>(a.data()) + a.size());
}

qtless::QByteArray toArray(const Bytes& b)
{
    qtless::QByteArray a(static_cast<int>(b.size()));
    if (!b.empty())
        std::memcpy(a.data(), b.data(), b.size());
    return a;
}

void readInto(JNoiseFilterSettings& f, const Bytes& b)
{
    qtless::QDataStream s(toArray(b), qtless::IO_ReadOnly);
    s >> f;
}

// A short stream: the given header values and the given samples.
struct Sample {
    float L, a, b;
    float f[3], g[3];
    std::vector<JLabCoord> colors;
};

Bytes customStream(uint32_t version, float s0, uint32_t halos, uint32_t lowFreq, int32_t param,
                   const std::vector<Sample>& samples)
{
    Bytes b;
    putU32(b, version);
    putU32(b, 99);
    for (int ch = 0; ch < 3; ch++) {
        putF32(b, s0 + ch);
        putF32(b, 5.0f + ch);
        putF32(b, 0.6f + 0.1f * ch);
    }
    putF32(b, 2.5f);
    putF32(b, 0.9f);
    if (version != 4663)
        putU32(b, halos);
    putU32(b, lowFreq);
    putU32(b, static_cast<uint32_t>(param));
    putU32(b, static_cast<uint32_t>(samples.size()));
    for (const Sample& s : samples) {
        putF32(b, s.L);
        putF32(b, s.a);
        putF32(b, s.b);
        for (int ch = 0; ch < 3; ch++) {
            putF32(b, s.f[ch]);
            putF32(b, s.g[ch]);
        }
        putU32(b, static_cast<uint32_t>(s.colors.size()));
        for (const JLabCoord& c : s.colors) {
            putF32(b, c.L);
            putF32(b, c.a);
            putF32(b, c.b);
        }
    }
    return b;
}

void expectDefaults(const JNoiseFilterSettings& f)
{
    EXPECT_EQ(f.getStrength(0), 0.55f);
    EXPECT_EQ(f.getStrength(1), 0.75f);
    EXPECT_EQ(f.getStrength(2), 0.75f);
    for (int ch = 0; ch < 3; ch++) {
        EXPECT_EQ(f.getSmoothness(ch), 3.0f);
        EXPECT_EQ(f.getContrast(ch), 1.0f);
    }
    EXPECT_EQ(f.getUSMAmount(), 1.6f);
    EXPECT_EQ(f.getUSMRadius(), 1.2f);
    EXPECT_TRUE(f.getUSMSuppressHalos());
    EXPECT_FALSE(f.getLowFreqFlag());
    EXPECT_EQ(f.getParameter(), 3);
    EXPECT_EQ(f.sampleCount(), 72);
}

}  // namespace

TEST(NoiseFilterSettingsTest, FreshObjectReportsUSMAmountBelowRangeMiddle)
{
    JNoiseFilterSettings f;
    float min, mid, max;
    JNoiseFilterSettings::getUSMAmountRange(min, mid, max);
    EXPECT_EQ(mid, 3.0f);
    EXPECT_EQ(f.getUSMAmount(), 1.6f);
}

TEST(NoiseFilterSettingsTest, FreshObjectHasTableDefaults)
{
    JNoiseFilterSettings f;
    expectDefaults(f);
}

TEST(NoiseFilterSettingsTest, FreshObjectHasOneUnitSamplePerPaletteColourInRowOrder)
{
    JNoiseFilterSettings f;
    JColorPalette* p = JColorPalette::getPalette();
    ASSERT_EQ(f.sampleCount(), 72);
    for (int row = 0; row < 6; row++) {
        for (int col = 0; col < 12; col++) {
            const JNoiseFilterSample& s = f.getSample(row * 12 + col);
            EXPECT_TRUE(s.color == p->getColor(row, col));
            for (int ch = 0; ch < 3; ch++) {
                EXPECT_EQ(s.factor[ch], 1.0f);
                EXPECT_EQ(s.secondFactor[ch], 1.0f);
            }
            EXPECT_TRUE(s.colors.empty());
        }
    }
}

TEST(NoiseFilterSettingsTest, RangesFollowTheTable)
{
    float min, mid, max;
    JNoiseFilterSettings::getStrengthRange(0, min, mid, max);
    EXPECT_EQ(min, 0.0f);
    EXPECT_EQ(mid, 0.55f);
    EXPECT_EQ(max, 1.0f);
    for (int ch = 1; ch < 3; ch++) {
        JNoiseFilterSettings::getStrengthRange(ch, min, mid, max);
        EXPECT_EQ(min, 0.0f);
        EXPECT_EQ(mid, 0.75f);
        EXPECT_EQ(max, 1.0f);
    }
    for (int ch = 0; ch < 3; ch++) {
        JNoiseFilterSettings::getSmoothnessRange(ch, min, mid, max);
        EXPECT_EQ(min, 0.0f);
        EXPECT_EQ(mid, 3.0f);
        EXPECT_EQ(max, 8.0f);
        JNoiseFilterSettings::getContrastRange(ch, min, mid, max);
        EXPECT_EQ(min, 0.5f);
        EXPECT_EQ(mid, 1.0f);
        EXPECT_EQ(max, 1.5f);
    }
    JNoiseFilterSettings::getUSMAmountRange(min, mid, max);
    EXPECT_EQ(min, 1.0f);
    EXPECT_EQ(mid, 3.0f);
    EXPECT_EQ(max, 5.0f);
    JNoiseFilterSettings::getUSMRadiusRange(min, mid, max);
    EXPECT_EQ(min, 0.4f);
    EXPECT_EQ(mid, 1.7f);
    EXPECT_EQ(max, 3.0f);
}

TEST(NoiseFilterSettingsTest, SettersDoNotClamp)
{
    JNoiseFilterSettings f;
    f.setStrength(1, 7.5f);
    f.setSmoothness(2, -4.0f);
    f.setContrast(0, 12.0f);
    f.setUSMAmount(-1.0f);
    f.setUSMRadius(100.0f);
    f.setUSMSuppressHalos(false);
    f.setLowFreqFlag(true);
    EXPECT_EQ(f.getStrength(1), 7.5f);
    EXPECT_EQ(f.getSmoothness(2), -4.0f);
    EXPECT_EQ(f.getContrast(0), 12.0f);
    EXPECT_EQ(f.getUSMAmount(), -1.0f);
    EXPECT_EQ(f.getUSMRadius(), 100.0f);
    EXPECT_FALSE(f.getUSMSuppressHalos());
    EXPECT_TRUE(f.getLowFreqFlag());
}

TEST(NoiseFilterSettingsTest, AssignSettingsCopiesValuesAndSamplesNotMaps)
{
    JNoiseFilterSettings a;
    a.setStrength(0, 0.1f);
    a.setSmoothness(1, 0.2f);
    a.setContrast(2, 0.7f);
    a.setUSMAmount(4.0f);
    a.setUSMRadius(2.0f);
    a.setUSMSuppressHalos(false);
    a.setLowFreqFlag(true);
    a.setParameter(9);
    a.clearSamples();
    a.addSample(JNoiseFilterSample(JLabCoord(10.0f, 1.0f, 2.0f)));
    a.getNoiseMap(0, 0).setCellValue(5, 42.0f);

    JNoiseFilterSettings b;
    b.getNoiseMap(0, 0).setCellValue(5, 7.0f);
    b.assignSettings(a);
    EXPECT_EQ(b.getStrength(0), 0.1f);
    EXPECT_EQ(b.getSmoothness(1), 0.2f);
    EXPECT_EQ(b.getContrast(2), 0.7f);
    EXPECT_EQ(b.getUSMAmount(), 4.0f);
    EXPECT_EQ(b.getUSMRadius(), 2.0f);
    EXPECT_FALSE(b.getUSMSuppressHalos());
    EXPECT_TRUE(b.getLowFreqFlag());
    EXPECT_EQ(b.getParameter(), 9);
    ASSERT_EQ(b.sampleCount(), 1);
    EXPECT_EQ(b.getSample(0).color.L, 10.0f);
    EXPECT_EQ(b.getNoiseMap(0, 0).getCellValue(5), 7.0f);
}

TEST(NoiseFilterSettingsTest, NearestSampleIsNullWithoutSamples)
{
    JNoiseFilterSettings f;
    f.clearSamples();
    EXPECT_EQ(f.nearestSample(JLabCoord(50.0f, 0.0f, 0.0f)), nullptr);
    // Adding a colour without samples does nothing.
    f.addColor(JLabCoord(50.0f, 0.0f, 0.0f));
    EXPECT_EQ(f.sampleCount(), 0);
}

TEST(NoiseFilterSettingsTest, NearestSampleFirstOfEquallyNearWins)
{
    JNoiseFilterSettings f;
    f.clearSamples();
    f.addSample(JNoiseFilterSample(JLabCoord(40.0f, 0.0f, 0.0f)));
    f.addSample(JNoiseFilterSample(JLabCoord(60.0f, 0.0f, 0.0f)));
    f.addSample(JNoiseFilterSample(JLabCoord(80.0f, 0.0f, 0.0f)));
    EXPECT_EQ(f.nearestSample(JLabCoord(50.0f, 0.0f, 0.0f)), &f.getSample(0));
    EXPECT_EQ(f.nearestSample(JLabCoord(51.0f, 0.0f, 0.0f)), &f.getSample(1));
    EXPECT_EQ(f.nearestSample(JLabCoord(90.0f, 0.0f, 0.0f)), &f.getSample(2));
}

TEST(NoiseFilterSettingsTest, AddColorAppendsToNearestSampleOnce)
{
    JNoiseFilterSettings f;
    f.clearSamples();
    f.addSample(JNoiseFilterSample(JLabCoord(40.0f, 0.0f, 0.0f)));
    f.addSample(JNoiseFilterSample(JLabCoord(60.0f, 0.0f, 0.0f)));
    f.addColor(JLabCoord(58.0f, 1.0f, 1.0f));
    f.addColor(JLabCoord(58.0f, 1.0f, 1.0f));
    f.addColor(JLabCoord(57.0f, 1.0f, 1.0f));
    EXPECT_TRUE(f.getSample(0).colors.empty());
    ASSERT_EQ(f.getSample(1).colors.size(), 2u);
    EXPECT_EQ(f.getSample(1).colors[0].L, 58.0f);
    EXPECT_EQ(f.getSample(1).colors[1].L, 57.0f);
}

TEST(NoiseFilterSettingsTest, StrengthMapIsNoOpWithinOneThousandth)
{
    JNoiseFilterSettings f;
    EXPECT_TRUE(f.strengthMapIsNoOp(0));
    f.getSample(10).factor[1] = 1.0009f;
    EXPECT_TRUE(f.strengthMapIsNoOp(1));
    f.getSample(20).factor[1] = 0.998f;
    EXPECT_FALSE(f.strengthMapIsNoOp(1));
    EXPECT_TRUE(f.strengthMapIsNoOp(0));
    EXPECT_TRUE(f.strengthMapIsNoOp(2));
    f.clearSamples();
    EXPECT_TRUE(f.strengthMapIsNoOp(1));
}

TEST(NoiseFilterSettingsTest, UnitFactorsAndFullStrengthGiveZeroStrengthMap)
{
    JNoiseFilterSettings f;
    JNoiseProfile profile;
    for (int ch = 0; ch < 3; ch++)
        f.setStrength(ch, 1.0f);
    f.buildNoiseMaps(profile);
    for (int ch = 0; ch < 3; ch++)
        for (int i = 0; i < 512; i++)
            ASSERT_EQ(f.getStrengthMap(ch).getCellValue(i), 0.0f) << "channel " << ch << " cell " << i;
}

TEST(NoiseFilterSettingsTest, StrengthMapHoldsOneMinusClampedStrength)
{
    JNoiseFilterSettings f;
    f.clearSamples();
    JNoiseFilterSample s(JLabCoord(50.0f, 0.0f, 0.0f));
    s.factor[0] = 0.5f;   // t = 0.5 * 0.8 = 0.4
    s.factor[1] = 4.0f;   // t = 4 * 0.8 clamped to 1
    s.factor[2] = -1.0f;  // t clamped to 0
    f.addSample(s);
    for (int ch = 0; ch < 3; ch++)
        f.setStrength(ch, 0.8f);
    JNoiseProfile profile;
    f.buildNoiseMaps(profile);
    // A single measured cell fills the whole map with its value.
    EXPECT_EQ(f.getStrengthMap(0).getCellValue(0), 1.0f - 0.5f * 0.8f);
    EXPECT_EQ(f.getStrengthMap(0).getCellValue(511), 1.0f - 0.5f * 0.8f);
    EXPECT_EQ(f.getStrengthMap(1).getCellValue(100), 0.0f);
    EXPECT_EQ(f.getStrengthMap(2).getCellValue(300), 1.0f);
}

TEST(NoiseFilterSettingsTest, StrengthMapSecondPassSeesColoursAddedEarlierInThatPass)
{
    // Two samples whose colours fall into the same cell, no colour lists: the
    // first one fills the cell in the second pass, so the second is skipped.
    JLabCoord c1(50.0f, 0.0f, 0.0f), c2(50.5f, 0.0f, 0.0f);
    float y1, r1, b1, y2, r2, b2;
    c1.toYCrCb(y1, r1, b1);
    c2.toYCrCb(y2, r2, b2);
    ASSERT_EQ(J3DMap::indexOf(y1, r1, b1), J3DMap::indexOf(y2, r2, b2));

    JNoiseFilterSettings f;
    f.clearSamples();
    JNoiseFilterSample a(c1), b(c2);
    a.factor[0] = 0.25f;  // 1 - 0.25 = 0.75
    b.factor[0] = 0.75f;  // 1 - 0.75 = 0.25, never added
    f.addSample(a);
    f.addSample(b);
    f.setStrength(0, 1.0f);
    JNoiseProfile profile;
    f.buildNoiseMaps(profile);
    EXPECT_EQ(f.getStrengthMap(0).lookup(y1, r1, b1), 0.75f);
}

TEST(NoiseFilterSettingsTest, StrengthMapFirstPassAddsListColoursAndOwnColour)
{
    // A sample with a colour list contributes every list colour and its own
    // colour in the first pass; a second sample in the same cell then adds
    // nothing in the second pass.
    JLabCoord own(50.0f, 0.0f, 0.0f), listed(50.2f, 0.0f, 0.0f), other(50.4f, 0.0f, 0.0f);
    float y, cr, cb;
    own.toYCrCb(y, cr, cb);
    int cell = J3DMap::indexOf(y, cr, cb);
    float ly, lcr, lcb, oy, ocr, ocb;
    listed.toYCrCb(ly, lcr, lcb);
    other.toYCrCb(oy, ocr, ocb);
    ASSERT_EQ(J3DMap::indexOf(ly, lcr, lcb), cell);
    ASSERT_EQ(J3DMap::indexOf(oy, ocr, ocb), cell);

    JNoiseFilterSettings f;
    f.clearSamples();
    JNoiseFilterSample a(own);
    a.factor[0] = 0.5f;
    a.colors.push_back(listed);
    JNoiseFilterSample b(other);
    b.factor[0] = 0.0f;
    f.addSample(a);
    f.addSample(b);
    f.setStrength(0, 1.0f);
    JNoiseProfile profile;
    f.buildNoiseMaps(profile);
    // Two samples of 0.5 in the cell: mean 0.5; b's 1.0 is not added.
    EXPECT_EQ(f.getStrengthMap(0).getCellValue(cell), 0.5f);
}

TEST(NoiseFilterSettingsTest, ZeroDenseCellGivesNoiseValueOfOneHundredMillionth)
{
    JNoiseFilterSettings f;
    JNoiseProfile profile;
    profile.buildProfile();
    f.buildNoiseMaps(profile);
    for (int ch = 0; ch < 3; ch++)
        for (int l = 0; l < 5; l++)
            for (int i = 0; i < 512; i++)
                ASSERT_EQ(f.getNoiseMap(ch, l).getCellValue(i), static_cast<float>(1e-08));
}

TEST(NoiseFilterSettingsTest, NoiseMapIsSmoothnessTimesOneAndHalfTimesSquare)
{
    JNoiseFilterSettings f;
    f.setSmoothness(0, 2.0f);
    f.setSmoothness(1, 3.0f);
    JNoiseProfile profile;
    profile.getDenseMap(JImageLib::Y, 2).setCellValue(17, 0.5f);
    profile.getDenseMap(JImageLib::Cr, 4).setCellValue(300, 0.01f);
    f.buildNoiseMaps(profile);
    // 2 * 1.5 * 0.25 + 1e-08 = 0.75000001, which rounds to 0.75f.
    EXPECT_EQ(f.getNoiseMap(0, 2).getCellValue(17), 0.75f);
    // v^2 is formed in float first, the rest in double.
    float v2 = 0.01f * 0.01f;
    double want = 3.0 * 1.5 * static_cast<double>(v2) + 1e-08;
    EXPECT_EQ(f.getNoiseMap(1, 4).getCellValue(300), static_cast<float>(want));
    EXPECT_EQ(f.getNoiseMap(1, 4).getCellValue(301), static_cast<float>(1e-08));
}

TEST(NoiseFilterSettingsTest, DefaultObjectWritesExpectedBytes)
{
    JNoiseFilterSettings f;
    Bytes got = written(f);
    Bytes want = defaultStream();
    ASSERT_EQ(got.size(), want.size());
    EXPECT_TRUE(got == want);
}

TEST(NoiseFilterSettingsTest, WrittenColourListsAndFactorsInterleave)
{
    JNoiseFilterSettings f;
    f.clearSamples();
    JNoiseFilterSample s(JLabCoord(1.0f, 2.0f, 3.0f));
    s.factor[0] = 0.1f;
    s.secondFactor[0] = 0.2f;
    s.factor[1] = 0.3f;
    s.secondFactor[1] = 0.4f;
    s.factor[2] = 0.5f;
    s.secondFactor[2] = 0.6f;
    s.colors.push_back(JLabCoord(7.0f, 8.0f, 9.0f));
    f.addSample(s);
    Bytes got = written(f);
    Bytes tail;
    putU32(tail, 1);
    for (float v : {1.0f, 2.0f, 3.0f, 0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0.6f})
        putF32(tail, v);
    putU32(tail, 1);
    for (float v : {7.0f, 8.0f, 9.0f})
        putF32(tail, v);
    ASSERT_GE(got.size(), tail.size());
    EXPECT_TRUE(Bytes(got.end() - tail.size(), got.end()) == tail);
}

TEST(NoiseFilterSettingsTest, EachAcceptedVersionIsRead)
{
    for (uint32_t version : {4663u, 4664u, 4761u, 4864u}) {
        Sample s{11.0f, 12.0f, 13.0f, {0.5f, 0.6f, 0.7f}, {1.5f, 1.6f, 1.7f}, {JLabCoord(1.0f, 2.0f, 3.0f)}};
        Bytes b = customStream(version, 0.25f, 0, 1, -5, {s});
        JNoiseFilterSettings f;
        readInto(f, b);
        SCOPED_TRACE(version);
        for (int ch = 0; ch < 3; ch++) {
            EXPECT_EQ(f.getStrength(ch), 0.25f + ch);
            EXPECT_EQ(f.getSmoothness(ch), 5.0f + ch);
            EXPECT_EQ(f.getContrast(ch), 0.6f + 0.1f * ch);
        }
        EXPECT_EQ(f.getUSMAmount(), 2.5f);
        EXPECT_EQ(f.getUSMRadius(), 0.9f);
        EXPECT_TRUE(f.getLowFreqFlag());
        EXPECT_EQ(f.getParameter(), -5);
        // Version 4663 carries no suppress-halos word: the default true stays.
        EXPECT_EQ(f.getUSMSuppressHalos(), version == 4663);
        ASSERT_EQ(f.sampleCount(), 1);
        const JNoiseFilterSample& r = f.getSample(0);
        EXPECT_EQ(r.color.L, 11.0f);
        EXPECT_EQ(r.color.a, 12.0f);
        EXPECT_EQ(r.color.b, 13.0f);
        for (int ch = 0; ch < 3; ch++) {
            EXPECT_EQ(r.factor[ch], s.f[ch]);
            EXPECT_EQ(r.secondFactor[ch], s.g[ch]);
        }
        ASSERT_EQ(r.colors.size(), 1u);
        EXPECT_EQ(r.colors[0].L, 1.0f);
        EXPECT_EQ(r.colors[0].b, 3.0f);
    }
}

TEST(NoiseFilterSettingsTest, Version4663LeavesSuppressHalosAsItWas)
{
    Bytes b = customStream(4663, 0.3f, 0, 0, 3, {});
    JNoiseFilterSettings f;
    f.setUSMSuppressHalos(false);
    readInto(f, b);
    EXPECT_FALSE(f.getUSMSuppressHalos());
    JNoiseFilterSettings g;
    readInto(g, b);
    EXPECT_TRUE(g.getUSMSuppressHalos());
}

TEST(NoiseFilterSettingsTest, DefaultStreamReadsBackToDefaults)
{
    JNoiseFilterSettings f;
    f.setStrength(0, 0.9f);
    f.setUSMSuppressHalos(false);
    f.clearSamples();
    readInto(f, defaultStream());
    expectDefaults(f);
    EXPECT_TRUE(written(f) == defaultStream());
}

TEST(NoiseFilterSettingsTest, Version4665IsRejectedAndObjectUnchanged)
{
    Bytes b = customStream(4665, 0.3f, 0, 1, 8, {});
    JNoiseFilterSettings f;
    f.setStrength(1, 0.123f);
    Bytes before = written(f);
    try {
        readInto(f, b);
        FAIL() << "version 4665 was accepted";
    } catch (const JEx& e) {
        EXPECT_STREQ(e.what(), "Invalid filter settings file");
    }
    EXPECT_TRUE(written(f) == before);
    EXPECT_EQ(f.getStrength(1), 0.123f);
}

TEST(NoiseFilterSettingsTest, NonZeroFlagsReadAsTrue)
{
    Bytes b = customStream(4664, 0.3f, 7, 0x80000000u, 3, {});
    JNoiseFilterSettings f;
    f.setUSMSuppressHalos(false);
    readInto(f, b);
    EXPECT_TRUE(f.getUSMSuppressHalos());
    EXPECT_TRUE(f.getLowFreqFlag());
    // Written back as 0 or 1.
    Bytes w = written(f);
    Bytes ones;
    putU32(ones, 1);
    putU32(ones, 1);
    EXPECT_TRUE(Bytes(w.begin() + 4 * 13, w.begin() + 4 * 15) == ones);
}

TEST(NoiseFilterSettingsTest, NegativeCountsReadNothing)
{
    Bytes b = customStream(4664, 0.3f, 1, 0, 3, {});
    // Replace the sample count (the last word) by -1 and add a marker.
    b.resize(b.size() - 4);
    putU32(b, 0xFFFFFFFFu);
    putU32(b, 0x12345678u);
    JNoiseFilterSettings f;
    qtless::QDataStream s(toArray(b), qtless::IO_ReadOnly);
    s >> f;
    EXPECT_EQ(f.sampleCount(), 0);
    unsigned int marker;
    s >> marker;
    EXPECT_EQ(marker, 0x12345678u);

    // A negative colour count inside a sample: empty list, nothing consumed.
    Bytes c = customStream(4664, 0.3f, 1, 0, 3, {Sample{1, 2, 3, {1, 1, 1}, {1, 1, 1}, {}}});
    c.resize(c.size() - 4);
    putU32(c, 0xFFFFFFFEu);
    putU32(c, 0xCAFEF00Du);
    JNoiseFilterSettings g;
    g.getSample(0).colors.push_back(JLabCoord(5.0f, 5.0f, 5.0f));
    qtless::QDataStream t(toArray(c), qtless::IO_ReadOnly);
    t >> g;
    ASSERT_EQ(g.sampleCount(), 1);
    EXPECT_TRUE(g.getSample(0).colors.empty());
    t >> marker;
    EXPECT_EQ(marker, 0xCAFEF00Du);
}

TEST(NoiseFilterSettingsTest, ReadColourListReplacesTheList)
{
    Sample s{1.0f, 2.0f, 3.0f, {1, 1, 1}, {1, 1, 1}, {JLabCoord(9.0f, 8.0f, 7.0f)}};
    Bytes b = customStream(4664, 0.3f, 1, 0, 3, {s});
    JNoiseFilterSettings f;
    f.getSample(0).colors.push_back(JLabCoord(5.0f, 5.0f, 5.0f));
    f.getSample(0).colors.push_back(JLabCoord(6.0f, 6.0f, 6.0f));
    readInto(f, b);
    ASSERT_EQ(f.sampleCount(), 1);
    ASSERT_EQ(f.getSample(0).colors.size(), 1u);
    EXPECT_EQ(f.getSample(0).colors[0].L, 9.0f);
}

TEST(NoiseFilterSettingsTest, SampleVectorGrowsWithDefaultSamples)
{
    std::vector<Sample> samples;
    for (int i = 0; i < 3; i++)
        samples.push_back(Sample{static_cast<float>(i), 0, 0, {2, 2, 2}, {3, 3, 3}, {}});
    Bytes b = customStream(4664, 0.3f, 1, 0, 3, samples);
    JNoiseFilterSettings f;
    f.clearSamples();
    f.addSample(JNoiseFilterSample(JLabCoord(99.0f, 0.0f, 0.0f)));
    readInto(f, b);
    ASSERT_EQ(f.sampleCount(), 3);
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(f.getSample(i).color.L, static_cast<float>(i));
        EXPECT_EQ(f.getSample(i).factor[1], 2.0f);
        EXPECT_EQ(f.getSample(i).secondFactor[2], 3.0f);
    }
}

TEST(NoiseFilterSettingsTest, SaveAndLoadThroughAFile)
{
    murmex_test::TempDir dir;
    std::string path = dir.file("settings.dat");
    JNoiseFilterSettings f;
    f.setStrength(2, 0.33f);
    f.setLowFreqFlag(true);
    f.getSample(5).factor[0] = 0.4f;
    f.addColor(JLabCoord(30.0f, 10.0f, 10.0f));
    f.save(path.c_str());

    JNoiseFilterSettings g;
    g.load(path.c_str());
    EXPECT_EQ(g.getStrength(2), 0.33f);
    EXPECT_TRUE(g.getLowFreqFlag());
    EXPECT_EQ(g.getSample(5).factor[0], 0.4f);
    EXPECT_TRUE(written(g) == written(f));
}

TEST(NoiseFilterSettingsTest, LoadOfMissingDirectoryThrows)
{
    JNoiseFilterSettings f;
    EXPECT_THROW(f.load("/nonexistent-murmex-dir/x/settings.dat"), JEx);
}

TEST(NoiseFilterSettingsTest, Versions4761And4864ReadLike4664)
{
    Sample s{20.0f, -5.0f, 7.0f, {0.9f, 0.8f, 0.7f}, {0.6f, 0.5f, 0.4f}, {JLabCoord(4.0f, 5.0f, 6.0f)}};
    JNoiseFilterSettings ref;
    readInto(ref, customStream(4664, 0.4f, 0, 1, 12, {s}));
    for (uint32_t version : {4761u, 4864u}) {
        JNoiseFilterSettings f;
        readInto(f, customStream(version, 0.4f, 0, 1, 12, {s}));
        EXPECT_TRUE(written(f) == written(ref)) << "version " << version;
    }
}
