// Whole-program tests of an output that cannot be written while the library
// works: the program is run under a file size limit, as on a disk that fills
// up, so the writer's first rows fail while the library is still denoising.
// The run stops without finishing the work, says so in one line naming the
// output, and leaves no partial or temporary file and an earlier output
// intact.
#include <fstream>

#include <gtest/gtest.h>

#include "apps/cli_fixtures.h"
#include "murmex/image_io.h"
#include "support/temp_dir.h"

namespace murmex_test {
namespace {

using murmex_app::ImageFormat;
using murmex_app::writeImage;

// Starts the program with files limited to 64 KB. SIGXFSZ is ignored, so a
// write beyond the limit fails with EFBIG instead of killing the process.
const std::vector<std::string> kFileSizeLimit = {"/bin/sh", "-c", "ulimit -f 64 && trap '' XFSZ && exec \"$0\" \"$@\""};

TEST(CliWriteFailureThreadTest, AWriterThatFailsStopsTheLibraryAndLeavesNoFile)
{
    TempDir dir;
    const std::string profile = makeProfile(dir, "p.dnp", 300, 200);
    // Large enough that the library still has most of its work ahead when
    // the writer's first rows fail.
    writeImage(dir.file("big.tif"), noisyPhoto(1200, 800), ImageFormat::Tiff);
    for (const std::vector<std::string>& output : {std::vector<std::string>{"out.tif"},
                                                  std::vector<std::string>{"out.tif", "--compression", "none"},
                                                  std::vector<std::string>{"out.png"}, std::vector<std::string>{"out.jpg"}}) {
        const std::string out = dir.file(output[0]);
        std::ofstream(out) << "earlier output";
        const std::vector<std::string> before = listDir(dir.path());
        std::vector<std::string> args = {"denoise", dir.file("big.tif"), "--profile", profile, "-o", out};
        args.insert(args.end(), output.begin() + 1, output.end());
        const RunResult r = runMurmex(args, {}, kFileSizeLimit);
        SCOPED_TRACE(out);
        EXPECT_EQ(r.status, 1) << r.err;
        std::vector<std::string> messages;
        for (const std::string& line : splitLines(r.err))
            if (line.rfind("murmex: ", 0) == 0)
                messages.push_back(line);
        ASSERT_EQ(messages.size(), 1u) << r.err;
        EXPECT_EQ(messages[0], "murmex: cannot write " + out + ": file too large");
        // The library was stopped: it never reported the end of its work,
        // and nothing was written after it.
        EXPECT_TRUE(contains(r.err, "big.tif: Removing noise")) << r.err;
        EXPECT_FALSE(contains(r.err, "Removing noise 100%")) << r.err;
        EXPECT_FALSE(contains(r.err, "Writing")) << r.err;
        EXPECT_EQ(listDir(dir.path()), before);
        std::ifstream in(out);
        EXPECT_EQ(std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>()), "earlier output");
    }
}

}  // namespace
}  // namespace murmex_test
