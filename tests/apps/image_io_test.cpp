// Tests of the application's image files: reading by content, the sample
// scaling of every source layout, lossless 16-bit round trips, alpha and
// ICC profiles carried through, and one-line errors for bad files.

#include "murmex/image_io.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <png.h>
#include <zlib.h>

#include <gtest/gtest.h>

#include "murmex/app_error.h"
#include "murmex/image_formats.h"
#include "apps/app_fixtures.h"
#include "support/temp_dir.h"

using murmex_app::AppError;
using murmex_app::Image;
using murmex_app::ImageFormat;
using murmex_app::formatForPath;
using murmex_app::readImage;
using murmex_app::writeImage;
using murmex_test::TempDir;
using namespace murmex_app_test;

namespace {

void expectSameSamples(const Image& expected, const Image& got)
{
    ASSERT_EQ(got.width, expected.width);
    ASSERT_EQ(got.height, expected.height);
    ASSERT_EQ(got.rgbx.size(), expected.rgbx.size());
    size_t mismatches = 0;
    for (size_t i = 0; i < expected.rgbx.size(); ++i)
        mismatches += got.rgbx[i] != expected.rgbx[i];
    EXPECT_EQ(mismatches, 0u);
    EXPECT_EQ(got.alpha, expected.alpha);
}

void writeBytes(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string fileBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The message of the AppError that f throws; a failure when none is thrown.
template <typename F>
std::string appErrorOf(F f)
{
    try {
        f();
    } catch (const AppError& e) {
        return e.what();
    }
    ADD_FAILURE() << "no AppError";
    return {};
}

}  // namespace

TEST(FormatForPathTest, ExtensionsChooseTheFormatWhateverTheirCase)
{
    EXPECT_EQ(formatForPath("a.tif"), ImageFormat::Tiff);
    EXPECT_EQ(formatForPath("dir.x/a.TIFF"), ImageFormat::Tiff);
    EXPECT_EQ(formatForPath("a.Png"), ImageFormat::Png);
    EXPECT_EQ(formatForPath("/p/a.JPG"), ImageFormat::Jpeg);
    EXPECT_EQ(formatForPath("a.jpeg"), ImageFormat::Jpeg);
}

TEST(FormatForPathTest, UnknownExtensionIsAnErrorNamingTheFile)
{
    EXPECT_NE(appErrorOf([] { formatForPath("out.bmp"); }).find("out.bmp"), std::string::npos);
    EXPECT_THROW(formatForPath("dir.tif/name"), AppError);
    EXPECT_THROW(formatForPath("noext"), AppError);
}

TEST(ImageIoTest, Tiff16RoundTripKeepsSizeDepthAndEverySample)
{
    TempDir dir;
    const Image im = randomImage(37, 23, 3, 1);
    writeImage(dir.file("a.tif"), im, ImageFormat::Tiff);
    const Image back = readImage(dir.file("a.tif"));
    EXPECT_EQ(back.bitsPerSample, 16);
    EXPECT_EQ(back.sourceChannels, 3);
    EXPECT_TRUE(back.icc.empty());
    expectSameSamples(im, back);
}

TEST(ImageIoTest, DeflateTiffStripsOfOneAndSeveralRowsAnOddNumberOfThemRoundTrip)
{
    TempDir dir;
    // Strips of as many rows as fit in 256 kB, one row when a row is larger,
    // the last strip shorter: RGBA rows of 8000 bytes (32 a strip), RGB rows
    // of 3000 bytes (87), grey with alpha in 3996 bytes (65, more than the
    // image has), RGB rows of 300 kB (1). Deflate-compressed with
    // differencing, every sample read back.
    struct Case {
        int width, height, channels;
        uint32_t rowsPerStrip, strips;
    };
    for (const Case& c : {Case{1000, 70, 4, 32, 3}, Case{500, 200, 3, 87, 3}, Case{999, 7, 2, 7, 1},
                          Case{50000, 3, 3, 1, 3}}) {
        SCOPED_TRACE(c.width);
        const Image im = randomImage(c.width, c.height, c.channels, 9);
        writeImage(dir.file("s.tif"), im, ImageFormat::Tiff);
        expectSameSamples(im, readImage(dir.file("s.tif")));
        TIFF* tif = TIFFOpen(dir.file("s.tif").c_str(), "r");
        ASSERT_NE(tif, nullptr);
        uint16_t compression = 0, predictor = 0;
        uint32_t rowsPerStrip = 0;
        TIFFGetField(tif, TIFFTAG_COMPRESSION, &compression);
        TIFFGetField(tif, TIFFTAG_PREDICTOR, &predictor);
        TIFFGetField(tif, TIFFTAG_ROWSPERSTRIP, &rowsPerStrip);
        EXPECT_EQ(compression, COMPRESSION_ADOBE_DEFLATE);
        EXPECT_EQ(predictor, PREDICTOR_HORIZONTAL);
        EXPECT_EQ(rowsPerStrip, c.rowsPerStrip);
        EXPECT_EQ(TIFFNumberOfStrips(tif), c.strips);
        TIFFClose(tif);
    }
}

TEST(ImageIoTest, TiffStripsOfEverySizeReadWhole)
{
    TempDir dir;
    // Deflate with differencing in strips of 4 rows, the last of 2; and a
    // strip larger than the reader takes whole (5 MB), read row by row.
    struct Case {
        int width, height, bps;
        uint32_t rowsPerStrip;
    };
    for (const Case& c : {Case{37, 10, 16, 4}, Case{37, 10, 8, 4}, Case{2000, 440, 16, 440}}) {
        SCOPED_TRACE(std::to_string(c.width) + " x " + std::to_string(c.height) + ", " + std::to_string(c.bps) + " bits");
        RawTiff t;
        t.width = c.width;
        t.height = c.height;
        t.bps = c.bps;
        t.rowsPerStrip = c.rowsPerStrip;
        t.compression = COMPRESSION_ADOBE_DEFLATE;
        t.predictor = PREDICTOR_HORIZONTAL;
        const Image ref = randomImage(c.width, c.height, 3, 4);
        for (size_t p = 0; p < static_cast<size_t>(c.width) * c.height; ++p)
            for (int ch = 0; ch < 3; ++ch)
                t.samples.push_back(c.bps == 8 ? static_cast<uint16_t>(ref.rgbx[p * 4 + ch] >> 8) : ref.rgbx[p * 4 + ch]);
        const std::string path = dir.file("strips.tif");
        ASSERT_TRUE(writeRawTiff(path, t));
        const Image im = readImage(path);
        ASSERT_EQ(im.rgbx.size(), ref.rgbx.size());
        for (size_t i = 0; i < ref.rgbx.size(); ++i) {
            const uint16_t want = i % 4 == 3 ? 65535
                                  : c.bps == 8 ? static_cast<uint16_t>((ref.rgbx[i] >> 8) * 257)
                                               : ref.rgbx[i];
            ASSERT_EQ(im.rgbx[i], want) << "sample " << i;
        }
    }
}

TEST(ImageIoTest, Png16RoundTripKeepsSizeDepthAndEverySample)
{
    TempDir dir;
    const Image im = randomImage(41, 19, 3, 2);
    writeImage(dir.file("a.png"), im, ImageFormat::Png);
    const Image back = readImage(dir.file("a.png"));
    EXPECT_EQ(back.bitsPerSample, 16);
    EXPECT_EQ(back.sourceChannels, 3);
    expectSameSamples(im, back);
}

// The rows are compressed in parts of a few rows each, two parts at a time:
// one part, parts in pairs, a lone part at the end, and every layout of
// channels come back sample for sample.
TEST(ImageIoTest, PngRoundTripKeepsEverySampleWhateverTheNumberOfCompressedParts)
{
    TempDir dir;
    uint32_t seed = 20;
    for (int height : {1, 15, 16, 17, 32, 33, 53, 64})
        for (int channels : {1, 2, 3, 4}) {
            const Image im = randomImage(23, height, channels, ++seed);
            writeImage(dir.file("parts.png"), im, ImageFormat::Png);
            const Image back = readImage(dir.file("parts.png"));
            SCOPED_TRACE(testing::Message() << height << " rows, " << channels << " channels");
            EXPECT_EQ(back.sourceChannels, channels);
            expectSameSamples(im, back);
        }
}

// A PNG of many parts, compressed on the writing thread and its helper
// (run under ThreadSanitizer with the threaded tests).
TEST(ImageIoThreadTest, PngCompressedOnTwoThreadsReadsBackWhole)
{
    TempDir dir;
    const Image im = randomImage(300, 200, 4, 31);
    writeImage(dir.file("two.png"), im, ImageFormat::Png);
    expectSameSamples(im, readImage(dir.file("two.png")));
}

TEST(ImageIoTest, EveryFormatReportsEachRowWrittenUpToTheWhole)
{
    TempDir dir;
    const Image im = randomImage(37, 23, 3, 8);
    for (const char* name : {"p.tif", "p.png", "p.jpg"}) {
        std::vector<float> reported;
        murmex_app::WriteOptions options;
        options.progress = [&](float done) { reported.push_back(done); };
        writeImage(dir.file(name), im, formatForPath(name), options);
        ASSERT_EQ(reported.size(), 23u) << name;
        EXPECT_EQ(reported.front(), 1.0f / 23.0f) << name;
        EXPECT_TRUE(std::is_sorted(reported.begin(), reported.end())) << name;
        EXPECT_EQ(reported.back(), 1.0f) << name;
    }
}

TEST(ImageIoTest, AlphaIsPreservedThroughTiffAndPng)
{
    TempDir dir;
    const Image im = randomImage(20, 17, 4, 3);
    writeImage(dir.file("a.tif"), im, ImageFormat::Tiff);
    writeImage(dir.file("a.png"), im, ImageFormat::Png);
    for (const char* name : {"a.tif", "a.png"}) {
        SCOPED_TRACE(name);
        const Image back = readImage(dir.file(name));
        EXPECT_EQ(back.sourceChannels, 4);
        ASSERT_EQ(back.alpha.size(), 20u * 17u);
        expectSameSamples(im, back);
    }
}

TEST(ImageIoTest, ReadingIsByContentNotByName)
{
    TempDir dir;
    const Image im = randomImage(9, 7, 3, 4);
    writeImage(dir.file("really_png.tif"), im, ImageFormat::Png);
    expectSameSamples(im, readImage(dir.file("really_png.tif")));
}

TEST(ImageIoTest, SixteenBitPngIsBigEndianOnDisk)
{
    TempDir dir;
    // One row of two RGB pixels, the bytes as the file holds them.
    const std::vector<std::vector<uint8_t>> rows = {{0x12, 0x34, 0x00, 0xff, 0xff, 0x00, 0x01, 0x02, 0x80, 0x00, 0x00, 0x01}};
    ASSERT_TRUE(writeRawPng(dir.file("be.png"), 2, 1, PNG_COLOR_TYPE_RGB, 16, rows));
    const Image im = readImage(dir.file("be.png"));
    const std::vector<uint16_t> expected = {0x1234, 0x00ff, 0xff00, 65535, 0x0102, 0x8000, 0x0001, 65535};
    EXPECT_EQ(im.rgbx, expected);
    EXPECT_EQ(im.bitsPerSample, 16);
}

TEST(ImageIoTest, WrittenPngHoldsBigEndianSamples)
{
    TempDir dir;
    Image im = randomImage(1, 1, 3, 5);
    im.rgbx = {0x1234, 0xabcd, 0x0001, 65535};
    writeImage(dir.file("w.png"), im, ImageFormat::Png);
    // Decode with libpng untransformed: the row bytes are the file's own.
    FILE* f = std::fopen(dir.file("w.png").c_str(), "rb");
    ASSERT_NE(f, nullptr);
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, f);
    png_read_info(png, info);
    EXPECT_EQ(png_get_bit_depth(png, info), 16);
    EXPECT_EQ(png_get_color_type(png, info), PNG_COLOR_TYPE_RGB);
    std::vector<uint8_t> row(png_get_rowbytes(png, info));
    png_read_row(png, row.data(), nullptr);
    png_destroy_read_struct(&png, &info, nullptr);
    std::fclose(f);
    const std::vector<uint8_t> expected = {0x12, 0x34, 0xab, 0xcd, 0x00, 0x01};
    EXPECT_EQ(row, expected);
}

// Every row of a written PNG is stored with the Sub filter: each byte less
// the byte one pixel to its left.
TEST(ImageIoTest, WrittenPngRowsAreDifferencedFromTheLeft)
{
    TempDir dir;
    const Image im = randomImage(7, 5, 3, 11);
    writeImage(dir.file("s.png"), im, ImageFormat::Png);
    std::ifstream in(dir.file("s.png"), std::ios::binary);
    const std::string file((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::string compressed;
    for (size_t at = 8; at + 12 <= file.size();) {
        const auto byte = [&](size_t i) { return static_cast<uint32_t>(static_cast<uint8_t>(file[i])); };
        const uint32_t length = byte(at) << 24 | byte(at + 1) << 16 | byte(at + 2) << 8 | byte(at + 3);
        if (file.compare(at + 4, 4, "IDAT") == 0)
            compressed += file.substr(at + 8, length);
        at += 12 + length;
    }
    const size_t rowBytes = 1 + 7 * 3 * 2;
    std::vector<uint8_t> rows(5 * rowBytes);
    uLongf size = rows.size();
    ASSERT_EQ(uncompress(rows.data(), &size, reinterpret_cast<const Bytef*>(compressed.data()), compressed.size()), Z_OK);
    ASSERT_EQ(size, rows.size());
    for (size_t y = 0; y < 5; ++y) {
        const uint8_t* row = rows.data() + y * rowBytes;
        EXPECT_EQ(row[0], PNG_FILTER_VALUE_SUB) << "row " << y;
        for (size_t x = 0; x < 7; ++x)
            for (size_t c = 0; c < 3; ++c) {
                // Bytes, not samples, are differenced: no borrow from the
                // low byte reaches the high one.
                const auto byteOf = [&](size_t px, int shift) {
                    return static_cast<uint8_t>(im.rgbx[(y * 7 + px) * 4 + c] >> shift);
                };
                const uint8_t* p = row + 1 + (x * 3 + c) * 2;
                for (int k = 0; k < 2; ++k) {
                    const int shift = 8 - 8 * k;
                    const uint8_t want = static_cast<uint8_t>(byteOf(x, shift) - (x > 0 ? byteOf(x - 1, shift) : 0));
                    EXPECT_EQ(p[k], want) << "pixel " << x << ", channel " << c << " of row " << y;
                }
            }
    }
}

TEST(ImageIoTest, EightBitTiffScalesBy257)
{
    TempDir dir;
    RawTiff t;
    t.width = 3;
    t.height = 2;
    t.bps = 8;
    t.samples = {0, 1, 2, 3, 4, 5, 6, 7, 8, 100, 200, 255, 254, 253, 252, 128, 127, 126};
    ASSERT_TRUE(writeRawTiff(dir.file("e.tif"), t));
    const Image im = readImage(dir.file("e.tif"));
    EXPECT_EQ(im.bitsPerSample, 8);
    EXPECT_EQ(im.sourceChannels, 3);
    ASSERT_EQ(im.rgbx.size(), 24u);
    for (size_t p = 0; p < 6; ++p)
        for (size_t c = 0; c < 3; ++c)
            EXPECT_EQ(im.rgbx[p * 4 + c], t.samples[p * 3 + c] * 257);
    EXPECT_EQ(im.rgbx[3], 65535);
}

TEST(ImageIoTest, EightBitPngScalesBy257)
{
    TempDir dir;
    const std::vector<std::vector<uint8_t>> rows = {{0, 1, 255, 128, 64, 32}};
    ASSERT_TRUE(writeRawPng(dir.file("e.png"), 2, 1, PNG_COLOR_TYPE_RGB, 8, rows));
    const Image im = readImage(dir.file("e.png"));
    EXPECT_EQ(im.bitsPerSample, 8);
    const std::vector<uint16_t> expected = {0, 257, 65535, 65535, 128 * 257, 64 * 257, 32 * 257, 65535};
    EXPECT_EQ(im.rgbx, expected);
}

TEST(ImageIoTest, GreyTiffBecomesEqualRgb)
{
    TempDir dir;
    RawTiff t;
    t.width = 4;
    t.height = 1;
    t.spp = 1;
    t.photometric = PHOTOMETRIC_MINISBLACK;
    t.samples = {0, 1000, 40000, 65535};
    ASSERT_TRUE(writeRawTiff(dir.file("g.tif"), t));
    const Image im = readImage(dir.file("g.tif"));
    EXPECT_EQ(im.sourceChannels, 1);
    EXPECT_EQ(im.bitsPerSample, 16);
    for (size_t p = 0; p < 4; ++p)
        for (size_t c = 0; c < 3; ++c)
            EXPECT_EQ(im.rgbx[p * 4 + c], t.samples[p]);
    EXPECT_TRUE(im.alpha.empty());
}

TEST(ImageIoTest, MinIsWhiteGreyTiffIsInverted)
{
    TempDir dir;
    RawTiff t;
    t.width = 2;
    t.height = 1;
    t.spp = 1;
    t.bps = 8;
    t.photometric = PHOTOMETRIC_MINISWHITE;
    t.samples = {0, 55};
    ASSERT_TRUE(writeRawTiff(dir.file("w.tif"), t));
    const Image im = readImage(dir.file("w.tif"));
    EXPECT_EQ(im.rgbx[0], 65535);
    EXPECT_EQ(im.rgbx[4], 65535 - 55 * 257);
}

TEST(ImageIoTest, GreyPngWithAlphaKeepsAlpha)
{
    TempDir dir;
    // 16-bit grey + alpha, big-endian on disk.
    const std::vector<std::vector<uint8_t>> rows = {{0x10, 0x00, 0xff, 0xff, 0x00, 0x20, 0x00, 0x07}};
    ASSERT_TRUE(writeRawPng(dir.file("ga.png"), 2, 1, PNG_COLOR_TYPE_GRAY_ALPHA, 16, rows));
    const Image im = readImage(dir.file("ga.png"));
    EXPECT_EQ(im.sourceChannels, 2);
    const std::vector<uint16_t> rgbx = {0x1000, 0x1000, 0x1000, 65535, 0x0020, 0x0020, 0x0020, 65535};
    const std::vector<uint16_t> alpha = {0xffff, 0x0007};
    EXPECT_EQ(im.rgbx, rgbx);
    EXPECT_EQ(im.alpha, alpha);
}

TEST(ImageIoTest, GreyPngBelowEightBitsBecomesEqualRgb)
{
    TempDir dir;
    // 4-bit grey: values 0x0 and 0xf, expanded to 8 bits as 0 and 255.
    const std::vector<std::vector<uint8_t>> rows = {{0x0f}};
    ASSERT_TRUE(writeRawPng(dir.file("g4.png"), 2, 1, PNG_COLOR_TYPE_GRAY, 4, rows));
    const Image im = readImage(dir.file("g4.png"));
    EXPECT_EQ(im.sourceChannels, 1);
    EXPECT_EQ(im.bitsPerSample, 8);
    const std::vector<uint16_t> expected = {0, 0, 0, 65535, 65535, 65535, 65535, 65535};
    EXPECT_EQ(im.rgbx, expected);
}

TEST(ImageIoTest, PalettePngBecomesRgbAndItsTransparencyAlpha)
{
    TempDir dir;
    const std::vector<png_color> palette = {{10, 20, 30}, {200, 100, 50}};
    const std::vector<uint8_t> paletteAlpha = {255, 9};
    const std::vector<std::vector<uint8_t>> rows = {{1, 0, 1}};
    ASSERT_TRUE(writeRawPng(dir.file("p.png"), 3, 1, PNG_COLOR_TYPE_PALETTE, 8, rows, palette, paletteAlpha));
    const Image im = readImage(dir.file("p.png"));
    EXPECT_EQ(im.sourceChannels, 4);
    const std::vector<uint16_t> rgbx = {200 * 257, 100 * 257, 50 * 257, 65535, 10 * 257, 20 * 257, 30 * 257, 65535,
                                        200 * 257, 100 * 257, 50 * 257, 65535};
    const std::vector<uint16_t> alpha = {9 * 257, 65535, 9 * 257};
    EXPECT_EQ(im.rgbx, rgbx);
    EXPECT_EQ(im.alpha, alpha);
}

TEST(ImageIoTest, TiffInSeparatePlanesAndTilesReadsLikeContiguousStrips)
{
    TempDir dir;
    const Image ref = randomImage(37, 21, 4, 6);
    RawTiff base;
    base.width = 37;
    base.height = 21;
    base.spp = 4;
    base.alphaExtra = true;
    for (size_t p = 0; p < ref.alpha.size(); ++p) {
        for (int c = 0; c < 3; ++c)
            base.samples.push_back(ref.rgbx[p * 4 + c]);
        base.samples.push_back(ref.alpha[p]);
    }
    int n = 0;
    for (bool separate : {false, true})
        for (bool tiled : {false, true}) {
            SCOPED_TRACE(std::string(separate ? "separate" : "contiguous") + (tiled ? " tiles" : " strips"));
            RawTiff t = base;
            t.separate = separate;
            t.tiled = tiled;
            const std::string path = dir.file(std::to_string(n++).append(".tif"));
            ASSERT_TRUE(writeRawTiff(path, t));
            const Image im = readImage(path);
            EXPECT_EQ(im.sourceChannels, 4);
            EXPECT_EQ(im.bitsPerSample, 16);
            expectSameSamples(ref, im);
        }
}

TEST(ImageIoTest, EightBitTiledSeparateTiffScalesBy257)
{
    TempDir dir;
    RawTiff t;
    t.width = 18;
    t.height = 17;
    t.bps = 8;
    t.separate = true;
    t.tiled = true;
    for (int i = 0; i < 18 * 17 * 3; ++i)
        t.samples.push_back(static_cast<uint16_t>((i * 7) % 256));
    ASSERT_TRUE(writeRawTiff(dir.file("t.tif"), t));
    const Image im = readImage(dir.file("t.tif"));
    EXPECT_EQ(im.bitsPerSample, 8);
    for (size_t p = 0; p < 18u * 17u; ++p)
        for (size_t c = 0; c < 3; ++c)
            ASSERT_EQ(im.rgbx[p * 4 + c], t.samples[p * 3 + c] * 257) << p << " " << c;
}

TEST(ImageIoTest, PaletteTiffIsConvertedToRgb)
{
    TempDir dir;
    RawTiff t;
    t.width = 3;
    t.height = 2;
    t.spp = 1;
    t.bps = 8;
    t.photometric = PHOTOMETRIC_PALETTE;
    t.samples = {0, 1, 2, 2, 1, 0};
    // 16-bit colour map entries; entry i is (i * 0x1100 + 0x100) and so on,
    // whose top bytes are what an 8-bit conversion keeps.
    t.colormap.assign(3 * 256, 0);
    const uint8_t r[3] = {0x10, 0x80, 0xff}, g[3] = {0x20, 0x00, 0x40}, b[3] = {0x30, 0x7f, 0x01};
    for (int i = 0; i < 3; ++i) {
        t.colormap[i] = static_cast<uint16_t>(r[i] * 257);
        t.colormap[256 + i] = static_cast<uint16_t>(g[i] * 257);
        t.colormap[512 + i] = static_cast<uint16_t>(b[i] * 257);
    }
    ASSERT_TRUE(writeRawTiff(dir.file("p.tif"), t));
    const Image im = readImage(dir.file("p.tif"));
    EXPECT_EQ(im.sourceChannels, 3);
    EXPECT_EQ(im.bitsPerSample, 8);
    for (size_t p = 0; p < 6; ++p) {
        const int i = t.samples[p];
        EXPECT_EQ(im.rgbx[p * 4 + 0], r[i] * 257);
        EXPECT_EQ(im.rgbx[p * 4 + 1], g[i] * 257);
        EXPECT_EQ(im.rgbx[p * 4 + 2], b[i] * 257);
    }
}

TEST(ImageIoTest, JpegRoundTripIsClose)
{
    TempDir dir;
    const Image im = smoothImage(64, 48);
    writeImage(dir.file("a.jpg"), im, ImageFormat::Jpeg, 95);
    const Image back = readImage(dir.file("a.jpg"));
    EXPECT_EQ(back.width, 64);
    EXPECT_EQ(back.height, 48);
    EXPECT_EQ(back.bitsPerSample, 8);
    EXPECT_EQ(back.sourceChannels, 3);
    // 8-bit quantisation alone costs about 59 dB; the encoder at 95 keeps
    // smooth content well above 40 dB.
    EXPECT_GT(psnr(im, back), 40.0);
    for (size_t i = 0; i < back.rgbx.size(); ++i) {
        if (i % 4 != 3) {
            ASSERT_EQ(back.rgbx[i] % 257, 0) << "8-bit samples scale by 257";
        }
    }
}

TEST(ImageIoTest, LowerJpegQualityLosesMore)
{
    TempDir dir;
    const Image im = randomImage(32, 32, 3, 7);
    writeImage(dir.file("hi.jpg"), im, ImageFormat::Jpeg, 98);
    writeImage(dir.file("lo.jpg"), im, ImageFormat::Jpeg, 10);
    EXPECT_GT(psnr(im, readImage(dir.file("hi.jpg"))), psnr(im, readImage(dir.file("lo.jpg"))));
}

TEST(ImageIoTest, GreyJpegBecomesEqualRgb)
{
    TempDir dir;
    std::vector<uint8_t> grey(16 * 8);
    for (size_t i = 0; i < grey.size(); ++i)
        grey[i] = static_cast<uint8_t>(i * 2);
    ASSERT_TRUE(writeRawJpeg(dir.file("g.jpg"), 16, 8, 1, grey));
    const Image im = readImage(dir.file("g.jpg"));
    EXPECT_EQ(im.sourceChannels, 1);
    EXPECT_EQ(im.bitsPerSample, 8);
    for (size_t p = 0; p < grey.size(); ++p) {
        EXPECT_EQ(im.rgbx[p * 4 + 0], im.rgbx[p * 4 + 1]);
        EXPECT_EQ(im.rgbx[p * 4 + 0], im.rgbx[p * 4 + 2]);
        // Quality 100 grey: within a step or two of the source.
        EXPECT_NEAR(im.rgbx[p * 4 + 0] / 257, grey[p], 2);
    }
}

// Writes `im` with an ICC profile as a.EXT, reads it, writes what was read as
// b.EXT and reads that: the profile must come back unchanged both times.
static void expectIccSurvivesTwoRoundTrips(Image im, ImageFormat format, const char* ext)
{
    TempDir dir;
    im.icc = testIccProfile();
    const std::string a = dir.file(std::string("a.") + ext), b = dir.file(std::string("b.") + ext);
    writeImage(a, im, format);
    const Image once = readImage(a);
    EXPECT_EQ(once.icc, im.icc);
    writeImage(b, once, format);
    EXPECT_EQ(readImage(b).icc, im.icc);
}

TEST(ImageIoTest, IccSurvivesTiffToTiff)
{
    expectIccSurvivesTwoRoundTrips(randomImage(8, 8, 3, 8), ImageFormat::Tiff, "tif");
}

TEST(ImageIoTest, IccSurvivesPngToPng)
{
    expectIccSurvivesTwoRoundTrips(randomImage(8, 8, 3, 9), ImageFormat::Png, "png");
}

TEST(ImageIoTest, IccSurvivesJpegToJpeg)
{
    expectIccSurvivesTwoRoundTrips(smoothImage(16, 16), ImageFormat::Jpeg, "jpg");
}

TEST(ImageIoTest, IccSurvivesTiffToJpeg)
{
    TempDir dir;
    Image im = smoothImage(16, 16);
    im.icc = testIccProfile();
    writeImage(dir.file("a.tif"), im, ImageFormat::Tiff);
    writeImage(dir.file("b.jpg"), readImage(dir.file("a.tif")), ImageFormat::Jpeg);
    EXPECT_EQ(readImage(dir.file("b.jpg")).icc, im.icc);
}

TEST(ImageIoTest, LargeIccSpansSeveralJpegMarkers)
{
    TempDir dir;
    Image im = smoothImage(16, 16);
    // More than one APP2 marker holds (65519 bytes of profile each).
    im.icc = testIccProfile();
    im.icc.resize(150000);
    for (size_t i = 260; i < im.icc.size(); ++i)
        im.icc[i] = static_cast<uint8_t>(i * 31);
    writeImage(dir.file("a.jpg"), im, ImageFormat::Jpeg);
    EXPECT_EQ(readImage(dir.file("a.jpg")).icc, im.icc);
}

TEST(ImageIoTest, AlphaIsDroppedByJpeg)
{
    TempDir dir;
    const Image im = randomImage(8, 8, 4, 10);
    writeImage(dir.file("a.jpg"), im, ImageFormat::Jpeg);
    const Image back = readImage(dir.file("a.jpg"));
    EXPECT_EQ(back.sourceChannels, 3);
    EXPECT_TRUE(back.alpha.empty());
}

TEST(ImageIoTest, MissingFileIsAnErrorNamingIt)
{
    TempDir dir;
    const std::string msg = appErrorOf([&] { readImage(dir.file("nothere.tif")); });
    EXPECT_NE(msg.find("cannot read " + dir.file("nothere.tif")), std::string::npos) << msg;
}

TEST(ImageIoTest, GarbageAndEmptyFilesAreErrors)
{
    TempDir dir;
    writeBytes(dir.file("garbage.tif"), std::string(3000, 'x'));
    writeBytes(dir.file("empty.png"), "");
    const std::string msg = appErrorOf([&] { readImage(dir.file("garbage.tif")); });
    EXPECT_EQ(msg, "cannot read " + dir.file("garbage.tif") + ": not a TIFF, PNG, JPEG or camera raw file");
    EXPECT_THROW(readImage(dir.file("empty.png")), AppError);
}

TEST(ImageIoTest, FilesWithOnlyAFormatsMagicAreErrors)
{
    TempDir dir;
    writeBytes(dir.file("a.png"), std::string("\x89PNG\r\n\x1a\n", 8) + std::string(40, '\x01'));
    writeBytes(dir.file("a.jpg"), std::string("\xff\xd8\xff\xe0", 4) + std::string(40, '\x02'));
    writeBytes(dir.file("a.tif"), std::string("II*\0\x08\0\0\0", 8) + std::string(40, '\x03'));
    writeBytes(dir.file("b.tif"), std::string("MM\0*\x7f\xff\xff\xf0", 8));
    for (const char* name : {"a.png", "a.jpg", "a.tif", "b.tif"}) {
        SCOPED_TRACE(name);
        const std::string msg = appErrorOf([&] { readImage(dir.file(name)); });
        EXPECT_EQ(msg.find('\n'), std::string::npos) << "one line: " << msg;
        EXPECT_NE(msg.find(dir.file(name)), std::string::npos) << msg;
    }
}

TEST(ImageIoTest, TruncatedFilesAreErrors)
{
    TempDir dir;
    const Image im = randomImage(64, 64, 3, 11);
    writeImage(dir.file("a.tif"), im, ImageFormat::Tiff);
    writeImage(dir.file("a.png"), im, ImageFormat::Png);
    writeImage(dir.file("a.jpg"), im, ImageFormat::Jpeg);
    for (const char* name : {"a.tif", "a.png", "a.jpg"}) {
        SCOPED_TRACE(name);
        const std::string whole = fileBytes(dir.file(name));
        for (size_t keep : {whole.size() / 2, whole.size() - 20}) {
            const std::string cut = dir.file(std::string("cut_") + std::to_string(keep) + "_" + name);
            writeBytes(cut, whole.substr(0, keep));
            EXPECT_THROW(readImage(cut), AppError) << keep;
        }
    }
}

TEST(ImageIoTest, RawFileThatTheDecoderCannotOpenIsAnError)
{
    // No real camera raw file is available to the tests: these check that
    // files routed to the raw decoder fail cleanly.
    TempDir dir;
    writeBytes(dir.file("photo.cr2"), std::string("II*\0\x10\0\0\0CR\x02\0", 12) + std::string(500, '\x05'));
    writeBytes(dir.file("photo.nef"), std::string(4096, '\x07'));
    for (const char* name : {"photo.cr2", "photo.nef"}) {
        SCOPED_TRACE(name);
        const std::string msg = appErrorOf([&] { readImage(dir.file(name)); });
        EXPECT_EQ(msg.rfind("cannot read " + dir.file(name) + ": ", 0), 0u) << msg;
    }
}

TEST(ImageIoTest, TiffWhoseFirstImageIsAPreviewIsLeftToTheRawDecoder)
{
    // A reduced-resolution first image is how raw files built on TIFF store
    // their preview; reading it as the photograph would be wrong, so the
    // raw decoder's refusal is the answer.
    TempDir dir;
    RawTiff t;
    t.width = 4;
    t.height = 2;
    t.samples.assign(4 * 2 * 3, 1000);
    t.subfileType = FILETYPE_REDUCEDIMAGE;
    ASSERT_TRUE(writeRawTiff(dir.file("preview.tif"), t));
    EXPECT_EQ(murmex_app::detail::detectSource(dir.file("preview.tif")), murmex_app::detail::SourceKind::TiffCameraRaw);
    EXPECT_THROW(readImage(dir.file("preview.tif")), AppError);
}

TEST(ImageIoTest, TiffWithSubDirectoriesThatIsNoRawFileReadsAsTiff)
{
    TempDir dir;
    const Image ref = randomImage(5, 3, 3, 15);
    RawTiff t;
    t.width = 5;
    t.height = 3;
    for (size_t p = 0; p < 15; ++p)
        for (int c = 0; c < 3; ++c)
            t.samples.push_back(ref.rgbx[p * 4 + c]);
    t.withSubDirectory = true;
    ASSERT_TRUE(writeRawTiff(dir.file("sub.tif"), t));
    EXPECT_EQ(murmex_app::detail::detectSource(dir.file("sub.tif")), murmex_app::detail::SourceKind::TiffMaybeCameraRaw);
    const Image im = readImage(dir.file("sub.tif"));
    EXPECT_EQ(im.bitsPerSample, 16);
    expectSameSamples(ref, im);
}

TEST(ImageIoTest, WritingIntoAMissingDirectoryIsAnErrorAndLeavesNoFile)
{
    TempDir dir;
    const Image im = randomImage(4, 4, 3, 12);
    for (ImageFormat f : {ImageFormat::Tiff, ImageFormat::Png, ImageFormat::Jpeg}) {
        const std::string path = dir.file("no/such/dir/out.img");
        const std::string msg = appErrorOf([&] { writeImage(path, im, f); });
        EXPECT_EQ(msg.rfind("cannot write " + path + ": ", 0), 0u) << msg;
        EXPECT_FALSE(std::filesystem::exists(path));
    }
}

TEST(ImageIoTest, BadJpegQualityIsAnErrorAndWritesNothing)
{
    TempDir dir;
    const Image im = randomImage(4, 4, 3, 13);
    EXPECT_THROW(writeImage(dir.file("q0.jpg"), im, ImageFormat::Jpeg, 0), AppError);
    EXPECT_THROW(writeImage(dir.file("q101.jpg"), im, ImageFormat::Jpeg, 101), AppError);
    EXPECT_FALSE(std::filesystem::exists(dir.file("q0.jpg")));
    EXPECT_FALSE(std::filesystem::exists(dir.file("q101.jpg")));
}

TEST(ImageIoTest, ImageWhoseBuffersDoNotMatchItsSizeIsRefused)
{
    TempDir dir;
    Image im = randomImage(4, 4, 3, 14);
    im.rgbx.pop_back();
    EXPECT_THROW(writeImage(dir.file("bad.tif"), im, ImageFormat::Tiff), AppError);
    EXPECT_FALSE(std::filesystem::exists(dir.file("bad.tif")));
    Image empty;
    EXPECT_THROW(writeImage(dir.file("empty.png"), empty, ImageFormat::Png), AppError);
}

TEST(ImageIoTest, JpegWhoseDataStopsAtAnEarlyEndMarkerIsRefusedAsTruncated)
{
    // Most of the entropy-coded data cut away, the end-of-image marker kept:
    // libjpeg only warns and fills the missing rows with grey.
    TempDir dir;
    const Image im = randomImage(64, 64, 3, 5);
    writeImage(dir.file("whole.jpg"), im, ImageFormat::Jpeg);
    const std::string whole = fileBytes(dir.file("whole.jpg"));
    const size_t scan = whole.find("\xff\xda", 0, 2);
    ASSERT_NE(scan, std::string::npos);
    const std::string cut = whole.substr(0, scan + 200) + "\xff\xd9";
    writeBytes(dir.file("cut.jpg"), cut);
    EXPECT_EQ(appErrorOf([&] { readImage(dir.file("cut.jpg")); }),
              "cannot read " + dir.file("cut.jpg") + ": truncated file");
}

namespace {

// The CRC-32 of PNG chunks (ISO 3309), bit by bit.
uint32_t pngCrc(const std::string& bytes)
{
    uint32_t c = 0xffffffffu;
    for (unsigned char b : bytes) {
        c ^= b;
        for (int k = 0; k < 8; ++k)
            c = (c & 1) ? 0xedb88320u ^ (c >> 1) : c >> 1;
    }
    return c ^ 0xffffffffu;
}

void putBigEndian(std::string& bytes, size_t at, uint32_t v, int size)
{
    for (int i = 0; i < size; ++i)
        bytes[at + i] = static_cast<char>(v >> (8 * (size - 1 - i)));
}

}  // namespace

TEST(ImageIoTest, SmallPngClaimingAHugeImageIsRefusedBeforeDecoding)
{
    TempDir dir;
    writeImage(dir.file("small.png"), randomImage(16, 16, 3, 2), ImageFormat::Png);
    std::string bytes = fileBytes(dir.file("small.png"));
    // IHDR's width and height at bytes 16 and 20, its CRC after the 13 data bytes.
    putBigEndian(bytes, 16, 16000, 4);
    putBigEndian(bytes, 20, 16000, 4);
    putBigEndian(bytes, 29, pngCrc(bytes.substr(12, 17)), 4);
    writeBytes(dir.file("huge.png"), bytes);
    const std::string msg = appErrorOf([&] { readImage(dir.file("huge.png")); });
    EXPECT_EQ(msg.rfind("cannot read " + dir.file("huge.png") + ": truncated file (", 0), 0u) << msg;
}

TEST(ImageIoTest, SmallJpegClaimingAHugeImageIsRefusedBeforeDecoding)
{
    TempDir dir;
    writeImage(dir.file("small.jpg"), randomImage(16, 16, 3, 2), ImageFormat::Jpeg);
    std::string bytes = fileBytes(dir.file("small.jpg"));
    const size_t frame = bytes.find("\xff\xc0", 0, 2);
    ASSERT_NE(frame, std::string::npos);
    // The frame header: marker, length, precision, then height and width.
    putBigEndian(bytes, frame + 5, 16000, 2);
    putBigEndian(bytes, frame + 7, 16000, 2);
    writeBytes(dir.file("huge.jpg"), bytes);
    ASSERT_LT(bytes.size(), 2000u);
    const std::string msg = appErrorOf([&] { readImage(dir.file("huge.jpg")); });
    EXPECT_EQ(msg.rfind("cannot read " + dir.file("huge.jpg") + ": truncated file (", 0), 0u) << msg;
}

TEST(ImageIoTest, UncompressedTiffClaimingMoreRowsThanItHoldsIsRefusedBeforeDecoding)
{
    TempDir dir;
    RawTiff t;
    t.width = 16;
    t.height = 16;
    t.samples.assign(16 * 16 * 3, 1000);
    ASSERT_TRUE(writeRawTiff(dir.file("small.tif"), t));
    TIFF* tif = TIFFOpen(dir.file("small.tif").c_str(), "r+");
    ASSERT_NE(tif, nullptr);
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, 16000u);
    TIFFRewriteDirectory(tif);
    TIFFClose(tif);
    const std::string msg = appErrorOf([&] { readImage(dir.file("small.tif")); });
    EXPECT_EQ(msg.rfind("cannot read " + dir.file("small.tif") + ": truncated file (", 0), 0u) << msg;
}

TEST(ImageIoTest, ImageAboveTheMegapixelLimitIsRefusedWithTheLimitNamed)
{
    TempDir dir;
    writeImage(dir.file("a.png"), randomImage(200, 100, 3, 2), ImageFormat::Png);
    writeImage(dir.file("a.tif"), randomImage(200, 100, 3, 2), ImageFormat::Tiff);
    writeImage(dir.file("a.jpg"), randomImage(200, 100, 3, 2), ImageFormat::Jpeg);
    murmex_app::ReadLimits limits;
    limits.maxMegapixels = 0.01;
    for (const char* name : {"a.png", "a.tif", "a.jpg"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(appErrorOf([&] { readImage(dir.file(name), limits); }),
                  "cannot read " + dir.file(name) +
                      ": the image is 200 x 100 pixels (0.02 megapixels), more than the limit of 0.01 megapixels "
                      "(--max-megapixels)");
        limits.maxMegapixels = 0.02;
        EXPECT_EQ(readImage(dir.file(name), limits).width, 200);
        limits.maxMegapixels = 0.01;
    }
}

TEST(ImageIoTest, DngIsDevelopedByTheRawDecoder)
{
    TempDir dir;
    ASSERT_TRUE(writeTestDng(dir.file("grey.dng"), 64, 48, 20000));
    const Image im = readImage(dir.file("grey.dng"));
    EXPECT_EQ(im.bitsPerSample, 16);
    EXPECT_NEAR(im.width, 64, 4);
    EXPECT_NEAR(im.height, 48, 4);
    // A flat neutral scene develops to a flat neutral image, brighter than
    // black and below white.
    const size_t centre = (static_cast<size_t>(im.height / 2) * im.width + im.width / 2) * 4;
    const int r = im.rgbx[centre], g = im.rgbx[centre + 1], b = im.rgbx[centre + 2];
    EXPECT_GT(g, 1000);
    EXPECT_LT(g, 65000);
    EXPECT_NEAR(r, g, g / 20);
    EXPECT_NEAR(b, g, g / 20);
}

namespace {

// Reads path in both layouts: the Source layout must hand the library the
// same RGBX, whole rows and parts of rows, and write the same file.
void expectBothLayoutsAgree(const std::string& path, const TempDir& dir)
{
    const Image rgbx = readImage(path);
    const Image source = readImage(path, {}, Image::Layout::Source);
    ASSERT_EQ(source.layout, Image::Layout::Source);
    ASSERT_EQ(source.width, rgbx.width);
    ASSERT_EQ(source.height, rgbx.height);
    EXPECT_EQ(source.sourceChannels, rgbx.sourceChannels);
    EXPECT_EQ(source.bitsPerSample, rgbx.bitsPerSample);
    EXPECT_EQ(source.icc, rgbx.icc);
    EXPECT_TRUE(source.rgbx.empty());
    EXPECT_TRUE(source.alpha.empty());
    EXPECT_EQ(source.samples.size(), static_cast<size_t>(source.width) * source.height * source.sourceChannels);
    EXPECT_EQ(murmex_app::detail::outputChannels(source), murmex_app::detail::outputChannels(rgbx));
    const int w = source.width;
    std::vector<uint16_t> row(static_cast<size_t>(w) * 4);
    for (int y = 0; y < source.height; ++y) {
        murmex_app::readRgbx(source, y, 0, w - 1, row.data());
        ASSERT_TRUE(std::equal(row.begin(), row.end(), rgbx.rgbx.begin() + static_cast<size_t>(y) * w * 4)) << path << " row " << y;
        const int x0 = w / 3, x1 = w - 1 - w / 4;
        murmex_app::readRgbx(source, y, x0, x1, row.data());
        ASSERT_TRUE(std::equal(row.begin(), row.begin() + (x1 - x0 + 1) * 4,
                               rgbx.rgbx.begin() + (static_cast<size_t>(y) * w + x0) * 4))
            << path << " row " << y << " columns " << x0 << ".." << x1;
    }
    writeImage(dir.file("from-rgbx.tif"), rgbx, ImageFormat::Tiff);
    writeImage(dir.file("from-source.tif"), source, ImageFormat::Tiff);
    expectSameSamples(readImage(dir.file("from-rgbx.tif")), readImage(dir.file("from-source.tif")));
}

}  // namespace

TEST(ImageIoTest, SourceLayoutKeepsTheFilesSamplesAndHandsOutTheSameRgbx)
{
    TempDir dir;
    for (int channels : {1, 2, 3, 4}) {
        const std::string tif = dir.file("c" + std::to_string(channels) + ".tif");
        writeImage(tif, randomImage(23, 9, channels, 40 + channels), ImageFormat::Tiff);
        expectBothLayoutsAgree(tif, dir);
        const std::string png = dir.file("c" + std::to_string(channels) + ".png");
        writeImage(png, randomImage(23, 9, channels, 50 + channels), ImageFormat::Png);
        expectBothLayoutsAgree(png, dir);
    }
    writeImage(dir.file("c.jpg"), randomImage(23, 9, 3, 60), ImageFormat::Jpeg);
    expectBothLayoutsAgree(dir.file("c.jpg"), dir);
    writeImage(dir.file("g.jpg"), randomImage(23, 9, 1, 61), ImageFormat::Jpeg);
    expectBothLayoutsAgree(dir.file("g.jpg"), dir);
    // 8-bit white-is-zero grey, tiled planes with alpha, an extra sample
    // that is no alpha.
    RawTiff w;
    w.width = 5;
    w.height = 3;
    w.spp = 1;
    w.bps = 8;
    w.photometric = PHOTOMETRIC_MINISWHITE;
    for (int i = 0; i < 15; ++i)
        w.samples.push_back(static_cast<uint16_t>(i * 17));
    ASSERT_TRUE(writeRawTiff(dir.file("w.tif"), w));
    expectBothLayoutsAgree(dir.file("w.tif"), dir);
    RawTiff t;
    t.width = 37;
    t.height = 21;
    t.spp = 4;
    t.separate = true;
    t.tiled = true;
    t.alphaExtra = true;
    for (int i = 0; i < 37 * 21 * 4; ++i)
        t.samples.push_back(static_cast<uint16_t>(i * 2654435761u >> 16));
    ASSERT_TRUE(writeRawTiff(dir.file("t.tif"), t));
    expectBothLayoutsAgree(dir.file("t.tif"), dir);
    t.separate = t.tiled = t.alphaExtra = false;
    ASSERT_TRUE(writeRawTiff(dir.file("x.tif"), t));
    expectBothLayoutsAgree(dir.file("x.tif"), dir);
}
