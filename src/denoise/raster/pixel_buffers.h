// JPixelBuffers: the pixel rows of the two ends of a strip, one per thread at
// work. AdapterToRGBX and ToRGB call their adapter one row at a time, under
// their own mutex; converting between floats and pixels needs no lock, so
// each thread converts in a row of its own and holds the mutex only for the
// adapter call. A row is taken for one conversion and handed back when its
// Lease ends; every row starts as `pixels` zero pixels, and only the pixels
// a conversion writes ever change, so the ones past them stay zero as in one
// row kept for the node's lifetime.
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "color/pixel.h"

class JPixelBuffers {
public:
    explicit JPixelBuffers(size_t pixels) : pixels_(pixels) {}

    class Lease {
    public:
        Lease(JPixelBuffers& owner, std::unique_ptr<std::vector<JPixel>> row) : owner_(owner), row_(std::move(row)) {}
        ~Lease() { owner_.giveBack(std::move(row_)); }
        Lease(const Lease&) = delete;
        Lease& operator=(const Lease&) = delete;
        JPixel* data() { return row_->data(); }

    private:
        JPixelBuffers& owner_;
        std::unique_ptr<std::vector<JPixel>> row_;
    };

    // A free row, or a new one.
    Lease take();
    // Pixels a row.
    size_t pixels() const { return pixels_; }

private:
    void giveBack(std::unique_ptr<std::vector<JPixel>> row) noexcept;

    const size_t pixels_;
    std::mutex mutex_;
    std::vector<std::unique_ptr<std::vector<JPixel>>> free_;
};
