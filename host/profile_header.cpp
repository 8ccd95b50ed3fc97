#include "host/profile_header.h"

#include <cmath>
#include <memory>

#include "base/ex.h"
#include "host/host_error.h"
#include "profile/header_text.h"
#include "profile/noise_profile.h"

namespace murmex_host {

namespace {

using qtless::QString;

void toHost(const JProfileHeaderField<QString>& f, std::optional<std::string>& out)
{
    out = f.present ? std::optional<std::string>(f.value.toStdString()) : std::nullopt;
}

template <class T>
void toHost(const JProfileHeaderField<T>& f, std::optional<T>& out)
{
    out = f.present ? std::optional<T>(f.value) : std::nullopt;
}

void toEngine(const std::optional<std::string>& v, JProfileHeaderField<QString>& out)
{
    out = {};
    if (v)
        out.set(QString(v->c_str()));
}

template <class T>
void toEngine(const std::optional<T>& v, JProfileHeaderField<T>& out)
{
    out = {};
    if (v)
        out.set(*v);
}

// Every field in record order, as (engine field, host field) pairs.
template <class Engine, class Host, class Fn>
void eachField(Engine& e, Host& h, Fn&& fn)
{
    fn(e.maker, h.maker);
    fn(e.model, h.model);
    fn(e.film, h.film);
    fn(e.iso, h.iso);
    fn(e.multisampling, h.multisampling);
    fn(e.shutterspeed, h.shutterSpeed);
    fn(e.exposurecomp, h.exposureComp);
    fn(e.megapixels, h.megapixels);
    fn(e.quality, h.quality);
    fn(e.sharpness, h.sharpness);
    fn(e.illuminant, h.illuminant);
    fn(e.contrast, h.contrast);
    fn(e.saturation, h.saturation);
    fn(e.temperature, h.temperature);
    fn(e.colorspace, h.colorSpace);
    fn(e.author, h.author);
    fn(e.comment, h.comment);
}

ProfileHeader fromEngine(const JProfileHeader& e)
{
    ProfileHeader h;
    eachField(e, h, [](const auto& from, auto& to) { toHost(from, to); });
    return h;
}

JProfileHeader fromHost(const ProfileHeader& h)
{
    JProfileHeader e;
    eachField(e, h, [](auto& to, const auto& from) { toEngine(from, to); });
    return e;
}

// The engine's loader takes an int length.
void loadBlock(JNoiseProfile& profile, const std::vector<uint8_t>& bytes)
{
    if (bytes.size() > static_cast<size_t>(INT32_MAX))
        throw HostError("noise profile too large");
    try {
        profile.load(bytes.data(), static_cast<int>(bytes.size()));
    } catch (const std::exception& e) {
        throw HostError(e.what());
    }
}

// EXIF contrast, sharpness and saturation (0 normal, 1 soft or low, 2 hard
// or high) as the header's level codes (3 Medium, 2 Low, 4 High); other
// values have no level.
std::optional<int> levelFromExif(const std::optional<int>& code)
{
    if (!code)
        return std::nullopt;
    switch (*code) {
    case 0: return 3;
    case 1: return 2;
    case 2: return 4;
    default: return std::nullopt;
    }
}

}  // namespace

ProfileHeader readProfileHeader(const std::vector<uint8_t>& profileBytes)
{
    JNoiseProfile profile;
    loadBlock(profile, profileBytes);
    return fromEngine(profile.header());
}

std::vector<uint8_t> withProfileHeader(const std::vector<uint8_t>& profileBytes, const ProfileHeader& header)
{
    JNoiseProfile profile;
    loadBlock(profile, profileBytes);
    profile.setHeader(fromHost(header));
    unsigned char* data = nullptr;
    int length = 0;
    try {
        profile.save(&data, &length);
    } catch (const std::exception& e) {
        throw HostError(e.what());
    }
    const std::unique_ptr<unsigned char[]> owned(data);
    return std::vector<uint8_t>(data, data + length);
}

// Mapping from the photo's EXIF to the header:
//   maker, model           Make and Model, trimmed
//   iso                    ISO speed rating
//   shutter speed          exposure time in seconds
//   exposure compensation  exposure bias in EV
//   illuminant             LightSource as it is (the header's illuminant
//                          codes are the EXIF LightSource codes)
//   contrast, sharpness,   0 normal -> 3 Medium, 1 soft/low -> 2 Low,
//   saturation             2 hard/high -> 4 High; other codes are left out
//   colour space           "sRGB" or "Adobe RGB" as read
//   megapixels             width * height / 10^6, rounded to nearest
ProfileHeader headerFromCamera(const CameraInfo& info, int width, int height)
{
    ProfileHeader h;
    h.maker = info.maker;
    h.model = info.model;
    h.iso = info.iso;
    h.shutterSpeed = info.shutterSpeed;
    h.exposureComp = info.exposureComp;
    h.illuminant = info.lightSource;
    h.contrast = levelFromExif(info.contrast);
    h.sharpness = levelFromExif(info.sharpness);
    h.saturation = levelFromExif(info.saturation);
    h.colorSpace = info.colorSpace;
    if (width > 0 && height > 0)
        h.megapixels = static_cast<int>(std::lround(static_cast<double>(width) * static_cast<double>(height) / 1e6));
    return h;
}

std::string autoProfileDirectory(const ProfileHeader& header)
{
    return JHeaderText::autoDirectory(fromHost(header)).toStdString();
}

std::string autoProfileFileName(const ProfileHeader& header)
{
    return JHeaderText::autoFileName(fromHost(header)).toStdString();
}

}  // namespace murmex_host
