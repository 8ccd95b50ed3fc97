#include "base/qtless/qthread.h"

#include <pthread.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <functional>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "base/utils.h"

using qtless::QThread;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

class FnThread : public QThread {
public:
    template <class F>
    explicit FnThread(F f) : fn_(std::move(f))
    {
    }

protected:
    void run() override { fn_(); }

private:
    std::function<void()> fn_;
};

struct NotAnException {};

}  // namespace

TEST(QThreadThreadTest, RunExecutesOnItsOwnThreadAndWaitJoinsIt)
{
    std::atomic<int> value{0};
    pthread_t runner{};
    FnThread t([&] {
        runner = pthread_self();
        value = 42;
    });
    EXPECT_EQ(t.start(QThread::NormalPriority), 0);
    EXPECT_TRUE(t.wait());
    EXPECT_EQ(value.load(), 42);
    EXPECT_FALSE(pthread_equal(runner, pthread_self()));
}

// The nice value that a thread started at priority p runs with.
int niceOfThreadAt(QThread::Priority p)
{
    int nice = -100;
    FnThread t([&] { nice = getpriority(PRIO_PROCESS, 0); });
    EXPECT_EQ(t.start(p), 0);
    t.wait();
    return nice;
}

TEST(QThreadThreadTest, PrioritiesBelowNormalRaiseTheNiceValueOfTheNewThreadOnly)
{
    const int own = getpriority(PRIO_PROCESS, 0);
    ASSERT_LT(own, 19) << "the test runs at the weakest priority already";
    EXPECT_EQ(niceOfThreadAt(QThread::NormalPriority), own);
    EXPECT_EQ(niceOfThreadAt(QThread::InheritPriority), own);
    EXPECT_EQ(niceOfThreadAt(QThread::LowPriority), std::min(own + 10, 19));
    EXPECT_EQ(niceOfThreadAt(QThread::LowestPriority), std::min(own + 15, 19));
    EXPECT_EQ(niceOfThreadAt(QThread::IdlePriority), 19);
    EXPECT_EQ(getpriority(PRIO_PROCESS, 0), own);
}

TEST(QThreadThreadTest, StandardExceptionInRunPrintsItsTextAndWaitStillReturnsTrue)
{
    FnThread t([] { throw std::runtime_error("boom"); });
    CaptureStderr();
    ASSERT_EQ(t.start(), 0);
    const bool waited = t.wait();
    EXPECT_EQ(GetCapturedStderr(), "Thread::run exception: boom\n");
    EXPECT_TRUE(waited);
}

TEST(QThreadThreadTest, OtherExceptionInRunPrintsUnknownException)
{
    FnThread t([] { throw NotAnException(); });
    CaptureStderr();
    ASSERT_EQ(t.start(), 0);
    EXPECT_TRUE(t.wait());
    EXPECT_EQ(GetCapturedStderr(), "Thread::run unknown exception\n");
}

TEST(QThreadThreadTest, FinishedIsFalseEvenAfterWaitReturned)
{
    FnThread t([] {});
    EXPECT_FALSE(t.finished());
    ASSERT_EQ(t.start(QThread::HighPriority), 0);
    EXPECT_TRUE(t.wait());
    EXPECT_FALSE(t.finished());
}

TEST(QThreadThreadTest, FailedJoinPrintsErrorCodeAndWaitReturnsTrue)
{
    // A thread waiting for itself cannot be joined: EDEADLK.
    std::atomic<bool> go{false};
    std::atomic<bool> selfWait{false};
    FnThread* self = nullptr;
    FnThread t([&] {
        while (!go.load(std::memory_order_acquire))
            yield();
        selfWait = self->wait();
    });
    self = &t;
    CaptureStderr();
    ASSERT_EQ(t.start(), 0);
    go.store(true, std::memory_order_release);
    EXPECT_TRUE(t.wait());
    EXPECT_EQ(GetCapturedStderr(), "Thread::wait: error code: " + std::to_string(EDEADLK) + "\n");
    EXPECT_TRUE(selfWait.load());
}

TEST(QThreadThreadTest, WaitOnThreadNeverStartedPrintsErrorCodeAndReturnsTrue)
{
    FnThread t([] {});
    CaptureStderr();
    EXPECT_TRUE(t.wait());
    EXPECT_EQ(GetCapturedStderr(), "Thread::wait: error code: " + std::to_string(ESRCH) + "\n");
}

namespace {

std::atomic<bool> cancelRunning{false};
std::atomic<bool> cancelUnwound{false};

struct UnwindFlag {
    ~UnwindFlag() { cancelUnwound.store(true, std::memory_order_release); }
};

}  // namespace

TEST(QThreadThreadTest, DestroyingRunningThreadCancelsIt)
{
    cancelRunning = false;
    cancelUnwound = false;
    auto* t = new FnThread([] {
        UnwindFlag flag;
        cancelRunning.store(true, std::memory_order_release);
        for (;;)
            pthread_testcancel();
    });
    ASSERT_EQ(t->start(), 0);
    while (!cancelRunning.load(std::memory_order_acquire))
        yield();
    delete t;
    // Cancellation unwinds run(); the flag's destructor reports it.
    while (!cancelUnwound.load(std::memory_order_acquire))
        yield();
    SUCCEED();
}

TEST(QThreadThreadTest, DestroyingWaitedThreadIsQuiet)
{
    CaptureStderr();
    {
        FnThread t([] {});
        ASSERT_EQ(t.start(), 0);
        t.wait();
    }
    EXPECT_EQ(GetCapturedStderr(), "");
}
