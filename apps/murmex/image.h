// An image as the application holds it between reading and writing: 16-bit
// RGBX samples whatever the source was, with the source's alpha and ICC
// profile kept aside so that they can be written back; or, for a run that
// streams the image through the denoiser, the source's own samples.
#pragma once

#include <cstdint>
#include <vector>

namespace murmex_app {

// The print resolution: pixels per unit across and down. Unit None keeps
// only the pixels' aspect ratio (and no values at all when x and y are 0).
struct Resolution {
    enum Unit { None, Inch, Centimetre };
    double x = 0, y = 0;
    Unit unit = None;
    bool present() const { return x > 0 && y > 0; }
};

// The rows of an image that a reader on another thread is still storing
// (ImageReadAhead). The reader calls started() once the size, the channels
// and the metadata are set and stored() after each row; the image's users
// wait for the rows they read.
class RowWatch {
public:
    virtual void started() = 0;
    virtual void stored(int rows) = 0;
    // Blocks until row y is stored; false when the read failed first.
    virtual bool waitFor(int y) const = 0;
    virtual bool failed() const = 0;

protected:
    ~RowWatch() = default;
};

struct Image {
    // Rgbx: rgbx and alpha hold the pixels. Source: samples holds them as the
    // source stores them, a quarter to a half smaller, converted to RGBX row
    // by row as they are read.
    enum class Layout { Rgbx, Source };
    Layout layout = Layout::Rgbx;
    int width = 0, height = 0;
    int bitsPerSample = 16;          // of the source file: 8 or 16
    int sourceChannels = 3;          // 1 grey, 2 grey+alpha, 3 RGB, 4 RGBA
    std::vector<uint16_t> rgbx;      // width*height*4 samples, R G B X, full scale 65535, X = 65535
    std::vector<uint16_t> alpha;     // width*height alpha samples (16-bit scale) when the source had alpha, else empty
    std::vector<uint16_t> samples;   // Source layout: width*height*sourceChannels samples (8-bit ones scaled by 257)
    std::vector<uint8_t> icc;        // embedded ICC profile, empty if none
    Resolution resolution;           // of the source, written back to every format
    RowWatch* watch = nullptr;       // while a reader on another thread stores the rows, else null
};

}  // namespace murmex_app
