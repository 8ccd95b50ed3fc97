#include "base/qtless/qthread.h"

#include <sys/resource.h>

#include <cxxabi.h>

#include <cerrno>
#include <cstdio>
#include <exception>

namespace qtless {

namespace {

// How much a priority raises the nice value of the thread that applies it.
int niceIncrease(QThread::Priority p)
{
    switch (p) {
    case QThread::IdlePriority:
        return 39;  // the nice value's whole range: it ends at 19
    case QThread::LowestPriority:
        return 15;
    case QThread::LowPriority:
        return 10;
    default:
        return 0;
    }
}

// On Linux the nice value belongs to each thread, and PRIO_PROCESS with id 0
// means the calling thread, so this changes the new thread alone.
void applyPriority(QThread::Priority p)
{
    const int increase = niceIncrease(p);
    if (increase == 0)
        return;
    errno = 0;
    const int current = getpriority(PRIO_PROCESS, 0);
    if (current == -1 && errno != 0)
        return;
    setpriority(PRIO_PROCESS, 0, current + increase > 19 ? 19 : current + increase);
}

}  // namespace

QThread::~QThread()
{
    if (started_.load() && !joined_.load()) {
        // Cancel first, then detach: once detached, a thread that ends at
        // that moment frees its handle, and cancelling it would use a dead
        // handle. The effect is the same: the thread is asked to stop and
        // its resources are released when it does.
        pthread_cancel(thread_);
        pthread_detach(thread_);
    }
    started_ = 0;
}

int QThread::start(Priority p)
{
    priority_ = p;
    const int rc = pthread_create(&thread_, nullptr, &QThread::entry, this);
    if (rc == 0) {
        joined_ = false;
        started_ = 1;
    }
    return rc;
}

// Cancellation unwinds with an exception that has no C++ object, so binding
// it to the __forced_unwind reference below binds null; that binding is how
// the runtime lets it be named and rethrown, not an error of this code.
__attribute__((no_sanitize("null"))) void* QThread::entry(void* self)
{
    QThread* thread = static_cast<QThread*>(self);
    applyPriority(thread->priority_);
    try {
        thread->run();
    } catch (abi::__forced_unwind&) {
        // Cancellation unwinds the stack as an exception; it must go on.
        throw;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "Thread::run exception: %s\n", e.what());
    } catch (...) {
        std::fprintf(stderr, "Thread::run unknown exception\n");
    }
    return nullptr;
}

bool QThread::wait(unsigned long time)
{
    (void)time;
    // Joining a thread that was never started or is already joined is
    // undefined for POSIX; it is reported as the failure it would be.
    int rc = ESRCH;
    if (started_.load() && !joined_.load())
        rc = pthread_join(thread_, nullptr);
    if (rc == 0)
        joined_ = true;
    else
        std::fprintf(stderr, "Thread::wait: error code: %i\n", rc);
    return true;
}

}  // namespace qtless
