// qtless::QThread: a minimal thread over POSIX threads. Derived classes put
// their work in run().
//
// Contract: start() once, then wait() from the thread that started it. An
// exception leaving run() is caught on the thread and printed to standard
// error ("Thread::run exception: <what>" or "Thread::run unknown exception").
// wait() joins without a time limit and always returns true; a failed join is
// printed ("Thread::wait: error code: <errno>"). finished() is always false:
// wait() is the way to know a thread has ended. Destroying a started thread
// that was not waited for cancels it, so the object must outlive run() or the
// work must be ready to be cancelled. run() must not touch members of a
// derived class once that class's destructor has begun.
#pragma once

#include <pthread.h>

#include <atomic>
#include <climits>

namespace qtless {

class QThread {
public:
    // Applied by the new thread to itself before run(): the priorities below
    // normal raise its nice value (Low by 10, Lowest by 15, Idle to 19, the
    // weakest), which an unprivileged process may always do. The others leave
    // it as inherited, since raising a priority needs privileges.
    enum Priority {
        IdlePriority,
        LowestPriority,
        LowPriority,
        NormalPriority,
        HighPriority,
        HighestPriority,
        TimeCriticalPriority,
        InheritPriority,
    };

    QThread() = default;
    // When started and not yet joined: cancels the thread and lets it go.
    virtual ~QThread();
    QThread(const QThread&) = delete;
    QThread& operator=(const QThread&) = delete;

    // Creates the thread with default attributes; it applies p (see Priority)
    // and calls run(). Returns the pthread_create result (0 on success);
    // throws nothing.
    int start(Priority p = InheritPriority);
    // Joins the thread; time is not applied. Always true.
    bool wait(unsigned long time = ULONG_MAX);
    bool finished() const { return false; }

protected:
    virtual void run() = 0;

private:
    static void* entry(void* self);

    pthread_t thread_{};
    Priority priority_ = InheritPriority;  // written before the thread starts
    // Written by start() and wait(), read by wait() and the destructor, which
    // may run on another thread than start().
    std::atomic<int> started_{0};
    std::atomic<bool> joined_{false};
};

}  // namespace qtless
