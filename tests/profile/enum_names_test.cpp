#include "profile/enum_names.h"

#include <thread>
#include <vector>

#include <gtest/gtest.h>

using qtless::QString;

TEST(EnumNamesTest, LightSourceRowsStandInDisplayOrderWithFluorescentCodesAfter24)
{
    const std::vector<int> codes = {1, 2, 3, 4, 9, 10, 11, 20, 21, 22, 23, 24, 12, 13, 14, 15, 17, 18, 19, 255};
    const std::vector<const char*> names = {"Daylight",
                                            "Fluorescent",
                                            "Tungsten",
                                            "Flash",
                                            "Fine weather",
                                            "Cloudy",
                                            "Shade",
                                            "D55",
                                            "D65",
                                            "D75",
                                            "D50",
                                            "ISO studio tungsten",
                                            "Fluor. D5700/7100K",
                                            "Fluor. N4600/5400K",
                                            "Fluor. W3900/4500K",
                                            "Fluor. WW3200/3700K",
                                            "Standard A",
                                            "Standard B",
                                            "Standard C",
                                            "Other"};
    const std::vector<JEnumName>& table = JEnumNames::lightSources();
    ASSERT_EQ(table.size(), codes.size());
    for (size_t i = 0; i < codes.size(); ++i) {
        EXPECT_EQ(table[i].code, codes[i]) << "row " << i;
        EXPECT_EQ(table[i].name, QString(names[i])) << "row " << i;
    }
}

TEST(EnumNamesTest, ExifContrastSharpnessAndSaturationTables)
{
    const std::vector<JEnumName>& contrast = JEnumNames::contrastNames();
    const std::vector<JEnumName>& sharpness = JEnumNames::sharpnessNames();
    const std::vector<JEnumName>& saturation = JEnumNames::saturationNames();
    ASSERT_EQ(contrast.size(), 3u);
    ASSERT_EQ(sharpness.size(), 3u);
    ASSERT_EQ(saturation.size(), 3u);
    const char* soft[] = {"Normal", "Soft", "Hard"};
    const char* low[] = {"Normal", "Low", "High"};
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(contrast[i].code, i);
        EXPECT_EQ(contrast[i].name, QString(soft[i]));
        EXPECT_EQ(sharpness[i].code, i);
        EXPECT_EQ(sharpness[i].name, QString(soft[i]));
        EXPECT_EQ(saturation[i].code, i);
        EXPECT_EQ(saturation[i].name, QString(low[i]));
    }
}

TEST(EnumNamesTest, LookupReturnsFirstMatchingRowFromTheFront)
{
    std::vector<JEnumName> table = {{3, "first"}, {5, "five"}, {3, "second"}};
    EXPECT_EQ(JEnumNames::lookupName(3, table, "none"), QString("first"));
    EXPECT_EQ(JEnumNames::lookupName(5, table, "none"), QString("five"));
}

TEST(EnumNamesTest, LookupOfUnknownCodeGivesFallback)
{
    EXPECT_EQ(JEnumNames::lookupName(16, JEnumNames::lightSources(), "???"), QString("???"));
    std::vector<JEnumName> empty;
    EXPECT_EQ(JEnumNames::lookupName(0, empty, "fallback"), QString("fallback"));
}

TEST(EnumNamesThreadTest, ConcurrentInitFillsTablesOnce)
{
    std::vector<std::thread> threads;
    std::vector<size_t> sizes(8, 0);
    for (size_t i = 0; i < sizes.size(); ++i)
        threads.emplace_back([&sizes, i] {
            JEnumNames::init();
            sizes[i] = JEnumNames::lightSources().size();
        });
    for (std::thread& t : threads)
        t.join();
    for (size_t s : sizes)
        EXPECT_EQ(s, 20u);
    JEnumNames::init();
    EXPECT_EQ(JEnumNames::lightSources().size(), 20u);
}
