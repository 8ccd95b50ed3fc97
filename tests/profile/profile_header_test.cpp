#include "profile/profile_header.h"

#include <gtest/gtest.h>

TEST(ProfileHeaderTest, DefaultRecordHasEveryFieldAbsentAndZero)
{
    JProfileHeader h;
    EXPECT_FALSE(h.maker.present);
    EXPECT_TRUE(h.maker.value.isEmpty());
    EXPECT_FALSE(h.model.present);
    EXPECT_TRUE(h.model.value.isEmpty());
    EXPECT_FALSE(h.film.present);
    EXPECT_TRUE(h.film.value.isEmpty());
    EXPECT_FALSE(h.iso.present);
    EXPECT_EQ(h.iso.value, 0);
    EXPECT_FALSE(h.multisampling.present);
    EXPECT_EQ(h.multisampling.value, 0);
    EXPECT_FALSE(h.shutterspeed.present);
    EXPECT_EQ(h.shutterspeed.value, 0.0f);
    EXPECT_FALSE(h.exposurecomp.present);
    EXPECT_EQ(h.exposurecomp.value, 0.0f);
    EXPECT_FALSE(h.megapixels.present);
    EXPECT_EQ(h.megapixels.value, 0);
    EXPECT_FALSE(h.quality.present);
    EXPECT_EQ(h.quality.value, 0);
    EXPECT_FALSE(h.sharpness.present);
    EXPECT_EQ(h.sharpness.value, 0);
    EXPECT_FALSE(h.illuminant.present);
    EXPECT_EQ(h.illuminant.value, 0);
    EXPECT_FALSE(h.contrast.present);
    EXPECT_EQ(h.contrast.value, 0);
    EXPECT_FALSE(h.saturation.present);
    EXPECT_EQ(h.saturation.value, 0);
    EXPECT_FALSE(h.temperature.present);
    EXPECT_EQ(h.temperature.value, 0.0f);
    EXPECT_FALSE(h.colorspace.present);
    EXPECT_TRUE(h.colorspace.value.isEmpty());
    EXPECT_FALSE(h.author.present);
    EXPECT_TRUE(h.author.value.isEmpty());
    EXPECT_FALSE(h.comment.present);
    EXPECT_TRUE(h.comment.value.isEmpty());
}

TEST(ProfileHeaderTest, SetMarksFieldPresent)
{
    JProfileHeader h;
    h.iso.set(400);
    h.maker.set("Maker");
    EXPECT_TRUE(h.iso.present);
    EXPECT_EQ(h.iso.value, 400);
    EXPECT_TRUE(h.maker.present);
    EXPECT_EQ(h.maker.value, "Maker");
}

TEST(ProfileHeaderTest, CopyKeepsValuesAndFlags)
{
    JProfileHeader h;
    h.model.set("M1");
    h.temperature.set(5200.0f);
    h.comment.value = "kept but absent";
    JProfileHeader c = h;
    EXPECT_TRUE(c.model.present);
    EXPECT_EQ(c.model.value, "M1");
    EXPECT_TRUE(c.temperature.present);
    EXPECT_EQ(c.temperature.value, 5200.0f);
    EXPECT_FALSE(c.comment.present);
    EXPECT_EQ(c.comment.value, "kept but absent");
    JProfileHeader d;
    d = h;
    EXPECT_TRUE(d.model.present);
    EXPECT_FALSE(d.iso.present);
}
