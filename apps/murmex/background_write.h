// Writing an image file on a thread of its own while the program goes on,
// e.g. while the library still denoises the rows the writer will take next.
#pragma once

#include <condition_variable>
#include <exception>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "image_io.h"

namespace murmex_app {

class BackgroundWrite {
public:
    // Starts writeImage(path, image, rows, format, options) on a new thread
    // with SIGINT, SIGTERM and SIGHUP blocked, so that the program's other
    // threads handle them. options.progress is not called; wait() reports
    // instead. A write that fails calls failed() on its thread at once (e.g.
    // to stop whatever makes the rows), before wait() reports the error.
    // image and rows must outlive the write.
    BackgroundWrite(const std::string& path, const Image& image, RowSource& rows, ImageFormat format,
                    const WriteOptions& options, std::function<void()> failed = {});
    // Joins the thread (the rows must let it end: complete, or abandoned).
    ~BackgroundWrite();
    BackgroundWrite(const BackgroundWrite&) = delete;
    BackgroundWrite& operator=(const BackgroundWrite&) = delete;

    // Waits for the write to end, calling progress on the calling thread
    // with the fraction of rows written after every row, as a writer in the
    // foreground would (rows written before the call are reported first,
    // one after the other), and rethrows the writer's error.
    void wait(const std::function<void(float)>& progress);

private:
    const int height_;
    std::mutex mutex_;
    std::condition_variable changed_;
    int rowsDone_ = 0;
    bool finished_ = false;
    std::exception_ptr error_;
    std::thread thread_;
};

}  // namespace murmex_app
