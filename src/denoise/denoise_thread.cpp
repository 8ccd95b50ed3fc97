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
        next_ = raster ? first : 0;
        end_ = raster ? last : -1;
        abandoned_ = false;
    }
    posts_.fetch_add(1, std::memory_order_relaxed);
    request_.give();
}

void JDenoiseThread::helpThenWaitForReply()
{
    JIncrRaster* raster;
    {
        JMutexLocker lock(requestLock_);
        raster = raster_;
    }
    if (raster)
        pullUpperHalves(raster);
    waitForReply();
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

bool JDenoiseThread::pullRow(JIncrRaster* raster, int row)
{
    try {
        raster->getScanline(row);
        raster->unrefScanline(row);
        return true;
    } catch (...) {
        JMutexLocker lock(requestLock_);
        if (!error_)
            error_ = std::current_exception();
        // The rest of the request is abandoned, as by a worker alone.
        next_ = end_ + 1;
        abandoned_ = true;
        return false;
    }
}

void JDenoiseThread::pullFromFront(JIncrRaster* raster)
{
    for (;;) {
        int row;
        {
            JMutexLocker lock(requestLock_);
            if (next_ > end_)
                return;
            row = next_++;
        }
        if (!pullRow(raster, row))
            return;
    }
}

void JDenoiseThread::pullUpperHalves(JIncrRaster* raster)
{
    for (;;) {
        int from, to;
        {
            JMutexLocker lock(requestLock_);
            if (next_ > end_)
                return;
            from = next_ + (end_ - next_ + 1) / 2;
            to = end_;
            end_ = from - 1;
        }
        for (int row = from; row <= to; ++row) {
            {
                JMutexLocker lock(requestLock_);
                if (abandoned_)
                    return;
            }
            if (!pullRow(raster, row))
                return;
        }
    }
}

void JDenoiseThread::run()
{
    for (;;) {
        request_.take();
        JIncrRaster* raster;
        {
            JMutexLocker lock(requestLock_);
            raster = raster_;
        }
        if (!raster) {
            stopped_.store(true, std::memory_order_release);
            return;
        }
        pullFromFront(raster);
        reply_.give();
    }
}
