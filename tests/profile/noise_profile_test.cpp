#include "profile/noise_profile.h"

#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "color/color_palette.h"
#include "filter/noise_filter_settings.h"

namespace {

// A sample at the colour of palette entry (row, col) with the given noise
// table.
JNoiseSample sampleAt(int row, int col, const float noise[3][5])
{
    JNoiseSample s;
    s.lab = JColorPalette::getPalette()->getColor(row, col);
    for (int c = 0; c < 3; c++)
        for (int l = 0; l < 5; l++)
            s.noise[c][l] = noise[c][l];
    return s;
}

int recordOf(int row, int col)
{
    return col * 6 + row;
}

// An independent model of the map chain, written out from the formulas.
struct Rec {
    float x, y, z, value;
    int count;
};

float weightedDistance(const Rec& a, const Rec& b)
{
    float dL = 2.5f * b.x - 2.5f * a.x;
    float da = b.y - a.y;
    float db = b.z - a.z;
    return dL * dL + da * da + db * db;
}

std::vector<Rec> paletteRecords()
{
    std::vector<Rec> r;
    JColorPalette* p = JColorPalette::getPalette();
    for (int col = 0; col < 12; col++)
        for (int row = 0; row < 6; row++) {
            JLabCoord c = p->getColor(row, col);
            r.push_back({c.L, c.a, c.b, 0.0f, 0});
        }
    return r;
}

void fillRecords(std::vector<Rec>& recs)
{
    for (Rec& r : recs)
        if (r.count > 0)
            r.value /= static_cast<float>(r.count);
    for (Rec& t : recs) {
        if (t.count > 0)
            continue;
        float S = 1e-10f;
        for (const Rec& r : recs)
            if (r.count > 0)
                S += weightedDistance(r, t);
        float num = 0.0f, den = 0.0f;
        for (const Rec& r : recs) {
            if (r.count == 0)
                continue;
            float d = weightedDistance(r, t) / S;
            float w = 1.0f / (d * d * d + 1e-10f);
            num += w * r.value;
            den += w;
        }
        t.value = num / (den > 1e-38f ? den : 1e-38f);
    }
}

int cellOf(float v)
{
    return static_cast<int>(v * 7.999f) & 7;
}

std::vector<float> denseFrom(const std::vector<Rec>& recs)
{
    std::vector<float> val(512, 0.0f);
    std::vector<int> cnt(512, 0);
    for (const Rec& r : recs) {
        float y, cr, cb;
        JLabCoord(r.x, r.y, r.z).toYCrCb(y, cr, cb);
        int i = cellOf(y) * 64 + cellOf(cr) * 8 + cellOf(cb);
        val[i] += r.value;
        cnt[i]++;
    }
    for (int i = 0; i < 512; i++)
        if (cnt[i] > 0)
            val[i] /= static_cast<float>(cnt[i]);
    std::vector<float> out = val;
    for (int i = 0; i < 512; i++) {
        if (cnt[i] > 0)
            continue;
        double num = 0.0, den = 0.0;
        for (int k = 0; k < 512; k++) {
            if (cnt[k] == 0)
                continue;
            double di = ((i >> 6) - (k >> 6)) * 0.125;
            double dj = (((i >> 3) & 7) - ((k >> 3) & 7)) * 0.125;
            double dk = ((i & 7) - (k & 7)) * 0.125;
            double w = 1.0 / (di * di + dj * dj + dk * dk + 1e-6);
            num += w * val[k];
            den += w;
        }
        out[i] = static_cast<float>(num / (den > 1e-38 ? den : 1e-38));
    }
    return out;
}

void expectNear(float got, float want, const char* what, int index)
{
    EXPECT_NEAR(got, want, 1e-5f * std::fabs(want) + 1e-9f) << what << " cell " << index;
}

}  // namespace

TEST(NoiseProfileTest, FreshProfileHasOriginTwoDefaultsAndNoSamples)
{
    JNoiseProfile p;
    EXPECT_EQ(p.getOrigin(), 2);
    EXPECT_EQ(p.sampleCount(), 0);
    EXPECT_EQ(p.highestLevel(), 0);
    EXPECT_FALSE(p.header().maker.present);
    EXPECT_EQ(p.settings().getUSMAmount(), 1.6f);
    EXPECT_EQ(p.settings().sampleCount(), 72);
    for (int c = 0; c < 3; c++)
        for (int l = 0; l < 5; l++)
            for (int i = 0; i < 512; i++)
                ASSERT_EQ(p.getDenseMap(static_cast<JImageLib::YCrCbIndex>(c), l).getCellValue(i), 0.0f);
}

TEST(NoiseProfileTest, SparseMapsHoldPaletteColoursColumnByColumn)
{
    JNoiseProfile p;
    JColorPalette* pal = JColorPalette::getPalette();
    for (int c = 0; c < 3; c++) {
        for (int l = 0; l < 5; l++) {
            JSparseMap* maps[2] = {&p.getRatioMap(c, l), &p.getLevelMap(c, l)};
            for (JSparseMap* m : maps) {
                ASSERT_EQ(m->recordCount(), 72);
                for (int col = 0; col < 12; col++) {
                    for (int row = 0; row < 6; row++) {
                        JSparseMapRecord& r = m->getRecord(col * 6 + row);
                        JLabCoord e = pal->getColor(row, col);
                        EXPECT_EQ(r.x, e.L);
                        EXPECT_EQ(r.y, e.a);
                        EXPECT_EQ(r.z, e.b);
                    }
                }
            }
        }
    }
}

TEST(NoiseProfileTest, ProfileDistanceWeighsLightnessTwoAndAHalfTimes)
{
    JSparseMapRecord a{10.0f, 1.0f, 2.0f, 0.0f, 0};
    JSparseMapRecord b{12.0f, 4.0f, 6.0f, 0.0f, 0};
    // (30 - 25)^2 + 3^2 + 4^2
    EXPECT_EQ(JNoiseProfile::profileDistance(a, b), 50.0f);
}

TEST(NoiseProfileTest, SparseMapsUseTheProfileDistance)
{
    // A sample between a dark and a light entry of one column lands on the
    // record that the weighted distance names, which differs from the plain
    // squared distance for this probe.
    JNoiseProfile p;
    JSparseMap& m = p.getRatioMap(0, 0);
    // Literal search with the weighted distance.
    JSparseMapRecord probe{60.0f, 30.0f, -40.0f, 0.0f, 0};
    int want = 0;
    float best = 1e38f;
    for (int k = 0; k < m.recordCount(); k++) {
        JSparseMapRecord& r = m.getRecord(k);
        float dL = 2.5f * probe.x - 2.5f * r.x, da = probe.y - r.y, db = probe.z - r.z;
        float d = dL * dL + da * da + db * db;
        if (d < best) {
            best = d;
            want = k;
        }
    }
    EXPECT_EQ(m.nearestRecord(probe.x, probe.y, probe.z), want);
}

TEST(NoiseProfileTest, AddSampleAppendsCopiesInOrder)
{
    JNoiseProfile p;
    float n[3][5] = {{0.1f, 0.2f, 0.3f, 0.4f, 0.5f}, {1, 2, 3, 4, 5}, {6, 7, 8, 9, 10}};
    JNoiseSample a = sampleAt(0, 0, n);
    JNoiseSample b = sampleAt(5, 11, n);
    p.addSample(a);
    p.addSample(b);
    a.noise[0][0] = 99.0f;
    ASSERT_EQ(p.sampleCount(), 2);
    EXPECT_EQ(p.getSample(0).noise[0][0], 0.1f);
    EXPECT_TRUE(p.getSample(1).lab == JColorPalette::getPalette()->getColor(5, 11));
}

TEST(NoiseProfileTest, ProfileWithoutSamplesBuildsAllZeroMaps)
{
    JNoiseProfile p;
    p.buildProfile();
    EXPECT_EQ(p.highestLevel(), 0);
    for (int c = 0; c < 3; c++) {
        for (int l = 0; l < 5; l++) {
            for (int k = 0; k < 72; k++) {
                EXPECT_EQ(p.getRatioMap(c, l).getRecord(k).value, 0.0f);
                EXPECT_EQ(p.getLevelMap(c, l).getRecord(k).value, 0.0f);
            }
            for (int i = 0; i < 512; i++)
                ASSERT_EQ(p.getDenseMap(static_cast<JImageLib::YCrCbIndex>(c), l).getCellValue(i), 0.0f);
        }
    }
}

TEST(NoiseProfileTest, SmallPatchSamplesHalveFromLevelToLevel)
{
    JNoiseProfile p;
    float n1[3][5] = {{0.08f, -1, -1, -1, -1}, {0.4f, -1, -1, -1, -1}, {0.0f, -1, -1, -1, -1}};
    float n2[3][5] = {{0.02f, -1, -1, -1, -1}, {-1.0f, -1, -1, -1, -1}, {0.5f, -1, -1, -1, -1}};
    p.addSample(sampleAt(1, 3, n1));
    p.addSample(sampleAt(4, 7, n2));
    p.buildProfile();
    EXPECT_EQ(p.highestLevel(), 0);
    const JNoiseSample& a = p.getSample(0);
    EXPECT_EQ(a.noise[0][1], 0.04f);
    EXPECT_EQ(a.noise[0][2], 0.02f);
    EXPECT_EQ(a.noise[0][3], 0.01f);
    EXPECT_EQ(a.noise[0][4], 0.005f);
    EXPECT_EQ(a.noise[1][1], 0.2f);
    EXPECT_EQ(a.noise[1][4], 0.025f);
    // Level 0 at 0.0: level 1 is left as it was (-1.0), and from there the
    // halving goes on: -0.5, -0.25, -0.125.
    EXPECT_EQ(a.noise[2][0], 0.0f);
    EXPECT_EQ(a.noise[2][1], -1.0f);
    EXPECT_EQ(a.noise[2][2], -0.5f);
    EXPECT_EQ(a.noise[2][3], -0.25f);
    EXPECT_EQ(a.noise[2][4], -0.125f);
    const JNoiseSample& b = p.getSample(1);
    EXPECT_EQ(b.noise[0][4], 0.00125f);
    EXPECT_EQ(b.noise[2][2], 0.125f);
    // An unmeasured -1.0 is halved like a value: -0.5, -0.25, ...
    EXPECT_EQ(b.noise[1][1], -0.5f);
    EXPECT_EQ(b.noise[1][2], -0.25f);
    EXPECT_EQ(b.noise[1][3], -0.125f);
    EXPECT_EQ(b.noise[1][4], -0.0625f);
}

TEST(NoiseProfileTest, LuminanceDecidesWhichLevelsArePresent)
{
    JNoiseProfile p;
    // Level 2 is measured in luminance by the second sample, so level 2 is
    // present for every channel and never filled; levels 3 and 4 are.
    float n1[3][5] = {{0.0625f, 0.03125f, -1, -1, -1}, {0.125f, -1, -1, -1, -1}, {0.5f, 0.25f, 0.125f, -1, -1}};
    float n2[3][5] = {{0.5f, 0.25f, 0.125f, -1, -1}, {0.5f, 0.25f, 0.125f, -1, -1}, {1, 1, 1, -1, -1}};
    p.addSample(sampleAt(3, 11, n1));
    p.addSample(sampleAt(0, 5, n2));
    p.buildProfile();
    EXPECT_EQ(p.highestLevel(), 2);
    const JNoiseSample& a = p.getSample(0);
    EXPECT_EQ(a.noise[0][2], -1.0f);
    EXPECT_EQ(a.noise[0][3], -0.5f);
    EXPECT_EQ(a.noise[0][4], -0.25f);
    EXPECT_EQ(a.noise[1][1], -1.0f);
    EXPECT_EQ(a.noise[1][3], -0.5f);
    EXPECT_EQ(a.noise[2][3], 0.0625f);
    EXPECT_EQ(a.noise[2][4], 0.03125f);
}

TEST(NoiseProfileTest, HighestLevelIsGreatestLevelWithPositiveLuminance)
{
    JNoiseProfile p;
    float n[3][5] = {{0.1f, 0.1f, 0.0f, 0.1f, -1}, {1, 1, 1, 1, 1}, {1, 1, 1, 1, 1}};
    p.addSample(sampleAt(2, 2, n));
    p.buildProfile();
    EXPECT_EQ(p.highestLevel(), 3);
}

TEST(NoiseProfileTest, SampleWithoutPositiveBaseNoiseAddsNothingToRelativeMaps)
{
    JNoiseProfile p;
    float n[3][5] = {{0.1f, 0.05f, 0.02f, 0.01f, 0.005f}, {0.0f, 0.05f, 0.02f, 0.01f, 0.005f},
                     {-1.0f, 0.05f, 0.02f, 0.01f, 0.005f}};
    p.addSample(sampleAt(2, 6, n));
    p.buildProfile();
    int k = recordOf(2, 6);
    for (int l = 0; l < 5; l++) {
        EXPECT_EQ(p.getRatioMap(0, l).getRecord(k).count, 1);
        for (int c = 1; c < 3; c++) {
            for (int r = 0; r < 72; r++) {
                EXPECT_EQ(p.getRatioMap(c, l).getRecord(r).count, 0);
                EXPECT_EQ(p.getRatioMap(c, l).getRecord(r).value, 0.0f);
            }
        }
    }
    // The base map takes noise(c, 0) >= 0: 0.0 counts for Cr, -1.0 not for Cb.
    EXPECT_EQ(p.getLevelMap(1, 0).getRecord(k).count, 1);
    EXPECT_EQ(p.getLevelMap(2, 0).getRecord(k).count, 0);
}

TEST(NoiseProfileTest, SamplesSharingAColourAverageRatiosAndKeepLargestBase)
{
    JNoiseProfile p;
    float n1[3][5] = {{0.04f, 0.02f, 0.01f, 0.005f, 0.0025f}, {0.1f, 0.1f, 0.1f, 0.1f, 0.1f}, {1, 1, 1, 1, 1}};
    float n2[3][5] = {{0.08f, 0.06f, 0.04f, 0.02f, 0.01f}, {0.3f, 0.15f, 0.1f, 0.1f, 0.1f}, {1, 1, 1, 1, 1}};
    JNoiseSample a = sampleAt(4, 9, n1);
    JNoiseSample b = sampleAt(4, 9, n2);
    b.lab.L += 0.5f;  // still nearest to the same entry
    p.addSample(a);
    p.addSample(b);
    p.buildProfile();
    int k = recordOf(4, 9);
    // Ratios 0.5 and 0.75 at level 1: mean 0.625.
    EXPECT_EQ(p.getRatioMap(0, 1).getRecord(k).count, 2);
    EXPECT_EQ(p.getRatioMap(0, 1).getRecord(k).value, (0.02f / 0.04f + 0.06f / 0.08f) / 2.0f);
    EXPECT_EQ(p.getRatioMap(1, 1).getRecord(k).value, (0.1f / 0.1f + 0.15f / 0.3f) / 2.0f);
    // Base: the larger level-0 noise, count 1.
    EXPECT_EQ(p.getLevelMap(0, 0).getRecord(k).value, 0.08f);
    EXPECT_EQ(p.getLevelMap(0, 0).getRecord(k).count, 1);
    EXPECT_EQ(p.getLevelMap(1, 0).getRecord(k).value, 0.3f);
    // Upper absolute level: ratio times base, count 1 where the ratio was sampled.
    EXPECT_EQ(p.getLevelMap(0, 1).getRecord(k).value, p.getRatioMap(0, 1).getRecord(k).value * 0.08f);
    EXPECT_EQ(p.getLevelMap(0, 1).getRecord(k).count, 1);
    EXPECT_EQ(p.getLevelMap(0, 1).getRecord(recordOf(0, 0)).count, 0);
}

TEST(NoiseProfileTest, OneSampleGivesHandDerivedDenseValues)
{
    // One grey sample; powers of two keep every step exact. Level 1 is the
    // highest measured; levels 2..4 are filled by halving.
    JNoiseProfile p;
    float n[3][5] = {{0.0625f, 0.03125f, -1, -1, -1}, {0.25f, 0.0625f, -1, -1, -1}, {-1, -1, -1, -1, -1}};
    p.addSample(sampleAt(3, 11, n));
    p.buildProfile();
    EXPECT_EQ(p.highestLevel(), 1);

    J3DMap& base = p.getDenseMap(JImageLib::Y, 0);
    float y, cr, cb;
    JColorPalette::getPalette()->getColor(3, 11).toYCrCb(y, cr, cb);
    int sampled = J3DMap::indexOf(y, cr, cb);
    ASSERT_GT(base.getCellCount(sampled), 0);
    // Cell 0 (Y, Cr and Cb all below 0.125) holds no palette colour.
    ASSERT_EQ(base.getCellCount(0), 0);
    for (int cell : {sampled, 0, 511}) {
        // Every record is 0.0625 (the one sample, interpolated everywhere).
        EXPECT_EQ(base.getCellValue(cell), 0.0625f);
        // Ratios 0.5, 0.25, 0.125, 0.0625 at levels 1..4.
        EXPECT_EQ(p.getDenseMap(JImageLib::Y, 1).getCellValue(cell), 0.03125f);
        EXPECT_EQ(p.getDenseMap(JImageLib::Y, 2).getCellValue(cell), 0.015625f);
        EXPECT_EQ(p.getDenseMap(JImageLib::Y, 4).getCellValue(cell), 0.00390625f);
        // Cr: base 0.25, ratio 0.25 at level 1, then 0.125 at level 2.
        EXPECT_EQ(p.getDenseMap(JImageLib::Cr, 0).getCellValue(cell), 0.25f);
        EXPECT_EQ(p.getDenseMap(JImageLib::Cr, 1).getCellValue(cell), 0.0625f);
        EXPECT_EQ(p.getDenseMap(JImageLib::Cr, 2).getCellValue(cell), 0.03125f);
        // Cb measured nothing: zero everywhere.
        EXPECT_EQ(p.getDenseMap(JImageLib::Cb, 0).getCellValue(cell), 0.0f);
        EXPECT_EQ(p.getDenseMap(JImageLib::Cb, 3).getCellValue(cell), 0.0f);
    }
}

TEST(NoiseProfileTest, TwoSamplesGiveDenseValuesOfTheInterpolationFormulas)
{
    JNoiseProfile p;
    float na[3][5] = {{0.08f, 0.04f, 0.02f, 0.01f, 0.005f}, {0.1f, 0.05f, 0.02f, 0.01f, 0.01f},
                      {0.2f, 0.1f, 0.05f, 0.02f, 0.01f}};
    float nb[3][5] = {{0.02f, 0.015f, 0.01f, 0.005f, 0.0025f}, {0.3f, 0.1f, 0.05f, 0.01f, 0.01f},
                      {0.1f, 0.1f, 0.05f, 0.02f, 0.01f}};
    p.addSample(sampleAt(2, 4, na));
    p.addSample(sampleAt(4, 8, nb));
    p.buildProfile();
    EXPECT_EQ(p.highestLevel(), 4);

    for (int c = 0; c < 3; c++) {
        // Independent model: sparse records, then the dense spread.
        std::vector<Rec> base = paletteRecords();
        base[recordOf(2, 4)].value = na[c][0];
        base[recordOf(2, 4)].count = 1;
        base[recordOf(4, 8)].value = nb[c][0];
        base[recordOf(4, 8)].count = 1;
        fillRecords(base);
        std::vector<float> denseBase = denseFrom(base);

        J3DMap& got = p.getDenseMap(static_cast<JImageLib::YCrCbIndex>(c), 0);
        int sampledCells = 0, filledCells = 0;
        for (int i = 0; i < 512; i++) {
            expectNear(got.getCellValue(i), denseBase[i], "base", i);
            if (got.getCellCount(i) > 0)
                sampledCells++;
            else
                filledCells++;
        }
        EXPECT_GT(sampledCells, 0);
        EXPECT_GT(filledCells, 0);

        for (int l = 1; l < 5; l++) {
            std::vector<Rec> ratio = paletteRecords();
            ratio[recordOf(2, 4)].value = na[c][l] / na[c][0];
            ratio[recordOf(2, 4)].count = 1;
            ratio[recordOf(4, 8)].value = nb[c][l] / nb[c][0];
            ratio[recordOf(4, 8)].count = 1;
            fillRecords(ratio);
            std::vector<float> denseRatio = denseFrom(ratio);
            J3DMap& upper = p.getDenseMap(static_cast<JImageLib::YCrCbIndex>(c), l);
            for (int i = 0; i < 512; i++)
                expectNear(upper.getCellValue(i), denseRatio[i] * denseBase[i], "upper", i);
        }
    }
}

TEST(NoiseProfileTest, ResetKeepsHeaderAndSettingsAndRecords)
{
    JNoiseProfile p;
    p.header().iso.set(800);
    p.settings().setStrength(0, 0.3f);
    float n[3][5] = {{0.1f, 0.05f, 0.02f, 0.01f, 0.005f}, {0.1f, 0.05f, 0.02f, 0.01f, 0.005f},
                     {0.1f, 0.05f, 0.02f, 0.01f, 0.005f}};
    p.addSample(sampleAt(1, 1, n));
    p.buildProfile();
    p.reset();
    EXPECT_EQ(p.sampleCount(), 0);
    EXPECT_TRUE(p.header().iso.present);
    EXPECT_EQ(p.header().iso.value, 800);
    EXPECT_EQ(p.settings().getStrength(0), 0.3f);
    for (int c = 0; c < 3; c++) {
        for (int l = 0; l < 5; l++) {
            ASSERT_EQ(p.getRatioMap(c, l).recordCount(), 72);
            for (int k = 0; k < 72; k++) {
                EXPECT_EQ(p.getRatioMap(c, l).getRecord(k).value, 0.0f);
                EXPECT_EQ(p.getLevelMap(c, l).getRecord(k).count, 0);
            }
            for (int i = 0; i < 512; i++) {
                ASSERT_EQ(p.getDenseMap(static_cast<JImageLib::YCrCbIndex>(c), l).getCellValue(i), 0.0f);
                ASSERT_EQ(p.getDenseMap(static_cast<JImageLib::YCrCbIndex>(c), l).getCellCount(i), 0);
            }
        }
    }
}

TEST(NoiseProfileTest, SetPathSplitsDirectoryAndFileName)
{
    JNoiseProfile p;
    p.setPath("/a/b/profile.v2.dnp");
    EXPECT_EQ(p.getFileName(), "profile.v2");
    EXPECT_EQ(p.getDirectory(), "/a/b/");
    p.setPath("plain.dnp");
    EXPECT_EQ(p.getFileName(), "plain");
    EXPECT_EQ(p.getDirectory(), "");
}

TEST(NoiseProfileTest, AssignmentCopiesAndRebuilds)
{
    JNoiseProfile a;
    a.header().maker.set("Maker");
    a.settings().setSmoothness(2, 6.0f);
    a.settings().getNoiseMap(0, 0).setCellValue(3, 5.0f);
    a.setOrigin(3);
    a.setPath("/x/y/cam.dnp");
    float n[3][5] = {{0.08f, -1, -1, -1, -1}, {0.1f, -1, -1, -1, -1}, {0.2f, -1, -1, -1, -1}};
    a.addSample(sampleAt(2, 4, n));
    // a is not built: the copy builds its maps itself.

    JNoiseProfile b;
    float m[3][5] = {{1, 1, 1, 1, 1}, {1, 1, 1, 1, 1}, {1, 1, 1, 1, 1}};
    b.addSample(sampleAt(0, 0, m));
    b.addSample(sampleAt(1, 0, m));
    b = a;
    EXPECT_EQ(b.sampleCount(), 1);
    EXPECT_TRUE(b.header().maker.present);
    EXPECT_EQ(b.header().maker.value, "Maker");
    EXPECT_EQ(b.settings().getSmoothness(2), 6.0f);
    EXPECT_EQ(b.settings().getNoiseMap(0, 0).getCellValue(3), 0.0f);
    EXPECT_EQ(b.getOrigin(), 3);
    EXPECT_EQ(b.getFileName(), "cam");
    EXPECT_EQ(b.getDirectory(), "/x/y/");
    // Rebuilt: the copied sample was filled and the maps hold its values.
    EXPECT_EQ(b.getSample(0).noise[0][1], 0.04f);
    EXPECT_EQ(b.getDenseMap(JImageLib::Y, 0).getCellValue(0), 0.08f);
    EXPECT_EQ(b.getDenseMap(JImageLib::Y, 1).getCellValue(0), 0.04f);
    // The source's own maps were not touched.
    EXPECT_EQ(a.getDenseMap(JImageLib::Y, 0).getCellValue(0), 0.0f);

    JNoiseProfile c(a);
    EXPECT_EQ(c.getOrigin(), 3);
    EXPECT_EQ(c.getDenseMap(JImageLib::Y, 0).getCellValue(0), 0.08f);
}
