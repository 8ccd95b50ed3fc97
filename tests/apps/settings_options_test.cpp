#include "murmex/settings_options.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>

#include <gtest/gtest.h>

#include "apps/cli_fixtures.h"

namespace murmex_app {
namespace {

// Parses args (without the program name) into a fresh app holding the options.
void parse(SettingsOptions& options, CLI::App& app, std::vector<std::string> args)
{
    options.addTo(app);
    std::reverse(args.begin(), args.end());  // CLI11 takes the vector form back to front
    app.parse(args);
}

TEST(SettingsOptions, EveryHostScaleRowBecomesAnOptionThatSetsItsField)
{
    for (int i = 0; i < DnHostScaleCount; ++i) {
        SettingsOptions options;
        CLI::App app;
        const float value = (DnHostScales[i].low + DnHostScales[i].high) * 0.25f + DnHostScales[i].low * 0.5f;
        parse(options, app, {std::string("--") + DnHostScales[i].name, formatFloat(value)});
        DnFilterParams params{};
        params.lumStrength = params.lumSmoothness = params.lumContrast = -7.0f;
        params.chromaStrength = params.chromaSmoothness = params.chromaContrast = -7.0f;
        params.sharpenAmount = params.sharpenRadius = -7.0f;
        EXPECT_TRUE(options.any());
        options.applyTo(params);
        const char* base = reinterpret_cast<const char*>(&params);
        for (int j = 0; j < DnHostScaleCount; ++j) {
            float field;
            std::memcpy(&field, base + DnHostScales[j].offset, sizeof field);
            EXPECT_EQ(field, i == j ? value : -7.0f) << DnHostScales[i].name << " / " << DnHostScales[j].name;
        }
    }
}

TEST(SettingsOptions, ValuesOutsideTheScaleAreRejectedAndItsEndsAccepted)
{
    for (int i = 0; i < DnHostScaleCount; ++i) {
        const std::string name = std::string("--") + DnHostScales[i].name;
        for (float ok : {DnHostScales[i].low, DnHostScales[i].middle, DnHostScales[i].high}) {
            SettingsOptions options;
            CLI::App app;
            EXPECT_NO_THROW(parse(options, app, {name, formatFloat(ok)})) << name << " " << ok;
        }
        for (float bad : {DnHostScales[i].low - 0.01f, DnHostScales[i].high + 0.01f}) {
            SettingsOptions options;
            CLI::App app;
            EXPECT_THROW(parse(options, app, {name, formatFloat(bad)}), CLI::ValidationError) << name << " " << bad;
        }
        SettingsOptions options;
        CLI::App app;
        EXPECT_THROW(parse(options, app, {name, "ten"}), CLI::ValidationError);
    }
}

TEST(SettingsOptions, SwitchesTakeTheLastWordAndStayUnsetWhenNotGiven)
{
    DnFilterParams params{};
    params.suppressHalos = 1;
    params.lowFrequency = 1;
    {
        SettingsOptions options;
        CLI::App app;
        parse(options, app, {});
        EXPECT_FALSE(options.any());
        options.applyTo(params);
        EXPECT_EQ(params.suppressHalos, 1);
        EXPECT_EQ(params.lowFrequency, 1);
    }
    {
        SettingsOptions options;
        CLI::App app;
        parse(options, app, {"--no-suppress-halos", "--no-low-frequency"});
        EXPECT_TRUE(options.any());
        options.applyTo(params);
        EXPECT_EQ(params.suppressHalos, 0);
        EXPECT_EQ(params.lowFrequency, 0);
    }
    {
        SettingsOptions options;
        CLI::App app;
        parse(options, app, {"--low-frequency"});
        options.applyTo(params);
        EXPECT_EQ(params.suppressHalos, 0);
        EXPECT_EQ(params.lowFrequency, 1);
    }
    {
        // On and off at once is a contradiction, not a choice.
        SettingsOptions options;
        CLI::App app;
        EXPECT_THROW(parse(options, app, {"--low-frequency", "--no-low-frequency"}), CLI::ExcludesError);
    }
}

TEST(SettingsOptions, JsonHasEveryRowAndBothSwitches)
{
    DnFilterParams params{};
    setDefaultSettings(params);
    params.chromaContrast = 2.5f;
    params.lowFrequency = 1;
    const murmex_test::Json j = murmex_test::JsonParser::parse(settingsJson(params));
    ASSERT_EQ(j.members.size(), static_cast<size_t>(DnHostScaleCount) + 2);
    for (int i = 0; i < DnHostScaleCount; ++i)
        EXPECT_EQ(j.members[i].first, DnHostScales[i].name);
    EXPECT_EQ(j["chroma-contrast"].number, 2.5);
    EXPECT_EQ(j["sharpen-radius"].number, 1.7);
    EXPECT_TRUE(j["suppress-halos"].boolean);
    EXPECT_TRUE(j["low-frequency"].boolean);
    const auto rows = settingsRows(params);
    ASSERT_EQ(rows.size(), static_cast<size_t>(DnHostScaleCount) + 2);
    EXPECT_EQ(rows[5].first, "chroma-contrast");
    EXPECT_EQ(rows[5].second, "2.5");
    EXPECT_EQ(rows.back().second, "yes");
}
}  // namespace
}  // namespace murmex_app
