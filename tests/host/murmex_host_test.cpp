// The C interface of the host library, called as the GIMP plug-in calls it.
#include "host/murmex_host.h"

#include <sys/stat.h>

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/auto_settings.h"
#include "host/host_settings.h"
#include "support/scene.h"
#include "support/temp_dir.h"

namespace {

using murmex_test::MemoryImage;

// A string from the library, released.
std::string take(char* s)
{
    std::string out = s ? s : "(null)";
    murmex_host_free(s);
    return out;
}

std::string describe(const char* xml)
{
    MurmexHostCamera* camera = murmex_host_camera_from_metadata_xml(xml);
    const std::string text = take(murmex_host_camera_describe(camera));
    murmex_host_camera_free(camera);
    return text;
}

TEST(MurmexHostCamera, ReadsTheEditorsSerialisedMetadata)
{
    EXPECT_EQ(describe("<?xml version='1.0' encoding='UTF-8'?>\n<metadata>\n"
                       "  <tag name=\"Exif.Image.Make\">Fuji &amp; Co &#x41;</tag>\n"
                       "  <tag name=\"Exif.Image.Model\">  X &lt;1&gt;  </tag>\n"
                       "  <tag name=\"Exif.Photo.ISOSpeedRatings\">800 800</tag>\n"
                       "</metadata>\n"),
              "Fuji & Co A X <1> at ISO 800");
    // Text that is not UTF-8 comes base64-encoded with its terminating zero.
    EXPECT_EQ(describe("<metadata><tag name=\"Exif.Image.Make\" encoding=\"base64\">TmlrwG4A</tag>"
                       "<tag name=\"Exif.Photo.ExposureTime\">1/125</tag></metadata>"),
              "Nik\xc0n");
    EXPECT_EQ(describe(nullptr), "a photo without camera data");
    EXPECT_EQ(describe("<metadata><tag name=\"Xmp.tiff.Make\">Canon</tag></metadata>"),
              "a photo without camera data");
}

TEST(MurmexHost, StepTextsAndDefaultsAreTheHostLibrarys)
{
    EXPECT_EQ(take(murmex_host_step_text("Profiling image...")), "Measuring noise profile");
    DnFilterParams viaC{}, direct{};
    murmex_host_default_settings(&viaC);
    murmex_host::setDefaultSettings(direct);
    EXPECT_EQ(std::memcmp(&viaC, &direct, sizeof viaC), 0);
}

TEST(MurmexHost, AProfileThatDoesNotLoadIsOneLineNamingIt)
{
    char* error = nullptr;
    EXPECT_EQ(murmex_host_profile_load("/nonexistent/cam.dnp", &error), nullptr);
    const std::string message = take(error);
    EXPECT_EQ(message.rfind("cannot load profile /nonexistent/cam.dnp: ", 0), 0u) << message;
    EXPECT_EQ(message.find('\n'), std::string::npos);
}

TEST(MurmexHost, AProfileThatIsANamedPipeIsRefusedWithoutOpeningIt)
{
    // Opening a pipe without a writer would wait for ever.
    murmex_test::TempDir dir;
    const std::string path = dir.file("pipe.dnp");
    ASSERT_EQ(mkfifo(path.c_str(), 0644), 0);
    char* error = nullptr;
    EXPECT_EQ(murmex_host_profile_load(path.c_str(), &error), nullptr);
    EXPECT_EQ(take(error), "cannot load profile " + path + ": it is a named pipe, not a regular file");
}

void get(void* c, int y, int x0, int x1, unsigned short* px) { static_cast<MemoryImage*>(c)->getScanline(y, x0, x1, px); }
void put(void* c, int y, int x0, int x1, unsigned short* px) { static_cast<MemoryImage*>(c)->putScanline(y, x0, x1, px); }

// Measuring and denoising through the C interface give what the engine's
// own entry points give.
TEST(MurmexHost, MeasuresAndDenoisesAsTheEntryPointsDo)
{
    MemoryImage image = murmex_test::makeScene(320, 240);
    murmex_test::addNoise(image, 400.0, 5);
    char* error = nullptr;
    MurmexHostProfile* profile = murmex_host_profile_measure(&image, get, 320, 240, 0, nullptr, "scene", &error);
    ASSERT_NE(profile, nullptr) << take(error);
    unsigned char* direct = nullptr;
    int directLength = 0;
    ASSERT_EQ(DnBuildProfile2(&image, &direct, &directLength, get, 320, 240, 0, nullptr), 0);
    ASSERT_EQ(murmex_host_profile_length(profile), directLength);
    EXPECT_EQ(std::memcmp(murmex_host_profile_data(profile), direct, directLength), 0);
    EXPECT_EQ(murmex_host_profile_path(profile), nullptr);
    EXPECT_GT(murmex_host_profile_sample_count(profile), 0);

    DnFilterParams params{};
    murmex_host_default_settings(&params);
    params.width = 320;
    params.height = 240;
    params.threads = 2;
    MemoryImage viaHost = image, viaEngine = image;
    ASSERT_EQ(murmex_host_denoise(&viaHost, &params, 40, 20, 280, 200, profile, get, put, nullptr, "scene", &error), 1)
        << take(error);
    ASSERT_EQ(DnRemoveNoise2(&viaEngine, &params, 40, 20, 280, 200, direct, directLength, get, put, nullptr), 0);
    EXPECT_TRUE(viaHost.data() == viaEngine.data());
    EXPECT_FALSE(viaHost.data() == image.data());
    DnFreeMemory(direct);

    // Saved with the camera's header, it loads again with its samples.
    murmex_test::TempDir dir;
    MurmexHostCamera* camera = murmex_host_camera_from_metadata_xml(
        "<metadata><tag name=\"Exif.Image.Make\">Murmex</tag><tag name=\"Exif.Image.Model\">Test</tag></metadata>");
    const std::string path = dir.file("scene.dnp");
    EXPECT_EQ(take(murmex_host_profile_save(profile, camera, 320, 240, path.c_str(), &error)), path);
    MurmexHostProfile* loaded = murmex_host_profile_load(path.c_str(), &error);
    ASSERT_NE(loaded, nullptr) << take(error);
    EXPECT_EQ(murmex_host_profile_path(loaded), path);
    EXPECT_EQ(murmex_host_profile_sample_count(loaded), murmex_host_profile_sample_count(profile));
    murmex_host_profile_free(loaded);
    murmex_host_camera_free(camera);
    murmex_host_profile_free(profile);
}

// The automatic settings through the C interface are the host library's
// choice for the same image and profile; only the settings block changes.
TEST(MurmexHost, ChoosesTheAutomaticSettingsOfTheHostLibrary)
{
    MemoryImage image = murmex_test::makeScene(320, 240);
    murmex_test::addNoise(image, 900.0, 9);
    char* error = nullptr;
    MurmexHostProfile* profile = murmex_host_profile_measure(&image, get, 320, 240, 0, nullptr, "scene", &error);
    ASSERT_NE(profile, nullptr) << take(error);

    DnFilterParams viaHost{};
    murmex_host_default_settings(&viaHost);
    viaHost.width = 320;
    viaHost.height = 240;
    viaHost.threads = 3;
    const DnFilterParams defaults = viaHost;
    DnFilterParams direct = viaHost;
    ASSERT_EQ(murmex_host_auto_settings(&image, get, 320, 240, profile, &viaHost, &error), 1) << take(error);
    EXPECT_EQ(error, nullptr);
    const std::vector<uint8_t> bytes(murmex_host_profile_data(profile),
                                     murmex_host_profile_data(profile) + murmex_host_profile_length(profile));
    murmex_host::chooseAutoSettings(murmex_host::ScanlineImage{&image, get, 320, 240}, bytes, direct);
    EXPECT_EQ(std::memcmp(&viaHost, &direct, sizeof viaHost), 0);
    EXPECT_NE(std::memcmp(&viaHost, &defaults, sizeof viaHost), 0) << "nothing was chosen";
    EXPECT_EQ(viaHost.width, 320);
    EXPECT_EQ(viaHost.threads, 3);
    murmex_host_profile_free(profile);
}

}  // namespace
