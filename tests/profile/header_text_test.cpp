#include "profile/header_text.h"

#include <gtest/gtest.h>

using qtless::QString;

namespace {

const char kHead[] = "\n\n<!-- Automatically generated. DO NOT EDIT. -->\n<profilehdr version=\"2.0\">\n";
const char kTail[] = "\n</profilehdr>\n";

std::string text(const JProfileHeader& h)
{
    return JHeaderText::write(h).toStdString();
}

}  // namespace

TEST(HeaderTextTest, NoPresentFieldGivesCommentLineOpeningTagAndClosingTag)
{
    const JProfileHeader h;
    EXPECT_EQ(text(h), "\n\n<!-- Automatically generated. DO NOT EDIT. -->\n"
                       "<profilehdr version=\"2.0\">\n"
                       "\n</profilehdr>\n");
}

TEST(HeaderTextTest, MakerWithMarkupCharactersIsEscaped)
{
    JProfileHeader h;
    h.maker.set("A&B<x>");
    EXPECT_EQ(text(h), std::string(kHead) + "  <maker>A&amp;B&lt;x&gt;</maker>\n" + kTail);
}

TEST(HeaderTextTest, EscapeReplacesAllFiveMarkupCharacters)
{
    EXPECT_EQ(JHeaderText::escape("<>&\"'a b"), QString("&lt;&gt;&amp;&quot;&apos;a b"));
    EXPECT_EQ(JHeaderText::escape(""), QString(""));
}

TEST(HeaderTextTest, UnknownIlluminantIsWrittenAsQuestionMarks)
{
    JProfileHeader h;
    h.illuminant.set(16);
    EXPECT_EQ(text(h), std::string(kHead) + "  <illuminant>???" "</illuminant>\n" + kTail);
    h.illuminant.set(21);
    EXPECT_EQ(text(h), std::string(kHead) + "  <illuminant>D65</illuminant>\n" + kTail);
}

TEST(HeaderTextTest, SaturationElementShowsTheContrastWord)
{
    JProfileHeader h;
    h.contrast.set(2);
    h.saturation.set(1);
    EXPECT_EQ(text(h), std::string(kHead) + "  <contrast>Low</contrast>\n  <saturation>Low</saturation>\n" + kTail);
}

TEST(HeaderTextTest, UnknownContrastCodeGivesQuestionMarksInContrastAndSaturation)
{
    JProfileHeader h;
    h.contrast.set(7);
    h.saturation.set(1);
    EXPECT_EQ(text(h), std::string(kHead) + "  <contrast>???" "</contrast>\n  <saturation>???" "</saturation>\n" + kTail);
}

TEST(HeaderTextTest, SaturationLooksUpContrastValueEvenWhenContrastIsAbsent)
{
    JProfileHeader h;
    h.contrast.value = 5;
    h.saturation.set(1);
    EXPECT_EQ(text(h), std::string(kHead) + "  <saturation>Highest</saturation>\n" + kTail);
}

TEST(HeaderTextTest, CommentElementHasNoNewlineAfterItsClosingTag)
{
    JProfileHeader h;
    h.comment.set("it's");
    EXPECT_EQ(text(h), std::string(kHead) + "  <comment>it&apos;s</comment>" + kTail);
}

TEST(HeaderTextTest, EveryPresentFieldInRecordOrder)
{
    JProfileHeader h;
    h.maker.set("Maker");
    h.model.set("M1");
    h.film.set("F");
    h.iso.set(400);
    h.multisampling.set(4);
    h.shutterspeed.set(0.25f);
    h.exposurecomp.set(-0.5f);
    h.megapixels.set(12);
    h.quality.set(2);
    h.sharpness.set(3);
    h.illuminant.set(12);
    h.contrast.set(4);
    h.saturation.set(2);
    h.temperature.set(20.0f);
    h.colorspace.set("sRGB");
    h.author.set("Me");
    h.comment.set("c");
    const std::string expected = std::string(kHead) +
                                 "  <maker>Maker</maker>\n"
                                 "  <model>M1</model>\n"
                                 "  <film>F</film>\n"
                                 "  <iso>400</iso>\n"
                                 "  <multisampling>4</multisampling>\n"
                                 "  <shutterspeed>0.250000</shutterspeed>\n"
                                 "  <exposurecomp>-0.500000</exposurecomp>\n"
                                 "  <megapixels>12</megapixels>\n"
                                 "  <quality>JPEG Fine</quality>\n"
                                 "  <sharpness>Medium</sharpness>\n"
                                 "  <illuminant>Fluor. D5700/7100K</illuminant>\n"
                                 "  <contrast>High</contrast>\n"
                                 "  <saturation>High</saturation>\n"
                                 "  <temperature>20.000000</temperature>\n"
                                 "  <colorspace>sRGB</colorspace>\n"
                                 "  <author>Me</author>\n"
                                 "  <comment>c</comment>" +
                                 kTail;
    EXPECT_EQ(text(h), expected);
}

TEST(HeaderTextTest, QualityTextIsEscapedTableName)
{
    JProfileHeader h;
    h.quality.set(1);
    EXPECT_EQ(text(h), std::string(kHead) + "  <quality>RAW/Tiff</quality>\n" + kTail);
    h.quality.set(9);
    EXPECT_EQ(text(h), std::string(kHead) + "  <quality>???" "</quality>\n" + kTail);
}

TEST(HeaderTextTest, AutoDirectoryWithoutMakerModelOrFilmIsOtherOther)
{
    EXPECT_EQ(JHeaderText::autoDirectory(JProfileHeader()), QString("/other/other"));
}

TEST(HeaderTextTest, AutoDirectoryTakesPresentFieldsOnly)
{
    JProfileHeader h;
    h.maker.set("Acme");
    h.model.value = "Hidden";
    EXPECT_EQ(JHeaderText::autoDirectory(h), QString("/Acme/other"));
    h.model.set("Z9");
    h.film.set("Pan");
    EXPECT_EQ(JHeaderText::autoDirectory(h), QString("/Acme/Z9/Pan"));
    h.maker.set("");
    EXPECT_EQ(JHeaderText::autoDirectory(h), QString("/other/Z9/Pan"));
}

TEST(HeaderTextTest, AutoFileNameOfEmptyHeaderIsUnnamed)
{
    EXPECT_EQ(JHeaderText::autoFileName(JProfileHeader()), QString("unnamed"));
}

TEST(HeaderTextTest, AutoFileNameOfModelNamedUnspecIsUnnamed)
{
    JProfileHeader h;
    h.model.set("unspec");
    EXPECT_EQ(JHeaderText::autoFileName(h), QString("unnamed"));
}

TEST(HeaderTextTest, AutoFileNameJoinsPiecesInOrder)
{
    JProfileHeader h;
    h.model.set("Z9");
    h.film.set("Pan");
    h.multisampling.set(4);
    h.iso.set(800);
    h.megapixels.set(24);
    h.quality.set(1);
    h.sharpness.set(1);
    h.contrast.set(3);
    h.saturation.set(5);
    h.temperature.set(12.5f);
    h.illuminant.set(2);
    EXPECT_EQ(JHeaderText::autoFileName(h), QString("Z9_Pan_4x_iso800_24mp_raw_shLo2_conMed_satHi2_tmp13_flour"));
}

TEST(HeaderTextTest, AutoFileNameWithoutModelStartsWithUnspec)
{
    JProfileHeader h;
    h.iso.set(100);
    EXPECT_EQ(JHeaderText::autoFileName(h), QString("unspec_iso100"));
}

TEST(HeaderTextTest, AutoFileNameDropsNonRawQualityAndUnnamedIlluminant)
{
    JProfileHeader h;
    h.model.set("M");
    h.quality.set(2);
    h.illuminant.set(9);
    EXPECT_EQ(JHeaderText::autoFileName(h), QString("M"));
}

TEST(HeaderTextTest, AutoFileNameNamedIlluminants)
{
    const struct {
        int code;
        const char* piece;
    } rows[] = {{1, "_daylight"}, {2, "_flour"}, {3, "_tungsten"}, {4, "_flash"}, {10, "_cloudy"}};
    for (const auto& r : rows) {
        JProfileHeader h;
        h.model.set("M");
        h.illuminant.set(r.code);
        EXPECT_EQ(JHeaderText::autoFileName(h), QString("M") + r.piece) << r.code;
    }
}

TEST(HeaderTextTest, AutoFileNameNeverShowsShutterSpeed)
{
    JProfileHeader h;
    h.model.set("M");
    h.shutterspeed.set(2.0f);
    EXPECT_EQ(JHeaderText::autoFileName(h), QString("M"));
    h.shutterspeed.set(0.004f);
    EXPECT_EQ(JHeaderText::autoFileName(h), QString("M"));
}

TEST(HeaderTextTest, AutoFileNameExposureCompensationContributesExactlyEb)
{
    JProfileHeader h;
    h.model.set("M");
    h.exposurecomp.set(1.33f);
    EXPECT_EQ(JHeaderText::autoFileName(h), QString("M_eb"));
    JProfileHeader none;
    none.exposurecomp.set(0.0f);
    EXPECT_EQ(JHeaderText::autoFileName(none), QString("unspec_eb"));
}

TEST(HeaderTextTest, AutoFileNameUnknownLevelCodeAndNegativeTemperature)
{
    JProfileHeader h;
    h.model.set("M");
    h.sharpness.set(0);
    h.temperature.set(-2.5f);
    EXPECT_EQ(JHeaderText::autoFileName(h), QString("M_sh???_tmp-3"));
}
