// JPixelRect: a small multi-channel float image, one plane per channel.
//
// Either a rectangle of an image read through a JImageAdapter and converted
// to YCrCb or L*a*b* planes, or a grid of per-block statistics. Each plane
// holds width x height floats in row order.
#pragma once

#include <cstddef>

#include "base/image_adapter.h"
#include "base/rect.h"

class JPixelRect {
public:
    explicit JPixelRect(int channels);
    virtual ~JPixelRect();

    JPixelRect(const JPixelRect&) = delete;
    JPixelRect& operator=(const JPixelRect&) = delete;

    // The same size keeps the contents; any other size leaves every plane
    // with undefined contents, in the storage it has when that holds w x h
    // values (so a reader of tiles of a few sizes allocates once), else in
    // storage allocated anew.
    void setDimensions(int w, int h);
    // Frees every plane (each null, 0 x 0).
    void release();

    // Reads rectangle r as Y, Cr, Cb into planes 0, 1, 2 and prints the
    // diagnostic line "w: .. h: .. l: .. r: .. t: .. b: .." on standard
    // output. Needs three channels. Runs 16 or 8 pixels at a time on a vector
    // unit (pixel_rect_simd.cpp), with the same bits as JPixel::toYCrCb.
    void loadYCrCb(JImageAdapter* image, JRect<int>& r);
    // loadYCrCb in two parts: the diagnostic line alone, and the reading
    // without it (for readers that print their lines in an order of their own).
    static void printLoadLine(const JRect<int>& r);
    void readYCrCb(JImageAdapter* image, const JRect<int>& r);
    // Reads rectangle r as L, a, b into planes 0, 1, 2. Needs three channels.
    void loadLab(JImageAdapter* image, JRect<int>& r);

    // Mean of width x height values from plane: summed in double, the sum
    // rounded to float and divided by width x height as float. An empty
    // rectangle gives NaN.
    float mean(float* plane) const;

    float* plane(int c) const { return planes[c]; }

    int width;
    int height;
    float** planes;
    int channels;

private:
    size_t capacity_ = 0;  // values each plane's storage holds
};
