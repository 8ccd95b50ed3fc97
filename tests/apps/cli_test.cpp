// Whole-program tests: the built murmex binary run the way a user runs it.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <cctype>
#include <map>
#include <thread>

#include <gtest/gtest.h>

#include <murmex/murmex.h>

#include "apps/app_fixtures.h"
#include "apps/cli_fixtures.h"
#include "murmex/demo_scene.h"
#include "murmex/image_io.h"
#include "host/profile_header.h"
#include "support/temp_dir.h"

namespace murmex_test {
namespace {

using murmex_app::Image;
using murmex_app::ImageFormat;
using murmex_app::readImage;
using murmex_app::writeImage;

namespace fs = std::filesystem;

bool isDigit(char c)
{
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

// "murmex X.Y.Z" and a newline, with whole numbers X, Y and Z.
bool isVersionLine(const std::string& s)
{
    const std::string prefix = "murmex ";
    if (s.rfind(prefix, 0) != 0 || s.back() != '\n')
        return false;
    int dots = 0;
    bool digits = false;
    for (size_t i = prefix.size(); i + 1 < s.size(); ++i) {
        if (isDigit(s[i])) {
            digits = true;
        } else if (s[i] == '.' && digits) {
            ++dots;
            digits = false;
        } else {
            return false;
        }
    }
    return digits && dots == 2;
}

// A percentage as a progress bar shows it: a digit, then "% ".
bool showsPercent(const std::string& s)
{
    for (size_t at = s.find("% "); at != std::string::npos; at = s.find("% ", at + 1))
        if (at > 0 && isDigit(s[at - 1]))
            return true;
    return false;
}

int collect(void* context, int, int, const DnNoiseSample* sample)
{
    static_cast<std::vector<DnNoiseSample>*>(context)->push_back(*sample);
    return 0;
}

TEST(CliDenoise, SixteenBitTiffKeepsSizeAndBitDepthAndLosesNoise)
{
    TempDir dir;
    const Image clean = murmex_app::renderDemoScene(300, 200);
    const Image noisy = murmex_app::addCameraNoise(clean, 3);
    writeImage(dir.file("in.tif"), noisy, ImageFormat::Tiff);
    const RunResult r = runMurmex({"denoise", dir.file("in.tif"), "-o", dir.file("out.tif"), "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "");
    const Image out = readImage(dir.file("out.tif"));
    EXPECT_EQ(out.width, 300);
    EXPECT_EQ(out.height, 200);
    EXPECT_EQ(out.bitsPerSample, 16);
    EXPECT_EQ(out.sourceChannels, 3);
    EXPECT_GT(murmex_app::psnr16(out, clean), murmex_app::psnr16(noisy, clean));
}

TEST(CliDenoise, SixteenBitPngKeepsSizeAndBitDepthAndLosesNoise)
{
    TempDir dir;
    const Image clean = murmex_app::renderDemoScene(300, 200);
    const Image noisy = murmex_app::addCameraNoise(clean, 4);
    writeImage(dir.file("in.png"), noisy, ImageFormat::Png);
    const RunResult r = runMurmex({"denoise", dir.file("in.png"), "-o", dir.file("out.png"), "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    const Image out = readImage(dir.file("out.png"));
    EXPECT_EQ(out.width, 300);
    EXPECT_EQ(out.height, 200);
    EXPECT_EQ(out.bitsPerSample, 16);
    EXPECT_GT(murmex_app::psnr16(out, clean), murmex_app::psnr16(noisy, clean));
}

void expectMetadataSurvives(const std::string& inName, const std::string& outName, ImageFormat format)
{
    TempDir dir;
    Image photo = noisyPhoto(300, 200);
    // A profile libpng keeps (it drops one of a header alone as too short).
    photo.icc = murmex_app_test::testIccProfile();
    writeImage(dir.file(inName), photo, format);
    setCameraExif(dir.file(inName), "Testmaker", "Model T1", 800);
    const RunResult r = runMurmex({"denoise", dir.file(inName), "-o", dir.file(outName), "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    const Image out = readImage(dir.file(outName));
    EXPECT_EQ(out.icc, photo.icc);
    EXPECT_EQ(exifValue(dir.file(outName), "Exif.Image.Make"), "Testmaker");
    EXPECT_EQ(exifValue(dir.file(outName), "Exif.Image.Model"), "Model T1");
    EXPECT_EQ(exifValue(dir.file(outName), "Exif.Photo.ISOSpeedRatings"), "800");
    EXPECT_EQ(exifValue(dir.file(outName), "Exif.Image.Artist"), "Murmex test");
    EXPECT_EQ(exifValue(dir.file(outName), "Exif.Photo.PixelXDimension"), "300");
}

TEST(CliDenoise, ExifAndIccOfATiffSurviveIntoTheOutput)
{
    expectMetadataSurvives("in.tif", "out.tif", ImageFormat::Tiff);
}

TEST(CliDenoise, ExifAndIccOfAJpegSurviveIntoTheOutput)
{
    expectMetadataSurvives("in.jpg", "out.jpg", ImageFormat::Jpeg);
}

TEST(CliDenoise, ExifAndIccOfAPngSurviveIntoTheOutput)
{
    expectMetadataSurvives("in.png", "out.png", ImageFormat::Png);
}

TEST(CliDenoise, ExifAndIccOfAJpegSurviveIntoAPngOutput)
{
    expectMetadataSurvives("in.jpg", "out.png", ImageFormat::Jpeg);
}

TEST(CliDenoise, GreyInputIsWrittenAsRgbAndAlphaIsCarriedThrough)
{
    TempDir dir;
    Image photo = noisyPhoto(300, 200);
    photo.alpha.resize(300 * 200);
    for (size_t i = 0; i < photo.alpha.size(); ++i)
        photo.alpha[i] = static_cast<uint16_t>((i * 997) & 0xFFFF);
    writeImage(dir.file("rgba.png"), photo, ImageFormat::Png);
    const RunResult r = runMurmex({"denoise", dir.file("rgba.png"), "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    const Image out = readImage(dir.file("rgba-denoised.png"));
    EXPECT_EQ(out.alpha, photo.alpha);
    EXPECT_NE(out.rgbx, photo.rgbx);

    // A grey photo (R = G = B) comes back as RGB.
    Image grey = photo;
    grey.alpha.clear();
    for (size_t i = 0; i < grey.rgbx.size(); i += 4)
        grey.rgbx[i] = grey.rgbx[i + 2] = grey.rgbx[i + 1];
    writeImage(dir.file("grey.tif"), grey, ImageFormat::Tiff);
    const RunResult g = runMurmex({"denoise", dir.file("grey.tif"), "-q"});
    ASSERT_EQ(g.status, 0) << g.err;
    const Image greyOut = readImage(dir.file("grey-denoised.tif"));
    EXPECT_EQ(greyOut.sourceChannels, 3);
    EXPECT_EQ(greyOut.width, 300);
}

TEST(CliDenoise, OutputNamesFollowTheInputWithoutOutputOption)
{
    TempDir dir;
    fs::create_directory(dir.file("src"));
    writeImage(dir.file("src/a.tif"), noisyPhoto(300, 200, 1), ImageFormat::Tiff);
    writeImage(dir.file("src/b.png"), noisyPhoto(300, 200, 2), ImageFormat::Png);
    RunResult r = runMurmex({"denoise", dir.file("src/a.tif"), dir.file("src/b.png")});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(listDir(dir.file("src")), (std::vector<std::string>{"a-denoised.tif", "a.tif", "b-denoised.png", "b.png"}));
    // Standard error is not a terminal here: plain progress lines naming each input in turn.
    const size_t a = r.err.find("a.tif (file 1 of 2): Removing noise");
    const size_t b = r.err.find("b.png (file 2 of 2): Removing noise");
    EXPECT_NE(a, std::string::npos) << r.err;
    EXPECT_NE(b, std::string::npos) << r.err;
    EXPECT_LT(a, b);

    r = runMurmex({"denoise", dir.file("src/a.tif"), dir.file("src/b.png"), "--out-dir", dir.file("out"), "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(listDir(dir.file("out")), (std::vector<std::string>{"a.tif", "b.png"}));
}

TEST(CliDenoise, RefusesToOverwriteAnInputUnlessInPlace)
{
    TempDir dir;
    writeImage(dir.file("in.tif"), noisyPhoto(300, 200), ImageFormat::Tiff);
    const std::vector<uint8_t> before = fileBytes(dir.file("in.tif"));
    RunResult r = runMurmex({"denoise", dir.file("in.tif"), "-o", dir.file("in.tif"), "-q"});
    EXPECT_EQ(r.status, 2);
    expectOneLineError(r, "--in-place");
    EXPECT_EQ(fileBytes(dir.file("in.tif")), before);

    r = runMurmex({"denoise", dir.file("in.tif"), "--in-place", "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(fileBytes(dir.file("in.tif")), before);
    EXPECT_EQ(listDir(dir.path()), std::vector<std::string>{"in.tif"});
}

TEST(CliDenoise, OverwritesAnExistingOutputThatIsNoInput)
{
    TempDir dir;
    writeImage(dir.file("in.tif"), noisyPhoto(300, 200), ImageFormat::Tiff);
    {
        std::ofstream old(dir.file("out.tif"));
        old << "old";
    }
    const RunResult r = runMurmex({"denoise", dir.file("in.tif"), "-o", dir.file("out.tif"), "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(readImage(dir.file("out.tif")).width, 300);
}

TEST(CliDenoise, SaveProfileKeepsTheProfileMeasuredFromTheImage)
{
    TempDir dir;
    writeImage(dir.file("in.tif"), noisyPhoto(600, 400), ImageFormat::Tiff);
    setCameraExif(dir.file("in.tif"), "Testmaker", "Model T1", 3200);
    const RunResult r = runMurmex({"denoise", dir.file("in.tif"), "--save-profile", dir.file("kept.dnp"), "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    const RunResult info = runMurmex({"info", dir.file("kept.dnp"), "--json"});
    ASSERT_EQ(info.status, 0) << info.err;
    const Json j = JsonParser::parse(info.out);
    EXPECT_EQ(j["header"]["maker"].text, "Testmaker");
    EXPECT_EQ(j["header"]["iso"].number, 3200);
    EXPECT_GT(j["sample_count"].number, 0);
}

TEST(CliInfo, JsonParsesAndMatchesTheMeasuredSamples)
{
    TempDir dir;
    const std::string profile = makeProfile(dir);
    const RunResult r = runMurmex({"info", profile, "--json"});
    ASSERT_EQ(r.status, 0) << r.err;
    const Json j = JsonParser::parse(r.out);  // the whole of standard output is one JSON value

    std::vector<DnNoiseSample> samples;
    ASSERT_EQ(DnReadProfileSamples(&samples, profile.c_str(), collect), 0);
    ASSERT_GT(samples.size(), 1u);
    ASSERT_EQ(j["sample_count"].number, static_cast<double>(samples.size()));
    ASSERT_EQ(j["samples"].items.size(), samples.size());
    for (size_t i = 0; i < samples.size(); ++i) {
        const DnNoiseSample& s = samples[i];
        const Json& js = j["samples"][i];
        EXPECT_EQ(js["rect"][0].number, s.left);
        EXPECT_EQ(js["rect"][3].number, s.bottom);
        const float colour[9] = {s.y, s.cr, s.cb, s.r, s.g, s.b, s.labL, s.labA, s.labB};
        for (int k = 0; k < 9; ++k)
            EXPECT_EQ(static_cast<float>(js[k < 3 ? "ycrcb" : k < 6 ? "rgb" : "lab"][k % 3].number), colour[k]);
        for (int l = 0; l < 5; ++l) {
            EXPECT_EQ(static_cast<float>(js["noise"]["y"][l].number), s.noiseY[l]) << "sample " << i << " level " << l;
            EXPECT_EQ(static_cast<float>(js["noise"]["cr"][l].number), s.noiseCr[l]);
            EXPECT_EQ(static_cast<float>(js["noise"]["cb"][l].number), s.noiseCb[l]);
        }
    }
    // The settings of a freshly measured profile: the scale middles, no sharpening.
    DnFilterParams stored{};
    unsigned char* data = nullptr;
    int length = 0;
    ASSERT_EQ(DnReadProfile(profile.c_str(), &data, &length, &stored), 0);
    DnFreeMemory(data);
    for (int i = 0; i < DnHostScaleCount; ++i)
        EXPECT_FLOAT_EQ(static_cast<float>(j["settings"][DnHostScales[i].name].number), *DnHostScaleField(&stored, i));
    EXPECT_EQ(j["settings"]["sharpen-amount"].number, 0.0);
    EXPECT_EQ(j["settings"]["lum-strength"].number, 10.0);
}

TEST(CliInfo, TextListsHeaderSettingsAndSamples)
{
    TempDir dir;
    const std::string profile = makeProfile(dir);
    const RunResult r = runMurmex({"info", profile});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "Settings")) << r.out;
    for (int i = 0; i < DnHostScaleCount; ++i)
        EXPECT_TRUE(contains(r.out, DnHostScales[i].name));
    EXPECT_TRUE(contains(r.out, "Samples: ")) << r.out;
}

TEST(CliSet, ChangesWhatInfoThenReports)
{
    TempDir dir;
    const std::string profile = makeProfile(dir);
    const Json before = JsonParser::parse(runMurmex({"info", profile, "--json"}).out);
    const RunResult r =
        runMurmex({"set", profile, "--lum-strength", "14.5", "--chroma-contrast", "3", "--sharpen-amount", "250",
                   "--low-frequency", "--no-suppress-halos"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(listDir(dir.path()), (std::vector<std::string>{"p.dnp", "profile-source.tif"}));
    const Json after = JsonParser::parse(runMurmex({"info", profile, "--json"}).out);
    EXPECT_FLOAT_EQ(static_cast<float>(after["settings"]["lum-strength"].number), 14.5f);
    EXPECT_FLOAT_EQ(static_cast<float>(after["settings"]["chroma-contrast"].number), 3.0f);
    EXPECT_FLOAT_EQ(static_cast<float>(after["settings"]["sharpen-amount"].number), 250.0f);
    EXPECT_TRUE(after["settings"]["low-frequency"].boolean);
    EXPECT_FALSE(after["settings"]["suppress-halos"].boolean);
    // What was not given stays; samples stay.
    EXPECT_FLOAT_EQ(static_cast<float>(after["settings"]["lum-smoothness"].number),
                    static_cast<float>(before["settings"]["lum-smoothness"].number));
    EXPECT_EQ(after["sample_count"].number, before["sample_count"].number);

    // The library reads the same settings back.
    DnFilterParams stored{};
    unsigned char* data = nullptr;
    int length = 0;
    ASSERT_EQ(DnReadProfile(profile.c_str(), &data, &length, &stored), 0);
    DnFreeMemory(data);
    EXPECT_NEAR(stored.lumStrength, 14.5f, 1e-4f);
    EXPECT_EQ(stored.lowFrequency, 1);
}

TEST(CliSet, WithoutOptionsIsAUsageError)
{
    TempDir dir;
    const std::string profile = makeProfile(dir);
    const RunResult r = runMurmex({"set", profile});
    EXPECT_EQ(r.status, 2);
    expectOneLineError(r, "nothing to change");
}

// Three profiles in a library: one camera at ISO 400 and 1600, another camera at ISO 800.
class CliLibrary : public ::testing::Test {
protected:
    void SetUp() override
    {
        library = dir.file("library");
        addProfile("Canon", "EOS Test", 400, 11);
        addProfile("Canon", "EOS Test", 1600, 12);
        addProfile("Nikon", "D Test", 800, 13);
    }
    void addProfile(const std::string& maker, const std::string& model, int iso, uint32_t seed)
    {
        const std::string photo = dir.file("source.tif");
        writeImage(photo, noisyPhoto(300, 200, seed), ImageFormat::Tiff);
        setCameraExif(photo, maker, model, iso);
        const RunResult r = runMurmex({"profile", photo, "--library", library, "-q"});
        ASSERT_EQ(r.status, 0) << r.err;
        ASSERT_TRUE(fs::exists(r.out.substr(0, r.out.find(" (")))) << r.out;
    }
    // The ISO in the header of the profile that denoise reports it matched.
    int matchedIso(const std::string& maker, const std::string& model, int iso)
    {
        const std::string photo = dir.file("photo.tif");
        writeImage(photo, noisyPhoto(300, 200, 21), ImageFormat::Tiff);
        setCameraExif(photo, maker, model, iso);
        const RunResult r = runMurmex({"denoise", photo, "-o", dir.file("out.tif"), "--library", library});
        EXPECT_EQ(r.status, 0) << r.err;
        const std::string label = "photo.tif: Auto matched: ";
        const size_t at = r.err.find(label);
        if (at == std::string::npos) {
            ADD_FAILURE() << r.err;
            return -1;
        }
        const std::string path = r.err.substr(at + label.size(), r.err.find('\n', at) - at - label.size());
        const murmex_host::ProfileHeader h = murmex_host::readProfileHeader(fileBytes(path));
        EXPECT_EQ(h.maker.value_or(""), maker);
        return h.iso.value_or(-1);
    }

    TempDir dir;
    std::string library;
};

TEST_F(CliLibrary, ProfileCommandStoresUnderTheCameraDirectory)
{
    EXPECT_TRUE(fs::is_directory(library + "/Canon/EOS Test"));
    EXPECT_TRUE(fs::is_directory(library + "/Nikon/D Test"));
    EXPECT_EQ(listDir(library + "/Canon/EOS Test").size(), 2u);
}

TEST_F(CliLibrary, AutomaticMatchPicksTheNearestIsoOfTheSameCamera)
{
    EXPECT_EQ(matchedIso("Canon", "EOS Test", 1400), 1600);
    EXPECT_EQ(matchedIso("Canon", "EOS Test", 100), 400);
    EXPECT_EQ(matchedIso("Nikon", "D Test", 6400), 800);
}

TEST_F(CliLibrary, AutomaticMatchCountsTheDistanceInStops)
{
    // ISO 900 is nearer 400 in value, but 0.83 stops from 1600 and 1.17 from 400.
    EXPECT_EQ(matchedIso("Canon", "EOS Test", 900), 1600);
}

TEST_F(CliLibrary, AutomaticMatchBreaksAnIsoTieTowardsTheLowerIso)
{
    // 800 is two stops from both.
    EXPECT_EQ(matchedIso("Canon", "EOS Test", 800), 400);
}

TEST_F(CliLibrary, CameraNamesFromExifCannotLeadOutOfTheLibrary)
{
    const std::string photo = dir.file("hostile.tif");
    writeImage(photo, noisyPhoto(300, 200, 31), ImageFormat::Tiff);
    setCameraExif(photo, "../../../../../../x", "../..", 800);
    const RunResult r = runMurmex({"profile", photo, "--library", library, "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string written = r.out.substr(0, r.out.find(" ("));
    ASSERT_TRUE(fs::exists(written)) << r.out;
    const std::string inside = fs::weakly_canonical(library).string() + "/";
    EXPECT_EQ(fs::weakly_canonical(written).string().rfind(inside, 0), 0u) << written;
    EXPECT_FALSE(fs::exists("/x"));
}

TEST_F(CliLibrary, LibraryComesFromTheEnvironmentWithoutOption)
{
    const std::string photo = dir.file("photo.tif");
    writeImage(photo, noisyPhoto(300, 200, 22), ImageFormat::Tiff);
    setCameraExif(photo, "Nikon", "D Test", 800);
    const RunResult r = runMurmex({"denoise", photo}, {"MURMEX_PROFILES=" + library});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.err, "Auto matched: " + library)) << r.err;
}

TEST_F(CliLibrary, WithoutAMatchSaysSoAndMeasures)
{
    const std::string photo = dir.file("photo.tif");
    writeImage(photo, noisyPhoto(300, 200, 23), ImageFormat::Tiff);
    setCameraExif(photo, "Olympus", "E Test", 800);
    const RunResult r = runMurmex({"denoise", photo, "--library", library});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.err, "no profile for Olympus E Test at ISO 800")) << r.err;
    EXPECT_TRUE(contains(r.err, "photo.tif: Measuring noise profile")) << r.err;
    EXPECT_TRUE(fs::exists(dir.file("photo-denoised.tif")));
}

TEST(CliErrors, UnreadableInputGivesOneLineAndStatus1)
{
    TempDir dir;
    RunResult r = runMurmex({"denoise", dir.file("missing.tif"), "-q"});
    EXPECT_EQ(r.status, 1);
    expectOneLineError(r, "missing.tif");

    {
        std::ofstream junk(dir.file("junk.tif"));
        junk << "this is not an image";
    }
    r = runMurmex({"denoise", dir.file("junk.tif"), "-q"});
    EXPECT_EQ(r.status, 1);
    expectOneLineError(r, "cannot read " + dir.file("junk.tif"));
    EXPECT_EQ(listDir(dir.path()), std::vector<std::string>{"junk.tif"});
}

TEST(CliErrors, AnInputThatIsNoRegularFileIsRefusedWithoutWaitingOnIt)
{
    // A named pipe without a writer would keep the program waiting in
    // open(), where a signal does not reach it; /dev/null reads as empty
    // and a terminal would wait for typing. Each run is bounded, so that a
    // wait fails the test rather than hanging it.
    TempDir dir;
    ASSERT_EQ(mkfifo(dir.file("pipe.tif").c_str(), 0644), 0);
    ASSERT_EQ(mkfifo(dir.file("pipe.dnp").c_str(), 0644), 0);
    const std::string profile = makeProfile(dir, "p.dnp", 300, 200);
    writeImage(dir.file("in.tif"), noisyPhoto(120, 80, 3), ImageFormat::Tiff);
    const std::vector<std::pair<std::vector<std::string>, std::string>> runs = {
        {{"denoise", dir.file("pipe.tif"), "--profile", profile}, "cannot read " + dir.file("pipe.tif")},
        {{"denoise", "/dev/null", "--profile", profile, "-o", dir.file("out.tif")}, "cannot read /dev/null"},
        {{"profile", dir.file("pipe.tif"), "-o", dir.file("out.dnp")}, "cannot read " + dir.file("pipe.tif")},
        {{"denoise", dir.file("in.tif"), "--profile", dir.file("pipe.dnp")},
         "cannot load profile " + dir.file("pipe.dnp")},
        {{"info", dir.file("pipe.dnp")}, "cannot load profile " + dir.file("pipe.dnp")},
        {{"set", dir.file("pipe.dnp"), "--lum-strength", "5"}, "cannot load profile " + dir.file("pipe.dnp")},
    };
    for (auto [args, message] : runs) {
        args.push_back("-q");
        const RunResult r = runMurmex(args, {}, {"/usr/bin/timeout", "-s", "KILL", "30"});
        EXPECT_EQ(r.status, 1) << args[1];
        const bool device = args[1] == "/dev/null";
        expectOneLineError(r, message + ": it is a " + (device ? "device" : "named pipe") + ", not a regular file");
    }
    EXPECT_EQ(listDir(dir.path()), (std::vector<std::string>{"in.tif", "p.dnp", "pipe.dnp", "pipe.tif",
                                                             "profile-source.tif"}));
}

TEST(CliErrors, CorruptProfileGivesTheLibrarysMessageInOneLine)
{
    TempDir dir;
    // A stream profile with an unknown version number.
    writeFileBytes(dir.file("bad.dnp"), std::vector<unsigned char>{0x00, 0x00, 0x12, 0x34, 0, 0, 0, 20, 0, 0, 0, 0});
    RunResult r = runMurmex({"info", dir.file("bad.dnp"), "--json"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "");  // no library line on standard output
    expectOneLineError(r, "cannot load profile " + dir.file("bad.dnp") + ": Invalid version or corrupted noise profile");

    writeImage(dir.file("in.tif"), noisyPhoto(300, 200), ImageFormat::Tiff);
    r = runMurmex({"denoise", dir.file("in.tif"), "--profile", dir.file("bad.dnp"), "-q"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "");
    expectOneLineError(r, "Invalid version or corrupted noise profile");
    EXPECT_FALSE(fs::exists(dir.file("in-denoised.tif")));
}

TEST(CliErrors, UnknownOptionGivesOneLineAndStatus2)
{
    const RunResult r = runMurmex({"denoise", "x.tif", "--no-such-option"});
    EXPECT_EQ(r.status, 2);
    expectOneLineError(r, "--no-such-option");
    EXPECT_TRUE(contains(r.err, "--help"));
}

TEST(CliErrors, SettingOutsideItsScaleIsRefused)
{
    for (int i = 0; i < DnHostScaleCount; ++i) {
        const DnHostScale& s = DnHostScales[i];
        const RunResult r =
            runMurmex({"denoise", "x.tif", std::string("--") + s.name, std::to_string(s.high + 1.0f)});
        EXPECT_EQ(r.status, 2) << s.name;
        expectOneLineError(r, s.name);
    }
}

TEST(CliErrors, BadLevelsAndJpegQualityAreRefused)
{
    EXPECT_EQ(runMurmex({"denoise", "x.tif", "--levels", "6"}).status, 2);
    EXPECT_EQ(runMurmex({"denoise", "x.tif", "--jpeg-quality", "0"}).status, 2);
    EXPECT_EQ(runMurmex({"denoise", "x.tif", "--rows-per-thread", "0"}).status, 2);
}

TEST(CliErrors, UnknownOutputExtensionIsAUsageError)
{
    TempDir dir;
    writeImage(dir.file("in.tif"), noisyPhoto(300, 200), ImageFormat::Tiff);
    const RunResult r = runMurmex({"denoise", dir.file("in.tif"), "-o", dir.file("out.bmp")});
    EXPECT_EQ(r.status, 2);
    expectOneLineError(r, "out.bmp");
}

TEST(CliDemo, WritesTheImagesAndReportsTheirPsnr)
{
    TempDir dir;
    const RunResult r =
        runMurmex({"demo", "--out-dir", dir.file("demo"), "--width", "400", "--height", "266", "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(listDir(dir.file("demo")),
              (std::vector<std::string>{"clean.tif", "demo.dnp", "denoised-auto.tif", "denoised.tif", "noisy.tif"}));
    const Image clean = readImage(dir.file("demo/clean.tif"));
    const Image noisy = readImage(dir.file("demo/noisy.tif"));
    const Image denoised = readImage(dir.file("demo/denoised.tif"));
    // PSNR by a plain loop over the written 16-bit RGB samples.
    auto psnr = [](const Image& a, const Image& b) {
        double sum = 0.0;
        size_t n = 0;
        for (size_t i = 0; i < a.rgbx.size(); ++i)
            if (i % 4 != 3) {
                const double d = double(a.rgbx[i]) - double(b.rgbx[i]);
                sum += d * d;
                ++n;
            }
        return 10.0 * std::log10(65535.0 * 65535.0 * n / sum);
    };
    char before[32], after[32];
    std::snprintf(before, sizeof before, "PSNR %6.2f dB", psnr(noisy, clean));
    std::snprintf(after, sizeof after, "PSNR %6.2f dB", psnr(denoised, clean));
    EXPECT_TRUE(contains(r.out, before)) << r.out << before;
    EXPECT_TRUE(contains(r.out, after)) << r.out << after;
    // A small scene offers fewer flat patches than the default one (which
    // gains over 6 dB), but the gain must still be clear.
    EXPECT_GT(psnr(denoised, clean), psnr(noisy, clean) + 1.5);
    // The automatic settings' result on its own line beside the default one.
    const Image automatic = readImage(dir.file("demo/denoised-auto.tif"));
    char autoPsnr[32];
    std::snprintf(autoPsnr, sizeof autoPsnr, "PSNR %6.2f dB", psnr(automatic, clean));
    const std::vector<std::string> lines = splitLines(r.out);
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
        return contains(line, "denoised-auto.tif") && contains(line, autoPsnr) && contains(line, "automatic settings");
    })) << r.out << autoPsnr;
    EXPECT_TRUE(contains(r.out, "time ")) << r.out;
}

TEST(CliHelp, HelpDescribesGreyAndAlphaInputsAndExitsZero)
{
    const RunResult r = runMurmex({"denoise", "--help"});
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(contains(r.out, "Grey inputs")) << r.out;
    EXPECT_TRUE(contains(r.out, "alpha")) << r.out;
    for (int i = 0; i < DnHostScaleCount; ++i)
        EXPECT_TRUE(contains(r.out, std::string("--") + DnHostScales[i].name)) << DnHostScales[i].name;
}

TEST(CliHelp, VersionHelpCommandAndUnknownCommands)
{
    RunResult r = runMurmex({"--version"});
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(isVersionLine(r.out)) << r.out;

    r = runMurmex({"help"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "Usage: murmex")) << r.out;
    for (const char* command : {"denoise", "profile", "info", "set", "demo"})
        EXPECT_TRUE(contains(r.out, std::string("\n  ") + command + " ")) << command << "\n" << r.out;

    r = runMurmex({"help", "denoise"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "Usage: murmex denoise")) << r.out;
    EXPECT_TRUE(contains(r.out, "--out-dir")) << r.out;

    for (const std::vector<std::string>& args : {std::vector<std::string>{"frobnicate", "x.tif"},
                                                 std::vector<std::string>{"help", "frobnicate"}}) {
        r = runMurmex(args);
        EXPECT_EQ(r.status, 2);
        expectOneLineError(r, "unknown command 'frobnicate'");
    }
}

TEST(CliHelp, SwitchesOnByDefaultSaySoAndShowNoFalse)
{
    const RunResult r = runMurmex({"denoise", "--help"});
    EXPECT_EQ(r.status, 0);
    EXPECT_FALSE(contains(r.out, "{false}")) << r.out;
    const std::vector<std::string> lines = splitLines(r.out);
    bool described = false;
    for (size_t i = 0; i + 1 < lines.size(); ++i)
        if (lines[i].rfind("  --suppress-halos", 0) == 0)
            described = contains(lines[i] + lines[i + 1], "on by default");
    EXPECT_TRUE(described) << r.out;
}

TEST(CliErrors, TextThatIsNoNumberIsCalledSo)
{
    for (const char* option : {"--lum-strength", "--sharpen-radius", "--jpeg-quality", "--threads", "--strip-width",
                               "--levels", "--rows-per-thread"}) {
        const RunResult r = runMurmex({"denoise", "x.tif", option, "abc"});
        EXPECT_EQ(r.status, 2) << option;
        expectOneLineError(r, std::string(option) + ": value abc is not a number");
    }
    RunResult r = runMurmex({"denoise", "x.tif", "--jpeg-quality", "500"});
    EXPECT_EQ(r.status, 2);
    expectOneLineError(r, "--jpeg-quality: value 500 is not within 1 to 100");
    r = runMurmex({"denoise", "x.tif", "--lum-strength", "25"});
    EXPECT_EQ(r.status, 2);
    expectOneLineError(r, "--lum-strength: value 25 is not within 0 to 20");
}

TEST(CliDenoise, VerboseNamesEachFilesProfileAndSettingsAndQuietShowsNothing)
{
    TempDir dir;
    const std::string profile = makeProfile(dir, "p.dnp", 300, 200);
    writeImage(dir.file("a.tif"), noisyPhoto(200, 150, 1), ImageFormat::Tiff);
    writeImage(dir.file("b.tif"), noisyPhoto(200, 150, 2), ImageFormat::Tiff);
    RunResult r = runMurmex({"denoise", dir.file("a.tif"), dir.file("b.tif"), "--profile", profile, "--lum-strength",
                             "12", "--no-suppress-halos", "-v"});
    ASSERT_EQ(r.status, 0) << r.err;
    for (const std::string label : {"a.tif (file 1 of 2)", "b.tif (file 2 of 2)"}) {
        EXPECT_TRUE(contains(r.err, label + ": profile " + profile + " (--profile)\n")) << r.err;
        EXPECT_TRUE(contains(r.err, label + ": settings lum-strength 12, lum-smoothness 10,")) << r.err;
        EXPECT_TRUE(contains(r.err, ", suppress-halos no, low-frequency no\n")) << r.err;
    }

    // Measured from the photo when no profile is given or found.
    r = runMurmex({"denoise", dir.file("a.tif"), "-o", dir.file("m.tif"), "-v"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.err, "a.tif: profile measured from the image\n")) << r.err;

    r = runMurmex({"denoise", dir.file("a.tif"), dir.file("b.tif"), "--profile", profile, "-v", "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out, "");
}

// The nice value of every thread of a running process, by thread id.
std::map<int, int> threadNiceValues(pid_t pid)
{
    std::map<int, int> nice;
    std::error_code ec;
    for (const auto& task : fs::directory_iterator("/proc/" + std::to_string(pid) + "/task", ec)) {
        std::ifstream in(task.path() / "stat");
        std::string stat((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        const size_t paren = stat.rfind(')');
        if (paren == std::string::npos)
            continue;
        // After the command's name: state is field 3, nice field 19.
        std::istringstream fields(stat.substr(paren + 2));
        std::string field;
        for (int i = 3; i <= 19 && fields >> field; ++i)
            if (i == 19)
                nice[std::stoi(task.path().filename().string())] = std::stoi(field);
    }
    return nice;
}

TEST(CliDenoise, BackgroundRunsTheWorkersAtALowerPriority)
{
    TempDir dir;
    const std::string profile = makeProfile(dir, "p.dnp", 300, 200);
    writeImage(dir.file("big.tif"), noisyPhoto(1200, 800), ImageFormat::Tiff);
    Murmex m({"denoise", dir.file("big.tif"), "--profile", profile, "-j", "2", "--background", "-o",
              dir.file("out.tif")});
    ASSERT_TRUE(m.readUntil([](const std::string& err) { return contains(err, "Removing noise"); },
                            std::chrono::seconds(60)));
    // The workers run from now until the image is done; each lowers itself
    // as it starts.
    int lowered = 0, mainNice = 0;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (lowered < 2 && std::chrono::steady_clock::now() < end) {
        const std::map<int, int> nice = threadNiceValues(m.pid());
        if (nice.count(m.pid()) == 0)
            break;
        mainNice = nice.at(m.pid());
        lowered = static_cast<int>(std::count_if(nice.begin(), nice.end(),
                                                 [&](const auto& t) { return t.second > mainNice; }));
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    m.signal(SIGINT);
    m.wait();
    EXPECT_EQ(lowered, 2) << "main thread at nice " << mainNice;
}

TEST(CliProgress, StepsInTheUsersWordsWithAWritingStageAndFileNOfN)
{
    TempDir dir;
    writeImage(dir.file("a.tif"), noisyPhoto(300, 200, 1), ImageFormat::Tiff);
    writeImage(dir.file("b.tif"), noisyPhoto(300, 200, 2), ImageFormat::Tiff);
    const RunResult r = runMurmex({"denoise", dir.file("a.tif"), dir.file("b.tif")});
    ASSERT_EQ(r.status, 0) << r.err;
    size_t at = 0;
    for (const std::string label : {"a.tif (file 1 of 2): ", "b.tif (file 2 of 2): "})
        for (const char* step : {"Measuring noise profile 0%", "Measuring noise profile 100%", "Removing noise 0%",
                                 "Removing noise 100%", "Writing 0%", "Writing 50%", "Writing 100%"}) {
            const size_t next = r.err.find(label + step, at);
            ASSERT_NE(next, std::string::npos) << label << step << " in order in\n" << r.err;
            at = next;
        }
    EXPECT_FALSE(contains(r.err, "Profiling image")) << r.err;
    EXPECT_FALSE(contains(r.err, "[New profile")) << r.err;
    EXPECT_FALSE(contains(r.err, ".dnp]")) << r.err;
}

// Runs murmex with its standard output and error on a terminal `columns`
// wide and returns what it wrote there.
std::string runOnTerminal(const std::vector<std::string>& args, int columns)
{
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0)
        throw std::runtime_error("no pseudo-terminal");
    const int slave = open(ptsname(master), O_RDWR | O_NOCTTY);
    winsize size{};
    size.ws_row = 24;
    size.ws_col = static_cast<unsigned short>(columns);
    ioctl(slave, TIOCSWINSZ, &size);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, slave, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, slave, STDERR_FILENO);
    posix_spawn_file_actions_addclose(&actions, master);
    std::vector<std::string> strings{programPath()};
    strings.insert(strings.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& a : strings)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    std::string library = "MURMEX_PROFILES=/nonexistent/murmex-test-library";
    std::vector<char*> envp{library.data()};
    for (char** e = environ; *e; ++e)
        if (std::string(*e).rfind("MURMEX_PROFILES=", 0) != 0)
            envp.push_back(*e);
    envp.push_back(nullptr);
    pid_t pid = -1;
    const int rc = posix_spawn(&pid, strings[0].c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    close(slave);
    std::string out;
    char buf[4096];
    for (ssize_t n; rc == 0 && ((n = read(master, buf, sizeof buf)) > 0 || (n < 0 && errno == EINTR));)
        if (n > 0)
            out.append(buf, static_cast<size_t>(n));
    close(master);
    int status = 0;
    if (rc == 0)
        waitpid(pid, &status, 0);
    EXPECT_TRUE(rc == 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0) << out;
    return out;
}

TEST(CliProgress, TheBarKeepsWithinANarrowTerminalWithItsPercentageAndStep)
{
    TempDir dir;
    const std::string profile = makeProfile(dir, "p.dnp", 300, 200);
    // A long name with characters of two bytes each.
    const std::string photo = dir.file("Sommerfest-am-Seeufer-\xC3\x9C" "berblick-vom-Steg-IMG_20240713_183005.tif");
    writeImage(photo, noisyPhoto(300, 200, 3), ImageFormat::Tiff);
    const int columns = 60;
    const std::string out = runOnTerminal({"denoise", photo, "--profile", profile, "-o", dir.file("out.tif")}, columns);
    std::vector<std::string> bars;
    std::string line;
    for (size_t i = 0; i <= out.size(); ++i) {
        if (i == out.size() || out[i] == '\r' || out[i] == '\n') {
            if (contains(line, "%"))
                bars.push_back(line);
            line.clear();
        } else if (out.compare(i, 3, "\033[K") == 0) {
            i += 2;
        } else {
            line += out[i];
        }
    }
    ASSERT_FALSE(bars.empty()) << out;
    bool removing = false, writing = false;
    for (const std::string& bar : bars) {
        const long characters = std::count_if(bar.begin(), bar.end(), [](char c) { return (c & 0xC0) != 0x80; });
        EXPECT_LT(characters, columns) << bar;
        EXPECT_TRUE(showsPercent(bar)) << bar;
        removing = removing || contains(bar, "% Removing noise");
        writing = writing || contains(bar, "% Writing");
    }
    EXPECT_TRUE(removing && writing) << out;
}

}  // namespace
}  // namespace murmex_test
