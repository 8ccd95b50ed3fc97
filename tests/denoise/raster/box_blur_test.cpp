#include "denoise/raster/box_blur.h"

#include <algorithm>
#include <cmath>
#include <thread>

#include <gtest/gtest.h>

#include "support/bits.h"
#include "support/plane_node.h"
#include "support/planes.h"

using murmex_test::PlaneNode;

namespace {

// The running-sum box mean written out over the plane itself, with rows and
// columns mirrored by the raster's rules (the width must exceed r + 1).
std::vector<float> runningBoxMean(const std::vector<float>& plane, int w, int h, int r)
{
    auto px = [&](int y, int x) {
        return plane[murmex_test::mirroredRow(y, h) * w + murmex_test::mirroredColumn(x, w)];
    };
    const int n = 2 * r + 1;
    const float area = static_cast<float>(n * n);
    std::vector<float> out(w * h);
    for (int y = 0; y < h; ++y) {
        float s = 0.0f;
        for (int k = -r; k <= r; ++k)
            for (int x = -1 - r; x <= -1 + r; ++x)
                s = s + px(y + k, x);
        s = s / area;
        s = s * area;
        for (int x = 0; x < w; ++x) {
            for (int k = -r; k <= r; ++k) {
                s = s - px(y + k, x - r - 1);
                s = s + px(y + k, x + r);
            }
            out[y * w + x] = s / area;
        }
    }
    return out;
}

// The plain mean of each window, summed in double.
std::vector<float> windowMean(const std::vector<float>& plane, int w, int h, int r)
{
    std::vector<float> out(w * h);
    const int n = 2 * r + 1;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            double s = 0.0;
            for (int k = -r; k <= r; ++k)
                for (int j = -r; j <= r; ++j)
                    s += plane[murmex_test::mirroredRow(y + k, h) * w + murmex_test::mirroredColumn(x + j, w)];
            out[y * w + x] = static_cast<float>(s / (n * n));
        }
    return out;
}

}  // namespace

TEST(BoxBlurTest, RunningSumOverMirroredRowsAndColumns)
{
    for (int r = 1; r <= 4; ++r) {
        const int w = 11, h = 7;
        const auto plane = murmex_test::randomPlane(w, h, 900 + r, -1.0f, 1.0f);
        PlaneNode input(w, h, plane);
        JIncrRaster_BoxBlur node(input, r);
        const auto expected = runningBoxMean(plane, w, h, r);
        const auto got = murmex_test::pullPlane(node);
        EXPECT_TRUE(murmex_test::sameBits(expected.data(), got.data(), w * h)) << "radius " << r;
    }
}

TEST(BoxBlurTest, IsTheWindowMeanUpToRoundingOfTheRunningSum)
{
    const int w = 23, h = 9, r = 2;
    const auto plane = murmex_test::randomPlane(w, h, 17);
    PlaneNode input(w, h, plane);
    JIncrRaster_BoxBlur node(input, r);
    const auto expected = windowMean(plane, w, h, r);
    const auto got = murmex_test::pullPlane(node);
    for (int i = 0; i < w * h; ++i)
        EXPECT_NEAR(got[i], expected[i], 1e-5f) << "pixel " << i;
}

TEST(BoxBlurTest, HandDerivedRowOfAVerticalRamp)
{
    // Columns 0..5 hold their index in every row. Radius 1: the mean of
    // columns x-1..x+1 with column -1 = 1 and column 6 = 4.
    const int w = 6, h = 3;
    std::vector<float> plane(w * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            plane[y * w + x] = static_cast<float>(x);
    PlaneNode input(w, h, plane);
    JIncrRaster_BoxBlur node(input, 1);
    const auto got = murmex_test::pullPlane(node);
    const float expected[6] = {2.0f / 3.0f, 1.0f, 2.0f, 3.0f, 4.0f, 13.0f / 3.0f};
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            EXPECT_NEAR(got[y * w + x], expected[x], 1e-6f) << "x " << x << " y " << y;
}

TEST(BoxBlurTest, ConstantPlaneReturnsTheConstant)
{
    const int w = 40, h = 6;
    {
        // A dyadic constant keeps the running sum exact.
        PlaneNode input(w, h, 0.5f);
        JIncrRaster_BoxBlur node(input, 3);
        for (float v : murmex_test::pullPlane(node))
            EXPECT_EQ(v, 0.5f);
    }
    {
        PlaneNode input(w, h, 0.3f);
        JIncrRaster_BoxBlur node(input, 4);
        for (float v : murmex_test::pullPlane(node))
            EXPECT_NEAR(v, 0.3f, 1e-6f);
    }
}

TEST(BoxBlurTest, RadiusZeroActsAsRadiusOne)
{
    const int w = 12, h = 5;
    const auto plane = murmex_test::randomPlane(w, h, 3);
    PlaneNode input(w, h, plane);
    JIncrRaster_BoxBlur zero(input, 0);
    EXPECT_EQ(zero.radius(), 1);
    EXPECT_EQ(input.margin(), 5);
    const auto expected = runningBoxMean(plane, w, h, 1);
    const auto got = murmex_test::pullPlane(zero);
    EXPECT_TRUE(murmex_test::sameBits(expected.data(), got.data(), w * h));
}

TEST(BoxBlurTest, RadiusSevenActsAsRadiusFour)
{
    const int w = 12, h = 5;
    const auto plane = murmex_test::randomPlane(w, h, 4);
    PlaneNode input(w, h, plane);
    JIncrRaster_BoxBlur seven(input, 7);
    EXPECT_EQ(seven.radius(), 4);
    EXPECT_EQ(input.margin(), 8);
    const auto expected = runningBoxMean(plane, w, h, 4);
    const auto got = murmex_test::pullPlane(seven);
    EXPECT_TRUE(murmex_test::sameBits(expected.data(), got.data(), w * h));
}

TEST(BoxBlurTest, ReferencesTheWindowRowsOfItsInput)
{
    const int w = 8, h = 12, r = 3;
    PlaneNode input(w, h, 1.0f);
    JIncrRaster_BoxBlur node(input, r);
    node.refScanline(6);
    for (int y = 0; y < h; ++y)
        EXPECT_EQ(input.refCount(y), (y >= 3 && y <= 9) ? 1 : 0) << "row " << y;
    node.getScanline(6);
    node.unrefScanline(6);
    EXPECT_TRUE(murmex_test::allRowsReleased(input));
    EXPECT_TRUE(murmex_test::allRowsReleased(node));
}

TEST(BoxBlurTest, EveryInputRowIsReleasedAfterAFullPull)
{
    const int w = 9, h = 10;
    PlaneNode input(w, h, murmex_test::randomPlane(w, h, 8));
    JIncrRaster_BoxBlur node(input, 4);
    murmex_test::pullPlane(node);
    EXPECT_TRUE(murmex_test::allRowsReleased(input));
    EXPECT_TRUE(murmex_test::allRowsReleased(node));
}

TEST(BoxBlurTest, TurboOddRowsAreTheMeanOfTheRowsAboveAndBelow)
{
    for (int h : {8, 9}) {
        const int w = 10, r = 2;
        const auto plane = murmex_test::randomPlane(w, h, 50 + h);
        const auto full = runningBoxMean(plane, w, h, r);
        PlaneNode input(w, h, plane);
        JIncrRaster_BoxBlur node(input, r);
        node.setTurbo(true);
        const auto got = murmex_test::pullPlane(node);
        for (int y = 0; y < h; ++y) {
            for (int x = 0; x < w; ++x) {
                float expected = full[y * w + x];
                if (y % 2 == 1) {
                    // Row h (below the last odd row of an even height) reads row h-2.
                    const int below = murmex_test::mirroredRow(y + 1, h);
                    expected = (full[(y - 1) * w + x] + full[below * w + x]) * 0.5f;
                }
                EXPECT_EQ(got[y * w + x], expected) << "h " << h << " row " << y << " x " << x;
            }
        }
        EXPECT_TRUE(murmex_test::allRowsReleased(input));
        EXPECT_TRUE(murmex_test::allRowsReleased(node));
    }
}

TEST(BoxBlurTest, TurboOddRowReferencesItsOwnNeighbourRowsNotTheInput)
{
    const int w = 8, h = 10;
    PlaneNode input(w, h, 1.0f);
    JIncrRaster_BoxBlur node(input, 1);
    node.setTurbo(true);
    node.refScanline(5);
    EXPECT_EQ(node.refCount(4), 1);
    EXPECT_EQ(node.refCount(6), 1);
    // Rows 4 and 6 reference input rows 3..7 (row 5 twice); nothing else.
    for (int y = 0; y < h; ++y)
        EXPECT_EQ(input.refCount(y), y == 5 ? 2 : (y >= 3 && y <= 7 ? 1 : 0)) << "row " << y;
    node.getScanline(5);
    node.unrefScanline(5);
    EXPECT_TRUE(murmex_test::allRowsReleased(node));
    EXPECT_TRUE(murmex_test::allRowsReleased(input));
    EXPECT_EQ(input.computeCount(5), 1);
}

TEST(BoxBlurThreadTest, FourThreadsPullingInterleavedRowsMatchASingleThreadedPull)
{
    const int w = 37, h = 24;
    const auto plane = murmex_test::randomPlane(w, h, 404, -1.0f, 1.0f);
    for (bool turbo : {false, true}) {
        std::vector<float> expected;
        {
            PlaneNode input(w, h, plane);
            JIncrRaster_BoxBlur node(input, 3);
            node.setTurbo(turbo);
            expected = murmex_test::pullPlane(node);
        }
        PlaneNode input(w, h, plane);
        JIncrRaster_BoxBlur node(input, 3);
        node.setTurbo(turbo);
        std::vector<float> got(w * h);
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([&, t] {
                for (int pass = 0; pass < 20; ++pass) {
                    for (int i = 0; i < h; ++i) {
                        const int y = (i * 5 + t * 7 + pass) % h;
                        node.refScanline(y);
                        const float* row = node.getScanline(y);
                        if (t == 0)
                            std::copy(row, row + w, got.begin() + y * w);
                        node.unrefScanline(y);
                    }
                }
            });
        }
        for (auto& th : threads)
            th.join();
        EXPECT_TRUE(murmex_test::sameBits(expected.data(), got.data(), w * h)) << "turbo " << turbo;
        EXPECT_TRUE(murmex_test::allRowsReleased(node));
        EXPECT_TRUE(murmex_test::allRowsReleased(input));
    }
}
