// Whole-program tests of the output written while the library works: the
// file holds exactly the library's result for the whole image in memory,
// however many strips the library cuts the image into and however many
// workers put their rows.
#include <cstring>
#include <random>

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

struct InMemory {
    const Image* in;
    std::vector<uint16_t> out;
};

void getRow(void* context, int y, int x0, int x1, unsigned short* pixels)
{
    const InMemory* m = static_cast<const InMemory*>(context);
    std::memcpy(pixels, m->in->rgbx.data() + (static_cast<size_t>(y) * m->in->width + x0) * 4,
                static_cast<size_t>(x1 - x0 + 1) * 4 * sizeof(uint16_t));
}

void putRow(void* context, int y, int x0, int x1, unsigned short* pixels)
{
    InMemory* m = static_cast<InMemory*>(context);
    std::memcpy(m->out.data() + (static_cast<size_t>(y) * m->in->width + x0) * 4, pixels,
                static_cast<size_t>(x1 - x0 + 1) * 4 * sizeof(uint16_t));
}

// The library's RGBX result for `in`, held whole in memory, with the
// settings stored in the profile file, as `murmex denoise --profile` uses
// them.
std::vector<uint16_t> libraryResult(const Image& in, const std::string& profile, int threads, int stripWidth)
{
    unsigned char* data = nullptr;
    int length = 0;
    DnFilterParams params{};
    EXPECT_EQ(DnReadProfile(profile.c_str(), &data, &length, &params), 0);
    DnFreeMemory(data);
    params.profilePath = profile.c_str();
    params.buildProfile = 0;
    params.saveProfile = 0;
    params.threads = threads;
    params.turbo = 0;
    params.background = 0;
    params.width = in.width;
    params.height = in.height;
    InMemory m{&in, std::vector<uint16_t>(in.rgbx.size(), 0)};
    DnSetStripWidth(stripWidth);
    EXPECT_EQ(DnRemoveNoise2(&m, &params, 0, 0, in.width, in.height, nullptr, 0, getRow, putRow, nullptr), 0);
    DnSetStripWidth(3400);
    return m.out;
}

// The demo photo as grey with alpha (R of the photo, a random alpha).
Image greyWithAlpha(int width, int height)
{
    Image im = noisyPhoto(width, height);
    im.sourceChannels = 2;
    std::mt19937 rng(3);
    im.alpha.resize(static_cast<size_t>(width) * height);
    for (size_t i = 0; i < im.alpha.size(); ++i) {
        im.rgbx[i * 4 + 1] = im.rgbx[i * 4 + 2] = im.rgbx[i * 4];
        im.alpha[i] = static_cast<uint16_t>(rng() & 0xffff);
    }
    return im;
}

// The written file against the library's result: grey is the rounded mean
// of R, G and B, alpha the input's.
void expectFileHoldsTheResult(const std::string& path, const Image& in, const std::vector<uint16_t>& result)
{
    const Image out = readImage(path);
    ASSERT_EQ(out.width, in.width);
    ASSERT_EQ(out.height, in.height);
    const bool grey = in.sourceChannels <= 2;
    size_t wrong = 0;
    for (size_t i = 0; i < static_cast<size_t>(in.width) * in.height; ++i)
        for (int c = 0; c < 3; ++c) {
            const uint32_t r = result[i * 4], g = result[i * 4 + 1], b = result[i * 4 + 2];
            const uint16_t expected = grey ? static_cast<uint16_t>((r + g + b + 1) / 3) : result[i * 4 + c];
            wrong += out.rgbx[i * 4 + c] != expected;
        }
    EXPECT_EQ(wrong, 0u) << path;
    EXPECT_EQ(out.alpha, in.alpha) << path;
}

TEST(CliStreamThreadTest, OutputsWrittenWhileTheLibraryWorksHoldItsWholeResult)
{
    TempDir dir;
    const std::string profile = makeProfile(dir);
    const Image rgb = noisyPhoto(360, 120);
    const Image grey = greyWithAlpha(360, 120);
    writeImage(dir.file("rgb.tif"), rgb, ImageFormat::Tiff);
    writeImage(dir.file("grey.tif"), grey, ImageFormat::Tiff);
    // 360 columns in strips of at most 100: four strips, so every row
    // arrives in four pieces; and in one strip.
    for (int stripWidth : {100, 3400})
        for (int threads : {0, 2}) {
            const std::string options = std::to_string(stripWidth) + " " + std::to_string(threads);
            for (const auto& [name, in] : {std::pair<std::string, const Image&>{"rgb", rgb}, {"grey", grey}}) {
                const std::vector<uint16_t> result = libraryResult(readImage(dir.file(name + ".tif")), profile, threads,
                                                                   stripWidth);
                for (const char* ext : {".tif", ".png"}) {
                    const std::string out = dir.file(name + "-out" + ext);
                    const RunResult r = runMurmex({"denoise", dir.file(name + ".tif"), "--profile", profile, "-o", out,
                                                   "-j", std::to_string(threads), "--strip-width",
                                                   std::to_string(stripWidth), "-q"});
                    ASSERT_EQ(r.status, 0) << options << "\n" << r.err;
                    expectFileHoldsTheResult(out, in, result);
                }
            }
        }
}

}  // namespace
}  // namespace murmex_test
