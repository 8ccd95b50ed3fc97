// Tests of the extended XMP segments of JPEG files: the GUID is an MD5,
// documents are cut into segments and found again, and damaged or hostile
// segments leave a document out without harm. Files are assembled byte by
// byte here.
#include "murmex/jpeg_xmp.h"

#include <fstream>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "murmex/app_error.h"
#include "support/temp_dir.h"

using murmex_app::extendedXmpGuid;
using murmex_app::extendedXmpSegments;
using murmex_app::insertAfterStandardXmp;
using murmex_app::readJpegExtendedXmp;
using murmex_test::TempDir;

namespace {

const std::string kStandardName("http://ns.adobe.com/xap/1.0/\0", 29);
const std::string kExtendedName("http://ns.adobe.com/xmp/extension/\0", 35);
const std::string kGuid = "0123456789ABCDEF0123456789ABCDEF";

std::string bigEndian(uint32_t v, int bytes)
{
    std::string s;
    for (int i = bytes - 1; i >= 0; --i)
        s += static_cast<char>((v >> (8 * i)) & 0xff);
    return s;
}

std::string segment(unsigned char marker, const std::string& body)
{
    return std::string("\xff") + static_cast<char>(marker) + bigEndian(static_cast<uint32_t>(body.size() + 2), 2) + body;
}

std::string extendedBody(const std::string& guid, uint32_t length, uint32_t offset, const std::string& chunk)
{
    return kExtendedName + guid + bigEndian(length, 4) + bigEndian(offset, 4) + chunk;
}

// Start of image, the given segments, a start of scan, some data, the end.
std::string jpegWith(const std::string& segments)
{
    return "\xff\xd8" + segments + segment(0xda, std::string("\x01\x01\x00\x00\x3f\x00", 6)) + "data\xff\xd9";
}

std::string document(size_t size)
{
    std::string d;
    for (size_t i = 0; d.size() < size; ++i)
        d += "<p" + std::to_string(i) + "/>";
    d.resize(size);
    return d;
}

std::map<std::string, std::string> readBytes(const TempDir& dir, const std::string& bytes)
{
    const std::string path = dir.file("x.jpg");
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
    return readJpegExtendedXmp(path);
}

}  // namespace

TEST(JpegXmpTest, GuidIsTheMd5InUppercaseHex)
{
    // RFC 1321's test values.
    EXPECT_EQ(extendedXmpGuid(""), "D41D8CD98F00B204E9800998ECF8427E");
    EXPECT_EQ(extendedXmpGuid("abc"), "900150983CD24FB0D6963F7D28E17F72");
    EXPECT_EQ(extendedXmpGuid("message digest"), "F96B697D7CB7938D525A2F31AAF161D0");
}

TEST(JpegXmpTest, SegmentsAreFullUpToTheLastAndLaidOutFieldByField)
{
    const std::string doc = document(2 * 65458 + 100);
    const std::vector<std::string> segments = extendedXmpSegments(doc, kGuid);
    ASSERT_EQ(segments.size(), 3u);
    const size_t sizes[] = {65458, 65458, 100};
    for (size_t i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        const uint32_t offset = static_cast<uint32_t>(i * 65458);
        EXPECT_EQ(segments[i], segment(0xe1, extendedBody(kGuid, static_cast<uint32_t>(doc.size()), offset,
                                                          doc.substr(offset, sizes[i]))));
        EXPECT_LE(segments[i].size(), 65535u + 2);
    }
    EXPECT_EQ(segments[0].size(), 65535u + 2);
}

TEST(JpegXmpTest, InsertedSegmentsFollowTheStandardPacketAndAreFoundAgain)
{
    TempDir dir;
    const std::string standard = segment(0xe1, kStandardName + "<x:xmpmeta/>");
    const std::string before = segment(0xe0, std::string("JFIF\0\1\1\0\0\1\0\1\0\0", 14));
    const std::string after = segment(0xe2, "ICC_PROFILE");
    std::string jpeg = jpegWith(before + standard + after);
    const std::string doc = document(150000);
    const std::vector<std::string> segments = extendedXmpSegments(doc, kGuid);
    ASSERT_TRUE(insertAfterStandardXmp(jpeg, segments));
    std::string all;
    for (const std::string& s : segments)
        all += s;
    EXPECT_EQ(jpeg, jpegWith(before + standard + all + after));
    EXPECT_EQ(readBytes(dir, jpeg), (std::map<std::string, std::string>{{kGuid, doc}}));
}

TEST(JpegXmpTest, NoStandardPacketNoInsertion)
{
    const std::string original = jpegWith(segment(0xe1, std::string("Exif\0\0", 6)));
    std::string jpeg = original;
    EXPECT_FALSE(insertAfterStandardXmp(jpeg, extendedXmpSegments("doc", kGuid)));
    EXPECT_EQ(jpeg, original);
    std::string notJpeg = "GIF89a";
    EXPECT_FALSE(insertAfterStandardXmp(notJpeg, extendedXmpSegments("doc", kGuid)));
}

TEST(JpegXmpTest, ChunksInAnyOrderAndRepeatedMakeTheDocument)
{
    TempDir dir;
    const std::string doc = document(30);
    const auto chunk = [&](uint32_t offset, uint32_t size) {
        return segment(0xe1, extendedBody(kGuid, 30, offset, doc.substr(offset, size)));
    };
    // Overlapping chunks that agree are fine; another GUID's document is separate.
    const std::string other = "FEDCBA9876543210FEDCBA9876543210";
    const std::string jpeg = jpegWith(chunk(20, 10) + chunk(0, 12) + chunk(10, 10) + chunk(0, 12) +
                                      segment(0xe1, extendedBody(other, 3, 0, "abc")));
    EXPECT_EQ(readBytes(dir, jpeg), (std::map<std::string, std::string>{{kGuid, doc}, {other, "abc"}}));
}

TEST(JpegXmpTest, DamagedExtensionsAreLeftOut)
{
    TempDir dir;
    const std::string doc = document(30);
    const auto chunk = [&](uint32_t length, uint32_t offset, const std::string& bytes) {
        return segment(0xe1, extendedBody(kGuid, length, offset, bytes));
    };
    const std::string first = chunk(30, 0, doc.substr(0, 15));
    const std::string second = chunk(30, 15, doc.substr(15));
    struct Case {
        const char* what;
        std::string bytes;
    };
    const Case cases[] = {
        {"a chunk missing", jpegWith(first)},
        {"the lengths disagree", jpegWith(first + chunk(31, 15, doc.substr(15)))},
        {"a chunk past the length", jpegWith(first + chunk(30, 16, doc.substr(15)))},
        {"an offset past the length", jpegWith(first + second + chunk(30, 4000000000u, "x"))},
        {"overlapping chunks disagree", jpegWith(first + second + chunk(30, 10, "different"))},
        {"a repeated chunk disagrees", jpegWith(first + second + chunk(30, 0, std::string(15, '!')))},
        {"an empty chunk", jpegWith(first + second + chunk(30, 3, ""))},
        {"a length of zero", jpegWith(chunk(0, 0, ""))},
        {"a huge length with little data", jpegWith(chunk(0xffffffffu, 0, doc))},
        {"a header cut short", jpegWith(segment(0xe1, kExtendedName + kGuid + "\0\0"))},
        {"the last chunk cut off by the end of the file",
         jpegWith(first).substr(0, 2 + first.size()) + second.substr(0, second.size() - 3)},
        {"a segment length shorter than its field",
         "\xff\xd8" + first + std::string("\xff\xe1\x00\x01", 4) + second},
        {"no marker where one belongs", "\xff\xd8" + first + "junk" + second},
        {"the segments after the image data", "\xff\xd8" + segment(0xda, "scan") + first + second},
        {"no start of image", first + second},
        {"an empty file", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_TRUE(readBytes(dir, c.bytes).empty());
    }
    // The same pieces whole, to show that the cases above fail for their damage alone.
    EXPECT_EQ(readBytes(dir, jpegWith(first + second)), (std::map<std::string, std::string>{{kGuid, doc}}));
}

TEST(JpegXmpTest, MissingFileHasNoExtension)
{
    TempDir dir;
    EXPECT_TRUE(readJpegExtendedXmp(dir.file("missing.jpg")).empty());
}

TEST(JpegXmpTest, AddingToAFileRewritesItWithTheSegments)
{
    TempDir dir;
    const std::string standard = segment(0xe1, kStandardName + "<x:xmpmeta/>");
    const std::string path = dir.file("a.jpg");
    std::ofstream(path, std::ios::binary) << jpegWith(standard);
    const std::string doc = document(70000);
    murmex_app::addJpegExtendedXmp(path, doc, kGuid);
    std::string all;
    for (const std::string& s : extendedXmpSegments(doc, kGuid))
        all += s;
    std::ifstream in(path, std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()),
              jpegWith(standard + all));

    const std::string plain = dir.file("plain.jpg");
    std::ofstream(plain, std::ios::binary) << jpegWith("");
    try {
        murmex_app::addJpegExtendedXmp(plain, doc, kGuid);
        ADD_FAILURE() << "no error";
    } catch (const murmex_app::AppError& e) {
        EXPECT_EQ(std::string(e.what()), "cannot write metadata to " + plain + ": the file has no XMP segment to extend");
    }
}
