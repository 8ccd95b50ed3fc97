#include "api/dn_image_adapter.h"

#include <vector>

#include <gtest/gtest.h>

#include "base/ex.h"

namespace {

struct HostCall {
    void* context;
    int y, xStart, xEnd;
    unsigned short* pixels;
};

struct Host {
    std::vector<HostCall> gets, puts;
};

void hostGet(void* context, int y, int xStart, int xEnd, unsigned short* pixels)
{
    static_cast<Host*>(context)->gets.push_back({context, y, xStart, xEnd, pixels});
    for (int i = 0; i < (xEnd - xStart + 1) * 4; ++i)
        pixels[i] = static_cast<unsigned short>(y * 1000 + xStart + i);
}

void hostPut(void* context, int y, int xStart, int xEnd, unsigned short* pixels)
{
    static_cast<Host*>(context)->puts.push_back({context, y, xStart, xEnd, pixels});
}

}  // namespace

TEST(DnImageAdapterTest, StoresSizeAsGiven)
{
    Host host;
    DnImageAdapter a(&host, hostGet, hostPut, 640, 480);
    EXPECT_EQ(a.width(), 640);
    EXPECT_EQ(a.height(), 480);
    EXPECT_EQ(a.minXIndex(), 0);
    EXPECT_EQ(a.maxXIndex(), 639);
}

TEST(DnImageAdapterTest, ForwardsRequestsUnchangedWithTheHostContext)
{
    Host host;
    DnImageAdapter a(&host, hostGet, hostPut, 10, 10);
    unsigned short px[3 * 4];
    a.getScanline(4, -1, 1, px);
    ASSERT_EQ(host.gets.size(), 1u);
    EXPECT_EQ(host.gets[0].context, &host);
    EXPECT_EQ(host.gets[0].y, 4);
    EXPECT_EQ(host.gets[0].xStart, -1);
    EXPECT_EQ(host.gets[0].xEnd, 1);
    EXPECT_EQ(host.gets[0].pixels, px);
    EXPECT_EQ(px[0], 4000 - 1);
    EXPECT_EQ(px[11], 4000 - 1 + 11);

    a.putScanline(7, 2, 2, px);
    ASSERT_EQ(host.puts.size(), 1u);
    EXPECT_EQ(host.puts[0].context, &host);
    EXPECT_EQ(host.puts[0].y, 7);
    EXPECT_EQ(host.puts[0].xStart, 2);
    EXPECT_EQ(host.puts[0].xEnd, 2);
    EXPECT_EQ(host.puts[0].pixels, px);
    EXPECT_EQ(host.gets.size(), 1u);
}

TEST(DnImageAdapterTest, NullPutCallbackServesReadingOnly)
{
    Host host;
    JImageAdapter* a = new DnImageAdapter(&host, hostGet, nullptr, 5, 2);
    unsigned short px[5 * 4];
    a->getScanline(1, 0, 4, px);
    EXPECT_EQ(host.gets.size(), 1u);
    EXPECT_EQ(px[0], 1000);
    EXPECT_THROW(a->putScanline(1, 0, 4, px), JEx);
    delete a;  // through the virtual destructor; the host's context is untouched
    EXPECT_EQ(host.puts.size(), 0u);
}
