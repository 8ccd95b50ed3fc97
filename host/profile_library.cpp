#include "host/profile_library.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include "host/host_error.h"

namespace murmex_host {

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
    throw HostError("cannot find the profile library: set MURMEX_PROFILES or use --library");
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
        } catch (const HostError&) {
            // Not a stream profile with a header (or damaged): it cannot be
            // matched, but may still be used with --profile.
        }
    }
    std::sort(entries.begin(), entries.end(),
              [](const LibraryEntry& a, const LibraryEntry& b) { return a.path < b.path; });
    return entries;
}

namespace {

// How far an entry's ISO is from the photo's, as the ratio of the larger to
// the smaller ISO; compared exactly by cross-multiplication, so that ties in
// stops (1600 and 2500 around 2000) are ties.
struct StopDistance {
    long long larger, smaller;
    bool operator<(const StopDistance& o) const { return larger * o.smaller < o.larger * smaller; }
    bool operator==(const StopDistance& o) const { return larger * o.smaller == o.larger * smaller; }
};

StopDistance stopDistance(long long a, long long b)
{
    // Non-positive ISOs are not on the scale: they rank after every real one.
    if (a <= 0 || b <= 0)
        return {1LL << 31, 1};
    return {std::max(a, b), std::min(a, b)};
}

}  // namespace

std::optional<LibraryEntry> matchProfile(const std::vector<LibraryEntry>& entries, const CameraInfo& camera)
{
    if (!camera.maker || !camera.model)
        return std::nullopt;
    // Lower is better: entries with an ISO first when the photo has one (and
    // last when it has none), then nearer in stops, then the lower ISO.
    auto better = [&](const LibraryEntry& a, const LibraryEntry& b) {
        const int groupA = (a.header.iso.has_value() == camera.iso.has_value()) ? 0 : 1;
        const int groupB = (b.header.iso.has_value() == camera.iso.has_value()) ? 0 : 1;
        if (groupA != groupB)
            return groupA < groupB;
        if (!a.header.iso || !b.header.iso)
            return false;
        const long long isoA = *a.header.iso, isoB = *b.header.iso;
        if (camera.iso) {
            const StopDistance da = stopDistance(isoA, *camera.iso), db = stopDistance(isoB, *camera.iso);
            if (!(da == db))
                return da < db;
        }
        return isoA < isoB;
    };
    const LibraryEntry* best = nullptr;
    for (const LibraryEntry& e : entries) {
        if (!sameText(e.header.maker, camera.maker) || !sameText(e.header.model, camera.model))
            continue;
        if (!best || better(e, *best))
            best = &e;
    }
    if (!best)
        return std::nullopt;
    return *best;
}

std::string safePathComponent(const std::string& text)
{
    constexpr size_t kMaxBytes = 64;
    std::string out;
    for (char c : text) {
        const unsigned char u = static_cast<unsigned char>(c);
        out += (c == '/' || c == '\\' || u < 0x20 || u == 0x7f) ? '_' : c;
    }
    if (out.size() > kMaxBytes) {
        size_t cut = kMaxBytes;
        // Back up over continuation bytes to the start of a character.
        while (cut > 0 && (static_cast<unsigned char>(out[cut]) & 0xC0) == 0x80)
            --cut;
        out.resize(cut);
    }
    if (!out.empty() && out.find_first_not_of('.') == std::string::npos)
        out.assign(out.size(), '_');
    return out;
}

std::string libraryPathFor(const std::string& dir, const ProfileHeader& header)
{
    namespace fs = std::filesystem;
    ProfileHeader safe = header;
    for (std::optional<std::string>* name : {&safe.maker, &safe.model, &safe.film})
        if (*name)
            **name = safePathComponent(**name);
    const std::string path =
        dir + autoProfileDirectory(safe) + "/" + safePathComponent(autoProfileFileName(safe)) + ".dnp";

    std::error_code ec;
    const fs::path root = fs::weakly_canonical(fs::absolute(dir, ec), ec);
    const fs::path resolved = fs::weakly_canonical(fs::absolute(path, ec), ec);
    const auto firstDifference = std::mismatch(root.begin(), root.end(), resolved.begin(), resolved.end());
    if (ec || firstDifference.first != root.end() || resolved == root)
        throw HostError("the profile library path " + path + " leads outside the library " + dir);
    return path;
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

}  // namespace murmex_host
