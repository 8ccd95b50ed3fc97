#include "denoise/raster/to_rgb.h"

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "base/ex.h"
#include "denoise/raster/adapter_to_rgbx.h"
#include "denoise/raster/rgbx_to_ycrcb.h"
#include "support/memory_image.h"
#include "support/plane_node.h"
#include "support/planes.h"
#include "support/simd_paths.h"

namespace {

using murmex_test::MemoryImage;
using murmex_test::PlaneNode;

struct Pixel16 {
    uint16_t r, g, b;
};

// One output pixel written out from the conversion: chroma offsets removed in
// double, products and sums rounded one by one, clamped, times 65535, truncated.
uint16_t literalSample(float v)
{
    if (std::isnan(v) || v <= 0.0f)
        v = 0.0f;
    if (v >= 1.0f)
        v = 1.0f;
    const float scaled = v * 65535.0f;
    return static_cast<uint16_t>(std::trunc(scaled));
}

Pixel16 literalPixel(float y, float cr, float cb)
{
    const float crd = static_cast<float>(double(cr) - 0.5);
    const float cbd = static_cast<float>(double(cb) - 0.5);
    const float r = y + 1.4022f * crd;
    float g = y - 0.7145f * crd;
    g = g - 0.3456f * cbd;
    const float b = y + 1.7710f * cbd;
    return Pixel16{literalSample(r), literalSample(g), literalSample(b)};
}

// Pulls every row of the node once, in order, through the reference protocol.
void pullAllRows(JIncrRaster& node)
{
    for (int y = 0; y < node.height(); ++y) {
        node.refScanline(y);
        node.getScanline(y);
        node.unrefScanline(y);
    }
}

// Values that probe every step of the conversion: exact multiples of 1/65535
// and their float neighbours (truncation edges), values near 0 and 1,
// negatives, values above 1, infinities and NaN, plus mixedPlane's mix.
std::vector<float> edgePlane(int w, int h, uint32_t seed, float centre)
{
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> kind(0, 9);
    std::uniform_int_distribution<int> level(0, 65535);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    const std::vector<float> mixed = murmex_test::mixedPlane(w, h, seed + 1);
    std::vector<float> plane(static_cast<size_t>(w) * h);
    for (size_t i = 0; i < plane.size(); ++i) {
        const float step = static_cast<float>(level(rng)) / 65535.0f;
        switch (kind(rng)) {
        case 0: plane[i] = step; break;
        case 1: plane[i] = std::nextafter(step, 2.0f); break;
        case 2: plane[i] = std::nextafter(step, -1.0f); break;
        case 3: plane[i] = centre; break;
        case 4: plane[i] = centre + (unit(rng) - 0.5f) * 1e-4f; break;
        case 5: plane[i] = 1.0f + unit(rng) * 3.0f; break;
        case 6: plane[i] = -unit(rng) * 3.0f; break;
        case 7: {
            const float extremes[] = {std::numeric_limits<float>::infinity(),
                                      -std::numeric_limits<float>::infinity(),
                                      std::numeric_limits<float>::quiet_NaN(), -0.0f, 1.0f, 0.0f};
            plane[i] = extremes[static_cast<size_t>(unit(rng) * 5.999f)];
            break;
        }
        case 8: plane[i] = unit(rng); break;
        default: plane[i] = mixed[i]; break;
        }
    }
    return plane;
}

void expectLiteralPixels(const MemoryImage& img, const PlaneNode& y, const PlaneNode& cr, const PlaneNode& cb)
{
    for (int j = 0; j < y.height(); ++j)
        for (int x = 0; x < y.width(); ++x) {
            const Pixel16 e = literalPixel(y.at(x, j), cr.at(x, j), cb.at(x, j));
            ASSERT_EQ(img.at(x, j, 0), e.r) << x << "," << j;
            ASSERT_EQ(img.at(x, j, 1), e.g) << x << "," << j;
            ASSERT_EQ(img.at(x, j, 2), e.b) << x << "," << j;
            ASSERT_EQ(img.at(x, j, 3), 65535) << x << "," << j;
        }
}

// Y, Cr and Cb planes of edgePlane values around 0.5, one seed each.
struct EdgePlanes {
    EdgePlanes(int w, int h, uint32_t ySeed, uint32_t crSeed, uint32_t cbSeed)
        : y(w, h, edgePlane(w, h, ySeed, 0.5f)), cr(w, h, edgePlane(w, h, crSeed, 0.5f)),
          cb(w, h, edgePlane(w, h, cbSeed, 0.5f))
    {
    }
    PlaneNode y;
    PlaneNode cr;
    PlaneNode cb;
};

void expectLiteralPixels(const MemoryImage& img, const EdgePlanes& planes)
{
    expectLiteralPixels(img, planes.y, planes.cr, planes.cb);
}

TEST(ToRGBTest, WritesTheConvertedPixelsOfEveryRow)
{
    murmex_test::forEachSIMDPath([](const murmex_test::SIMDPath& path) {
        SCOPED_TRACE(path.name());
        const int w = 23, h = 5;
        EdgePlanes planes(w, h, 1, 2, 3);
        MemoryImage out(w, h);
        JIncrRaster_ToRGB node(planes.y, planes.cr, planes.cb, &out, 0, w - 1, 0);
        pullAllRows(node);
        expectLiteralPixels(out, planes);
        for (int c : out.writeCounts())
            ASSERT_EQ(c, 1);
    });
}

TEST(ToRGBTest, HandDerivedPixels)
{
    // Grey 0.5: 32767.5 truncated. Cr = 1: red 0.5 + 0.7011 clamps to 65535,
    // green 0.5 - 0.35725 = 0.14275 -> 9355.1 -> 9355, blue stays 32767.
    PlaneNode y(2, 1, std::vector<float>{0.5f, 0.5f});
    PlaneNode cr(2, 1, std::vector<float>{0.5f, 1.0f});
    PlaneNode cb(2, 1, std::vector<float>{0.5f, 0.5f});
    MemoryImage out(2, 1);
    JIncrRaster_ToRGB node(y, cr, cb, &out, 0, 1, 0);
    pullAllRows(node);
    EXPECT_EQ(out.at(0, 0, 0), 32767);
    EXPECT_EQ(out.at(0, 0, 1), 32767);
    EXPECT_EQ(out.at(0, 0, 2), 32767);
    EXPECT_EQ(out.at(1, 0, 0), 65535);
    EXPECT_EQ(out.at(1, 0, 1), 9355);
    EXPECT_EQ(out.at(1, 0, 2), 32767);
}

TEST(ToRGBTest, LumaAboveOneIsClampedNotWrapped)
{
    murmex_test::forEachSIMDPath([](const murmex_test::SIMDPath& path) {
        SCOPED_TRACE(path.name());
        const std::vector<float> luma = {1.0f,  1.0001f, 1.5f, 2.0f,  3.0f, 1e6f, std::numeric_limits<float>::infinity(),
                                         4.0f,  1.25f,   9.0f, 65536.0f, 1.0f, 1.1f, 100.0f, 2.5f, 7.0f, 1.01f};
        const int w = static_cast<int>(luma.size());
        PlaneNode y(w, 1, luma);
        PlaneNode cr(w, 1, 0.5f);
        PlaneNode cb(w, 1, 0.5f);
        MemoryImage out(w, 1);
        JIncrRaster_ToRGB node(y, cr, cb, &out, 0, w - 1, 0);
        pullAllRows(node);
        for (int x = 0; x < w; ++x)
            for (int k = 0; k < 4; ++k)
                EXPECT_EQ(out.at(x, 0, k), 65535) << x << "," << k;
    });
}

TEST(ToRGBTest, NegativeLumaGivesZero)
{
    murmex_test::forEachSIMDPath([](const murmex_test::SIMDPath& path) {
        SCOPED_TRACE(path.name());
        const int w = 20;
        std::vector<float> luma(w);
        for (int x = 0; x < w; ++x)
            luma[x] = -0.05f * static_cast<float>(x) - 1e-7f;
        PlaneNode y(w, 1, luma);
        PlaneNode cr(w, 1, 0.5f);
        PlaneNode cb(w, 1, 0.5f);
        MemoryImage out(w, 1);
        out.fill(1, 1, 1, 1);
        JIncrRaster_ToRGB node(y, cr, cb, &out, 0, w - 1, 0);
        pullAllRows(node);
        for (int x = 0; x < w; ++x) {
            EXPECT_EQ(out.at(x, 0, 0), 0);
            EXPECT_EQ(out.at(x, 0, 1), 0);
            EXPECT_EQ(out.at(x, 0, 2), 0);
            EXPECT_EQ(out.at(x, 0, 3), 65535);
        }
    });
}

TEST(ToRGBTest, LeadInZeroWritesFromTheFirstPixel)
{
    const int w = 9, h = 2;
    PlaneNode y(w, h, murmex_test::randomPlane(w, h, 41));
    PlaneNode cr(w, h, murmex_test::randomPlane(w, h, 42));
    PlaneNode cb(w, h, murmex_test::randomPlane(w, h, 43));
    MemoryImage out(w + 6, h);
    JIncrRaster_ToRGB node(y, cr, cb, &out, 3, 3 + w - 1, 0);
    pullAllRows(node);
    for (int j = 0; j < h; ++j)
        for (int x = 0; x < w + 6; ++x) {
            const bool inside = x >= 3 && x < 3 + w;
            ASSERT_EQ(out.writeCounts()[static_cast<size_t>(j) * (w + 6) + x], inside ? 1 : 0) << x;
            if (inside) {
                const Pixel16 e = literalPixel(y.at(x - 3, j), cr.at(x - 3, j), cb.at(x - 3, j));
                EXPECT_EQ(out.at(x, j, 0), e.r);
                EXPECT_EQ(out.at(x, j, 1), e.g);
                EXPECT_EQ(out.at(x, j, 2), e.b);
            }
        }
}

TEST(ToRGBTest, LeadInSkipsTheOverlapWithThePreviousStrip)
{
    murmex_test::forEachSIMDPath([](const murmex_test::SIMDPath& path) {
        SCOPED_TRACE(path.name());
        // A strip of 21 pixels whose first 4 overlap the previous strip:
        // destination columns 10..26 receive strip pixels 4..20.
        const int w = 21, h = 3, k = 4;
        PlaneNode y(w, h, murmex_test::randomPlane(w, h, 51));
        PlaneNode cr(w, h, murmex_test::randomPlane(w, h, 52));
        PlaneNode cb(w, h, murmex_test::randomPlane(w, h, 53));
        MemoryImage out(30, h);
        JIncrRaster_ToRGB node(y, cr, cb, &out, 10, 10 + (w - k) - 1, k);
        pullAllRows(node);
        for (int j = 0; j < h; ++j)
            for (int x = 0; x < 30; ++x) {
                const bool inside = x >= 10 && x <= 26;
                ASSERT_EQ(out.writeCounts()[static_cast<size_t>(j) * 30 + x], inside ? 1 : 0) << x;
                if (!inside)
                    continue;
                const int s = x - 10 + k;
                const Pixel16 e = literalPixel(y.at(s, j), cr.at(s, j), cb.at(s, j));
                EXPECT_EQ(out.at(x, j, 0), e.r) << x;
                EXPECT_EQ(out.at(x, j, 1), e.g) << x;
                EXPECT_EQ(out.at(x, j, 2), e.b) << x;
            }
    });
}

TEST(ToRGBTest, RefusesColumnsThatDoNotFitTheStrip)
{
    PlaneNode y(8, 1, 0.5f), cr(8, 1, 0.5f), cb(8, 1, 0.5f);
    MemoryImage out(40, 1);
    EXPECT_THROW(JIncrRaster_ToRGB(y, cr, cb, &out, 0, 12, 0), JEx);  // 13 > 8 + 4
    EXPECT_THROW(JIncrRaster_ToRGB(y, cr, cb, &out, 0, 7, -1), JEx);
    EXPECT_NO_THROW(JIncrRaster_ToRGB(y, cr, cb, &out, 0, 11, 0));
    EXPECT_NO_THROW(JIncrRaster_ToRGB(y, cr, cb, &out, 0, 3, 4));
}

TEST(ToRGBTest, InputRowsAreReleasedAfterEachRow)
{
    const int w = 6, h = 5;
    PlaneNode y(w, h, 0.3f), cr(w, h, 0.5f), cb(w, h, 0.5f);
    MemoryImage out(w, h);
    JIncrRaster_ToRGB node(y, cr, cb, &out, 0, w - 1, 0);
    pullAllRows(node);
    for (const PlaneNode* p : {&y, &cr, &cb})
        for (int j = 0; j < h; ++j) {
            EXPECT_EQ(p->computeCount(j), 1);
            EXPECT_EQ(const_cast<PlaneNode*>(p)->refCount(j), 0);
            EXPECT_FALSE(const_cast<PlaneNode*>(p)->rowPresent(j));
        }
    EXPECT_EQ(out.putCalls(), h);
}

TEST(ToRGBTest, VectorPathsGiveTheScalarPixels)
{
    // Narrow rows around the vector widths, then one large plane: a single
    // rounding difference changes a 16-bit sample only when it crosses a
    // truncation edge, so many pixels are needed to make every step count.
    const std::pair<int, int> sizes[] = {{1, 3},  {2, 3},  {3, 3},  {4, 3},  {5, 3},  {7, 3},   {8, 3},   {9, 3},
                                         {15, 3}, {16, 3}, {17, 3}, {31, 3}, {33, 3}, {63, 3}, {100, 3}, {1021, 64}};
    for (const auto& [w, h] : sizes) {
        EdgePlanes planes(w, h, 100 + w, 200 + w, 300 + w);
        std::vector<uint16_t> scalar;
        murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& path) {
            SCOPED_TRACE(path.name() + " width " + std::to_string(w));
            MemoryImage out(w, h);
            JIncrRaster_ToRGB node(planes.y, planes.cr, planes.cb, &out, 0, w - 1, 0);
            pullAllRows(node);
            if (!path.enabled) {
                scalar = out.data();
                expectLiteralPixels(out, planes);
                return;
            }
            ASSERT_EQ(out.data().size(), scalar.size());
            for (size_t i = 0; i < scalar.size(); ++i)
                ASSERT_EQ(out.data()[i], scalar[i]) << "sample " << i;
        });
    }
}

TEST(ToRGBTest, RoundTripThroughMemoryImages)
{
    murmex_test::forEachSIMDPath([](const murmex_test::SIMDPath& path) {
        SCOPED_TRACE(path.name());
        const int w = 29, h = 7;
        MemoryImage src(w, h);
        std::mt19937 rng(2024);
        std::uniform_int_distribution<int> sample(0, 65535);
        for (uint16_t& v : src.data())
            v = static_cast<uint16_t>(sample(rng));
        src.setPixel(0, 0, 65535, 65535, 65535);
        src.setPixel(1, 0, 0, 0, 0);
        src.setPixel(2, 0, 32768, 32768, 32768);

        JIncrRaster_AdapterToRGBX rgbx(&src, 0, w - 1);
        JIncrRaster_RGBXToYCrCb y(&rgbx, JImageLib::Y);
        JIncrRaster_RGBXToYCrCb cr(&rgbx, JImageLib::Cr);
        JIncrRaster_RGBXToYCrCb cb(&rgbx, JImageLib::Cb);
        MemoryImage dst(w, h);
        JIncrRaster_ToRGB out(y, cr, cb, &dst, 0, w - 1, 0);
        pullAllRows(out);

        for (int j = 0; j < h; ++j)
            for (int x = 0; x < w; ++x) {
                const float R = static_cast<float>(src.at(x, j, 0)) * 1.5259022e-05f;
                const float G = static_cast<float>(src.at(x, j, 1)) * 1.5259022e-05f;
                const float B = static_cast<float>(src.at(x, j, 2)) * 1.5259022e-05f;
                const float Y = std::fma(B, 0.1145f, std::fma(R, 0.2989f, G * 0.5866f));
                const float Cr =
                    static_cast<float>(double(std::fma(-B, 0.0817f, std::fma(-G, 0.4183f, R * 0.5f))) + 0.5);
                const float Cb =
                    static_cast<float>(double(std::fma(B, 0.5f, std::fma(-G, 0.3312f, R * -0.1687f))) + 0.5);
                const Pixel16 e = literalPixel(Y, Cr, Cb);
                ASSERT_EQ(dst.at(x, j, 0), e.r) << x << "," << j;
                ASSERT_EQ(dst.at(x, j, 1), e.g) << x << "," << j;
                ASSERT_EQ(dst.at(x, j, 2), e.b) << x << "," << j;
                ASSERT_EQ(dst.at(x, j, 3), 65535);
            }
        // The conversion pair is not an exact inverse: white loses a few
        // units of green (its Cb is 0.5001), black comes back as black.
        EXPECT_EQ(dst.at(0, 0, 0), 65535);
        EXPECT_LT(dst.at(0, 0, 1), 65535);
        EXPECT_EQ(dst.at(0, 0, 2), 65535);
        EXPECT_EQ(dst.at(1, 0, 0), 0);
        EXPECT_EQ(dst.at(1, 0, 1), 0);
        EXPECT_EQ(dst.at(1, 0, 2), 0);
        // Each adapter row was read once: the three planes share the RGBX rows.
        EXPECT_EQ(src.getCalls(), h);
        for (int j = 0; j < h; ++j)
            EXPECT_EQ(rgbx.refCount(j), 0);
    });
}

// Random 16-bit samples in every pixel of img.
void fillRandom(MemoryImage& img, uint32_t seed)
{
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> sample(0, 65535);
    for (uint16_t& v : img.data())
        v = static_cast<uint16_t>(sample(rng));
}

// Pulls every row of node once, the rows shared out between `threads`
// threads as each comes free.
void pullOnThreads(JIncrRaster& node, int threads)
{
    std::atomic<int> next{0};
    auto work = [&] {
        for (int row; (row = next.fetch_add(1)) < node.height();) {
            node.refScanline(row);
            node.getScanline(row);
            node.unrefScanline(row);
        }
    };
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t)
        pool.emplace_back(work);
    for (std::thread& t : pool)
        t.join();
}

// A memory image that notes whether two of its calls ever ran at once. Each
// call lingers a little, so that overlapping calls would be seen.
class OneCallAtATime : public MemoryImage {
public:
    using MemoryImage::MemoryImage;
    void getScanline(int y, int xStart, int xEnd, unsigned short* pixels) override
    {
        enter();
        MemoryImage::getScanline(y, xStart, xEnd, pixels);
        leave();
    }
    void putScanline(int y, int xStart, int xEnd, const unsigned short* pixels) override
    {
        enter();
        MemoryImage::putScanline(y, xStart, xEnd, pixels);
        leave();
    }
    bool overlapped() const { return overlapped_.load(); }

private:
    void enter()
    {
        if (active_.fetch_add(1) != 0)
            overlapped_ = true;
        std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
    void leave() { active_.fetch_sub(1); }

    std::atomic<int> active_{0};
    std::atomic<bool> overlapped_{false};
};

TEST(ToRGBThreadTest, AdapterCallsNeverOverlapAndThePixelsPastTheStripStayZero)
{
    // Rows are converted on several threads at once, each in a row buffer of
    // its own, but each end of the strip calls its adapter one row at a time.
    // The destination takes the strip's 13 pixels and the 4 spare ones past
    // them, which hold zeros on every row whichever buffer wrote it.
    const int w = 13, h = 64;
    OneCallAtATime src(w, h);
    fillRandom(src, 9);
    JIncrRaster_AdapterToRGBX rgbx(&src, 0, w - 1);
    JIncrRaster_RGBXToYCrCb y(&rgbx, JImageLib::Y);
    JIncrRaster_RGBXToYCrCb cr(&rgbx, JImageLib::Cr);
    JIncrRaster_RGBXToYCrCb cb(&rgbx, JImageLib::Cb);
    OneCallAtATime dst(w + 4, h);
    dst.fill(7, 7, 7, 7);
    JIncrRaster_ToRGB out(y, cr, cb, &dst, 0, w + 3, 0);
    pullOnThreads(out, 4);
    EXPECT_FALSE(src.overlapped());
    EXPECT_FALSE(dst.overlapped());
    EXPECT_EQ(src.getCalls(), h);
    EXPECT_EQ(dst.putCalls(), h);
    for (int j = 0; j < h; ++j)
        for (int x = w; x < w + 4; ++x)
            for (int c = 0; c < 4; ++c)
                ASSERT_EQ(dst.at(x, j, c), 0) << "pixel " << x << " row " << j << " sample " << c;
}

TEST(ToRGBThreadTest, FourThreadsWriteEveryRowOnceAndMatchOneThread)
{
    const int w = 45, h = 96;
    MemoryImage src(w, h);
    fillRandom(src, 8);

    auto run = [&](int threads) {
        JIncrRaster_AdapterToRGBX rgbx(&src, 0, w - 1);
        JIncrRaster_RGBXToYCrCb y(&rgbx, JImageLib::Y);
        JIncrRaster_RGBXToYCrCb cr(&rgbx, JImageLib::Cr);
        JIncrRaster_RGBXToYCrCb cb(&rgbx, JImageLib::Cb);
        MemoryImage dst(w, h);
        JIncrRaster_ToRGB out(y, cr, cb, &dst, 0, w - 1, 0);
        pullOnThreads(out, threads);
        for (int c : dst.writeCounts())
            EXPECT_EQ(c, 1);
        for (int j = 0; j < h; ++j)
            EXPECT_EQ(rgbx.refCount(j), 0);
        return dst.data();
    };
    const std::vector<uint16_t> single = run(1);
    for (int round = 0; round < 5; ++round)
        EXPECT_EQ(run(4), single) << "round " << round;
}

}  // namespace

TEST(ToRGBTest, RowsPastTheWriteLimitWaitForTheirCommitAndThenWriteTheSamePixels)
{
    murmex_test::forEachSIMDPath([](const murmex_test::SIMDPath& path) {
        SCOPED_TRACE(path.name());
        const int w = 19, h = 6;
        EdgePlanes planes(w, h, 4, 5, 6);
        MemoryImage out(w, h);
        JIncrRaster_ToRGB node(planes.y, planes.cr, planes.cb, &out, 0, w - 1, 0);
        node.setWriteLimit(2);
        pullAllRows(node);
        const auto written = [&](int row) { return out.writeCounts()[static_cast<size_t>(row) * w]; };
        for (int row = 0; row < h; ++row)
            EXPECT_EQ(written(row), row <= 2 ? 1 : 0) << row;
        // A row written at once has nothing left to commit.
        node.commitRow(1);
        EXPECT_EQ(written(1), 1);
        for (int row = 3; row < h; ++row) {
            node.commitRow(row);
            EXPECT_EQ(written(row), 1) << row;
            node.commitRow(row);
            EXPECT_EQ(written(row), 1) << row;
        }
        // Outside the raster: nothing.
        node.commitRow(-1);
        node.commitRow(h);
        expectLiteralPixels(out, planes);
        for (int c : out.writeCounts())
            ASSERT_EQ(c, 1);
    });
}
