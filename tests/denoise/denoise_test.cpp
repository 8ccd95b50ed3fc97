#include "denoise/denoise.h"

#include <algorithm>
#include <climits>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "api/dn_status_wrapper.h"
#include "api/status.h"
#include "color/image_lib.h"
#include "denoise/raster/adapter_to_rgbx.h"
#include "denoise/raster/rgbx_to_ycrcb.h"
#include "denoise/raster/to_rgb.h"
#include "denoise/raster/variance.h"
#include "denoise/raster/variance_step_abs.h"
#include "denoise/raster/wavelet.h"
#include "filter/filter_mask.h"
#include "filter/filter_mask_builder.h"
#include "filter/noise_filter_settings.h"
#include "profile/noise_profile.h"
#include "support/memory_image.h"
#include "support/scene.h"
#include "support/simd_paths.h"

using murmex_test::MemoryImage;

namespace {

// Restores the process-wide tuning values after each test: the driver
// rewrites the rows-per-thread override when it runs without workers.
class DenoiseFixture : public ::testing::Test {
protected:
    void SetUp() override
    {
        JDenoise::rows_per_thread_override = -1;
        JDenoise::denoise_levels_override = -1;
        JImageLib::DenoiseStripWidth = 3400;
    }
    void TearDown() override { SetUp(); }
};

using DenoiseTest = DenoiseFixture;
using DenoiseThreadTest = DenoiseFixture;

// Every noise map cell of channel ch and level l holds noise[ch][l].
void setNoise(JNoiseFilterSettings& s, float y, float chroma)
{
    for (int ch = 0; ch < 3; ++ch)
        for (int l = 0; l < JNoiseFilterSettings::kLevels; ++l) {
            const float base = ch == 0 ? y : chroma;
            const float v = base / static_cast<float>(1 << l);  // finer levels carry more noise
            for (int i = 0; i < J3DMap::kCells; ++i)
                s.getNoiseMap(ch, l).setCellValue(i, v);
        }
}

// Records the columns the engine asks for, and how often it reads each row.
class RecordingImage : public MemoryImage {
public:
    using MemoryImage::MemoryImage;
    void getScanline(int y, int xStart, int xEnd, unsigned short* pixels) override
    {
        minX = std::min(minX, xStart);
        maxX = std::max(maxX, xEnd);
        reads.resize(std::max(reads.size(), static_cast<size_t>(y) + 1));
        ++reads[static_cast<size_t>(y)];
        MemoryImage::getScanline(y, xStart, xEnd, pixels);
    }
    std::vector<int> reads;
    void resampleInterleaved(int y, int, int) override { resampled.push_back(y); }
    int minX = INT_MAX;
    int maxX = INT_MIN;
    std::vector<int> resampled;
};

struct Progress {
    std::vector<std::string> steps;
    std::vector<float> fractions;
    int cancelAfter = -1;  // answer 1 from this call on
};

int onProgress(void* ctx, const char* step, float fraction)
{
    auto* p = static_cast<Progress*>(ctx);
    p->steps.emplace_back(step);
    p->fractions.push_back(fraction);
    return p->cancelAfter >= 0 && static_cast<int>(p->fractions.size()) > p->cancelAfter ? 1 : 0;
}

MemoryImage run(MemoryImage& in, JNoiseFilterSettings& settings, int threads, bool turbo = true,
                JRect<int>* rect = nullptr)
{
    MemoryImage out(in.width(), in.height());
    JDenoise d;
    d.setFilterSettings(&settings);
    d.setTurbo(turbo);
    d.setNumThreads(threads);
    JRect<int> whole(0, 0, in.width(), in.height());
    EXPECT_TRUE(d.removeNoise(&in, rect ? rect : &whole, &out, nullptr));
    return out;
}

}  // namespace

TEST_F(DenoiseTest, WideRectangleRunsAsThreeStripsSharingOneColumn)
{
    MemoryImage in = murmex_test::makeScene(8000, 6);
    JNoiseFilterSettings settings;
    MemoryImage out(8000, 6);
    JDenoise d;
    d.setFilterSettings(&settings);
    d.setNumThreads(1);
    JRect<int> rect(0, 0, 8000, 6);
    ASSERT_TRUE(d.removeNoise(&in, &rect, &out, nullptr));
    EXPECT_EQ(d.stripCount(), 3);
    EXPECT_EQ(d.stripWidth(), 2666);
    for (int x = 0; x < 8000; ++x) {
        const int expected = (x == 2666 || x == 5332) ? 2 : 1;
        for (int y = 0; y < 6; ++y)
            ASSERT_EQ(out.writeCounts()[static_cast<size_t>(y) * 8000 + x], expected) << x << "," << y;
    }
}

TEST_F(DenoiseTest, LowStripLimitCutsIntoExpectedStripsAndNeverWritesOutsideTheRectangle)
{
    MemoryImage in = murmex_test::makeScene(300, 40);
    JNoiseFilterSettings settings;
    MemoryImage out(300, 40);
    JImageLib::DenoiseStripWidth = 50;
    JDenoise d;
    d.setFilterSettings(&settings);
    d.setNumThreads(2);
    JRect<int> rect(37, 5, 277, 31);  // 240 wide: 5 strips of 48
    ASSERT_TRUE(d.removeNoise(&in, &rect, &out, nullptr));
    EXPECT_EQ(d.stripCount(), 5);
    EXPECT_EQ(d.stripWidth(), 48);
    for (int y = 0; y < 40; ++y)
        for (int x = 0; x < 300; ++x) {
            const int n = out.writeCounts()[static_cast<size_t>(y) * 300 + x];
            const bool inside = x >= rect.left && x < rect.right && y >= rect.top && y < rect.bottom;
            const bool shared = inside && x > rect.left && x < rect.right - 1 && (x - rect.left) % 48 == 0;
            EXPECT_EQ(n, inside ? (shared ? 2 : 1) : 0) << x << "," << y;
        }
}

TEST_F(DenoiseTest, StripLimitOfZeroStopsAtOneColumnPerStrip)
{
    MemoryImage in = murmex_test::makeScene(12, 8);
    JNoiseFilterSettings settings;
    MemoryImage out(12, 8);
    JImageLib::DenoiseStripWidth = 0;
    JDenoise d;
    d.setFilterSettings(&settings);
    d.setNumThreads(1);
    JRect<int> rect(0, 0, 12, 8);
    ASSERT_TRUE(d.removeNoise(&in, &rect, &out, nullptr));
    EXPECT_EQ(d.stripCount(), 12);
    EXPECT_EQ(d.stripWidth(), 1);
}

TEST_F(DenoiseTest, RowsPerThreadFollowTheThreadCount)
{
    MemoryImage in = murmex_test::makeScene(40, 300);
    JNoiseFilterSettings settings;
    MemoryImage out(40, 300);
    JRect<int> rect(0, 0, 40, 300);
    JDenoise d;
    d.setFilterSettings(&settings);
    d.setNumThreads(4);
    ASSERT_TRUE(d.removeNoise(&in, &rect, &out, nullptr));
    EXPECT_EQ(d.rowsPerThread(), 75);
    d.setNumThreads(1);
    ASSERT_TRUE(d.removeNoise(&in, &rect, &out, nullptr));
    EXPECT_EQ(d.rowsPerThread(), 128);
    JDenoise::rows_per_thread_override = 7;
    ASSERT_TRUE(d.removeNoise(&in, &rect, &out, nullptr));
    EXPECT_EQ(d.rowsPerThread(), 7);
    JDenoise::rows_per_thread_override = 0;
    ASSERT_TRUE(d.removeNoise(&in, &rect, &out, nullptr));
    EXPECT_EQ(d.rowsPerThread(), 1);
    // The largest override is one batch, the same rows as any other.
    MemoryImage reference(in.width(), in.height());
    ASSERT_TRUE(d.removeNoise(&in, &rect, &reference, nullptr));
    JDenoise::rows_per_thread_override = std::numeric_limits<int>::max();
    d.setNumThreads(2);
    ASSERT_TRUE(d.removeNoise(&in, &rect, &out, nullptr));
    EXPECT_EQ(d.rowsPerThread(), std::numeric_limits<int>::max());
    EXPECT_EQ(out.data(), reference.data());
}

TEST_F(DenoiseTest, LevelsFollowTheOverrideOrTheLowFrequencyFlag)
{
    JNoiseFilterSettings settings;
    JDenoise d;
    d.setFilterSettings(&settings);
    EXPECT_EQ(d.levels(), 4);
    settings.setLowFreqFlag(true);
    EXPECT_EQ(d.levels(), 5);
    JDenoise::denoise_levels_override = 3;
    EXPECT_EQ(d.levels(), 3);
    settings.setLowFreqFlag(false);
    EXPECT_EQ(d.levels(), 3);
    JDenoise::denoise_levels_override = 6;
    EXPECT_EQ(d.levels(), 4);
    JDenoise::denoise_levels_override = -1;
    settings.setLowFreqFlag(true);
    EXPECT_EQ(d.levels(), 5);
}

TEST_F(DenoiseTest, SharpeningAmountOfExactly1001AddsNoSharpenNode)
{
    JNoiseFilterSettings settings;
    JDenoise d;
    d.setFilterSettings(&settings);
    settings.setUSMAmount(1.001f);
    EXPECT_FALSE(d.sharpens());
    settings.setUSMAmount(1.0011f);
    EXPECT_TRUE(d.sharpens());
}

TEST_F(DenoiseTest, StripStartingAtColumn20GetsNoLeftMargin)
{
    MemoryImage scene = murmex_test::makeScene(200, 16);
    JNoiseFilterSettings settings;
    for (int left : {20, 40}) {
        RecordingImage in(200, 16);
        in.data() = scene.data();
        MemoryImage out(200, 16);
        JDenoise d;
        d.setFilterSettings(&settings);
        d.setNumThreads(1);
        JRect<int> rect(left, 0, 120, 16);
        ASSERT_TRUE(d.removeNoise(&in, &rect, &out, nullptr));
        EXPECT_EQ(in.minX, left == 20 ? 20 : 8);
        EXPECT_EQ(in.maxX, 119 + 32);
    }
}

TEST_F(DenoiseTest, WithoutWorkersTheKeptRowBoundWritesOneRowBelowARectangleAtTheTop)
{
    MemoryImage in = murmex_test::makeScene(24, 30);
    JNoiseFilterSettings settings;
    MemoryImage out(24, 30);
    JDenoise d;
    d.setFilterSettings(&settings);
    JRect<int> rect(0, 0, 24, 20);
    ASSERT_TRUE(d.removeNoise(&in, &rect, &out, nullptr));
    EXPECT_EQ(JDenoise::rows_per_thread_override.load(), 20);  // left so for later runs
    for (int y = 0; y < 30; ++y)
        EXPECT_EQ(out.writeCounts()[static_cast<size_t>(y) * 24], y <= 20 ? 1 : 0) << y;
}

TEST_F(DenoiseTest, WithoutWorkersTheKeptRowBoundSkipsRowsOfALowerRectangle)
{
    MemoryImage in = murmex_test::makeScene(24, 30);
    JNoiseFilterSettings settings;
    MemoryImage out(24, 30);
    JDenoise d;
    d.setFilterSettings(&settings);
    JRect<int> rect(0, 10, 24, 30);  // rows 10..29; the bound stops after row 20
    ASSERT_TRUE(d.removeNoise(&in, &rect, &out, nullptr));
    for (int y = 0; y < 30; ++y)
        EXPECT_EQ(out.writeCounts()[static_cast<size_t>(y) * 24], (y >= 10 && y <= 20) ? 1 : 0) << y;
}

TEST_F(DenoiseTest, ZeroStrengthGivesTheColourConversionsAlone)
{
    MemoryImage in = murmex_test::makeScene(90, 60);
    murmex_test::addNoise(in, 1500.0, 3);
    JNoiseFilterSettings settings;
    setNoise(settings, 1e-3f, 1e-3f);
    for (int ch = 0; ch < 3; ++ch) {
        settings.setStrength(ch, 0.0f);
        settings.setContrast(ch, 1.0f);
    }
    settings.setUSMAmount(0.0f);
    MemoryImage out = run(in, settings, 2, false);

    // The colour conversions alone: RGBX -> Y, Cr, Cb -> RGB.
    MemoryImage expect(90, 60);
    JIncrRaster_AdapterToRGBX reader(&in, 0, 89);
    JIncrRaster_RGBXToYCrCb y(&reader, JImageLib::Y), cr(&reader, JImageLib::Cr), cb(&reader, JImageLib::Cb);
    JIncrRaster_ToRGB writer(y, cr, cb, &expect, 0, 89, 0);
    for (int row = 0; row < 60; ++row) {
        writer.refScanline(row);
        writer.getScanline(row);
        writer.unrefScanline(row);
    }
    int worst = 0;
    for (size_t i = 0; i < out.data().size(); ++i)
        worst = std::max(worst, std::abs(static_cast<int>(out.data()[i]) - static_cast<int>(expect.data()[i])));
    EXPECT_LE(worst, 1);
}

TEST_F(DenoiseTest, StepTextNamesTheProfile)
{
    MemoryImage in = murmex_test::makeScene(20, 10);
    MemoryImage out(20, 10);
    JNoiseProfile profile;
    JNoiseFilterSettings settings;
    JDenoise d;
    d.setProfile(&profile);
    d.setFilterSettings(&settings);
    d.setNumThreads(1);
    JRect<int> rect(0, 0, 20, 10);
    {
        Progress p;
        JStatus status;
        DnStatusWrapper wrapper(&p, &status, onProgress);
        ASSERT_TRUE(d.removeNoise(&in, &rect, &out, &status));
        ASSERT_FALSE(p.steps.empty());
        EXPECT_EQ(p.steps.front(), "Removing noise: [New profile: unnamed.dnp]");
        EXPECT_EQ(p.fractions.front(), 0.0f);
        EXPECT_EQ(p.fractions.back(), 1.0f);
        for (size_t i = 1; i < p.fractions.size(); ++i)
            EXPECT_GE(p.fractions[i], p.fractions[i - 1]);
    }
    profile.setPath("/profiles/Camera ISO 800.dnp");
    const std::string name = profile.getFileName().utf8();
    // The step text appends ".dnp" to the name, so the name comes without it.
    ASSERT_EQ(name, "Camera ISO 800");
    const struct {
        int origin;
        std::string label;
    } cases[] = {{0, "Auto matched:"}, {1, "Using previous:"}, {2, "User selected:"}, {3, "User selected:"}};
    for (const auto& c : cases) {
        profile.setOrigin(c.origin);
        Progress p;
        JStatus status;
        DnStatusWrapper wrapper(&p, &status, onProgress);
        ASSERT_TRUE(d.removeNoise(&in, &rect, &out, &status));
        EXPECT_EQ(p.steps.front(), "Removing noise: [" + c.label + " " + name + ".dnp]");
    }
}

TEST_F(DenoiseThreadTest, CancellationStopsAfterTheCurrentBatchAndStillReportsTheEnd)
{
    MemoryImage in = murmex_test::makeScene(64, 200);
    JNoiseFilterSettings settings;
    MemoryImage out(64, 200);
    Progress p;
    p.cancelAfter = 1;  // update(0) passes, the first batch's report cancels
    {
        JStatus status;
        DnStatusWrapper wrapper(&p, &status, onProgress);
        JDenoise d;
        d.setFilterSettings(&settings);
        d.setNumThreads(2);
        JDenoise::rows_per_thread_override = 10;
        JRect<int> rect(0, 0, 64, 200);
        EXPECT_FALSE(d.removeNoise(&in, &rect, &out, &status));
    }  // the driver's workers are joined here
    EXPECT_EQ(p.fractions.back(), 1.0f);
    int written = 0;
    for (int y = 0; y < 200; ++y)
        written += out.writeCounts()[static_cast<size_t>(y) * 64] > 0;
    EXPECT_EQ(written, 20);  // one batch: two workers, ten rows each
}

// The deepest pipeline, cut into small batches for several workers, reads
// every input row once: no row of any node above the input was dropped while
// a later batch still needed it.
TEST_F(DenoiseThreadTest, WorkersReadEveryInputRowOnceInTheDeepestPipeline)
{
    const int width = 40, height = 1500;
    MemoryImage scene = murmex_test::makeScene(width, height);
    JNoiseFilterSettings settings;
    setNoise(settings, 4e-4f, 2e-4f);
    settings.setUSMAmount(3.0f);
    settings.setUSMRadius(3.0f);
    JDenoise::denoise_levels_override = 5;
    for (bool turbo : {false, true})
        for (int threads : {1, 3}) {
            RecordingImage in(width, height);
            in.data() = scene.data();
            JDenoise::rows_per_thread_override = 5;
            MemoryImage out(width, height);
            JDenoise d;
            d.setFilterSettings(&settings);
            d.setTurbo(turbo);
            d.setNumThreads(threads);
            JRect<int> whole(0, 0, width, height);
            ASSERT_TRUE(d.removeNoise(&in, &whole, &out, nullptr));
            ASSERT_EQ(in.reads.size(), static_cast<size_t>(height));
            EXPECT_EQ(std::count(in.reads.begin(), in.reads.end(), 1), height)
                << threads << " workers, turbo " << turbo;
        }
}

TEST_F(DenoiseThreadTest, ResultDoesNotDependOnWorkerCountOrBatchSize)
{
    MemoryImage in = murmex_test::makeScene(160, 120);
    murmex_test::addNoise(in, 2000.0, 11);
    JNoiseFilterSettings settings;
    setNoise(settings, 4e-4f, 2e-4f);
    for (bool turbo : {false, true}) {
        const MemoryImage reference = run(in, settings, 1, turbo);
        for (int threads : {2, 3}) {
            const MemoryImage out = run(in, settings, threads, turbo);
            EXPECT_EQ(out.data(), reference.data()) << threads << " threads, turbo " << turbo;
        }
        JDenoise::rows_per_thread_override = 7;
        EXPECT_EQ(run(in, settings, 2, turbo).data(), reference.data()) << "7 rows per request";
        JDenoise::rows_per_thread_override = -1;
    }
}

TEST_F(DenoiseTest, ResultIsBitIdenticalAcrossThreadsBatchesAndVectorPaths)
{
    MemoryImage in = murmex_test::makeScene(700, 500);
    murmex_test::addNoise(in, 1800.0, 5);
    JNoiseFilterSettings settings;
    setNoise(settings, 3e-4f, 1.5e-4f);
    for (bool turbo : {false, true}) {
        MemoryImage reference(1, 1);
        {
            murmex_test::ScopedSIMDPath scalar({false, JCPUInfo::Scalar});
            reference = run(in, settings, 1, turbo);
        }
        murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& path) {
            for (int threads : {1, 2, 3, 8})
                EXPECT_EQ(run(in, settings, threads, turbo).data(), reference.data())
                    << path.name() << ", " << threads << " threads, turbo " << turbo;
            for (int rows : {1, 7, 128}) {
                JDenoise::rows_per_thread_override = rows;
                EXPECT_EQ(run(in, settings, 2, turbo).data(), reference.data())
                    << path.name() << ", " << rows << " rows per request, turbo " << turbo;
            }
            JDenoise::rows_per_thread_override = -1;
        });
    }
}

namespace {

// Noise energy per channel and level that the shrink nodes see for Gaussian
// noise of `sigma` on a flat mid-grey: the mean of the driver's own energy
// nodes over a pure-noise image.
void calibrateNoise(JNoiseFilterSettings& settings, double sigma)
{
    const int w = 256, h = 256;
    MemoryImage flat(w, h);
    flat.fill(30000, 30000, 30000);
    murmex_test::addNoise(flat, sigma, 99);
    JIncrRaster_AdapterToRGBX reader(&flat, 0, w - 1);
    for (int ch = 0; ch < 3; ++ch) {
        JIncrRaster_RGBXToYCrCb channel(&reader, static_cast<JImageLib::YCrCbIndex>(ch));
        JIncrRaster* bands[5];
        JIncrRaster* lows[5];
        buildIncrWavelet(&channel, 5, bands, lows);
        for (int l = 0; l < 5; ++l) {
            std::unique_ptr<JIncrRaster> energy;
            if (ch == 0)
                energy = std::make_unique<JIncrRaster_Variance>(*bands[l], 4);
            else
                energy = std::make_unique<JIncrRaster_VarianceStepAbs>(*bands[l], 2, l + 1);
            double sum = 0.0;
            for (int y = 0; y < h; ++y)
                energy->refScanline(y);
            for (int y = 0; y < h; ++y) {
                const float* row = energy->getScanline(y);
                for (int x = 0; x < w; ++x)
                    sum += row[x];
                energy->unrefScanline(y);
            }
            const float n = static_cast<float>(sum / (static_cast<double>(w) * h));
            for (int i = 0; i < J3DMap::kCells; ++i)
                settings.getNoiseMap(ch, l).setCellValue(i, n);
        }
        for (int l = 0; l < 5; ++l) {
            delete bands[l];
            delete lows[l];
        }
    }
}

}  // namespace

TEST_F(DenoiseTest, MatchingNoiseMapsRaisePsnrAndKeepTheStepEdge)
{
    const int w = 400, h = 300;
    const double sigma = 2500.0;
    const MemoryImage clean = murmex_test::makeScene(w, h);
    MemoryImage noisy = clean;
    murmex_test::addNoise(noisy, sigma, 21);
    JNoiseFilterSettings settings;
    calibrateNoise(settings, sigma);
    for (int ch = 0; ch < 3; ++ch)
        settings.setStrength(ch, 1.0f);
    settings.setUSMAmount(0.0f);
    const MemoryImage out = run(noisy, settings, 2);
    const double before = murmex_test::psnr(noisy, clean);
    const double after = murmex_test::psnr(out, clean);
    RecordProperty("psnr_before", std::to_string(before));
    RecordProperty("psnr_after", std::to_string(after));
    EXPECT_GE(after - before, 4.0) << "before " << before << " dB, after " << after << " dB";

    // The hard step at x = w/2 (rows h/3..2h/3) stays within two pixels: the
    // green channel crosses the middle of the step between x - 2 and x + 1.
    const int edge = w / 2;
    for (int y = h / 3 + 8; y < 2 * h / 3 - 8; y += 7) {
        const double lo = clean.at(edge - 1, y, 1);
        const double hi = clean.at(edge, y, 1);
        const double mid = (lo + hi) / 2;
        EXPECT_LT(out.at(edge - 3, y, 1), mid) << y;
        EXPECT_GT(out.at(edge + 2, y, 1), mid) << y;
    }
}

TEST_F(DenoiseTest, EmptyFilterMaskAddsNoNodesAndPaintedChannelsAddOneEach)
{
    const int w = 48, h = 24;
    MemoryImage in = murmex_test::makeScene(w, h);
    murmex_test::addNoise(in, 2000.0, 4);
    JNoiseFilterSettings settings;
    setNoise(settings, 4e-4f, 2e-4f);
    JRect<int> rect(0, 0, w, h);
    auto nodesWith = [&](JFilterMask* mask, MemoryImage& out) {
        JDenoise d;
        d.setFilterSettings(&settings);
        d.setNumThreads(1);
        d.setFilterMask(mask);
        EXPECT_TRUE(d.removeNoise(&in, &rect, &out, nullptr));
        return d.graphNodeCount();
    };
    MemoryImage plain(w, h), masked(w, h);
    const int base = nodesWith(nullptr, plain);
    JFilterMask empty(w, h);
    EXPECT_TRUE(empty.isLumEmpty());
    EXPECT_TRUE(empty.isChromaEmpty());
    EXPECT_EQ(nodesWith(&empty, masked), base);
    EXPECT_EQ(masked.data(), plain.data());

    // Weight 1 everywhere on luminance: Y passes unfiltered, one node more.
    const std::vector<float> ones(static_cast<size_t>(w) * h, 1.0f);
    JFilterMask lum = JFilterMaskBuilder::build(w, h, ones.data(), nullptr);
    EXPECT_EQ(nodesWith(&lum, masked), base + 1);
    EXPECT_NE(masked.data(), plain.data());
    JFilterMask both = JFilterMaskBuilder::build(w, h, ones.data(), ones.data());
    EXPECT_EQ(nodesWith(&both, masked), base + 3);
}
