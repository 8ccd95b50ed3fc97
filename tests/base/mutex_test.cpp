#include "base/mutex.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

TEST(MutexTest, LockingTwiceOnOneThreadDoesNotBlockAndNeedsTwoUnlocks)
{
    JMutex m;
    EXPECT_EQ(m.lock(), 0);
    EXPECT_EQ(m.lock(), 0);
    EXPECT_EQ(m.unlock(), 0);
    EXPECT_EQ(m.unlock(), 0);
    // A third unlock finds the mutex no longer held by this thread.
    EXPECT_EQ(m.unlock(), EPERM);
}

TEST(MutexThreadTest, NestedLocksSerialiseThreads)
{
    JMutex m;
    long counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 5000; ++i) {
                JMutexLocker outer(m);
                JMutexLocker inner(m);
                ++counter;
            }
        });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(counter, 20000);
}

TEST(MutexThreadTest, ALockHeldLongerThanAnyTryWaitsForItsUnlock)
{
    JMutex m;
    std::atomic<bool> held{false};
    std::atomic<bool> released{false};
    std::thread holder([&] {
        JMutexLocker lock(m);
        held = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        released = true;
    });
    while (!held)
        std::this_thread::yield();
    EXPECT_EQ(m.lock(), 0);
    EXPECT_TRUE(released);
    EXPECT_EQ(m.unlock(), 0);
    holder.join();
}
