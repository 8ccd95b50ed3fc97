#include "denoise/raster/pixel_buffers.h"

JPixelBuffers::Lease JPixelBuffers::take()
{
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!free_.empty()) {
            std::unique_ptr<std::vector<JPixel>> row = std::move(free_.back());
            free_.pop_back();
            return Lease(*this, std::move(row));
        }
    }
    return Lease(*this, std::make_unique<std::vector<JPixel>>(pixels_, JPixel{0, 0, 0, 0}));
}

void JPixelBuffers::giveBack(std::unique_ptr<std::vector<JPixel>> row) noexcept
{
    std::lock_guard<std::mutex> lock(mutex_);
    try {
        free_.push_back(std::move(row));
    } catch (...) {
        // No room to keep it: the row is freed and the next take makes a new one.
    }
}
