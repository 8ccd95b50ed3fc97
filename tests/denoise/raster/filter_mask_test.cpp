#include "denoise/raster/filter_mask.h"

#include <cmath>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "base/ex.h"
#include "filter/filter_mask.h"
#include "filter/filter_mask_builder.h"
#include "support/bits.h"
#include "support/plane_node.h"
#include "support/planes.h"
#include "support/simd_paths.h"

using murmex_test::PlaneNode;

namespace {

uint16_t run(int length, int level)
{
    return static_cast<uint16_t>((length << 6) | level);
}

// A mask of the given size whose every luminance and chroma row is one run at
// the given levels.
JFilterMask uniformMask(int w, int h, int lumLevel, int chromaLevel)
{
    JFilterMask m(w, h);
    for (int y = 0; y < h; ++y) {
        m.setLumRow(y, {run(w, lumLevel), 0});
        m.setChromaRow(y, {run(w, chromaLevel), 0});
    }
    return m;
}

// The blend worked out pixel by pixel: m * o + (1 - m) * f, one rounding for
// the product (1 - m) * f and one for the fused multiply-add.
std::vector<float> blended(const std::vector<float>& m, const std::vector<float>& o, const std::vector<float>& f)
{
    std::vector<float> out(o.size());
    for (size_t i = 0; i < o.size(); ++i)
        out[i] = std::fma(m[i], o[i], (1.0f - m[i]) * f[i]);
    return out;
}

}  // namespace

TEST(FilterMaskNodeTest, TakesWidthAndHeightOfTheUnfilteredInputAndStartsOnLuminance)
{
    PlaneNode o(6, 4, 0.0f), f(6, 4, 0.0f);
    JFilterMask mask(6, 4);
    JIncrRaster_FilterMask node(o, f, mask, 0, 5);
    EXPECT_EQ(node.width(), 6);
    EXPECT_EQ(node.height(), 4);
    EXPECT_EQ(node.maskChannel(), JIncrRaster_FilterMask::Luminance);
    EXPECT_FALSE(node.bypass());
}

TEST(FilterMaskNodeTest, MaskColumnsFewerThanTheRowThrow)
{
    PlaneNode o(6, 4, 0.0f), f(6, 4, 0.0f);
    JFilterMask mask(6, 4);
    EXPECT_THROW(JIncrRaster_FilterMask(o, f, mask, 0, 4), JEx);
    EXPECT_THROW(JIncrRaster_FilterMask(o, f, mask, 5, 0), JEx);
}

TEST(FilterMaskNodeTest, EmptyMaskRowCostsOneCopyWithoutTouchingTheUnfilteredRow)
{
    const int w = 21, h = 3;
    PlaneNode o(w, h, murmex_test::randomPlane(w, h, 1)), f(w, h, murmex_test::mixedPlane(w, h, 2));
    JFilterMask mask(w, h);
    mask.setLumRow(0, {run(w, 63), 0});
    mask.setLumRow(2, {run(w, 63), 0});
    murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& path) {
        JIncrRaster_FilterMask node(o, f, mask, 0, w - 1);
        const int before = o.computeCount(1);
        node.refScanline(1);
        EXPECT_EQ(o.refCount(1), 0) << path.name();
        const float* row = node.getScanline(1);
        EXPECT_EQ(o.computeCount(1), before) << path.name();
        EXPECT_TRUE(murmex_test::sameBits(row, f.plane().data() + w, w)) << path.name();
        node.unrefScanline(1);
        EXPECT_EQ(f.refCount(1), 0);
        EXPECT_FALSE(f.rowPresent(1));
    });
}

TEST(FilterMaskNodeTest, MaskOneEverywhereGivesTheUnfilteredRowExactly)
{
    const int w = 29, h = 4;
    PlaneNode o(w, h, murmex_test::randomPlane(w, h, 3, -1.0f, 1.0f)),
        f(w, h, murmex_test::randomPlane(w, h, 4, -1.0f, 1.0f));
    JFilterMask mask = uniformMask(w, h, 63, 63);
    murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& path) {
        JIncrRaster_FilterMask node(o, f, mask, 0, w - 1);
        const std::vector<float> out = murmex_test::pullPlane(node);
        for (size_t i = 0; i < out.size(); ++i)
            ASSERT_EQ(out[i], o.plane()[i]) << path.name() << " pixel " << i;
    });
}

TEST(FilterMaskNodeTest, MaskZeroEverywhereGivesTheFilteredRowExactly)
{
    const int w = 29, h = 4;
    PlaneNode o(w, h, murmex_test::randomPlane(w, h, 5, -1.0f, 1.0f)),
        f(w, h, murmex_test::randomPlane(w, h, 6, -1.0f, 1.0f));
    // Rows present but at level 0: the blend runs and gives f.
    JFilterMask mask = uniformMask(w, h, 0, 0);
    murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& path) {
        JIncrRaster_FilterMask node(o, f, mask, 0, w - 1);
        const std::vector<float> out = murmex_test::pullPlane(node);
        for (size_t i = 0; i < out.size(); ++i)
            ASSERT_EQ(out[i], f.plane()[i]) << path.name() << " pixel " << i;
        EXPECT_GT(o.totalComputes(), 0);
    });
}

TEST(FilterMaskNodeTest, LuminanceNodeReadsTheLuminanceMaskAndChromaNodesTheChromaMask)
{
    const int w = 10, h = 2;
    PlaneNode o(w, h, 1.0f), f(w, h, 0.0f);
    // With o = 1 and f = 0 the output is the mask weight itself.
    JFilterMask mask = uniformMask(w, h, 32, 16);
    murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& path) {
        JIncrRaster_FilterMask y(o, f, mask, 0, w - 1);
        y.setMaskChannel(JIncrRaster_FilterMask::Luminance);
        JIncrRaster_FilterMask c(o, f, mask, 0, w - 1);
        c.setMaskChannel(JIncrRaster_FilterMask::Chroma);
        for (float v : murmex_test::pullPlane(y))
            EXPECT_EQ(v, 130.0f / 255.0f) << path.name();
        for (float v : murmex_test::pullPlane(c))
            EXPECT_EQ(v, 65.0f / 255.0f) << path.name();
    });
}

TEST(FilterMaskNodeTest, EmptinessIsJudgedOnTheNodesOwnChannel)
{
    const int w = 8, h = 2;
    PlaneNode o(w, h, 1.0f), f(w, h, 0.25f);
    JFilterMask mask(w, h);
    mask.setLumRow(0, {run(w, 63), 0});
    JIncrRaster_FilterMask c(o, f, mask, 0, w - 1);
    c.setMaskChannel(JIncrRaster_FilterMask::Chroma);
    c.refScanline(0);
    EXPECT_EQ(o.refCount(0), 0);
    for (int x = 0; x < w; ++x)
        EXPECT_EQ(c.getScanline(0)[x], 0.25f);
    c.unrefScanline(0);
}

TEST(FilterMaskNodeTest, BlendIsOneFusedMultiplyAdd)
{
    const int w = 45, h = 6;
    const std::vector<float> ov = murmex_test::randomPlane(w, h, 7, -2.0f, 2.0f);
    const std::vector<float> fv = murmex_test::randomPlane(w, h, 8, -2.0f, 2.0f);
    const std::vector<float> weights = murmex_test::randomPlane(w, h, 9);
    PlaneNode o(w, h, ov), f(w, h, fv);
    JFilterMask mask = JFilterMaskBuilder::build(w, h, weights.data(), nullptr);

    // The weights as the mask holds them.
    std::vector<float> m(weights.size());
    for (int y = 0; y < h; ++y)
        mask.getLumScanline(y, 0, w - 1, m.data() + static_cast<size_t>(y) * w);
    const std::vector<float> expected = blended(m, ov, fv);

    // The data must tell a fused blend from an unfused one.
    int differs = 0;
    for (size_t i = 0; i < m.size(); ++i)
        differs += m[i] * ov[i] + (1.0f - m[i]) * fv[i] != expected[i];
    ASSERT_GT(differs, 0);

    murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& path) {
        JIncrRaster_FilterMask node(o, f, mask, 0, w - 1);
        const std::vector<float> out = murmex_test::pullPlane(node);
        EXPECT_TRUE(murmex_test::sameBits(out.data(), expected.data(), static_cast<int>(out.size()))) << path.name();
    });
}

TEST(FilterMaskNodeTest, ReadsTheMaskColumnsOfItsStrip)
{
    // The strip covers image columns 3..7 of a 10-column mask.
    const int w = 5, h = 1;
    PlaneNode o(w, h, 1.0f), f(w, h, 0.0f);
    JFilterMask mask(10, 1);
    mask.setLumRow(0, {run(4, 0), run(2, 63), run(4, 16), 0});
    JIncrRaster_FilterMask node(o, f, mask, 3, 7);
    const std::vector<float> out = murmex_test::pullPlane(node);
    const float expected[5] = {0.0f, 1.0f, 1.0f, 65.0f / 255.0f, 65.0f / 255.0f};
    for (int x = 0; x < w; ++x)
        EXPECT_EQ(out[x], expected[x]) << x;
}

TEST(FilterMaskNodeTest, BypassCopiesTheFilteredRowButKeepsAReferenceOnTheUnfilteredRow)
{
    const int w = 6, h = 2;
    PlaneNode o(w, h, 1.0f), f(w, h, 0.5f);
    JFilterMask mask = uniformMask(w, h, 63, 63);
    JIncrRaster_FilterMask node(o, f, mask, 0, w - 1);
    node.setBypass(true);
    node.refScanline(0);
    const float* row = node.getScanline(0);
    for (int x = 0; x < w; ++x)
        EXPECT_EQ(row[x], 0.5f);
    node.unrefScanline(0);
    EXPECT_EQ(f.refCount(0), 0);
    EXPECT_EQ(o.refCount(0), 1);
    EXPECT_EQ(o.computeCount(0), 0);
}

TEST(FilterMaskNodeTest, InputReferencesAreReleasedAfterEachRow)
{
    const int w = 6, h = 3;
    PlaneNode o(w, h, 1.0f), f(w, h, 0.5f);
    JFilterMask mask = uniformMask(w, h, 40, 40);
    JIncrRaster_FilterMask node(o, f, mask, 0, w - 1);
    murmex_test::pullPlane(node);
    for (int y = 0; y < h; ++y) {
        EXPECT_EQ(o.refCount(y), 0);
        EXPECT_EQ(f.refCount(y), 0);
        EXPECT_FALSE(o.rowPresent(y));
        EXPECT_FALSE(f.rowPresent(y));
    }
}

TEST(FilterMaskNodeTest, VectorPathsMatchTheScalarPathBitForBit)
{
    uint32_t seed = 300;
    for (int w : {1, 5, 8, 9, 15, 16, 17, 31, 33, 50, 67}) {
        const int h = 5;
        const std::vector<float> ov = murmex_test::mixedPlane(w, h, seed += 3);
        const std::vector<float> fv = murmex_test::mixedPlane(w, h, seed + 1);
        const std::vector<float> weights = murmex_test::randomPlane(w, h, seed + 2, -0.2f, 1.2f);
        PlaneNode o(w, h, ov), f(w, h, fv);
        JFilterMask mask = JFilterMaskBuilder::build(w, h, weights.data(), weights.data());
        mask.setLumRow(2, {});
        std::vector<float> reference;
        murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& path) {
            JIncrRaster_FilterMask node(o, f, mask, 0, w - 1);
            std::vector<float> rows;
            for (int y = -2; y < h + 2; ++y) {
                node.refScanline(y);
                const float* r = node.getScanline(y);
                rows.insert(rows.end(), r, r + w);
                node.unrefScanline(y);
            }
            if (!path.enabled) {
                reference = rows;
                return;
            }
            EXPECT_TRUE(murmex_test::sameBits(reference.data(), rows.data(), static_cast<int>(rows.size())))
                << path.name() << ", width " << w;
        });
    }
}

TEST(FilterMaskNodeThreadTest, ThreadsBlendingRowsAtOnceShareTheMaskBufferSafely)
{
    const int w = 64, h = 48;
    const std::vector<float> ov = murmex_test::randomPlane(w, h, 20, -1.0f, 1.0f);
    const std::vector<float> fv = murmex_test::randomPlane(w, h, 21, -1.0f, 1.0f);
    const std::vector<float> weights = murmex_test::randomPlane(w, h, 22);
    PlaneNode o(w, h, ov), f(w, h, fv);
    JFilterMask mask = JFilterMaskBuilder::build(w, h, weights.data(), nullptr);
    std::vector<float> m(weights.size());
    for (int y = 0; y < h; ++y)
        mask.getLumScanline(y, 0, w - 1, m.data() + static_cast<size_t>(y) * w);
    const std::vector<float> expected = blended(m, ov, fv);

    JIncrRaster_FilterMask node(o, f, mask, 0, w - 1);
    std::vector<float> out(expected.size());
    const int nThreads = 4;
    std::vector<std::thread> threads;
    for (int t = 0; t < nThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int y = t; y < h; y += nThreads) {
                node.refScanline(y);
                const float* r = node.getScanline(y);
                for (int x = 0; x < w; ++x)
                    out[static_cast<size_t>(y) * w + x] = r[x];
                node.unrefScanline(y);
            }
        });
    }
    for (std::thread& t : threads)
        t.join();
    EXPECT_TRUE(murmex_test::sameBits(out.data(), expected.data(), static_cast<int>(out.size())));
}
