#include "denoise/raster/wavelet.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "base/ex.h"
#include "denoise/raster/adapter_to_rgbx.h"
#include "denoise/raster/directed_blur.h"
#include "denoise/raster/flex_blur.h"
#include "denoise/raster/rgbx_to_ycrcb.h"
#include "denoise/raster/subtract.h"
#include "denoise/raster/sum.h"
#include "support/bits.h"
#include "support/memory_image.h"
#include "support/plane_node.h"
#include "support/planes.h"

namespace {

using murmex_test::PlaneNode;
using murmex_test::pullPlane;

// The nodes of one decomposition, deleted with it.
struct Wavelet {
    Wavelet(JIncrRaster& input, int levels) : details(levels, nullptr), smooth(levels, nullptr)
    {
        buildIncrWavelet(&input, levels, details.data(), smooth.data());
    }
    ~Wavelet()
    {
        for (JIncrRaster* n : details)
            delete n;
        for (JIncrRaster* n : smooth)
            delete n;
    }
    std::vector<JIncrRaster*> details;
    std::vector<JIncrRaster*> smooth;
};

// Sets the process-wide kernel selector for one scope.
class ScopedKernel {
public:
    explicit ScopedKernel(int kernel) : old_(waveletSmoothingKernel.load()) { waveletSmoothingKernel = kernel; }
    ~ScopedKernel() { waveletSmoothingKernel = old_; }

private:
    int old_;
};

TEST(WaveletTest, KernelSelectorDefaultsToZero)
{
    EXPECT_EQ(waveletSmoothingKernel.load(), 0);
}

TEST(WaveletTest, OneLevelIsOneBlurOfSpacingOneAndOneSubtractAgainstTheInput)
{
    const int w = 23, h = 9;
    const std::vector<float> plane = murmex_test::randomPlane(w, h, 5u);
    PlaneNode input(w, h, plane);
    Wavelet wt(input, 1);

    auto* blur = dynamic_cast<JIncrRaster_DirectedBlur*>(wt.smooth[0]);
    ASSERT_NE(blur, nullptr);
    EXPECT_EQ(blur->spacing(), 1);
    EXPECT_EQ(blur->input(), &input);
    ASSERT_NE(dynamic_cast<JIncrRaster_Subtract*>(wt.details[0]), nullptr);

    // The detail is input - smooth, pixel by pixel.
    const std::vector<float> smooth = pullPlane(*wt.smooth[0]);
    const std::vector<float> detail = pullPlane(*wt.details[0]);
    for (int i = 0; i < w * h; ++i)
        ASSERT_EQ(murmex_test::floatBits(detail[i]), murmex_test::floatBits(plane[i] - smooth[i])) << i;

    // And the smooth plane is a blur of spacing 1 of the input itself.
    PlaneNode again(w, h, plane);
    JIncrRaster_DirectedBlur reference(again, 1);
    const std::vector<float> expected = pullPlane(reference);
    EXPECT_TRUE(murmex_test::sameBits(expected.data(), smooth.data(), w * h));
}

TEST(WaveletTest, SpacingsDoubleByLevelAndEachBlurInputGetsItsMargin)
{
    PlaneNode input(64, 16, 0.0f);
    Wavelet wt(input, 5);
    for (int k = 0; k < 5; ++k) {
        auto* blur = dynamic_cast<JIncrRaster_DirectedBlur*>(wt.smooth[k]);
        ASSERT_NE(blur, nullptr) << k;
        EXPECT_EQ(blur->spacing(), 1 << k);
        EXPECT_EQ(blur->input(), k == 0 ? static_cast<JIncrRaster*>(&input) : wt.smooth[k - 1]);
        ASSERT_NE(dynamic_cast<JIncrRaster_Subtract*>(wt.details[k]), nullptr) << k;
    }
    // A blur of spacing s asks its input for 2s + 4 pixels: 6, 8, 12, 20, 36.
    EXPECT_EQ(input.margin(), 6);
    EXPECT_EQ(wt.smooth[0]->margin(), 8);
    EXPECT_EQ(wt.smooth[1]->margin(), 12);
    EXPECT_EQ(wt.smooth[2]->margin(), 20);
    EXPECT_EQ(wt.smooth[3]->margin(), 36);
    EXPECT_EQ(wt.smooth[4]->margin(), 0);
}

TEST(WaveletTest, NoLevelsCreateNothing)
{
    PlaneNode input(8, 8, 0.0f);
    for (int levels : {0, -1, -5}) {
        JIncrRaster* details[2] = {&input, &input};
        JIncrRaster* smooth[2] = {&input, &input};
        buildIncrWavelet(&input, levels, details, smooth);
        EXPECT_EQ(details[0], &input);
        EXPECT_EQ(smooth[0], &input);
    }
    EXPECT_EQ(input.margin(), 0);
}

TEST(WaveletTest, SpacingBeyondTheIntRangeThrowsAndLeavesNothing)
{
    // Level 30 would have spacing 2^30, whose margin 2^31 + 4 does not fit.
    PlaneNode input(8, 8, 0.0f);
    std::vector<JIncrRaster*> details(32, &input);
    std::vector<JIncrRaster*> smooth(32, &input);
    EXPECT_THROW(buildIncrWavelet(&input, 32, details.data(), smooth.data()), JEx);
    for (int k = 0; k <= 30; ++k) {
        EXPECT_EQ(details[k], nullptr) << k;
        EXPECT_EQ(smooth[k], nullptr) << k;
    }
}

TEST(WaveletTest, KernelSelectorOneToTenPicksFlexBlur)
{
    for (int kernel : {1, 3, 10}) {
        ScopedKernel scoped(kernel);
        PlaneNode input(32, 8, 0.0f);
        Wavelet wt(input, 3);
        for (int k = 0; k < 3; ++k) {
            auto* flex = dynamic_cast<JIncrRaster_FlexBlur*>(wt.smooth[k]);
            ASSERT_NE(flex, nullptr) << "kernel " << kernel << " level " << k;
            EXPECT_EQ(flex->spacing(), 1 << k);
            EXPECT_EQ(flex->selector(), kernel);
            EXPECT_NE(dynamic_cast<JIncrRaster_Subtract*>(wt.details[k]), nullptr);
        }
    }
    for (int kernel : {0, -1, 11}) {
        ScopedKernel scoped(kernel);
        PlaneNode input(32, 8, 0.0f);
        Wavelet wt(input, 2);
        EXPECT_NE(dynamic_cast<JIncrRaster_DirectedBlur*>(wt.smooth[0]), nullptr) << kernel;
        EXPECT_NE(dynamic_cast<JIncrRaster_DirectedBlur*>(wt.smooth[1]), nullptr) << kernel;
    }
}

TEST(WaveletTest, ConstantPlaneHasZeroDetails)
{
    PlaneNode input(30, 12, 0.5f);
    Wavelet wt(input, 4);
    for (int k = 0; k < 4; ++k) {
        const std::vector<float> detail = pullPlane(*wt.details[k]);
        for (float v : detail)
            ASSERT_EQ(murmex_test::floatBits(v), 0u) << "level " << k;
        const std::vector<float> smooth = pullPlane(*wt.smooth[k]);
        for (float v : smooth)
            ASSERT_EQ(v, 0.5f) << "level " << k;
    }
}

TEST(WaveletTest, FiveLevelsSumBackToTheInputAndReleaseEveryRow)
{
    const int w = 61, h = 47;
    const std::vector<float> plane = murmex_test::randomPlane(w, h, 2024u);
    PlaneNode input(w, h, plane);
    Wavelet wt(input, 5);
    std::vector<JIncrRaster*> parts(wt.details);
    parts.push_back(wt.smooth[4]);
    JIncrRaster_Sum sum(parts.data(), static_cast<int>(parts.size()));

    const std::vector<float> rebuilt = pullPlane(sum);
    // Every plane lies within [-1, 1] and the partial sums within [-3, 3]: five
    // subtractions and five additions round by at most 2^-24 * 3 each, so
    // 2e-6 bounds the difference.
    for (int i = 0; i < w * h; ++i)
        ASSERT_NEAR(rebuilt[i], plane[i], 2e-6f) << "pixel " << i % w << ", " << i / w;

    EXPECT_TRUE(murmex_test::allRowsReleased(sum));
    EXPECT_TRUE(murmex_test::allRowsReleased(input));
    for (int k = 0; k < 5; ++k) {
        EXPECT_TRUE(murmex_test::allRowsReleased(*wt.details[k])) << "details " << k;
        EXPECT_TRUE(murmex_test::allRowsReleased(*wt.smooth[k])) << "smooth " << k;
    }
}

// The deep graph of a strip's analysis and rebuild: an image adapter, its float
// RGBX rows, the three YCrCb planes, a five-level decomposition of each and
// the Sum that adds each plane's details back onto its coarsest smooth plane.
struct ChannelGraph {
    explicit ChannelGraph(murmex_test::MemoryImage& image)
        : rgbx(&image, 0, image.width() - 1)
    {
        for (int c = 0; c < 3; ++c) {
            planes[c] = std::make_unique<JIncrRaster_RGBXToYCrCb>(&rgbx, static_cast<JImageLib::YCrCbIndex>(c));
            wavelets[c] = std::make_unique<Wavelet>(*planes[c], 5);
            std::vector<JIncrRaster*> parts(wavelets[c]->details);
            parts.push_back(wavelets[c]->smooth[4]);
            sums[c] = std::make_unique<JIncrRaster_Sum>(parts.data(), static_cast<int>(parts.size()));
        }
    }
    std::vector<JIncrRaster*> nodes()
    {
        std::vector<JIncrRaster*> all{&rgbx};
        for (int c = 0; c < 3; ++c) {
            all.push_back(planes[c].get());
            all.insert(all.end(), wavelets[c]->details.begin(), wavelets[c]->details.end());
            all.insert(all.end(), wavelets[c]->smooth.begin(), wavelets[c]->smooth.end());
            all.push_back(sums[c].get());
        }
        return all;
    }

    JIncrRaster_AdapterToRGBX rgbx;
    std::unique_ptr<JIncrRaster_RGBXToYCrCb> planes[3];
    std::unique_ptr<Wavelet> wavelets[3];
    std::unique_ptr<JIncrRaster_Sum> sums[3];
};

TEST(WaveletThreadTest, FourThreadsPullingInterleavedRowsMatchOneThread)
{
    const int w = 77, h = 53;
    murmex_test::MemoryImage image(w, h);
    std::mt19937 rng(4242);
    std::uniform_int_distribution<int> sample(0, 65535);
    for (uint16_t& v : image.data())
        v = static_cast<uint16_t>(sample(rng));

    std::vector<float> expected[3];
    {
        ChannelGraph single(image);
        for (int c = 0; c < 3; ++c)
            expected[c] = pullPlane(*single.sums[c]);
    }

    ChannelGraph graph(image);
    const int threads = 4;
    const int rounds = 6;
    // Each thread's own copy of the three planes, rewritten every round.
    std::vector<std::vector<float>> results(threads * rounds * 3, std::vector<float>(static_cast<size_t>(w) * h));
    auto worker = [&](int t) {
        for (int round = 0; round < rounds; ++round) {
            std::vector<float>* out = &results[(t * rounds + round) * 3];
            if (round % 2 == 0) {
                // Like the workers of a strip: rows t, t + 4, ... in batches of
                // three, all referenced before any is fetched.
                for (int first = t; first < h; first += 3 * threads) {
                    std::vector<int> batch;
                    for (int y = first; y < h && batch.size() < 3; y += threads)
                        batch.push_back(y);
                    for (int y : batch)
                        for (auto& sum : graph.sums)
                            sum->refScanline(y);
                    for (int y : batch)
                        for (int c = 0; c < 3; ++c) {
                            const float* row = graph.sums[c]->getScanline(y);
                            std::copy(row, row + w, out[c].begin() + static_cast<size_t>(y) * w);
                        }
                    for (int y : batch)
                        for (auto& sum : graph.sums)
                            sum->unrefScanline(y);
                }
            } else {
                // Every row, from a different start per thread and round, with a
                // stride coprime to the height: threads meet on the same rows.
                const int start = (t * h / threads + round * 7) % h;
                for (int i = 0; i < h; ++i) {
                    const int y = (start + i * 5) % h;
                    for (int c = 0; c < 3; ++c) {
                        graph.sums[c]->refScanline(y);
                        const float* row = graph.sums[c]->getScanline(y);
                        std::copy(row, row + w, out[c].begin() + static_cast<size_t>(y) * w);
                        graph.sums[c]->unrefScanline(y);
                    }
                }
            }
        }
    };
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t)
        pool.emplace_back(worker, t);
    for (std::thread& th : pool)
        th.join();

    for (int t = 0; t < threads; ++t) {
        for (int round = 0; round < rounds; ++round) {
            const bool partitioned = round % 2 == 0;
            for (int c = 0; c < 3; ++c) {
                const std::vector<float>& got = results[(t * rounds + round) * 3 + c];
                for (int y = 0; y < h; ++y) {
                    if (partitioned && y % threads != t)
                        continue;
                    ASSERT_TRUE(murmex_test::sameBits(&expected[c][static_cast<size_t>(y) * w],
                                                      &got[static_cast<size_t>(y) * w], w))
                        << "thread " << t << " round " << round << " channel " << c << " row " << y;
                }
            }
        }
    }
    for (JIncrRaster* node : graph.nodes())
        EXPECT_TRUE(murmex_test::allRowsReleased(*node));
}

}  // namespace
