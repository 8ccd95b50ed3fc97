// Reading the input on a thread of its own while the library already works
// on the rows that are in: the library pulls rows through its scanline
// callback, top to bottom, and a row it asks for before it is decoded waits
// for it (readRgbx). Decoding a 12-megapixel 16-bit deflate TIFF takes about
// 0.3 s of one core, most of which now overlaps the library's work.
//
// Thread rules: everything from the one thread that made the object; the
// image's rows may be read (readRgbx) from any thread meanwhile.
#pragma once

#include <atomic>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <string>
#include <thread>

#include "image.h"
#include "image_io.h"

namespace murmex_app {

class ImageReadAhead : private RowWatch {
public:
    // Starts reading path (TIFF, PNG or JPEG) into an image in the Source
    // layout; other files (camera raw) are read here, at once.
    ImageReadAhead(const std::string& path, const ReadLimits& limits);
    // stop().
    ~ImageReadAhead();
    ImageReadAhead(const ImageReadAhead&) = delete;
    ImageReadAhead& operator=(const ImageReadAhead&) = delete;

    // The image once its size, channels and metadata are known (its rows may
    // still be arriving); throws the read's AppError when it failed before.
    Image& image();
    // Waits for the whole image and rethrows the read's error. The image is
    // then an ordinary one.
    Image& finish();
    // Stops the reader at its next row (a job that ends early need not wait
    // for the rest of the file) and waits for it; the image then holds the
    // rows read so far.
    void stop();
    // Rows decoded so far.
    int rowsRead() const { return rows_.load(std::memory_order_acquire); }

private:
    void started() override;
    void stored(int rows) override;
    bool waitFor(int y) const override;
    bool failed() const override { return failed_.load(std::memory_order_acquire); }

    Image image_;
    std::atomic<int> rows_{0};
    std::atomic<bool> failed_{false};
    std::atomic<bool> stopping_{false};
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    bool started_ = false, done_ = false;
    std::exception_ptr error_;
    std::thread thread_;
};

}  // namespace murmex_app
