// Whole-program tests of --settings auto: the settings chosen per image.
#include <map>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include <murmex/murmex.h>

#include "apps/cli_fixtures.h"
#include "murmex/image_io.h"
#include "support/temp_dir.h"

namespace murmex_test {
namespace {

using murmex_app::Image;
using murmex_app::ImageFormat;
using murmex_app::readImage;
using murmex_app::writeImage;

// The settings of the "automatic settings:" line that -v prints, by name,
// as the text printed.
std::map<std::string, std::string> chosenSettings(const RunResult& r)
{
    std::map<std::string, std::string> settings;
    for (const std::string& line : splitLines(r.err)) {
        const std::string marker = ": automatic settings: ";
        const size_t at = line.find(marker);
        if (at == std::string::npos)
            continue;
        std::istringstream words(line.substr(at + marker.size()));
        std::string name, value;
        while (words >> name >> value)
            settings[name] = value;
    }
    return settings;
}

std::string writePhoto(const TempDir& dir, uint32_t seed)
{
    const std::string path = dir.file("in.tif");
    writeImage(path, noisyPhoto(480, 320, seed), ImageFormat::Tiff);
    return path;
}

TEST(CliAutoSettings, VerbosePrintsTheChoiceAndThreadCountsDoNotChangeIt)
{
    TempDir dir;
    const std::string photo = writePhoto(dir, 41);
    std::map<std::string, std::string> first;
    Image firstOut;
    for (const char* threads : {"0", "1", "3"}) {
        const std::string out = dir.file(std::string("out-") + threads + ".tif");
        const RunResult r =
            runMurmex({"denoise", photo, "-o", out, "--settings", "auto", "-v", "-q", "-j", threads,
                       "--library", dir.file("none")});
        ASSERT_EQ(r.status, 0) << r.err;
        const std::map<std::string, std::string> chosen = chosenSettings(r);
        ASSERT_EQ(chosen.size(), static_cast<size_t>(DnHostScaleCount + 2)) << r.err;
        EXPECT_NE(r.err.find("in the profile"), std::string::npos) << r.err;
        const Image image = readImage(out);
        if (first.empty()) {
            first = chosen;
            firstOut = image;
            continue;
        }
        EXPECT_EQ(chosen, first) << threads << " threads";
        EXPECT_EQ(image.rgbx, firstOut.rgbx) << threads << " threads";
    }
}

TEST(CliAutoSettings, AnExplicitSettingKeepsItsValue)
{
    TempDir dir;
    const std::string photo = writePhoto(dir, 42);
    const std::vector<std::string> common = {"denoise", photo, "-q", "-j", "2", "--library", dir.file("none")};
    auto run = [&](const std::string& out, std::vector<std::string> extra) {
        std::vector<std::string> args = common;
        args.push_back("-o");
        args.push_back(dir.file(out));
        args.insert(args.end(), extra.begin(), extra.end());
        const RunResult r = runMurmex(args);
        EXPECT_EQ(r.status, 0) << r.err;
        return r;
    };
    const RunResult automatic = run("auto.tif", {"--settings", "auto", "-v"});
    const std::map<std::string, std::string> chosen = chosenSettings(automatic);
    ASSERT_EQ(chosen.size(), static_cast<size_t>(DnHostScaleCount + 2)) << automatic.err;
    const std::string explicitStrength = std::stof(chosen.at("lum-strength")) > 10.0f ? "2" : "18";

    run("override.tif", {"--settings", "auto", "--lum-strength", explicitStrength});
    // The same settings spelled out: the chosen ones with the explicit
    // strength in place of the chosen one.
    std::vector<std::string> spelled;
    for (const auto& [name, value] : chosen) {
        if (name == "suppress-halos" || name == "low-frequency")
            spelled.push_back((value == "yes" ? "--" : "--no-") + name);
        else
            spelled.insert(spelled.end(), {"--" + name, name == "lum-strength" ? explicitStrength : value});
    }
    run("spelled.tif", spelled);

    const Image automaticOut = readImage(dir.file("auto.tif"));
    const Image overrideOut = readImage(dir.file("override.tif"));
    const Image spelledOut = readImage(dir.file("spelled.tif"));
    EXPECT_EQ(overrideOut.rgbx, spelledOut.rgbx);
    EXPECT_NE(overrideOut.rgbx, automaticOut.rgbx);
}

TEST(CliAutoSettings, ProfileStoresTheChosenSettings)
{
    TempDir dir;
    const std::string photo = writePhoto(dir, 43);
    const std::string profile = dir.file("p.dnp");
    const RunResult r = runMurmex({"profile", photo, "-o", profile, "--settings", "auto", "-v", "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::map<std::string, std::string> chosen = chosenSettings(r);
    ASSERT_EQ(chosen.size(), static_cast<size_t>(DnHostScaleCount + 2)) << r.err;

    DnFilterParams stored{};
    unsigned char* data = nullptr;
    int length = 0;
    ASSERT_EQ(DnReadProfile(profile.c_str(), &data, &length, &stored), 0);
    DnFreeMemory(data);
    for (int i = 0; i < DnHostScaleCount; ++i)
        EXPECT_NEAR(*DnHostScaleField(&stored, i), std::stof(chosen.at(DnHostScales[i].name)), 1e-3)
            << DnHostScales[i].name;
    EXPECT_EQ(stored.suppressHalos, chosen.at("suppress-halos") == "yes" ? 1 : 0);
    EXPECT_EQ(stored.lowFrequency, chosen.at("low-frequency") == "yes" ? 1 : 0);
}

TEST(CliAutoSettings, OnlyAutoIsAcceptedAsSettings)
{
    TempDir dir;
    const std::string photo = writePhoto(dir, 44);
    const RunResult r = runMurmex({"denoise", photo, "-o", dir.file("out.tif"), "--settings", "manual"});
    EXPECT_EQ(r.status, 2) << r.err;
}

}  // namespace
}  // namespace murmex_test
