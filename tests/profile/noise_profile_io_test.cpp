#include <algorithm>
#include <filesystem>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/ex.h"
#include "filter/noise_filter_settings.h"
#include "profile/noise_profile.h"
#include "support/byte_builder.h"
#include "support/temp_dir.h"

using murmex_test::ByteBuilder;
using qtless::QString;

namespace {

using Bytes = std::vector<unsigned char>;

constexpr char kEmptyHeaderText[] =
    "\n\n<!-- Automatically generated. DO NOT EDIT. -->\n<profilehdr version=\"2.0\">\n\n</profilehdr>\n";

// The bytes of a default filter-settings stream, field by field.
void appendDefaultSettings(ByteBuilder& b, const JNoiseFilterSettings& f)
{
    b.u32(4664).u32(20);
    b.f32(0.55f).f32(3.0f).f32(1.0f);
    b.f32(0.75f).f32(3.0f).f32(1.0f);
    b.f32(0.75f).f32(3.0f).f32(1.0f);
    b.f32(1.6f).f32(1.2f);
    b.u32(1).u32(0).i32(3);
    b.u32(static_cast<uint32_t>(f.sampleCount()));
    for (int i = 0; i < f.sampleCount(); ++i) {
        const JLabCoord& c = f.getSample(i).color;
        b.f32(c.L).f32(c.a).f32(c.b);
        for (int k = 0; k < 6; ++k)
            b.f32(1.0f);
        b.i32(0);
    }
}

// A settings stream with no filter samples and some non-default values.
void appendSmallSettings(ByteBuilder& b)
{
    b.u32(4664).u32(20);
    for (int ch = 0; ch < 3; ++ch)
        b.f32(0.25f).f32(2.0f).f32(1.25f);
    b.f32(2.5f).f32(0.8f);
    b.u32(0).u32(1).i32(7);
    b.u32(0);
}

JNoiseSample makeSample(float L, float a, float bb, float base)
{
    JNoiseSample s;
    s.lab = JLabCoord(L, a, bb);
    for (int c = 0; c < 3; ++c)
        for (int l = 0; l < 5; ++l)
            s.noise[c][l] = base / static_cast<float>(1 + l) + 0.125f * static_cast<float>(c);
    return s;
}

void appendSample(ByteBuilder& b, const JNoiseSample& s)
{
    b.f32(s.lab.L).f32(s.lab.a).f32(s.lab.b);
    for (int c = 0; c < 3; ++c)
        for (int l = 0; l < 5; ++l)
            b.f32(s.noise[c][l]);
}

std::string jexMessage(const std::function<void()>& f)
{
    try {
        f();
    } catch (const JEx& e) {
        return e.what();
    }
    return "(no exception)";
}

// Loads every proper prefix of bytes from a block of exactly that length.
// Each must end in a JEx or return; any other outcome fails the test, and the
// sanitizer build catches an access outside the block.
void loadEveryTruncation(const Bytes& bytes)
{
    JNoiseProfile p;
    for (size_t len = 0; len < bytes.size(); ++len) {
        std::unique_ptr<unsigned char[]> block(new unsigned char[len > 0 ? len : 1]);
        std::copy(bytes.begin(), bytes.begin() + static_cast<long>(len), block.get());
        try {
            p.load(block.get(), static_cast<int>(len));
        } catch (const JEx&) {
        } catch (const std::exception& e) {
            ADD_FAILURE() << "length " << len << ": " << e.what();
        }
    }
}

// A 44548 profile: header text block, the given tagged fields, no samples,
// small settings.
Bytes tagged(const std::function<void(ByteBuilder&)>& fields, int count)
{
    ByteBuilder b;
    b.u32(44548).u32(20).block(kEmptyHeaderText).i32(count);
    fields(b);
    b.i32(0);
    appendSmallSettings(b);
    return b.bytes();
}

Bytes profile44546()
{
    ByteBuilder b;
    b.u32(44546).u32(20);
    b.text("Acme").text("Z9").text("Pan");
    b.i32(800).i32(2);
    b.i32(125);  // dropped
    b.i32(24).i32(1).i32(3).i32(21).i32(2).i32(4);
    b.text("sRGB").text("Me").text("dropped").text("old");
    b.i32(1);
    appendSample(b, makeSample(50.0f, 1.0f, -2.0f, 0.5f));
    appendSmallSettings(b);
    return b.bytes();
}

Bytes profile44547()
{
    ByteBuilder b;
    b.u32(44547).u32(20).block("text");
    b.i32(1).text("Acme");
    b.i32(0).text("ignored");
    b.i32(1).text("");
    b.i32(1).i32(400);
    b.i32(0).i32(8);
    b.i32(1).f32(0.5f);
    b.i32(1).i32(16);
    b.i32(0).i32(2);
    b.i32(1).i32(5);
    b.i32(1).i32(10);
    b.i32(7).i32(1);
    b.i32(0).i32(2);
    b.i32(1).f32(-5.0f);
    b.i32(1).text("Adobe RGB");
    b.i32(0).text("");
    b.i32(1).text("note");
    b.i32(2);
    appendSample(b, makeSample(30.0f, 0.0f, 0.0f, 0.25f));
    appendSample(b, makeSample(70.0f, 10.0f, 5.0f, 0.75f));
    appendSmallSettings(b);
    return b.bytes();
}

Bytes profile44548()
{
    return tagged(
        [](ByteBuilder& b) {
            b.i32(0).i32(0).i32(1).text("Acme");
            b.i32(7).i32(2).i32(1).i32(36);
            b.i32(13).i32(2).i32(1).f32(21.5f);
            b.i32(16).i32(0).i32(0).text("x");
        },
        4);
}

// A Version 1 profile: little-endian, three channel blocks.
struct V1Block {
    float ref[3];
    std::vector<float> weights;
    int pairs;
};

float v1Value(int c, int k)
{
    return 0.5f + 0.001f * static_cast<float>(k) + 0.25f * static_cast<float>(c);
}

Bytes version1(const V1Block (&blocks)[3])
{
    ByteBuilder b(true);
    for (int c = 0; c < 3; ++c) {
        const V1Block& blk = blocks[c];
        b.i32(13243546).f32(blk.ref[0]).f32(blk.ref[1]).f32(blk.ref[2]);
        b.i32(static_cast<int>(blk.weights.size()));
        for (float w : blk.weights)
            b.f32(w);
        b.i32(blk.pairs);
        for (int i = 0; i < blk.pairs; ++i)
            b.f32(9.0f).f32(-9.0f);
        for (int k = 0; k < 512; ++k)
            b.f32(v1Value(c, k));
    }
    return b.bytes();
}

// Cell 163: Y 2, Cr 4, Cb 3 in eighths, at the cell centres.
constexpr int kRefCell = 163;
const V1Block kTwoWeights[3] = {
    {{0.3125f, 0.5625f, 0.4375f}, {2.0f, 0.8f}, 1},
    {{0.3125f, 0.5625f, 0.4375f}, {1.0f, 0.6f, 0.3f, 0.2f, 0.1f}, 0},
    {{0.3125f, 0.5625f, 0.4375f}, {4.0f}, 2},
};

void expectSameHeader(const JProfileHeader& a, const JProfileHeader& b)
{
#define MURMEX_SAME_FIELD(f)                   \
    EXPECT_EQ(a.f.present, b.f.present) << #f; \
    if (a.f.present) {                         \
        EXPECT_EQ(a.f.value, b.f.value) << #f; \
    }
    MURMEX_SAME_FIELD(maker)
    MURMEX_SAME_FIELD(model)
    MURMEX_SAME_FIELD(film)
    MURMEX_SAME_FIELD(iso)
    MURMEX_SAME_FIELD(multisampling)
    MURMEX_SAME_FIELD(shutterspeed)
    MURMEX_SAME_FIELD(exposurecomp)
    MURMEX_SAME_FIELD(megapixels)
    MURMEX_SAME_FIELD(quality)
    MURMEX_SAME_FIELD(sharpness)
    MURMEX_SAME_FIELD(illuminant)
    MURMEX_SAME_FIELD(contrast)
    MURMEX_SAME_FIELD(saturation)
    MURMEX_SAME_FIELD(temperature)
    MURMEX_SAME_FIELD(colorspace)
    MURMEX_SAME_FIELD(author)
    MURMEX_SAME_FIELD(comment)
#undef MURMEX_SAME_FIELD
}

}  // namespace

// --- writer ------------------------------------------------------------------

TEST(NoiseProfileIoTest, SavedBytesMatchTheLayoutFieldByField)
{
    JNoiseProfile p;
    JProfileHeader h;
    h.maker.set("A&B");
    h.iso.set(200);
    h.megapixels.set(12);
    h.temperature.set(20.0f);
    h.comment.set("hi");
    h.model.value = "not present";
    p.setHeader(h);
    const JNoiseSample s1 = makeSample(40.0f, 2.0f, -3.0f, 1.0f);
    const JNoiseSample s2 = makeSample(60.0f, -4.0f, 8.0f, 2.0f);
    p.addSample(s1);
    p.addSample(s2);

    unsigned char* data = nullptr;
    int length = 0;
    p.save(&data, &length);
    std::unique_ptr<unsigned char[]> owned(data);

    const std::string text = "\n\n<!-- Automatically generated. DO NOT EDIT. -->\n"
                             "<profilehdr version=\"2.0\">\n"
                             "  <maker>A&amp;B</maker>\n"
                             "  <iso>200</iso>\n"
                             "  <megapixels>12</megapixels>\n"
                             "  <temperature>20.000000</temperature>\n"
                             "  <comment>hi</comment>"
                             "\n</profilehdr>\n";
    ByteBuilder b;
    b.u32(0xAE04).u32(20).block(text).i32(17);
    b.i32(0).i32(0).i32(1).text("A&B");
    b.i32(1).i32(0).i32(0).u32(1).raw(std::string(1, '\0'));  // absent text: 00 00 00 01 00
    b.i32(2).i32(0).i32(0).u32(1).raw(std::string(1, '\0'));
    b.i32(3).i32(1).i32(1).i32(200);
    b.i32(4).i32(1).i32(0).i32(0);
    b.i32(5).i32(2).i32(0).f32(0.0f);
    b.i32(6).i32(2).i32(0).f32(0.0f);
    b.i32(7).i32(2).i32(1).i32(12);  // tagged float, an integer value
    b.i32(8).i32(1).i32(0).i32(0);
    b.i32(9).i32(1).i32(0).i32(0);
    b.i32(10).i32(1).i32(0).i32(0);
    b.i32(11).i32(1).i32(0).i32(0);
    b.i32(12).i32(1).i32(0).i32(0);
    b.i32(13).i32(2).i32(1).f32(20.0f);
    b.i32(14).i32(0).i32(0).u32(1).raw(std::string(1, '\0'));
    b.i32(15).i32(0).i32(0).u32(1).raw(std::string(1, '\0'));
    b.i32(16).i32(0).i32(1).text("hi");
    b.i32(2);
    appendSample(b, s1);
    appendSample(b, s2);
    appendDefaultSettings(b, p.settings());

    ASSERT_EQ(static_cast<size_t>(length), b.size());
    EXPECT_EQ(Bytes(data, data + length), b.bytes());
}

TEST(NoiseProfileIoTest, PresentEmptyTextIsWrittenAsZeroLength)
{
    JNoiseProfile p;
    JProfileHeader h;
    h.maker.set("");
    p.setHeader(h);
    unsigned char* data = nullptr;
    int length = 0;
    p.save(&data, &length);
    std::unique_ptr<unsigned char[]> owned(data);
    ByteBuilder b;
    b.u32(44548).u32(20).block(
        "\n\n<!-- Automatically generated. DO NOT EDIT. -->\n<profilehdr version=\"2.0\">\n  <maker></maker>\n\n</profilehdr>\n");
    b.i32(17).i32(0).i32(0).i32(1).u32(0).i32(1);
    const Bytes& want = b.bytes();
    ASSERT_GE(static_cast<size_t>(length), want.size());
    EXPECT_EQ(Bytes(data, data + want.size()), want);
}

TEST(NoiseProfileIoTest, SaveToFileWritesTheSameBytesAndSetsThePath)
{
    murmex_test::TempDir dir;
    JNoiseProfile p;
    JProfileHeader h;
    h.model.set("Z9");
    p.setHeader(h);
    p.addSample(makeSample(50.0f, 0.0f, 0.0f, 1.0f));
    const std::string path = dir.file("z9.dnp");
    p.save(QString(path.c_str()));
    EXPECT_EQ(p.getFileName(), QString("z9"));
    unsigned char* data = nullptr;
    int length = 0;
    p.save(&data, &length);
    std::unique_ptr<unsigned char[]> owned(data);
    EXPECT_EQ(murmex_test::readFileBytes(path), Bytes(data, data + length));
}

// --- round trip --------------------------------------------------------------

TEST(NoiseProfileIoTest, SavedFileLoadsBackWithHeaderSamplesAndSettings)
{
    murmex_test::TempDir dir;
    JNoiseProfile p;
    JProfileHeader h;
    h.maker.set("Acme <Corp>");
    h.model.set("Z9");
    h.iso.set(1600);
    h.shutterspeed.set(0.004f);
    h.exposurecomp.set(-0.33f);
    h.megapixels.set(45);
    h.quality.set(1);
    h.illuminant.set(255);
    h.temperature.set(-5.5f);
    h.author.set("Me");
    h.comment.value = "absent";
    p.setHeader(h);
    JNoiseSample small = makeSample(50.0f, 3.0f, -1.0f, 0.8f);
    for (int c = 0; c < 3; ++c)
        for (int l = 2; l < 5; ++l)
            small.noise[c][l] = -1.0f;
    p.addSample(small);
    p.addSample(makeSample(20.0f, -8.0f, 12.0f, 0.4f));
    p.buildProfile();
    p.settings().setStrength(1, 0.3f);
    p.settings().setUSMAmount(4.0f);
    p.settings().setLowFreqFlag(true);
    p.settings().setUSMSuppressHalos(false);
    p.settings().getSample(5).factor[2] = 0.5f;
    p.settings().addColor(JLabCoord(55.0f, 5.0f, 5.0f));

    const std::string path = dir.file("round.dnp");
    p.save(QString(path.c_str()));

    JNoiseProfile q;
    q.load(QString(path.c_str()));
    expectSameHeader(q.header(), h);
    EXPECT_FALSE(q.header().comment.present);
    ASSERT_EQ(q.sampleCount(), 2);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(q.getSample(i).lab, p.getSample(i).lab);
        for (int c = 0; c < 3; ++c)
            for (int l = 0; l < 5; ++l)
                EXPECT_EQ(q.getSample(i).noise[c][l], p.getSample(i).noise[c][l]) << i << c << l;
    }
    const JNoiseFilterSettings& a = p.settings();
    const JNoiseFilterSettings& b = q.settings();
    for (int ch = 0; ch < 3; ++ch) {
        EXPECT_EQ(b.getStrength(ch), a.getStrength(ch));
        EXPECT_EQ(b.getSmoothness(ch), a.getSmoothness(ch));
        EXPECT_EQ(b.getContrast(ch), a.getContrast(ch));
    }
    EXPECT_EQ(b.getUSMAmount(), 4.0f);
    EXPECT_EQ(b.getUSMRadius(), a.getUSMRadius());
    EXPECT_FALSE(b.getUSMSuppressHalos());
    EXPECT_TRUE(b.getLowFreqFlag());
    ASSERT_EQ(b.sampleCount(), a.sampleCount());
    for (int i = 0; i < a.sampleCount(); ++i) {
        EXPECT_EQ(b.getSample(i).color, a.getSample(i).color);
        EXPECT_EQ(b.getSample(i).colors.size(), a.getSample(i).colors.size());
        for (int ch = 0; ch < 3; ++ch)
            EXPECT_EQ(b.getSample(i).factor[ch], a.getSample(i).factor[ch]);
    }
    EXPECT_EQ(q.getFileName(), QString("round"));
}

TEST(NoiseProfileIoTest, SavedBlockLoadsBackFromMemory)
{
    JNoiseProfile p;
    JProfileHeader h;
    h.film.set("Pan");
    h.saturation.set(3);
    p.setHeader(h);
    p.addSample(makeSample(50.0f, 0.0f, 0.0f, 1.0f));
    unsigned char* data = nullptr;
    int length = 0;
    p.save(&data, &length);
    std::unique_ptr<unsigned char[]> owned(data);
    JNoiseProfile q;
    q.load(data, length);
    expectSameHeader(q.header(), h);
    ASSERT_EQ(q.sampleCount(), 1);
    EXPECT_EQ(q.getSample(0).noise[1][3], p.getSample(0).noise[1][3]);
}

// --- stream layouts ----------------------------------------------------------

TEST(NoiseProfileIoTest, Version44546MarksShutterSpeedAndTemperatureAbsentAndExposureZero)
{
    const Bytes bytes = profile44546();
    JNoiseProfile p;
    p.load(bytes.data(), static_cast<int>(bytes.size()));
    const JProfileHeader& h = p.header();
    EXPECT_FALSE(h.shutterspeed.present);
    EXPECT_FALSE(h.temperature.present);
    EXPECT_TRUE(h.exposurecomp.present);
    EXPECT_EQ(h.exposurecomp.value, 0.0f);
    EXPECT_TRUE(h.maker.present);
    EXPECT_EQ(h.maker.value, QString("Acme"));
    EXPECT_EQ(h.model.value, QString("Z9"));
    EXPECT_EQ(h.film.value, QString("Pan"));
    EXPECT_EQ(h.iso.value, 800);
    EXPECT_EQ(h.multisampling.value, 2);
    EXPECT_EQ(h.megapixels.value, 24);
    EXPECT_EQ(h.quality.value, 1);
    EXPECT_EQ(h.sharpness.value, 3);
    EXPECT_EQ(h.illuminant.value, 21);
    EXPECT_EQ(h.contrast.value, 2);
    EXPECT_EQ(h.saturation.value, 4);
    EXPECT_TRUE(h.saturation.present);
    EXPECT_EQ(h.colorspace.value, QString("sRGB"));
    EXPECT_EQ(h.author.value, QString("Me"));
    EXPECT_EQ(h.comment.value, QString("old"));
    ASSERT_EQ(p.sampleCount(), 1);
    EXPECT_EQ(p.getSample(0).lab.L, 50.0f);
    EXPECT_EQ(p.settings().getStrength(0), 0.25f);
    EXPECT_EQ(p.settings().getParameter(), 7);
}

TEST(NoiseProfileIoTest, Version44547ReadsFlagsAndSetsExposureCompensationPresent)
{
    const Bytes bytes = profile44547();
    JNoiseProfile p;
    p.load(bytes.data(), static_cast<int>(bytes.size()));
    const JProfileHeader& h = p.header();
    EXPECT_TRUE(h.maker.present);
    EXPECT_EQ(h.maker.value, QString("Acme"));
    EXPECT_FALSE(h.model.present);
    EXPECT_EQ(h.model.value, QString(""));  // an absent text is not assigned
    EXPECT_TRUE(h.film.present);
    EXPECT_EQ(h.iso.value, 400);
    EXPECT_FALSE(h.multisampling.present);
    EXPECT_EQ(h.multisampling.value, 8);
    EXPECT_TRUE(h.shutterspeed.present);
    EXPECT_EQ(h.shutterspeed.value, 0.5f);
    EXPECT_TRUE(h.exposurecomp.present);
    EXPECT_EQ(h.exposurecomp.value, 0.0f);
    EXPECT_EQ(h.megapixels.value, 16);
    EXPECT_FALSE(h.quality.present);
    EXPECT_EQ(h.sharpness.value, 5);
    EXPECT_EQ(h.illuminant.value, 10);
    EXPECT_TRUE(h.contrast.present);  // flag 7 is stored as present
    EXPECT_FALSE(h.saturation.present);
    EXPECT_EQ(h.temperature.value, -5.0f);
    EXPECT_EQ(h.colorspace.value, QString("Adobe RGB"));
    EXPECT_FALSE(h.author.present);
    EXPECT_EQ(h.comment.value, QString("note"));
    ASSERT_EQ(p.sampleCount(), 2);
    EXPECT_EQ(p.getSample(1).lab.a, 10.0f);
}

TEST(NoiseProfileIoTest, Version44548ReadsKnownFieldsByIndexAndMegapixelsAsInteger)
{
    const Bytes bytes = profile44548();
    JNoiseProfile p;
    p.load(bytes.data(), static_cast<int>(bytes.size()));
    const JProfileHeader& h = p.header();
    EXPECT_EQ(h.maker.value, QString("Acme"));
    EXPECT_TRUE(h.megapixels.present);
    EXPECT_EQ(h.megapixels.value, 36);
    EXPECT_EQ(h.temperature.value, 21.5f);
    EXPECT_FALSE(h.comment.present);
    EXPECT_EQ(h.comment.value, QString(""));
    EXPECT_FALSE(h.model.present);
    EXPECT_EQ(p.sampleCount(), 0);
    EXPECT_EQ(p.settings().getUSMRadius(), 0.8f);
}

TEST(NoiseProfileIoTest, UnknownFieldWithTag2IsSkippedByReadingOneFloat)
{
    const Bytes bytes = tagged(
        [](ByteBuilder& b) {
            b.i32(40).i32(2).i32(1).f32(123.0f);
            b.i32(3).i32(1).i32(1).i32(200);
        },
        2);
    JNoiseProfile p;
    p.load(bytes.data(), static_cast<int>(bytes.size()));
    EXPECT_TRUE(p.header().iso.present);
    EXPECT_EQ(p.header().iso.value, 200);
    EXPECT_EQ(p.settings().getParameter(), 7);
}

TEST(NoiseProfileIoTest, UnknownFieldWithTag5SkipsNothing)
{
    const Bytes bytes = tagged(
        [](ByteBuilder& b) {
            b.i32(41).i32(5).i32(1);
            b.i32(3).i32(1).i32(1).i32(200);
        },
        2);
    JNoiseProfile p;
    p.load(bytes.data(), static_cast<int>(bytes.size()));
    EXPECT_EQ(p.header().iso.value, 200);
    EXPECT_EQ(p.settings().getParameter(), 7);
}

TEST(NoiseProfileIoTest, UnknownFieldsWithTextAndIntegerTagsAreSkipped)
{
    const Bytes bytes = tagged(
        [](ByteBuilder& b) {
            b.i32(-1).i32(0).i32(1).text("later");
            b.i32(17).i32(1).i32(0).i32(99);
            b.i32(1).i32(0).i32(1).text("Z9");
        },
        3);
    JNoiseProfile p;
    p.load(bytes.data(), static_cast<int>(bytes.size()));
    EXPECT_EQ(p.header().model.value, QString("Z9"));
}

TEST(NoiseProfileIoTest, KnownFieldIsReadInItsOwnKindWhateverItsTag)
{
    const Bytes bytes = tagged([](ByteBuilder& b) { b.i32(3).i32(0).i32(1).i32(640); }, 1);
    JNoiseProfile p;
    p.load(bytes.data(), static_cast<int>(bytes.size()));
    EXPECT_EQ(p.header().iso.value, 640);
}

TEST(NoiseProfileIoTest, NegativeFieldCountReadsNoField)
{
    const Bytes bytes = tagged([](ByteBuilder&) {}, -3);
    JNoiseProfile p;
    p.load(bytes.data(), static_cast<int>(bytes.size()));
    EXPECT_FALSE(p.header().maker.present);
    EXPECT_EQ(p.settings().getParameter(), 7);
}

TEST(NoiseProfileIoTest, UnknownVersionIsRejected)
{
    ByteBuilder b;
    b.u32(44549).u32(20);
    appendSmallSettings(b);
    JNoiseProfile p;
    EXPECT_EQ(jexMessage([&] { p.load(b.bytes().data(), static_cast<int>(b.size())); }),
              "Invalid version or corrupted noise profile");
    ByteBuilder old;
    old.u32(44545).u32(20);
    EXPECT_EQ(jexMessage([&] { p.load(old.bytes().data(), static_cast<int>(old.size())); }),
              "Invalid version or corrupted noise profile");
}

TEST(NoiseProfileIoTest, FourByteBlockFailsWithEndOfData)
{
    ByteBuilder b;
    b.u32(44548);
    JNoiseProfile p;
    EXPECT_EQ(jexMessage([&] { p.load(b.bytes().data(), 4); }), "Unexpected end of file");
}

// --- Version 1 ---------------------------------------------------------------

TEST(NoiseProfileIoTest, Version1WithTwoWeightsFillsLevels2To4WithHalfTheLastWeight)
{
    const Bytes bytes = version1(kTwoWeights);
    JNoiseProfile p;
    p.load(bytes.data(), static_cast<int>(bytes.size()));
    ASSERT_EQ(p.sampleCount(), 512);
    const JNoiseSample& ref = p.getSample(kRefCell);
    EXPECT_EQ(ref.ycrcb[0], 0.3125f);
    EXPECT_EQ(ref.ycrcb[1], 0.5625f);
    EXPECT_EQ(ref.ycrcb[2], 0.4375f);
    EXPECT_EQ(ref.noise[0][0], 2.0f);
    EXPECT_EQ(ref.noise[0][1], 0.8f);
    EXPECT_EQ(ref.noise[0][2], 0.4f);
    EXPECT_EQ(ref.noise[0][3], 0.4f);
    EXPECT_EQ(ref.noise[0][4], 0.4f);
    // Channel Cb has one weight: all four missing ones are 2.0.
    EXPECT_EQ(ref.noise[2][0], 4.0f);
    for (int l = 1; l < 5; ++l)
        EXPECT_EQ(ref.noise[2][l], 2.0f);
    EXPECT_EQ(ref.noise[1][4], 0.1f);
}

TEST(NoiseProfileIoTest, Version1ScalesEveryCellByItsRatioToTheReferenceCell)
{
    const Bytes bytes = version1(kTwoWeights);
    JNoiseProfile p;
    p.load(bytes.data(), static_cast<int>(bytes.size()));
    const float w[3][5] = {{2.0f, 0.8f, 0.4f, 0.4f, 0.4f}, {1.0f, 0.6f, 0.3f, 0.2f, 0.1f}, {4.0f, 2.0f, 2.0f, 2.0f, 2.0f}};
    for (int k : {0, 7, 100, 163, 300, 511}) {
        const JNoiseSample& s = p.getSample(k);
        EXPECT_EQ(s.ycrcb[0], static_cast<float>((k >> 6) & 7) / 8.0f + 1.0f / 16.0f);
        EXPECT_EQ(s.ycrcb[1], static_cast<float>((k >> 3) & 7) / 8.0f + 1.0f / 16.0f);
        EXPECT_EQ(s.ycrcb[2], static_cast<float>(k & 7) / 8.0f + 1.0f / 16.0f);
        for (int c = 0; c < 3; ++c) {
            const float ratio = v1Value(c, k) / v1Value(c, kRefCell);
            for (int l = 0; l < 5; ++l)
                EXPECT_EQ(s.noise[c][l], ratio * w[c][l]) << k << " " << c << " " << l;
        }
    }
    EXPECT_FALSE(p.header().maker.present);
}

TEST(NoiseProfileIoTest, Version1NearestCellTakesTheFirstOfEquallyNearCells)
{
    V1Block blocks[3] = {kTwoWeights[0], kTwoWeights[1], kTwoWeights[2]};
    // Half way between Y cells 2 and 3 of cell 163: cell 163 comes first.
    blocks[0].ref[0] = 0.375f;
    const Bytes bytes = version1(blocks);
    JNoiseProfile p;
    p.load(bytes.data(), static_cast<int>(bytes.size()));
    EXPECT_EQ(p.getSample(kRefCell).noise[0][0], 2.0f);
}

TEST(NoiseProfileIoTest, Version1FileLoadsAndTakesThePath)
{
    murmex_test::TempDir dir;
    const std::string path = dir.file("v1.dnp");
    murmex_test::writeFileBytes(path, version1(kTwoWeights));
    JNoiseProfile p;
    p.load(QString(path.c_str()));
    ASSERT_EQ(p.sampleCount(), 512);
    EXPECT_EQ(p.getSample(kRefCell).noise[0][4], 0.4f);
    EXPECT_EQ(p.getFileName(), QString("v1"));
}

TEST(NoiseProfileIoTest, Version1WithWrongMagicFallsBackToTheStreamReader)
{
    Bytes bytes = version1(kTwoWeights);
    bytes[0] ^= 1;
    JNoiseProfile p;
    EXPECT_EQ(jexMessage([&] { p.load(bytes.data(), static_cast<int>(bytes.size())); }),
              "Invalid version or corrupted noise profile");
}

TEST(NoiseProfileIoTest, Version1WithMoreThanFiveWeightsIsNotAVersion1Profile)
{
    V1Block blocks[3] = {kTwoWeights[0], kTwoWeights[1], kTwoWeights[2]};
    blocks[1].weights = std::vector<float>(6, 1.0f);
    const Bytes bytes = version1(blocks);
    JNoiseProfile p;
    EXPECT_EQ(jexMessage([&] { p.load(bytes.data(), static_cast<int>(bytes.size())); }),
              "Invalid version or corrupted noise profile");
}

TEST(NoiseProfileIoTest, Version1WithNoWeightsIsNotAVersion1Profile)
{
    V1Block blocks[3] = {kTwoWeights[0], kTwoWeights[1], kTwoWeights[2]};
    blocks[2].weights.clear();
    const Bytes bytes = version1(blocks);
    JNoiseProfile p;
    EXPECT_EQ(jexMessage([&] { p.load(bytes.data(), static_cast<int>(bytes.size())); }),
              "Invalid version or corrupted noise profile");
}

TEST(NoiseProfileIoTest, Version1WithReferenceColourNotANumberIsNotAVersion1Profile)
{
    V1Block blocks[3] = {kTwoWeights[0], kTwoWeights[1], kTwoWeights[2]};
    blocks[0].ref[1] = std::numeric_limits<float>::quiet_NaN();
    const Bytes bytes = version1(blocks);
    JNoiseProfile p;
    EXPECT_EQ(jexMessage([&] { p.load(bytes.data(), static_cast<int>(bytes.size())); }),
              "Invalid version or corrupted noise profile");
}

// --- files -------------------------------------------------------------------

TEST(NoiseProfileIoTest, LoadingAMissingFileCreatesItEmptyAndFails)
{
    murmex_test::TempDir dir;
    const std::string path = dir.file("missing.dnp");
    JNoiseProfile p;
    EXPECT_EQ(jexMessage([&] { p.load(QString(path.c_str())); }), "Unexpected end of file");
    ASSERT_TRUE(std::filesystem::exists(path));
    EXPECT_EQ(std::filesystem::file_size(path), 0u);
}

TEST(NoiseProfileIoTest, StreamProfileFileLoads)
{
    murmex_test::TempDir dir;
    const std::string path = dir.file("old.dnp");
    murmex_test::writeFileBytes(path, profile44546());
    JNoiseProfile p;
    p.load(QString(path.c_str()));
    EXPECT_EQ(p.header().comment.value, QString("old"));
    EXPECT_EQ(p.getFileName(), QString("old"));
}

// --- hostile data ------------------------------------------------------------

TEST(NoiseProfileIoTest, TextLengthBeyondTheDataFailsWithoutAllocatingIt)
{
    const Bytes bytes = tagged([](ByteBuilder& b) { b.i32(0).i32(0).i32(1).u32(0xFFFFFFF0u).raw("abc"); }, 1);
    JNoiseProfile p;
    EXPECT_EQ(jexMessage([&] { p.load(bytes.data(), static_cast<int>(bytes.size())); }), "Unexpected end of input");
    const Bytes shortText = tagged([](ByteBuilder& b) { b.i32(0).i32(0).i32(1).u32(1000).raw("abc"); }, 1);
    EXPECT_EQ(jexMessage([&] { p.load(shortText.data(), static_cast<int>(shortText.size())); }),
              "Unexpected end of file");
}

TEST(NoiseProfileIoTest, HeaderTextBlockLengthBeyondTheDataFails)
{
    ByteBuilder b;
    b.u32(44548).u32(20).u32(0x7FFFFFFFu).raw("x");
    JNoiseProfile p;
    EXPECT_EQ(jexMessage([&] { p.load(b.bytes().data(), static_cast<int>(b.size())); }), "Unexpected end of input");
}

TEST(NoiseProfileIoTest, SampleCountBeyondTheDataFails)
{
    ByteBuilder b;
    b.u32(44546).u32(20);
    for (int i = 0; i < 3; ++i)
        b.text("t");
    for (int i = 0; i < 9; ++i)
        b.i32(0);
    for (int i = 0; i < 4; ++i)
        b.text("t");
    b.i32(0x7FFFFFFF);
    appendSample(b, makeSample(1.0f, 2.0f, 3.0f, 1.0f));
    JNoiseProfile p;
    EXPECT_EQ(jexMessage([&] { p.load(b.bytes().data(), static_cast<int>(b.size())); }), "Unexpected end of file");
}

TEST(NoiseProfileIoTest, FilterSampleCountBeyondTheDataFails)
{
    ByteBuilder b;
    b.u32(44548).u32(20).block("").i32(0).i32(0);
    b.u32(4664).u32(20);
    for (int i = 0; i < 11; ++i)
        b.f32(1.0f);
    b.u32(1).u32(0).i32(3).u32(0x7FFFFFFFu);
    b.f32(1.0f);
    JNoiseProfile p;
    EXPECT_EQ(jexMessage([&] { p.load(b.bytes().data(), static_cast<int>(b.size())); }), "Unexpected end of file");
}

TEST(NoiseProfileIoTest, NegativeLengthIsNoData)
{
    const Bytes bytes = profile44546();
    JNoiseProfile p;
    EXPECT_EQ(jexMessage([&] { p.load(bytes.data(), -5); }), "Unexpected end of file");
}

// --- truncation --------------------------------------------------------------

TEST(NoiseProfileIoTest, TruncatedVersion44546EndsInErrorOrLoad)
{
    loadEveryTruncation(profile44546());
}

TEST(NoiseProfileIoTest, TruncatedVersion44547EndsInErrorOrLoad)
{
    loadEveryTruncation(profile44547());
}

TEST(NoiseProfileIoTest, TruncatedVersion44548EndsInErrorOrLoad)
{
    loadEveryTruncation(profile44548());
}

TEST(NoiseProfileIoTest, TruncatedSavedProfileEndsInErrorOrLoad)
{
    JNoiseProfile p;
    JProfileHeader h;
    h.maker.set("Acme");
    h.comment.set("c");
    p.setHeader(h);
    p.addSample(makeSample(50.0f, 1.0f, 1.0f, 1.0f));
    unsigned char* data = nullptr;
    int length = 0;
    p.save(&data, &length);
    std::unique_ptr<unsigned char[]> owned(data);
    loadEveryTruncation(Bytes(data, data + length));
}

TEST(NoiseProfileIoTest, TruncatedVersion1EndsInErrorOrLoad)
{
    loadEveryTruncation(version1(kTwoWeights));
}
