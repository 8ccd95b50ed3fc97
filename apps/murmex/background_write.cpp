#include "background_write.h"

#include "interrupt.h"

namespace murmex_app {

BackgroundWrite::BackgroundWrite(const std::string& path, const Image& image, RowSource& rows, ImageFormat format,
                                 const WriteOptions& options, std::function<void()> failed)
    : height_(image.height)
{
    WriteOptions mine = options;
    mine.progress = [this](float) {
        std::lock_guard<std::mutex> lock(mutex_);
        ++rowsDone_;
        changed_.notify_all();
    };
    // A new thread starts with its creator's signal mask.
    SignalBlock block;
    thread_ = std::thread([this, path, &image, &rows, format, mine, failed = std::move(failed)] {
        std::exception_ptr error;
        try {
            writeImage(path, image, rows, format, mine);
        } catch (...) {
            error = std::current_exception();
            if (failed)
                failed();
        }
        std::lock_guard<std::mutex> lock(mutex_);
        error_ = error;
        finished_ = true;
        changed_.notify_all();
    });
}

BackgroundWrite::~BackgroundWrite()
{
    if (thread_.joinable())
        thread_.join();
}

void BackgroundWrite::wait(const std::function<void(float)>& progress)
{
    int shown = 0;
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        changed_.wait(lock, [&] { return finished_ || rowsDone_ != shown; });
        const int done = rowsDone_;
        const bool finished = finished_;
        lock.unlock();
        for (; shown < done; ++shown)
            progress(static_cast<float>(shown + 1) / static_cast<float>(height_));
        if (finished)
            break;
        lock.lock();
    }
    thread_.join();
    if (error_)
        std::rethrow_exception(error_);
}

}  // namespace murmex_app
