#include "host/engine_output.h"

#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <stdexcept>

#include <gtest/gtest.h>

namespace murmex_host {
namespace {

TEST(EngineOutput, CapturesEveryWayOfWritingToStandardOutput)
{
    const EngineResult r = callEngine([] {
        std::printf("from printf\n");
        std::cout << "from cout" << std::endl;
        const char raw[] = "from write\nno end of line";
        if (write(STDOUT_FILENO, raw, sizeof raw - 1) < 0)
            return 1;
        return 0;
    });
    EXPECT_EQ(r.code, 0);
    EXPECT_FALSE(r.failed());
    EXPECT_EQ(r.lines, (std::vector<std::string>{"from printf", "from cout", "from write", "no end of line"}));
    EXPECT_EQ(r.error, "");
}

TEST(EngineOutput, TheLibrarysErrorLineBecomesTheMessage)
{
    const EngineResult r = callEngine([] {
        std::printf("Some diagnostic\nMurmex error: Error opening x.dnp: No such file or directory\n");
        return 1;
    });
    EXPECT_TRUE(r.failed());
    EXPECT_EQ(r.error, "Error opening x.dnp: No such file or directory");
    EXPECT_EQ(r.message(), r.error);
}

TEST(EngineOutput, RecognisesAllThreeFailureLines)
{
    EXPECT_EQ(engineErrorMessage({"Murmex exception: std::bad_alloc"}), "std::bad_alloc");
    EXPECT_EQ(engineErrorMessage({"Murmex unknown error"}), "unknown error");
    EXPECT_EQ(engineErrorMessage({"other", "Murmex error: first", "Murmex error: second"}), "first");
    EXPECT_EQ(engineErrorMessage({"Murmex says hello"}), "");
    EngineResult silent;
    silent.code = 1;
    EXPECT_EQ(silent.message(), "the library reported a failure");
}

TEST(EngineOutput, NestedCapturesSeeOnlyTheirOwnLines)
{
    std::vector<std::string> inner;
    const EngineResult outer = callEngine([&] {
        std::printf("outer before\n");
        inner = callEngine([] {
                    std::printf("inner\n");
                    return 0;
                }).lines;
        std::printf("outer after\n");
        return 0;
    });
    EXPECT_EQ(inner, std::vector<std::string>{"inner"});
    EXPECT_EQ(outer.lines, (std::vector<std::string>{"outer before", "outer after"}));
}

TEST(EngineOutput, StandardOutputIsRestoredWhenTheCallThrows)
{
    std::vector<std::string> seen;
    const EngineResult outer = callEngine([&] {
        EXPECT_THROW(callEngine([]() -> int {
                         std::printf("lost\n");
                         throw std::runtime_error("boom");
                     }),
                     std::runtime_error);
        std::printf("after the throw\n");
        return 0;
    });
    EXPECT_EQ(outer.lines, std::vector<std::string>{"after the throw"});
}

}  // namespace
}  // namespace murmex_host
