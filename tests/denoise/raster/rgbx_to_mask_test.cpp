#include "denoise/raster/rgbx_to_mask.h"

#include <vector>

#include <gtest/gtest.h>

#include "denoise/raster/adapter_to_rgbx.h"
#include "support/bits.h"
#include "support/memory_image.h"
#include "support/planes.h"
#include "support/rgbx_node.h"

namespace {

using murmex_test::floatBits;

TEST(RGBXToMaskTest, TakesTheFourthFloatOfEveryPixel)
{
    const int w = 19, h = 4;
    murmex_test::RGBXNode rgbx(w, h, murmex_test::mixedRGBX(w, h, 77));
    JIncrRaster_RGBXToMask mask(&rgbx);
    EXPECT_EQ(mask.dataType(), JIncrRaster::Plane);
    const std::vector<float> plane = murmex_test::pullPlane(mask);
    for (int j = 0; j < h; ++j)
        for (int x = 0; x < w; ++x)
            ASSERT_EQ(floatBits(plane[static_cast<size_t>(j) * w + x]), floatBits(rgbx.at(x, j, 3)));
    for (int j = 0; j < h; ++j)
        EXPECT_EQ(rgbx.refCount(j), 0);
}

TEST(RGBXToMaskTest, FullScaleXChannelIsOne)
{
    murmex_test::MemoryImage img(3, 1);
    img.setPixel(0, 0, 1, 2, 3, 65535);
    img.setPixel(1, 0, 1, 2, 3, 0);
    img.setPixel(2, 0, 1, 2, 3, 32768);
    JIncrRaster_AdapterToRGBX rgbx(&img, 0, 2);
    JIncrRaster_RGBXToMask mask(&rgbx);
    const std::vector<float> plane = murmex_test::pullPlane(mask);
    EXPECT_NEAR(plane[0], 1.0f, 1e-6f);
    EXPECT_EQ(plane[1], 0.0f);
    EXPECT_EQ(plane[2], 32768.0f * 1.5259022e-05f);
}

}  // namespace
