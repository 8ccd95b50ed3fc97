// The exported entry points, called the way a host calls them: through the
// public header, with an in-memory image behind the scanline callbacks.
// Profiles the tests start from are written with the profile class; what the
// entry points hand back is compared with the profile read independently.
#include "murmex/murmex.h"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <string>
#include <chrono>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "base/qtless/qstring.h"
#include "color/image_lib.h"
#include "denoise/denoise.h"
#include "filter/noise_filter_settings.h"
#include "profile/noise_profile.h"
#include "profile/noise_sample.h"
#include "support/memory_image.h"
#include "support/scene.h"
#include "support/temp_dir.h"

using murmex_test::MemoryImage;
using murmex_test::TempDir;
using murmex_test::readFileBytes;
using murmex_test::writeFileBytes;

namespace {

// ---- The host side -------------------------------------------------------

struct Host {
    explicit Host(MemoryImage img) : image(std::move(img)) {}

    MemoryImage image;
    std::mutex lock;  // scanline callbacks may come from worker threads
    int gets = 0;
    int puts = 0;
    std::vector<std::thread::id> putThreads;
    std::vector<std::string> steps;
    std::vector<float> fractions;
    int cancelAtCall = -1;  // answer 1 at this progress call (0-based)
};

void hostGet(void* ctx, int y, int x0, int x1, unsigned short* px)
{
    Host* h = static_cast<Host*>(ctx);
    std::lock_guard<std::mutex> g(h->lock);
    ++h->gets;
    h->image.getScanline(y, x0, x1, px);
}

void hostPut(void* ctx, int y, int x0, int x1, unsigned short* px)
{
    Host* h = static_cast<Host*>(ctx);
    std::lock_guard<std::mutex> g(h->lock);
    ++h->puts;
    h->putThreads.push_back(std::this_thread::get_id());
    h->image.putScanline(y, x0, x1, px);
}

int hostProgress(void* ctx, const char* step, float fraction)
{
    Host* h = static_cast<Host*>(ctx);
    const int call = static_cast<int>(h->fractions.size());
    h->steps.push_back(step);
    h->fractions.push_back(fraction);
    return call == h->cancelAtCall ? 1 : 0;
}

void throwRuntimeError(void*, int, int, int, unsigned short*)
{
    throw std::runtime_error("host callback failed");
}

void throwInt(void*, int, int, int, unsigned short*)
{
    throw 7;
}

struct SampleCalls {
    std::vector<int> counts;
    std::vector<int> indices;
    std::vector<DnNoiseSample> records;
};

int collectSample(void* ctx, int count, int index, const DnNoiseSample* record)
{
    SampleCalls* c = static_cast<SampleCalls*>(ctx);
    c->counts.push_back(count);
    c->indices.push_back(index);
    c->records.push_back(*record);
    return 1;  // ignored
}

// ---- Images and profiles -------------------------------------------------

// Twelve flat 128-pixel patches of different colours with seeded Gaussian
// noise: what the sampler needs to find one patch per colour.
MemoryImage patchImage(int width = 512, int height = 384, double sigma = 900.0, uint32_t seed = 11)
{
    static const uint16_t colours[12][3] = {
        {52000, 50000, 47000}, {9000, 9000, 9000},    {30000, 30000, 30000}, {20000, 42000, 20000},
        {45000, 15000, 12000}, {12000, 18000, 44000}, {40000, 38000, 9000},  {25000, 12000, 30000},
        {60000, 60000, 60000}, {16000, 30000, 36000}, {36000, 24000, 16000}, {4000, 4000, 6000},
    };
    MemoryImage img(width, height);
    for (int y = 0; y < height; y++)
        for (int x = 0; x < width; x++) {
            const uint16_t* c = colours[((y / 128) * 4 + x / 128) % 12];
            img.setPixel(x, y, c[0], c[1], c[2]);
        }
    murmex_test::addNoise(img, sigma, seed);
    return img;
}

JNoiseSample handSample(int i)
{
    JNoiseSample s;
    s.rect = JRect<int>(10 * i, 20 * i, 10 * i + 64, 20 * i + 64);
    s.lab = JLabCoord(30.0f + 10.0f * i, 5.0f - 3.0f * i, -8.0f + 4.0f * i);
    s.lab.toYCrCb(s.ycrcb[0], s.ycrcb[1], s.ycrcb[2]);
    s.lab.toRGB(s.rgb[0], s.rgb[1], s.rgb[2]);
    for (int c = 0; c < 3; c++)
        for (int l = 0; l < 5; l++)
            s.noise[c][l] = l < 3 ? 0.01f * (i + 1) * (c + 1) / (l + 1) : -1.0f;
    return s;
}

// A profile file holding n hand-made samples and the given settings.
void writeProfile(const std::string& path, int n, const JNoiseFilterSettings* settings = nullptr)
{
    JNoiseProfile p;
    for (int i = 0; i < n; i++)
        p.addSample(handSample(i));
    if (settings)
        p.settings().assignSettings(*settings);
    p.buildProfile();
    p.save(qtless::QString(path.c_str()));
}

std::vector<unsigned char> profileBlock(int n)
{
    JNoiseProfile p;
    for (int i = 0; i < n; i++)
        p.addSample(handSample(i));
    p.buildProfile();
    unsigned char* data = nullptr;
    int length = 0;
    p.save(&data, &length);
    std::vector<unsigned char> v(data, data + length);
    delete[] data;
    return v;
}

DnFilterParams hostParams(int width, int height)
{
    DnFilterParams p;
    std::memset(&p, 0, sizeof p);
    for (int i = 0; i < DnHostScaleCount; i++)
        *DnHostScaleField(&p, i) = DnHostScales[i].middle;
    p.suppressHalos = 1;
    p.width = width;
    p.height = height;
    return p;
}

std::vector<uint32_t> words(const DnNoiseSample& r)
{
    std::vector<uint32_t> w(28);
    std::memcpy(w.data(), &r, sizeof r);
    return w;
}

// The 28 words a host record must hold for s, assembled field by field.
std::vector<uint32_t> expectedWords(const JNoiseSample& s)
{
    std::vector<uint32_t> w;
    auto put = [&w](const void* p) {
        uint32_t v;
        std::memcpy(&v, p, 4);
        w.push_back(v);
    };
    put(&s.rect.left);
    put(&s.rect.top);
    put(&s.rect.right);
    put(&s.rect.bottom);
    for (float v : s.ycrcb)
        put(&v);
    for (float v : s.rgb)
        put(&v);
    put(&s.lab.L);
    put(&s.lab.a);
    put(&s.lab.b);
    for (int c = 0; c < 3; c++)
        for (int l = 0; l < 5; l++)
            put(&s.noise[c][l]);
    return w;
}

std::string openError(const std::string& path, int err)
{
    return "Murmex error: Error opening " + path + ": " + std::strerror(err) + "\n";
}

// Profile measurement prints a diagnostic line for every tile it loads
// ("w: .. h: .."); what matters is the failure line after them, which must
// be the last and only other line.
std::string failureLine(const std::string& out)
{
    size_t start = 0;
    while (start < out.size() && out.compare(start, 3, "w: ") == 0) {
        const size_t end = out.find('\n', start);
        if (end == std::string::npos)
            break;
        start = end + 1;
    }
    return out.substr(start);
}

// Threads of the process. The first thread a process creates may start a
// helper thread of the runtime (the thread checker has one), so callers take
// their baseline after baselineThreadCount() has created one.
int threadCount()
{
    int n = 0;
    if (DIR* d = opendir("/proc/self/task")) {
        while (dirent* e = readdir(d))
            if (e->d_name[0] != '.')
                n++;
        closedir(d);
    }
    return n;
}

// A joined thread can still be listed for a moment: join() returns once the
// thread has ended, a little before the kernel drops its task. The count
// after a join is therefore read once it has stopped changing.
int settledThreadCount()
{
    int n = threadCount();
    for (int i = 0; i < 200; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        const int again = threadCount();
        if (again == n)
            return n;
        n = again;
    }
    return n;
}

int baselineThreadCount()
{
    std::thread([] {}).join();
    return settledThreadCount();
}

// Restores the process-wide tuning values after a test changes them.
class TuningGuard {
public:
    ~TuningGuard()
    {
        DnSetStripWidth(3400);
        DnSetRowsPerThread(-1);
        DnSetDenoiseLevels(-1);
    }
};

}  // namespace

// ---- Records --------------------------------------------------------------

TEST(PublicRecordsTest, FilterParamsHaveAPointerThenSeventeenWords)
{
    EXPECT_EQ(offsetof(DnFilterParams, profilePath), 0u);
    EXPECT_EQ(offsetof(DnFilterParams, buildProfile), sizeof(const char*));
    EXPECT_EQ(offsetof(DnFilterParams, lumStrength), sizeof(const char*) + 8);
    EXPECT_EQ(offsetof(DnFilterParams, suppressHalos), sizeof(const char*) + 40);
    EXPECT_EQ(offsetof(DnFilterParams, height), sizeof(const char*) + 64);
    if (sizeof(const char*) == 8) {
        EXPECT_EQ(sizeof(DnFilterParams), 80u);
    }
}

TEST(PublicRecordsTest, NoiseSampleIsTwentyEightWords)
{
    EXPECT_EQ(sizeof(DnNoiseSample), 112u);
    EXPECT_EQ(offsetof(DnNoiseSample, y), 16u);
    EXPECT_EQ(offsetof(DnNoiseSample, noiseY), 52u);
    EXPECT_EQ(offsetof(DnNoiseSample, noiseCr), 72u);
    EXPECT_EQ(offsetof(DnNoiseSample, noiseCb), 92u);
}

TEST(PublicRecordsTest, HostScaleTableDescribesTheEightFloatFieldsInOrder)
{
    const size_t offsets[] = {offsetof(DnFilterParams, lumStrength),      offsetof(DnFilterParams, lumSmoothness),
                              offsetof(DnFilterParams, lumContrast),      offsetof(DnFilterParams, chromaStrength),
                              offsetof(DnFilterParams, chromaSmoothness), offsetof(DnFilterParams, chromaContrast),
                              offsetof(DnFilterParams, sharpenAmount),    offsetof(DnFilterParams, sharpenRadius)};
    ASSERT_EQ(DnHostScaleCount, 8);
    for (int i = 0; i < 8; i++)
        EXPECT_EQ(DnHostScales[i].offset, offsets[i]);
    EXPECT_EQ(DnHostScales[6].middle, 200.0f);
    EXPECT_EQ(DnHostScales[7].low, 0.4f);
    EXPECT_EQ(DnHostScales[7].middle, 1.7f);
    EXPECT_EQ(DnHostScales[7].high, 3.0f);
}

// ---- Tuning ---------------------------------------------------------------

TEST(TuningTest, DenoiseLevelsOneAndSixAreRefusedAndChangeNothing)
{
    TuningGuard restore;
    ASSERT_EQ(DnSetDenoiseLevels(4), 0);
    EXPECT_EQ(DnSetDenoiseLevels(1), 1);
    EXPECT_EQ(JDenoise::denoise_levels_override.load(), 4);
    EXPECT_EQ(DnSetDenoiseLevels(6), 1);
    EXPECT_EQ(JDenoise::denoise_levels_override.load(), 4);
    EXPECT_EQ(DnSetDenoiseLevels(0), 1);
    EXPECT_EQ(DnSetDenoiseLevels(-2), 1);
    EXPECT_EQ(JDenoise::denoise_levels_override.load(), 4);
}

TEST(TuningTest, DenoiseLevelsMinusOneAndTwoToFiveAreAccepted)
{
    TuningGuard restore;
    for (int levels : {2, 3, 4, 5, -1}) {
        EXPECT_EQ(DnSetDenoiseLevels(levels), 0);
        EXPECT_EQ(JDenoise::denoise_levels_override.load(), levels);
    }
}

TEST(TuningTest, StripWidthAndRowsPerThreadAreStoredUnchecked)
{
    TuningGuard restore;
    EXPECT_EQ(DnSetStripWidth(-5), 0);
    EXPECT_EQ(JImageLib::DenoiseStripWidth.load(), -5);
    EXPECT_EQ(DnSetStripWidth(640), 0);
    EXPECT_EQ(JImageLib::DenoiseStripWidth.load(), 640);
    EXPECT_EQ(DnSetRowsPerThread(0), 0);
    EXPECT_EQ(JDenoise::rows_per_thread_override.load(), 0);
    EXPECT_EQ(DnSetRowsPerThread(17), 0);
    EXPECT_EQ(JDenoise::rows_per_thread_override.load(), 17);
}

// ---- Memory ---------------------------------------------------------------

TEST(FreeMemoryTest, NullPointerDoesNothing)
{
    DnFreeMemory(nullptr);
    SUCCEED();
}

TEST(FreeMemoryTest, ReleasesABlockFromReadProfile)
{
    TempDir dir;
    const std::string path = dir.file("p.dnp");
    writeProfile(path, 2);
    unsigned char* data = nullptr;
    int length = 0;
    ASSERT_EQ(DnReadProfile(path.c_str(), &data, &length, nullptr), 0);
    ASSERT_NE(data, nullptr);
    // Released with array deallocation; the address checker flags a mismatch.
    DnFreeMemory(data);
}

// ---- Reading and writing profiles ---------------------------------------

TEST(ReadProfileTest, BlockIsTheLoadedProfileWrittenAgainNotTheFileBytes)
{
    TempDir dir;
    const std::string path = dir.file("p.dnp");
    writeProfile(path, 3);
    // Trailing bytes that the loader never reads: the block cannot contain them.
    std::vector<unsigned char> raw = readFileBytes(path);
    raw.insert(raw.end(), {1, 2, 3, 4, 5, 6, 7});
    writeFileBytes(path, raw);

    unsigned char* data = nullptr;
    int length = 0;
    ASSERT_EQ(DnReadProfile(path.c_str(), &data, &length, nullptr), 0);
    std::vector<unsigned char> block(data, data + length);
    DnFreeMemory(data);

    JNoiseProfile loaded;
    loaded.load(qtless::QString(path.c_str()));
    unsigned char* again = nullptr;
    int againLength = 0;
    loaded.save(&again, &againLength);
    const std::vector<unsigned char> expected(again, again + againLength);
    delete[] again;

    EXPECT_EQ(block, expected);
    EXPECT_NE(block, raw);
    ASSERT_GE(block.size(), 4u);
    // Big-endian 44548, the version written today.
    EXPECT_EQ(block[0], 0x00);
    EXPECT_EQ(block[1], 0x00);
    EXPECT_EQ(block[2], 0xae);
    EXPECT_EQ(block[3], 0x04);
}

TEST(ReadProfileTest, StoredSettingsComeBackOnHostScalesAndOtherFieldsStay)
{
    TempDir dir;
    const std::string path = dir.file("p.dnp");
    JNoiseFilterSettings s;
    s.setStrength(JImageLib::Y, 0.55f);     // 10
    s.setSmoothness(JImageLib::Y, 5.5f);    // 15
    s.setContrast(JImageLib::Y, 0.75f);     // 5
    s.setStrength(JImageLib::Cr, 0.875f);   // 15
    s.setStrength(JImageLib::Cb, 0.1f);     // ignored
    s.setSmoothness(JImageLib::Cr, 1.5f);   // 5
    s.setContrast(JImageLib::Cr, 1.5f);     // 20
    s.setUSMAmount(2.0f);                   // 100
    s.setUSMRadius(0.4f);                   // 0.4
    s.setUSMSuppressHalos(false);
    s.setLowFreqFlag(true);
    writeProfile(path, 1, &s);

    DnFilterParams p;
    std::memset(&p, 0x7f, sizeof p);
    const char* keep = "keep";
    p.profilePath = keep;
    const DnFilterParams before = p;
    ASSERT_EQ(DnReadProfile(path.c_str(), nullptr, nullptr, &p), 0);
    EXPECT_EQ(p.lumStrength, 10.0f);
    EXPECT_EQ(p.lumSmoothness, 15.0f);
    EXPECT_EQ(p.lumContrast, 5.0f);
    EXPECT_EQ(p.chromaStrength, 15.0f);
    EXPECT_EQ(p.chromaSmoothness, 5.0f);
    EXPECT_EQ(p.chromaContrast, 20.0f);
    EXPECT_EQ(p.sharpenAmount, 100.0f);
    EXPECT_EQ(p.sharpenRadius, 0.4f);
    EXPECT_EQ(p.suppressHalos, 0);
    EXPECT_EQ(p.lowFrequency, 1);
    EXPECT_EQ(p.profilePath, keep);
    EXPECT_EQ(p.buildProfile, before.buildProfile);
    EXPECT_EQ(p.saveProfile, before.saveProfile);
    EXPECT_EQ(p.threads, before.threads);
    EXPECT_EQ(p.turbo, before.turbo);
    EXPECT_EQ(p.background, before.background);
    EXPECT_EQ(p.width, before.width);
    EXPECT_EQ(p.height, before.height);
}

TEST(WriteProfileTest, HostMiddleStoresExactlyTheDefaultAndReadsBackAsTheMiddle)
{
    TempDir dir;
    const std::string path = dir.file("w.dnp");
    const std::vector<unsigned char> block = profileBlock(2);
    DnFilterParams p = hostParams(0, 0);
    ASSERT_EQ(DnWriteProfile(path.c_str(), block.data(), static_cast<int>(block.size()), &p), 0);

    JNoiseProfile saved;
    saved.load(qtless::QString(path.c_str()));
    const JNoiseFilterSettings& s = saved.settings();
    EXPECT_EQ(s.getStrength(JImageLib::Y), 0.55f);
    EXPECT_EQ(s.getStrength(JImageLib::Cr), 0.75f);
    EXPECT_EQ(s.getStrength(JImageLib::Cb), 0.75f);
    for (int ch = 0; ch < 3; ch++) {
        EXPECT_EQ(s.getSmoothness(ch), 3.0f);
        EXPECT_EQ(s.getContrast(ch), 1.0f);
    }
    EXPECT_EQ(s.getUSMAmount(), 3.0f);
    EXPECT_EQ(s.getUSMRadius(), 1.7f);

    DnFilterParams back;
    std::memset(&back, 0, sizeof back);
    ASSERT_EQ(DnReadProfile(path.c_str(), nullptr, nullptr, &back), 0);
    for (int i = 0; i < DnHostScaleCount; i++)
        EXPECT_EQ(*DnHostScaleField(&back, i), DnHostScales[i].middle) << DnHostScales[i].name;
}

TEST(WriteProfileTest, ReplacesTheSettingsAndKeepsTheSamples)
{
    TempDir dir;
    const std::string path = dir.file("w.dnp");
    const std::vector<unsigned char> block = profileBlock(3);
    DnFilterParams p = hostParams(0, 0);
    p.chromaStrength = 20.0f;  // 1 for Cr and Cb
    p.sharpenAmount = 400.0f;  // 5
    p.suppressHalos = 0;
    p.lowFrequency = 1;
    ASSERT_EQ(DnWriteProfile(path.c_str(), block.data(), static_cast<int>(block.size()), &p), 0);

    JNoiseProfile saved;
    saved.load(qtless::QString(path.c_str()));
    EXPECT_EQ(saved.sampleCount(), 3);
    EXPECT_EQ(saved.settings().getStrength(JImageLib::Cr), 1.0f);
    EXPECT_EQ(saved.settings().getStrength(JImageLib::Cb), 1.0f);
    EXPECT_EQ(saved.settings().getUSMAmount(), 5.0f);
    EXPECT_FALSE(saved.settings().getUSMSuppressHalos());
    EXPECT_TRUE(saved.settings().getLowFreqFlag());
}

TEST(WriteProfileTest, CorruptBlockPrintsTheErrorAndWritesNoFile)
{
    TempDir dir;
    const std::string path = dir.file("w.dnp");
    const unsigned char junk[16] = {0, 0, 0, 9, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    DnFilterParams p = hostParams(0, 0);
    testing::internal::CaptureStdout();
    EXPECT_EQ(DnWriteProfile(path.c_str(), junk, sizeof junk, &p), 1);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out.rfind("Murmex error: ", 0), 0u) << out;
    EXPECT_EQ(out.back(), '\n');
    EXPECT_TRUE(readFileBytes(path).empty());
}

// ---- Samples --------------------------------------------------------------

TEST(ReadProfileSamplesTest, ProfileWithoutSamplesNeverCallsBackAndReturnsZero)
{
    TempDir dir;
    const std::string path = dir.file("empty.dnp");
    writeProfile(path, 0);
    SampleCalls calls;
    EXPECT_EQ(DnReadProfileSamples(&calls, path.c_str(), collectSample), 0);
    EXPECT_TRUE(calls.indices.empty());

    const std::vector<unsigned char> block = profileBlock(0);
    EXPECT_EQ(DnReadProfileSamples2(&calls, block.data(), static_cast<int>(block.size()), collectSample), 0);
    EXPECT_TRUE(calls.indices.empty());
}

TEST(ReadProfileSamplesTest, RecordsAreTheSamplesWordForWordInOrder)
{
    TempDir dir;
    const std::string path = dir.file("p.dnp");
    writeProfile(path, 4);
    JNoiseProfile loaded;
    loaded.load(qtless::QString(path.c_str()));
    ASSERT_EQ(loaded.sampleCount(), 4);

    SampleCalls calls;
    ASSERT_EQ(DnReadProfileSamples(&calls, path.c_str(), collectSample), 0);
    ASSERT_EQ(calls.records.size(), 4u);
    for (int i = 0; i < 4; i++) {
        EXPECT_EQ(calls.counts[i], 4);
        EXPECT_EQ(calls.indices[i], i);
        EXPECT_EQ(words(calls.records[i]), expectedWords(loaded.getSample(i))) << "sample " << i;
    }
    // The measured noise values are the ones written, not just the ones read.
    EXPECT_EQ(calls.records[2].noiseY[0], handSample(2).noise[0][0]);
    EXPECT_EQ(calls.records[2].noiseCr[1], handSample(2).noise[1][1]);
    EXPECT_EQ(calls.records[2].noiseCb[2], handSample(2).noise[2][2]);
}

TEST(ReadProfileSamplesTest, BlockGivesTheSameRecordsAsTheFile)
{
    TempDir dir;
    const std::string path = dir.file("p.dnp");
    writeProfile(path, 3);
    const std::vector<unsigned char> bytes = readFileBytes(path);
    SampleCalls fromFile, fromBlock;
    ASSERT_EQ(DnReadProfileSamples(&fromFile, path.c_str(), collectSample), 0);
    ASSERT_EQ(DnReadProfileSamples2(&fromBlock, bytes.data(), static_cast<int>(bytes.size()), collectSample), 0);
    ASSERT_EQ(fromBlock.records.size(), 3u);
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(words(fromBlock.records[i]), words(fromFile.records[i]));
}

TEST(ReadProfileSamplesTest, WithoutABlockLoadsTheEmptyPathAndFails)
{
    SampleCalls calls;
    const unsigned char byte = 0;
    for (int length : {0, -3}) {
        testing::internal::CaptureStdout();
        EXPECT_EQ(DnReadProfileSamples2(&calls, &byte, length, collectSample), 1);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), openError("", ENOENT));
    }
    testing::internal::CaptureStdout();
    EXPECT_EQ(DnReadProfileSamples2(&calls, nullptr, 100, collectSample), 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), openError("", ENOENT));
    EXPECT_TRUE(calls.indices.empty());
}

// ---- Failures -------------------------------------------------------------

TEST(EntryFailureTest, LoadErrorPrintsTheMessageAndReturnsOne)
{
    TempDir dir;
    const std::string path = dir.file("missing/p.dnp");
    testing::internal::CaptureStdout();
    unsigned char* data = nullptr;
    int length = -1;
    EXPECT_EQ(DnReadProfile(path.c_str(), &data, &length, nullptr), 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), openError(path, ENOENT));
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(length, -1);

    SampleCalls calls;
    testing::internal::CaptureStdout();
    EXPECT_EQ(DnReadProfileSamples(&calls, path.c_str(), collectSample), 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), openError(path, ENOENT));
}

TEST(EntryFailureTest, SaveErrorPrintsTheMessageAndReturnsOne)
{
    TempDir dir;
    const std::string path = dir.file("missing/p.dnp");
    Host host(patchImage(256, 256));
    testing::internal::CaptureStdout();
    EXPECT_EQ(DnBuildProfile(&host, path.c_str(), hostGet, 256, 256, 0, nullptr), 1);
    EXPECT_EQ(failureLine(testing::internal::GetCapturedStdout()), openError(path, ENOENT));

    const std::vector<unsigned char> block = profileBlock(2);
    DnFilterParams p = hostParams(0, 0);
    testing::internal::CaptureStdout();
    EXPECT_EQ(DnWriteProfile(path.c_str(), block.data(), static_cast<int>(block.size()), &p), 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), openError(path, ENOENT));
}

TEST(EntryFailureTest, StandardExceptionPrintsItsText)
{
    Host host(patchImage(256, 256));
    unsigned char* data = nullptr;
    int length = 0;
    testing::internal::CaptureStdout();
    EXPECT_EQ(DnBuildProfile2(&host, &data, &length, throwRuntimeError, 256, 256, 0, nullptr), 1);
    EXPECT_EQ(failureLine(testing::internal::GetCapturedStdout()), "Murmex exception: host callback failed\n");
    EXPECT_EQ(data, nullptr);
}

TEST(EntryFailureTest, UnknownExceptionDuringMeasurementBecomesAStandardException)
{
    Host host(patchImage(256, 256));
    unsigned char* data = nullptr;
    int length = 0;
    testing::internal::CaptureStdout();
    EXPECT_EQ(DnBuildProfile2(&host, &data, &length, throwInt, 256, 256, 0, nullptr), 1);
    EXPECT_EQ(failureLine(testing::internal::GetCapturedStdout()), "Murmex exception: std::exception\n");
}

TEST(EntryFailureTest, UnknownExceptionWhileDenoisingPrintsUnknownError)
{
    const std::vector<unsigned char> block = profileBlock(3);
    Host host(patchImage(256, 256));
    DnFilterParams p = hostParams(256, 256);
    testing::internal::CaptureStdout();
    EXPECT_EQ(DnRemoveNoise2(&host, &p, 0, 0, 256, 256, block.data(), static_cast<int>(block.size()), throwInt,
                             hostPut, nullptr),
              1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Murmex unknown error\n");
}

TEST(EntryFailureTest, CorruptProfileBlockFailsBeforeAnyPixelOrProgress)
{
    const unsigned char junk[12] = {0xff, 0xff, 0xff, 0xff, 0, 0, 0, 20, 0, 0, 0, 0};
    Host host(patchImage(256, 256));
    DnFilterParams p = hostParams(256, 256);
    testing::internal::CaptureStdout();
    EXPECT_EQ(DnRemoveNoise2(&host, &p, 0, 0, 256, 256, junk, sizeof junk, hostGet, hostPut, hostProgress), 1);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out.rfind("Murmex error: ", 0), 0u) << out;
    EXPECT_EQ(out.find('\n'), out.size() - 1) << out;
    EXPECT_EQ(host.puts, 0);
    EXPECT_TRUE(host.fractions.empty());
}

TEST(EntryFailureTest, NullParametersAreAnErrorNotACrash)
{
    Host host(patchImage(256, 256));
    testing::internal::CaptureStdout();
    EXPECT_EQ(DnRemoveNoise(&host, nullptr, 0, 0, 256, 256, hostGet, hostPut, nullptr), 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Murmex error: No filter parameters\n");
}

TEST(EntryFailureThreadTest, FailedDenoiseStopsItsWorkersBeforeReturning)
{
    const std::vector<unsigned char> block = profileBlock(3);
    Host host(patchImage(256, 256));
    DnFilterParams p = hostParams(256, 256);
    p.threads = 3;
    const int before = baselineThreadCount();
    testing::internal::CaptureStdout();
    // No get callback: the first row read throws.
    EXPECT_EQ(DnRemoveNoise2(&host, &p, 0, 0, 256, 256, block.data(), static_cast<int>(block.size()), nullptr,
                             hostPut, nullptr),
              1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Murmex error: No host callback to read the image\n");
    EXPECT_EQ(settledThreadCount(), before);
    EXPECT_EQ(host.puts, 0);
}

// ---- Building profiles ----------------------------------------------------

TEST(BuildProfileTest, FileAndBlockHoldTheSameMeasuredSamples)
{
    TempDir dir;
    const std::string path = dir.file("built.dnp");
    Host host(patchImage());
    ASSERT_EQ(DnBuildProfile(&host, path.c_str(), hostGet, 512, 384, 0, nullptr), 0);
    EXPECT_EQ(host.puts, 0);
    unsigned char* data = nullptr;
    int length = 0;
    ASSERT_EQ(DnBuildProfile2(&host, &data, &length, hostGet, 512, 384, 0, nullptr), 0);
    ASSERT_NE(data, nullptr);
    ASSERT_GT(length, 0);

    SampleCalls fromFile, fromBlock;
    ASSERT_EQ(DnReadProfileSamples(&fromFile, path.c_str(), collectSample), 0);
    ASSERT_EQ(DnReadProfileSamples2(&fromBlock, data, length, collectSample), 0);
    DnFreeMemory(data);
    ASSERT_GE(fromFile.records.size(), 4u) << "the sampler should find most of the twelve patches";
    ASSERT_EQ(fromBlock.records.size(), fromFile.records.size());
    for (size_t i = 0; i < fromFile.records.size(); i++) {
        EXPECT_EQ(words(fromBlock.records[i]), words(fromFile.records[i]));
        EXPECT_GT(fromFile.records[i].noiseY[0], 0.0f);
    }
}

TEST(BuildProfileTest, WithoutAnOutputItMeasuresAndStoresNothing)
{
    Host host(patchImage(256, 256));
    int length = 5;
    EXPECT_EQ(DnBuildProfile2(&host, nullptr, &length, hostGet, 256, 256, 0, nullptr), 0);
    EXPECT_EQ(length, 5);
    EXPECT_GT(host.gets, 0);
    EXPECT_EQ(DnBuildProfile(&host, nullptr, hostGet, 256, 256, 0, nullptr), 0);
}

TEST(BuildProfileTest, ReportsProgressOfTheSearch)
{
    Host host(patchImage(256, 256));
    unsigned char* data = nullptr;
    int length = 0;
    ASSERT_EQ(DnBuildProfile2(&host, &data, &length, hostGet, 256, 256, 1, hostProgress), 0);
    DnFreeMemory(data);
    ASSERT_FALSE(host.steps.empty());
    EXPECT_EQ(host.steps.front(), "Profiling image...");
}

// ---- Removing noise -------------------------------------------------------

TEST(RemoveNoiseThreadTest, WritesEveryPixelOfTheRectangleOnceAndNothingOutside)
{
    const std::vector<unsigned char> block = profileBlock(3);
    const MemoryImage noisy = patchImage(256, 256);
    Host host(noisy);
    DnFilterParams p = hostParams(256, 256);
    // With workers the rows are exactly those of the rectangle (the calling
    // thread's own loop bounds its rows differently).
    p.threads = 2;
    TuningGuard restore;
    ASSERT_EQ(DnRemoveNoise2(&host, &p, 32, 16, 224, 240, block.data(), static_cast<int>(block.size()), hostGet,
                             hostPut, nullptr),
              0);
    int outsideChanged = 0, wrongCounts = 0;
    for (int y = 0; y < 256; y++)
        for (int x = 0; x < 256; x++) {
            const bool inside = x >= 32 && x < 224 && y >= 16 && y < 240;
            wrongCounts += host.image.writeCounts()[y * 256 + x] != (inside ? 1 : 0);
            for (int c = 0; c < 4; c++)
                outsideChanged += !inside && host.image.at(x, y, c) != noisy.at(x, y, c);
        }
    EXPECT_EQ(wrongCounts, 0);
    EXPECT_EQ(outsideChanged, 0);
}

TEST(RemoveNoiseTest, MeasuredProfileMakesFlatPatchesFlatter)
{
    const MemoryImage noisy = patchImage(256, 256, 1500.0, 5);
    unsigned char* data = nullptr;
    int length = 0;
    {
        Host probe(noisy);
        ASSERT_EQ(DnBuildProfile2(&probe, &data, &length, hostGet, 256, 256, 0, nullptr), 0);
    }
    Host host(noisy);
    DnFilterParams p = hostParams(256, 256);
    ASSERT_EQ(DnRemoveNoise2(&host, &p, 0, 0, 256, 256, data, length, hostGet, hostPut, nullptr), 0);
    DnFreeMemory(data);

    // The spread of each channel over the interior of one flat patch.
    auto spread = [](const MemoryImage& img, int c) {
        double sum = 0, sq = 0;
        int n = 0;
        for (int y = 40; y < 100; y++)
            for (int x = 40; x < 100; x++) {
                const double v = img.at(x, y, c);
                sum += v;
                sq += v * v;
                n++;
            }
        return sq / n - (sum / n) * (sum / n);
    };
    for (int c = 0; c < 3; c++)
        EXPECT_LT(spread(host.image, c), 0.95 * spread(noisy, c)) << "channel " << c;
}

TEST(RemoveNoiseTest, FirstStepIsRemovingNoiseAndFractionsNeverDecrease)
{
    const std::vector<unsigned char> block = profileBlock(3);
    Host host(patchImage(256, 256));
    DnFilterParams p = hostParams(256, 256);
    ASSERT_EQ(DnRemoveNoise2(&host, &p, 0, 0, 256, 256, block.data(), static_cast<int>(block.size()), hostGet,
                             hostPut, hostProgress),
              0);
    ASSERT_FALSE(host.steps.empty());
    EXPECT_EQ(host.steps.front().rfind("Removing noise: ", 0), 0u) << host.steps.front();
    for (size_t i = 1; i < host.fractions.size(); i++)
        EXPECT_GE(host.fractions[i], host.fractions[i - 1]);
}

TEST(RemoveNoiseThreadTest, CancelledRunReturnsZeroAndStopsWriting)
{
    const std::vector<unsigned char> block = profileBlock(3);
    Host host(patchImage(256, 256));
    // Call 0 announces the step; call 1 follows the first batch of rows.
    host.cancelAtCall = 1;
    DnFilterParams p = hostParams(256, 256);
    p.threads = 2;
    TuningGuard restore;
    DnSetRowsPerThread(8);
    EXPECT_EQ(DnRemoveNoise2(&host, &p, 0, 0, 256, 256, block.data(), static_cast<int>(block.size()), hostGet,
                             hostPut, hostProgress),
              0);
    int written = 0;
    for (int w : host.image.writeCounts())
        written += w;
    EXPECT_GT(written, 0);
    EXPECT_LT(written, 256 * 256);
}

TEST(RemoveNoiseTest, ZeroLengthBlockIsIgnoredAndTheFileIsLoaded)
{
    TempDir dir;
    const std::string path = dir.file("p.dnp");
    writeProfile(path, 3);
    const std::vector<unsigned char> fileBytes = readFileBytes(path);
    const unsigned char junk[8] = {9, 9, 9, 9, 9, 9, 9, 9};

    Host viaPath(patchImage(256, 256));
    DnFilterParams p = hostParams(256, 256);
    p.profilePath = path.c_str();
    ASSERT_EQ(DnRemoveNoise2(&viaPath, &p, 0, 0, 256, 256, junk, 0, hostGet, hostPut, nullptr), 0);

    Host viaBlock(patchImage(256, 256));
    DnFilterParams q = hostParams(256, 256);
    ASSERT_EQ(DnRemoveNoise2(&viaBlock, &q, 0, 0, 256, 256, fileBytes.data(), static_cast<int>(fileBytes.size()),
                             hostGet, hostPut, nullptr),
              0);
    EXPECT_EQ(viaPath.image.data(), viaBlock.image.data());
    EXPECT_NE(viaPath.image.data(), patchImage(256, 256).data());
}

TEST(RemoveNoiseTest, ZeroLengthBlockWithoutAPathMeasuresTheImage)
{
    const MemoryImage noisy = patchImage(256, 256);
    unsigned char* measured = nullptr;
    int measuredLength = 0;
    {
        Host probe(noisy);
        ASSERT_EQ(DnBuildProfile2(&probe, &measured, &measuredLength, hostGet, 256, 256, 0, nullptr), 0);
    }
    const unsigned char junk[8] = {9, 9, 9, 9, 9, 9, 9, 9};
    Host viaMeasure(noisy);
    DnFilterParams p = hostParams(256, 256);
    ASSERT_EQ(DnRemoveNoise2(&viaMeasure, &p, 0, 0, 256, 256, junk, 0, hostGet, hostPut, hostProgress), 0);
    EXPECT_EQ(viaMeasure.steps.front(), "Profiling image...");

    Host viaBlock(noisy);
    DnFilterParams q = hostParams(256, 256);
    ASSERT_EQ(DnRemoveNoise2(&viaBlock, &q, 0, 0, 256, 256, measured, measuredLength, hostGet, hostPut, nullptr),
              0);
    DnFreeMemory(measured);
    EXPECT_EQ(viaMeasure.image.data(), viaBlock.image.data());
}

TEST(RemoveNoiseTest, BuildFlagMeasuresInsteadOfLoadingAndSavesTheMeasuredProfile)
{
    TempDir dir;
    const std::string path = dir.file("p.dnp");
    writeProfile(path, 2);  // hand-made: two samples at known places
    const MemoryImage noisy = patchImage(256, 256);
    Host host(noisy);
    DnFilterParams p = hostParams(256, 256);
    p.profilePath = path.c_str();
    p.buildProfile = 1;
    p.saveProfile = 1;
    ASSERT_EQ(DnRemoveNoise2(&host, &p, 0, 0, 256, 256, nullptr, 0, hostGet, hostPut, nullptr), 0);

    unsigned char* measured = nullptr;
    int measuredLength = 0;
    Host probe(noisy);
    ASSERT_EQ(DnBuildProfile2(&probe, &measured, &measuredLength, hostGet, 256, 256, 0, nullptr), 0);
    SampleCalls saved, expected;
    ASSERT_EQ(DnReadProfileSamples(&saved, path.c_str(), collectSample), 0);
    ASSERT_EQ(DnReadProfileSamples2(&expected, measured, measuredLength, collectSample), 0);
    DnFreeMemory(measured);
    ASSERT_EQ(saved.records.size(), expected.records.size());
    for (size_t i = 0; i < saved.records.size(); i++)
        EXPECT_EQ(words(saved.records[i]), words(expected.records[i]));
}

TEST(RemoveNoiseTest, SaveFlagRewritesTheFileItLoadedFrom)
{
    TempDir dir;
    const std::string path = dir.file("p.dnp");
    writeProfile(path, 3);
    std::vector<unsigned char> raw = readFileBytes(path);
    raw.insert(raw.end(), {1, 2, 3});
    writeFileBytes(path, raw);
    unsigned char* expected = nullptr;
    int expectedLength = 0;
    ASSERT_EQ(DnReadProfile(path.c_str(), &expected, &expectedLength, nullptr), 0);
    const std::vector<unsigned char> want(expected, expected + expectedLength);
    DnFreeMemory(expected);

    // Dated back, so that the rewrite shows in the modification time.
    const struct timeval past[2] = {{946684800, 0}, {946684800, 0}};
    ASSERT_EQ(utimes(path.c_str(), past), 0);

    Host host(patchImage(256, 256));
    DnFilterParams p = hostParams(256, 256);
    p.profilePath = path.c_str();
    p.saveProfile = 1;
    ASSERT_EQ(DnRemoveNoise2(&host, &p, 0, 0, 256, 256, nullptr, 0, hostGet, hostPut, nullptr), 0);
    struct stat st;
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    EXPECT_GT(st.st_mtime, 946684800);
    // The profile is written over the file's start; the file is opened
    // without truncation, so its longer old tail stays behind.
    const std::vector<unsigned char> now = readFileBytes(path);
    ASSERT_EQ(now.size(), raw.size());
    EXPECT_EQ(std::vector<unsigned char>(now.begin(), now.begin() + want.size()), want);
}

TEST(RemoveNoiseTest, SaveFlagWritesTheBlockProfileToThePath)
{
    TempDir dir;
    const std::string path = dir.file("out.dnp");
    const std::vector<unsigned char> block = profileBlock(2);
    Host host(patchImage(256, 256));
    DnFilterParams p = hostParams(256, 256);
    p.profilePath = path.c_str();
    p.saveProfile = 1;
    ASSERT_EQ(DnRemoveNoise2(&host, &p, 0, 0, 256, 256, block.data(), static_cast<int>(block.size()), hostGet,
                             hostPut, nullptr),
              0);
    SampleCalls calls;
    ASSERT_EQ(DnReadProfileSamples(&calls, path.c_str(), collectSample), 0);
    EXPECT_EQ(calls.records.size(), 2u);
}

TEST(RemoveNoiseTest, FirstEntryPointIsTheSecondWithoutABlock)
{
    TempDir dir;
    const std::string path = dir.file("p.dnp");
    writeProfile(path, 3);
    Host one(patchImage(256, 256));
    Host two(patchImage(256, 256));
    DnFilterParams p = hostParams(256, 256);
    p.profilePath = path.c_str();
    ASSERT_EQ(DnRemoveNoise(&one, &p, 8, 8, 200, 180, hostGet, hostPut, nullptr), 0);
    ASSERT_EQ(DnRemoveNoise2(&two, &p, 8, 8, 200, 180, nullptr, 0, hostGet, hostPut, nullptr), 0);
    EXPECT_EQ(one.image.data(), two.image.data());
    EXPECT_EQ(one.puts, two.puts);
}

TEST(RemoveNoiseThreadTest, WorkersGiveTheSameImageAsTheCallingThread)
{
    // The host reads one buffer and receives the rows in another, so that
    // the order in which rows are written cannot change what is read.
    const std::vector<unsigned char> block = profileBlock(3);
    const MemoryImage noisy = patchImage(256, 256);
    TuningGuard restore;
    std::vector<std::vector<uint16_t>> results;
    for (int threads : {0, 3}) {
        DnSetRowsPerThread(-1);
        Host source(noisy);
        Host sink(MemoryImage(256, 256));
        struct Pair {
            Host* in;
            Host* out;
        } pair{&source, &sink};
        auto get = [](void* ctx, int y, int x0, int x1, unsigned short* px) {
            hostGet(static_cast<Pair*>(ctx)->in, y, x0, x1, px);
        };
        auto put = [](void* ctx, int y, int x0, int x1, unsigned short* px) {
            hostPut(static_cast<Pair*>(ctx)->out, y, x0, x1, px);
        };
        DnFilterParams p = hostParams(256, 256);
        p.threads = threads;
        const int before = baselineThreadCount();
        ASSERT_EQ(DnRemoveNoise2(&pair, &p, 0, 0, 256, 256, block.data(), static_cast<int>(block.size()), get, put,
                                 nullptr),
                  0);
        EXPECT_EQ(settledThreadCount(), before) << "workers outlived the call";
        if (threads > 0) {
            bool otherThread = false;
            for (std::thread::id id : sink.putThreads)
                otherThread |= id != std::this_thread::get_id();
            EXPECT_TRUE(otherThread) << "rows should be written by the workers";
        }
        results.push_back(sink.image.data());
    }
    EXPECT_EQ(results[0], results[1]);
}
