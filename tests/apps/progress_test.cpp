#include "murmex/progress.h"

#include <signal.h>

#include <cstdio>
#include <string>

#include <gtest/gtest.h>

#include "apps/cli_fixtures.h"

namespace murmex_app {
namespace {

// Runs reports through a Progress writing to a temporary file and returns
// what it wrote.
template <class F>
std::string written(Progress::Mode mode, F reports)
{
    std::FILE* f = std::tmpfile();
    {
        Progress progress(mode, "photo.tif", f);
        reports(progress);
    }
    std::rewind(f);
    std::string text;
    for (int c; (c = std::fgetc(f)) != EOF;)
        text += static_cast<char>(c);
    std::fclose(f);
    return text;
}

class ProgressTest : public ::testing::Test {
protected:
    void TearDown() override { setInterruptRequested(false); }
};

TEST_F(ProgressTest, PlainLinesAppearPerStepAndPerTenth)
{
    const std::string text = written(Progress::Mode::Lines, [](Progress& p) {
        p.report("Profiling image...", 0.0f);
        p.report("Profiling image...", 0.05f);
        p.report("Profiling image...", 1.0f);
        for (int i = 0; i <= 20; ++i)
            p.report("Removing noise: [New profile: unnamed.dnp]", i / 20.0f);
    });
    const std::vector<std::string> lines = murmex_test::splitLines(text);
    ASSERT_EQ(lines.size(), 2u + 11u) << text;
    EXPECT_EQ(lines[0], "photo.tif: Profiling image... 0%");
    EXPECT_EQ(lines[1], "photo.tif: Profiling image... 100%");
    EXPECT_EQ(lines[2], "photo.tif: Removing noise: [New profile: unnamed.dnp] 0%");
    EXPECT_EQ(lines[7], "photo.tif: Removing noise: [New profile: unnamed.dnp] 50%");
    EXPECT_EQ(lines[12], "photo.tif: Removing noise: [New profile: unnamed.dnp] 100%");
}

TEST_F(ProgressTest, RelabelReplacesTheLibrarysLabel)
{
    const std::string text = written(Progress::Mode::Lines, [](Progress& p) {
        p.relabel("User selected:", "Auto matched:");
        p.report("Removing noise: [User selected: cam_iso400.dnp]", 0.0f);
    });
    EXPECT_EQ(text, "photo.tif: Removing noise: [Auto matched: cam_iso400.dnp] 0%\n");
}

TEST_F(ProgressTest, QuietShowsNothingButStillAnswers)
{
    const std::string text = written(Progress::Mode::Quiet, [](Progress& p) {
        EXPECT_EQ(p.report("Profiling image...", 0.5f), 0);
        p.note("a note");
    });
    EXPECT_EQ(text, "");
}

TEST_F(ProgressTest, ABarIsRedrawnInPlaceAndEndedByANote)
{
    const std::string text = written(Progress::Mode::Bar, [](Progress& p) {
        p.report("Removing noise: ", 0.0f);
        p.report("Removing noise: ", 0.001f);  // same percentage: no redraw
        p.report("Removing noise: ", 0.5f);
        p.note("done");
    });
    std::string expected(1, '\r');
    expected.append(Progress::barLine("photo.tif", "Removing noise: ", 0, 80)).append("\033[K\r");
    expected.append(Progress::barLine("photo.tif", "Removing noise: ", 50, 80)).append("\033[K\ndone\n");
    EXPECT_EQ(text, expected);
}

TEST_F(ProgressTest, BarLineShowsFillAndPercentageAndFitsTheWidth)
{
    EXPECT_EQ(Progress::barLine("a.tif", "Step", 50, 80), "a.tif [##########..........]  50% Step");
    EXPECT_EQ(Progress::barLine("a.tif", "Step", 100, 80), "a.tif [####################] 100% Step");
    EXPECT_EQ(Progress::barLine("a.tif", std::string(200, 'x'), 5, 40).size(), 39u);
}

TEST_F(ProgressTest, NonFiniteFractionsShowAsZero)
{
    const std::string text = written(Progress::Mode::Lines, [](Progress& p) {
        p.report("Step", std::numeric_limits<float>::infinity());
    });
    EXPECT_EQ(text, "photo.tif: Step 0%\n");
}

TEST_F(ProgressTest, CallbackAnswersOneOnceInterruptIsRequested)
{
    Progress progress(Progress::Mode::Quiet, "x");
    EXPECT_EQ(Progress::callback(&progress, "Step", 0.1f), 0);
    setInterruptRequested(true);
    EXPECT_EQ(Progress::callback(&progress, "Step", 0.2f), 1);
    EXPECT_THROW(throwIfInterrupted(), Interrupted);
}

TEST_F(ProgressTest, SigintOnlySetsTheFlagAndTheSecondGetsTheDefaultAction)
{
    struct sigaction previous;
    sigaction(SIGINT, nullptr, &previous);
    installInterruptHandler();
    EXPECT_FALSE(interruptRequested());
    raise(SIGINT);
    EXPECT_TRUE(interruptRequested());
    struct sigaction now;
    sigaction(SIGINT, nullptr, &now);
    EXPECT_EQ(now.sa_handler, SIG_DFL);
    sigaction(SIGINT, &previous, nullptr);
}

}  // namespace
}  // namespace murmex_app
