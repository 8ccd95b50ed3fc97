// Whole-program tests of where murmex writes: what it refuses to replace,
// how it follows links, and the options that name and shape the outputs.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <tiffio.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "apps/cli_fixtures.h"
#include "murmex/image_io.h"
#include "support/temp_dir.h"

namespace murmex_test {
namespace {

using murmex_app::Image;
using murmex_app::ImageFormat;
using murmex_app::readImage;
using murmex_app::writeImage;

namespace fs = std::filesystem;



mode_t modeOf(const std::string& path)
{
    struct stat st {};
    lstat(path.c_str(), &st);
    return st.st_mode;
}

// A listening-less Unix socket bound at path; closed (the name stays) when
// the object goes.
class BoundSocket {
public:
    explicit BoundSocket(const std::string& path) : fd_(socket(AF_UNIX, SOCK_STREAM, 0))
    {
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        EXPECT_LT(path.size(), sizeof addr.sun_path);
        std::strncpy(addr.sun_path, path.c_str(), sizeof addr.sun_path - 1);
        EXPECT_EQ(bind(fd_, reinterpret_cast<const sockaddr*>(&addr), sizeof addr), 0) << std::strerror(errno);
    }
    ~BoundSocket() { close(fd_); }

private:
    int fd_;
};

// A photo, a profile measured beforehand (so that runs are quick) and the
// directory holding them.
class CliOutputs : public ::testing::Test {
protected:
    void SetUp() override
    {
        profile = makeProfile(dir, "p.dnp", 300, 200);
        photo = dir.file("in.tif");
        writeImage(photo, noisyPhoto(200, 150, 5), ImageFormat::Tiff);
    }

    TempDir dir;
    std::string profile, photo;
};

TEST_F(CliOutputs, DevicesPipesAndSocketsAreRefusedAndLeftAsTheyAre)
{
    ASSERT_EQ(mkfifo(dir.file("pipe.tif").c_str(), 0644), 0);
    ASSERT_EQ(mkfifo(dir.file("pipe.dnp").c_str(), 0644), 0);
    BoundSocket socketFile(dir.file("socket.dnp"));
    // A device node like /dev/null's, where the system lets the test make one.
    const bool device = mknod(dir.file("null.tif").c_str(), S_IFCHR | 0666, makedev(1, 3)) == 0;
    const std::vector<std::string> before = listDir(dir.path());

    std::vector<std::pair<std::vector<std::string>, std::string>> runs = {
        {{"denoise", photo, "-o", dir.file("pipe.tif")}, "named pipe"},
        {{"denoise", photo, "-o", dir.file("out.tif"), "--save-profile", dir.file("pipe.dnp")}, "named pipe"},
        {{"denoise", photo, "-o", dir.file("out.tif"), "--save-profile", dir.file("socket.dnp")}, "socket"},
        {{"profile", photo, "-o", dir.file("pipe.dnp")}, "named pipe"},
        {{"profile", photo, "-o", dir.file("socket.dnp")}, "socket"},
    };
    if (device)
        runs.push_back({{"denoise", photo, "--profile", profile, "-o", dir.file("null.tif")}, "device"});
    for (auto& [args, kind] : runs) {
        args.push_back("-q");
        const RunResult r = runMurmex(args);
        EXPECT_EQ(r.status, 1) << args[3];
        expectOneLineError(r, "it is a " + kind + ", not a regular file");
    }
    EXPECT_TRUE(S_ISFIFO(modeOf(dir.file("pipe.tif"))));
    EXPECT_TRUE(S_ISFIFO(modeOf(dir.file("pipe.dnp"))));
    EXPECT_TRUE(S_ISSOCK(modeOf(dir.file("socket.dnp"))));
    if (device) {
        EXPECT_TRUE(S_ISCHR(modeOf(dir.file("null.tif"))));
    }
    EXPECT_EQ(listDir(dir.path()), before);
}

TEST_F(CliOutputs, AnOutputThatIsAnInputOrAnotherOutputIsAUsageError)
{
    fs::copy_file(profile, dir.file("profile.tif"));
    fs::create_symlink("in.tif", dir.file("in-link.dnp"));
    const std::vector<uint8_t> photoBytes = fileBytes(photo);
    const std::vector<uint8_t> profileBytes = fileBytes(dir.file("profile.tif"));
    const std::vector<std::string> before = listDir(dir.path());

    const std::vector<std::pair<std::vector<std::string>, std::string>> runs = {
        // The profile measured from the photo would replace the photo.
        {{"denoise", photo, "-o", dir.file("out.tif"), "--save-profile", photo}, "refusing to overwrite the input"},
        {{"denoise", photo, "-o", dir.file("out.tif"), "--save-profile", dir.file("in-link.dnp")},
         "refusing to overwrite the input"},
        // Two outputs of one run in one file.
        {{"denoise", photo, "-o", dir.file("out.tif"), "--save-profile", dir.file("./out.tif")}, "same file"},
        // The image would replace the profile that the run reads.
        {{"denoise", photo, "--profile", dir.file("profile.tif"), "-o", dir.file("profile.tif")},
         "refusing to overwrite the profile"},
    };
    for (const auto& [args, message] : runs) {
        const RunResult r = runMurmex(args);
        EXPECT_EQ(r.status, 2) << args.back();
        expectOneLineError(r, message);
    }
    EXPECT_EQ(fileBytes(photo), photoBytes);
    EXPECT_EQ(fileBytes(dir.file("profile.tif")), profileBytes);
    EXPECT_EQ(listDir(dir.path()), before);
}

TEST_F(CliOutputs, ALinkedOutputReplacesTheFileItPointsToAndKeepsItsMode)
{
    fs::create_directory(dir.file("real"));
    writeText(dir.file("real/out.tif"), "old");
    chmod(dir.file("real/out.tif").c_str(), 0600);
    fs::create_symlink("real/out.tif", dir.file("link.tif"));

    const RunResult r = runMurmex({"denoise", photo, "--profile", profile, "-o", dir.file("link.tif"), "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(fs::is_symlink(fs::symlink_status(dir.file("link.tif"))));
    EXPECT_EQ(fs::read_symlink(dir.file("link.tif")), "real/out.tif");
    EXPECT_EQ(readImage(dir.file("real/out.tif")).width, 200);
    EXPECT_EQ(modeOf(dir.file("real/out.tif")) & 07777, 0600u);
    EXPECT_EQ(listDir(dir.file("real")), std::vector<std::string>{"out.tif"});
    EXPECT_EQ(listDir(dir.path()),
              (std::vector<std::string>{"in.tif", "link.tif", "p.dnp", "profile-source.tif", "real"}));
}

TEST_F(CliOutputs, ALinkAtANameTheProgramMakesIsRefusedAndWhatItPointsToKept)
{
    // Outputs named after the input, in an output folder, for the demo and
    // in the profile library: a link found at such a name may point
    // anywhere, so nothing is written through it, dangling or not.
    fs::create_directory(dir.file("elsewhere"));
    writeText(dir.file("elsewhere/victim"), "victim");
    const std::string library = dir.file("library");
    const RunResult stored = runMurmex({"profile", photo, "--library", library, "-q"});
    ASSERT_EQ(stored.status, 0) << stored.err;
    const std::string libraryProfile = stored.out.substr(0, stored.out.find(" ("));
    ASSERT_TRUE(fs::remove(libraryProfile)) << stored.out;
    fs::create_symlink(dir.file("elsewhere/new.dnp"), libraryProfile);
    fs::create_directory(dir.file("clean"));
    fs::create_symlink("../elsewhere/victim", dir.file("clean/in.tif"));
    fs::create_symlink("elsewhere/victim", dir.file("in-denoised.tif"));
    fs::create_symlink("elsewhere/new.tif", dir.file("in_nr.tif"));
    fs::create_directory(dir.file("demo"));
    fs::create_symlink("../elsewhere/victim", dir.file("demo/denoised.tif"));
    const std::vector<std::string> before = listDir(dir.path());

    const std::vector<std::pair<std::vector<std::string>, std::string>> runs = {
        {{"denoise", photo, "--profile", profile, "--out-dir", dir.file("clean")}, dir.file("clean/in.tif")},
        {{"denoise", photo, "--profile", profile}, dir.file("in-denoised.tif")},
        {{"denoise", photo, "--profile", profile, "--suffix", "_nr"}, dir.file("in_nr.tif")},
        {{"denoise", photo, "--profile", profile, "--suffix", "_nr", "--skip-existing"}, dir.file("in_nr.tif")},
        {{"demo", "--out-dir", dir.file("demo"), "--width", "64", "--height", "48"}, dir.file("demo/denoised.tif")},
        {{"profile", photo, "--library", library}, libraryProfile},
    };
    for (auto [args, output] : runs) {
        args.push_back("-q");
        const RunResult r = runMurmex(args);
        EXPECT_EQ(r.status, 1) << output;
        expectOneLineError(r, "cannot write " + output + ": it is a symbolic link");
    }
    EXPECT_EQ(readText(dir.file("elsewhere/victim")), "victim");
    EXPECT_EQ(listDir(dir.file("elsewhere")), std::vector<std::string>{"victim"});
    EXPECT_EQ(listDir(dir.path()), before);
    for (const std::string& link : {libraryProfile, dir.file("clean/in.tif"), dir.file("in-denoised.tif"),
                                    dir.file("in_nr.tif"), dir.file("demo/denoised.tif")})
        EXPECT_TRUE(fs::is_symlink(fs::symlink_status(link))) << link;
    EXPECT_EQ(listDir(dir.file("demo")), std::vector<std::string>{"denoised.tif"});
}

TEST_F(CliOutputs, SetThroughALinkChangesTheProfileItPointsTo)
{
    chmod(profile.c_str(), 0640);
    fs::create_symlink("p.dnp", dir.file("link.dnp"));
    const RunResult r = runMurmex({"set", dir.file("link.dnp"), "--lum-strength", "12.5"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(fs::is_symlink(fs::symlink_status(dir.file("link.dnp"))));
    const Json j = JsonParser::parse(runMurmex({"info", profile, "--json"}).out);
    EXPECT_EQ(j["settings"]["lum-strength"].number, 12.5);
    EXPECT_EQ(modeOf(profile) & 07777, 0640u);
}

TEST_F(CliOutputs, AnExistingOutputTheUserMayNotWriteIsRefusedAsCpWould)
{
    // Root may write any file; the program then runs as an ordinary user,
    // for whom one output is read-only and the other somebody else's.
    const bool root = geteuid() == 0;
    const std::vector<std::string> asUser =
        root ? std::vector<std::string>{"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"}
             : std::vector<std::string>{};
    chmod(dir.path().c_str(), 0777);
    chmod(photo.c_str(), 0644);
    chmod(profile.c_str(), 0644);
    writeText(dir.file("read-only.tif"), "old");
    chmod(dir.file("read-only.tif").c_str(), 0444);
    std::vector<std::string> targets{"read-only.tif"};
    if (root) {
        ASSERT_EQ(chown(dir.file("read-only.tif").c_str(), 65534, 65534), 0);
        writeText(dir.file("root-owned.tif"), "old");  // mode 0644, owned by root
        targets.push_back("root-owned.tif");
    }
    for (const std::string& name : targets) {
        const RunResult r =
            runMurmex({"denoise", photo, "--profile", profile, "-o", dir.file(name), "-q"}, {}, asUser);
        EXPECT_EQ(r.status, 1) << name;
        expectOneLineError(r, "cannot write " + dir.file(name) + ": permission denied");
        EXPECT_EQ(readText(dir.file(name)), "old");
    }
    for (const std::string& name : listDir(dir.path()))
        EXPECT_EQ(name.find(".murmex-"), std::string::npos) << name;
}

TEST_F(CliOutputs, SuffixAndFormatNameTheOutputs)
{
    fs::create_directory(dir.file("src"));
    writeImage(dir.file("src/a.tif"), noisyPhoto(200, 150, 1), ImageFormat::Tiff);
    writeImage(dir.file("src/b.png"), noisyPhoto(200, 150, 2), ImageFormat::Png);
    RunResult r = runMurmex({"denoise", dir.file("src/a.tif"), dir.file("src/b.png"), "--profile", profile, "--suffix",
                             "_nr", "--format", "jpg", "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(listDir(dir.file("src")), (std::vector<std::string>{"a.tif", "a_nr.jpg", "b.png", "b_nr.jpg"}));
    EXPECT_EQ(readImage(dir.file("src/a_nr.jpg")).bitsPerSample, 8);

    r = runMurmex({"denoise", dir.file("src/a.tif"), dir.file("src/b.png"), "--profile", profile, "--out-dir",
                   dir.file("out"), "--format", "png", "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(listDir(dir.file("out")), (std::vector<std::string>{"a.png", "b.png"}));

    // A format that the named output does not have is a usage error.
    r = runMurmex({"denoise", photo, "-o", dir.file("x.tif"), "--format", "png"});
    EXPECT_EQ(r.status, 2);
    expectOneLineError(r, "--format");
}

TEST_F(CliOutputs, CompressionChoosesHowTiffOutputsArePackedWithoutChangingThePixels)
{
    const std::vector<std::pair<std::string, uint16_t>> kinds = {
        {"", COMPRESSION_ADOBE_DEFLATE}, {"none", COMPRESSION_NONE}, {"deflate", COMPRESSION_ADOBE_DEFLATE},
        {"lzw", COMPRESSION_LZW}};
    std::vector<uint16_t> pixels;
    for (const auto& [name, tag] : kinds) {
        const std::string out = dir.file("out-" + name + ".tif");
        std::vector<std::string> args{"denoise", photo, "--profile", profile, "-o", out, "-q"};
        if (!name.empty())
            args.insert(args.end(), {"--compression", name});
        const RunResult r = runMurmex(args);
        ASSERT_EQ(r.status, 0) << r.err;
        TIFF* t = TIFFOpen(out.c_str(), "r");
        ASSERT_NE(t, nullptr);
        uint16_t compression = 0;
        TIFFGetField(t, TIFFTAG_COMPRESSION, &compression);
        TIFFClose(t);
        EXPECT_EQ(compression, tag) << name;
        const Image image = readImage(out);
        if (pixels.empty())
            pixels = image.rgbx;
        EXPECT_EQ(image.rgbx, pixels) << name;
    }
    const RunResult r = runMurmex({"denoise", photo, "--compression", "jpeg"});
    EXPECT_EQ(r.status, 2);
    expectOneLineError(r, "--compression");
}

TEST_F(CliOutputs, SkipExistingLeavesInputsWithAnOutputAlone)
{
    writeImage(dir.file("b.tif"), noisyPhoto(200, 150, 6), ImageFormat::Tiff);
    writeText(dir.file("in-denoised.tif"), "old");
    const RunResult r = runMurmex({"denoise", photo, dir.file("b.tif"), "--profile", profile, "--skip-existing"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(readText(dir.file("in-denoised.tif")), "old");
    EXPECT_EQ(readImage(dir.file("b-denoised.tif")).width, 200);
    EXPECT_TRUE(contains(r.err, "in.tif (file 1 of 2): skipped, " + dir.file("in-denoised.tif") + " exists")) << r.err;
}

}  // namespace
}  // namespace murmex_test
