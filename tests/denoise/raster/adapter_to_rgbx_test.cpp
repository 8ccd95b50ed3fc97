#include "denoise/raster/adapter_to_rgbx.h"

#include <random>

#include <gtest/gtest.h>

#include "support/bits.h"
#include "support/memory_image.h"

namespace {

using murmex_test::floatBits;
using murmex_test::MemoryImage;

void randomImage(MemoryImage& img, uint32_t seed)
{
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> sample(0, 65535);
    for (uint16_t& v : img.data())
        v = static_cast<uint16_t>(sample(rng));
}

TEST(AdapterToRGBXTest, FullScaleBecomesOneAndZeroStaysZero)
{
    MemoryImage img(2, 1);
    img.setPixel(0, 0, 65535, 65535, 65535, 65535);
    img.setPixel(1, 0, 0, 0, 0, 0);
    JIncrRaster_AdapterToRGBX node(&img, 0, 1);
    node.refScanline(0);
    const float* row = node.getScanline(0);
    for (int k = 0; k < 4; ++k) {
        EXPECT_NEAR(row[k], 1.0f, 1e-6f) << k;
        EXPECT_EQ(floatBits(row[4 + k]), floatBits(0.0f)) << k;
    }
    node.unrefScanline(0);
}

TEST(AdapterToRGBXTest, EverySampleIsScaledByTheRoundedReciprocal)
{
    MemoryImage img(13, 5);
    randomImage(img, 17);
    JIncrRaster_AdapterToRGBX node(&img, 0, 12);
    EXPECT_EQ(node.dataType(), JIncrRaster::RGBX);
    EXPECT_EQ(node.width(), 13);
    EXPECT_EQ(node.height(), 5);
    for (int y = 0; y < 5; ++y) {
        node.refScanline(y);
        const float* row = node.getScanline(y);
        for (int x = 0; x < 13; ++x)
            for (int k = 0; k < 4; ++k)
                ASSERT_EQ(floatBits(row[4 * x + k]), floatBits(static_cast<float>(img.at(x, y, k)) * 1.5259022e-05f))
                    << x << "," << y << "," << k;
        node.unrefScanline(y);
    }
}

TEST(AdapterToRGBXTest, ReadsOnlyItsColumnRange)
{
    MemoryImage img(12, 3);
    randomImage(img, 3);
    JIncrRaster_AdapterToRGBX node(&img, 4, 9);
    EXPECT_EQ(node.width(), 6);
    node.refScanline(2);
    const float* row = node.getScanline(2);
    for (int x = 0; x < 6; ++x)
        for (int k = 0; k < 4; ++k)
            EXPECT_EQ(row[4 * x + k], static_cast<float>(img.at(x + 4, 2, k)) * 1.5259022e-05f);
    node.unrefScanline(2);
    EXPECT_EQ(img.getCalls(), 1);
}

TEST(AdapterToRGBXTest, MarginsMirrorWholePixels)
{
    MemoryImage img(5, 2);
    randomImage(img, 8);
    JIncrRaster_AdapterToRGBX node(&img, 0, 4);
    node.requestReflection(2);
    node.refScanline(0);
    const float* row = node.getScanline(0);
    for (int k = 0; k < 4; ++k) {
        EXPECT_EQ(row[-4 + k], row[4 + k]);       // pixel -1 = pixel 1
        EXPECT_EQ(row[-8 + k], row[8 + k]);       // pixel -2 = pixel 2
        EXPECT_EQ(row[4 * 5 + k], row[4 * 3 + k]);  // pixel W = pixel W-2
    }
    node.unrefScanline(0);
}

TEST(AdapterToRGBXTest, RowsOutsideTheImageReadTheirMirroredRow)
{
    MemoryImage img(3, 4);
    randomImage(img, 21);
    JIncrRaster_AdapterToRGBX node(&img, 0, 2);
    node.refScanline(-1);
    const float* row = node.getScanline(-1);
    for (int x = 0; x < 3; ++x)
        EXPECT_EQ(row[4 * x], static_cast<float>(img.at(x, 1, 0)) * 1.5259022e-05f);
    node.unrefScanline(-1);
}

}  // namespace
