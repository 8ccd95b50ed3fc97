#include "base/image_adapter.h"

#include <gtest/gtest.h>

namespace {

class Fixed : public JImageAdapter {
public:
    int width() override { return w; }
    int height() override { return 3; }
    void getScanline(int, int, int, unsigned short*) override {}
    void putScanline(int, int, int, const unsigned short*) override {}
    int w = 7;
};

}  // namespace

TEST(ImageAdapterTest, BaseColumnRangeIsZeroToWidthMinusOneThroughVirtualWidth)
{
    Fixed a;
    JImageAdapter& base = a;
    EXPECT_EQ(base.minXIndex(), 0);
    EXPECT_EQ(base.maxXIndex(), 6);
    a.w = 12;
    EXPECT_EQ(base.maxXIndex(), 11);
    base.resampleInterleaved(0, 0, 11);
}
