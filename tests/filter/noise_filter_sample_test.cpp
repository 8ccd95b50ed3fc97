#include "filter/noise_filter_sample.h"

#include <gtest/gtest.h>

TEST(NoiseFilterSampleTest, DefaultSampleHasZeroColourAndUnitFactors)
{
    JNoiseFilterSample s;
    EXPECT_EQ(s.color.L, 0.0f);
    EXPECT_EQ(s.color.a, 0.0f);
    EXPECT_EQ(s.color.b, 0.0f);
    for (int ch = 0; ch < 3; ch++) {
        EXPECT_EQ(s.factor[ch], 1.0f);
        EXPECT_EQ(s.secondFactor[ch], 1.0f);
    }
    EXPECT_TRUE(s.colors.empty());
}

TEST(NoiseFilterSampleTest, ColourConstructorKeepsColourAndUnitFactors)
{
    JNoiseFilterSample s(JLabCoord(40.0f, -3.0f, 12.5f));
    EXPECT_EQ(s.color.L, 40.0f);
    EXPECT_EQ(s.color.a, -3.0f);
    EXPECT_EQ(s.color.b, 12.5f);
    for (int ch = 0; ch < 3; ch++) {
        EXPECT_EQ(s.factor[ch], 1.0f);
        EXPECT_EQ(s.secondFactor[ch], 1.0f);
    }
    EXPECT_TRUE(s.colors.empty());
}
