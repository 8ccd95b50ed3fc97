#include "base/rational.h"

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

TEST(RationalTest, OneHalfIsOneOverTwo)
{
    const JRational r(0.5);
    EXPECT_EQ(r.num(), 1);
    EXPECT_EQ(r.denom(), 2);
}

TEST(RationalTest, NegativeThreeQuartersIsMinusThreeOverFour)
{
    const JRational r(-0.75);
    EXPECT_EQ(r.num(), -3);
    EXPECT_EQ(r.denom(), 4);
}

TEST(RationalTest, TinyValueIsZeroOverOne)
{
    const JRational r(1e-30);
    EXPECT_EQ(r.num(), 0);
    EXPECT_EQ(r.denom(), 1);
    const JRational z(0.0);
    EXPECT_EQ(z.num(), 0);
    EXPECT_EQ(z.denom(), 1);
}

TEST(RationalTest, PiStopsAtFirstMediantWithinRelativeTolerance)
{
    // The mediants of the walk: 1/1 2/1 3/1 4/1 7/2 10/3 13/4 16/5 19/6 22/7
    // (error 4.0e-4) 25/8 47/15 69/22 91/29 113/36 135/43 157/50 179/57 201/64
    // 223/71 245/78 267/85 (error 1.3e-4) 289/92 (error 9.2e-5 <= 1e-4).
    const JRational r(M_PI);
    EXPECT_EQ(r.num(), 289);
    EXPECT_EQ(r.denom(), 92);
    EXPECT_LE(std::fabs(289.0 / 92.0 - M_PI) / M_PI, 0.0001);
    EXPECT_GT(std::fabs(267.0 / 85.0 - M_PI) / M_PI, 0.0001);
}

TEST(RationalTest, ResultIsWithinRelativeToleranceForAssortedValues)
{
    const double values[] = {0.1, 1.0 / 3.0, 2.0, 123.456, 0.001234, 65535.0 / 7.0};
    for (double x : values) {
        const JRational r(x);
        const double v = static_cast<double>(r.num()) / r.denom();
        EXPECT_LE(std::fabs(v - x) / x, 0.0001) << x;
    }
}

TEST(RationalTest, NonFiniteValuesGiveZeroOverOne)
{
    const JRational n(std::numeric_limits<double>::quiet_NaN());
    EXPECT_EQ(n.num(), 0);
    EXPECT_EQ(n.denom(), 1);
    const JRational i(std::numeric_limits<double>::infinity());
    EXPECT_EQ(i.num(), 0);
    EXPECT_EQ(i.denom(), 1);
}
