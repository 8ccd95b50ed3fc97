#include "profile/noise_sample.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "base/qtless/qdatastream.h"
#include "color/pixel.h"
#include "support/memory_image.h"
#include "support/test_images.h"

using murmex_test::MemoryImage;

namespace {

// Mean |c - blur(c)| of the level-0 edge-directed blur (spacing 1) at a pixel
// whose 5x5 neighbourhood holds independent standard normal values, by a
// seeded simulation of the kernel written out from its definition: four
// directional sums of |v - c| over offsets -2, -1, 1, 2; the smallest m of
// them (A, then C, B, D on strict improvement); T = 0.2 m * 1.27 + 1e-10; the
// weighted mean of the eight neighbours with weights 1 / max(T, |v - c|).
double levelZeroMeanAbsPerSigma()
{
    const int trials = 100000;
    std::vector<double> g = murmex_test::gaussianValues(trials * 25, 4242);
    double sum = 0.0;
    for (int t = 0; t < trials; t++) {
        const double* p = &g[static_cast<size_t>(t) * 25];
        auto in = [p](int dy, int dx) { return static_cast<float>(p[(dy + 2) * 5 + (dx + 2)]); };
        float c = in(0, 0);
        float A = 0, B = 0, C = 0, D = 0;
        for (int k : {-2, -1, 1, 2}) {
            A += std::fabs(in(k, k) - c);
            B += std::fabs(in(0, k) - c);
            C += std::fabs(in(k, -k) - c);
            D += std::fabs(in(k, 0) - c);
        }
        float m = A;
        if (C < m)
            m = C;
        if (B < m)
            m = B;
        if (D < m)
            m = D;
        float T = m * 0.2f * 1.27f + 1e-10f;
        float num = 0.0f, den = 1e-10f;
        for (int dy = -1; dy <= 1; dy++) {
            for (int dx = -1; dx <= 1; dx++) {
                if (dy == 0 && dx == 0)
                    continue;
                float v = in(dy, dx);
                float w = 1.0f / std::max(T, std::fabs(v - c));
                num += w * v;
                den += w;
            }
        }
        sum += std::fabs(c - num / den);
    }
    return sum / trials;
}

MemoryImage noisyGrey(int w, int h, double sigma, uint32_t seed)
{
    MemoryImage img = murmex_test::flatImage(w, h, 32768, 32768, 32768);
    murmex_test::addGreyNoise(img, sigma, seed);
    return img;
}

JNoiseSample analyzed(MemoryImage& img, JRect<int> r)
{
    JNoiseSample s;
    s.analyze(&img, r);
    return s;
}

using Bytes = std::vector<unsigned char>;

void putF32(Bytes& b, float f)
{
    uint32_t v;
    std::memcpy(&v, &f, 4);
    for (int shift = 24; shift >= 0; shift -= 8)
        b.push_back(static_cast<unsigned char>(v >> shift));
}

Bytes written(const JNoiseSample& s)
{
    qtless::QDataStream out(qtless::QByteArray(), qtless::IO_WriteOnly);
    out << s;
    qtless::QByteArray a = out.device()->buffer();
    return Bytes(reinterpret_cast<const unsigned char*>(a.data()),
                 reinterpret_cast<const unsigned char*>(a.data()) + a.size());
}

JNoiseSample readBack(const Bytes& b)
{
    qtless::QByteArray a(static_cast<int>(b.size()));
    std::memcpy(a.data(), b.data(), b.size());
    qtless::QDataStream in(a, qtless::IO_ReadOnly);
    JNoiseSample s;
    in >> s;
    return s;
}

}  // namespace

TEST(NoiseSampleTest, ConstructorSetsFlagAuxRectAndColourMeans)
{
    JNoiseSample s;
    EXPECT_EQ(s.flag, 1);
    EXPECT_EQ(s.aux, 0.0f);
    EXPECT_EQ(s.rect.left, 0);
    EXPECT_EQ(s.rect.top, 0);
    EXPECT_EQ(s.rect.right, 0);
    EXPECT_EQ(s.rect.bottom, 0);
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(s.ycrcb[i], 0.0f);
        EXPECT_EQ(s.rgb[i], 0.0f);
    }
}

TEST(NoiseSampleTest, FieldsFromRectOnAreContiguousWords)
{
    // The host's sample record copies 28 words starting at the rect.
    JNoiseSample s;
    const char* base = reinterpret_cast<const char*>(&s.rect);
    EXPECT_EQ(reinterpret_cast<const char*>(&s.ycrcb[0]) - base, 16);
    EXPECT_EQ(reinterpret_cast<const char*>(&s.rgb[0]) - base, 28);
    EXPECT_EQ(reinterpret_cast<const char*>(&s.lab) - base, 40);
    EXPECT_EQ(reinterpret_cast<const char*>(&s.noise[0][0]) - base, 52);
    EXPECT_EQ(reinterpret_cast<const char*>(&s.noise[2][4]) - base, 108);
}

TEST(NoiseSampleTest, FlatPatchHasZeroNoiseAndItsColour)
{
    MemoryImage img = murmex_test::flatImage(80, 80, 30000, 20000, 10000);
    JRect<int> r(10, 12, 70, 72);
    JNoiseSample s;
    s.flag = 0;
    s.aux = 5.0f;
    s.analyze(&img, r);
    EXPECT_EQ(s.flag, 1);
    EXPECT_EQ(s.aux, 0.0f);
    EXPECT_EQ(s.rect.left, 10);
    EXPECT_EQ(s.rect.top, 12);
    EXPECT_EQ(s.rect.right, 70);
    EXPECT_EQ(s.rect.bottom, 72);
    // A constant plane passes the blur unchanged up to the rounding of its
    // weighted mean, so every detail is 0 within a few float steps.
    for (int c = 0; c < 3; c++) {
        for (int l = 0; l < 5; l++) {
            EXPECT_GE(s.noise[c][l], 0.0f) << "channel " << c << " level " << l;
            EXPECT_LT(s.noise[c][l], 1e-6f) << "channel " << c << " level " << l;
        }
    }
    JLabCoord want;
    want.fromPixel(JPixel{30000, 20000, 10000, 65535});
    EXPECT_EQ(s.lab.L, want.L);
    EXPECT_EQ(s.lab.a, want.a);
    EXPECT_EQ(s.lab.b, want.b);
    float y, cr, cb, rr, gg, bb;
    want.toYCrCb(y, cr, cb);
    want.toRGB(rr, gg, bb);
    EXPECT_EQ(s.ycrcb[0], y);
    EXPECT_EQ(s.ycrcb[1], cr);
    EXPECT_EQ(s.ycrcb[2], cb);
    EXPECT_EQ(s.rgb[0], rr);
    EXPECT_EQ(s.rgb[1], gg);
    EXPECT_EQ(s.rgb[2], bb);
}

TEST(NoiseSampleTest, LevelZeroNoiseMatchesDerivedValueForKnownSigma)
{
    // Grey noise of deviation sigma lands in Y with deviation sigma (the Y
    // coefficients sum to 1.0); level 0 then gives k * sigma / 0.6875 with k
    // the mean |detail| per unit deviation of the blur. Tolerance 5%: the
    // finite patch (about 1.2% standard error) and its mirrored borders.
    const double k = levelZeroMeanAbsPerSigma();
    for (double sigma : {0.01, 0.04}) {
        MemoryImage img = noisyGrey(160, 160, sigma, 7);
        JNoiseSample s = analyzed(img, JRect<int>(16, 16, 144, 144));
        double want = k * sigma / 0.6875;
        EXPECT_NEAR(s.noise[0][0], want, 0.05 * want) << "sigma " << sigma << " k " << k;
        // The noise cancels in chroma.
        EXPECT_LT(s.noise[1][0], 0.01 * want);
        EXPECT_LT(s.noise[2][0], 0.01 * want);
    }
}

TEST(NoiseSampleTest, LevelZeroNoiseGrowsWithSigma)
{
    float previous = 0.0f;
    for (double sigma : {0.0025, 0.005, 0.01, 0.02, 0.04}) {
        MemoryImage img = noisyGrey(64, 64, sigma, 11);
        JNoiseSample s = analyzed(img, JRect<int>(4, 4, 60, 60));
        EXPECT_GT(s.noise[0][0], previous) << "sigma " << sigma;
        previous = s.noise[0][0];
    }
}

TEST(NoiseSampleTest, SmallerSideOfFourteenMeasuresLevelZeroOnly)
{
    MemoryImage img = noisyGrey(100, 100, 0.02, 3);
    for (JRect<int> r : {JRect<int>(5, 5, 19, 80), JRect<int>(5, 5, 80, 19), JRect<int>(0, 0, 3, 3)}) {
        JNoiseSample s = analyzed(img, r);
        for (int c = 0; c < 3; c++) {
            EXPECT_GE(s.noise[c][0], 0.0f);
            for (int l = 1; l < 5; l++)
                EXPECT_EQ(s.noise[c][l], -1.0f) << "channel " << c << " level " << l;
        }
        EXPECT_GT(s.noise[0][0], 0.0f);
    }
}

TEST(NoiseSampleTest, EachSizeThresholdAddsOneLevel)
{
    MemoryImage img = noisyGrey(100, 100, 0.02, 5);
    struct Case {
        int side;
        int levels;  // measured levels including 0
    };
    for (Case cs : {Case{15, 2}, Case{22, 2}, Case{23, 3}, Case{38, 3}, Case{39, 4}, Case{54, 4}, Case{55, 5}}) {
        // The smaller side is cs.side; the other side is 70.
        JNoiseSample s = analyzed(img, JRect<int>(10, 20, 10 + 70, 20 + cs.side));
        for (int l = 0; l < 5; l++) {
            if (l < cs.levels)
                EXPECT_GT(s.noise[0][l], 0.0f) << "side " << cs.side << " level " << l;
            else
                EXPECT_EQ(s.noise[0][l], -1.0f) << "side " << cs.side << " level " << l;
            for (int c = 1; c < 3; c++)
                EXPECT_EQ(s.noise[c][l] == -1.0f, l >= cs.levels) << "side " << cs.side << " level " << l;
        }
    }
}

TEST(NoiseSampleTest, StreamFormIsEighteenFloatsInOrder)
{
    JNoiseSample s;
    s.lab = JLabCoord(50.0f, -10.5f, 20.25f);
    for (int c = 0; c < 3; c++)
        for (int l = 0; l < 5; l++)
            s.noise[c][l] = 0.01f * (c * 5 + l + 1);
    s.noise[2][4] = -1.0f;
    s.rect = JRect<int>(1, 2, 3, 4);
    s.ycrcb[0] = 9.0f;
    Bytes want;
    putF32(want, 50.0f);
    putF32(want, -10.5f);
    putF32(want, 20.25f);
    for (int c = 0; c < 3; c++)
        for (int l = 0; l < 5; l++)
            putF32(want, c == 2 && l == 4 ? -1.0f : 0.01f * (c * 5 + l + 1));
    EXPECT_TRUE(written(s) == want);
}

TEST(NoiseSampleTest, ReadBackGivesLabNoiseAndDerivedColoursButNotRect)
{
    JNoiseSample s;
    s.lab = JLabCoord(62.0f, 12.0f, -30.0f);
    for (int c = 0; c < 3; c++)
        for (int l = 0; l < 5; l++)
            s.noise[c][l] = 0.003f * (l + 1) + c;
    s.rect = JRect<int>(5, 6, 50, 60);
    s.flag = 0;
    s.aux = 3.0f;
    JNoiseSample r = readBack(written(s));
    EXPECT_TRUE(r.lab == s.lab);
    for (int c = 0; c < 3; c++)
        for (int l = 0; l < 5; l++)
            EXPECT_EQ(r.noise[c][l], s.noise[c][l]);
    float y, cr, cb, rr, gg, bb;
    s.lab.toYCrCb(y, cr, cb);
    s.lab.toRGB(rr, gg, bb);
    EXPECT_EQ(r.ycrcb[0], y);
    EXPECT_EQ(r.ycrcb[1], cr);
    EXPECT_EQ(r.ycrcb[2], cb);
    EXPECT_EQ(r.rgb[0], rr);
    EXPECT_EQ(r.rgb[1], gg);
    EXPECT_EQ(r.rgb[2], bb);
    EXPECT_EQ(r.rect.left, 0);
    EXPECT_EQ(r.rect.right, 0);
    EXPECT_EQ(r.flag, 1);
    EXPECT_EQ(r.aux, 0.0f);
}

TEST(NoiseSampleTest, UnmeasuredLevelsTravelAsMinusOne)
{
    MemoryImage img = noisyGrey(40, 40, 0.02, 9);
    JNoiseSample s = analyzed(img, JRect<int>(2, 2, 32, 20));  // smaller side 18: levels 0, 1
    ASSERT_EQ(s.noise[0][2], -1.0f);
    JNoiseSample r = readBack(written(s));
    for (int c = 0; c < 3; c++) {
        EXPECT_EQ(r.noise[c][0], s.noise[c][0]);
        EXPECT_EQ(r.noise[c][1], s.noise[c][1]);
        for (int l = 2; l < 5; l++)
            EXPECT_EQ(r.noise[c][l], -1.0f);
    }
}
