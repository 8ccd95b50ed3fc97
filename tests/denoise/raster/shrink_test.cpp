#include "denoise/raster/shrink.h"

#include <cmath>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/bits.h"
#include "support/plane_node.h"
#include "support/planes.h"
#include "support/simd_paths.h"

using murmex_test::PlaneNode;

namespace {

// Twenty pixels: one 16-wide step, one 8-wide step or two, and a scalar tail.
constexpr int kW = 20;
constexpr int kH = 3;

J3DMap filledMap(float value)
{
    J3DMap map;
    for (int c = 0; c < map.cellCount(); ++c)
        map.setCellValue(c, value);
    return map;
}

struct Planes {
    std::vector<float> a, y, cr, cb, v;
};

Planes flatPlanes(int w, int h, float a, float v)
{
    const size_t n = static_cast<size_t>(w) * h;
    return Planes{std::vector<float>(n, a), std::vector<float>(n, 0.5f), std::vector<float>(n, 0.5f),
                  std::vector<float>(n, 0.5f), std::vector<float>(n, v)};
}

struct ShrinkGraph {
    ShrinkGraph(int w, int h, const Planes& p, J3DMap& noise, J3DMap* strength)
        : a(w, h, p.a), y(w, h, p.y), cr(w, h, p.cr), cb(w, h, p.cb), v(w, h, p.v),
          shrink(a, y, cr, cb, v, noise, strength)
    {
    }
    PlaneNode a, y, cr, cb, v;
    JIncrRaster_Shrink shrink;
};

// Runs the node over planes of kW x kH on every path; each output pixel must
// equal `expected`.
void expectEverywhere(const Planes& p, J3DMap& noise, J3DMap* strength, float contrast, float threshold,
                      float expected, bool setThreshold = true)
{
    murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& path) {
        ShrinkGraph g(kW, kH, p, noise, strength);
        g.shrink.setContrast(contrast);
        if (setThreshold)
            g.shrink.setThreshold(threshold);
        const std::vector<float> out = murmex_test::pullPlane(g.shrink);
        for (size_t i = 0; i < out.size(); ++i)
            ASSERT_EQ(murmex_test::floatBits(out[i]), murmex_test::floatBits(expected))
                << path.name() << " pixel " << i << ": " << out[i] << " vs " << expected;
    });
}

}  // namespace

TEST(ShrinkTest, TakesWidthAndHeightOfTheDetailAndStartsAtContrastAndThresholdOne)
{
    J3DMap noise;
    ShrinkGraph g(7, 5, flatPlanes(7, 5, 0.0f, 0.0f), noise, nullptr);
    EXPECT_EQ(g.shrink.width(), 7);
    EXPECT_EQ(g.shrink.height(), 5);
    EXPECT_EQ(g.shrink.contrast(), 1.0f);
    EXPECT_EQ(g.shrink.threshold(), 1.0f);
    EXPECT_EQ(g.shrink.dataType(), JIncrRaster::Plane);
}

TEST(ShrinkTest, HandDerivedGainAboveTheFloor)
{
    // m = 0.25, n = 0.09: g = 0.16 / 0.25 = 0.64, s = 0.8 > t = 0.5, so
    // out = (2 * 0.5) * 0.8.
    J3DMap noise = filledMap(0.09f);
    const float g = (0.25f - 0.09f) / 0.25f;
    const float expected = (2.0f * 0.5f) * sqrtf(g);
    EXPECT_NEAR(expected, 0.8f, 1e-6f);
    expectEverywhere(flatPlanes(kW, kH, 0.5f, 0.25f), noise, nullptr, 2.0f, 0.5f, expected);
}

TEST(ShrinkTest, FloorIsComparedWithTheSquareRootGain)
{
    // g = 0.64 lies below the floor 0.7 but s = 0.8 does not: the gain is s.
    J3DMap noise = filledMap(0.09f);
    const float s = sqrtf((0.25f - 0.09f) / 0.25f);
    ASSERT_GT(s, 0.7f);
    expectEverywhere(flatPlanes(kW, kH, 0.5f, 0.25f), noise, nullptr, 1.0f, 0.7f, 0.5f * s);
}

TEST(ShrinkTest, FloorAboveTheSquareRootGainIsTheGain)
{
    J3DMap noise = filledMap(0.09f);
    expectEverywhere(flatPlanes(kW, kH, 0.5f, 0.25f), noise, nullptr, 2.0f, 0.9f, (2.0f * 0.5f) * 0.9f);
}

TEST(ShrinkTest, FlatEnergyTakesTheGuardAndGivesContrastTimesCoefficientTimesFloor)
{
    const float expected = (1.5f * 0.7f) * 0.3f;
    for (float v : {0.0f, -1.0f, 1e-9f, 1e-8f}) {
        for (float n : {1e-8f, 0.5f}) {
            SCOPED_TRACE("v = " + std::to_string(v) + ", n = " + std::to_string(n));
            J3DMap noise = filledMap(n);
            expectEverywhere(flatPlanes(kW, kH, 0.7f, v), noise, nullptr, 1.5f, 0.3f, expected);
        }
    }
}

TEST(ShrinkTest, EnergyJustAboveTheGuardIsUsedAsItIs)
{
    // One step above 1e-8 the energy itself is m, so a noise of 1e-8 leaves a
    // small positive g instead of 0.
    const float v = std::nextafter(1e-8f, 1.0f);
    J3DMap noise = filledMap(1e-8f);
    const float expected = (1.0f * 0.7f) * sqrtf((v - 1e-8f) / v);
    ASSERT_GT(expected, 0.0f);
    expectEverywhere(flatPlanes(kW, kH, 0.7f, v), noise, nullptr, 1.0f, 0.0f, expected);
}

TEST(ShrinkTest, ZeroNoisePassesTheCoefficientTimesContrast)
{
    J3DMap noise = filledMap(0.0f);
    expectEverywhere(flatPlanes(kW, kH, -0.37f, 0.01f), noise, nullptr, 1.25f, 0.2f, 1.25f * -0.37f);
}

TEST(ShrinkTest, NoiseAtOrAboveTheEnergyGivesTheFloorExactly)
{
    for (float n : {0.04f, 0.05f, 3.0f}) {
        J3DMap noise = filledMap(n);
        expectEverywhere(flatPlanes(kW, kH, 0.6f, 0.04f), noise, nullptr, 1.0f, 0.35f, 0.6f * 0.35f);
    }
}

TEST(ShrinkTest, InitialThresholdOneKeepsEveryCoefficient)
{
    murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& path) {
        const int w = 37, h = 4;
        Planes p{murmex_test::randomPlane(w, h, 11, -1.0f, 1.0f), murmex_test::randomPlane(w, h, 12),
                 murmex_test::randomPlane(w, h, 13), murmex_test::randomPlane(w, h, 14),
                 murmex_test::randomPlane(w, h, 15, 0.0f, 0.05f)};
        J3DMap noise;
        std::mt19937 rng(16);
        std::uniform_real_distribution<float> dist(0.0f, 0.1f);
        for (int c = 0; c < noise.cellCount(); ++c)
            noise.setCellValue(c, dist(rng));
        ShrinkGraph g(w, h, p, noise, nullptr);
        g.shrink.setContrast(0.75f);
        const std::vector<float> out = murmex_test::pullPlane(g.shrink);
        for (size_t i = 0; i < out.size(); ++i)
            ASSERT_EQ(out[i], 0.75f * p.a[i]) << path.name() << " pixel " << i;
    });
}

TEST(ShrinkTest, NegativeNoiseGivesAGainAboveOne)
{
    // m = 1, n = -3: g = 4, gain 2, nothing clamps it.
    J3DMap noise = filledMap(-3.0f);
    expectEverywhere(flatPlanes(kW, kH, 0.25f, 1.0f), noise, nullptr, 1.0f, 0.5f, 0.5f);
}

TEST(ShrinkTest, StrengthMapOfZeroLetsTheGainReachZero)
{
    J3DMap noise = filledMap(1.0f);
    J3DMap strength = filledMap(0.0f);
    // The threshold is ignored when a strength map is present.
    expectEverywhere(flatPlanes(kW, kH, 0.8f, 0.5f), noise, &strength, 1.0f, 0.9f, 0.0f);
}

TEST(ShrinkTest, StrengthMapValueIsTheFloorItself)
{
    J3DMap noise = filledMap(1.0f);
    J3DMap strength = filledMap(0.7f);
    expectEverywhere(flatPlanes(kW, kH, 0.8f, 0.5f), noise, &strength, 2.0f, 0.1f, (2.0f * 0.8f) * 0.7f);
}

TEST(ShrinkTest, MapsAreLookedUpAtThePixelColour)
{
    // Each pixel's colour selects its own noise and strength cell; the cells
    // are found here by hand: (int)(c * 7.999) for c in [0, 1].
    const int w = 29, h = 3;
    Planes p{murmex_test::randomPlane(w, h, 21, -1.0f, 1.0f), murmex_test::randomPlane(w, h, 22),
             murmex_test::randomPlane(w, h, 23), murmex_test::randomPlane(w, h, 24),
             murmex_test::randomPlane(w, h, 25, 0.0f, 0.08f)};
    J3DMap noise, strength;
    for (int c = 0; c < 512; ++c) {
        noise.setCellValue(c, 0.0001f * static_cast<float>(c));
        strength.setCellValue(c, static_cast<float>(c % 5) * 0.2f);
    }
    murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& path) {
        ShrinkGraph g(w, h, p, noise, &strength);
        g.shrink.setContrast(1.1f);
        const std::vector<float> out = murmex_test::pullPlane(g.shrink);
        for (size_t i = 0; i < out.size(); ++i) {
            const int ci = static_cast<int>(p.y[i] * 7.999f);
            const int cj = static_cast<int>(p.cr[i] * 7.999f);
            const int ck = static_cast<int>(p.cb[i] * 7.999f);
            const int cell = ci * 64 + cj * 8 + ck;
            const float n = 0.0001f * static_cast<float>(cell);
            const float t = static_cast<float>(cell % 5) * 0.2f;
            const float m = p.v[i] > 1e-8f ? p.v[i] : 1e-8f;
            const float gv = (m - n) / m;
            const float s = gv > 0.0f ? sqrtf(gv) : 0.0f;
            const float expected = (1.1f * p.a[i]) * (t >= s ? t : s);
            ASSERT_EQ(out[i], expected) << path.name() << " pixel " << i;
        }
    });
}

namespace {

// A plane source that appends its tag to a log whenever one of its rows gets
// its first reference.
class LoggingNode : public PlaneNode {
public:
    LoggingNode(int w, int h, char tag, std::string& log) : PlaneNode(w, h, 0.5f), tag_(tag), log_(log) {}
    void refInputs(int) override { log_ += tag_; }

private:
    char tag_;
    std::string& log_;
};

}  // namespace

TEST(ShrinkTest, ReferencesInputsInOrderAndReleasesThemAfterTheRow)
{
    std::string log;
    LoggingNode a(5, 3, 'a', log), y(5, 3, 'y', log), cr(5, 3, 'r', log), cb(5, 3, 'b', log), v(5, 3, 'v', log);
    J3DMap noise;
    JIncrRaster_Shrink shrink(a, y, cr, cb, v, noise, nullptr);
    shrink.refScanline(1);
    EXPECT_EQ(log, "ayrbv");
    for (JIncrRaster* in : {static_cast<JIncrRaster*>(&a), static_cast<JIncrRaster*>(&y),
                            static_cast<JIncrRaster*>(&cr), static_cast<JIncrRaster*>(&cb),
                            static_cast<JIncrRaster*>(&v)})
        EXPECT_EQ(in->refCount(1), 1);
    shrink.getScanline(1);
    for (JIncrRaster* in : {static_cast<JIncrRaster*>(&a), static_cast<JIncrRaster*>(&y),
                            static_cast<JIncrRaster*>(&cr), static_cast<JIncrRaster*>(&cb),
                            static_cast<JIncrRaster*>(&v)}) {
        EXPECT_EQ(in->refCount(1), 0);
        EXPECT_FALSE(in->rowPresent(1));
    }
    shrink.unrefScanline(1);
}

namespace {

// Random data that reaches every branch: energies around and below the guard,
// NaN among coefficients and energies, colours outside [0, 1] (wrapping
// cells), NaN and huge colours, noise cells above and below zero.
Planes awkwardPlanes(int w, int h, uint32_t seed)
{
    Planes p{murmex_test::mixedPlane(w, h, seed), murmex_test::randomPlane(w, h, seed + 1, -0.3f, 1.3f),
             murmex_test::randomPlane(w, h, seed + 2, -0.3f, 1.3f), murmex_test::randomPlane(w, h, seed + 3, -0.3f, 1.3f),
             murmex_test::randomPlane(w, h, seed + 4, -0.005f, 0.05f)};
    std::mt19937 rng(seed + 5);
    std::uniform_int_distribution<int> pick(0, 15);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    for (size_t i = 0; i < p.v.size(); ++i) {
        switch (pick(rng)) {
        case 0: p.v[i] = 1e-8f; break;
        case 1: p.v[i] = std::nextafter(1e-8f, 1.0f); break;
        case 2: p.v[i] = 0.0f; break;
        case 3: p.v[i] = nan; break;
        case 4: p.a[i] = nan; break;
        case 5: p.y[i] = nan; break;
        case 6: p.cr[i] = 1e20f; break;
        case 7: p.cb[i] = -1e20f; break;
        default: break;
        }
    }
    return p;
}

J3DMap randomMap(uint32_t seed, float lo, float hi)
{
    J3DMap map;
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> dist(lo, hi);
    for (int c = 0; c < map.cellCount(); ++c)
        map.setCellValue(c, dist(rng));
    return map;
}

// Rows -2..h+1 of the node, so that the mirrored rows above and below the
// image are computed and read too.
std::vector<float> pullWithEdges(JIncrRaster& node)
{
    std::vector<float> rows;
    for (int y = -2; y < node.height() + 2; ++y) {
        node.refScanline(y);
        const float* r = node.getScanline(y);
        rows.insert(rows.end(), r, r + node.width());
        node.unrefScanline(y);
    }
    return rows;
}

}  // namespace

TEST(ShrinkTest, VectorPathsMatchTheScalarPathBitForBit)
{
    const J3DMap noise0 = randomMap(101, -0.002f, 0.03f);
    const J3DMap strength0 = randomMap(102, 0.0f, 1.0f);
    uint32_t seed = 200;
    for (int w : {1, 3, 7, 8, 9, 15, 16, 17, 23, 31, 33, 47, 67}) {
        for (bool withStrength : {false, true}) {
            const int h = 5;
            const Planes p = awkwardPlanes(w, h, seed += 10);
            J3DMap noise = noise0;
            J3DMap strength = strength0;
            std::vector<float> reference;
            murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& path) {
                ShrinkGraph g(w, h, p, noise, withStrength ? &strength : nullptr);
                g.shrink.setContrast(1.37f);
                g.shrink.setThreshold(0.21f);
                const std::vector<float> rows = pullWithEdges(g.shrink);
                if (!path.enabled) {
                    reference = rows;
                    return;
                }
                EXPECT_TRUE(murmex_test::sameBits(reference.data(), rows.data(), static_cast<int>(rows.size())))
                    << path.name() << ", width " << w << (withStrength ? ", strength map" : "");
            });
        }
    }
}

TEST(ShrinkTest, TurboFlagLeavesEveryRowComputedInFull)
{
    // Shrink has no turbo form: with the flag set, odd rows are still shrunk
    // from their own inputs on every path.
    const int w = 19, h = 6;
    const Planes p = awkwardPlanes(w, h, 900);
    J3DMap noise = randomMap(901, 0.0f, 0.03f);
    std::vector<float> reference;
    murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& path) {
        ShrinkGraph plain(w, h, p, noise, nullptr);
        ShrinkGraph turbo(w, h, p, noise, nullptr);
        for (JIncrRaster* n : {static_cast<JIncrRaster*>(&turbo.shrink), static_cast<JIncrRaster*>(&turbo.a),
                               static_cast<JIncrRaster*>(&turbo.v)})
            n->setTurbo(true);
        plain.shrink.setThreshold(0.3f);
        turbo.shrink.setThreshold(0.3f);
        const std::vector<float> a = pullWithEdges(plain.shrink);
        const std::vector<float> b = pullWithEdges(turbo.shrink);
        EXPECT_TRUE(murmex_test::sameBits(a.data(), b.data(), static_cast<int>(a.size()))) << path.name();
        if (!path.enabled)
            reference = b;
        else
            EXPECT_TRUE(murmex_test::sameBits(reference.data(), b.data(), static_cast<int>(b.size()))) << path.name();
        for (int y = 0; y < h; ++y)
            EXPECT_GE(turbo.a.computeCount(y), 1) << path.name() << " row " << y;
    });
}
