#include "host/camera_info.h"

#include <map>

#include <gtest/gtest.h>

namespace murmex_host {
namespace {

// EXIF access over a table of tag texts, numbers read from the text.
ExifAccess tableAccess(const std::map<std::string, std::string>& tags)
{
    auto find = [tags](const char* key) -> std::optional<std::string> {
        const auto it = tags.find(key);
        return it == tags.end() ? std::nullopt : std::optional<std::string>(it->second);
    };
    return {find, [find](const char* key) -> std::optional<int> {
                const auto t = find(key);
                return t ? std::optional<int>(std::stoi(*t)) : std::nullopt;
            },
            [find](const char* key) -> std::optional<float> {
                const auto t = find(key);
                return t ? std::optional<float>(std::stof(*t)) : std::nullopt;
            }};
}

TEST(CameraFromExif, TakesTheHeaderTagsByTheirKeys)
{
    const CameraInfo c = cameraFromExif(tableAccess({{"Exif.Image.Make", "Canon"},
                                                     {"Exif.Image.Model", "EOS 5D"},
                                                     {"Exif.Photo.ISOSpeedRatings", "1600"},
                                                     {"Exif.Photo.ExposureTime", "0.008"},
                                                     {"Exif.Photo.ExposureBiasValue", "-0.5"},
                                                     {"Exif.Photo.LightSource", "4"},
                                                     {"Exif.Photo.Contrast", "1"},
                                                     {"Exif.Photo.Sharpness", "2"},
                                                     {"Exif.Photo.Saturation", "0"}}));
    EXPECT_EQ(c.maker, "Canon");
    EXPECT_EQ(c.model, "EOS 5D");
    EXPECT_EQ(c.iso, 1600);
    EXPECT_EQ(c.shutterSpeed, 0.008f);
    EXPECT_EQ(c.exposureComp, -0.5f);
    EXPECT_EQ(c.lightSource, 4);
    EXPECT_EQ(c.contrast, 1);
    EXPECT_EQ(c.sharpness, 2);
    EXPECT_EQ(c.saturation, 0);
    EXPECT_FALSE(c.colorSpace);
}

TEST(CameraFromExif, IsoFallsBackToTheFirstDirectory)
{
    EXPECT_EQ(cameraFromExif(tableAccess({{"Exif.Image.ISOSpeedRatings", "400"}})).iso, 400);
    EXPECT_EQ(cameraFromExif(tableAccess({{"Exif.Image.ISOSpeedRatings", "400"},
                                          {"Exif.Photo.ISOSpeedRatings", "800"}}))
                  .iso,
              800);
    EXPECT_FALSE(cameraFromExif(tableAccess({})).iso);
}

TEST(CameraFromExif, NamesSrgbAndAdobeRgbOnly)
{
    auto space = [](std::map<std::string, std::string> tags) { return cameraFromExif(tableAccess(tags)).colorSpace; };
    EXPECT_EQ(space({{"Exif.Photo.ColorSpace", "1"}}), "sRGB");
    EXPECT_EQ(space({{"Exif.Photo.ColorSpace", "2"}}), "Adobe RGB");
    EXPECT_EQ(space({{"Exif.Photo.ColorSpace", "65535"}, {"Exif.Iop.InteroperabilityIndex", "R03"}}), "Adobe RGB");
    EXPECT_FALSE(space({{"Exif.Photo.ColorSpace", "65535"}, {"Exif.Iop.InteroperabilityIndex", "R98"}}));
    EXPECT_FALSE(space({{"Exif.Photo.ColorSpace", "65535"}}));
    EXPECT_FALSE(space({{"Exif.Photo.ColorSpace", "3"}}));
}

}  // namespace
}  // namespace murmex_host
