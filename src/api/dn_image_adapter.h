// DnImageAdapter: the host's image behind the scanline adapter interface.
//
// Every request is forwarded unchanged to the host's callbacks, with the
// host's context as first argument. The put callback may be null when the
// adapter is only read from (profile building passes none); putScanline()
// then throws JEx, as getScanline() does without a get callback. Nothing else
// is checked, nothing is freed: the host keeps its context and buffers. The callbacks may be called
// from the engine's worker threads, one call at a time per reading or writing
// node.
#pragma once

#include "base/image_adapter.h"
#include "murmex/murmex.h"  // DnGetScanlineCallback, DnPutScanlineCallback

class DnImageAdapter : public JImageAdapter {
public:
    DnImageAdapter(void* hostContext, DnGetScanlineCallback getCallback, DnPutScanlineCallback putCallback,
                   int width, int height);

    int width() override { return width_; }
    int height() override { return height_; }
    void getScanline(int y, int xStart, int xEnd, unsigned short* pixels) override;
    void putScanline(int y, int xStart, int xEnd, const unsigned short* pixels) override;

private:
    void* hostContext_;
    DnGetScanlineCallback get_;
    DnPutScanlineCallback put_;
    int width_;
    int height_;
};
