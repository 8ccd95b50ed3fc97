// A second thread for work that splits in two: the caller hands it one job,
// does the other half itself, then waits for the helper's half. Used by the
// writers to compress two parts of a file at once.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace murmex_app {

class HelperThread {
public:
    // Starts the thread, which waits for its first job. It inherits the
    // caller's signal mask.
    HelperThread();
    // Waits for a job still running, then ends the thread.
    ~HelperThread();
    HelperThread(const HelperThread&) = delete;
    HelperThread& operator=(const HelperThread&) = delete;

    // Runs job on the helper. The previous job must have been waited for.
    // The job must not throw.
    void start(std::function<void()> job);
    // Returns once the job last started has ended.
    void wait();
    // Runs theirs on the helper and mine here, at once; true when both
    // return true.
    bool both(const std::function<bool()>& theirs, const std::function<bool()>& mine);

private:
    void run();

    std::mutex mutex_;
    std::condition_variable changed_;
    std::function<void()> job_;
    bool busy_ = false;
    bool stop_ = false;
    std::thread thread_;
};

}  // namespace murmex_app
