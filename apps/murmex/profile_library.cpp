#include "profile_library.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <tuple>

#include "app_error.h"

namespace murmex_app {

namespace {

std::string normalised(const std::string& s)
{
    size_t b = 0, e = s.size();
    while (b < e && std::isspace(static_cast<unsigned char>(s[b])))
        ++b;
    while (e > b && std::isspace(static_cast<unsigned char>(s[e - 1])))
        --e;
    std::string out = s.substr(b, e - b);
    for (char& c : out)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

bool sameText(const std::optional<std::string>& a, const std::optional<std::string>& b)
{
    return a && b && normalised(*a) == normalised(*b);
}

std::string lowerExtension(const std::filesystem::path& p)
{
    std::string ext = p.extension().string();
    for (char& c : ext)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return ext;
}

const char* nonEmptyEnv(const char* name)
{
    const char* v = std::getenv(name);
    return v && *v ? v : nullptr;
}

}  // namespace

std::string profileLibraryDirectory(const std::optional<std::string>& option)
{
    if (option && !option->empty())
        return *option;
    if (const char* env = nonEmptyEnv("MURMEX_PROFILES"))
        return env;
    if (const char* xdg = nonEmptyEnv("XDG_DATA_HOME"))
        return std::string(xdg) + "/murmex/profiles";
    if (const char* home = nonEmptyEnv("HOME"))
        return std::string(home) + "/.local/share/murmex/profiles";
    throw AppError("cannot find the profile library: set MURMEX_PROFILES or use --library");
}

std::vector<LibraryEntry> scanProfileLibrary(const std::string& dir)
{
    namespace fs = std::filesystem;
    std::vector<LibraryEntry> entries;
    std::error_code ec;
    if (!fs::is_directory(dir, ec))
        return entries;
    for (fs::recursive_directory_iterator it(dir, fs::directory_options::skip_permission_denied, ec), end;
         !ec && it != end; it.increment(ec)) {
        if (!it->is_regular_file(ec) || lowerExtension(it->path()) != ".dnp")
            continue;
        std::ifstream in(it->path(), std::ios::binary);
        std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        try {
            entries.push_back({it->path().string(), readProfileHeader(bytes)});
        } catch (const AppError&) {
            // Not a stream profile with a header (or damaged): it cannot be
            // matched, but may still be used with --profile.
        }
    }
    std::sort(entries.begin(), entries.end(),
              [](const LibraryEntry& a, const LibraryEntry& b) { return a.path < b.path; });
    return entries;
}

std::optional<LibraryEntry> matchProfile(const std::vector<LibraryEntry>& entries, const CameraInfo& camera)
{
    if (!camera.maker || !camera.model)
        return std::nullopt;
    const LibraryEntry* best = nullptr;
    // Rank: (has no ISO, distance, ISO); lower is better.
    auto rank = [&](const LibraryEntry& e) {
        if (!e.header.iso)
            return std::make_tuple(camera.iso ? 1 : 0, 0LL, 0LL);
        const long long iso = *e.header.iso;
        const long long distance = camera.iso ? std::llabs(iso - *camera.iso) : iso;
        return std::make_tuple(camera.iso ? 0 : 1, distance, iso);
    };
    for (const LibraryEntry& e : entries) {
        if (!sameText(e.header.maker, camera.maker) || !sameText(e.header.model, camera.model))
            continue;
        if (!best || rank(e) < rank(*best))
            best = &e;
    }
    if (!best)
        return std::nullopt;
    return *best;
}

std::string libraryPathFor(const std::string& dir, const ProfileHeader& header)
{
    return dir + autoProfileDirectory(header) + "/" + autoProfileFileName(header) + ".dnp";
}

std::string describeCamera(const CameraInfo& camera)
{
    std::string text;
    if (camera.maker)
        text = *camera.maker;
    if (camera.model)
        text += (text.empty() ? "" : " ") + *camera.model;
    if (camera.iso)
        text += (text.empty() ? "ISO " : " at ISO ") + std::to_string(*camera.iso);
    return text.empty() ? "a photo without camera data" : text;
}

}  // namespace murmex_app
