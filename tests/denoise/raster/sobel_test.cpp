#include "denoise/raster/sobel.h"

#include <vector>

#include <gtest/gtest.h>

#include "support/bits.h"
#include "support/plane_node.h"
#include "support/planes.h"

using murmex_test::PlaneNode;

namespace {

float mirroredAt(const std::vector<float>& p, int w, int h, int x, int y)
{
    return p[static_cast<size_t>(murmex_test::mirroredRow(y, h)) * w + murmex_test::mirroredColumn(x, w)];
}

float clip(float e)
{
    return e >= 1.0f ? 1.0f : e;
}

std::vector<float> literalSobel1(const std::vector<float>& p, int w, int h, float gain)
{
    std::vector<float> out(p.size());
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            auto t = [&](int dx) { return mirroredAt(p, w, h, x + dx, y - 1); };
            auto m = [&](int dx) { return mirroredAt(p, w, h, x + dx, y); };
            auto b = [&](int dx) { return mirroredAt(p, w, h, x + dx, y + 1); };
            const float gx = (t(-1) - t(1)) + 2.0f * (m(-1) - m(1)) + (b(-1) - b(1));
            const float gy = (t(-1) + 2.0f * t(0) + t(1)) - (b(-1) + 2.0f * b(0) + b(1));
            out[static_cast<size_t>(y) * w + x] = clip(gain * ((gx * gx + gy * gy) * 0.0625f));
        }
    return out;
}

// The 5 x 5 kernels spelled out: per row (gx) or column (gy), the outer and
// inner weight times the difference of the two taps that mirror each other.
std::vector<float> literalSobel2(const std::vector<float>& p, int w, int h, float gain)
{
    const float outer[5] = {2, 3, 4, 3, 2};
    const float inner[5] = {1, 2, 3, 2, 1};
    auto at = [&](int x, int y) { return mirroredAt(p, w, h, x, y); };
    std::vector<float> out(p.size());
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            float gx = 0.0f, gy = 0.0f;
            for (int j = 0; j < 5; ++j) {
                const int yy = y - 2 + j;
                const float a = outer[j] * (at(x - 2, yy) - at(x + 2, yy));
                const float b = inner[j] * (at(x - 1, yy) - at(x + 1, yy));
                gx = gx + (a + b);
            }
            for (int i = 0; i < 5; ++i) {
                const int xx = x - 2 + i;
                const float a = outer[i] * (at(xx, y - 2) - at(xx, y + 2));
                const float b = inner[i] * (at(xx, y - 1) - at(xx, y + 1));
                gy = gy + (a + b);
            }
            out[static_cast<size_t>(y) * w + x] = clip(gain * ((gx * gx + gy * gy) / 529.0f));
        }
    return out;
}

}  // namespace

TEST(SobelTest, FlatPlaneGivesZero)
{
    for (int r : {1, 2}) {
        PlaneNode in(12, 9, 0.7f);
        JIncrRaster_Sobel node(in, r, 40.0f);
        for (float v : murmex_test::pullPlane(node))
            EXPECT_EQ(v, 0.0f) << "radius " << r;
    }
}

TEST(SobelTest, OutputNeverExceedsOne)
{
    const std::vector<float> p = murmex_test::randomPlane(20, 15, 17, -1.0f, 1.0f);
    for (int r : {1, 2}) {
        PlaneNode in(20, 15, p);
        JIncrRaster_Sobel node(in, r, 40.0f);
        int clipped = 0;
        for (float v : murmex_test::pullPlane(node)) {
            EXPECT_LE(v, 1.0f);
            clipped += v == 1.0f;
        }
        EXPECT_GT(clipped, 0) << "radius " << r;
    }
}

TEST(SobelTest, VerticalStepEdgeByHand)
{
    // 0 left of column 4, 1 from it on: at columns 3 and 4 gx = -1 - 2 - 1 =
    // -4 and gy = 0, so G = 16 * 0.0625 = 1 and gain 0.5 gives 0.5; 0 elsewhere.
    const int w = 9, h = 6;
    std::vector<float> p(w * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            p[y * w + x] = x >= 4 ? 1.0f : 0.0f;
    PlaneNode in(w, h, p);
    JIncrRaster_Sobel node(in, 1, 0.5f);
    const std::vector<float> out = murmex_test::pullPlane(node);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            EXPECT_EQ(out[y * w + x], (x == 3 || x == 4) ? 0.5f : 0.0f) << x << "," << y;
}

TEST(SobelTest, MatchesTheLiteralKernels)
{
    const int w = 23, h = 14;
    const std::vector<float> p = murmex_test::randomPlane(w, h, 31);
    PlaneNode in1(w, h, p), in2(w, h, p);
    JIncrRaster_Sobel s1(in1, 1, 3.0f), s2(in2, 2, 3.0f);
    const std::vector<float> got1 = murmex_test::pullPlane(s1), got2 = murmex_test::pullPlane(s2);
    const std::vector<float> want1 = literalSobel1(p, w, h, 3.0f), want2 = literalSobel2(p, w, h, 3.0f);
    EXPECT_TRUE(murmex_test::sameBits(got1.data(), want1.data(), w * h));
    EXPECT_TRUE(murmex_test::sameBits(got2.data(), want2.data(), w * h));
}

TEST(SobelTest, RadiusIsClampedToOneAndTwo)
{
    PlaneNode a(8, 8, 0.0f), b(8, 8, 0.0f);
    JIncrRaster_Sobel low(a, 0, 1.0f), high(b, 7, 1.0f);
    EXPECT_EQ(low.radius(), 1);
    EXPECT_EQ(high.radius(), 2);
    EXPECT_EQ(a.margin(), 2);
    EXPECT_EQ(b.margin(), 3);
}

TEST(SobelTest, ReferencesAreBalanced)
{
    PlaneNode in(10, 6, murmex_test::randomPlane(10, 6, 2));
    JIncrRaster_Sobel node(in, 2, 1.0f);
    murmex_test::pullPlane(node);
    EXPECT_TRUE(murmex_test::allRowsReleased(node));
    EXPECT_TRUE(murmex_test::allRowsReleased(in));
}
