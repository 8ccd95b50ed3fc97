// Whole-program tests of what the program does with hostile or unusual image
// files and with failing writes: the built murmex binary run as a user runs it.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "apps/cli_fixtures.h"
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

}  // namespace
}  // namespace murmex_test
