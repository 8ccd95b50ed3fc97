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

TEST_F(ProgressTest, TermAndHupSetTheFlagAsIntDoesAndSayThatTheProgramStops)
{
    struct sigaction previous[3];
    const int signals[3] = {SIGINT, SIGTERM, SIGHUP};
    for (int i = 0; i < 3; ++i)
        sigaction(signals[i], nullptr, &previous[i]);
    installInterruptHandler();
    for (int sig : signals) {
        setInterruptRequested(false);
        testing::internal::CaptureStderr();
        raise(sig);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "murmex: stopping\n");
        EXPECT_TRUE(interruptRequested());
        EXPECT_EQ(interruptSignal(), sig);
        EXPECT_EQ(interruptedExitStatus(), 128 + sig);
    }
    for (int i = 0; i < 3; ++i)
        sigaction(signals[i], &previous[i], nullptr);
}

TEST_F(ProgressTest, NothingIsDrawnOnceStopping)
{
    const std::string text = written(Progress::Mode::Lines, [](Progress& p) {
        p.report("Removing noise", 0.0f);
        setInterruptRequested(true);
        EXPECT_EQ(p.report("Removing noise", 0.5f), 1);
    });
    EXPECT_EQ(text, "photo.tif: Removing noise 0%\n");
}

TEST_F(ProgressTest, ALongLabelLosesItsMiddleAndTheBarStaysWithinTheWidth)
{
    const std::string label = "a-very-long-file-name-from-the-camera-card-0042.tif (file 12 of 340)";
    for (int width : {10, 24, 40, 60, 80}) {
        const std::string line = Progress::barLine(label, "Removing noise", 40, width);
        EXPECT_LE(line.size(), static_cast<size_t>(width - 1)) << width << ": " << line;
        EXPECT_NE(line.find("40%"), std::string::npos) << width << ": " << line;
    }
    EXPECT_EQ(Progress::barLine(label, "Writing", 40, 60), "a-very-lon...12 of 340) [########............]  40% Writing");
    EXPECT_EQ(Progress::barLine(label, "Writing", 40, 10), "40%");
    // Characters, not bytes, are counted, and none is cut in two.
    const std::string photo = "\xC3\xA9t\xC3\xA9-\xC3\xA0-\xC3\xA9t\xC3\xA9-\xC3\xA0-la-plage.tif";  // "été-à-été-à-la-plage.tif"
    const std::string line = Progress::barLine(photo, "Removing noise", 5, 46);
    EXPECT_EQ(line, "\xC3\xA9t\xC3\xA9-\xC3\xA0....tif [..........]   5% Removing noise");
}

}  // namespace
}  // namespace murmex_app
