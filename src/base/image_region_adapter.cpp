#include "base/image_region_adapter.h"

JImageRegionAdapter::JImageRegionAdapter(JImageAdapter* parent, const JRect<int>& region)
    : parent_(parent), left_(region.left), top_(region.top), width_(region.width()), height_(region.height())
{
}

void JImageRegionAdapter::getScanline(int y, int xStart, int xEnd, unsigned short* pixels)
{
    parent_->getScanline(y + top_, xStart + left_, xEnd + left_, pixels);
}

void JImageRegionAdapter::putScanline(int y, int xStart, int xEnd, const unsigned short* pixels)
{
    parent_->putScanline(y + top_, xStart + left_, xEnd + left_, pixels);
}

int JImageRegionAdapter::minXIndex()
{
    return -left_;
}

int JImageRegionAdapter::maxXIndex()
{
    return width() - left_ - 1;
}
