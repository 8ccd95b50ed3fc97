#include "denoise/denoise_thread.h"

#include <cstdio>
#include <exception>

#include "denoise/raster/incr_raster.h"

JDenoiseThread::JDenoiseThread(bool background)
{
    // Both signals start closed: the worker waits for a request, the driver
    // for a reply.
    request_.take();
    reply_.take();
    start(background ? LowPriority : NormalPriority);
}

JDenoiseThread::~JDenoiseThread()
{
    try {
        stop();
    } catch (const std::exception& e) {
        std::fprintf(stderr, "JDenoiseThread::~JDenoiseThread exception: %s\n", e.what());
    } catch (...) {
        std::fprintf(stderr, "JDenoiseThread::~JDenoiseThread unknown exception\n");
    }
}

void JDenoiseThread::stop()
{
    if (!stopped())
        postRequest(nullptr, -1, -1);
    if (!joined_) {
        wait(static_cast<unsigned long>(-1));
        joined_ = true;
    }
}

void JDenoiseThread::postRequest(JIncrRaster* raster, int first, int last)
{
    {
        JMutexLocker lock(requestLock_);
        raster_ = raster;
        first_ = first;
        last_ = last;
    }
    posts_.fetch_add(1, std::memory_order_relaxed);
    request_.give();
}

void JDenoiseThread::waitForReply()
{
    reply_.take();
    std::exception_ptr error;
    {
        JMutexLocker lock(requestLock_);
        error = error_;
        error_ = nullptr;
    }
    if (error)
        std::rethrow_exception(error);
}

void JDenoiseThread::run()
{
    for (;;) {
        request_.take();
        JIncrRaster* raster;
        int first, last;
        {
            JMutexLocker lock(requestLock_);
            raster = raster_;
            first = first_;
            last = last_;
        }
        if (!raster) {
            stopped_.store(true, std::memory_order_release);
            return;
        }
        try {
            for (int row = first; row <= last; ++row) {
                raster->getScanline(row);
                raster->unrefScanline(row);
            }
        } catch (...) {
            JMutexLocker lock(requestLock_);
            error_ = std::current_exception();
        }
        reply_.give();
    }
}
