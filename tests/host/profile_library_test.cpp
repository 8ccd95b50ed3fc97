#include "host/profile_library.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include <murmex/murmex.h>

#include "host/host_error.h"
#include "support/temp_dir.h"

namespace murmex_host {
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

TEST(ProfileLibrary, NearestIsMeasuredInStops)
{
    const std::vector<LibraryEntry> entries = {entry("iso800", "Canon", "EOS 5D", 800),
                                               entry("iso3200", "Canon", "EOS 5D", 3200)};
    // 2000 is 1.32 stops above 800 and 0.68 below 3200, though nearer 800 in value.
    EXPECT_EQ(matched(entries, camera("Canon", "EOS 5D", 2000)), "iso3200");
    EXPECT_EQ(matched(entries, camera("Canon", "EOS 5D", 1500)), "iso800");
    EXPECT_EQ(matched(entries, camera("Canon", "EOS 5D", 1700)), "iso3200");
    // 1000 is 1.32 stops above 400 and 0.68 below 1600.
    EXPECT_EQ(matched(library, camera("Canon", "EOS 5D", 1000)), "a1600");
}

TEST(ProfileLibrary, AnIsoTieGoesToTheLowerIso)
{
    // 800 is two stops from both 400 and 1600.
    EXPECT_EQ(matched(library, camera("Canon", "EOS 5D", 800)), "a400");
    // Also when the higher one comes first in the list.
    const std::vector<LibraryEntry> reversed(library.rbegin(), library.rend());
    EXPECT_EQ(matched(reversed, camera("Canon", "EOS 5D", 800)), "a400");
    // 2000 is a third of a stop from both 1600 and 2500.
    const std::vector<LibraryEntry> thirds = {entry("iso2500", "Canon", "EOS 5D", 2500),
                                              entry("iso1600", "Canon", "EOS 5D", 1600)};
    EXPECT_EQ(matched(thirds, camera("Canon", "EOS 5D", 2000)), "iso1600");
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

// A profile block the library measured from a noisy patchwork.
std::vector<uint8_t> measuredProfile()
{
    struct Patches {
        int width = 160, height = 96;
        std::vector<uint16_t> rgbx;
    } image;
    image.rgbx.resize(static_cast<size_t>(image.width) * image.height * 4);
    uint32_t state = 99;
    for (size_t i = 0; i < image.rgbx.size(); ++i) {
        state = state * 1664525u + 1013904223u;
        const size_t pixel = i / 4;
        const int patch = static_cast<int>((pixel % image.width) / 40 + (pixel / image.width) / 48);
        image.rgbx[i] = static_cast<uint16_t>(i % 4 == 3 ? 65535 : 9000 + 7000 * patch + (state >> 25));
    }
    auto get = [](void* context, int y, int x0, int x1, unsigned short* out) {
        const auto* im = static_cast<const Patches*>(context);
        const uint16_t* row = im->rgbx.data() + (static_cast<size_t>(y) * im->width + x0) * 4;
        std::copy(row, row + static_cast<size_t>(x1 - x0 + 1) * 4, out);
    };
    unsigned char* data = nullptr;
    int length = 0;
    EXPECT_EQ(DnBuildProfile2(&image, &data, &length, get, image.width, image.height, 1, nullptr), 0);
    std::vector<uint8_t> block(data, data + length);
    DnFreeMemory(data);
    return block;
}

void writeFile(const std::string& path, const std::vector<uint8_t>& bytes)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()),
                                                static_cast<std::streamsize>(bytes.size()));
}

TEST(ProfileLibrary, ScanFindsProfilesAtAnyDepthAndSkipsDamagedFiles)
{
    murmex_test::TempDir dir;
    ProfileHeader header;
    header.maker = "Canon";
    header.model = "EOS 5D";
    header.iso = 800;
    const std::string path = libraryPathFor(dir.path(), header);
    EXPECT_EQ(path.rfind(dir.path() + "/Canon/EOS 5D/", 0), 0u) << path;
    EXPECT_EQ(path.substr(path.size() - 4), ".dnp");
    writeFile(path, withProfileHeader(measuredProfile(), header));
    std::ofstream(dir.file("broken.dnp")) << "not a profile";
    std::ofstream(dir.file("notes.txt")) << "not a profile either";

    const std::vector<LibraryEntry> entries = scanProfileLibrary(dir.path());
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].path, path);
    EXPECT_EQ(entries[0].header.model.value_or(""), "EOS 5D");
    EXPECT_EQ(entries[0].header.iso.value_or(0), 800);
    EXPECT_TRUE(scanProfileLibrary(dir.file("missing")).empty());
}

TEST(ProfileLibrary, NamesFromMetadataBecomeSingleSafeComponents)
{
    EXPECT_EQ(safePathComponent("../../x"), ".._.._x");
    EXPECT_EQ(safePathComponent(".."), "__");
    EXPECT_EQ(safePathComponent("."), "_");
    EXPECT_EQ(safePathComponent("a\\b\tc\x7f"), "a_b_c_");
    EXPECT_EQ(safePathComponent("EOS 5D Mark II"), "EOS 5D Mark II");
    EXPECT_EQ(safePathComponent(std::string(300, 'x')).size(), 64u);
    // A cut never splits a character: "\xc3\xa9" is one two-byte character.
    std::string accents;
    for (int i = 0; i < 40; ++i)
        accents += "\xc3\xa9";
    EXPECT_EQ(safePathComponent(accents), accents.substr(0, 64));
    EXPECT_EQ(safePathComponent("x" + accents).size(), 63u);
}

TEST(ProfileLibrary, AHostileMakerCannotLeaveTheLibrary)
{
    murmex_test::TempDir dir;
    const std::string library = dir.file("library");
    for (const char* maker : {"../../x", "..", "/etc", "a/../../../b", "\x01../"}) {
        ProfileHeader header;
        header.maker = maker;
        header.model = "../..";
        header.film = "../../../tmp";
        const std::string path = libraryPathFor(library, header);
        const auto resolved = std::filesystem::weakly_canonical(path).string();
        EXPECT_EQ(resolved.rfind(std::filesystem::weakly_canonical(library).string() + "/", 0), 0u)
            << maker << " -> " << resolved;
        EXPECT_EQ(std::count(path.begin() + static_cast<long>(library.size()), path.end(), '/'), 4) << path;
    }
}

TEST(ProfileLibrary, ALinkInsideTheLibraryThatLeadsOutIsRefused)
{
    murmex_test::TempDir dir;
    const std::string library = dir.file("library");
    std::filesystem::create_directories(library);
    std::filesystem::create_directories(dir.file("elsewhere"));
    std::filesystem::create_directory_symlink(dir.file("elsewhere"), library + "/Canon");
    ProfileHeader header;
    header.maker = "Canon";
    header.model = "EOS 5D";
    EXPECT_THROW(libraryPathFor(library, header), HostError);
    header.maker = "Nikon";
    EXPECT_NO_THROW(libraryPathFor(library, header));
}

TEST(ProfileLibrary, DescribeCameraLeavesOutWhatIsMissing)
{
    EXPECT_EQ(describeCamera(camera("Canon", "EOS 5D", 1600)), "Canon EOS 5D at ISO 1600");
    EXPECT_EQ(describeCamera(camera("Canon", "EOS 5D", std::nullopt)), "Canon EOS 5D");
    EXPECT_EQ(describeCamera(CameraInfo()), "a photo without camera data");
}

}  // namespace
}  // namespace murmex_host
