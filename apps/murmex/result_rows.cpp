#include "result_rows.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "app_error.h"
#include "image_formats.h"

namespace murmex_app {

ResultRows::ResultRows(const Image& source)
    : source_(source),
      width_(source.width),
      height_(source.height),
      channels_(detail::outputChannels(source)),
      rows_(static_cast<size_t>(std::max(0, source.height)))
{
}

void ResultRows::convert(int y, int x0, int x1, const uint16_t* in, uint16_t* out) const
{
    detail::packPixels(source_, y, x0, x1, in, out);
}

bool ResultRows::covered(const Row& r) const
{
    std::vector<std::pair<int, int>> spans;
    spans.reserve(r.pieces.size());
    for (const Piece& p : r.pieces)
        spans.emplace_back(p.x0, p.x1);
    std::sort(spans.begin(), spans.end());
    int next = 0;  // the first column not covered yet
    for (const auto& [x0, x1] : spans) {
        if (x0 > next)
            return false;
        next = std::max(next, x1 + 1);
    }
    return next >= width_;
}

std::vector<uint16_t> ResultRows::takeBuffer()
{
    if (pool_.empty())
        return std::vector<uint16_t>(static_cast<size_t>(width_) * static_cast<size_t>(channels_));
    std::vector<uint16_t> buffer = std::move(pool_.back());
    pool_.pop_back();
    return buffer;
}

void ResultRows::assemble(Row& r, std::vector<uint16_t> base)
{
    for (const Piece& p : r.pieces)
        std::memcpy(base.data() + static_cast<size_t>(p.x0) * channels_, p.samples.data(),
                    p.samples.size() * sizeof(uint16_t));
    r.whole = std::move(base);
    std::vector<Piece>().swap(r.pieces);
}

void ResultRows::put(int y, int x0, int x1, const uint16_t* rgbx)
{
    if (y < 0 || y >= height_ || x0 < 0 || x1 >= width_ || x1 < x0 || writerStopped())
        return;
    const bool wholeRow = x0 == 0 && x1 == width_ - 1;
    std::vector<uint16_t> samples;
    if (wholeRow) {
        std::lock_guard<std::mutex> lock(mutex_);
        samples = takeBuffer();
    } else {
        samples.resize(static_cast<size_t>(x1 - x0 + 1) * static_cast<size_t>(channels_));
    }
    convert(y, x0, x1, rgbx, samples.data());
    std::lock_guard<std::mutex> lock(mutex_);
    if (writerStopped())
        return;
    Row& r = rows_[static_cast<size_t>(y)];
    // The library puts each column of a row once (strips share their edge
    // column, computed alike by both); a put to a complete row that the
    // writer has not taken yet still counts, the later values winning.
    if (r.written)
        return;
    if (!r.whole.empty()) {
        std::memcpy(r.whole.data() + static_cast<size_t>(x0) * channels_, samples.data(),
                    samples.size() * sizeof(uint16_t));
        return;
    }
    if (wholeRow && r.pieces.empty()) {
        r.whole = std::move(samples);
    } else {
        r.pieces.push_back(Piece{x0, x1, std::move(samples)});
        if (!covered(r))
            return;
        assemble(r, takeBuffer());
    }
    completed(y);
}

bool ResultRows::complete(int from, int to) const
{
    for (int y = from; y <= to; ++y)
        if (rows_[static_cast<size_t>(y)].whole.empty())
            return false;
    return true;
}

void ResultRows::completed(int y)
{
    if (waitFrom_ >= 0 && y >= waitFrom_ && y <= waitTo_ && complete(waitFrom_, waitTo_))
        ready_.notify_all();
}

void ResultRows::finish()
{
    const std::vector<uint16_t> black(static_cast<size_t>(width_) * 4, 0);
    std::lock_guard<std::mutex> lock(mutex_);
    if (writerStopped())
        return;
    for (int y = 0; y < height_; ++y) {
        Row& r = rows_[static_cast<size_t>(y)];
        if (r.whole.empty() && !r.written) {
            std::vector<uint16_t> base = takeBuffer();
            convert(y, 0, width_ - 1, black.data(), base.data());
            assemble(r, std::move(base));
        }
    }
    ready_.notify_all();
}

void ResultRows::close()
{
    std::lock_guard<std::mutex> lock(mutex_);
    closed_ = true;
    std::vector<Row>(rows_.size()).swap(rows_);
    std::vector<std::vector<uint16_t>>().swap(pool_);
    taken_ = -1;
}

void ResultRows::abandon()
{
    std::lock_guard<std::mutex> lock(mutex_);
    abandoned_ = true;
    ready_.notify_all();
}

bool ResultRows::writerWaiting()
{
    std::lock_guard<std::mutex> lock(mutex_);
    return waitFrom_ >= 0;
}

uint16_t* ResultRows::row(int y)
{
    std::unique_lock<std::mutex> lock(mutex_);
    if (taken_ >= 0) {
        pool_.push_back(std::move(rows_[static_cast<size_t>(taken_)].whole));
        taken_ = -1;
    }
    Row& r = rows_.at(static_cast<size_t>(y));
    if (!abandoned_ && r.whole.empty()) {
        waitFrom_ = y;
        waitTo_ = std::min(y + kWakeRows, height_) - 1;
        ready_.wait(lock, [&] { return abandoned_ || complete(waitFrom_, waitTo_); });
        waitFrom_ = waitTo_ = -1;
    }
    if (abandoned_)
        throw AppError("the denoising stopped before the image was complete");
    r.written = true;
    taken_ = y;
    // No row needs a buffer after the last.
    if (y == height_ - 1)
        std::vector<std::vector<uint16_t>>().swap(pool_);
    return r.whole.data();
}

}  // namespace murmex_app
