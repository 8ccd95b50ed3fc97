#include "helper_thread.h"

#include <utility>

namespace murmex_app {

HelperThread::HelperThread() : thread_([this] { run(); }) {}

HelperThread::~HelperThread()
{
    {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [&] { return !busy_; });
        stop_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void HelperThread::start(std::function<void()> job)
{
    {
        std::lock_guard<std::mutex> lock(mutex_);
        job_ = std::move(job);
        busy_ = true;
    }
    changed_.notify_all();
}

void HelperThread::wait()
{
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [&] { return !busy_; });
}

bool HelperThread::both(const std::function<bool()>& theirs, const std::function<bool()>& mine)
{
    bool theirsOk = true;
    start([&] { theirsOk = theirs(); });
    const bool mineOk = mine();
    wait();
    return mineOk && theirsOk;
}

void HelperThread::run()
{
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        changed_.wait(lock, [&] { return stop_ || job_; });
        if (stop_)
            return;
        std::function<void()> job = std::move(job_);
        job_ = nullptr;
        lock.unlock();
        job();
        lock.lock();
        busy_ = false;
        changed_.notify_all();
    }
}

}  // namespace murmex_app
