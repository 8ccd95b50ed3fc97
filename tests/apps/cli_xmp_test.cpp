// Whole-program tests of XMP that does not fit in one JPEG segment: written
// as standard plus extended XMP into JPEG outputs, read back whole from
// JPEG inputs, and what a JPEG cannot hold refused before any work. The
// JPEG segments are taken apart here byte by byte, and the GUIDs checked
// with the system's md5sum.
#include <cctype>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include <exiv2/exiv2.hpp>
#include <gtest/gtest.h>

#include "apps/cli_fixtures.h"
#include "murmex/image_io.h"
#include "support/temp_dir.h"

namespace murmex_test {
namespace {

using murmex_app::ImageFormat;
using murmex_app::writeImage;

namespace fs = std::filesystem;

const std::string kStandardName("http://ns.adobe.com/xap/1.0/\0", 29);
const std::string kExtendedName("http://ns.adobe.com/xmp/extension/\0", 35);
const char* const kNoteKey = "Xmp.xmpNote.HasExtendedXMP";

std::string fileText(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}


// The MD5 of `data` in uppercase hexadecimal, from md5sum.
std::string md5Hex(const TempDir& dir, const std::string& data)
{
    const std::string file = dir.file(".md5-input");
    writeText(file, data);
    std::string hex;
    if (FILE* p = popen(("md5sum '" + file + "'").c_str(), "r")) {
        char buf[64] = "";
        if (std::fgets(buf, sizeof buf, p))
            hex.assign(buf, std::min<size_t>(32, std::strlen(buf)));
        pclose(p);
    }
    fs::remove(file);
    for (char& c : hex)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    EXPECT_EQ(hex.size(), 32u);
    return hex;
}

void initXmp()
{
    Exiv2::XmpParser::initialize();
    Exiv2::XmpProperties::registerNs("http://ns.adobe.com/xmp/note/", "xmpNote");
    Exiv2::XmpProperties::registerNs("http://example.com/murmex-test/1.0/", "mxt");
}

// ---- JPEG segments, taken apart by hand ----------------------------------

struct Segment {
    int marker;
    std::string body;  // after the length field
};

// The marker segments before the image data of a well-formed JPEG; the walk
// must land exactly on the start of scan.
std::vector<Segment> headerSegments(const std::string& jpeg)
{
    std::vector<Segment> segments;
    EXPECT_EQ(jpeg.substr(0, 2), "\xff\xd8");
    size_t at = 2;
    for (;;) {
        if (at + 4 > jpeg.size() || static_cast<unsigned char>(jpeg[at]) != 0xff) {
            ADD_FAILURE() << "no marker at " << at;
            return segments;
        }
        const int marker = static_cast<unsigned char>(jpeg[at + 1]);
        if (marker == 0xda)
            return segments;
        const size_t length = static_cast<unsigned char>(jpeg[at + 2]) << 8 | static_cast<unsigned char>(jpeg[at + 3]);
        if (length < 2 || at + 2 + length > jpeg.size()) {
            ADD_FAILURE() << "segment at " << at << " runs past the end";
            return segments;
        }
        segments.push_back({marker, jpeg.substr(at + 4, length - 2)});
        at += 2 + length;
    }
}

uint32_t bigEndian32(const std::string& s, size_t at)
{
    uint32_t v = 0;
    for (size_t i = 0; i < 4; ++i)
        v = v << 8 | static_cast<unsigned char>(s[at + i]);
    return v;
}

std::string bigEndian(uint32_t v, int bytes)
{
    std::string s;
    for (int i = bytes - 1; i >= 0; --i)
        s += static_cast<char>((v >> (8 * i)) & 0xff);
    return s;
}

bool startsWith(const std::string& s, const std::string& head)
{
    return s.compare(0, head.size(), head) == 0;
}

// An APP1 segment of extended XMP, assembled field by field.
std::string extendedSegment(const std::string& guid, const std::string& document, size_t offset, size_t size)
{
    const std::string body =
        kExtendedName + guid + bigEndian(static_cast<uint32_t>(document.size()), 4) +
        bigEndian(static_cast<uint32_t>(offset), 4) + document.substr(offset, size);
    return "\xff\xe1" + bigEndian(static_cast<uint32_t>(body.size() + 2), 2) + body;
}

// What a JPEG file holds as XMP, seen segment by segment.
struct JpegXmp {
    std::vector<std::string> standardPackets;
    std::map<std::string, std::string> extended;  // by GUID, chunks laid at their offsets
    size_t extendedSegments = 0;
};

JpegXmp jpegXmp(const std::string& path)
{
    JpegXmp x;
    std::map<std::string, uint32_t> covered;
    for (const Segment& s : headerSegments(fileText(path))) {
        if (s.marker != 0xe1)
            continue;
        if (startsWith(s.body, kStandardName)) {
            x.standardPackets.push_back(s.body.substr(kStandardName.size()));
        } else if (startsWith(s.body, kExtendedName)) {
            ++x.extendedSegments;
            EXPECT_LE(s.body.size() + 2, 65535u);
            const std::string guid = s.body.substr(35, 32);
            const uint32_t length = bigEndian32(s.body, 67);
            const uint32_t offset = bigEndian32(s.body, 71);
            const std::string chunk = s.body.substr(75);
            std::string& document = x.extended[guid];
            if (document.empty())
                document.assign(length, '\0');
            EXPECT_EQ(document.size(), length);
            EXPECT_EQ(offset, covered[guid]) << "chunks out of order or overlapping";
            EXPECT_LE(offset + chunk.size(), length);
            document.replace(offset, chunk.size(), chunk);
            covered[guid] = offset + static_cast<uint32_t>(chunk.size());
        }
    }
    for (const auto& [guid, end] : covered)
        EXPECT_EQ(end, x.extended[guid].size()) << "extended XMP " << guid << " incomplete";
    return x;
}

using Properties = std::map<std::string, std::string>;

Properties properties(const Exiv2::XmpData& xmp)
{
    Properties p;
    for (const Exiv2::Xmpdatum& d : xmp)
        p[d.key()] = d.toString();
    return p;
}

Properties decoded(const std::string& packet)
{
    Exiv2::XmpData xmp;
    EXPECT_EQ(Exiv2::XmpParser::decode(xmp, packet), 0);
    return properties(xmp);
}

// The XMP of any file as Exiv2 reads it (for a JPEG: the standard packet).
Properties fileXmp(const std::string& path)
{
    auto image = Exiv2::ImageFactory::open(path);
    image->readMetadata();
    return properties(image->xmpData());
}

// The properties of a JPEG output with extended XMP, checked on the way:
// one standard packet of at most 65502 bytes naming one extended document
// by the MD5 of its bytes.
Properties mergedJpegXmp(const TempDir& dir, const std::string& path)
{
    const JpegXmp x = jpegXmp(path);
    EXPECT_EQ(x.standardPackets.size(), 1u);
    EXPECT_EQ(x.extended.size(), 1u);
    if (x.standardPackets.size() != 1 || x.extended.size() != 1)
        return {};
    EXPECT_LE(x.standardPackets[0].size(), 65502u);
    Properties merged = decoded(x.standardPackets[0]);
    const auto& [guid, document] = *x.extended.begin();
    EXPECT_EQ(merged[kNoteKey], guid);
    EXPECT_EQ(guid, md5Hex(dir, document));
    merged.erase(kNoteKey);
    for (const auto& [key, value] : decoded(document)) {
        EXPECT_EQ(merged.count(key), 0u) << key << " in both parts";
        merged[key] = value;
    }
    return merged;
}

// A 100 KB description, an editing history, developer settings, 40
// properties of 2000 bytes in a namespace of their own and a few small ones.
Exiv2::XmpData largeXmp()
{
    initXmp();
    Exiv2::XmpData xmp;
    xmp["Xmp.dc.description"] = std::string(100000, 'x');
    xmp["Xmp.dc.title"] = "Harbour at dawn";
    xmp["Xmp.xmp.Rating"] = "4";
    Exiv2::XmpArrayValue subject(Exiv2::xmpBag);
    for (const char* word : {"boats", "fog", "morning"})
        subject.read(word);
    xmp.add(Exiv2::XmpKey("Xmp.dc.subject"), &subject);
    Exiv2::XmpTextValue history;
    history.setXmpArrayType(Exiv2::XmpValue::xaSeq);
    xmp.add(Exiv2::XmpKey("Xmp.xmpMM.History"), &history);
    xmp["Xmp.xmpMM.History[1]/stEvt:action"] = "created";
    xmp["Xmp.xmpMM.History[2]/stEvt:action"] = "saved";
    xmp["Xmp.crs.Exposure2012"] = "+0.50";
    for (int i = 0; i < 40; ++i)
        xmp["Xmp.mxt.Note" + std::to_string(i)] = std::string(2000, static_cast<char>('a' + i % 26));
    return xmp;
}

void setXmp(const std::string& path, const Exiv2::XmpData& xmp)
{
    auto image = Exiv2::ImageFactory::open(path);
    image->readMetadata();
    image->setXmpData(xmp);
    image->writeMetadata();
}

// The document of a JPEG input's extended XMP: an editing history of some
// 90 KB and a short instruction, written out as XMP by hand.
std::string extendedDocument()
{
    std::string history;
    for (int i = 0; history.size() < 90000; ++i)
        history += "step " + std::to_string(i) + ": curves adjusted; ";
    return "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"><rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">"
           "<rdf:Description rdf:about=\"\" xmlns:photoshop=\"http://ns.adobe.com/photoshop/1.0/\">"
           "<photoshop:History>" +
           history +
           "</photoshop:History><photoshop:Instructions>Keep the fog</photoshop:Instructions>"
           "</rdf:Description></rdf:RDF></x:xmpmeta>";
}

// A JPEG photo whose standard XMP (a title) names `document` as its
// extended XMP; the chunks of 40000 bytes whose indexes are in `chunks` go
// right after the start of the image, last first.
void writeJpegWithExtendedXmp(const TempDir& dir, const std::string& path, const std::string& document,
                              const std::vector<size_t>& chunks)
{
    initXmp();
    writeImage(path, noisyPhoto(160, 120), ImageFormat::Jpeg);
    const std::string guid = md5Hex(dir, document);
    Exiv2::XmpData xmp;
    xmp["Xmp.dc.title"] = "Harbour at dawn";
    xmp[kNoteKey] = guid;
    setXmp(path, xmp);
    std::string jpeg = fileText(path);
    std::string added;
    for (size_t i : chunks)
        added = extendedSegment(guid, document, i * 40000, 40000) + added;
    jpeg.insert(2, added);
    writeText(path, jpeg);
}

std::string denoise(const std::string& in, const std::string& out, const std::string& profile, bool quiet = true)
{
    std::vector<std::string> args = {"denoise", in, "--profile", profile, "-o", out};
    if (quiet)
        args.push_back("-q");
    const RunResult r = runMurmex(args);
    EXPECT_EQ(r.status, 0) << r.err;
    return r.err;
}

}  // namespace

TEST(CliXmp, TiffWithLargeXmpBecomesAJpegKeepingEveryProperty)
{
    TempDir dir;
    const std::string profile = makeProfile(dir, "p.dnp", 300, 200);
    writeImage(dir.file("in.tif"), noisyPhoto(160, 120), ImageFormat::Tiff);
    setXmp(dir.file("in.tif"), largeXmp());
    const Properties input = fileXmp(dir.file("in.tif"));
    ASSERT_EQ(input.at("Xmp.dc.description").size(), 100000u + std::string("lang=\"x-default\" ").size());

    // Without --quiet: nothing but the progress on standard error.
    const std::string err = denoise(dir.file("in.tif"), dir.file("out.jpg"), profile, false);
    EXPECT_FALSE(contains(err, "murmex:")) << err;
    const JpegXmp x = jpegXmp(dir.file("out.jpg"));
    // 100 KB and more of extension: more than one segment.
    EXPECT_GE(x.extendedSegments, 2u);
    EXPECT_EQ(mergedJpegXmp(dir, dir.file("out.jpg")), input);
    // The small properties stay in the standard packet, for readers of it alone.
    const Properties standard = decoded(x.standardPackets.at(0));
    for (const char* key : {"Xmp.dc.title", "Xmp.xmp.Rating", "Xmp.dc.subject", "Xmp.xmpMM.History[2]/stEvt:action"})
        EXPECT_EQ(standard.count(key), 1u) << key;
    EXPECT_EQ(standard.count("Xmp.dc.description"), 0u);
    // Filled, not emptied: only as much moved as had to.
    EXPECT_GT(x.standardPackets.at(0).size(), 40000u);

    // Read back by the program: a TIFF made from the JPEG has it all again.
    denoise(dir.file("out.jpg"), dir.file("back.tif"), profile);
    EXPECT_EQ(fileXmp(dir.file("back.tif")), input);
}

TEST(CliXmp, JpegWithExtendedXmpKeepsItInEveryOutputFormat)
{
    TempDir dir;
    const std::string profile = makeProfile(dir, "p.dnp", 300, 200);
    const std::string document = extendedDocument();
    writeJpegWithExtendedXmp(dir, dir.file("in.jpg"), document, {0, 1, 2});
    Properties expected = decoded(document);
    expected["Xmp.dc.title"] = "lang=\"x-default\" Harbour at dawn";
    ASSERT_GT(expected.at("Xmp.photoshop.History").size(), 90000u);

    for (const char* name : {"out.tif", "out.png"}) {
        SCOPED_TRACE(name);
        denoise(dir.file("in.jpg"), dir.file(name), profile);
        EXPECT_EQ(fileXmp(dir.file(name)), expected);
    }
    denoise(dir.file("in.jpg"), dir.file("out.jpg"), profile);
    EXPECT_EQ(mergedJpegXmp(dir, dir.file("out.jpg")), expected);
}

TEST(CliXmp, DamagedExtendedXmpIsLeftOutWithItsNote)
{
    TempDir dir;
    const std::string profile = makeProfile(dir, "p.dnp", 300, 200);
    // The middle chunk is missing.
    writeJpegWithExtendedXmp(dir, dir.file("in.jpg"), extendedDocument(), {0, 2});
    // Whole, but no XMP (the XML breaks off).
    const std::string document = extendedDocument();
    writeJpegWithExtendedXmp(dir, dir.file("broken.jpg"), document.substr(0, document.size() - 30), {0, 1, 2});
    for (const char* name : {"in.jpg", "broken.jpg"}) {
        SCOPED_TRACE(name);
        for (const char* out : {"out.tif", "out.jpg"}) {
            denoise(dir.file(name), dir.file(out), profile);
            EXPECT_EQ(fileXmp(dir.file(out)), (Properties{{"Xmp.dc.title", "lang=\"x-default\" Harbour at dawn"}}));
        }
        EXPECT_EQ(jpegXmp(dir.file("out.jpg")).extendedSegments, 0u);
    }
}

TEST(CliXmp, SmallXmpStaysInOneSegmentOfAJpegOutput)
{
    TempDir dir;
    const std::string profile = makeProfile(dir, "p.dnp", 300, 200);
    writeImage(dir.file("in.tif"), noisyPhoto(160, 120), ImageFormat::Tiff);
    setCameraExif(dir.file("in.tif"), "Canon", "EOS 5D", 800);
    initXmp();
    Exiv2::XmpData xmp;
    xmp["Xmp.dc.title"] = "Harbour at dawn";
    xmp["Xmp.mxt.Note"] = std::string(60000, 'n');
    setXmp(dir.file("in.tif"), xmp);
    denoise(dir.file("in.tif"), dir.file("out.jpg"), profile);

    int exifSegments = 0;
    for (const Segment& s : headerSegments(fileText(dir.file("out.jpg"))))
        exifSegments += s.marker == 0xe1 && startsWith(s.body, std::string("Exif\0\0", 6));
    EXPECT_EQ(exifSegments, 1);
    const JpegXmp x = jpegXmp(dir.file("out.jpg"));
    ASSERT_EQ(x.standardPackets.size(), 1u);
    EXPECT_EQ(x.extendedSegments, 0u);
    const Properties standard = decoded(x.standardPackets[0]);
    EXPECT_EQ(standard, fileXmp(dir.file("in.tif")));
    EXPECT_EQ(standard.count(kNoteKey), 0u);
}

TEST(CliXmp, ExifTooLargeForJpegIsRefusedBeforeTheWork)
{
    TempDir dir;
    const std::string profile = makeProfile(dir, "p.dnp", 300, 200);
    writeImage(dir.file("in.tif"), noisyPhoto(160, 120), ImageFormat::Tiff);
    {
        // Five texts of 19000 bytes: each small enough for Exiv2 to keep,
        // together too large for the one segment that a JPEG's EXIF has.
        auto image = Exiv2::ImageFactory::open(dir.file("in.tif"));
        image->readMetadata();
        Exiv2::ExifData& exif = image->exifData();
        for (const char* key : {"Exif.Image.ImageDescription", "Exif.Image.Artist", "Exif.Image.Copyright",
                                "Exif.Image.Software", "Exif.Image.HostComputer"})
            exif[key] = std::string(19000, 'e');
        image->writeMetadata();
    }
    // Without --quiet, so that any progress of the denoising would show.
    RunResult r = runMurmex({"denoise", dir.file("in.tif"), "--profile", profile, "-o", dir.file("out.jpg")});
    EXPECT_EQ(r.status, 1);
    expectOneLineError(r, "cannot write " + dir.file("out.jpg") + ": the EXIF metadata of " + dir.file("in.tif") +
                              " does not fit in a JPEG file (at most 64 KB); write TIFF or PNG");
    EXPECT_FALSE(fs::exists(dir.file("out.jpg")));
    EXPECT_EQ(listDir(dir.path()), (std::vector<std::string>{"in.tif", "p.dnp", "profile-source.tif"}));
    // TIFF holds it.
    r = runMurmex({"denoise", dir.file("in.tif"), "--profile", profile, "-o", dir.file("out.tif"), "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(exifValue(dir.file("out.tif"), "Exif.Image.Copyright").size(), 19000u);
}

}  // namespace murmex_test
