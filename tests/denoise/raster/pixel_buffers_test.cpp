#include "denoise/raster/pixel_buffers.h"

#include <gtest/gtest.h>

namespace {

bool allZero(const JPixel* px, int n)
{
    for (int i = 0; i < n; ++i)
        if (px[i].red != 0 || px[i].green != 0 || px[i].blue != 0 || px[i].x != 0)
            return false;
    return true;
}

TEST(PixelBuffersTest, ANewRowIsZeroPixelsOfTheGivenLength)
{
    JPixelBuffers buffers(37);
    JPixelBuffers::Lease row = buffers.take();
    EXPECT_TRUE(allZero(row.data(), 37));
}

TEST(PixelBuffersTest, RowsTakenAtOnceAreDifferentRows)
{
    JPixelBuffers buffers(5);
    JPixelBuffers::Lease a = buffers.take();
    JPixelBuffers::Lease b = buffers.take();
    EXPECT_NE(a.data(), b.data());
}

TEST(PixelBuffersTest, ARowHandedBackKeepsWhatWasWrittenAndNothingElseChanges)
{
    // The writing end of a strip relies on this: pixels past the ones a row
    // conversion writes are read by the adapter and must stay zero.
    JPixelBuffers buffers(10);
    const JPixel* first;
    {
        JPixelBuffers::Lease row = buffers.take();
        first = row.data();
        for (int i = 0; i < 6; ++i)
            row.data()[i] = JPixel{1, 2, 3, 4};
    }
    JPixelBuffers::Lease again = buffers.take();
    EXPECT_EQ(again.data(), first);
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(again.data()[i].blue, 3) << i;
    EXPECT_TRUE(allZero(again.data() + 6, 4));
}

}  // namespace
