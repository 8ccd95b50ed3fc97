#include "murmex/profile_library.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "murmex/cli_engine.h"
#include "murmex/demo_scene.h"
#include "support/temp_dir.h"

namespace murmex_app {
namespace {

LibraryEntry entry(const std::string& path, const char* maker, const char* model, std::optional<int> iso)
{
    LibraryEntry e;
    e.path = path;
    e.header.maker = maker;
    e.header.model = model;
    e.header.iso = iso;
    return e;
}

CameraInfo camera(const char* maker, const char* model, std::optional<int> iso)
{
    CameraInfo c;
    c.maker = maker;
    c.model = model;
    c.iso = iso;
    return c;
}

std::string matched(const std::vector<LibraryEntry>& entries, const CameraInfo& c)
{
    const auto m = matchProfile(entries, c);
    return m ? m->path : "none";
}

const std::vector<LibraryEntry> library = {
    entry("a400", "Canon", "EOS 5D", 400),
    entry("a1600", "Canon", "EOS 5D", 1600),
    entry("b800", "Nikon", "D700", 800),
    entry("c200", "Canon", "EOS 6D", 200),
};

TEST(ProfileLibrary, MatchesMakerAndModelAndTheNearestIso)
{
    EXPECT_EQ(matched(library, camera("Canon", "EOS 5D", 1400)), "a1600");
    EXPECT_EQ(matched(library, camera("Canon", "EOS 5D", 50)), "a400");
    EXPECT_EQ(matched(library, camera("Canon", "EOS 5D", 25600)), "a1600");
    EXPECT_EQ(matched(library, camera("Nikon", "D700", 100)), "b800");
    EXPECT_EQ(matched(library, camera("Canon", "EOS 6D", 6400)), "c200");
}

TEST(ProfileLibrary, AnIsoTieGoesToTheLowerIso)
{
    EXPECT_EQ(matched(library, camera("Canon", "EOS 5D", 1000)), "a400");
    // Also when the higher one comes first in the list.
    const std::vector<LibraryEntry> reversed(library.rbegin(), library.rend());
    EXPECT_EQ(matched(reversed, camera("Canon", "EOS 5D", 1000)), "a400");
}

TEST(ProfileLibrary, AnotherCameraNeverMatches)
{
    EXPECT_EQ(matched(library, camera("Canon", "EOS 7D", 400)), "none");
    EXPECT_EQ(matched(library, camera("Nikon", "EOS 5D", 400)), "none");
    CameraInfo noModel;
    noModel.maker = "Canon";
    noModel.iso = 400;
    EXPECT_EQ(matched(library, noModel), "none");
    EXPECT_EQ(matched(library, CameraInfo()), "none");
}

TEST(ProfileLibrary, MakerAndModelCompareWithoutCaseAndSurroundingBlanks)
{
    EXPECT_EQ(matched(library, camera("CANON ", " eos 5d", 1600)), "a1600");
}

TEST(ProfileLibrary, ProfilesWithoutIsoComeLast)
{
    std::vector<LibraryEntry> entries = {entry("noiso", "Canon", "EOS 5D", std::nullopt),
                                         entry("iso3200", "Canon", "EOS 5D", 3200)};
    EXPECT_EQ(matched(entries, camera("Canon", "EOS 5D", 100)), "iso3200");
    // A photo without ISO prefers a profile without ISO, then the lowest ISO.
    EXPECT_EQ(matched(entries, camera("Canon", "EOS 5D", std::nullopt)), "noiso");
    entries.erase(entries.begin());
    entries.push_back(entry("iso800", "Canon", "EOS 5D", 800));
    EXPECT_EQ(matched(entries, camera("Canon", "EOS 5D", std::nullopt)), "iso800");
}

class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value) : name_(name)
    {
        if (const char* old = std::getenv(name))
            old_ = old;
        if (value)
            setenv(name, value, 1);
        else
            unsetenv(name);
    }
    ~ScopedEnv()
    {
        if (old_)
            setenv(name_, old_->c_str(), 1);
        else
            unsetenv(name_);
    }

private:
    const char* name_;
    std::optional<std::string> old_;
};

TEST(ProfileLibrary, DirectoryComesFromOptionThenEnvironmentThenXdgThenHome)
{
    ScopedEnv profiles("MURMEX_PROFILES", "/env/profiles");
    ScopedEnv xdg("XDG_DATA_HOME", "/xdg");
    ScopedEnv home("HOME", "/home/someone");
    EXPECT_EQ(profileLibraryDirectory(std::string("/opt/lib")), "/opt/lib");
    EXPECT_EQ(profileLibraryDirectory(std::nullopt), "/env/profiles");
    {
        ScopedEnv noProfiles("MURMEX_PROFILES", nullptr);
        EXPECT_EQ(profileLibraryDirectory(std::nullopt), "/xdg/murmex/profiles");
        ScopedEnv noXdg("XDG_DATA_HOME", "");
        EXPECT_EQ(profileLibraryDirectory(std::nullopt), "/home/someone/.local/share/murmex/profiles");
    }
}

TEST(ProfileLibrary, ScanFindsProfilesAtAnyDepthAndSkipsDamagedFiles)
{
    murmex_test::TempDir dir;
    Progress quiet(Progress::Mode::Quiet, "test");
    const std::vector<uint8_t> measured =
        measureProfile(addCameraNoise(renderDemoScene(300, 200), 5), false, quiet, "test");
    ProfileHeader header;
    header.maker = "Canon";
    header.model = "EOS 5D";
    header.iso = 800;
    const std::string path = libraryPathFor(dir.path(), header);
    EXPECT_EQ(path.rfind(dir.path() + "/Canon/EOS 5D/", 0), 0u) << path;
    EXPECT_EQ(path.substr(path.size() - 4), ".dnp");
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    DnFilterParams settings{};
    saveProfile(path, withProfileHeader(measured, header), settings);
    std::ofstream(dir.file("broken.dnp")) << "not a profile";
    std::ofstream(dir.file("notes.txt")) << "not a profile either";

    const std::vector<LibraryEntry> entries = scanProfileLibrary(dir.path());
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].path, path);
    EXPECT_EQ(entries[0].header.model.value_or(""), "EOS 5D");
    EXPECT_EQ(entries[0].header.iso.value_or(0), 800);
    EXPECT_TRUE(scanProfileLibrary(dir.file("missing")).empty());
}

TEST(ProfileLibrary, DescribeCameraLeavesOutWhatIsMissing)
{
    EXPECT_EQ(describeCamera(camera("Canon", "EOS 5D", 1600)), "Canon EOS 5D at ISO 1600");
    EXPECT_EQ(describeCamera(camera("Canon", "EOS 5D", std::nullopt)), "Canon EOS 5D");
    EXPECT_EQ(describeCamera(CameraInfo()), "a photo without camera data");
}

}  // namespace
}  // namespace murmex_app
