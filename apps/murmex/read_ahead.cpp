#include "read_ahead.h"

#include "interrupt.h"

namespace murmex_app {
namespace {

// Thrown from the decoder's row loop to end a read that is no longer wanted.
struct ReadStopped {};

}  // namespace

ImageReadAhead::ImageReadAhead(const std::string& path, const ReadLimits& limits)
{
    image_.layout = Image::Layout::Source;
    image_.watch = this;
    // A new thread starts with its creator's signal mask: the signals stay
    // with the program's other threads.
    SignalBlock block;
    thread_ = std::thread([this, path, limits] {
        std::exception_ptr error;
        bool read = false, stopped = false;
        try {
            read = readImageInPlace(path, limits, image_);
        } catch (const ReadStopped&) {
            stopped = true;
        } catch (...) {
            error = std::current_exception();
        }
        std::lock_guard<std::mutex> lock(mutex_);
        if (!read && !error && !stopped) {
            // Camera raw: read at once (in a fresh image, as a decoder
            // trying several formats needs).
            try {
                Image whole = readImage(path, limits, Image::Layout::Source);
                whole.watch = this;
                image_ = std::move(whole);
                rows_ = image_.height;
                started_ = true;
            } catch (...) {
                error = std::current_exception();
            }
        }
        error_ = error;
        if (error)
            failed_.store(true, std::memory_order_release);
        done_ = true;
        changed_.notify_all();
    });
}

ImageReadAhead::~ImageReadAhead()
{
    stop();
}

void ImageReadAhead::stop()
{
    stopping_.store(true, std::memory_order_release);
    if (thread_.joinable())
        thread_.join();
}

void ImageReadAhead::started()
{
    std::lock_guard<std::mutex> lock(mutex_);
    started_ = true;
    changed_.notify_all();
}

void ImageReadAhead::stored(int rows)
{
    rows_.store(rows, std::memory_order_release);
    {
        std::lock_guard<std::mutex> lock(mutex_);
        changed_.notify_all();
    }
    // The decoders keep their files and library state in objects that close
    // them as this unwinds.
    if (stopping_.load(std::memory_order_acquire))
        throw ReadStopped{};
}

bool ImageReadAhead::waitFor(int y) const
{
    if (rows_.load(std::memory_order_acquire) > y)
        return true;
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [&] { return rows_.load(std::memory_order_acquire) > y || done_; });
    return rows_.load(std::memory_order_acquire) > y;
}

Image& ImageReadAhead::image()
{
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [&] { return started_ || done_; });
    if (error_ && !started_)
        std::rethrow_exception(error_);
    return image_;
}

Image& ImageReadAhead::finish()
{
    if (thread_.joinable())
        thread_.join();
    if (error_)
        std::rethrow_exception(error_);
    image_.watch = nullptr;
    return image_;
}

}  // namespace murmex_app
