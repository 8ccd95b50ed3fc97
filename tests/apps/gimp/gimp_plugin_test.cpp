// The GIMP plug-in tested through GIMP itself: gimp-console-2.10 runs
// Script-Fu batch commands in an isolated profile (a GIMP2_DIRECTORY that
// does not exist yet, a gimprc whose plug-in path holds only Script-Fu, the
// PNG and TIFF plug-ins and the build's plug-in folder, and HOME, XDG_* and
// TMPDIR inside the test's folder). GIMP exits 0 even when a command fails,
// so every run is judged by its log and by the pixels it saved. The pixels
// are compared with what the murmex program makes of the same file.
//
// Every test exits with 77 (CTest's skip code) when GIMP is not installed;
// the interactive test also when Xvfb or xdotool is missing.
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "apps/cli_fixtures.h"
#include "murmex/image_io.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;
using murmex_app::Image;
using murmex_test::noisyPhoto;
using murmex_test::readText;
using murmex_test::runMurmex;
using murmex_test::setCameraExif;

constexpr int kSkip = 77;

bool onPath(const std::string& program)
{
    const char* path = std::getenv("PATH");
    std::stringstream dirs(path ? path : "");
    std::string dir;
    while (std::getline(dirs, dir, ':'))
        if (!dir.empty() && access((fs::path(dir) / program).c_str(), X_OK) == 0)
            return true;
    return false;
}

// Ends the test process as skipped when a program is missing.
void requireProgram(const std::string& program)
{
    if (!onPath(program)) {
        std::cout << program << " is not installed: skipped" << std::endl;
        std::exit(kSkip);
    }
}


// Starts argv with env added to the environment, standard output and error
// into logPath; returns its process id, or -1.
pid_t start(const std::vector<std::string>& args, const std::vector<std::string>& env, const std::string& logPath)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, logPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    std::vector<std::string> envStrings = env;
    for (char** e = environ; *e; ++e) {
        const std::string entry = *e;
        const std::string name = entry.substr(0, entry.find('='));
        bool replaced = false;
        for (const std::string& own : env)
            replaced = replaced || own.substr(0, own.find('=')) == name;
        if (!replaced)
            envStrings.push_back(entry);
    }
    std::vector<char*> argv, envp;
    std::vector<std::string> argStrings = args;
    for (std::string& a : argStrings)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    for (std::string& e : envStrings)
        envp.push_back(e.data());
    envp.push_back(nullptr);
    pid_t pid = -1;
    const int rc = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    return rc == 0 ? pid : -1;
}

// Waits for a started process; returns its exit status, or 128 + signal.
int finish(pid_t pid)
{
    if (pid < 0)
        return -1;
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int spawn(const std::vector<std::string>& args, const std::vector<std::string>& env, const std::string& logPath)
{
    return finish(start(args, env, logPath));
}

// The fields of /proc/pid/stat after the process's name, from its state
// on; empty when the process is gone.
std::istringstream statFields(pid_t pid)
{
    const std::string stat = readText("/proc/" + std::to_string(pid) + "/stat");
    const size_t close = stat.rfind(')');
    return std::istringstream(close == std::string::npos ? std::string() : stat.substr(close + 1));
}

// The parent of process pid; -1 when it is gone.
pid_t parentOf(pid_t pid)
{
    std::istringstream fields = statFields(pid);
    char state = 0;
    pid_t parent = -1;
    fields >> state >> parent;
    return parent;
}

// Processor seconds that process pid has used so far; -1 when it has ended.
double cpuSeconds(pid_t pid)
{
    // The state, ten more fields, then user and system ticks. A zombie has
    // ended already.
    std::istringstream fields = statFields(pid);
    std::string skipped;
    if (!(fields >> skipped) || skipped == "Z")
        return -1;
    for (int i = 0; i < 10; ++i)
        fields >> skipped;
    long long user = 0, system = 0;
    if (!(fields >> user >> system))
        return -1;
    return static_cast<double>(user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// The build's plug-in running a procedure (not answering GIMP's query at
// start-up) under the process tree of root (GIMP started by timeout), or -1.
pid_t runningPlugin(pid_t root)
{
    const fs::path plugin = fs::path(MURMEX_GIMP_BUILD_PLUGINS) / "murmex" / "murmex";
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator("/proc", ec)) {
        const std::string name = entry.path().filename().string();
        if (name.find_first_not_of("0123456789") != std::string::npos)
            continue;
        const pid_t pid = std::stoi(name);
        if (fs::read_symlink(entry.path() / "exe", ec) != plugin || ec)
            continue;
        const std::string cmdline = readText((entry.path() / "cmdline").string());
        if (cmdline.find(std::string("\0-run\0", 6)) != std::string::npos && parentOf(parentOf(pid)) == root)
            return pid;
    }
    return -1;
}

size_t count(const std::string& text, const std::string& what)
{
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
        ++n;
    return n;
}

// A plug-in built with the sanitizers reports on GIMP's output.
void expectNoSanitizerReport(const std::string& log)
{
    EXPECT_EQ(log.find("Sanitizer"), std::string::npos) << log;
    EXPECT_EQ(log.find("runtime error:"), std::string::npos) << log;
}

// What one GIMP run left in its log.
struct GimpLog {
    std::string text;
    size_t succeeded() const { return count(text, "batch command executed successfully"); }
    size_t failed() const { return count(text, "batch command experienced"); }
};

// A test's folder with an isolated GIMP profile, a profile library and the
// images it makes.
class GimpPluginTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        requireProgram("gimp-console-2.10");
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        dir_ = fs::temp_directory_path() / ("murmex-gimp-" + std::string(info->name()) + "-" + std::to_string(getpid()));
        fs::remove_all(dir_);
        fs::create_directories(dir_ / "home");
        fs::create_directories(dir_ / "tmp");
        const std::string plugins = MURMEX_GIMP_SYSTEM_PLUGINS;
        std::ofstream(dir_ / "gimprc") << "(plug-in-path \"" << plugins << "/script-fu:" << plugins << "/file-png:"
                                       << plugins << "/file-tiff:" << MURMEX_GIMP_BUILD_PLUGINS << "\")\n";
    }
    void TearDown() override
    {
        if (!HasFailure())
            fs::remove_all(dir_);
        else
            std::cout << "kept " << dir_ << " for inspection" << std::endl;
    }

    std::string path(const std::string& name) const { return (dir_ / name).string(); }
    std::string library() const { return path("library"); }

    std::vector<std::string> environment() const
    {
        const std::string home = path("home");
        return {"HOME=" + home,
                "XDG_CACHE_HOME=" + home + "/.cache",
                "XDG_CONFIG_HOME=" + home + "/.config",
                "XDG_DATA_HOME=" + home + "/.local/share",
                "TMPDIR=" + path("tmp"),
                "GIMP2_DIRECTORY=" + path("gimp-profile"),  // does not exist yet: GIMP sets it up
                "MURMEX_PROFILES=" + library(),
                // A sanitized plug-in still stops on memory errors; the
                // memory that GLib, GEGL and babl keep until exit (some in
                // modules unloaded by then) is not reported as leaked.
                "ASAN_OPTIONS=" + std::string(std::getenv("ASAN_OPTIONS") ? std::getenv("ASAN_OPTIONS") : "") +
                    ":detect_leaks=0"};
    }

    // Starts one gimp-console run of the batch commands, each its own -b,
    // then quit; its log goes to gimp.log.
    pid_t startGimp(const std::vector<std::string>& commands)
    {
        std::vector<std::string> args{"timeout", "120", "gimp-console-2.10", "-i", "--gimprc=" + path("gimprc")};
        for (const std::string& c : commands) {
            args.push_back("-b");
            args.push_back(c);
        }
        args.push_back("-b");
        args.push_back("(gimp-quit 0)");
        return start(args, environment(), path("gimp.log"));
    }

    GimpLog finishGimp(pid_t gimp)
    {
        const int status = finish(gimp);
        GimpLog log{readText(path("gimp.log"))};
        EXPECT_EQ(status, 0) << log.text;
        expectNoSanitizerReport(log.text);
        return log;
    }

    GimpLog runGimp(const std::vector<std::string>& commands) { return finishGimp(startGimp(commands)); }

    // A 16-bit RGB TIFF of the demo's noisy scene.
    std::string photo(const std::string& name, int width = 320, int height = 240, uint32_t seed = 7, bool alpha = false)
    {
        Image image = noisyPhoto(width, height, seed);
        if (alpha) {
            image.sourceChannels = 4;
            image.alpha.resize(static_cast<size_t>(width) * height);
            for (size_t i = 0; i < image.alpha.size(); ++i)
                image.alpha[i] = static_cast<uint16_t>(1 + (i * 7919) % 65535);  // every value but 0
        }
        const std::string p = path(name);
        murmex_app::writeImage(p, image, murmex_app::ImageFormat::Tiff);
        return p;
    }

    // A profile measured by the murmex program.
    std::string measuredProfile(const std::string& image, const std::string& name)
    {
        const std::string p = path(name);
        const auto r = runMurmex({"profile", image, "-o", p, "-q"});
        EXPECT_EQ(r.status, 0) << r.err;
        return p;
    }

    // The murmex program's denoise of input with every setting given.
    Image cliDenoise(const std::string& input, const std::vector<std::string>& profileArgs,
                     const std::vector<std::string>& settings)
    {
        const std::string out = path("cli-" + std::to_string(cliRuns_++) + ".tif");
        std::vector<std::string> args{"denoise", input, "-o", out, "-q"};
        args.insert(args.end(), profileArgs.begin(), profileArgs.end());
        args.insert(args.end(), settings.begin(), settings.end());
        const auto r = runMurmex(args, {"MURMEX_PROFILES=" + library()});
        EXPECT_EQ(r.status, 0) << r.err;
        return murmex_app::readImage(out);
    }

    // Opens the dialog on input under a virtual X server, types keys, and
    // saves the image to out.
    void runDialog(const std::string& input, const std::string& out, const std::vector<std::string>& keys);

    fs::path dir_;
    int cliRuns_ = 0;
};

// Non-default settings, as the plug-in's arguments (the last one leaves the
// automatic choice off) and as the program's options.
const char* kSettingsArgs = "14 8 12 16 9 11 120 1.2 0 1 0";
const std::vector<std::string> kSettingsOptions{
    "--lum-strength", "14", "--lum-smoothness", "8", "--lum-contrast", "12", "--chroma-strength", "16",
    "--chroma-smoothness", "9", "--chroma-contrast", "11", "--sharpen-amount", "120", "--sharpen-radius", "1.2",
    "--no-suppress-halos", "--low-frequency"};
// The default settings (the middle of every scale, no sharpening, halo
// suppression on, low frequencies off).
const char* kDefaultArgs = "10 10 10 10 10 10 0 1.7 1 0 0";
// The settings chosen for the image: the settings given are not used.
const char* kAutoArgs = "14 8 12 16 9 11 120 1.2 0 1 1";
const std::vector<std::string> kDefaultOptions{
    "--lum-strength", "10", "--lum-smoothness", "10", "--lum-contrast", "10", "--chroma-strength", "10",
    "--chroma-smoothness", "10", "--chroma-contrast", "10", "--sharpen-amount", "0", "--sharpen-radius", "1.7",
    "--suppress-halos", "--no-low-frequency"};

// Images live on in GIMP from one batch command to the next (definitions do
// not): a fresh GIMP numbers the images it loads 1, 2, ...
std::string load(const std::string& file)
{
    return "(gimp-file-load 1 \"" + file + "\" \"" + file + "\")";
}

std::string drawable(const std::string& var)
{
    return "(car (gimp-image-get-active-drawable " + var + "))";
}

std::string denoise(const std::string& var, const std::string& profile, const std::string& settings,
                    const std::string& runMode = "1")
{
    return "(plug-in-murmex-denoise " + runMode + " " + var + " " + drawable(var) + " \"" + profile + "\" " +
           settings + ")";
}

std::string save(const std::string& var, const std::string& file)
{
    return "(gimp-file-save 1 " + var + " " + drawable(var) + " \"" + file + "\" \"" + file + "\")";
}

// The RGB samples of an image (X dropped).
std::vector<uint16_t> rgb(const Image& image)
{
    std::vector<uint16_t> out;
    out.reserve(image.rgbx.size() / 4 * 3);
    for (size_t i = 0; i < image.rgbx.size(); i += 4)
        out.insert(out.end(), image.rgbx.begin() + static_cast<long>(i), image.rgbx.begin() + static_cast<long>(i) + 3);
    return out;
}

TEST_F(GimpPluginTest, SixteenBitRgbWithProfileFileMatchesCommandLine)
{
    const std::string input = photo("photo.tif");
    const std::string profile = measuredProfile(input, "photo.dnp");
    const GimpLog log = runGimp({load(input), denoise("1", profile, kSettingsArgs), save("1", path("out.tif"))});
    ASSERT_EQ(log.succeeded(), 3u) << log.text;
    EXPECT_EQ(log.failed(), 0u) << log.text;

    const Image out = murmex_app::readImage(path("out.tif"));
    const Image expected = cliDenoise(input, {"--profile", profile}, kSettingsOptions);
    const Image original = murmex_app::readImage(input);
    ASSERT_EQ(out.width, expected.width);
    EXPECT_NE(rgb(out), rgb(original));
    EXPECT_TRUE(rgb(out) == rgb(expected)) << "the plug-in's pixels differ from murmex denoise";
}

TEST_F(GimpPluginTest, RgbaKeepsAlphaExactly)
{
    const std::string input = photo("photo.tif", 320, 240, 7, true);
    const std::string profile = measuredProfile(input, "photo.dnp");
    const GimpLog log = runGimp({load(input), denoise("1", profile, kSettingsArgs), save("1", path("out.tif"))});
    ASSERT_EQ(log.succeeded(), 3u) << log.text;

    const Image out = murmex_app::readImage(path("out.tif"));
    const Image original = murmex_app::readImage(input);
    ASSERT_EQ(out.alpha.size(), original.alpha.size());
    EXPECT_TRUE(out.alpha == original.alpha) << "alpha changed";
    const Image expected = cliDenoise(input, {"--profile", profile}, kSettingsOptions);
    EXPECT_TRUE(rgb(out) == rgb(expected)) << "the colour differs from murmex denoise";
}

TEST_F(GimpPluginTest, GreyImageStaysGreyAndMatchesRgbRoundTrip)
{
    const std::string input = photo("photo.tif");
    const std::string profile = measuredProfile(input, "photo.dnp");
    const GimpLog log = runGimp({
        load(input),
        "(gimp-image-convert-grayscale 1)",
        save("1", path("grey-in.tif")),
        denoise("1", profile, kSettingsArgs),
        "(if (not (= (car (gimp-image-base-type 1)) GRAY)) (error \"not grey any more\"))",
        save("1", path("grey-out.tif")),
        // The same grey image processed as RGB and converted back.
        load(input),
        "(gimp-image-convert-grayscale 2)",
        "(gimp-image-convert-rgb 2)",
        denoise("2", profile, kSettingsArgs),
        "(gimp-image-convert-grayscale 2)",
        save("2", path("via-rgb.tif")),
    });
    EXPECT_EQ(log.failed(), 0u) << log.text;
    ASSERT_EQ(log.succeeded(), 12u) << log.text;

    const Image before = murmex_app::readImage(path("grey-in.tif"));
    const Image grey = murmex_app::readImage(path("grey-out.tif"));
    const Image viaRgb = murmex_app::readImage(path("via-rgb.tif"));
    EXPECT_EQ(grey.sourceChannels, 1);
    EXPECT_NE(rgb(grey), rgb(before));
    EXPECT_TRUE(rgb(grey) == rgb(viaRgb)) << "grey differs from RGB processing converted back";
}

// The largest difference of two images' RGB samples.
int maxDifference(const Image& a, const Image& b)
{
    int worst = 0;
    for (size_t i = 0; i < a.rgbx.size() && i < b.rgbx.size(); ++i)
        if (i % 4 != 3)
            worst = std::max(worst, std::abs(int(a.rgbx[i]) - int(b.rgbx[i])));
    return worst;
}

TEST_F(GimpPluginTest, EightBitAndFloatImagesAreProcessed)
{
    const std::string input = photo("photo.tif");
    const std::string profile = measuredProfile(input, "photo.dnp");
    const GimpLog log = runGimp({
        load(input),
        "(gimp-image-convert-precision 1 PRECISION-U8-GAMMA)",
        save("1", path("eight-in.tif")),
        denoise("1", profile, kSettingsArgs),
        save("1", path("eight-out.tif")),
        load(input),
        "(gimp-image-convert-precision 2 PRECISION-FLOAT-LINEAR)",
        denoise("2", profile, kSettingsArgs),
        "(gimp-image-convert-precision 2 PRECISION-U16-GAMMA)",
        save("2", path("float-out.tif")),
    });
    EXPECT_EQ(log.failed(), 0u) << log.text;
    ASSERT_EQ(log.succeeded(), 10u) << log.text;

    // 8 bits: the engine sees v * 257 as the program does, and the result
    // is rounded to 8 bits on the way back.
    const Image eightIn = murmex_app::readImage(path("eight-in.tif"));
    const Image eightOut = murmex_app::readImage(path("eight-out.tif"));
    EXPECT_EQ(eightOut.bitsPerSample, 8);
    Image expected8 = cliDenoise(path("eight-in.tif"), {"--profile", profile}, kSettingsOptions);
    for (size_t i = 0; i < expected8.rgbx.size(); ++i)
        expected8.rgbx[i] = static_cast<uint16_t>((expected8.rgbx[i] + 128) / 257 * 257);
    EXPECT_NE(rgb(eightOut), rgb(eightIn));
    EXPECT_LE(maxDifference(eightOut, expected8), 257);

    // 32-bit float, linear: converted to 16-bit perceptual values and back,
    // which rounds at either end.
    const Image floatOut = murmex_app::readImage(path("float-out.tif"));
    const Image expected16 = cliDenoise(input, {"--profile", profile}, kSettingsOptions);
    EXPECT_NE(rgb(floatOut), rgb(murmex_app::readImage(input)));
    EXPECT_LE(maxDifference(floatOut, expected16), 16);
}

TEST_F(GimpPluginTest, RectangleSelectionChangesOnlyItsInside)
{
    const std::string input = photo("photo.tif");
    const std::string profile = measuredProfile(input, "photo.dnp");
    const int x0 = 100, y0 = 60, w = 120, h = 90;
    const GimpLog log = runGimp({
        load(input),
        "(gimp-image-select-rectangle 1 CHANNEL-OP-REPLACE " + std::to_string(x0) + " " + std::to_string(y0) + " " +
            std::to_string(w) + " " + std::to_string(h) + ")",
        denoise("1", profile, kSettingsArgs),
        "(gimp-selection-none 1)",
        save("1", path("out.tif")),
    });
    ASSERT_EQ(log.succeeded(), 5u) << log.text;

    const Image in = murmex_app::readImage(input);
    const Image out = murmex_app::readImage(path("out.tif"));
    size_t outsideChanged = 0, inside = 0, insideChanged = 0;
    for (int y = 0; y < in.height; ++y)
        for (int x = 0; x < in.width; ++x) {
            const size_t at = (static_cast<size_t>(y) * in.width + x) * 4;
            const bool changed = std::memcmp(&in.rgbx[at], &out.rgbx[at], 3 * sizeof(uint16_t)) != 0;
            if (x >= x0 && x < x0 + w && y >= y0 && y < y0 + h) {
                ++inside;
                insideChanged += changed;
            } else {
                outsideChanged += changed;
            }
        }
    EXPECT_EQ(outsideChanged, 0u);
    EXPECT_GT(insideChanged, inside * 9 / 10);
}

TEST_F(GimpPluginTest, AutoPicksTheLibraryProfileForTheExifCameraAndIso)
{
    // Two library profiles for the camera, measured from differently noisy
    // photos and filed by their Exif.
    for (const auto& [iso, seed] : {std::pair{100, 11u}, std::pair{1600, 12u}}) {
        const std::string source = photo("source-" + std::to_string(iso) + ".tif", 320, 240, seed);
        setCameraExif(source, "Murmex", "Test Camera", iso);
        const auto r = runMurmex({"profile", source, "--library", library(), "-q"});
        ASSERT_EQ(r.status, 0) << r.err;
    }
    const std::string input = photo("photo.tif");
    setCameraExif(input, "Murmex", "Test Camera", 1250);
    const GimpLog log =
        runGimp({load(input), denoise("1", "auto", kSettingsArgs), save("1", path("out.tif"))});
    ASSERT_EQ(log.succeeded(), 3u) << log.text;

    const Image out = murmex_app::readImage(path("out.tif"));
    const Image expected = cliDenoise(input, {}, kSettingsOptions);  // the program's own automatic match
    EXPECT_TRUE(rgb(out) == rgb(expected)) << "not the library's ISO 1600 profile";
    std::string iso1600;
    for (const auto& entry : fs::recursive_directory_iterator(library()))
        if (entry.path().string().find("1600") != std::string::npos && entry.path().extension() == ".dnp")
            iso1600 = entry.path().string();
    ASSERT_FALSE(iso1600.empty());
    EXPECT_TRUE(rgb(out) == rgb(cliDenoise(input, {"--profile", iso1600}, kSettingsOptions)));
    EXPECT_FALSE(rgb(out) == rgb(cliDenoise(input, {"--save-profile", path("measured.dnp")}, kSettingsOptions)));
}

TEST_F(GimpPluginTest, MeasureMeasuresFromTheImage)
{
    const std::string input = photo("photo.tif");
    const GimpLog log =
        runGimp({load(input), denoise("1", "measure", kDefaultArgs), save("1", path("out.tif"))});
    ASSERT_EQ(log.succeeded(), 3u) << log.text;
    const Image out = murmex_app::readImage(path("out.tif"));
    const Image expected = cliDenoise(input, {"--save-profile", path("measured.dnp")}, kDefaultOptions);
    EXPECT_NE(rgb(out), rgb(murmex_app::readImage(input)));
    EXPECT_TRUE(rgb(out) == rgb(expected)) << "not the profile measured from the image";
}

TEST_F(GimpPluginTest, MissingOrCorruptProfileFailsAndLeavesTheImageUnchanged)
{
    const std::string input = photo("photo.tif");
    const std::string corrupt = path("corrupt.dnp");
    std::ofstream(corrupt) << "this is not a noise profile";
    const std::string missing = path("missing.dnp");
    // A named pipe without a writer: opening it would wait for ever.
    const std::string pipe = path("pipe.dnp");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0644), 0);
    const GimpLog log = runGimp({
        load(input),
        denoise("1", missing, kSettingsArgs),
        denoise("1", corrupt, kSettingsArgs),
        denoise("1", pipe, kSettingsArgs),
        save("1", path("out.tif")),
    });
    EXPECT_EQ(log.succeeded(), 2u) << log.text;
    EXPECT_EQ(log.failed(), 3u) << log.text;
    EXPECT_NE(log.text.find("cannot load profile " + missing), std::string::npos) << log.text;
    EXPECT_NE(log.text.find("cannot load profile " + corrupt), std::string::npos) << log.text;
    EXPECT_NE(log.text.find("cannot load profile " + pipe + ": it is a named pipe, not a regular file"),
              std::string::npos)
        << log.text;
    const Image out = murmex_app::readImage(path("out.tif"));
    EXPECT_TRUE(rgb(out) == rgb(murmex_app::readImage(input)));
}

// Cancel on GIMP's progress bar makes GIMP end the plug-in, by SIGKILL if
// need be: whatever the plug-in was doing, nothing is merged.
TEST_F(GimpPluginTest, PluginEndedMidRunLeavesTheImageUnchanged)
{
    const std::string input = photo("photo.tif", 4000, 3000);
    const pid_t gimp = startGimp({load(input), denoise("1", "measure", kDefaultArgs), save("1", path("out.tif"))});
    pid_t plugin = -1;
    for (int i = 0; i < 1200 && plugin < 0; ++i) {
        usleep(50000);
        plugin = runningPlugin(gimp);
    }
    ASSERT_GT(plugin, 0) << "the plug-in did not start";
    // Ended by the work it has done rather than by the clock, so that a fast
    // machine does not see it finish first: by half a second of processor
    // time it has read the layer and is measuring or removing noise, well
    // short of the whole run.
    double used = 0;
    while ((used = cpuSeconds(plugin)) >= 0 && used < 0.5)
        usleep(10000);
    ASSERT_GE(used, 0) << "the plug-in finished before it could be ended";
    kill(plugin, SIGKILL);
    const GimpLog log = finishGimp(gimp);
    EXPECT_EQ(log.failed(), 1u) << log.text;
    ASSERT_EQ(log.succeeded(), 2u) << log.text;
    EXPECT_TRUE(rgb(murmex_app::readImage(path("out.tif"))) == rgb(murmex_app::readImage(input)));
}

TEST_F(GimpPluginTest, RunWithLastValuesRepeatsThePreviousSettings)
{
    const std::string input = photo("photo.tif");
    const std::string profile = measuredProfile(input, "photo.dnp");
    // The second run passes other arguments, which last values ignore.
    const GimpLog log = runGimp({
        load(input),
        denoise("1", profile, kSettingsArgs),
        save("1", path("first.tif")),
        load(input),
        denoise("2", "measure", kDefaultArgs, "RUN-WITH-LAST-VALS"),
        save("2", path("second.tif")),
    });
    ASSERT_EQ(log.succeeded(), 6u) << log.text;
    const Image first = murmex_app::readImage(path("first.tif"));
    const Image second = murmex_app::readImage(path("second.tif"));
    EXPECT_TRUE(rgb(first) == rgb(second));
    EXPECT_TRUE(rgb(second) == rgb(cliDenoise(input, {"--profile", profile}, kSettingsOptions)));
}

TEST_F(GimpPluginTest, AutoSettingsMatchTheCommandLinesAutomaticSettings)
{
    const std::string input = photo("photo.tif");
    const std::string profile = measuredProfile(input, "photo.dnp");
    const GimpLog log = runGimp({
        load(input),
        denoise("1", profile, kAutoArgs),
        save("1", path("with-file.tif")),
        load(input),
        denoise("2", "measure", kAutoArgs),
        save("2", path("measured.tif")),
    });
    EXPECT_EQ(log.failed(), 0u) << log.text;
    ASSERT_EQ(log.succeeded(), 6u) << log.text;

    const Image withFile = murmex_app::readImage(path("with-file.tif"));
    EXPECT_TRUE(rgb(withFile) == rgb(cliDenoise(input, {"--profile", profile, "--settings", "auto"}, {})))
        << "not the program's automatic settings";
    EXPECT_FALSE(rgb(withFile) == rgb(cliDenoise(input, {"--profile", profile}, kSettingsOptions)))
        << "the settings given were used";
    EXPECT_FALSE(rgb(withFile) == rgb(cliDenoise(input, {"--profile", profile}, kDefaultOptions)));
    const Image measured = murmex_app::readImage(path("measured.tif"));
    EXPECT_TRUE(rgb(measured) == rgb(cliDenoise(input, {"--settings", "auto"}, {})))
        << "not the program's automatic settings with a profile measured from the image";
}

TEST_F(GimpPluginTest, ProfileProcedureWritesAProfileWithTheExifHeader)
{
    const std::string input = photo("photo.tif");
    setCameraExif(input, "Murmex", "Test Camera", 800);
    const std::string target = path("measured.dnp");
    const GimpLog log = runGimp({
        load(input),
        "(plug-in-murmex-profile 1 1 " + drawable("1") + " \"" + target + "\" 0)",
        "(plug-in-murmex-profile 1 1 " + drawable("1") + " \"\" 0)",
    });
    ASSERT_EQ(log.succeeded(), 3u) << log.text;

    const auto info = runMurmex({"info", target, "--json"});
    ASSERT_EQ(info.status, 0) << info.err;
    const murmex_test::Json json = murmex_test::JsonParser::parse(info.out);
    const murmex_test::Json& header = json["header"];
    EXPECT_EQ(header["maker"].text, "Murmex");
    EXPECT_EQ(header["model"].text, "Test Camera");
    EXPECT_EQ(header["iso"].number, 800);
    EXPECT_FLOAT_EQ(static_cast<float>(header["shutterspeed"].number), 1.0f / 125.0f);
    EXPECT_GT(json["samples"].items.size(), 0u);

    // With no file name it goes into the library, where the program finds it.
    size_t inLibrary = 0;
    for (const auto& entry : fs::recursive_directory_iterator(library()))
        inLibrary += entry.path().extension() == ".dnp";
    EXPECT_EQ(inLibrary, 1u);
}

// The dialog under a virtual X server: xdotool finds it by its title and
// types keys (each entry of keys one xdotool key command, after a pause);
// the image is then saved to out.
void GimpPluginTest::runDialog(const std::string& input, const std::string& out, const std::vector<std::string>& keys)
{
    requireProgram("xvfb-run");
    requireProgram("xdotool");
    requireProgram("gimp-2.10");
    const std::string script = "(let* ((img (car (gimp-file-load 1 \"" + input + "\" \"photo.tif\")))) " +
                               "(plug-in-murmex-denoise RUN-INTERACTIVE img " + drawable("1") + " \"\" " +
                               kDefaultArgs + ") " + save("1", out) + ")";
    std::ofstream sh(path("interactive.sh"));
    sh << "gimp-2.10 -n -s -d -f -c --gimprc=" << path("gimprc") << " -b '" << script << "' -b '(gimp-quit 0)' &\n"
       << "gimp=$!\n"
       << "window=$(timeout 60 xdotool search --sync --name '^Murmex Noise Reduction$' | head -n 1)\n"
       << "[ -n \"$window\" ] || { echo 'no dialog'; kill $gimp; exit 1; }\n"
       << "echo \"dialog $window\"\n";
    for (const std::string& key : keys)
        sh << "sleep 3\nxdotool windowfocus --sync \"$window\" key " << key << "\n";
    sh << "wait $gimp\n";
    sh.close();
    const int status = spawn({"timeout", "180", "xvfb-run", "-a", "-s", "-screen 0 1280x800x24", "sh",
                              path("interactive.sh")},
                             environment(), path("gimp.log"));
    const std::string log = readText(path("gimp.log"));
    ASSERT_EQ(status, 0) << log;
    expectNoSanitizerReport(log);
    EXPECT_NE(log.find("dialog "), std::string::npos) << log;
    EXPECT_EQ(count(log, "batch command executed successfully"), 1u) << log;
}

TEST_F(GimpPluginTest, InteractiveDialogOpensAndApplies)
{
    const std::string input = photo("photo.tif");
    const std::string out = path("out.tif");
    runDialog(input, out, {"alt+o"});
    const Image result = murmex_app::readImage(out);
    EXPECT_NE(rgb(result), rgb(murmex_app::readImage(input)));
}

// "Auto" moves the sliders to the settings the program chooses for the same
// image and profile (here measured from it); OK then applies them.
TEST_F(GimpPluginTest, InteractiveAutoButtonChoosesTheProgramsSettings)
{
    const std::string input = photo("photo.tif");
    const std::string out = path("out.tif");
    runDialog(input, out, {"alt+a", "alt+o"});
    const Image result = murmex_app::readImage(out);
    EXPECT_TRUE(rgb(result) == rgb(cliDenoise(input, {"--settings", "auto"}, {})))
        << "not the program's automatic settings";
    EXPECT_FALSE(rgb(result) == rgb(cliDenoise(input, {}, kDefaultOptions))) << "the sliders did not move";
}

}  // namespace
