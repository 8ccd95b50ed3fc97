#include "host/progress_text.h"

#include <gtest/gtest.h>

namespace murmex_host {
namespace {

TEST(ProgressText, TheEnginesStepsBecomeTheStagesAUserKnows)
{
    EXPECT_EQ(userStepText("Profiling image..."), "Measuring noise profile");
    EXPECT_EQ(userStepText("Removing noise: [New profile: unnamed.dnp]"), "Removing noise");
    EXPECT_EQ(userStepText("Removing noise: [Auto matched: eos5d_iso1600.dnp]"), "Removing noise");
    EXPECT_EQ(userStepText("Removing noise: [User selected: cam.dnp]"), "Removing noise");
}

TEST(ProgressText, OtherTextsPassUnchanged)
{
    EXPECT_EQ(userStepText(""), "");
    EXPECT_EQ(userStepText("Writing"), "Writing");
    EXPECT_EQ(userStepText("Removing"), "Removing");
}

}  // namespace
}  // namespace murmex_host
