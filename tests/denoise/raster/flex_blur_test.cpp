#include "denoise/raster/flex_blur.h"

#include <algorithm>
#include <cmath>

#include <gtest/gtest.h>

#include "base/ex.h"
#include "support/bits.h"
#include "support/plane_node.h"
#include "support/planes.h"

using murmex_test::PlaneNode;

namespace {

// The sigma filter written out over the plane, rows and columns mirrored by
// the raster's rules (the width must exceed 4s + 4).
std::vector<float> sigmaFilter(const std::vector<float>& plane, int w, int h, int s, int selector)
{
    auto px = [&](int y, int x) {
        return plane[murmex_test::mirroredRow(y, h) * w + murmex_test::mirroredColumn(x, w)];
    };
    std::vector<float> out(w * h);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const float c = px(y, x);
            std::vector<float> ring;
            for (int i = -1; i <= 1; ++i)
                for (int j = -1; j <= 1; ++j)
                    if (i != 0 || j != 0)
                        ring.push_back(std::fabs(px(y + i * s, x + j * s) - c));
            std::sort(ring.begin(), ring.end());
            const float t = (static_cast<float>(selector) * 0.25f) * ring[3];
            float acc = 0.0f;
            int n = 0;
            for (int i = -4; i <= 4; ++i)
                for (int j = -4; j <= 4; ++j) {
                    const float d = px(y + i * s, x + j * s) - c;
                    if (std::fabs(d) <= t) {
                        acc = acc + d;
                        n = n + 1;
                    }
                }
            out[y * w + x] = c + acc / static_cast<float>(n);
        }
    }
    return out;
}

}  // namespace

TEST(FlexBlurTest, SigmaFilterOverMirroredRowsAndColumns)
{
    const int w = 21, h = 9;
    const auto plane = murmex_test::randomPlane(w, h, 71, -1.0f, 1.0f);
    for (int s : {1, 2, 4}) {
        for (int selector : {1, 4, 10}) {
            PlaneNode input(w, h, plane);
            JIncrRaster_FlexBlur node(input, s, selector);
            const auto expected = sigmaFilter(plane, w, h, s, selector);
            const auto got = murmex_test::pullPlane(node);
            EXPECT_TRUE(murmex_test::sameBits(expected.data(), got.data(), w * h))
                << "spacing " << s << " selector " << selector;
        }
    }
}

TEST(FlexBlurTest, FlatPlaneComesBackExactly)
{
    const int w = 12, h = 6;
    PlaneNode input(w, h, 0.3f);
    JIncrRaster_FlexBlur node(input, 1, 7);
    for (float v : murmex_test::pullPlane(node))
        EXPECT_EQ(v, 0.3f);
}

TEST(FlexBlurTest, ImpulseIsRemovedFromSelectorFourAndKeptBelow)
{
    // The impulse's ring differences are all h, so T = selector/4 * h; the
    // 80 zero taps join from selector 4 and the mean is h/81. Its neighbours
    // have a ring with one tap at h and seven at 0: T = 0, the impulse is
    // left out and they stay 0.
    const int w = 15, h = 15, cx = 7, cy = 7;
    std::vector<float> plane(w * h, 0.0f);
    plane[cy * w + cx] = 81.0f;
    for (int selector = 1; selector <= 10; ++selector) {
        PlaneNode input(w, h, plane);
        JIncrRaster_FlexBlur node(input, 1, selector);
        const auto got = murmex_test::pullPlane(node);
        EXPECT_EQ(got[cy * w + cx], selector >= 4 ? 1.0f : 81.0f) << "selector " << selector;
        for (int y = 0; y < h; ++y) {
            for (int x = 0; x < w; ++x) {
                if (x != cx || y != cy) {
                    EXPECT_EQ(got[y * w + x], 0.0f) << "selector " << selector << " at " << x << "," << y;
                }
            }
        }
    }
}

TEST(FlexBlurTest, StepEdgeIsKept)
{
    // Left of the edge at most three of eight ring taps lie across it, so the
    // fourth smallest difference is 0 and nothing across the edge is averaged in.
    const int w = 16, h = 8;
    std::vector<float> plane(w * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            plane[y * w + x] = x < 8 ? 0.0f : 1.0f;
    PlaneNode input(w, h, plane);
    JIncrRaster_FlexBlur node(input, 1, 10);
    const auto got = murmex_test::pullPlane(node);
    EXPECT_TRUE(murmex_test::sameBits(plane.data(), got.data(), w * h));
}

TEST(FlexBlurTest, SelectorIsClampedToOneThroughTen)
{
    PlaneNode input(12, 4, 1.0f);
    EXPECT_EQ(JIncrRaster_FlexBlur(input, 1, 0).selector(), 1);
    EXPECT_EQ(JIncrRaster_FlexBlur(input, 1, 11).selector(), 10);
    EXPECT_EQ(JIncrRaster_FlexBlur(input, 1, 6).selector(), 6);
}

TEST(FlexBlurTest, AsksItsInputForAMarginOfFourSpacingsPlusFour)
{
    PlaneNode input(40, 4, 1.0f);
    JIncrRaster_FlexBlur a(input, 1, 1);
    EXPECT_EQ(input.margin(), 8);
    JIncrRaster_FlexBlur b(input, 4, 1);
    EXPECT_EQ(input.margin(), 20);
}

TEST(FlexBlurTest, NegativeSpacingThrows)
{
    PlaneNode input(4, 4, 1.0f);
    EXPECT_THROW(JIncrRaster_FlexBlur(input, -1, 1), JEx);
    EXPECT_THROW(JIncrRaster_FlexBlur(input, JIncrRaster_FlexBlur::maxSpacing + 1, 1), JEx);
}

TEST(FlexBlurTest, SpacingZeroReturnsTheInput)
{
    const int w = 7, h = 3;
    const auto plane = murmex_test::randomPlane(w, h, 5);
    PlaneNode input(w, h, plane);
    JIncrRaster_FlexBlur node(input, 0, 10);
    const auto got = murmex_test::pullPlane(node);
    EXPECT_TRUE(murmex_test::sameBits(plane.data(), got.data(), w * h));
    EXPECT_TRUE(murmex_test::allRowsReleased(input));
}

TEST(FlexBlurTest, ReferencesTheNineRowsAtTheSpacing)
{
    const int w = 12, h = 30, s = 3;
    PlaneNode input(w, h, 1.0f);
    JIncrRaster_FlexBlur node(input, s, 5);
    node.refScanline(14);
    for (int y = 0; y < h; ++y)
        EXPECT_EQ(input.refCount(y), (y >= 2 && y <= 26 && (y - 14) % s == 0) ? 1 : 0) << "row " << y;
    node.getScanline(14);
    node.unrefScanline(14);
    EXPECT_TRUE(murmex_test::allRowsReleased(input));
    EXPECT_TRUE(murmex_test::allRowsReleased(node));
}

TEST(FlexBlurTest, EveryInputRowIsReleasedAfterAFullPull)
{
    const int w = 20, h = 7;
    PlaneNode input(w, h, murmex_test::randomPlane(w, h, 6));
    JIncrRaster_FlexBlur node(input, 2, 3);
    murmex_test::pullPlane(node);
    EXPECT_TRUE(murmex_test::allRowsReleased(input));
    EXPECT_TRUE(murmex_test::allRowsReleased(node));
}
