#include "base/image_region_adapter.h"

#include <vector>

#include <gtest/gtest.h>

#include "support/memory_image.h"

namespace {

struct Call {
    int y, xStart, xEnd;
    const unsigned short* pixels;
};

class Recorder : public JImageAdapter {
public:
    int width() override { return 500; }
    int height() override { return 400; }
    void getScanline(int y, int xStart, int xEnd, unsigned short* pixels) override
    {
        gets.push_back({y, xStart, xEnd, pixels});
    }
    void putScanline(int y, int xStart, int xEnd, const unsigned short* pixels) override
    {
        puts.push_back({y, xStart, xEnd, pixels});
    }
    std::vector<Call> gets, puts;
};

}  // namespace

TEST(ImageRegionAdapterTest, RegionAnswersItsSizeAndColumnRange)
{
    Recorder parent;
    JRect<int> region(10, 20, 110, 70);
    JImageRegionAdapter a(&parent, region);
    EXPECT_EQ(a.width(), 100);
    EXPECT_EQ(a.height(), 50);
    EXPECT_EQ(a.minXIndex(), -10);
    EXPECT_EQ(a.maxXIndex(), 89);
}

TEST(ImageRegionAdapterTest, RequestsAreShiftedToTheParent)
{
    Recorder parent;
    JRect<int> region(10, 20, 110, 70);
    JImageRegionAdapter a(&parent, region);
    unsigned short buf[400];
    a.getScanline(0, 0, 99, buf);
    ASSERT_EQ(parent.gets.size(), 1u);
    EXPECT_EQ(parent.gets[0].y, 20);
    EXPECT_EQ(parent.gets[0].xStart, 10);
    EXPECT_EQ(parent.gets[0].xEnd, 109);
    EXPECT_EQ(parent.gets[0].pixels, buf);
    a.putScanline(3, 5, 6, buf);
    ASSERT_EQ(parent.puts.size(), 1u);
    EXPECT_EQ(parent.puts[0].y, 23);
    EXPECT_EQ(parent.puts[0].xStart, 15);
    EXPECT_EQ(parent.puts[0].xEnd, 16);
}

TEST(ImageRegionAdapterTest, CoordinatesOutsideTheRegionArePassedOnShiftedWithoutClipping)
{
    Recorder parent;
    JImageRegionAdapter a(&parent, JRect<int>(10, 20, 110, 70));
    unsigned short buf[4];
    a.getScanline(-5, -10, 120, buf);
    ASSERT_EQ(parent.gets.size(), 1u);
    EXPECT_EQ(parent.gets[0].y, 15);
    EXPECT_EQ(parent.gets[0].xStart, 0);
    EXPECT_EQ(parent.gets[0].xEnd, 130);
}

TEST(ImageRegionAdapterTest, MaxXIndexUsesTheRegionWidthNotTheParents)
{
    Recorder parent;  // 500 columns
    JImageRegionAdapter a(&parent, JRect<int>(300, 0, 340, 10));
    // Region width 40: 40 - 300 - 1, although the parent has columns up to 499.
    EXPECT_EQ(a.maxXIndex(), -261);
}

TEST(ImageRegionAdapterTest, ReadsAndWritesThePixelsOfTheParentImage)
{
    murmex_test::MemoryImage image(8, 6);
    for (int y = 0; y < 6; ++y)
        for (int x = 0; x < 8; ++x)
            image.setPixel(x, y, static_cast<uint16_t>(100 * y + x), 2, 3);
    JImageRegionAdapter a(&image, JRect<int>(2, 1, 6, 5));
    unsigned short row[4 * 4];
    a.getScanline(2, 0, 3, row);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(row[4 * i], 100 * 3 + 2 + i);
    row[0] = 7777;
    a.putScanline(0, 0, 0, row);
    EXPECT_EQ(image.at(2, 1, 0), 7777);
}
