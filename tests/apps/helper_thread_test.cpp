// Tests of the writers' second thread: a job runs beside the caller, wait()
// returns once it has ended, and the thread can be ended at any point.

#include "murmex/helper_thread.h"

#include <atomic>
#include <chrono>
#include <thread>

#include <gtest/gtest.h>

using murmex_app::HelperThread;

TEST(HelperThreadThreadTest, AJobRunsOnAnotherThreadAndIsDoneWhenWaitReturns)
{
    HelperThread helper;
    std::thread::id ranOn;
    int result = 0;
    helper.start([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        ranOn = std::this_thread::get_id();
        result = 42;
    });
    helper.wait();
    EXPECT_EQ(result, 42);
    EXPECT_NE(ranOn, std::this_thread::get_id());
}

TEST(HelperThreadThreadTest, JobsRunOneAfterTheOtherBesideTheCallersWork)
{
    HelperThread helper;
    long helperSum = 0, callerSum = 0;
    for (int i = 1; i <= 200; ++i) {
        helper.start([&helperSum, i] { helperSum += i; });
        callerSum += i;
        helper.wait();
    }
    EXPECT_EQ(helperSum, 200 * 201 / 2);
    EXPECT_EQ(callerSum, helperSum);
}

TEST(HelperThreadThreadTest, EndingTheHelperWaitsForTheJobStillRunning)
{
    std::atomic<bool> finished{false};
    {
        HelperThread helper;
        helper.start([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            finished = true;
        });
    }
    EXPECT_TRUE(finished);
}

TEST(HelperThreadThreadTest, AHelperThatNeverGotAJobEnds)
{
    HelperThread helper;
    helper.wait();
}

TEST(HelperThreadThreadTest, BothRunsOneJobOnEachThreadAndSaysWhetherBothSucceeded)
{
    HelperThread helper;
    std::thread::id theirs, mine;
    EXPECT_TRUE(helper.both([&] { theirs = std::this_thread::get_id(); return true; },
                            [&] { mine = std::this_thread::get_id(); return true; }));
    EXPECT_NE(theirs, mine);
    EXPECT_EQ(mine, std::this_thread::get_id());
    EXPECT_FALSE(helper.both([] { return false; }, [] { return true; }));
    EXPECT_FALSE(helper.both([] { return true; }, [] { return false; }));
}
