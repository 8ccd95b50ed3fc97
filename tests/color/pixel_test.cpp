#include "color/pixel.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <random>

#include <gtest/gtest.h>

#include "color/image_lib.h"
#include "support/bits.h"

namespace {

using murmex_test::floatBits;

// The forward transform written out term by term, each step rounded to float.
void literalToYCrCb(uint16_t R, uint16_t G, uint16_t B, float& y, float& cr, float& cb)
{
    const float r = static_cast<float>(R) / 65535.0f;
    const float g = static_cast<float>(G) / 65535.0f;
    const float b = static_cast<float>(B) / 65535.0f;
    float t;
    t = 0.2989f * r;
    t = t + 0.5866f * g;
    t = t + 0.1145f * b;
    y = t;
    t = 0.5f * r;
    t = t - 0.4183f * g;
    t = t - 0.0817f * b;
    cr = static_cast<float>(double(t) + 0.5);
    t = -0.1687f * r;
    t = t - 0.3312f * g;
    t = t + 0.5f * b;
    cb = static_cast<float>(double(t) + 0.5);
}

TEST(PixelTest, WhiteGivesFullLumaAndNeutralChroma)
{
    const JPixel white{65535, 65535, 65535, 0};
    float y, cr, cb;
    white.toYCrCb(y, cr, cb);
    EXPECT_NEAR(y, 1.0f, 1e-6f);
    EXPECT_NEAR(cr, 0.5f, 1e-6f);
    // The Cb coefficients sum to 0.0001, so white is 0.5001 rather than 0.5.
    EXPECT_NEAR(cb, 0.5001f, 1e-6f);
}

TEST(PixelTest, BlackGivesZeroLumaAndExactlyHalfChroma)
{
    const JPixel black{0, 0, 0, 0};
    float y, cr, cb;
    black.toYCrCb(y, cr, cb);
    EXPECT_EQ(floatBits(y), floatBits(0.0f));
    EXPECT_EQ(cr, 0.5f);
    EXPECT_EQ(cb, 0.5f);
}

TEST(PixelTest, PureRedMatchesHandDerivedValues)
{
    // r = 1, g = b = 0: Y is the red coefficient itself, Cr = 0.5 + 0.5 = 1.
    const JPixel red{65535, 0, 0, 0};
    float y, cr, cb;
    red.toYCrCb(y, cr, cb);
    EXPECT_EQ(y, 0.2989f);
    EXPECT_EQ(cr, 1.0f);
    EXPECT_EQ(cb, static_cast<float>(double(-0.1687f) + 0.5));
}

TEST(PixelTest, ToYCrCbFollowsTheTableOrderOnRandomPixels)
{
    std::mt19937 rng(31);
    std::uniform_int_distribution<int> sample(0, 65535);
    for (int i = 0; i < 20000; ++i) {
        const JPixel p{static_cast<uint16_t>(sample(rng)), static_cast<uint16_t>(sample(rng)),
                       static_cast<uint16_t>(sample(rng)), 0};
        float y, cr, cb, ey, ecr, ecb;
        p.toYCrCb(y, cr, cb);
        literalToYCrCb(p.red, p.green, p.blue, ey, ecr, ecb);
        ASSERT_EQ(floatBits(y), floatBits(ey)) << i;
        ASSERT_EQ(floatBits(cr), floatBits(ecr)) << i;
        ASSERT_EQ(floatBits(cb), floatBits(ecb)) << i;
    }
}

TEST(PixelTest, ToYCrCbDividesWhereTheLabConversionMultiplies)
{
    // 1/65535 rounded to float is not exact: for some samples the quotient
    // and the product with 1.5259022e-05 differ, and toYCrCb uses the quotient.
    int differing = 0;
    for (int v = 0; v <= 65535; ++v) {
        const JPixel p{static_cast<uint16_t>(v), 0, 0, 0};
        float y, cr, cb;
        p.toYCrCb(y, cr, cb);
        ASSERT_EQ(floatBits(y), floatBits(0.2989f * (static_cast<float>(v) / 65535.0f))) << v;
        if (static_cast<float>(v) / 65535.0f != static_cast<float>(v) * 1.5259022e-05f)
            ++differing;
    }
    EXPECT_GT(differing, 0);
}

TEST(PixelTest, FromYCrCbClampsLumaAboveOneAndSetsX)
{
    JPixel p{1, 2, 3, 77};
    p.fromYCrCb(2.0f, 0.5f, 0.5f);
    EXPECT_EQ(p.red, 65535);
    EXPECT_EQ(p.green, 65535);
    EXPECT_EQ(p.blue, 65535);
    EXPECT_EQ(p.x, 65535);
}

TEST(PixelTest, FromYCrCbClampsNegativeToZero)
{
    JPixel p{1, 2, 3, 0};
    p.fromYCrCb(-0.25f, 0.5f, 0.5f);
    EXPECT_EQ(p.red, 0);
    EXPECT_EQ(p.green, 0);
    EXPECT_EQ(p.blue, 0);
    EXPECT_EQ(p.x, 65535);
}

TEST(PixelTest, FromYCrCbClampsEachChannelOnItsOwn)
{
    // Cr = 1 pushes red up by 0.7011 and green down by 0.35725.
    JPixel p{};
    p.fromYCrCb(0.5f, 1.0f, 0.5f);
    EXPECT_EQ(p.red, 65535);
    EXPECT_EQ(p.green, static_cast<uint16_t>(static_cast<int>((0.5f - 0.7145f * 0.5f - 0.3456f * 0.0f) * 65535.0f)));
    EXPECT_EQ(p.blue, 32767);  // 0.5 * 65535 = 32767.5, truncated
    p.fromYCrCb(0.1f, 0.0f, 0.5f);
    EXPECT_EQ(p.red, 0);  // 0.1 - 0.7011 < 0
}

TEST(PixelTest, FromYCrCbNeverRoundsUp)
{
    JPixel p{};
    p.fromYCrCb(0.99999f, 0.5f, 0.5f);
    EXPECT_EQ(p.red, 65534);
    EXPECT_EQ(p.green, 65534);
    EXPECT_EQ(p.blue, 65534);
    // 1.9 units becomes 1.
    p.fromYCrCb(1.9f / 65535.0f, 0.5f, 0.5f);
    EXPECT_EQ(p.red, 1);
}

TEST(PixelTest, FromYCrCbTurnsNaNIntoZero)
{
    JPixel p{5, 5, 5, 5};
    p.fromYCrCb(std::numeric_limits<float>::quiet_NaN(), 0.5f, 0.5f);
    EXPECT_EQ(p.red, 0);
    EXPECT_EQ(p.green, 0);
    EXPECT_EQ(p.blue, 0);
}

TEST(PixelTest, GreyRoundTripLosesAtMostOneUnit)
{
    // Neutral grey has Cr = Cb = 0.5 exactly, so only the truncation acts.
    for (int v = 0; v <= 65535; ++v) {
        const float y = static_cast<float>(v) / 65535.0f;
        JPixel p{};
        p.fromYCrCb(y, 0.5f, 0.5f);
        ASSERT_LE(p.red, v);
        ASSERT_GE(p.red + 1, v);
        ASSERT_EQ(p.red, p.green);
        ASSERT_EQ(p.red, p.blue);
    }
}

TEST(PixelTest, WhiteRoundTripIsNotExact)
{
    // The inverse coefficients are not the exact inverse: green loses three units.
    const JPixel white{65535, 65535, 65535, 65535};
    float y, cr, cb;
    white.toYCrCb(y, cr, cb);
    JPixel back{};
    back.fromYCrCb(y, cr, cb);
    EXPECT_EQ(back.red, 65535);
    EXPECT_EQ(back.green, 65532);
    EXPECT_EQ(back.blue, 65535);
}

TEST(PixelTest, FromYCrCbFollowsTheInverseTable)
{
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> v(-0.2f, 1.2f);
    for (int i = 0; i < 20000; ++i) {
        const float y = v(rng), cr = v(rng), cb = v(rng);
        JPixel p{};
        p.fromYCrCb(y, cr, cb);
        const float crd = static_cast<float>(double(cr) - 0.5);
        const float cbd = static_cast<float>(double(cb) - 0.5);
        float ch[3];
        ch[0] = y + 1.4022f * crd;
        ch[1] = y - 0.7145f * crd;
        ch[1] = ch[1] - 0.3456f * cbd;
        ch[2] = y + 1.7710f * cbd;
        uint16_t expected[3];
        for (int k = 0; k < 3; ++k) {
            float c = ch[k];
            if (c >= 1.0f)
                c = 1.0f;
            if (c <= 0.0f)
                c = 0.0f;
            expected[k] = static_cast<uint16_t>(std::trunc(c * 65535.0f));
        }
        ASSERT_EQ(p.red, expected[0]) << i;
        ASSERT_EQ(p.green, expected[1]) << i;
        ASSERT_EQ(p.blue, expected[2]) << i;
        ASSERT_EQ(p.x, 65535);
    }
}

TEST(PixelTest, YCrCbIndexOrdersLumaThenRedThenBlueChroma)
{
    EXPECT_EQ(JImageLib::Y, 0);
    EXPECT_EQ(JImageLib::Cr, 1);
    EXPECT_EQ(JImageLib::Cb, 2);
}

}  // namespace
