// Tests of the camera metadata: EXIF values written with Exiv2 are read back
// as the profile header wants them, and carried into TIFF, JPEG and PNG
// outputs without disturbing the output's pixels or ICC profile.

#include "murmex/metadata.h"

#include <tiffio.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <exiv2/exiv2.hpp>
#include <gtest/gtest.h>

#include "apps/app_fixtures.h"
#include "murmex/app_error.h"
#include "murmex/image_io.h"
#include "support/temp_dir.h"

using murmex_app::AppError;
using murmex_app::CameraInfo;
using murmex_app::copyMetadata;
using murmex_app::Image;
using murmex_app::ImageFormat;
using murmex_app::pngMetadataChunks;
using murmex_app::readCameraInfo;
using murmex_app::readImage;
using murmex_app::writeImage;
using murmex_test::TempDir;
using namespace murmex_app_test;

namespace {

// Writes a typical camera's EXIF into an existing file, straight through
// Exiv2.
void writeCameraExif(const std::string& path, bool withPhotoTags = true)
{
    Exiv2::XmpParser::initialize();
    auto image = Exiv2::ImageFactory::open(path);
    image->readMetadata();
    Exiv2::ExifData exif = image->exifData();
    exif["Exif.Image.Make"] = "Canon  ";
    exif["Exif.Image.Model"] = " EOS 5D";
    exif["Exif.Image.Artist"] = "A. Tester";
    if (withPhotoTags) {
        exif["Exif.Photo.ISOSpeedRatings"] = uint16_t(800);
        exif["Exif.Photo.ExposureTime"] = Exiv2::URational(1, 250);
        exif["Exif.Photo.ExposureBiasValue"] = Exiv2::Rational(-2, 3);
        exif["Exif.Photo.LightSource"] = uint16_t(4);
        exif["Exif.Photo.Contrast"] = uint16_t(1);
        exif["Exif.Photo.Sharpness"] = uint16_t(2);
        exif["Exif.Photo.Saturation"] = uint16_t(0);
        exif["Exif.Photo.ColorSpace"] = uint16_t(1);
        exif["Exif.Photo.PixelXDimension"] = uint32_t(9999);
        exif["Exif.Photo.PixelYDimension"] = uint32_t(8888);
    }
    image->setExifData(exif);
    Exiv2::XmpData xmp;
    xmp["Xmp.dc.creator"] = "A. Tester";
    image->setXmpData(xmp);
    image->writeMetadata();
}

// A small JPEG photo with a typical camera's EXIF.
void writeCameraJpeg(const std::string& path)
{
    writeImage(path, smoothImage(16, 8), ImageFormat::Jpeg);
    writeCameraExif(path);
}

void expectCameraInfo(const CameraInfo& info)
{
    EXPECT_EQ(info.maker, std::optional<std::string>("Canon"));
    EXPECT_EQ(info.model, std::optional<std::string>("EOS 5D"));
    EXPECT_EQ(info.iso, std::optional<int>(800));
    ASSERT_TRUE(info.shutterSpeed.has_value());
    EXPECT_FLOAT_EQ(*info.shutterSpeed, 0.004f);
    ASSERT_TRUE(info.exposureComp.has_value());
    EXPECT_FLOAT_EQ(*info.exposureComp, -2.0f / 3.0f);
    EXPECT_EQ(info.lightSource, std::optional<int>(4));
    EXPECT_EQ(info.contrast, std::optional<int>(1));
    EXPECT_EQ(info.sharpness, std::optional<int>(2));
    EXPECT_EQ(info.saturation, std::optional<int>(0));
    EXPECT_EQ(info.colorSpace, std::optional<std::string>("sRGB"));
}

std::string exifValue(const std::string& path, const char* key)
{
    auto image = Exiv2::ImageFactory::open(path);
    image->readMetadata();
    const auto it = image->exifData().findKey(Exiv2::ExifKey(key));
    return it == image->exifData().end() ? std::string("(absent)") : it->toString();
}

std::string xmpValue(const std::string& path, const char* key)
{
    auto image = Exiv2::ImageFactory::open(path);
    image->readMetadata();
    const auto it = image->xmpData().findKey(Exiv2::XmpKey(key));
    return it == image->xmpData().end() ? std::string("(absent)") : it->toString();
}

// Every EXIF and XMP entry of a file, as "key = value" lines.
std::vector<std::string> metadataLines(const std::string& path)
{
    auto image = Exiv2::ImageFactory::open(path);
    image->readMetadata();
    std::vector<std::string> lines;
    for (const Exiv2::Exifdatum& d : image->exifData())
        lines.push_back(d.key() + " = " + d.toString());
    for (const Exiv2::Xmpdatum& d : image->xmpData())
        lines.push_back(d.key() + " = " + d.toString());
    return lines;
}

void expectSamePixels(const Image& a, const Image& b)
{
    ASSERT_EQ(a.width, b.width);
    ASSERT_EQ(a.height, b.height);
    EXPECT_TRUE(a.rgbx == b.rgbx);
    EXPECT_EQ(a.alpha, b.alpha);
}

// The 16-bit layout of a TIFF as libtiff sees it.
void expectTiff16(const std::string& path, uint32_t width, uint32_t height, uint16_t spp)
{
    TIFF* tif = TIFFOpen(path.c_str(), "r");
    ASSERT_NE(tif, nullptr);
    uint32_t w = 0, h = 0;
    uint16_t bps = 0, s = 0;
    TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &w);
    TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &h);
    TIFFGetFieldDefaulted(tif, TIFFTAG_BITSPERSAMPLE, &bps);
    TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &s);
    TIFFClose(tif);
    EXPECT_EQ(w, width);
    EXPECT_EQ(h, height);
    EXPECT_EQ(bps, 16);
    EXPECT_EQ(s, spp);
}

}  // namespace

TEST(ReadCameraInfoTest, ExifWrittenIntoAJpegIsReadBack)
{
    TempDir dir;
    writeImage(dir.file("a.jpg"), smoothImage(16, 8), ImageFormat::Jpeg);
    writeCameraExif(dir.file("a.jpg"));
    expectCameraInfo(readCameraInfo(dir.file("a.jpg")));
}

TEST(ReadCameraInfoTest, ExifWrittenIntoATiffIsReadBack)
{
    TempDir dir;
    writeImage(dir.file("a.tif"), randomImage(16, 8, 3, 1), ImageFormat::Tiff);
    writeCameraExif(dir.file("a.tif"));
    expectCameraInfo(readCameraInfo(dir.file("a.tif")));
}

TEST(ReadCameraInfoTest, ImageWithoutExifGivesNothing)
{
    TempDir dir;
    writeImage(dir.file("a.png"), randomImage(4, 4, 3, 2), ImageFormat::Png);
    const CameraInfo info = readCameraInfo(dir.file("a.png"));
    EXPECT_FALSE(info.maker || info.model || info.colorSpace || info.iso || info.lightSource || info.contrast ||
                 info.sharpness || info.saturation || info.shutterSpeed || info.exposureComp);
}

TEST(ReadCameraInfoTest, FileOfUnknownKindGivesNothing)
{
    TempDir dir;
    std::ofstream(dir.file("x.bin"), std::ios::binary) << std::string(100, 'q');
    const CameraInfo info = readCameraInfo(dir.file("x.bin"));
    EXPECT_FALSE(info.maker || info.model || info.iso);
}

TEST(ReadCameraInfoTest, MissingFileIsAnError)
{
    TempDir dir;
    try {
        readCameraInfo(dir.file("missing.jpg"));
        ADD_FAILURE() << "no error";
    } catch (const AppError& e) {
        EXPECT_EQ(std::string(e.what()), "cannot read " + dir.file("missing.jpg") + ": no such file");
    }
}

TEST(ReadCameraInfoTest, ColourSpaceCodesAndTheInteroperabilityIndex)
{
    TempDir dir;
    struct Case {
        uint16_t code;
        const char* interop;  // null: none
        std::optional<std::string> expected;
    };
    const Case cases[] = {{1, nullptr, "sRGB"},          {2, nullptr, "Adobe RGB"},
                          {0xffff, "R03", "Adobe RGB"},  {0xffff, "R98", std::nullopt},
                          {0xffff, nullptr, std::nullopt}, {7, nullptr, std::nullopt}};
    int n = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.code) + " " + (c.interop ? c.interop : "-"));
        const std::string path = dir.file(std::to_string(n++).append(".jpg"));
        writeImage(path, smoothImage(8, 8), ImageFormat::Jpeg);
        auto image = Exiv2::ImageFactory::open(path);
        Exiv2::ExifData exif;
        exif["Exif.Photo.ColorSpace"] = c.code;
        if (c.interop)
            exif["Exif.Iop.InteroperabilityIndex"] = c.interop;
        image->setExifData(exif);
        image->writeMetadata();
        EXPECT_EQ(readCameraInfo(path).colorSpace, c.expected);
    }
}

TEST(CopyMetadataTest, JpegExifSurvivesIntoATiffOutputWhoseImageStaysTheSame)
{
    TempDir dir;
    writeCameraJpeg(dir.file("in.jpg"));
    Image out = randomImage(16, 8, 4, 3);
    out.icc = testIccProfile();
    writeImage(dir.file("out.tif"), out, ImageFormat::Tiff);
    copyMetadata(dir.file("in.jpg"), dir.file("out.tif"));

    expectCameraInfo(readCameraInfo(dir.file("out.tif")));
    EXPECT_EQ(exifValue(dir.file("out.tif"), "Exif.Image.Artist"), "A. Tester");
    EXPECT_EQ(exifValue(dir.file("out.tif"), "Exif.Photo.PixelXDimension"), "16");
    EXPECT_EQ(exifValue(dir.file("out.tif"), "Exif.Photo.PixelYDimension"), "8");
    EXPECT_EQ(xmpValue(dir.file("out.tif"), "Xmp.dc.creator"), "A. Tester");
    expectTiff16(dir.file("out.tif"), 16, 8, 4);
    const Image back = readImage(dir.file("out.tif"));
    EXPECT_EQ(back.bitsPerSample, 16);
    expectSamePixels(out, back);
    EXPECT_EQ(back.icc, out.icc);
}

TEST(CopyMetadataTest, TiffExifSurvivesIntoAJpegOutput)
{
    TempDir dir;
    writeImage(dir.file("in.tif"), randomImage(16, 8, 3, 4), ImageFormat::Tiff);
    writeCameraExif(dir.file("in.tif"));
    Image out = smoothImage(24, 16);
    out.icc = testIccProfile();
    writeImage(dir.file("out.jpg"), out, ImageFormat::Jpeg);
    const Image before = readImage(dir.file("out.jpg"));
    copyMetadata(dir.file("in.tif"), dir.file("out.jpg"));

    expectCameraInfo(readCameraInfo(dir.file("out.jpg")));
    EXPECT_EQ(exifValue(dir.file("out.jpg"), "Exif.Photo.PixelXDimension"), "24");
    EXPECT_EQ(exifValue(dir.file("out.jpg"), "Exif.Photo.PixelYDimension"), "16");
    // The TIFF's own layout tags do not travel.
    EXPECT_EQ(exifValue(dir.file("out.jpg"), "Exif.Image.BitsPerSample"), "(absent)");
    EXPECT_EQ(exifValue(dir.file("out.jpg"), "Exif.Image.StripOffsets"), "(absent)");
    const Image after = readImage(dir.file("out.jpg"));
    expectSamePixels(before, after);
    EXPECT_EQ(after.icc, out.icc);
}

TEST(CopyMetadataTest, ExifSurvivesIntoAPngOutput)
{
    TempDir dir;
    writeCameraJpeg(dir.file("in.jpg"));
    Image out = randomImage(10, 6, 3, 5);
    out.icc = testIccProfile();
    writeImage(dir.file("out.png"), out, ImageFormat::Png);
    copyMetadata(dir.file("in.jpg"), dir.file("out.png"));

    expectCameraInfo(readCameraInfo(dir.file("out.png")));
    EXPECT_EQ(exifValue(dir.file("out.png"), "Exif.Photo.PixelXDimension"), "10");
    const Image back = readImage(dir.file("out.png"));
    expectSamePixels(out, back);
    EXPECT_EQ(back.icc, out.icc);
}

// A PNG output gets its metadata as it is written: the same entries that
// copying into the written file gives.
TEST(CopyMetadataTest, PngChunksWrittenWithTheImageCarryWhatACopyIntoTheFileWould)
{
    TempDir dir;
    writeCameraJpeg(dir.file("in.jpg"));
    Image out = randomImage(10, 6, 3, 5);
    out.icc = testIccProfile();
    writeImage(dir.file("copied.png"), out, ImageFormat::Png);
    copyMetadata(dir.file("in.jpg"), dir.file("copied.png"));

    murmex_app::WriteOptions options;
    options.pngChunks = pngMetadataChunks(dir.file("in.jpg"), dir.file("written.png"), 10, 6);
    EXPECT_FALSE(options.pngChunks.empty());
    writeImage(dir.file("written.png"), out, ImageFormat::Png, options);

    expectCameraInfo(readCameraInfo(dir.file("written.png")));
    EXPECT_EQ(exifValue(dir.file("written.png"), "Exif.Photo.PixelXDimension"), "10");
    EXPECT_EQ(xmpValue(dir.file("written.png"), "Xmp.dc.creator"), "A. Tester");
    EXPECT_EQ(metadataLines(dir.file("written.png")), metadataLines(dir.file("copied.png")));
    const Image back = readImage(dir.file("written.png"));
    expectSamePixels(out, back);
    EXPECT_EQ(back.icc, out.icc);
}

TEST(CopyMetadataTest, APhotoWithoutMetadataGivesNoPngChunks)
{
    TempDir dir;
    writeImage(dir.file("in.png"), randomImage(8, 4, 3, 9), ImageFormat::Png);
    EXPECT_TRUE(pngMetadataChunks(dir.file("in.png"), dir.file("out.png"), 8, 4).empty());
}

TEST(CopyMetadataTest, TiffToTiffKeepsTheOutputsOwnLayout)
{
    TempDir dir;
    // An 8-bit-looking source layout must not leak into the 16-bit output.
    writeImage(dir.file("in.tif"), randomImage(30, 20, 3, 6), ImageFormat::Tiff);
    writeCameraExif(dir.file("in.tif"));
    const Image out = randomImage(7, 5, 3, 7);
    writeImage(dir.file("out.tif"), out, ImageFormat::Tiff);
    copyMetadata(dir.file("in.tif"), dir.file("out.tif"));
    expectCameraInfo(readCameraInfo(dir.file("out.tif")));
    expectTiff16(dir.file("out.tif"), 7, 5, 3);
    expectSamePixels(out, readImage(dir.file("out.tif")));
}

TEST(CopyMetadataTest, ATiffOutputGainsTheMetadataAtItsEndWithoutItsImageDataBeingRewritten)
{
    TempDir dir;
    writeCameraJpeg(dir.file("in.jpg"));
    {
        auto image = Exiv2::ImageFactory::open(dir.file("in.jpg"));
        image->readMetadata();
        Exiv2::ExifData exif = image->exifData();
        exif["Exif.Image.Orientation"] = uint16_t(6);
        exif["Exif.Photo.UserComment"] = "charset=Ascii a comment longer than four bytes";
        exif["Exif.GPSInfo.GPSLatitudeRef"] = "N";
        Exiv2::URationalValue latitude;
        latitude.read("52/1 13/1 30/10");
        exif.add(Exiv2::ExifKey("Exif.GPSInfo.GPSLatitude"), &latitude);
        exif["Exif.Iop.InteroperabilityIndex"] = "R98";
        image->setExifData(exif);
        image->writeMetadata();
    }
    Image out = randomImage(16, 8, 3, 4);
    out.icc = testIccProfile();
    writeImage(dir.file("out.tif"), out, ImageFormat::Tiff);
    const auto before = murmex_test::readFileBytes(dir.file("out.tif"));
    copyMetadata(dir.file("in.jpg"), dir.file("out.tif"));
    const auto after = murmex_test::readFileBytes(dir.file("out.tif"));

    // Only the header's pointer to the first directory changed; the rest
    // was added after the end.
    ASSERT_GT(after.size(), before.size());
    EXPECT_TRUE(std::equal(before.begin() + 8, before.end(), after.begin() + 8));
    // Every entry that travels reads back as the source holds it.
    auto source = Exiv2::ImageFactory::open(dir.file("in.jpg"));
    source->readMetadata();
    auto target = Exiv2::ImageFactory::open(dir.file("out.tif"));
    target->readMetadata();
    size_t compared = 0;
    for (const Exiv2::Exifdatum& d : source->exifData()) {
        const std::string group = d.groupName();
        if (group != "Photo" && group != "GPSInfo" && group != "Iop" && d.key() != "Exif.Image.Make" &&
            d.key() != "Exif.Image.Model" && d.key() != "Exif.Image.Artist")
            continue;
        if (d.tagName() == "PixelXDimension" || d.tagName() == "PixelYDimension" || d.tagName() == "InteroperabilityTag")
            continue;
        const auto it = target->exifData().findKey(Exiv2::ExifKey(d.key()));
        ASSERT_NE(it, target->exifData().end()) << d.key();
        EXPECT_EQ(it->toString(), d.toString()) << d.key();
        EXPECT_EQ(it->typeId(), d.typeId()) << d.key();
        ++compared;
    }
    EXPECT_GE(compared, 14u);
    EXPECT_EQ(exifValue(dir.file("out.tif"), "Exif.Image.Orientation"), "6");
    EXPECT_EQ(exifValue(dir.file("out.tif"), "Exif.Photo.PixelXDimension"), "16");
    EXPECT_EQ(xmpValue(dir.file("out.tif"), "Xmp.dc.creator"), "A. Tester");
    expectTiff16(dir.file("out.tif"), 16, 8, 3);
    const Image back = readImage(dir.file("out.tif"));
    expectSamePixels(out, back);
    EXPECT_EQ(back.icc, out.icc);
}

TEST(CopyMetadataTest, SourceWithoutMetadataLeavesTheOutputUntouched)
{
    TempDir dir;
    writeImage(dir.file("in.png"), randomImage(4, 4, 3, 8), ImageFormat::Png);
    writeImage(dir.file("out.jpg"), smoothImage(8, 8), ImageFormat::Jpeg);
    const auto before = murmex_test::readFileBytes(dir.file("out.jpg"));
    copyMetadata(dir.file("in.png"), dir.file("out.jpg"));
    EXPECT_EQ(murmex_test::readFileBytes(dir.file("out.jpg")), before);
}

TEST(CopyMetadataTest, UnreadableSourceIsNotAnError)
{
    TempDir dir;
    std::ofstream(dir.file("junk.cr2"), std::ios::binary) << std::string(64, 'z');
    writeImage(dir.file("out.tif"), randomImage(4, 4, 3, 9), ImageFormat::Tiff);
    EXPECT_NO_THROW(copyMetadata(dir.file("junk.cr2"), dir.file("out.tif")));
    EXPECT_NO_THROW(copyMetadata(dir.file("missing.jpg"), dir.file("out.tif")));
}

TEST(CopyMetadataTest, MissingOutputIsAnError)
{
    TempDir dir;
    writeImage(dir.file("in.jpg"), smoothImage(8, 8), ImageFormat::Jpeg);
    writeCameraExif(dir.file("in.jpg"));
    try {
        copyMetadata(dir.file("in.jpg"), dir.file("nowhere.tif"));
        ADD_FAILURE() << "no error";
    } catch (const AppError& e) {
        EXPECT_EQ(std::string(e.what()),
                  "cannot write metadata to " + dir.file("nowhere.tif") + ": no such file");
    }
}
