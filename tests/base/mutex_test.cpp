#include "base/mutex.h"

#include <cerrno>
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
