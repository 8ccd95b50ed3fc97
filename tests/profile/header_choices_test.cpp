#include "profile/header_choices.h"

#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "profile/enum_names.h"

using qtless::QString;

namespace {

void expectRows(const std::vector<JEnumName>& table, const std::vector<int>& codes,
                const std::vector<const char*>& names)
{
    ASSERT_EQ(table.size(), codes.size());
    ASSERT_EQ(names.size(), codes.size());
    for (size_t i = 0; i < codes.size(); ++i) {
        EXPECT_EQ(table[i].code, codes[i]) << "row " << i;
        EXPECT_EQ(table[i].name, QString(names[i])) << "row " << i;
    }
}

std::vector<int> positions(int n)
{
    std::vector<int> v;
    for (int i = 0; i < n; ++i)
        v.push_back(i);
    return v;
}

}  // namespace

TEST(HeaderChoicesTest, IlluminantTableIsACopyOfTheLightSources)
{
    const std::vector<JEnumName>& ill = JHeaderChoices::illuminants();
    const std::vector<JEnumName>& light = JEnumNames::lightSources();
    ASSERT_EQ(ill.size(), light.size());
    for (size_t i = 0; i < ill.size(); ++i) {
        EXPECT_EQ(ill[i].code, light[i].code);
        EXPECT_EQ(ill[i].name, light[i].name);
    }
    EXPECT_NE(&ill, &light);
}

TEST(HeaderChoicesTest, QualityLevelWordAndMultisamplingTables)
{
    expectRows(JHeaderChoices::quality(), {1, 2, 3, 4}, {"RAW/Tiff", "JPEG Fine", "JPEG Medium", "JPEG Coarse"});
    expectRows(JHeaderChoices::levelWords(), {1, 2, 3, 4, 5}, {"Lowest", "Low", "Medium", "High", "Highest"});
    expectRows(JHeaderChoices::multisampling(), {1, 2, 4, 8, 12, 16}, {"1X", "2X", "4X", "8X", "12X", "16X"});
}

TEST(HeaderChoicesTest, TemperatureRowsAreFiveDegreeStepsByPosition)
{
    expectRows(JHeaderChoices::temperature(), positions(17),
               {"-30C/-22F", "-25C/-17F", "-20C/-4F", "-15C/5F", "-10C/14F", "-5C/23F", "0C/32F", "5C/41F",
                "10C/50F", "15C/59F", "20C/68F", "25C/77F", "30C/86F", "35C/95F", "40C/104F", "45C/113F",
                "50C/122F"});
}

TEST(HeaderChoicesTest, ShutterSpeedRowsByPosition)
{
    expectRows(JHeaderChoices::shutterSpeed(), positions(24),
               {"1/8000", "1/4000", "1/2000", "1/1000", "1/500", "1/250", "1/125", "1/60", "1/30", "1/15", "1/8",
                "1/4", "1/2", "1 sec", "2 sec", "4 sec", "8 sec", "15 sec", "30 sec", "1 min", "2 min", "4 min",
                "8 min", "15 min"});
}

TEST(HeaderChoicesTest, ExposureCompensationZeroHasLeadingSpaceAndNoSign)
{
    expectRows(JHeaderChoices::exposureComp(), positions(25),
               {"-3.00 stops", "-2.67 stops", "-2.50 stops", "-2.33 stops", "-2.00 stops", "-1.67 stops",
                "-1.50 stops", "-1.33 stops", "-1.00 stops", "-0.67 stops", "-0.50 stops", "-0.33 stops",
                " 0.00 stops", "+0.33 stops", "+0.50 stops", "+0.67 stops", "+1.00 stops", "+1.33 stops",
                "+1.50 stops", "+1.67 stops", "+2.00 stops", "+2.33 stops", "+2.50 stops", "+2.67 stops",
                "+3.00 stops"});
}

TEST(HeaderChoicesTest, ColourSpaceAndIsoChoicesInDisplayOrder)
{
    const std::vector<const char*> spaces = {"Adobe RGB",    "Apple RGB",   "Best RGB",      "Beta RGB",
                                             "Bruce RGB",    "CIE RGB",     "ColorMatch RGB", "Don RGB",
                                             "ECI RGB",      "EktaSpace",   "NTSC RGB",      "PAL/SECAM RGB",
                                             "ProPhoto RGB", "SMPTE-C RGB", "sRGB",          "Wide Gamut RGB"};
    const std::vector<QString>& cs = JHeaderChoices::colorSpaces();
    ASSERT_EQ(cs.size(), spaces.size());
    for (size_t i = 0; i < spaces.size(); ++i)
        EXPECT_EQ(cs[i], QString(spaces[i]));
    const std::vector<const char*> isos = {"1000", "1200", "1600", "2000", "2400", "3200",
                                           "4000", "4800", "6400", "8000", "9600", "12800"};
    const std::vector<QString>& iso = JHeaderChoices::isoChoices();
    ASSERT_EQ(iso.size(), isos.size());
    for (size_t i = 0; i < isos.size(); ++i)
        EXPECT_EQ(iso[i], QString(isos[i]));
}

TEST(HeaderChoicesTest, OffListValuesUseTheirFormats)
{
    EXPECT_EQ(JHeaderChoices::temperatureText(12.0f), QString("12C/54F"));
    EXPECT_EQ(JHeaderChoices::shutterSpeedText(3.0f), QString("3 sec"));
    EXPECT_EQ(JHeaderChoices::shutterSpeedText(180.0f), QString("3 min"));
    EXPECT_EQ(JHeaderChoices::exposureCompText(0.75f), QString("0.75 stops"));
}

TEST(HeaderChoicesThreadTest, ConcurrentFirstUseSeesCompleteTables)
{
    std::vector<std::thread> threads;
    std::vector<size_t> sizes(8, 0);
    for (size_t i = 0; i < sizes.size(); ++i)
        threads.emplace_back([&sizes, i] {
            JHeaderChoices::init();
            sizes[i] = JHeaderChoices::illuminants().size() + JHeaderChoices::exposureComp().size();
        });
    for (std::thread& t : threads)
        t.join();
    for (size_t s : sizes)
        EXPECT_EQ(s, 45u);
}
