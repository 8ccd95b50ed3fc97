#include "denoise/raster/rgbx_to_ycrcb.h"

#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "denoise/raster/adapter_to_rgbx.h"
#include "support/bits.h"
#include "support/memory_image.h"
#include "support/planes.h"
#include "support/rgbx_node.h"
#include "support/simd_paths.h"

namespace {

using murmex_test::floatBits;
using murmex_test::RGBXNode;

// The node's formulas, one pixel at a time, written from the row formula.
float literalY(float R, float G, float B)
{
    const float first = G * 0.5866f;
    const float second = std::fma(R, 0.2989f, first);
    return std::fma(B, 0.1145f, second);
}

float literalCr(float R, float G, float B)
{
    const float first = R * 0.5f;
    const float second = std::fma(-G, 0.4183f, first);
    const float sum = std::fma(-B, 0.0817f, second);
    return static_cast<float>(double(sum) + 0.5);
}

float literalCb(float R, float G, float B)
{
    const float first = R * -0.1687f;
    const float second = std::fma(-G, 0.3312f, first);
    const float sum = std::fma(B, 0.5f, second);
    return static_cast<float>(double(sum) + 0.5);
}

std::vector<float> pullChannel(JIncrRaster& rgbx, JImageLib::YCrCbIndex channel)
{
    JIncrRaster_RGBXToYCrCb node(&rgbx, channel);
    return murmex_test::pullPlane(node);
}

TEST(RGBXToYCrCbTest, WhiteGivesLumaOneNeutralCrAndCbOffByTheCoefficientSum)
{
    RGBXNode white(1, 1, {1.0f, 1.0f, 1.0f, 1.0f});
    const float y = pullChannel(white, JImageLib::Y)[0];
    const float cr = pullChannel(white, JImageLib::Cr)[0];
    const float cb = pullChannel(white, JImageLib::Cb)[0];
    // 0.2989 + 0.5866 + 0.1145 = 1; the Cr coefficients sum to 0 and the Cb
    // coefficients to 0.0001, so Cb is 0.5001.
    EXPECT_NEAR(y, 1.0f, 1e-6f);
    EXPECT_NEAR(cr, 0.5f, 1e-6f);
    EXPECT_NEAR(cb, 0.5001f, 1e-6f);
}

TEST(RGBXToYCrCbTest, BlackGivesZeroLumaAndExactlyHalfChroma)
{
    RGBXNode black(1, 1, {0.0f, 0.0f, 0.0f, 0.0f});
    EXPECT_EQ(pullChannel(black, JImageLib::Y)[0], 0.0f);
    EXPECT_EQ(pullChannel(black, JImageLib::Cr)[0], 0.5f);
    EXPECT_EQ(pullChannel(black, JImageLib::Cb)[0], 0.5f);
}

TEST(RGBXToYCrCbTest, PrimariesGiveTheirCoefficients)
{
    // Pure red, green, blue: each output is one coefficient (plus the offset).
    RGBXNode rgb(3, 1, {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0});
    const std::vector<float> y = pullChannel(rgb, JImageLib::Y);
    const std::vector<float> cr = pullChannel(rgb, JImageLib::Cr);
    const std::vector<float> cb = pullChannel(rgb, JImageLib::Cb);
    EXPECT_EQ(y[0], 0.2989f);
    EXPECT_EQ(y[1], 0.5866f);
    EXPECT_EQ(y[2], 0.1145f);
    EXPECT_EQ(cr[0], 1.0f);
    EXPECT_EQ(cr[1], static_cast<float>(0.5 - double(0.4183f)));
    EXPECT_EQ(cr[2], static_cast<float>(0.5 - double(0.0817f)));
    EXPECT_EQ(cb[0], static_cast<float>(0.5 - double(0.1687f)));
    EXPECT_EQ(cb[1], static_cast<float>(0.5 - double(0.3312f)));
    EXPECT_EQ(cb[2], 1.0f);
}

TEST(RGBXToYCrCbTest, RowsFollowTheFusedOrderWithoutClampingOnEveryPath)
{
    // 37 pixels: two 16-wide vectors, four 8-wide ones and a scalar tail.
    const int w = 37, h = 6;
    RGBXNode rgbx(w, h, murmex_test::mixedRGBX(w, h, 404));
    murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& path) {
        SCOPED_TRACE(path.name());
        const std::vector<float> y = pullChannel(rgbx, JImageLib::Y);
        const std::vector<float> cr = pullChannel(rgbx, JImageLib::Cr);
        const std::vector<float> cb = pullChannel(rgbx, JImageLib::Cb);
        for (int j = 0; j < h; ++j)
            for (int x = 0; x < w; ++x) {
                const float R = rgbx.at(x, j, 0), G = rgbx.at(x, j, 1), B = rgbx.at(x, j, 2);
                const size_t i = static_cast<size_t>(j) * w + x;
                ASSERT_EQ(floatBits(y[i]), floatBits(literalY(R, G, B))) << x << "," << j;
                ASSERT_EQ(floatBits(cr[i]), floatBits(literalCr(R, G, B))) << x << "," << j;
                ASSERT_EQ(floatBits(cb[i]), floatBits(literalCb(R, G, B))) << x << "," << j;
            }
    });
}

TEST(RGBXToYCrCbTest, EveryVectorPathGivesTheScalarBitsOnRandomRows)
{
    // Widths around the vector sizes, and random values well outside 0..1,
    // where the fused roundings differ most from separate ones.
    for (int w : {1, 3, 7, 8, 9, 15, 16, 17, 24, 31, 32, 33, 100, 1037}) {
        const int h = 3;
        RGBXNode rgbx(w, h, murmex_test::randomPlane(4 * w, h, static_cast<uint32_t>(w), -3.0f, 4.0f));
        for (JImageLib::YCrCbIndex c : {JImageLib::Y, JImageLib::Cr, JImageLib::Cb}) {
            std::vector<float> scalar;
            {
                murmex_test::ScopedSIMDPath off({false, JCPUInfo::Scalar});
                scalar = pullChannel(rgbx, c);
            }
            murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& path) {
                const std::vector<float> got = pullChannel(rgbx, c);
                ASSERT_EQ(got.size(), scalar.size());
                for (size_t i = 0; i < got.size(); ++i)
                    ASSERT_EQ(floatBits(got[i]), floatBits(scalar[i]))
                        << path.name() << ", width " << w << ", channel " << c << ", pixel " << i;
            });
        }
    }
}

TEST(RGBXToYCrCbTest, FusedOrderDiffersFromSeparateRoundings)
{
    // The fused terms are observable: on ordinary data some pixels differ from
    // the product-then-sum evaluation of the colour classes.
    const int w = 64, h = 4;
    RGBXNode rgbx(w, h, murmex_test::randomPlane(w * 4, h, 9));
    const std::vector<float> y = pullChannel(rgbx, JImageLib::Y);
    int differing = 0;
    for (int j = 0; j < h; ++j)
        for (int x = 0; x < w; ++x) {
            const float R = rgbx.at(x, j, 0), G = rgbx.at(x, j, 1), B = rgbx.at(x, j, 2);
            const float unfused = 0.2989f * R + 0.5866f * G + 0.1145f * B;
            if (floatBits(y[static_cast<size_t>(j) * w + x]) != floatBits(unfused))
                ++differing;
        }
    EXPECT_GT(differing, 0);
}

TEST(RGBXToYCrCbTest, FourthChannelIsIgnored)
{
    RGBXNode a(1, 1, {0.25f, 0.5f, 0.75f, 0.0f});
    RGBXNode b(1, 1, {0.25f, 0.5f, 0.75f, 123.0f});
    for (JImageLib::YCrCbIndex c : {JImageLib::Y, JImageLib::Cr, JImageLib::Cb})
        EXPECT_EQ(floatBits(pullChannel(a, c)[0]), floatBits(pullChannel(b, c)[0])) << c;
}

TEST(RGBXToYCrCbTest, InputRowsAreReleasedAfterAPull)
{
    const int w = 5, h = 7;
    RGBXNode rgbx(w, h, murmex_test::mixedRGBX(w, h, 2));
    JIncrRaster_RGBXToYCrCb node(&rgbx, JImageLib::Cb);
    EXPECT_EQ(node.width(), w);
    EXPECT_EQ(node.height(), h);
    murmex_test::pullPlane(node);
    for (int j = 0; j < h; ++j) {
        EXPECT_EQ(rgbx.refCount(j), 0) << j;
        EXPECT_FALSE(rgbx.rowPresent(j)) << j;
    }
}

TEST(RGBXToYCrCbTest, ConvertsAdapterRows)
{
    murmex_test::MemoryImage img(4, 2);
    img.setPixel(0, 0, 65535, 65535, 65535);
    img.setPixel(1, 0, 0, 0, 0);
    img.setPixel(2, 0, 1000, 20000, 40000);
    img.setPixel(3, 1, 65535, 0, 32768);
    JIncrRaster_AdapterToRGBX rgbx(&img, 0, 3);
    const std::vector<float> y = pullChannel(rgbx, JImageLib::Y);
    const std::vector<float> cr = pullChannel(rgbx, JImageLib::Cr);
    for (int j = 0; j < 2; ++j)
        for (int x = 0; x < 4; ++x) {
            const float R = static_cast<float>(img.at(x, j, 0)) * 1.5259022e-05f;
            const float G = static_cast<float>(img.at(x, j, 1)) * 1.5259022e-05f;
            const float B = static_cast<float>(img.at(x, j, 2)) * 1.5259022e-05f;
            EXPECT_EQ(floatBits(y[j * 4 + x]), floatBits(literalY(R, G, B)));
            EXPECT_EQ(floatBits(cr[j * 4 + x]), floatBits(literalCr(R, G, B)));
        }
}

}  // namespace
