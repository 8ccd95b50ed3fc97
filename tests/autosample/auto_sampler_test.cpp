#include "autosample/auto_sampler.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "api/status.h"
#include "color/color_palette.h"
#include "color/pixel.h"
#include "color/pixel_rect.h"
#include "support/memory_image.h"
#include "support/simd_paths.h"
#include "support/test_images.h"

using murmex_test::MemoryImage;

namespace {

// Records what the sampler reports and cancels at a chosen report.
class RecordingStatus : public JStatus {
public:
    void setStep(const qtless::QString& name, int total) override
    {
        stepName = name.toStdString();
        stepTotal = total;
        steps++;
        JStatus::setStep(name, total);
    }
    bool update(int done) override
    {
        updates.push_back(done);
        JStatus::update(done);
        if (cancelAtUpdate == static_cast<int>(updates.size()))
            cancelled = true;
        return !cancelled;
    }
    bool isCancelled() override { return cancelled; }
    void end() override { ends++; }

    std::string stepName;
    int stepTotal = -1;
    int steps = 0;
    int ends = 0;
    std::vector<int> updates;
    int cancelAtUpdate = 0;  // 1-based; 0 never cancels
    bool cancelled = false;
};

uint16_t to16(double v)
{
    return static_cast<uint16_t>(std::lround(std::clamp(v, 0.0, 65535.0)));
}

// A texture that no patch survives: 6x6-pixel cells of random colour, each
// channel uniform in 0.1..0.9 of full scale, from a fixed seed.
void paintTexture(MemoryImage& img, uint32_t seed)
{
    std::mt19937 gen(seed);
    const int cw = (img.width() + 5) / 6;
    const int ch = (img.height() + 5) / 6;
    std::vector<uint16_t> cells(static_cast<size_t>(cw) * ch * 3);
    for (uint16_t& c : cells)
        c = static_cast<uint16_t>(6554 + gen() % 52428);
    for (int y = 0; y < img.height(); y++) {
        for (int x = 0; x < img.width(); x++) {
            const uint16_t* c = &cells[(static_cast<size_t>(y / 6) * cw + x / 6) * 3];
            img.setPixel(x, y, c[0], c[1], c[2]);
        }
    }
}

struct Square {
    JRect<int> rect;
    double r, g, b;  // 0..1
    double sigma;    // grey noise, fraction of full scale
    uint32_t seed;
};

// Paints a flat square with Gaussian grey noise: the same normal value,
// sigma times full scale, is added to red, green and blue, so it lands in Y
// with deviation sigma and cancels in Cr and Cb.
void paintSquare(MemoryImage& img, const Square& s)
{
    const int w = s.rect.width();
    std::vector<double> n = murmex_test::gaussianValues(w * s.rect.height(), s.seed);
    for (int y = s.rect.top; y < s.rect.bottom; y++) {
        for (int x = s.rect.left; x < s.rect.right; x++) {
            const double d = n[static_cast<size_t>(y - s.rect.top) * w + (x - s.rect.left)] * s.sigma * 65535.0;
            img.setPixel(x, y, to16(s.r * 65535.0 + d), to16(s.g * 65535.0 + d), to16(s.b * 65535.0 + d));
        }
    }
}

bool inside(const JRect<int>& inner, const JRect<int>& outer)
{
    return inner.left >= outer.left && inner.top >= outer.top && inner.right <= outer.right &&
           inner.bottom <= outer.bottom;
}

std::vector<int> validSlots(JAutoSampler& s)
{
    std::vector<int> out;
    for (int i = 0; i < s.sampleCount(); i++) {
        if (s.getSample(i)->valid)
            out.push_back(i);
    }
    return out;
}

int slotOf(const JLabCoord& lab)
{
    JLabCoord l = lab;
    int row = -1, col = -1;
    JColorPalette* p = JColorPalette::getPalette();
    p->findNearestEntry(l, row, col);
    return row * p->ncols() + col;
}

JLabCoord labOfGrey(uint16_t v)
{
    JPixel p{v, v, v, 65535};
    JLabCoord lab;
    lab.fromPixel(p);
    return lab;
}

}  // namespace

TEST(AutoSamplerTest, HasOneSlotPerPaletteEntryAllEmptyAtFirst)
{
    JAutoSampler s;
    JColorPalette* p = JColorPalette::getPalette();
    ASSERT_EQ(s.sampleCount(), p->ncols() * p->nrows());
    EXPECT_EQ(s.sampleCount(), 72);
    for (int i = 0; i < s.sampleCount(); i++) {
        EXPECT_EQ(s.getSample(i)->valid, 0);
        EXPECT_EQ(s.getSample(i)->rect.width(), 0);
    }
    EXPECT_EQ(s.index().buckets(), 32771);
    EXPECT_EQ(s.index().cellSize(), 128);
    EXPECT_EQ(s.index().colourCell(), 10.0f);
}

TEST(AutoSamplerTest, Image1024SquareYieldsOneTile)
{
    MemoryImage img = murmex_test::flatImage(1024, 1024, 30000, 30000, 30000);
    JAutoSampler s;
    RecordingStatus status;
    ASSERT_TRUE(s.sample(&img, false, &status));
    ASSERT_EQ(s.loadedTiles().size(), 1u);
    EXPECT_EQ(s.loadedTiles()[0].left, 0);
    EXPECT_EQ(s.loadedTiles()[0].top, 0);
    EXPECT_EQ(s.loadedTiles()[0].right, 1024);
    EXPECT_EQ(s.loadedTiles()[0].bottom, 1024);
    EXPECT_EQ(img.getCalls(), 1024);  // one scanline per row of the one tile
    // Tiles start at 0 and 904 in each direction; the three at 904 are 120
    // pixels wide or tall and are skipped after their progress report.
    EXPECT_EQ(status.steps, 1);
    EXPECT_EQ(status.stepName, "Profiling image...");
    EXPECT_EQ(status.stepTotal, 1024 * 1024);
    EXPECT_EQ(status.updates, (std::vector<int>{0, 904, 904 * 1024, 904 * 1024 + 904}));
    EXPECT_EQ(status.ends, 1);
}

TEST(AutoSamplerTest, Image1025WideSkipsSecondTileColumnOf121Pixels)
{
    MemoryImage img = murmex_test::flatImage(1025, 1024, 30000, 30000, 30000);
    JAutoSampler s;
    RecordingStatus status;
    ASSERT_TRUE(s.sample(&img, false, &status));
    // The column at x = 904 is 1025 - 904 = 121 pixels wide: reported, not read.
    EXPECT_EQ(status.updates, (std::vector<int>{0, 904, 904 * 1025, 904 * 1025 + 904}));
    ASSERT_EQ(s.loadedTiles().size(), 1u);
    EXPECT_EQ(s.loadedTiles()[0].right, 1024);
    EXPECT_EQ(img.getCalls(), 1024);
}

TEST(AutoSamplerTest, TilesOverlapBy120PixelsAndEdgeTilesAreClipped)
{
    MemoryImage img = murmex_test::flatImage(1200, 1100, 30000, 30000, 30000);
    JAutoSampler s;
    ASSERT_TRUE(s.sample(&img, false, nullptr));
    // Rows of tiles outer: (0,0) (904,0) (0,904) (904,904); the last row is
    // 196 tall, the last column 296 wide.
    const std::vector<JRect<int>>& t = s.loadedTiles();
    ASSERT_EQ(t.size(), 4u);
    const int want[4][4] = {{0, 0, 1024, 1024}, {904, 0, 1200, 1024}, {0, 904, 1024, 1100}, {904, 904, 1200, 1100}};
    for (int i = 0; i < 4; i++) {
        EXPECT_EQ(t[i].left, want[i][0]) << i;
        EXPECT_EQ(t[i].top, want[i][1]) << i;
        EXPECT_EQ(t[i].right, want[i][2]) << i;
        EXPECT_EQ(t[i].bottom, want[i][3]) << i;
    }
    EXPECT_EQ(img.getCalls(), 1024 + 1024 + 196 + 196);
}

TEST(AutoSamplerTest, Tile128SquareHasGridOf15AndOffersSizes4And8Only)
{
    MemoryImage img = murmex_test::flatImage(128, 128, 20000, 30000, 40000);
    JAutoSampler s;
    ASSERT_TRUE(s.sample(&img, false, nullptr));
    EXPECT_EQ(s.blockMeans().width, 15);
    EXPECT_EQ(s.blockMeans().height, 15);
    EXPECT_EQ(s.blockVars().width, 15);
    EXPECT_EQ(s.blockDirs().width, 15);
    // Size 4: offsets 0, 2, .. 10 (below 15 - 4 = 11), six per direction.
    EXPECT_EQ(s.candidatesExamined(0), 36);
    // Size 8: 0, 2, 4, 6 (below 7).
    EXPECT_EQ(s.candidatesExamined(1), 16);
    // Size 16: 15 - 16 is below 1, no candidate.
    EXPECT_EQ(s.candidatesExamined(2), 0);
    // The winner is the last size-8 candidate, at blocks (6, 6)..(14, 14).
    std::vector<int> v = validSlots(s);
    ASSERT_EQ(v.size(), 1u);
    const JRect<int>& r = s.getSample(v[0])->rect;
    EXPECT_EQ(r.left, 48);
    EXPECT_EQ(r.top, 48);
    EXPECT_EQ(r.right, 112);
    EXPECT_EQ(r.bottom, 112);
}

TEST(AutoSamplerTest, ImageSmallerThan128PixelsYieldsNoSample)
{
    MemoryImage img = murmex_test::flatImage(127, 500, 30000, 30000, 30000);
    JAutoSampler s;
    RecordingStatus status;
    ASSERT_TRUE(s.sample(&img, false, &status));
    EXPECT_TRUE(s.loadedTiles().empty());
    EXPECT_EQ(img.getCalls(), 0);
    EXPECT_TRUE(validSlots(s).empty());
    EXPECT_EQ(status.ends, 1);
}

TEST(AutoSamplerTest, PerfectlyFlatImagePassesUniformityWithFlooredVariances)
{
    const uint16_t v = 32768;
    MemoryImage img = murmex_test::flatImage(1024, 1024, v, v, v);
    JAutoSampler s;
    ASSERT_TRUE(s.sample(&img, false, nullptr));

    // Every block variance of every channel sits at the floor, so the
    // variance extremes are equal (their ratio 1) and spread is 0.
    const JPixelRect& vars = s.blockVars();
    ASSERT_EQ(vars.width, 127);
    ASSERT_EQ(vars.height, 127);
    for (int c = 0; c < 3; c++) {
        for (int i = 0; i < 127 * 127; i++)
            ASSERT_EQ(vars.plane(c)[i], 1e-6f) << "channel " << c << " block " << i;
    }

    // Every candidate passes with the same score per size and a smaller one
    // per larger size; ties go to the newcomer, so the last 16-block
    // candidate, blocks (110, 110)..(126, 126), is the one patch kept.
    EXPECT_EQ(s.candidatesExamined(2), 56 * 56);
    std::vector<int> slots = validSlots(s);
    ASSERT_EQ(slots.size(), 1u);
    const JAutoSampleRec* r = s.getSample(slots[0]);
    EXPECT_EQ(r->rect.left, 880);
    EXPECT_EQ(r->rect.top, 880);
    EXPECT_EQ(r->rect.right, 1008);
    EXPECT_EQ(r->rect.bottom, 1008);

    // Score: extremes times 100 are 1e-4, below the 0.01 floor of the
    // divisor, so the ratio term is 1e-4 / 0.01; spread 0; per 256 blocks.
    const float ext = 1e-6f * 100.0f;
    const float ratio = ext / 0.01f;
    EXPECT_EQ(r->score, (0.0f + ratio * ratio) / 256.0f);
    float sumVar = 0.0f;
    for (int i = 0; i < 256; i++)
        sumVar += 1e-6f;
    EXPECT_EQ(r->yVariance, sumVar / 256.0f);

    // Colour: the mean of 256 equal block means, each exactly the pixel's Y,
    // Cr, Cb, back to a pixel and to L*a*b*.
    float ycc[3];
    JPixel{v, v, v, 65535}.toYCrCb(ycc[0], ycc[1], ycc[2]);
    float m[3];
    for (int c = 0; c < 3; c++) {
        float sum = 0.0f;
        for (int i = 0; i < 256; i++)
            sum += ycc[c];
        m[c] = sum / 256.0f;
    }
    JPixel p;
    p.fromYCrCb(m[0], m[1], m[2]);
    JLabCoord lab;
    lab.fromPixel(p);
    EXPECT_EQ(r->lab.L, lab.L);
    EXPECT_EQ(r->lab.a, lab.a);
    EXPECT_EQ(r->lab.b, lab.b);
    EXPECT_EQ(slots[0], slotOf(lab));
}

TEST(AutoSamplerTest, BlockStatisticsMatchPlainLoopsOnEveryPath)
{
    // Grey noise over a colour ramp, so that every statistic varies.
    MemoryImage img(256, 200);
    for (int y = 0; y < 200; y++) {
        for (int x = 0; x < 256; x++)
            img.setPixel(x, y, static_cast<uint16_t>(10000 + 100 * x), static_cast<uint16_t>(20000 + 80 * y),
                         static_cast<uint16_t>(40000 - 50 * x));
    }
    murmex_test::addGreyNoise(img, 0.02, 7);
    murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& path) {
        SCOPED_TRACE(path.name());
        JAutoSampler s;
        ASSERT_TRUE(s.sample(&img, false, nullptr));

        JPixelRect tile(3);
        JRect<int> r(0, 0, 256, 200);
        tile.loadYCrCb(&img, r);
        const int gw = 256 / 8 - 1, gh = 200 / 8 - 1;
        ASSERT_EQ(s.blockMeans().width, gw);
        ASSERT_EQ(s.blockMeans().height, gh);
        ASSERT_EQ(s.blockDirs().width, gw);
        ASSERT_EQ(s.blockDirs().height, gh);
        auto px = [&](int c, int row, int col) { return tile.plane(c)[row * 256 + col]; };
        for (int c = 0; c < 3; c++) {
            for (int by = 0; by < gh; by++) {
                for (int bx = 0; bx < gw; bx++) {
                    double sum = 0.0, sq = 0.0;
                    for (int i = 0; i < 64; i++) {
                        const double v = px(c, 8 * by + i / 8, 8 * bx + i % 8);
                        sum += v;
                        sq += v * v;
                    }
                    const double mean = sum / 64.0;
                    double var = sq / 64.0 - mean * mean;
                    if (!(var > 1e-6))
                        var = 1e-6;
                    ASSERT_EQ(s.blockMeans().plane(c)[by * gw + bx], static_cast<float>(mean));
                    ASSERT_EQ(s.blockVars().plane(c)[by * gw + bx], static_cast<float>(var));
                }
            }
        }
        // Directional measures: (row, column) steps of horizontal, vertical,
        // diagonal and anti-diagonal lines of five pixels.
        const int step[4][2] = {{0, 1}, {1, 0}, {1, 1}, {1, -1}};
        for (int by = 0; by < gh; by++) {
            for (int bx = 0; bx < gw; bx++) {
                const int r0 = 8 * (by < 1 ? 1 : by);
                const int c0 = 8 * (bx < 1 ? 1 : bx);
                for (int d = 0; d < 4; d++) {
                    float total = 0.0f;
                    for (int y = r0; y < r0 + 7; y++) {
                        for (int x = c0; x < c0 + 7; x++) {
                            float v[5];
                            float sum = 0.0f;
                            for (int k = 0; k < 5; k++) {
                                v[k] = px(0, y + (k - 2) * step[d][0], x + (k - 2) * step[d][1]);
                                sum += v[k];
                            }
                            const float m = sum * 0.2f;
                            float dev = 0.0f;
                            for (int k = 0; k < 5; k++) {
                                const float e = v[k] - m;
                                const float e2 = e * e;
                                dev += e2;
                            }
                            total += dev * 0.2f;
                        }
                    }
                    ASSERT_EQ(s.blockDirs().plane(d)[by * gw + bx], total * 0.015625f)
                        << "direction " << d << " block " << bx << "," << by;
                }
            }
        }    });
}

TEST(AutoSamplerTest, RelaxedNeverSizesBlockDirsAndFavoursTheNoisiestPatch)
{
    // Two grey squares 12 L* units apart, so they do not compete as like
    // colours, yet nearest to the same palette entry.
    const uint16_t g1 = 25500, g2 = 32000;
    const JLabCoord lab1 = labOfGrey(g1), lab2 = labOfGrey(g2);
    ASSERT_GT(lab1.deltaESqr(lab2), 100.0f);
    ASSERT_EQ(slotOf(lab1), slotOf(lab2));
    const int slot = slotOf(lab1);

    MemoryImage img(1024, 1024);
    paintTexture(img, 11);
    const Square quiet{JRect<int>(100, 100, 300, 300), g1 / 65535.0, g1 / 65535.0, g1 / 65535.0, 0.004, 21};
    const Square noisy{JRect<int>(500, 500, 760, 760), g2 / 65535.0, g2 / 65535.0, g2 / 65535.0, 0.012, 22};
    paintSquare(img, quiet);
    paintSquare(img, noisy);

    JAutoSampler relaxedSampler;
    ASSERT_TRUE(relaxedSampler.sample(&img, true, nullptr));
    EXPECT_EQ(relaxedSampler.blockDirs().width, 0);
    EXPECT_EQ(relaxedSampler.blockDirs().height, 0);
    for (int k = 0; k < 4; k++)
        EXPECT_EQ(relaxedSampler.blockDirs().plane(k), nullptr);
    ASSERT_TRUE(relaxedSampler.getSample(slot)->valid);
    EXPECT_TRUE(inside(relaxedSampler.getSample(slot)->rect, noisy.rect));

    JAutoSampler strict;
    ASSERT_TRUE(strict.sample(&img, false, nullptr));
    EXPECT_EQ(strict.blockDirs().width, 1024 / 8 - 1);
    ASSERT_TRUE(strict.getSample(slot)->valid);
    EXPECT_TRUE(inside(strict.getSample(slot)->rect, quiet.rect));

    // Both squares are in the index; only the slot choice differs.
    int inQuiet = 0, inNoisy = 0;
    JAutoSampleIndexIter it(&strict.index());
    while (it.hasMore()) {
        const JAutoSampleRec* r = it.next();
        inQuiet += inside(r->rect, quiet.rect);
        inNoisy += inside(r->rect, noisy.rect);
    }
    EXPECT_EQ(inQuiet, 1);
    EXPECT_EQ(inNoisy, 1);
}

TEST(AutoSamplerTest, CancellingDuringTheFirstTileLeavesEverySlotEmpty)
{
    MemoryImage img = murmex_test::flatImage(1024, 1024, 30000, 30000, 30000);
    JAutoSampler s;
    ASSERT_TRUE(s.sample(&img, false, nullptr));
    ASSERT_EQ(validSlots(s).size(), 1u);

    // The host answers "cancel" to the first report.
    RecordingStatus first;
    first.cancelAtUpdate = 1;
    EXPECT_FALSE(s.sample(&img, false, &first));
    EXPECT_EQ(first.updates, (std::vector<int>{0}));
    EXPECT_TRUE(s.loadedTiles().empty());
    EXPECT_TRUE(validSlots(s).empty());
    EXPECT_EQ(first.ends, 0);

    // Or to the report after the first tile was searched.
    RecordingStatus second;
    second.cancelAtUpdate = 2;
    EXPECT_FALSE(s.sample(&img, false, &second));
    EXPECT_EQ(s.loadedTiles().size(), 1u);
    EXPECT_TRUE(validSlots(s).empty());
}

TEST(AutoSamplerTest, RivalsListedTwiceAreRemovedOnce)
{
    // With a single bucket every cell shares one chain, so every query lists
    // each rival several times; the sampler must still free each only once
    // (the sanitizer build catches a double free) and reach the same result.
    MemoryImage img = murmex_test::flatImage(256, 256, 20000, 30000, 40000);
    JAutoSampler reference;
    ASSERT_TRUE(reference.sample(&img, false, nullptr));
    std::vector<int> want = validSlots(reference);
    ASSERT_EQ(want.size(), 1u);

    JAutoSampler crowded;
    crowded.index().init(1, 128, 10.0f);
    ASSERT_TRUE(crowded.sample(&img, false, nullptr));
    EXPECT_EQ(validSlots(crowded), want);
    const JRect<int>& a = reference.getSample(want[0])->rect;
    const JRect<int>& b = crowded.getSample(want[0])->rect;
    EXPECT_EQ(a.left, b.left);
    EXPECT_EQ(a.top, b.top);
    EXPECT_EQ(a.right, b.right);
    EXPECT_EQ(a.bottom, b.bottom);
}

TEST(AutoSamplerTest, SampleAgainStartsFromScratch)
{
    MemoryImage flat = murmex_test::flatImage(256, 256, 20000, 30000, 40000);
    MemoryImage texture(256, 256);
    paintTexture(texture, 5);
    JAutoSampler s;
    ASSERT_TRUE(s.sample(&flat, false, nullptr));
    ASSERT_EQ(validSlots(s).size(), 1u);
    ASSERT_TRUE(s.sample(&texture, false, nullptr));
    EXPECT_TRUE(validSlots(s).empty());
    EXPECT_FALSE(JAutoSampleIndexIter(&s.index()).hasMore());
}

// Flat squares of six palette colours, 180 to 300 pixels wide, with grey
// noise of deviation 0.01 on a texture, over four tiles.
class AutoSamplerSceneTest : public ::testing::Test {
protected:
    static constexpr double kSigma = 0.01;

    void SetUp() override
    {
        img_ = std::make_unique<MemoryImage>(1400, 1100);
        paintTexture(*img_, 3);
        const int entries[7][2] = {{1, 1}, {1, 3}, {1, 5}, {1, 7}, {1, 9}, {2, 11}, {1, 10}};
        const int rects[7][4] = {{40, 40, 340, 340},     {420, 60, 640, 280},   {760, 100, 1010, 350},
                                 {1100, 200, 1300, 400}, {100, 500, 280, 680}, {500, 620, 760, 880},
                                 {950, 820, 1200, 1070}};
        JColorPalette* p = JColorPalette::getPalette();
        for (int i = 0; i < 7; i++) {
            float r, g, b;
            p->getColor(entries[i][0], entries[i][1]).toRGB(r, g, b);
            Square sq{JRect<int>(rects[i][0], rects[i][1], rects[i][2], rects[i][3]), r, g, b, kSigma,
                      100u + static_cast<uint32_t>(i)};
            paintSquare(*img_, sq);
            squares_.push_back(sq);
            slots_.push_back(entries[i][0] * p->ncols() + entries[i][1]);
        }
    }

    // The square that holds rect whole, or -1.
    int squareHolding(const JRect<int>& rect) const
    {
        for (size_t i = 0; i < squares_.size(); i++) {
            if (inside(rect, squares_[i].rect))
                return static_cast<int>(i);
        }
        return -1;
    }

    std::unique_ptr<MemoryImage> img_;
    std::vector<Square> squares_;
    std::vector<int> slots_;
};

// The vector paths (block statistics, directional roughness, window
// statistics) choose exactly the patches the scalar path chooses, with the
// same colours, scores and variances to the bit, strict and relaxed.
TEST_F(AutoSamplerSceneTest, EveryPathChoosesTheSamePatchesToTheBit)
{
    for (bool relaxed : {false, true}) {
        std::vector<JAutoSampleRec> want;
        murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& path) {
            SCOPED_TRACE(path.name() + (relaxed ? " relaxed" : " strict"));
            JAutoSampler s;
            ASSERT_TRUE(s.sample(img_.get(), relaxed, nullptr));
            std::vector<JAutoSampleRec> got;
            for (int i = 0; i < s.sampleCount(); i++) {
                JAutoSampleRec r = *s.getSample(i);
                r.nextSpatial = r.nextColour = nullptr;
                got.push_back(r);
            }
            if (want.empty()) {
                want = got;
                ASSERT_GE(validSlots(s).size(), 5u);
                return;
            }
            for (size_t i = 0; i < want.size(); i++) {
                ASSERT_EQ(got[i].valid, want[i].valid) << "slot " << i;
                if (!want[i].valid)
                    continue;
                EXPECT_EQ(got[i].rect.left, want[i].rect.left) << "slot " << i;
                EXPECT_EQ(got[i].rect.top, want[i].rect.top) << "slot " << i;
                EXPECT_EQ(got[i].rect.right, want[i].rect.right) << "slot " << i;
                EXPECT_EQ(got[i].rect.bottom, want[i].rect.bottom) << "slot " << i;
                EXPECT_EQ(std::memcmp(&got[i].lab, &want[i].lab, sizeof want[i].lab), 0) << "slot " << i;
                EXPECT_EQ(std::memcmp(&got[i].score, &want[i].score, sizeof(float)), 0) << "slot " << i;
                EXPECT_EQ(std::memcmp(&got[i].yVariance, &want[i].yVariance, sizeof(float)), 0) << "slot " << i;
            }
        });
    }
}

// Tiles scanned on several threads: the same slots, the same tiles and
// counts, the same progress reports and the same diagnostic lines in the same
// order as on the calling thread alone, and the grids of the last tile.
// The scene, for the tests of the threaded tile scan (suites named
// ...ThreadTest run under ThreadSanitizer).
class AutoSamplerThreadTest : public AutoSamplerSceneTest {};

TEST_F(AutoSamplerThreadTest, AnyThreadCountFindsWhatOneThreadFinds)
{
    // 1400 x 1100: tiles at x 0, 904 and y 0, 904, the last row 196 high.
    auto run = [&](int threads, JAutoSampler& s, RecordingStatus& status) {
        s.setThreads(threads);
        testing::internal::CaptureStdout();
        EXPECT_TRUE(s.sample(img_.get(), false, &status));
        return testing::internal::GetCapturedStdout();
    };
    JAutoSampler one;
    RecordingStatus oneStatus;
    const std::string oneLines = run(1, one, oneStatus);
    ASSERT_EQ(one.loadedTiles().size(), 4u);
    for (int threads : {2, 3, 4, 9}) {
        SCOPED_TRACE(std::to_string(threads) + " threads");
        JAutoSampler s;
        RecordingStatus status;
        EXPECT_EQ(run(threads, s, status), oneLines);
        EXPECT_EQ(status.updates, oneStatus.updates);
        EXPECT_EQ(status.ends, 1);
        ASSERT_EQ(s.loadedTiles().size(), one.loadedTiles().size());
        for (size_t i = 0; i < one.loadedTiles().size(); i++)
            EXPECT_EQ(s.loadedTiles()[i].top * 10000 + s.loadedTiles()[i].left,
                      one.loadedTiles()[i].top * 10000 + one.loadedTiles()[i].left);
        for (int k = 0; k < 3; k++)
            EXPECT_EQ(s.candidatesExamined(k), one.candidatesExamined(k));
        EXPECT_EQ(validSlots(s), validSlots(one));
        for (int i : validSlots(one)) {
            EXPECT_EQ(std::memcmp(&s.getSample(i)->rect, &one.getSample(i)->rect, sizeof(JRect<int>)), 0);
            EXPECT_EQ(std::memcmp(&s.getSample(i)->lab, &one.getSample(i)->lab, sizeof(JLabCoord)), 0);
            EXPECT_EQ(std::memcmp(&s.getSample(i)->yVariance, &one.getSample(i)->yVariance, sizeof(float)), 0);
        }
        ASSERT_EQ(s.blockMeans().width, one.blockMeans().width);
        ASSERT_EQ(s.blockMeans().height, one.blockMeans().height);
        const size_t cells = static_cast<size_t>(one.blockMeans().width) * one.blockMeans().height;
        EXPECT_EQ(std::memcmp(s.blockMeans().plane(0), one.blockMeans().plane(0), cells * sizeof(float)), 0);
        EXPECT_EQ(std::memcmp(s.blockDirs().plane(3), one.blockDirs().plane(3), cells * sizeof(float)), 0);
    }
}

TEST_F(AutoSamplerThreadTest, CancellingWithHelperThreadsStopsThemAndLeavesEverySlotEmpty)
{
    for (int cancelAt : {1, 2, 3, 4}) {
        JAutoSampler s;
        s.setThreads(3);
        RecordingStatus status;
        status.cancelAtUpdate = cancelAt;
        EXPECT_FALSE(s.sample(img_.get(), false, &status)) << cancelAt;
        EXPECT_EQ(status.updates.size(), static_cast<size_t>(cancelAt));
        EXPECT_EQ(status.ends, 0);
        EXPECT_TRUE(validSlots(s).empty());
        // The sampler is whole afterwards: a full run finds the patches.
        EXPECT_TRUE(s.sample(img_.get(), false, nullptr));
        EXPECT_FALSE(validSlots(s).empty());
    }
}

TEST_F(AutoSamplerSceneTest, PatchesLieInsideTheSquaresOnePerSlot)
{
    JAutoSampler s;
    ASSERT_TRUE(s.sample(img_.get(), false, nullptr));
    std::vector<int> found = validSlots(s);
    std::vector<int> perSquare(squares_.size(), 0);
    for (int slot : found) {
        const JAutoSampleRec* r = s.getSample(slot);
        const int sq = squareHolding(r->rect);
        ASSERT_GE(sq, 0) << "patch on the texture at " << r->rect.left << "," << r->rect.top;
        EXPECT_EQ(slot, slots_[sq]) << "square " << sq;
        perSquare[sq]++;
    }
    // Every square gives exactly one patch, in the slot of its colour.
    for (size_t i = 0; i < squares_.size(); i++)
        EXPECT_EQ(perSquare[i], 1) << "square " << i;
    // Chosen patches never overlap.
    for (size_t i = 0; i < found.size(); i++) {
        for (size_t j = i + 1; j < found.size(); j++)
            EXPECT_FALSE(s.getSample(found[i])->rect.intersects(s.getSample(found[j])->rect));
    }
}

TEST_F(AutoSamplerSceneTest, MeasuredNoiseIsTheSquaresNoise)
{
    JAutoSampler s;
    ASSERT_TRUE(s.sample(img_.get(), false, nullptr));
    // Grey noise of deviation sigma is Y noise of deviation sigma; a block's
    // variance about its own mean expects 63/64 of it.
    const double expected = kSigma * kSigma * 63.0 / 64.0;
    for (int slot : validSlots(s)) {
        const JAutoSampleRec* r = s.getSample(slot);
        EXPECT_NEAR(r->yVariance, expected, 0.1 * expected) << "slot " << slot;
        EXPECT_GE(r->rect.width(), 32);
        EXPECT_EQ(r->rect.width(), r->rect.height());
    }
}

TEST_F(AutoSamplerSceneTest, RelaxedFindsAtLeastAsManyAndStaysOffTheTexture)
{
    JAutoSampler strict, relaxed;
    ASSERT_TRUE(strict.sample(img_.get(), false, nullptr));
    ASSERT_TRUE(relaxed.sample(img_.get(), true, nullptr));
    std::vector<int> a = validSlots(strict), b = validSlots(relaxed);
    EXPECT_GE(b.size(), a.size());
    for (int slot : b)
        EXPECT_GE(squareHolding(relaxed.getSample(slot)->rect), 0) << "slot " << slot;
}

TEST(AutoSamplerTest, PureTextureYieldsNoPatch)
{
    MemoryImage img(1024, 1024);
    paintTexture(img, 9);
    JAutoSampler s;
    ASSERT_TRUE(s.sample(&img, false, nullptr));
    EXPECT_TRUE(validSlots(s).empty());
    ASSERT_TRUE(s.sample(&img, true, nullptr));
    EXPECT_TRUE(validSlots(s).empty());
}

TEST(AutoSamplerTest, SteepRampYieldsNoPatchEvenWhenRelaxed)
{
    // Full scale over 256 columns: neighbouring block means differ by
    // 8/255 * 100 = 3.1, so four blocks spread 9.4 > 6.
    MemoryImage img(256, 256);
    for (int y = 0; y < 256; y++) {
        for (int x = 0; x < 256; x++) {
            const uint16_t v = static_cast<uint16_t>(x * 257);
            img.setPixel(x, y, v, v, v);
        }
    }
    JAutoSampler s;
    ASSERT_TRUE(s.sample(&img, false, nullptr));
    EXPECT_TRUE(validSlots(s).empty());
    ASSERT_TRUE(s.sample(&img, true, nullptr));
    EXPECT_TRUE(validSlots(s).empty());
}

TEST(AutoSamplerTest, RampFailsTheDirectionalTestButPassesWhenRelaxed)
{
    // Full scale over 512 columns, rows alike: flat enough for the uniformity
    // test at four blocks (spread 3 * 1.56 = 4.7 < 6), but all its roughness
    // lies across the columns and none along them, so the directional test
    // rejects every candidate.
    MemoryImage img(512, 512);
    for (int y = 0; y < 512; y++) {
        for (int x = 0; x < 512; x++) {
            const uint16_t v = static_cast<uint16_t>(x * 128);
            img.setPixel(x, y, v, v, v);
        }
    }
    JAutoSampler s;
    ASSERT_TRUE(s.sample(&img, false, nullptr));
    EXPECT_TRUE(validSlots(s).empty());

    // Relaxed, the ramp passes; the noise it reports is the ramp's own
    // variance over eight columns, (8^2 - 1) / 12 steps of 128 / 65535.
    ASSERT_TRUE(s.sample(&img, true, nullptr));
    std::vector<int> found = validSlots(s);
    ASSERT_FALSE(found.empty());
    const double step = 128.0 / 65535.0;
    const double rampVar = 63.0 / 12.0 * step * step;
    for (int slot : found) {
        EXPECT_EQ(s.getSample(slot)->rect.width(), 32) << "slot " << slot;
        EXPECT_NEAR(s.getSample(slot)->yVariance, rampVar, 0.02 * rampVar) << "slot " << slot;
    }
}

TEST(AutoSamplerTest, GentleRampUnderNoiseReportsTheNoise)
{
    // 4000 to 61288 over 1024 columns (kept clear of clipping) with grey
    // noise of deviation 0.01: the patches found measure the noise plus the
    // ramp's small variance over eight columns, (8^2 - 1) / 12 steps of
    // 56 / 65535.
    MemoryImage img(1024, 512);
    for (int y = 0; y < 512; y++) {
        for (int x = 0; x < 1024; x++) {
            const uint16_t v = static_cast<uint16_t>(4000 + x * 56);
            img.setPixel(x, y, v, v, v);
        }
    }
    murmex_test::addGreyNoise(img, 0.01, 17);
    JAutoSampler s;
    ASSERT_TRUE(s.sample(&img, false, nullptr));
    std::vector<int> found = validSlots(s);
    ASSERT_FALSE(found.empty());
    const double step = 56.0 / 65535.0;
    const double expected = 0.01 * 0.01 * 63.0 / 64.0 + 63.0 / 12.0 * step * step;
    for (int slot : found)
        EXPECT_NEAR(s.getSample(slot)->yVariance, expected, 0.1 * expected) << "slot " << slot;
}
