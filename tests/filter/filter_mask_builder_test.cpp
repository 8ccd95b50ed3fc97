#include "filter/filter_mask_builder.h"

#include <cmath>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

#include "support/planes.h"

namespace {

// The 64 widened weights, listed by hand from level8 = 4 * level plus the top
// two bits of the level (0 below 16, 1 below 32, 2 below 48, else 3).
std::vector<float> decodedWeights()
{
    std::vector<float> w;
    for (int level = 0; level < 64; ++level)
        w.push_back(static_cast<float>(4 * level + level / 16) / 255.0f);
    return w;
}

}  // namespace

TEST(FilterMaskBuilderTest, BuiltMaskReadsBackItsWeightsToTheSixBitQuantisation)
{
    const int w = 37, h = 9;
    const std::vector<float> lum = murmex_test::randomPlane(w, h, 41);
    const std::vector<float> chroma = murmex_test::randomPlane(w, h, 42);
    const JFilterMask mask = JFilterMaskBuilder::build(w, h, lum.data(), chroma.data());
    const std::vector<float> levels = decodedWeights();
    std::vector<float> row(w);
    for (int y = 0; y < h; ++y) {
        for (int channel = 0; channel < 2; ++channel) {
            const std::vector<float>& plane = channel == 0 ? lum : chroma;
            if (channel == 0)
                mask.getLumScanline(y, 0, w - 1, row.data());
            else
                mask.getChromaScanline(y, 0, w - 1, row.data());
            for (int x = 0; x < w; ++x) {
                const float want = plane[static_cast<size_t>(y) * w + x];
                const float got = row[x];
                // The widened levels lie at most 5/255 apart.
                EXPECT_LE(std::fabs(got - want), 2.5f / 255.0f + 1e-6f) << x << "," << y;
                // And no level lies nearer to the weight than the one read back.
                for (float l : levels)
                    EXPECT_LE(std::fabs(got - want), std::fabs(l - want)) << x << "," << y;
            }
        }
    }
}

TEST(FilterMaskBuilderTest, LongRunsAreSplitAt1023Pixels)
{
    // 2500 = 1023 + 1023 + 454.
    const std::vector<float> ones(2500, 1.0f);
    const std::vector<uint16_t> words = JFilterMaskBuilder::encodeRow(ones.data(), 2500);
    const std::vector<uint16_t> expected = {0xFFFF, 0xFFFF, static_cast<uint16_t>((454 << 6) | 63), 0};
    EXPECT_EQ(words, expected);
}

TEST(FilterMaskBuilderTest, EqualNeighboursShareARun)
{
    const float weights[6] = {0.0f, 0.0f, 1.0f, 1.0f, 1.0f, 130.0f / 255.0f};
    const std::vector<uint16_t> words = JFilterMaskBuilder::encodeRow(weights, 6);
    const std::vector<uint16_t> expected = {2 << 6, (3 << 6) | 63, (1 << 6) | 32, 0};
    EXPECT_EQ(words, expected);
}

TEST(FilterMaskBuilderTest, RowOfZeroWeightsBecomesANullRow)
{
    const float lum[2 * 3] = {0, 0, 0, 0.5f, 0, 0};
    const JFilterMask mask = JFilterMaskBuilder::build(3, 2, lum, nullptr);
    EXPECT_TRUE(mask.isLumEmpty(0));
    EXPECT_FALSE(mask.isLumEmpty(1));
    EXPECT_FALSE(mask.isLumEmpty());
    EXPECT_TRUE(mask.isChromaEmpty());
}

TEST(FilterMaskBuilderTest, WeightsOutsideZeroToOneClampAndNaNCountsAsZero)
{
    EXPECT_EQ(JFilterMaskBuilder::levelFor(-0.3f), 0);
    EXPECT_EQ(JFilterMaskBuilder::levelFor(std::numeric_limits<float>::quiet_NaN()), 0);
    EXPECT_EQ(JFilterMaskBuilder::levelFor(1.7f), 63);
    EXPECT_EQ(JFilterMaskBuilder::levelFor(1.0f), 63);
    EXPECT_EQ(JFilterMaskBuilder::levelFor(0.0f), 0);
    // 0.51 lies between 130/255 (level 32) and 126/255 (level 31), nearer 130.
    EXPECT_EQ(JFilterMaskBuilder::levelFor(0.51f), 32);
}
