// Whole-program tests of what the program does with hostile or unusual image
// files and with failing writes: the built murmex binary run as a user runs it.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <murmex/murmex.h>

#include "apps/app_fixtures.h"
#include "apps/cli_fixtures.h"
#include "murmex/demo_scene.h"
#include "murmex/image_io.h"
#include "support/temp_dir.h"

namespace murmex_test {
namespace {

using murmex_app::Image;
using murmex_app::ImageFormat;
using murmex_app::readImage;
using murmex_app::writeImage;

namespace fs = std::filesystem;

std::string fileText(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Exit status 1 and one line on standard error, beginning "murmex: " and
// holding `part`.
void expectFailureLine(const RunResult& r, const std::string& part)
{
    EXPECT_EQ(r.status, 1) << r.err;
    const std::vector<std::string> lines = splitLines(r.err);
    ASSERT_EQ(lines.size(), 1u) << r.err;
    EXPECT_EQ(lines[0].rfind("murmex: ", 0), 0u) << lines[0];
    EXPECT_NE(lines[0].find(part), std::string::npos) << lines[0];
}

// Runs a shell command line, standard error captured; the status as
// runMurmex gives it.
RunResult runShell(const std::string& command, const TempDir& dir)
{
    const std::string errFile = dir.file(".stderr");
    const int st = std::system((command + " 2>" + errFile).c_str());
    RunResult r;
    r.status = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
    r.err = fileText(errFile);
    std::remove(errFile.c_str());
    return r;
}

std::string quoted(const std::string& text)
{
    return "'" + text + "'";
}

// A little-endian TIFF of one 64 x 64 deflate-compressed grey strip whose
// data should lie at `stripOffset`, with `stripBytes` bytes: the directory
// alone, assembled field by field.
std::string tiffWithStripAt(uint32_t stripOffset, uint32_t stripBytes)
{
    std::string b = std::string("II*\0", 4);
    auto put16 = [&](uint16_t v) { b += static_cast<char>(v & 0xff); b += static_cast<char>(v >> 8); };
    auto put32 = [&](uint32_t v) { for (int i = 0; i < 4; ++i) b += static_cast<char>(v >> (8 * i)); };
    put32(8);
    const uint16_t entries[][3] = {{256, 3, 64}, {257, 3, 64}, {258, 3, 8}, {259, 3, 8}, {262, 3, 1},
                                   {273, 4, 0}, {277, 3, 1}, {278, 3, 64}, {279, 4, 0}};
    put16(9);
    for (const auto& e : entries) {
        put16(e[0]);
        put16(e[1]);
        put32(1);
        if (e[0] == 273)
            put32(stripOffset);
        else if (e[0] == 279)
            put32(stripBytes);
        else
            put32(e[2]);
    }
    put32(0);
    return b;
}

TEST(CliImages, PhotoAboveTheMegapixelLimitIsRefusedAndNothingIsWritten)
{
    TempDir dir;
    writeImage(dir.file("in.tif"), noisyPhoto(200, 100), ImageFormat::Tiff);
    RunResult r = runMurmex({"denoise", dir.file("in.tif"), "--max-megapixels", "0.01", "-q"});
    expectFailureLine(r, "cannot read " + dir.file("in.tif") +
                             ": the image is 200 x 100 pixels (0.02 megapixels), more than the limit of 0.01 megapixels");
    EXPECT_EQ(listDir(dir.path()), std::vector<std::string>{"in.tif"});
    r = runMurmex({"profile", dir.file("in.tif"), "-o", dir.file("p.dnp"), "--max-megapixels", "0.01", "-q"});
    expectFailureLine(r, "more than the limit of 0.01 megapixels");
}

TEST(CliImages, TinyJpegClaimingAHugeImageIsRefusedAsTruncated)
{
    TempDir dir;
    writeImage(dir.file("small.jpg"), noisyPhoto(16, 16), ImageFormat::Jpeg);
    std::string bytes = fileText(dir.file("small.jpg"));
    const size_t frame = bytes.find("\xff\xc0", 0, 2);
    ASSERT_NE(frame, std::string::npos);
    for (size_t at : {frame + 5, frame + 7}) {  // height, then width: 16000
        bytes[at] = static_cast<char>(16000 >> 8);
        bytes[at + 1] = static_cast<char>(16000 & 0xff);
    }
    std::ofstream(dir.file("huge.jpg"), std::ios::binary) << bytes;
    const RunResult r = runMurmex({"denoise", dir.file("huge.jpg"), "-q"});
    expectFailureLine(r, "cannot read " + dir.file("huge.jpg") + ": truncated file");
    EXPECT_FALSE(fs::exists(dir.file("huge-denoised.jpg")));
}

TEST(CliImages, MissingAndEmptyFilesAreNamedAsSuch)
{
    TempDir dir;
    writeImage(dir.file("in.tif"), noisyPhoto(120, 80), ImageFormat::Tiff);
    RunResult r = runMurmex({"denoise", dir.file("in.tif"), "--profile", dir.file("none.dnp"), "-q"});
    expectFailureLine(r, "cannot load profile " + dir.file("none.dnp") + ": no such file");
    EXPECT_FALSE(fs::exists(dir.file("none.dnp")));  // looking for it did not create it

    std::ofstream(dir.file("empty.dnp")).close();
    r = runMurmex({"info", dir.file("empty.dnp")});
    expectFailureLine(r, "cannot load profile " + dir.file("empty.dnp") + ": empty file");

    std::ofstream(dir.file("empty.tif")).close();
    r = runMurmex({"denoise", dir.file("empty.tif"), "-q"});
    expectFailureLine(r, "cannot read " + dir.file("empty.tif") + ": empty file");
    r = runMurmex({"denoise", dir.file("none.tif"), "-q"});
    expectFailureLine(r, "cannot read " + dir.file("none.tif") + ": no such file");
}

TEST(CliImages, WritingIntoAReadOnlyFolderSaysPermissionDenied)
{
    TempDir dir;
    writeImage(dir.file("in.tif"), noisyPhoto(120, 80), ImageFormat::Tiff);
    writeImage(dir.file("source.tif"), noisyPhoto(300, 200), ImageFormat::Tiff);
    ASSERT_EQ(runMurmex({"profile", dir.file("source.tif"), "-o", dir.file("p.dnp"), "-q"}).status, 0);
    fs::create_directory(dir.file("ro"));
    fs::copy_file(dir.file("p.dnp"), dir.file("ro/p.dnp"));
    // Readable by everyone, the folder writable by nobody; root, whom modes
    // do not stop, runs the program as the unprivileged user "nobody".
    fs::permissions(dir.path(), fs::perms(0755));
    fs::permissions(dir.file("in.tif"), fs::perms(0644));
    fs::permissions(dir.file("ro/p.dnp"), fs::perms(0644));
    fs::permissions(dir.file("ro"), fs::perms(0555));
    const std::string as = geteuid() == 0 ? "setpriv --reuid=65534 --regid=65534 --clear-groups " : "";
    const std::string murmex = as + quoted(MURMEX_CLI_PATH) + " ";
    RunResult r = runShell(murmex + "set " + quoted(dir.file("ro/p.dnp")) + " --lum-strength 3", dir);
    expectFailureLine(r, "cannot write " + dir.file("ro/p.dnp") + ": permission denied");
    r = runShell(murmex + "denoise " + quoted(dir.file("in.tif")) + " --profile " + quoted(dir.file("ro/p.dnp")) +
                     " -o " + quoted(dir.file("ro/out.tif")) + " -q",
                 dir);
    expectFailureLine(r, "cannot write " + dir.file("ro/out.tif") + ": permission denied");
    fs::permissions(dir.file("ro"), fs::perms(0755));
    EXPECT_EQ(listDir(dir.file("ro")), std::vector<std::string>{"p.dnp"});
}

TEST(CliImages, FullDiskSaysNoSpaceLeftOnTheDevice)
{
    // A 16 KiB file system of its own, mounted in a private mount namespace
    // (as root, or as an ordinary user through a user namespace).
    TempDir dir;
    writeImage(dir.file("in.tif"), noisyPhoto(300, 200), ImageFormat::Tiff);
    ASSERT_EQ(runMurmex({"profile", dir.file("in.tif"), "-o", dir.file("p.dnp"), "-q"}).status, 0);
    fs::create_directory(dir.file("small"));
    for (const char* name : {"out.tif", "out.png", "out.jpg"}) {
        SCOPED_TRACE(name);
        const std::string out = dir.file("small/") + name;
        const RunResult r = runShell(
            "unshare -rm sh -c \"mount -t tmpfs -o size=16k none " + quoted(dir.file("small")) +
                " || exit 99; exec " + quoted(MURMEX_CLI_PATH) + " denoise " + quoted(dir.file("in.tif")) +
                " --profile " + quoted(dir.file("p.dnp")) + " -o " + quoted(out) +
                " -q; \"",
            dir);
        if (r.status == 99)
            GTEST_SKIP() << "cannot mount a small file system here: " << r.err;
        expectFailureLine(r, "cannot write " + out + ": no space left on the device");
    }
}

TEST(CliImages, TiffWhoseDataLiesPastTheEndSaysTruncatedWithoutLibraryNumbers)
{
    TempDir dir;
    std::ofstream(dir.file("cut.tif"), std::ios::binary) << tiffWithStripAt(4000000000u, 3000);
    const RunResult r = runMurmex({"denoise", dir.file("cut.tif"), "-q"});
    expectFailureLine(r, "cannot read " + dir.file("cut.tif") + ": truncated file");
    size_t digits = 0, longest = 0;
    for (char c : r.err) {
        digits = std::isdigit(static_cast<unsigned char>(c)) ? digits + 1 : 0;
        longest = std::max(longest, digits);
    }
    EXPECT_LT(longest, 10u) << r.err;
}

TEST(CliImages, PrintResolutionSurvivesEveryPairOfFormats)
{
    TempDir dir;
    Image photo = noisyPhoto(120, 80);
    photo.resolution = {300, 300, murmex_app::Resolution::Inch};
    writeImage(dir.file("source.tif"), noisyPhoto(300, 200), ImageFormat::Tiff);
    ASSERT_EQ(runMurmex({"profile", dir.file("source.tif"), "-o", dir.file("p.dnp"), "-q"}).status, 0);
    const std::pair<const char*, ImageFormat> formats[] = {
        {"tif", ImageFormat::Tiff}, {"png", ImageFormat::Png}, {"jpg", ImageFormat::Jpeg}};
    for (const auto& [in, inFormat] : formats) {
        writeImage(dir.file(std::string("in.") + in), photo, inFormat);
        for (const auto& [out, outFormat] : formats) {
            SCOPED_TRACE(std::string(in) + " to " + out);
            const std::string output = dir.file(std::string("out-") + in + "." + out);
            const RunResult r = runMurmex({"denoise", dir.file(std::string("in.") + in), "--profile", dir.file("p.dnp"),
                                           "-o", output, "-q"});
            ASSERT_EQ(r.status, 0) << r.err;
            const murmex_app::Resolution res = readImage(output).resolution;
            // PNG keeps pixels per metre: 11811 per metre is 299.9994 per inch.
            const double perInch = res.unit == murmex_app::Resolution::Centimetre ? 2.54 : 1.0;
            EXPECT_NE(res.unit, murmex_app::Resolution::None);
            EXPECT_NEAR(res.x * perInch, 300.0, 0.01);
            EXPECT_NEAR(res.y * perInch, 300.0, 0.01);
        }
    }
}

int collectSample(void* context, int, int, const DnNoiseSample* sample)
{
    static_cast<std::vector<DnNoiseSample>*>(context)->push_back(*sample);
    return 0;
}

std::vector<DnNoiseSample> samplesOf(const std::string& bytes)
{
    std::vector<DnNoiseSample> samples;
    DnReadProfileSamples2(&samples, reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()),
                          collectSample);
    return samples;
}

TEST(CliImages, ProfileWithoutSamplesIsRefused)
{
    // A small noise-free scene has no patch to measure: its profile is empty.
    TempDir dir;
    writeImage(dir.file("clean.tif"), murmex_app::renderDemoScene(64, 64), ImageFormat::Tiff);
    ASSERT_EQ(runMurmex({"profile", dir.file("clean.tif"), "-o", dir.file("empty.dnp"), "-q"}).status, 0);
    ASSERT_TRUE(samplesOf(fileText(dir.file("empty.dnp"))).empty());
    writeImage(dir.file("in.tif"), noisyPhoto(120, 80), ImageFormat::Tiff);
    const RunResult r = runMurmex({"denoise", dir.file("in.tif"), "--profile", dir.file("empty.dnp"), "-q"});
    expectFailureLine(r, "cannot use profile " + dir.file("empty.dnp") + ": it holds no noise samples");
    EXPECT_FALSE(fs::exists(dir.file("in-denoised.tif")));
}

TEST(CliImages, ProfileWithImpossibleNoiseValuesIsRefused)
{
    TempDir dir;
    writeImage(dir.file("source.tif"), noisyPhoto(300, 200), ImageFormat::Tiff);
    ASSERT_EQ(runMurmex({"profile", dir.file("source.tif"), "-o", dir.file("p.dnp"), "-q"}).status, 0);
    const std::string bytes = fileText(dir.file("p.dnp"));
    const std::vector<DnNoiseSample> samples = samplesOf(bytes);
    ASSERT_FALSE(samples.empty());
    // The first sample's finest luminance noise, stored big-endian, replaced.
    uint32_t bits;
    std::memcpy(&bits, &samples[0].noiseY[0], 4);
    const std::string stored = {static_cast<char>(bits >> 24), static_cast<char>(bits >> 16),
                                static_cast<char>(bits >> 8), static_cast<char>(bits)};
    const size_t at = bytes.find(stored);
    ASSERT_NE(at, std::string::npos);
    ASSERT_EQ(bytes.find(stored, at + 1), std::string::npos);
    const std::pair<std::string, std::string> bad[] = {{std::string("\x7f\xc0\0\0", 4), "(nan)"},
                                                       {std::string("\x7f\x80\0\0", 4), "(inf)"},
                                                       {std::string("\x47\x00\0\0", 4), "(32768)"}};
    writeImage(dir.file("in.tif"), noisyPhoto(120, 80), ImageFormat::Tiff);
    for (const auto& [value, shown] : bad) {
        SCOPED_TRACE(shown);
        std::string changed = bytes;
        changed.replace(at, 4, value);
        std::ofstream(dir.file("bad.dnp"), std::ios::binary) << changed;
        ASSERT_EQ(samplesOf(changed).size(), samples.size());
        const RunResult r = runMurmex({"denoise", dir.file("in.tif"), "--profile", dir.file("bad.dnp"), "-q"});
        expectFailureLine(r, "cannot use profile " + dir.file("bad.dnp") + ": sample 1 holds an impossible noise value " +
                                 shown);
    }
}

TEST(CliImages, GreyPhotoWithAGreyProfileIsWrittenAsGreyToEveryFormat)
{
    TempDir dir;
    writeImage(dir.file("source.tif"), noisyPhoto(300, 200), ImageFormat::Tiff);
    ASSERT_EQ(runMurmex({"profile", dir.file("source.tif"), "-o", dir.file("p.dnp"), "-q"}).status, 0);
    // A 16-bit grey TIFF straight from libtiff, its ICC profile one for grey.
    const Image photo = noisyPhoto(160, 120);
    murmex_app_test::RawTiff t;
    t.width = 160;
    t.height = 120;
    t.spp = 1;
    t.photometric = PHOTOMETRIC_MINISBLACK;
    for (size_t i = 0; i < photo.rgbx.size(); i += 4)
        t.samples.push_back(photo.rgbx[i + 1]);
    ASSERT_TRUE(murmex_app_test::writeRawTiff(dir.file("grey.tif"), t));
    std::vector<uint8_t> greyIcc = murmex_app_test::testIccProfile();
    std::memcpy(&greyIcc[16], "GRAY", 4);
    TIFF* tif = TIFFOpen(dir.file("grey.tif").c_str(), "r+");
    ASSERT_NE(tif, nullptr);
    TIFFSetField(tif, TIFFTAG_ICCPROFILE, static_cast<uint32_t>(greyIcc.size()), greyIcc.data());
    TIFFRewriteDirectory(tif);
    TIFFClose(tif);
    for (const char* ext : {"tif", "png", "jpg"}) {
        SCOPED_TRACE(ext);
        const std::string out = dir.file(std::string("out.") + ext);
        const RunResult r = runMurmex({"denoise", dir.file("grey.tif"), "--profile", dir.file("p.dnp"), "-o", out, "-q"});
        ASSERT_EQ(r.status, 0) << r.err;
        const Image got = readImage(out);
        EXPECT_EQ(got.sourceChannels, 1);
        EXPECT_EQ(got.icc, greyIcc);
        EXPECT_EQ(got.width, 160);
    }
    // One channel on disk, marked grey.
    tif = TIFFOpen(dir.file("out.tif").c_str(), "r");
    ASSERT_NE(tif, nullptr);
    uint16_t spp = 0, photometric = 0;
    TIFFGetField(tif, TIFFTAG_SAMPLESPERPIXEL, &spp);
    TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &photometric);
    TIFFClose(tif);
    EXPECT_EQ(spp, 1);
    EXPECT_EQ(photometric, PHOTOMETRIC_MINISBLACK);
}

TEST(CliImages, CameraRawDngIsDenoisedIntoATiff)
{
    TempDir dir;
    writeImage(dir.file("source.tif"), noisyPhoto(300, 200), ImageFormat::Tiff);
    ASSERT_EQ(runMurmex({"profile", dir.file("source.tif"), "-o", dir.file("p.dnp"), "-q"}).status, 0);
    ASSERT_TRUE(murmex_app_test::writeTestDng(dir.file("photo.dng"), 96, 64, 20000));
    const RunResult r = runMurmex({"denoise", dir.file("photo.dng"), "--profile", dir.file("p.dnp"), "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    const Image out = readImage(dir.file("photo-denoised.tif"));
    EXPECT_EQ(out.width, readImage(dir.file("photo.dng")).width);
    EXPECT_EQ(out.bitsPerSample, 16);
}

}  // namespace
}  // namespace murmex_test
