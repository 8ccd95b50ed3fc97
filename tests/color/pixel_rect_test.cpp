#include "color/pixel_rect.h"

#include <cmath>
#include <cstring>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "color/lab_coord.h"
#include "color/pixel.h"
#include "support/memory_image.h"
#include "support/simd_paths.h"

using murmex_test::MemoryImage;

TEST(PixelRectTest, ConstructedEmptyWithNullPlanes)
{
    JPixelRect r(4);
    EXPECT_EQ(r.width, 0);
    EXPECT_EQ(r.height, 0);
    EXPECT_EQ(r.channels, 4);
    for (int c = 0; c < 4; c++)
        EXPECT_EQ(r.planes[c], nullptr);
}

TEST(PixelRectTest, SetDimensionsWithSameSizeKeepsContents)
{
    JPixelRect r(2);
    r.setDimensions(3, 2);
    for (int i = 0; i < 6; i++) {
        r.planes[0][i] = static_cast<float>(i);
        r.planes[1][i] = static_cast<float>(10 + i);
    }
    float* before = r.planes[0];
    r.setDimensions(3, 2);
    EXPECT_EQ(r.planes[0], before);
    for (int i = 0; i < 6; i++) {
        EXPECT_EQ(r.planes[0][i], static_cast<float>(i));
        EXPECT_EQ(r.planes[1][i], static_cast<float>(10 + i));
    }
}

TEST(PixelRectTest, SetDimensionsWithOtherSizeReallocates)
{
    JPixelRect r(1);
    r.setDimensions(3, 2);
    r.setDimensions(2, 3);
    EXPECT_EQ(r.width, 2);
    EXPECT_EQ(r.height, 3);
    ASSERT_NE(r.planes[0], nullptr);
    // The new plane is writable over its whole size.
    for (int i = 0; i < 6; i++)
        r.planes[0][i] = 1.0f;
    r.setDimensions(5, 5);
    EXPECT_EQ(r.width, 5);
    EXPECT_EQ(r.height, 5);
    for (int i = 0; i < 25; i++)
        r.planes[0][i] = 2.0f;
}

TEST(PixelRectTest, SetDimensionsKeepsStorageLargeEnoughAndReleaseFreesIt)
{
    JPixelRect r(2);
    r.setDimensions(4, 4);
    float* before[2] = {r.planes[0], r.planes[1]};
    r.setDimensions(2, 3);
    EXPECT_EQ(r.width, 2);
    EXPECT_EQ(r.height, 3);
    EXPECT_EQ(r.planes[0], before[0]);
    EXPECT_EQ(r.planes[1], before[1]);
    r.setDimensions(4, 4);
    EXPECT_EQ(r.planes[0], before[0]);
    // More than it holds: new storage, writable over its whole size.
    r.setDimensions(5, 4);
    for (int i = 0; i < 20; i++)
        r.planes[1][i] = 3.0f;
    r.release();
    EXPECT_EQ(r.width, 0);
    EXPECT_EQ(r.height, 0);
    EXPECT_EQ(r.planes[0], nullptr);
    EXPECT_EQ(r.planes[1], nullptr);
}

TEST(PixelRectTest, MeanSumsInDouble)
{
    JPixelRect r(1);
    r.setDimensions(2, 2);
    // In float, 16777216 + 1 + 1 stays 16777216; in double the sum is 16777218.
    r.planes[0][0] = 16777216.0f;
    r.planes[0][1] = 1.0f;
    r.planes[0][2] = 1.0f;
    r.planes[0][3] = 0.0f;
    EXPECT_EQ(r.mean(r.planes[0]), 4194304.5f);
}

TEST(PixelRectTest, MeanOfEmptyRectangleIsNaN)
{
    JPixelRect r(1);
    float dummy = 0.0f;
    EXPECT_TRUE(std::isnan(r.mean(&dummy)));
}

TEST(PixelRectTest, LoadYCrCbConvertsEachPixelAndPrintsDiagnosticLine)
{
    MemoryImage img(8, 6);
    for (int y = 0; y < 6; y++)
        for (int x = 0; x < 8; x++)
            img.setPixel(x, y, static_cast<uint16_t>(1000 * x + 7 * y), static_cast<uint16_t>(300 * y),
                         static_cast<uint16_t>(65535 - 5000 * x));
    JPixelRect r(3);
    JRect<int> rect(2, 1, 6, 4);
    testing::internal::CaptureStdout();
    r.loadYCrCb(&img, rect);
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out, "w: 4 h: 3 l: 2 r: 6 t: 1 b: 4\n");
    ASSERT_EQ(r.width, 4);
    ASSERT_EQ(r.height, 3);
    for (int y = 0; y < 3; y++) {
        for (int x = 0; x < 4; x++) {
            JPixel p{img.at(x + 2, y + 1, 0), img.at(x + 2, y + 1, 1), img.at(x + 2, y + 1, 2), 65535};
            float yy, cr, cb;
            p.toYCrCb(yy, cr, cb);
            EXPECT_EQ(r.planes[0][y * 4 + x], yy);
            EXPECT_EQ(r.planes[1][y * 4 + x], cr);
            EXPECT_EQ(r.planes[2][y * 4 + x], cb);
        }
    }
}

TEST(PixelRectTest, LoadYCrCbGivesToYCrCbBitsOnEveryPath)
{
    // Random 16-bit samples (extremes included), widths around the vector
    // sizes, a rectangle that starts off the image's first column.
    for (int w : {1, 7, 8, 9, 15, 16, 17, 31, 33, 203}) {
        const int h = 3;
        MemoryImage img(w + 5, h);
        std::mt19937 rng(static_cast<unsigned>(w));
        std::uniform_int_distribution<int> sample(0, 65535);
        for (int y = 0; y < h; y++)
            for (int x = 0; x < w + 5; x++)
                img.setPixel(x, y, static_cast<uint16_t>(x % 11 == 0 ? 65535 : sample(rng)),
                             static_cast<uint16_t>(x % 13 == 0 ? 0 : sample(rng)), static_cast<uint16_t>(sample(rng)),
                             static_cast<uint16_t>(sample(rng)));
        JRect<int> rect(3, 0, 3 + w, h);
        murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& path) {
            JPixelRect r(3);
            testing::internal::CaptureStdout();
            r.loadYCrCb(&img, rect);
            testing::internal::GetCapturedStdout();
            for (int y = 0; y < h; y++)
                for (int x = 0; x < w; x++) {
                    JPixel p{img.at(x + 3, y, 0), img.at(x + 3, y, 1), img.at(x + 3, y, 2), img.at(x + 3, y, 3)};
                    float want[3];
                    p.toYCrCb(want[0], want[1], want[2]);
                    for (int c = 0; c < 3; c++)
                        ASSERT_EQ(std::memcmp(&r.planes[c][y * w + x], &want[c], sizeof(float)), 0)
                            << path.name() << ", width " << w << ", pixel " << x << "," << y << ", plane " << c;
                }
        });
    }
}

TEST(PixelRectTest, LoadLabConvertsEachPixelWithoutPrinting)
{
    MemoryImage img(5, 5);
    for (int y = 0; y < 5; y++)
        for (int x = 0; x < 5; x++)
            img.setPixel(x, y, static_cast<uint16_t>(10000 * x), static_cast<uint16_t>(12000 * y), 30000);
    JPixelRect r(3);
    JRect<int> rect(1, 2, 4, 5);
    testing::internal::CaptureStdout();
    r.loadLab(&img, rect);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    ASSERT_EQ(r.width, 3);
    ASSERT_EQ(r.height, 3);
    for (int y = 0; y < 3; y++) {
        for (int x = 0; x < 3; x++) {
            JPixel p{img.at(x + 1, y + 2, 0), img.at(x + 1, y + 2, 1), img.at(x + 1, y + 2, 2), 65535};
            JLabCoord lab;
            lab.fromPixel(p);
            EXPECT_EQ(r.planes[0][y * 3 + x], lab.L);
            EXPECT_EQ(r.planes[1][y * 3 + x], lab.a);
            EXPECT_EQ(r.planes[2][y * 3 + x], lab.b);
        }
    }
}
