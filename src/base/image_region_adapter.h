// JImageRegionAdapter: a rectangle of another adapter presented as an image
// of its own, with coordinates relative to the rectangle's corner.
//
// Requests are passed to the parent shifted by (left, top) without clipping:
// coordinates outside the region reach the parent shifted. minXIndex() is the
// parent's column 0 seen from the region (-left). maxXIndex() is the region's
// own width() - left - 1: deliberately the region's width and not the
// parent's; the nodes that read a region rely on this bound.
// The parent is not owned and must outlive the adapter.
#pragma once

#include "base/image_adapter.h"
#include "base/rect.h"

class JImageRegionAdapter : public JImageAdapter {
public:
    JImageRegionAdapter(JImageAdapter* parent, const JRect<int>& region);

    int width() override { return width_; }
    int height() override { return height_; }
    void getScanline(int y, int xStart, int xEnd, unsigned short* pixels) override;
    void putScanline(int y, int xStart, int xEnd, const unsigned short* pixels) override;
    int minXIndex() override;
    int maxXIndex() override;

private:
    JImageAdapter* parent_;
    int left_;
    int top_;
    int width_;
    int height_;
};
