#include "color/lab_coord.h"

#include <cmath>
#include <limits>
#include <random>

#include <gtest/gtest.h>

#include "support/bits.h"

namespace {

using murmex_test::floatBits;

// Lab -> RGB written out step by step from the conversion tables: single
// precision except the double steps of Lab -> XYZ.
void literalLabToRGB(float L, float a, float b, float rgb[3])
{
    float Y;
    if (L > 8.0f) {
        float t = L + 16.0f;
        t = t * 0.0086206896f;
        Y = t * t;
        Y = Y * t;
    } else {
        Y = L * 0.0011070520f;
    }
    float fy;
    if (Y > 0.008856f)
        fy = powf(Y, 0.33333334f);
    else
        fy = 7.787f * Y + 0.13793103f;

    double fx = double(fy) + double(a) * 0.002;
    float X = static_cast<float>((fx - 16.0 / 116.0) * 0.950456 * 0.12841916);
    if (X * 1.0521265f > 0.008856f) {
        const float f = static_cast<float>(fx);
        X = static_cast<float>(double(f * f * f) * 0.950456);
    }
    double fz = double(fy) - double(b) * 0.005;
    float Z = static_cast<float>((fz - 16.0 / 116.0) * 1.088754 * 0.12841916);
    if (Z * 0.9184811f > 0.008856f) {
        const float f = static_cast<float>(fz);
        Z = static_cast<float>(double(f * f * f) * 1.088754);
    }

    const float m[3][3] = {{3.240479f, -1.537150f, -0.498535f},
                           {-0.969256f, 1.875992f, 0.041556f},
                           {0.055648f, -0.204043f, 1.057311f}};
    for (int k = 0; k < 3; ++k) {
        float v = m[k][0] * X;
        v = v + m[k][1] * Y;
        v = v + m[k][2] * Z;
        if (v >= 1.0f)
            v = 1.0f;
        if (v <= 0.0f)
            v = 0.0f;
        rgb[k] = powf(v, 0.45454544f);
    }
}

float literalF(float t)
{
    return t > 0.008856f ? powf(t, 0.33333334f) : 7.787f * t + 0.13793103f;
}

void literalRGBToLab(float r, float g, float b, float lab[3])
{
    const float lin[3] = {powf(r, 2.2f), powf(g, 2.2f), powf(b, 2.2f)};
    const float m[3][3] = {{0.412453f, 0.357580f, 0.180423f},
                           {0.212671f, 0.715160f, 0.072169f},
                           {0.019334f, 0.119193f, 0.950227f}};
    float xyz[3];
    for (int k = 0; k < 3; ++k) {
        float v = m[k][0] * lin[0];
        v = v + m[k][1] * lin[1];
        v = v + m[k][2] * lin[2];
        xyz[k] = v;
    }
    const float x = xyz[0] * 1.0521265f, y = xyz[1], z = xyz[2] * 0.9184811f;
    lab[0] = y > 0.008856f ? 116.0f * powf(y, 0.33333334f) - 16.0f : 903.3f * y;
    lab[1] = 500.0f * (literalF(x) - literalF(y));
    lab[2] = 200.0f * (literalF(y) - literalF(z));
}

TEST(LabCoordTest, WhiteIsLightnessHundredAndNeutral)
{
    JLabCoord c;
    c.fromRGB(1.0f, 1.0f, 1.0f);
    EXPECT_NEAR(c.L, 100.0f, 1e-3f);
    EXPECT_NEAR(c.a, 0.0f, 1e-3f);
    EXPECT_NEAR(c.b, 0.0f, 1e-3f);
}

TEST(LabCoordTest, BlackIsExactlyZeroThroughTheLinearBranches)
{
    JLabCoord c(5.0f, 5.0f, 5.0f);
    c.fromRGB(0.0f, 0.0f, 0.0f);
    EXPECT_EQ(c.L, 0.0f);
    EXPECT_EQ(c.a, 0.0f);
    EXPECT_EQ(c.b, 0.0f);
}

TEST(LabCoordTest, PureRedMatchesPublishedLab)
{
    // The Rec. 709 red primary with D65 white: L* 53.24, a* 80.09, b* 67.20.
    JLabCoord c;
    c.fromRGB(1.0f, 0.0f, 0.0f);
    EXPECT_NEAR(c.L, 53.24f, 0.01f);
    EXPECT_NEAR(c.a, 80.09f, 0.02f);
    EXPECT_NEAR(c.b, 67.20f, 0.02f);
}

TEST(LabCoordTest, LinearisationIsAPurePowerLaw)
{
    // A dark grey: no linear toe, so Y = 0.01^2.2 (times the row sum 1.0).
    JLabCoord c;
    c.fromRGB(0.01f, 0.01f, 0.01f);
    const float p = powf(0.01f, 2.2f);
    const float Y = 0.212671f * p + 0.715160f * p + 0.072169f * p;
    ASSERT_LE(Y, 0.008856f);
    EXPECT_EQ(c.L, 903.3f * Y);
}

TEST(LabCoordTest, LightnessThresholdIsStrict)
{
    // This red gives Y equal to 0.008856 exactly, which takes the linear branch.
    const float r = 0.235783473f;
    ASSERT_EQ(0.212671f * powf(r, 2.2f) + 0.357580f * 0.0f + 0.180423f * 0.0f, 0.008856f);
    JLabCoord c;
    c.fromRGB(r, 0.0f, 0.0f);
    EXPECT_EQ(c.L, 903.3f * 0.008856f);
    EXPECT_NE(c.L, 116.0f * powf(0.008856f, 0.33333334f) - 16.0f);
    // a uses f(y) from the linear branch too.
    const float fy = 7.787f * 0.008856f + 0.13793103f;
    EXPECT_EQ(c.b, 200.0f * (fy - literalF(0.019334f * powf(r, 2.2f) * 0.9184811f)));
}

TEST(LabCoordTest, LabToXYZThresholdIsStrict)
{
    // L = 7.99962473 gives Y = 0.008856 exactly: fy takes the linear branch.
    const float L = 7.99962473f;
    ASSERT_EQ(L * 0.0011070520f, 0.008856f);
    const JLabCoord c(L, 0.0f, 0.0f);
    float rgb[3], expected[3];
    c.toRGB(rgb[0], rgb[1], rgb[2]);
    literalLabToRGB(L, 0.0f, 0.0f, expected);
    EXPECT_TRUE(murmex_test::sameBits(rgb, expected, 3));
    // The cube-root branch would have given a visibly different green.
    const float fyLinear = 7.787f * 0.008856f + 0.13793103f;
    ASSERT_NE(fyLinear, powf(0.008856f, 0.33333334f));
}

TEST(LabCoordTest, LabBlackKeepsTheDoubleSixteenOver116)
{
    // fy = 0.13793103f is a little below the double 16/116, so the linear X
    // and Z come out slightly negative: red and blue clamp to 0, while green
    // (-0.969256 X + 0.041556 Z) is a tiny positive value raised to 1/2.2.
    const JLabCoord black(0.0f, 0.0f, 0.0f);
    float r, g, b;
    black.toRGB(r, g, b);
    const float X = static_cast<float>((double(0.13793103f) - 16.0 / 116.0) * 0.950456 * 0.12841916);
    const float Z = static_cast<float>((double(0.13793103f) - 16.0 / 116.0) * 1.088754 * 0.12841916);
    ASSERT_LT(X, 0.0f);
    ASSERT_LT(Z, 0.0f);
    EXPECT_EQ(r, 0.0f);
    EXPECT_EQ(b, 0.0f);
    EXPECT_EQ(g, powf(-0.969256f * X + 1.875992f * 0.0f + 0.041556f * Z, 0.45454544f));
    EXPECT_GT(g, 0.0f);
    EXPECT_LT(g, 1e-4f);
}

TEST(LabCoordTest, ToRGBOfWhiteIsWhite)
{
    const JLabCoord white(100.0f, 0.0f, 0.0f);
    float r, g, b;
    white.toRGB(r, g, b);
    EXPECT_NEAR(r, 1.0f, 1e-4f);
    EXPECT_NEAR(g, 1.0f, 1e-4f);
    EXPECT_NEAR(b, 1.0f, 1e-4f);
}

TEST(LabCoordTest, ToRGBOutOfGamutIsClampedToUnitRange)
{
    const JLabCoord samples[] = {{50.0f, 200.0f, -200.0f}, {100.0f, -128.0f, 127.0f}, {150.0f, 0.0f, 0.0f},
                                 {-20.0f, 50.0f, 50.0f},   {30.0f, -300.0f, -300.0f}, {0.0f, 0.0f, 500.0f}};
    for (const JLabCoord& c : samples) {
        float rgb[3];
        c.toRGB(rgb[0], rgb[1], rgb[2]);
        for (float v : rgb) {
            EXPECT_GE(v, 0.0f);
            EXPECT_LE(v, 1.0f);
        }
    }
    float r, g, b;
    JLabCoord(150.0f, 0.0f, 0.0f).toRGB(r, g, b);
    EXPECT_EQ(r, 1.0f);
    EXPECT_EQ(g, 1.0f);
    EXPECT_EQ(b, 1.0f);
}

TEST(LabCoordTest, ConversionsFollowTheTablesOnRandomValues)
{
    std::mt19937 rng(1234);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    std::uniform_real_distribution<float> lightness(-5.0f, 105.0f);
    std::uniform_real_distribution<float> chroma(-120.0f, 120.0f);
    for (int i = 0; i < 20000; ++i) {
        const float r = unit(rng), g = unit(rng), b = unit(rng);
        JLabCoord c;
        c.fromRGB(r, g, b);
        float lab[3];
        literalRGBToLab(r, g, b, lab);
        const float got[3] = {c.L, c.a, c.b};
        ASSERT_TRUE(murmex_test::sameBits(got, lab, 3)) << i;

        const JLabCoord d(lightness(rng), chroma(rng), chroma(rng));
        float rgb[3], expected[3];
        d.toRGB(rgb[0], rgb[1], rgb[2]);
        literalLabToRGB(d.L, d.a, d.b, expected);
        ASSERT_TRUE(murmex_test::sameBits(rgb, expected, 3)) << i;
    }
}

TEST(LabCoordTest, RoundTripThroughLabStaysClose)
{
    std::mt19937 rng(99);
    std::uniform_real_distribution<float> unit(0.05f, 0.95f);
    for (int i = 0; i < 1000; ++i) {
        const float r = unit(rng), g = unit(rng), b = unit(rng);
        JLabCoord c;
        c.fromRGB(r, g, b);
        float r2, g2, b2;
        c.toRGB(r2, g2, b2);
        EXPECT_NEAR(r2, r, 2e-3f);
        EXPECT_NEAR(g2, g, 2e-3f);
        EXPECT_NEAR(b2, b, 2e-3f);
    }
}

TEST(LabCoordTest, ToYCrCbIsToRGBThenTheLumaChromaTransform)
{
    const JLabCoord c(60.0f, 20.0f, -30.0f);
    float r, g, b;
    c.toRGB(r, g, b);
    float y, cr, cb;
    c.toYCrCb(y, cr, cb);
    EXPECT_EQ(y, 0.2989f * r + 0.5866f * g + 0.1145f * b);
    EXPECT_EQ(cr, static_cast<float>(double(0.5f * r - 0.4183f * g - 0.0817f * b) + 0.5));
    EXPECT_EQ(cb, static_cast<float>(double(-0.1687f * r - 0.3312f * g + 0.5f * b) + 0.5));
}

TEST(LabCoordTest, FromPixelMultipliesByTheRoundedReciprocal)
{
    const JPixel p{1000, 30000, 65535, 0};
    JLabCoord c;
    c.fromPixel(p);
    JLabCoord e;
    e.fromRGB(1000.0f * 1.5259022e-05f, 30000.0f * 1.5259022e-05f, 65535.0f * 1.5259022e-05f);
    EXPECT_EQ(c, e);
}

TEST(LabCoordTest, DeltaEOfItselfIsZero)
{
    const JLabCoord c(42.5f, -13.25f, 7.0f);
    EXPECT_EQ(c.deltaE(c), 0.0f);
    EXPECT_EQ(c.deltaESqr(c), 0.0f);
}

TEST(LabCoordTest, DeltaEOfAThreeFourTwelveStepIsThirteen)
{
    const JLabCoord c(10.0f, 20.0f, 30.0f);
    const JLabCoord o(13.0f, 16.0f, 42.0f);
    EXPECT_EQ(c.deltaESqr(o), 169.0f);
    EXPECT_EQ(c.deltaE(o), 13.0f);
}

TEST(LabCoordTest, DeltaESqrIsDeltaESquared)
{
    std::mt19937 rng(5);
    std::uniform_real_distribution<float> v(-100.0f, 100.0f);
    for (int i = 0; i < 1000; ++i) {
        const JLabCoord c(v(rng), v(rng), v(rng)), o(v(rng), v(rng), v(rng));
        const float d = c.deltaE(o);
        EXPECT_NEAR(c.deltaESqr(o), d * d, 1e-5f * d * d);
    }
}

TEST(LabCoordTest, EqualityIsFloatEquality)
{
    EXPECT_TRUE(JLabCoord(-0.0f, 1.0f, 2.0f) == JLabCoord(0.0f, 1.0f, 2.0f));
    EXPECT_TRUE(JLabCoord(1.0f, -0.0f, 0.0f) == JLabCoord(1.0f, 0.0f, -0.0f));
    EXPECT_FALSE(JLabCoord(1.0f, 2.0f, 3.0f) == JLabCoord(1.0f, 2.0f, 3.0001f));
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const JLabCoord n(50.0f, nan, 0.0f);
    EXPECT_FALSE(n == n);
}

TEST(LabCoordTest, CopyAndAssignmentAreMemberWise)
{
    const JLabCoord c(1.5f, -2.5f, 3.5f);
    JLabCoord d(c);
    JLabCoord e(0.0f, 0.0f, 0.0f);
    e = c;
    EXPECT_EQ(floatBits(d.L), floatBits(1.5f));
    EXPECT_EQ(floatBits(d.a), floatBits(-2.5f));
    EXPECT_EQ(floatBits(e.b), floatBits(3.5f));
}

}  // namespace
