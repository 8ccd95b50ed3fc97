// JImageAdapter: scanline access to an image the engine does not own.
//
// Pixels travel as packed 16-bit RGBX (red, green, blue, x), native byte
// order, full scale 65535. A segment covers columns xStart..xEnd of row y,
// both ends inclusive: xEnd - xStart + 1 pixels.
#pragma once

class JImageAdapter {
public:
    virtual int width() = 0;
    virtual int height() = 0;
    virtual void getScanline(int y, int xStart, int xEnd, unsigned short* pixels) = 0;
    virtual void putScanline(int y, int xStart, int xEnd, const unsigned short* pixels) = 0;
    // Row y, columns xStart..xEnd, has been written completely. The denoise
    // driver calls it on the output adapter for every row of a finished batch.
    virtual void resampleInterleaved(int y, int xStart, int xEnd)
    {
        (void)y;
        (void)xStart;
        (void)xEnd;
    }
    // The lowest and highest column index that may be requested.
    virtual int minXIndex() { return 0; }
    virtual int maxXIndex() { return width() - 1; }
    virtual ~JImageAdapter() = default;
};
