// Tests of reading the input on its own thread: rows asked for from several
// threads while the file still decodes are the rows readImage gives, and a
// read that fails wakes every waiting thread and reports the file's error.
#include "murmex/read_ahead.h"

#include <fstream>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "apps/app_fixtures.h"
#include "apps/cli_fixtures.h"
#include "murmex/app_error.h"
#include "murmex/image_io.h"
#include "support/temp_dir.h"

namespace {

using murmex_app::AppError;
using murmex_app::Image;
using murmex_app::ImageFormat;
using murmex_app::ImageReadAhead;
using murmex_app::readImage;
using murmex_app::readRgbx;
using murmex_app::writeImage;
using murmex_test::TempDir;
using namespace murmex_app_test;

// Row y of image as RGBX, the way the library's callback takes it.
std::vector<uint16_t> rgbxRow(const Image& image, int y)
{
    std::vector<uint16_t> row(static_cast<size_t>(image.width) * 4);
    readRgbx(image, y, 0, image.width - 1, row.data());
    return row;
}

// Two threads read every row, top to bottom, while the image decodes.
std::vector<std::vector<uint16_t>> readWhileDecoding(Image& image)
{
    std::vector<std::vector<uint16_t>> rows(static_cast<size_t>(image.height));
    std::vector<std::thread> readers;
    for (int part = 0; part < 2; ++part)
        readers.emplace_back([&, part] {
            for (int y = part; y < image.height; y += 2)
                rows[static_cast<size_t>(y)] = rgbxRow(image, y);
        });
    for (std::thread& t : readers)
        t.join();
    return rows;
}

void corruptMiddle(const std::string& path)
{
    std::fstream f(path, std::ios::in | std::ios::out | std::ios::binary);
    f.seekg(0, std::ios::end);
    const std::streamoff size = f.tellg();
    f.seekp(size / 2);
    const std::string junk(static_cast<size_t>(size / 8), '\xff');
    f.write(junk.data(), static_cast<std::streamsize>(junk.size()));
}

TEST(ImageReadAheadThreadTest, RowsReadWhileTheFileDecodesAreTheFilesRows)
{
    TempDir dir;
    for (const char* name : {"in.tif", "in.png", "in.jpg"}) {
        const std::string path = dir.file(name);
        writeImage(path, randomImage(301, 257, 4, 9), murmex_app::formatForPath(path));
        const Image whole = readImage(path, {}, Image::Layout::Source);
        ImageReadAhead reading(path, {});
        Image& image = reading.image();
        ASSERT_EQ(image.width, whole.width);
        ASSERT_EQ(image.height, whole.height);
        const std::vector<std::vector<uint16_t>> rows = readWhileDecoding(image);
        const Image& done = reading.finish();
        EXPECT_EQ(done.samples, whole.samples) << name;
        for (int y = 0; y < whole.height; ++y)
            ASSERT_EQ(rows[static_cast<size_t>(y)], rgbxRow(whole, y)) << name << " row " << y;
    }
}

TEST(ImageReadAheadThreadTest, AReadThatFailsWakesTheWaitingThreadsAndReportsTheFilesError)
{
    TempDir dir;
    const std::string path = dir.file("damaged.tif");
    writeImage(path, randomImage(400, 300, 3, 5), ImageFormat::Tiff);
    corruptMiddle(path);
    ImageReadAhead reading(path, {});
    Image& image = reading.image();
    readWhileDecoding(image);  // returns: rows past the damage come as zeros
    try {
        reading.finish();
        ADD_FAILURE() << "no error";
    } catch (const AppError& e) {
        EXPECT_EQ(std::string(e.what()), "cannot read " + path + ": damaged file (the image data does not decode)");
    }
}

TEST(ImageReadAheadThreadTest, StoppingEndsTheDecodingAtTheNextRow)
{
    TempDir dir;
    for (const char* name : {"big.tif", "big.png", "big.jpg"}) {
        const std::string path = dir.file(name);
        writeImage(path, randomImage(3000, 2000, 3, 4), murmex_app::formatForPath(path));
        ImageReadAhead reading(path, {});
        const int height = reading.image().height;
        reading.stop();
        const int rows = reading.rowsRead();
        EXPECT_LT(rows, height) << name << ": the whole file was decoded";
        reading.stop();  // once stopped, again does nothing
        EXPECT_EQ(reading.rowsRead(), rows) << name;
    }
}

TEST(ImageReadAheadThreadTest, TheProgramStopsOnAnInputThatFailsHalfWayAndWritesNothing)
{
    TempDir dir;
    const std::string profile = murmex_test::makeProfile(dir, "p.dnp", 300, 200);
    writeImage(dir.file("damaged.tif"), murmex_test::noisyPhoto(1200, 800), ImageFormat::Tiff);
    corruptMiddle(dir.file("damaged.tif"));
    const std::vector<std::string> before = murmex_test::listDir(dir.path());
    const murmex_test::RunResult r = murmex_test::runMurmex(
        {"denoise", dir.file("damaged.tif"), "--profile", profile, "-o", dir.file("out.tif"), "-q"});
    EXPECT_EQ(r.status, 1);
    murmex_test::expectOneLineError(r, "cannot read " + dir.file("damaged.tif") +
                                           ": damaged file (the image data does not decode)");
    EXPECT_EQ(murmex_test::listDir(dir.path()), before);
}

}  // namespace
