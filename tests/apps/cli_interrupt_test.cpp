// Whole-program tests of stopping murmex with real signals: whatever the
// moment, no temporary file and no partial output remain, and an output that
// existed before is intact.
#include <signal.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include <gtest/gtest.h>

#include "apps/cli_fixtures.h"
#include "murmex/image_io.h"
#include "support/temp_dir.h"

namespace murmex_test {
namespace {

using murmex_app::ImageFormat;
using murmex_app::writeImage;

bool hasTemporaryFile(const std::string& dir)
{
    for (const std::string& name : listDir(dir))
        if (name.find(".murmex-") != std::string::npos)
            return true;
    return false;
}

// Whether a signal sent to the process waits to be handled (false once it
// was, or when the process is gone).
bool signalPending(pid_t pid, int sig)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(in, line);)
        if (line.rfind("ShdPnd:", 0) == 0)
            return (std::stoull(line.substr(7), nullptr, 16) >> (sig - 1)) & 1u;
    return false;
}

// The environment of a run that a signal ends from its handler (_exit) while
// the output is being written: that is by design (the handler removes the
// temporary file and does not wait for the writer), so the writer's thread
// is never joined. ThreadSanitizer, when the program is built with it, would
// report that thread as leaked; only that report is turned off, for these
// runs only.
std::vector<std::string> endedFromTheHandler()
{
    const char* tsan = std::getenv("TSAN_OPTIONS");
    return {"TSAN_OPTIONS=" + std::string(tsan && *tsan ? std::string(tsan) + ":" : "") + "report_thread_leaks=0"};
}

// The environment of a run that a test signals in its "Writing" stage:
// ended from the handler, and held in that stage (hold_writing.c). A
// sanitizer's runtime then no longer comes first among the libraries, which
// AddressSanitizer refuses unless told otherwise.
std::vector<std::string> heldWhileWriting()
{
    std::vector<std::string> env = endedFromTheHandler();
    env.push_back(std::string("LD_PRELOAD=") + MURMEX_HOLD_WRITING_PATH);
    const char* asan = std::getenv("ASAN_OPTIONS");
    env.push_back("ASAN_OPTIONS=" + std::string(asan && *asan ? std::string(asan) + ":" : "") +
                  "verify_asan_link_order=0");
    return env;
}

// A photo, its profile and an earlier output "out.png" that a run replaces.
class CliInterrupt : public ::testing::Test {
protected:
    void SetUp() override
    {
        profile = makeProfile(dir, "p.dnp", 300, 200);
        writeImage(dir.file("big.tif"), noisyPhoto(1200, 800), ImageFormat::Tiff);
        std::ofstream(dir.file("out.png")) << "earlier output";
        before = listDir(dir.path());
    }

    // Narrow strips: the library takes long enough to be caught at work, and
    // a row is complete only once the last strip has put its columns, so few
    // rows reach the file before the "Writing" stage.
    std::vector<std::string> denoise() const
    {
        return {"denoise", dir.file("big.tif"), "--profile", profile, "-o", dir.file("out.png"), "--strip-width", "100"};
    }

    // Lets the run go on until its "Writing" stage, where it is held
    // (heldWhileWriting), and stops it there: the temporary file exists
    // while the process is stopped, so the program is caught writing in the
    // foreground.
    void stopWhileWriting(Murmex& m)
    {
        ASSERT_TRUE(m.readUntil([](const std::string& err) { return contains(err, "big.tif: Writing"); },
                                std::chrono::seconds(120)));
        m.signal(SIGSTOP);
        ASSERT_TRUE(hasTemporaryFile(dir.path())) << "the run was not caught writing its output";
    }

    void expectNothingLeftAndTheEarlierOutputIntact() const
    {
        EXPECT_EQ(listDir(dir.path()), before);
        std::ifstream in(dir.file("out.png"));
        EXPECT_EQ(std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>()), "earlier output");
    }

    TempDir dir;
    std::string profile;
    std::vector<std::string> before;
};

TEST_F(CliInterrupt, SigintSigtermAndSighupWhileDenoisingStopWithoutOutput)
{
    for (int sig : {SIGINT, SIGTERM, SIGHUP}) {
        Murmex m(denoise());
        ASSERT_TRUE(m.readUntil([](const std::string& err) { return contains(err, "Removing noise"); },
                                std::chrono::seconds(60)));
        // The output is already open for the rows the library completes.
        EXPECT_TRUE(hasTemporaryFile(dir.path()));
        m.signal(sig);
        const RunResult r = m.wait();
        EXPECT_EQ(r.status, 128 + sig) << r.err;
        EXPECT_TRUE(contains(r.err, "murmex: stopping\n")) << r.err;
        EXPECT_TRUE(contains(r.err, "murmex: interrupted\n")) << r.err;
        expectNothingLeftAndTheEarlierOutputIntact();
    }
}

TEST_F(CliInterrupt, SigtermWhileWritingStopsAtOnceAndRemovesTheTemporaryFile)
{
    Murmex m(denoise(), heldWhileWriting());
    stopWhileWriting(m);
    m.signal(SIGTERM);
    m.signal(SIGCONT);
    const RunResult r = m.wait();
    EXPECT_EQ(r.status, 128 + SIGTERM) << r.err;
    EXPECT_TRUE(contains(r.err, "murmex: stopping\nmurmex: interrupted\n")) << r.err;
    // It stopped in the middle of writing rather than finishing the file.
    EXPECT_TRUE(contains(r.err, "big.tif: Writing")) << r.err;
    EXPECT_FALSE(contains(r.err, "Writing 100%")) << r.err;
    expectNothingLeftAndTheEarlierOutputIntact();
}

TEST_F(CliInterrupt, ASecondCtrlCWhileWritingDoesNotEndTheProgramBeforeItsTemporaryFileIsGone)
{
    Murmex m(denoise(), heldWhileWriting());
    stopWhileWriting(m);
    m.signal(SIGINT);
    m.signal(SIGCONT);
    // The second Ctrl-C comes once the first was handled (two pending ones
    // would count as one).
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (signalPending(m.pid(), SIGINT) && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    m.signal(SIGINT);
    const RunResult r = m.wait();
    EXPECT_EQ(r.status, 130) << r.err;
    EXPECT_TRUE(contains(r.err, "murmex: interrupted\n")) << r.err;
    expectNothingLeftAndTheEarlierOutputIntact();
}

}  // namespace
}  // namespace murmex_test
