// Tests of the profile header outside the library: header records of the
// three stream versions assembled byte by byte and read, the tagged record
// written in their place with everything after it kept, the mapping from
// camera EXIF, and the automatic directory and file names.

#include "murmex/profile_header.h"

#include <cmath>
#include <cstring>

#include <gtest/gtest.h>

#include "murmex/app_error.h"
#include "murmex/murmex.h"
#include "support/byte_builder.h"
#include "support/temp_dir.h"

using murmex_app::AppError;
using murmex_app::autoProfileDirectory;
using murmex_app::autoProfileFileName;
using murmex_app::CameraInfo;
using murmex_app::headerFromCamera;
using murmex_app::ProfileHeader;
using murmex_app::readProfileHeader;
using murmex_app::withProfileHeader;
using murmex_test::ByteBuilder;
using Bytes = std::vector<uint8_t>;

namespace {

// The flag, index and tag words of one tagged field.
ByteBuilder& field(ByteBuilder& b, int32_t index, int32_t tag, int32_t flag)
{
    return b.i32(index).i32(tag).i32(flag);
}

// An absent text as the writer stores it: the empty C text, a length of 1
// and the zero byte.
ByteBuilder& absentText(ByteBuilder& b)
{
    return b.u32(1).raw(std::string(1, '\0'));
}

// Stands for the samples and settings that follow the header record; the
// header code must copy them untouched.
Bytes tailBytes()
{
    ByteBuilder b;
    b.i32(1);
    for (int i = 0; i < 18; ++i)
        b.f32(0.25f * static_cast<float>(i) - 1.0f);
    b.raw("settings follow \x01\x02\x03");
    return b.bytes();
}

Bytes join(const Bytes& a, const Bytes& b)
{
    Bytes out = a;
    out.insert(out.end(), b.begin(), b.end());
    return out;
}

// Version 44548 with all 17 fields present, as the library writes it.
ByteBuilder fullTaggedRecord()
{
    ByteBuilder b;
    b.u32(44548).i32(20).block("<profilehdr/> text for people");
    b.i32(17);
    field(b, 0, 0, 1).text("Canon");
    field(b, 1, 0, 1).text("EOS 5D");
    field(b, 2, 0, 1).text("Velvia");
    field(b, 3, 1, 1).i32(800);
    field(b, 4, 1, 1).i32(4);
    field(b, 5, 2, 1).f32(0.004f);
    field(b, 6, 2, 1).f32(-0.5f);
    field(b, 7, 2, 1).i32(13);  // tagged float, stored as an integer
    field(b, 8, 1, 1).i32(1);
    field(b, 9, 1, 1).i32(3);
    field(b, 10, 1, 1).i32(21);
    field(b, 11, 1, 1).i32(2);
    field(b, 12, 1, 1).i32(4);
    field(b, 13, 2, 1).f32(20.5f);
    field(b, 14, 0, 1).text("Adobe RGB");
    field(b, 15, 0, 1).text("Tester");
    field(b, 16, 0, 1).text("a <comment> & more");
    return b;
}

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

bool endsWith(const Bytes& all, const Bytes& tail)
{
    return all.size() >= tail.size() && std::equal(tail.begin(), tail.end(), all.end() - static_cast<long>(tail.size()));
}

}  // namespace

TEST(ProfileHeaderTest, ReadsTaggedVersion44548WithAllFields)
{
    const Bytes bytes = join(fullTaggedRecord().bytes(), tailBytes());
    expectSameHeader(readProfileHeader(bytes), fullHeader());
}

TEST(ProfileHeaderTest, AbsentTaggedFieldsAreAbsentWhateverTheirStoredValue)
{
    ByteBuilder b;
    b.u32(44548).i32(20).block("");
    b.i32(5);
    absentText(field(b, 0, 0, 0));
    field(b, 3, 1, 0).i32(0);
    field(b, 5, 2, 0).f32(7.0f);  // a value stored with the flag clear is not used
    field(b, 1, 0, 1).text("");   // present and empty
    field(b, 16, 0, 0).text("ignored");
    const ProfileHeader h = readProfileHeader(b.bytes());
    EXPECT_FALSE(h.maker);
    EXPECT_FALSE(h.iso);
    EXPECT_FALSE(h.shutterSpeed);
    EXPECT_EQ(h.model, std::optional<std::string>(""));
    EXPECT_FALSE(h.comment);
    EXPECT_FALSE(h.film);
}

TEST(ProfileHeaderTest, KnownFieldIsReadInItsOwnKindWhateverItsTag)
{
    ByteBuilder b;
    b.u32(44548).i32(20).block("");
    b.i32(2);
    field(b, 7, 2, 1).i32(24);    // megapixels: tagged float, an integer
    field(b, 13, 1, 1).f32(-5.0f);  // temperature tagged as integer, still a float
    const ProfileHeader h = readProfileHeader(b.bytes());
    EXPECT_EQ(h.megapixels, std::optional<int>(24));
    EXPECT_EQ(h.temperature, std::optional<float>(-5.0f));
}

TEST(ProfileHeaderTest, UnknownFieldWithTag2IsSkippedByOneFloat)
{
    ByteBuilder b;
    b.u32(44548).i32(20).block("");
    b.i32(3);
    field(b, 0, 0, 1).text("Nikon");
    field(b, 40, 2, 1).f32(1.5f);
    field(b, 1, 0, 1).text("D70");
    const ProfileHeader h = readProfileHeader(b.bytes());
    EXPECT_EQ(h.maker, std::optional<std::string>("Nikon"));
    EXPECT_EQ(h.model, std::optional<std::string>("D70"));
}

TEST(ProfileHeaderTest, UnknownFieldWithTag5SkipsNothing)
{
    ByteBuilder b;
    b.u32(44548).i32(20).block("");
    b.i32(3);
    field(b, 0, 0, 1).text("Nikon");
    field(b, 41, 5, 1);  // no value follows
    field(b, 3, 1, 1).i32(1600);
    const ProfileHeader h = readProfileHeader(b.bytes());
    EXPECT_EQ(h.maker, std::optional<std::string>("Nikon"));
    EXPECT_EQ(h.iso, std::optional<int>(1600));
}

TEST(ProfileHeaderTest, UnknownFieldsWithStringAndIntegerTagsSkipOneValue)
{
    ByteBuilder b;
    b.u32(44548).i32(20).block("");
    b.i32(3);
    field(b, 17, 0, 1).text("a later writer's text");
    field(b, -2, 1, 0).i32(99);
    field(b, 4, 1, 1).i32(8);
    EXPECT_EQ(readProfileHeader(b.bytes()).multisampling, std::optional<int>(8));
}

TEST(ProfileHeaderTest, ReadsVersion44547FixedLayoutWithExposureCompensationZero)
{
    ByteBuilder b;
    b.u32(44547).i32(20).block("text");
    b.i32(1).text("Olympus");
    b.i32(1).text("E-1");
    b.i32(0);
    absentText(b);               // film absent
    b.i32(1).i32(400);           // iso
    b.i32(0).i32(0);             // multisampling absent
    b.i32(1).f32(0.5f);          // shutter speed
    b.i32(1).i32(5);             // megapixels
    b.i32(1).i32(2);             // quality
    b.i32(1).i32(4);             // sharpness
    b.i32(1).i32(1);             // illuminant
    b.i32(1).i32(5);             // contrast
    b.i32(0).i32(3);             // saturation absent
    b.i32(1).f32(-10.0f);        // temperature
    b.i32(1).text("sRGB");
    b.i32(1).text("");           // author present, empty
    b.i32(1).text("c");
    const Bytes bytes = join(b.bytes(), tailBytes());
    const ProfileHeader h = readProfileHeader(bytes);
    EXPECT_EQ(h.maker, std::optional<std::string>("Olympus"));
    EXPECT_EQ(h.model, std::optional<std::string>("E-1"));
    EXPECT_FALSE(h.film);
    EXPECT_EQ(h.iso, std::optional<int>(400));
    EXPECT_FALSE(h.multisampling);
    EXPECT_EQ(h.shutterSpeed, std::optional<float>(0.5f));
    EXPECT_EQ(h.exposureComp, std::optional<float>(0.0f));
    EXPECT_EQ(h.megapixels, std::optional<int>(5));
    EXPECT_EQ(h.quality, std::optional<int>(2));
    EXPECT_EQ(h.sharpness, std::optional<int>(4));
    EXPECT_EQ(h.illuminant, std::optional<int>(1));
    EXPECT_EQ(h.contrast, std::optional<int>(5));
    EXPECT_FALSE(h.saturation);
    EXPECT_EQ(h.temperature, std::optional<float>(-10.0f));
    EXPECT_EQ(h.colorSpace, std::optional<std::string>("sRGB"));
    EXPECT_EQ(h.author, std::optional<std::string>(""));
    EXPECT_EQ(h.comment, std::optional<std::string>("c"));
}

TEST(ProfileHeaderTest, ReadsVersion44546WithShutterSpeedAndTemperatureAbsentAndExposureCompensationZero)
{
    ByteBuilder b;
    b.u32(44546).i32(20);  // no header text block in this version
    b.text("Pentax").text("").text("Provia");
    b.i32(100).i32(2);
    b.i32(12345);  // an old shutter-speed word, dropped
    b.i32(6).i32(3).i32(1).i32(11).i32(2).i32(5);
    b.text("ProPhoto RGB").text("Me").text("dropped text").text("old comment");
    const Bytes bytes = join(b.bytes(), tailBytes());
    const ProfileHeader h = readProfileHeader(bytes);
    EXPECT_EQ(h.maker, std::optional<std::string>("Pentax"));
    EXPECT_EQ(h.model, std::optional<std::string>(""));  // every stored field is present
    EXPECT_EQ(h.film, std::optional<std::string>("Provia"));
    EXPECT_EQ(h.iso, std::optional<int>(100));
    EXPECT_EQ(h.multisampling, std::optional<int>(2));
    EXPECT_FALSE(h.shutterSpeed);
    EXPECT_EQ(h.exposureComp, std::optional<float>(0.0f));
    EXPECT_EQ(h.megapixels, std::optional<int>(6));
    EXPECT_EQ(h.quality, std::optional<int>(3));
    EXPECT_EQ(h.sharpness, std::optional<int>(1));
    EXPECT_EQ(h.illuminant, std::optional<int>(11));
    EXPECT_EQ(h.contrast, std::optional<int>(2));
    EXPECT_EQ(h.saturation, std::optional<int>(5));
    EXPECT_FALSE(h.temperature);
    EXPECT_EQ(h.colorSpace, std::optional<std::string>("ProPhoto RGB"));
    EXPECT_EQ(h.author, std::optional<std::string>("Me"));
    EXPECT_EQ(h.comment, std::optional<std::string>("old comment"));
}

TEST(ProfileHeaderTest, TextIsCutAtItsFirstZeroByte)
{
    ByteBuilder b;
    b.u32(44548).i32(20).block("");
    b.i32(1);
    field(b, 0, 0, 1).u32(6).raw(std::string("ab\0cd\0", 6));
    EXPECT_EQ(readProfileHeader(b.bytes()).maker, std::optional<std::string>("ab"));
}

TEST(ProfileHeaderTest, UnknownVersionIsRefused)
{
    for (uint32_t version : {44545u, 44549u, 0u, 0xffffffffu}) {
        ByteBuilder b;
        b.u32(version).i32(20).block("").i32(0);
        try {
            readProfileHeader(b.bytes());
            ADD_FAILURE() << version;
        } catch (const AppError& e) {
            EXPECT_STREQ(e.what(), "Invalid version or corrupted noise profile");
        }
        EXPECT_THROW(withProfileHeader(b.bytes(), ProfileHeader{}), AppError);
    }
}

TEST(ProfileHeaderTest, EveryTruncationOfTheHeaderIsAnError)
{
    const Bytes full = fullTaggedRecord().bytes();
    for (size_t n = 0; n < full.size(); ++n) {
        const Bytes cut(full.begin(), full.begin() + static_cast<long>(n));
        EXPECT_THROW(readProfileHeader(cut), AppError) << n;
    }
    // A text whose length runs past the data.
    ByteBuilder b;
    b.u32(44548).i32(20).block("").i32(1);
    field(b, 0, 0, 1).u32(1000).raw("short");
    EXPECT_THROW(readProfileHeader(b.bytes()), AppError);
    ByteBuilder c;
    c.u32(44547).i32(20).u32(0x7fffffff);
    EXPECT_THROW(readProfileHeader(c.bytes()), AppError);
}

TEST(ProfileHeaderTest, Version1ProfileHasAnEmptyHeaderThatCannotBeReplaced)
{
    ByteBuilder b(true);
    b.i32(13243546).f32(0.5f).f32(0.5f).f32(0.5f).i32(0).i32(0);
    const ProfileHeader h = readProfileHeader(b.bytes());
    EXPECT_FALSE(h.maker || h.model || h.iso || h.exposureComp || h.comment);
    EXPECT_THROW(withProfileHeader(b.bytes(), fullHeader()), AppError);
}

TEST(ProfileHeaderTest, ReplacedHeaderIsTheTaggedRecordFieldByField)
{
    ProfileHeader h;
    h.maker = "Sony";
    h.model = "";  // present and empty
    h.iso = 3200;
    h.exposureComp = 0.75f;
    h.megapixels = 24;
    h.temperature = -7.5f;
    h.comment = "hi";
    ByteBuilder old;
    old.u32(44547).i32(20).block("old text");
    for (int i = 0; i < 3; ++i)
        absentText(old.i32(0));
    for (int i = 0; i < 2; ++i)
        old.i32(0).i32(0);
    old.i32(0).f32(0.0f);
    for (int i = 0; i < 6; ++i)
        old.i32(0).i32(0);
    old.i32(0).f32(0.0f);
    for (int i = 0; i < 3; ++i)
        absentText(old.i32(0));
    const Bytes tail = tailBytes();

    ByteBuilder want;
    want.u32(44548).i32(20).u32(0).i32(17);
    field(want, 0, 0, 1).text("Sony");
    field(want, 1, 0, 1).u32(0);  // a present empty text: a zero length
    absentText(field(want, 2, 0, 0));
    field(want, 3, 1, 1).i32(3200);
    field(want, 4, 1, 0).i32(0);
    field(want, 5, 2, 0).f32(0.0f);
    field(want, 6, 2, 1).f32(0.75f);
    field(want, 7, 2, 1).i32(24);
    for (int i = 8; i <= 12; ++i)
        field(want, i, 1, 0).i32(0);
    field(want, 13, 2, 1).f32(-7.5f);
    absentText(field(want, 14, 0, 0));
    absentText(field(want, 15, 0, 0));
    field(want, 16, 0, 1).text("hi");
    want.append(tail);

    EXPECT_EQ(withProfileHeader(join(old.bytes(), tail), h), want.bytes());
}

TEST(ProfileHeaderTest, ReplacedHeaderReadsBackAndKeepsTheTail)
{
    const Bytes tail = tailBytes();
    for (const Bytes& start : {join(fullTaggedRecord().bytes(), tail)}) {
        ProfileHeader h = fullHeader();
        h.maker = "Fujifilm";
        h.shutterSpeed.reset();
        h.author.reset();
        const Bytes replaced = withProfileHeader(start, h);
        expectSameHeader(readProfileHeader(replaced), h);
        EXPECT_TRUE(endsWith(replaced, tail));
        // Replacing again with the same header changes nothing.
        EXPECT_EQ(withProfileHeader(replaced, h), replaced);
    }
    ByteBuilder empty;
    empty.u32(44548).i32(20).block("").i32(0);
    const Bytes replaced = withProfileHeader(join(empty.bytes(), tail), ProfileHeader{});
    expectSameHeader(readProfileHeader(replaced), ProfileHeader{});
    EXPECT_TRUE(endsWith(replaced, tail));
}

namespace {

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

}  // namespace

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
