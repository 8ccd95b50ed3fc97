#include "api/dn_status_wrapper.h"
#include "api/status.h"

#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

struct Call {
    std::string step;
    float fraction;
};

struct Host {
    std::vector<Call> calls;
    std::vector<int> answers;  // answer of call i; 0 beyond the list
};

int record(void* context, const char* step, float fraction)
{
    Host* host = static_cast<Host*>(context);
    const size_t i = host->calls.size();
    host->calls.push_back({step, fraction});
    return i < host->answers.size() ? host->answers[i] : 0;
}

}  // namespace

TEST(StatusTest, CallbackAnsweringOneAtFirstCallCancels)
{
    Host host;
    host.answers = {1};
    JStatus status;
    DnStatusWrapper wrapper(&host, &status, record);
    status.setStep("Profiling image...", 100);
    EXPECT_FALSE(status.update(10));
    EXPECT_TRUE(status.isCancelled());
    ASSERT_EQ(host.calls.size(), 1u);
    EXPECT_EQ(host.calls[0].step, "Profiling image...");
    EXPECT_EQ(host.calls[0].fraction, 10.0f / 100.0f);
}

TEST(StatusTest, CancelFlagIsOverwrittenByEveryReport)
{
    Host host;
    host.answers = {1, 0};
    JStatus status;
    DnStatusWrapper wrapper(&host, &status, record);
    status.setTotalSteps(4);
    EXPECT_FALSE(status.update(1));
    EXPECT_TRUE(status.isCancelled());
    EXPECT_TRUE(status.update(2));
    EXPECT_FALSE(status.isCancelled());
}

TEST(StatusTest, EndReportsFractionOneWithCurrentStepName)
{
    Host host;
    JStatus status;
    DnStatusWrapper wrapper(&host, &status, record);
    status.setStep("Removing noise: [New profile: unnamed.dnp]", 7);
    status.update(3);
    status.setStep("second", 9);
    status.end();
    ASSERT_EQ(host.calls.size(), 2u);
    EXPECT_EQ(host.calls[1].step, "second");
    EXPECT_EQ(host.calls[1].fraction, 1.0f);
}

TEST(StatusTest, ZeroTotalGivesTheHostANonFiniteFraction)
{
    Host host;
    JStatus status;
    DnStatusWrapper wrapper(&host, &status, record);
    status.setTotalSteps(0);
    status.update(5);
    ASSERT_EQ(host.calls.size(), 1u);
    EXPECT_FALSE(std::isfinite(host.calls[0].fraction));
}

TEST(StatusTest, FractionIsComputedInSinglePrecision)
{
    Host host;
    JStatus status;
    DnStatusWrapper wrapper(&host, &status, record);
    status.setTotalSteps(16777217);  // not representable as a float: becomes 16777216
    status.update(16777215);
    ASSERT_EQ(host.calls.size(), 1u);
    EXPECT_EQ(host.calls[0].fraction, 16777215.0f / 16777216.0f);
}

TEST(StatusTest, EveryUpdateReachesTheHostUnclamped)
{
    Host host;
    JStatus status;
    DnStatusWrapper wrapper(&host, &status, record);
    status.setTotalSteps(10);
    for (int i : {0, 0, 5, 20, -3})
        status.update(i);
    ASSERT_EQ(host.calls.size(), 5u);
    EXPECT_EQ(host.calls[3].fraction, 2.0f);
    EXPECT_EQ(host.calls[4].fraction, -0.3f);
}

TEST(StatusTest, NullHostCallbackSkipsEveryReport)
{
    JStatus status;
    DnStatusWrapper wrapper(nullptr, &status, nullptr);
    status.setStep("x", 3);
    EXPECT_TRUE(status.update(1));
    EXPECT_FALSE(status.isCancelled());
    status.end();
    EXPECT_EQ(wrapper.end(), 0);
}

TEST(StatusTest, HooksHaveNoEffect)
{
    Host host;
    JStatus status;
    DnStatusWrapper wrapper(&host, &status, record);
    status.rowsDone(12);
    status.idle();
    status.paused();
    EXPECT_TRUE(host.calls.empty());
    EXPECT_FALSE(status.isCancelled());
}
