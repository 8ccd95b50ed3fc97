// Tests of the hosts' view of the profile header: every field carried through
// a replace and a read on real profiles from the library, samples and stored
// settings kept, the mapping from camera EXIF, and the automatic directory
// and file names.

#include "host/profile_header.h"

#include <cmath>
#include <cstdio>
#include <cstring>

#include <gtest/gtest.h>

#include "host/host_error.h"
#include "murmex/murmex.h"
#include "support/temp_dir.h"

using murmex_host::HostError;
using murmex_host::autoProfileDirectory;
using murmex_host::autoProfileFileName;
using murmex_host::CameraInfo;
using murmex_host::headerFromCamera;
using murmex_host::ProfileHeader;
using murmex_host::readProfileHeader;
using murmex_host::withProfileHeader;
using Bytes = std::vector<uint8_t>;

namespace {

ProfileHeader fullHeader()
{
    ProfileHeader h;
    h.maker = "Canon";
    h.model = "EOS 5D";
    h.film = "Velvia";
    h.iso = 800;
    h.multisampling = 4;
    h.shutterSpeed = 0.004f;
    h.exposureComp = -0.5f;
    h.megapixels = 13;
    h.quality = 1;
    h.sharpness = 3;
    h.illuminant = 21;
    h.contrast = 2;
    h.saturation = 4;
    h.temperature = 20.5f;
    h.colorSpace = "Adobe RGB";
    h.author = "Tester";
    h.comment = "a <comment> & more";
    return h;
}

void expectSameHeader(const ProfileHeader& a, const ProfileHeader& b)
{
    EXPECT_EQ(a.maker, b.maker);
    EXPECT_EQ(a.model, b.model);
    EXPECT_EQ(a.film, b.film);
    EXPECT_EQ(a.iso, b.iso);
    EXPECT_EQ(a.multisampling, b.multisampling);
    EXPECT_EQ(a.shutterSpeed, b.shutterSpeed);
    EXPECT_EQ(a.exposureComp, b.exposureComp);
    EXPECT_EQ(a.megapixels, b.megapixels);
    EXPECT_EQ(a.quality, b.quality);
    EXPECT_EQ(a.sharpness, b.sharpness);
    EXPECT_EQ(a.illuminant, b.illuminant);
    EXPECT_EQ(a.contrast, b.contrast);
    EXPECT_EQ(a.saturation, b.saturation);
    EXPECT_EQ(a.temperature, b.temperature);
    EXPECT_EQ(a.colorSpace, b.colorSpace);
    EXPECT_EQ(a.author, b.author);
    EXPECT_EQ(a.comment, b.comment);
}

// A flat patchwork with grey noise for the library to build a profile from.
struct NoisyPatches {
    int width = 192, height = 128;
    std::vector<uint16_t> rgbx;
    NoisyPatches()
    {
        rgbx.resize(static_cast<size_t>(width) * height * 4);
        uint32_t state = 12345;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                state = state * 1664525u + 1013904223u;
                const int noise = static_cast<int>(state >> 24) - 128;
                const int patch = (x / 64) + 3 * (y / 64);
                const int base[6][3] = {{20000, 20000, 20000}, {40000, 15000, 10000}, {8000, 30000, 9000},
                                        {50000, 50000, 50000}, {12000, 12000, 40000}, {30000, 25000, 20000}};
                uint16_t* p = rgbx.data() + (static_cast<size_t>(y) * width + x) * 4;
                for (int c = 0; c < 3; ++c)
                    p[c] = static_cast<uint16_t>(base[patch][c] + noise * 4);
                p[3] = 65535;
            }
    }
};

void getRow(void* context, int y, int xStart, int xEnd, unsigned short* pixels)
{
    const auto* im = static_cast<const NoisyPatches*>(context);
    std::memcpy(pixels, im->rgbx.data() + (static_cast<size_t>(y) * im->width + xStart) * 4,
                static_cast<size_t>(xEnd - xStart + 1) * 4 * sizeof(uint16_t));
}

int noSamples(void*, int, int, const DnNoiseSample*) { return 0; }

int collectSample(void* context, int, int, const DnNoiseSample* sample)
{
    static_cast<std::vector<DnNoiseSample>*>(context)->push_back(*sample);
    return 0;
}

std::vector<DnNoiseSample> samplesOf(const Bytes& block)
{
    std::vector<DnNoiseSample> samples;
    EXPECT_EQ(DnReadProfileSamples2(&samples, block.data(), static_cast<int>(block.size()), collectSample), 0);
    return samples;
}

// A profile that the library measured from NoisyPatches, as a block, with
// the settings block of settings stored in it.
Bytes measuredProfile(const DnFilterParams& settings)
{
    murmex_test::TempDir dir;
    NoisyPatches image;
    unsigned char* data = nullptr;
    int length = 0;
    EXPECT_EQ(DnBuildProfile2(&image, &data, &length, getRow, image.width, image.height, 1, nullptr), 0);
    const Bytes built(data, data + length);
    DnFreeMemory(data);
    DnFilterParams copy = settings;
    const std::string path = dir.file("measured.dnp");
    EXPECT_EQ(DnWriteProfile(path.c_str(), built.data(), static_cast<int>(built.size()), &copy), 0);
    return murmex_test::readFileBytes(path);
}

DnFilterParams storedSettings(const Bytes& block)
{
    murmex_test::TempDir dir;
    const std::string path = dir.file("stored.dnp");
    std::FILE* f = std::fopen(path.c_str(), "wb");
    EXPECT_TRUE(f);
    std::fwrite(block.data(), 1, block.size(), f);
    std::fclose(f);
    DnFilterParams params{};
    EXPECT_EQ(DnReadProfile(path.c_str(), nullptr, nullptr, &params), 0);
    return params;
}

}  // namespace

TEST(ProfileHeaderTest, EveryFieldSurvivesAReplaceAndARead)
{
    const Bytes block = measuredProfile(DnFilterParams{});
    const Bytes replaced = withProfileHeader(block, fullHeader());
    expectSameHeader(readProfileHeader(replaced), fullHeader());
    // Replacing again with the same header changes nothing.
    EXPECT_EQ(withProfileHeader(replaced, fullHeader()), replaced);
}

TEST(ProfileHeaderTest, AbsentFieldsStayAbsentAndAnEmptyTextIsPresent)
{
    ProfileHeader h;
    h.maker = "Sony";
    h.model = "";
    h.iso = 3200;
    const ProfileHeader read = readProfileHeader(withProfileHeader(measuredProfile(DnFilterParams{}), h));
    expectSameHeader(read, h);
    EXPECT_EQ(read.model, std::optional<std::string>(""));
    EXPECT_FALSE(read.film || read.shutterSpeed || read.comment || read.megapixels);
}

TEST(ProfileHeaderTest, ReplacingKeepsTheSamplesAndTheStoredSettings)
{
    DnFilterParams settings{};
    for (int i = 0; i < DnHostScaleCount; ++i)
        *DnHostScaleField(&settings, i) = DnHostScales[i].low + 0.25f * (DnHostScales[i].high - DnHostScales[i].low);
    settings.suppressHalos = 0;
    settings.lowFrequency = 1;
    const Bytes block = measuredProfile(settings);
    const Bytes replaced = withProfileHeader(block, fullHeader());

    const std::vector<DnNoiseSample> before = samplesOf(block), after = samplesOf(replaced);
    ASSERT_FALSE(before.empty());
    ASSERT_EQ(after.size(), before.size());
    EXPECT_EQ(std::memcmp(after.data(), before.data(), before.size() * sizeof(DnNoiseSample)), 0);

    DnFilterParams a = storedSettings(block), b = storedSettings(replaced);
    for (int i = 0; i < DnHostScaleCount; ++i)
        EXPECT_EQ(*DnHostScaleField(&b, i), *DnHostScaleField(&a, i)) << DnHostScales[i].name;
    EXPECT_EQ(b.suppressHalos, 0);
    EXPECT_EQ(b.lowFrequency, 1);
}

TEST(ProfileHeaderTest, WhatIsNotAProfileIsAnErrorWithTheLibrarysMessage)
{
    const Bytes text = {'n', 'o', 't', ' ', 'a', ' ', 'p', 'r', 'o', 'f', 'i', 'l', 'e'};
    for (const Bytes& bytes : {Bytes{}, text}) {
        try {
            readProfileHeader(bytes);
            ADD_FAILURE() << "read " << bytes.size() << " bytes";
        } catch (const HostError& e) {
            EXPECT_STRNE(e.what(), "");
        }
        EXPECT_THROW(withProfileHeader(bytes, fullHeader()), HostError);
    }
    // Every truncation of a real profile fails or still reads: never a crash.
    const Bytes block = measuredProfile(DnFilterParams{});
    for (size_t n = 0; n < 200 && n < block.size(); n += 7) {
        try {
            readProfileHeader(Bytes(block.begin(), block.begin() + static_cast<long>(n)));
        } catch (const HostError&) {
        }
    }
}

TEST(ProfileHeaderTest, LibraryAcceptsTheReplacedHeaderAndKeepsIt)
{
    murmex_test::TempDir dir;
    NoisyPatches image;
    const std::string built = dir.file("built.dnp");
    ASSERT_EQ(DnBuildProfile(&image, built.c_str(), getRow, image.width, image.height, 1, nullptr), 0);
    unsigned char* data = nullptr;
    int length = 0;
    DnFilterParams params{};
    ASSERT_EQ(DnReadProfile(built.c_str(), &data, &length, &params), 0);
    const Bytes block(data, data + length);
    DnFreeMemory(data);

    const ProfileHeader h = fullHeader();
    const Bytes replaced = withProfileHeader(block, h);
    EXPECT_EQ(DnReadProfileSamples2(nullptr, replaced.data(), static_cast<int>(replaced.size()), noSamples), 0);
    const std::string saved = dir.file("saved.dnp");
    ASSERT_EQ(DnWriteProfile(saved.c_str(), replaced.data(), static_cast<int>(replaced.size()), &params), 0);
    const Bytes file = murmex_test::readFileBytes(saved);
    expectSameHeader(readProfileHeader(file), h);
    // The library wrote the header text block again.
    ASSERT_GE(file.size(), 12u);
    EXPECT_GT((uint32_t{file[8]} << 24) | (uint32_t{file[9]} << 16) | (uint32_t{file[10]} << 8) | file[11], 0u);
}

TEST(HeaderFromCameraTest, MapsExifCodesToHeaderCodes)
{
    CameraInfo info;
    info.maker = "Canon";
    info.model = "EOS 5D";
    info.iso = 800;
    info.shutterSpeed = 0.004f;
    info.exposureComp = -0.5f;
    info.lightSource = 21;
    info.contrast = 0;
    info.sharpness = 1;
    info.saturation = 2;
    info.colorSpace = "Adobe RGB";
    // 4368 x 2912 = 12,719,616 pixels: 13 megapixels.
    const ProfileHeader h = headerFromCamera(info, 4368, 2912);
    EXPECT_EQ(h.maker, info.maker);
    EXPECT_EQ(h.model, info.model);
    EXPECT_EQ(h.iso, std::optional<int>(800));
    EXPECT_EQ(h.shutterSpeed, std::optional<float>(0.004f));
    EXPECT_EQ(h.exposureComp, std::optional<float>(-0.5f));
    EXPECT_EQ(h.illuminant, std::optional<int>(21));
    EXPECT_EQ(h.contrast, std::optional<int>(3));
    EXPECT_EQ(h.sharpness, std::optional<int>(2));
    EXPECT_EQ(h.saturation, std::optional<int>(4));
    EXPECT_EQ(h.colorSpace, std::optional<std::string>("Adobe RGB"));
    EXPECT_EQ(h.megapixels, std::optional<int>(13));
    EXPECT_FALSE(h.film || h.multisampling || h.quality || h.temperature || h.author || h.comment);
}

TEST(HeaderFromCameraTest, UnknownLevelCodesAndMissingValuesStayAbsent)
{
    CameraInfo info;
    info.contrast = 3;
    info.sharpness = -1;
    const ProfileHeader h = headerFromCamera(info, 1000, 499);  // 0.499 megapixels round to 0
    EXPECT_FALSE(h.contrast);
    EXPECT_FALSE(h.sharpness);
    EXPECT_FALSE(h.saturation);
    EXPECT_FALSE(h.maker || h.model || h.iso || h.shutterSpeed || h.exposureComp || h.illuminant || h.colorSpace);
    EXPECT_EQ(h.megapixels, std::optional<int>(0));
    EXPECT_EQ(headerFromCamera(info, 1000, 500).megapixels, std::optional<int>(1));  // 0.5 rounds up
}

TEST(AutoProfileNameTest, CameraWithSharpnessAndExposureCompensation)
{
    ProfileHeader h;
    h.maker = "Canon";
    h.model = "EOS 5D";
    h.iso = 800;
    h.sharpness = 3;
    h.exposureComp = 0.7f;
    EXPECT_EQ(autoProfileDirectory(h), "/Canon/EOS 5D");
    EXPECT_EQ(autoProfileFileName(h), "EOS 5D_iso800_shMed_eb");
}

TEST(AutoProfileNameTest, EmptyHeaderGivesOtherOtherAndUnnamed)
{
    EXPECT_EQ(autoProfileDirectory(ProfileHeader{}), "/other/other");
    EXPECT_EQ(autoProfileFileName(ProfileHeader{}), "unnamed");
}

TEST(AutoProfileNameTest, DirectoryUsesOtherForMissingMakerOrModelAndAddsFilm)
{
    ProfileHeader h;
    h.maker = "Nikon";
    EXPECT_EQ(autoProfileDirectory(h), "/Nikon/other");
    h.film = "Velvia";
    EXPECT_EQ(autoProfileDirectory(h), "/Nikon/other/Velvia");
    h.maker = "";  // present but empty counts as missing
    h.model = "D70";
    EXPECT_EQ(autoProfileDirectory(h), "/other/D70/Velvia");
    h.film = "";
    EXPECT_EQ(autoProfileDirectory(h), "/other/D70");
}

TEST(AutoProfileNameTest, EveryPieceInItsOrder)
{
    ProfileHeader h;
    h.model = "D70";
    h.film = "X";
    h.multisampling = 4;
    h.iso = 200;
    h.megapixels = 6;
    h.quality = 1;
    h.sharpness = 1;
    h.contrast = 5;
    h.saturation = 2;
    h.temperature = 21.5f;
    h.illuminant = 10;
    h.shutterSpeed = 2.0f;
    h.exposureComp = -1.0f;
    EXPECT_EQ(autoProfileFileName(h), "D70_X_4x_iso200_6mp_raw_shLo2_conHi2_satLo1_tmp22_cloudy_eb");
}

TEST(AutoProfileNameTest, ShutterSpeedNeverReachesTheName)
{
    ProfileHeader h;
    h.model = "A";
    h.shutterSpeed = 0.004f;
    EXPECT_EQ(autoProfileFileName(h), "A");
    h.shutterSpeed = 30.0f;
    EXPECT_EQ(autoProfileFileName(h), "A");
    h.model.reset();
    EXPECT_EQ(autoProfileFileName(h), "unnamed");
}

TEST(AutoProfileNameTest, ExposureCompensationContributesExactlyEb)
{
    ProfileHeader h;
    h.model = "A";
    h.exposureComp = 1.33f;
    EXPECT_EQ(autoProfileFileName(h), "A_eb");
    h.exposureComp = 0.0f;
    EXPECT_EQ(autoProfileFileName(h), "A_eb");
    h.model.reset();
    EXPECT_EQ(autoProfileFileName(h), "unspec_eb");
}

TEST(AutoProfileNameTest, QualityOtherThanRawLeavesNoTrace)
{
    ProfileHeader h;
    h.model = "A";
    for (int q : {0, 2, 3, 4, 99}) {
        h.quality = q;
        EXPECT_EQ(autoProfileFileName(h), "A") << q;
    }
    h.quality = 1;
    EXPECT_EQ(autoProfileFileName(h), "A_raw");
}

TEST(AutoProfileNameTest, OnlyFiveIlluminantsAreNamed)
{
    ProfileHeader h;
    h.model = "A";
    const std::pair<int, const char*> named[] = {
        {1, "A_daylight"}, {2, "A_flour"}, {3, "A_tungsten"}, {4, "A_flash"}, {10, "A_cloudy"}};
    for (const auto& [code, name] : named) {
        h.illuminant = code;
        EXPECT_EQ(autoProfileFileName(h), name);
    }
    for (int code : {0, 9, 11, 21, 255}) {
        h.illuminant = code;
        EXPECT_EQ(autoProfileFileName(h), "A") << code;
    }
}

TEST(AutoProfileNameTest, LevelWordsAndUnknownLevels)
{
    ProfileHeader h;
    h.model = "A";
    const char* words[] = {"???", "Lo2", "Lo1", "Med", "Hi1", "Hi2", "???"};
    for (int code = 0; code <= 6; ++code) {
        h.sharpness = code;
        h.contrast = code;
        h.saturation = code;
        const std::string w = words[code];
        EXPECT_EQ(autoProfileFileName(h), "A_sh" + w + "_con" + w + "_sat" + w) << code;
    }
}

TEST(AutoProfileNameTest, TemperatureRoundsHalvesAwayFromZero)
{
    ProfileHeader h;
    h.model = "A";
    const std::pair<float, const char*> cases[] = {
        {2.5f, "A_tmp3"}, {-2.5f, "A_tmp-3"}, {-0.4f, "A_tmp0"}, {2.4f, "A_tmp2"}, {-30.0f, "A_tmp-30"}};
    for (const auto& [t, name] : cases) {
        h.temperature = t;
        EXPECT_EQ(autoProfileFileName(h), name) << t;
    }
}

TEST(AutoProfileNameTest, NameThatIsExactlyUnspecBecomesUnnamed)
{
    ProfileHeader h;
    h.model = "unspec";
    EXPECT_EQ(autoProfileFileName(h), "unnamed");
    h.model = "";
    h.iso = 100;
    EXPECT_EQ(autoProfileFileName(h), "_iso100");
    h.model.reset();
    EXPECT_EQ(autoProfileFileName(h), "unspec_iso100");
}
