// The C interface of the shared host library (host/murmex_host.h): thin
// wrappers that turn its exceptions into one-line messages.
#include "host/murmex_host.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "host/auto_settings.h"
#include "host/camera_info.h"
#include "host/engine_output.h"
#include "host/file_kind.h"
#include "host/host_error.h"
#include "host/host_settings.h"
#include "host/profile_header.h"
#include "host/profile_library.h"
#include "host/progress_text.h"
#include "host/replace_file.h"

using namespace murmex_host;

struct MurmexHostCamera {
    CameraInfo info;
};

struct MurmexHostProfile {
    std::vector<uint8_t> bytes;
    std::optional<std::string> path;
    int samples = 0;
};

namespace {

char* copyString(const std::string& s)
{
    char* p = static_cast<char*>(std::malloc(s.size() + 1));
    if (p)
        std::memcpy(p, s.c_str(), s.size() + 1);
    return p;
}

void setError(char** error, const std::string& message)
{
    if (error)
        *error = copyString(message);
}

// Runs body, turning an exception into *error; returns fallback then.
template <class T, class Body>
T guarded(char** error, T fallback, Body body)
{
    if (error)
        *error = nullptr;
    try {
        return body();
    } catch (const std::exception& e) {
        setError(error, e.what());
    } catch (...) {
        setError(error, "unknown error");
    }
    return fallback;
}

// ---- The editor's serialised metadata -------------------------------------

std::string unescapeXml(const std::string& text)
{
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '&') {
            out += text[i];
            continue;
        }
        const size_t end = text.find(';', i);
        if (end == std::string::npos) {
            out += text.substr(i);
            break;
        }
        const std::string entity = text.substr(i + 1, end - i - 1);
        if (entity == "amp")
            out += '&';
        else if (entity == "lt")
            out += '<';
        else if (entity == "gt")
            out += '>';
        else if (entity == "quot")
            out += '"';
        else if (entity == "apos")
            out += '\'';
        else if (entity.size() > 1 && entity[0] == '#') {
            const bool hex = entity[1] == 'x' || entity[1] == 'X';
            const unsigned long code = std::strtoul(entity.c_str() + (hex ? 2 : 1), nullptr, hex ? 16 : 10);
            if (code < 0x80) {
                out += static_cast<char>(code);
            } else if (code < 0x800) {
                out += static_cast<char>(0xc0 | (code >> 6));
                out += static_cast<char>(0x80 | (code & 0x3f));
            } else {
                out += static_cast<char>(0xe0 | ((code >> 12) & 0x0f));
                out += static_cast<char>(0x80 | ((code >> 6) & 0x3f));
                out += static_cast<char>(0x80 | (code & 0x3f));
            }
        } else {
            out += text.substr(i, end - i + 1);
        }
        i = end;
    }
    return out;
}

std::string decodeBase64(const std::string& text)
{
    std::string out;
    unsigned value = 0;
    int bits = 0;
    for (char c : text) {
        int d;
        if (c >= 'A' && c <= 'Z')
            d = c - 'A';
        else if (c >= 'a' && c <= 'z')
            d = c - 'a' + 26;
        else if (c >= '0' && c <= '9')
            d = c - '0' + 52;
        else if (c == '+')
            d = 62;
        else if (c == '/')
            d = 63;
        else
            continue;
        value = (value << 6) | static_cast<unsigned>(d);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out += static_cast<char>((value >> bits) & 0xff);
        }
    }
    return out;
}

// The text of <tag name="key">, or nothing.
std::optional<std::string> metadataValue(const std::string& xml, const std::string& key)
{
    const std::string open = "<tag name=\"" + key + "\"";
    const size_t at = xml.find(open);
    if (at == std::string::npos)
        return std::nullopt;
    const size_t close = xml.find('>', at);
    const size_t end = xml.find("</tag>", close);
    if (close == std::string::npos || end == std::string::npos)
        return std::nullopt;
    const std::string attributes = xml.substr(at + open.size(), close - at - open.size());
    std::string value = xml.substr(close + 1, end - close - 1);
    value = attributes.find("encoding=\"base64\"") != std::string::npos ? decodeBase64(value) : unescapeXml(value);
    return value.substr(0, value.find('\0'));
}

std::string trimmed(const std::string& s)
{
    const char* space = " \t\r\n\v\f";
    const size_t first = s.find_first_not_of(space);
    if (first == std::string::npos)
        return {};
    return s.substr(first, s.find_last_not_of(space) - first + 1);
}

std::optional<std::string> exifText(const std::string& xml, const char* key)
{
    std::optional<std::string> v = metadataValue(xml, key);
    if (!v)
        return std::nullopt;
    std::string t = trimmed(*v);
    if (t.empty())
        return std::nullopt;
    return t;
}

// The first value of a number tag as EXIF prints it: "1600", "1/125",
// "-2/3". Nothing when it does not read as a number.
std::optional<double> exifNumber(const std::string& xml, const char* key)
{
    const std::optional<std::string> text = exifText(xml, key);
    if (!text)
        return std::nullopt;
    const char* s = text->c_str();
    char* end = nullptr;
    const double n = std::strtod(s, &end);
    if (end == s)
        return std::nullopt;
    if (*end == '/') {
        const char* d = end + 1;
        const double den = std::strtod(d, &end);
        if (end == d || den == 0.0)
            return std::nullopt;
        return n / den;
    }
    return n;
}

std::optional<int> exifInt(const std::string& xml, const char* key)
{
    const std::optional<double> v = exifNumber(xml, key);
    if (!v)
        return std::nullopt;
    return static_cast<int>(*v);
}

std::optional<float> exifFloat(const std::string& xml, const char* key)
{
    const std::optional<double> v = exifNumber(xml, key);
    if (!v)
        return std::nullopt;
    return static_cast<float>(*v);
}

CameraInfo cameraFromMetadataXml(const std::string& xml)
{
    return cameraFromExif({[&](const char* key) { return exifText(xml, key); },
                           [&](const char* key) { return exifInt(xml, key); },
                           [&](const char* key) { return exifFloat(xml, key); }});
}

// ---- Engine calls ----------------------------------------------------------

struct SampleCount {
    int count = 0;
};

int countSample(void* context, int count, int, const DnNoiseSample*)
{
    static_cast<SampleCount*>(context)->count = count;
    return 0;
}

int sampleCount(const std::vector<uint8_t>& bytes)
{
    SampleCount n;
    const EngineResult r = callEngine(
        [&] { return DnReadProfileSamples2(&n, bytes.data(), static_cast<int>(bytes.size()), countSample); });
    return r.failed() ? 0 : n.count;
}

MurmexHostProfile* loadedProfile(const std::string& path)
{
    if (const std::string why = unreadableKind(path); !why.empty())
        throw HostError("cannot load profile " + path + ": " + why);
    unsigned char* data = nullptr;
    int length = 0;
    const EngineResult r = callEngine([&] { return DnReadProfile(path.c_str(), &data, &length, nullptr); });
    auto* p = new MurmexHostProfile;
    if (data && length > 0)
        p->bytes.assign(data, data + length);
    DnFreeMemory(data);
    if (r.failed()) {
        delete p;
        throw HostError("cannot load profile " + path + ": " + r.message());
    }
    p->path = path;
    p->samples = sampleCount(p->bytes);
    return p;
}

// Writes the profile block with the default settings to a temporary file
// beside path and renames it over path, so that a failure never leaves a
// partial profile under its name. The name is made in the library: a link
// there is replaced, not followed.
void saveProfileFile(const std::string& path, const std::vector<uint8_t>& bytes)
{
    const std::string context = "cannot write profile " + path;
    replaceFile(path, LinkAtName::Replace, context, [&](const std::string& temporary) {
        DnFilterParams settings{};
        setDefaultSettings(settings);
        const EngineResult r = callEngine(
            [&] { return DnWriteProfile(temporary.c_str(), bytes.data(), static_cast<int>(bytes.size()), &settings); });
        if (r.failed())
            throw HostError(context + ": " + replaceAll(r.message(), temporary, path));
    });
}

std::string libraryDirectory()
{
    return profileLibraryDirectory(std::nullopt);
}

}  // namespace

extern "C" {

void murmex_host_free(void* block)
{
    std::free(block);
}

void murmex_host_default_settings(DnFilterParams* params)
{
    if (params)
        setDefaultSettings(*params);
}

char* murmex_host_step_text(const char* engine_step_text)
{
    return copyString(userStepText(engine_step_text ? engine_step_text : ""));
}

MurmexHostCamera* murmex_host_camera_from_metadata_xml(const char* xml)
{
    auto* camera = new MurmexHostCamera;
    if (xml)
        camera->info = cameraFromMetadataXml(xml);
    return camera;
}

void murmex_host_camera_free(MurmexHostCamera* camera)
{
    delete camera;
}

char* murmex_host_camera_describe(const MurmexHostCamera* camera)
{
    return copyString(describeCamera(camera ? camera->info : CameraInfo{}));
}

char* murmex_host_library_directory(char** error)
{
    return guarded<char*>(error, nullptr, [] { return copyString(libraryDirectory()); });
}

MurmexHostProfile* murmex_host_profile_load(const char* path, char** error)
{
    return guarded<MurmexHostProfile*>(error, nullptr, [&] { return loadedProfile(path ? path : ""); });
}

MurmexHostProfile* murmex_host_profile_match(const MurmexHostCamera* camera, char** error)
{
    return guarded<MurmexHostProfile*>(error, nullptr, [&]() -> MurmexHostProfile* {
        std::string dir;
        try {
            dir = libraryDirectory();
        } catch (const std::exception&) {
            return nullptr;  // no library: nothing to match
        }
        const std::optional<LibraryEntry> match = matchProfile(scanProfileLibrary(dir), camera->info);
        return match ? loadedProfile(match->path) : nullptr;
    });
}

MurmexHostProfile* murmex_host_profile_measure(void* host_context, DnGetScanlineCallback get, int width, int height,
                                               int relaxed, DnProgressCallback progress, const char* name,
                                               char** error)
{
    return guarded<MurmexHostProfile*>(error, nullptr, [&]() -> MurmexHostProfile* {
        unsigned char* data = nullptr;
        int length = 0;
        const EngineResult r = callEngine([&] {
            return DnBuildProfile2(host_context, &data, &length, get, width, height, relaxed, progress);
        });
        std::vector<uint8_t> bytes;
        if (data && length > 0)
            bytes.assign(data, data + length);
        DnFreeMemory(data);
        if (r.failed())
            throw HostError("cannot measure a noise profile from " + std::string(name ? name : "the image") +
                                     ": " + r.message());
        if (bytes.empty())
            return nullptr;  // cancelled
        auto* p = new MurmexHostProfile;
        p->bytes = std::move(bytes);
        p->samples = sampleCount(p->bytes);
        return p;
    });
}

void murmex_host_profile_free(MurmexHostProfile* profile)
{
    delete profile;
}

const unsigned char* murmex_host_profile_data(const MurmexHostProfile* profile)
{
    return profile->bytes.data();
}

int murmex_host_profile_length(const MurmexHostProfile* profile)
{
    return static_cast<int>(profile->bytes.size());
}

const char* murmex_host_profile_path(const MurmexHostProfile* profile)
{
    return profile->path ? profile->path->c_str() : nullptr;
}

int murmex_host_profile_sample_count(const MurmexHostProfile* profile)
{
    return profile->samples;
}

char* murmex_host_profile_library_path(const MurmexHostCamera* camera, int width, int height, char** error)
{
    return guarded<char*>(error, nullptr, [&] {
        return copyString(libraryPathFor(libraryDirectory(), headerFromCamera(camera->info, width, height)));
    });
}

char* murmex_host_profile_save(const MurmexHostProfile* profile, const MurmexHostCamera* camera, int width,
                               int height, const char* path, char** error)
{
    return guarded<char*>(error, nullptr, [&] {
        const ProfileHeader header = headerFromCamera(camera->info, width, height);
        std::string target = path ? path : "";
        if (target.empty()) {
            target = libraryPathFor(libraryDirectory(), header);
            const std::filesystem::path folder = std::filesystem::path(target).parent_path();
            std::error_code ec;
            std::filesystem::create_directories(folder, ec);
            if (ec)
                throw HostError("cannot create " + folder.string() + ": " + ec.message());
        }
        saveProfileFile(target, withProfileHeader(profile->bytes, header));
        return copyString(target);
    });
}

int murmex_host_denoise(void* host_context, const DnFilterParams* params, int left, int top, int right, int bottom,
                        const MurmexHostProfile* profile, DnGetScanlineCallback get, DnPutScanlineCallback put,
                        DnProgressCallback progress, const char* name, char** error)
{
    return guarded<int>(error, 0, [&] {
        DnFilterParams p = *params;
        p.profilePath = nullptr;
        p.buildProfile = 0;
        p.saveProfile = 0;
        const EngineResult r = callEngine([&] {
            return DnRemoveNoise2(host_context, &p, left, top, right, bottom, profile->bytes.data(),
                                  static_cast<int>(profile->bytes.size()), get, put, progress);
        });
        if (r.failed())
            throw HostError("cannot denoise " + std::string(name ? name : "the image") + ": " + r.message());
        return 1;
    });
}

int murmex_host_auto_settings(void* host_context, DnGetScanlineCallback get, int width, int height,
                              const MurmexHostProfile* profile, DnFilterParams* params, char** error)
{
    return guarded<int>(error, 0, [&] {
        chooseAutoSettings(ScanlineImage{host_context, get, width, height}, profile->bytes, *params);
        return 1;
    });
}

}  // extern "C"
