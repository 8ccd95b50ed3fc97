// The descriptive header of a noise-profile file, read from and written into
// the stream profile's bytes directly:
//   version (32-bit, big-endian; 44546, 44547 or 44548), a second word (20),
//   the header text block (versions above 44546: 32-bit length, bytes),
//   the header record in the version's layout, then the samples and the
//   filter settings, which are copied untouched.
// Integers and lengths are big-endian 32-bit, floats IEEE single precision;
// a text is a length counting a terminating zero, the bytes and the zero (an
// empty text is a zero length).

#include "profile_header.h"

#include <cmath>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <string_view>

#include "app_error.h"

namespace murmex_app {

namespace {

constexpr uint32_t kVersion44546 = 44546;
constexpr uint32_t kVersion44547 = 44547;
constexpr uint32_t kVersion44548 = 44548;
constexpr int32_t kSecondWord = 20;
constexpr int32_t kFieldCount = 17;
// The older dense profile layout starts with this magic, little-endian.
constexpr uint32_t kVersion1Magic = 13243546;

enum Tag : int32_t { TagString = 0, TagInteger = 1, TagFloat = 2 };

[[noreturn]] void corrupt()
{
    throw AppError("Invalid version or corrupted noise profile");
}

class Reader {
public:
    explicit Reader(const std::vector<uint8_t>& bytes) : b_(bytes) {}

    uint32_t u32()
    {
        if (b_.size() - pos_ < 4)
            throw AppError("corrupted noise profile: the data ends early");
        const uint32_t v = (uint32_t{b_[pos_]} << 24) | (uint32_t{b_[pos_ + 1]} << 16) | (uint32_t{b_[pos_ + 2]} << 8) |
                           uint32_t{b_[pos_ + 3]};
        pos_ += 4;
        return v;
    }
    int32_t i32() { return static_cast<int32_t>(u32()); }
    float f32()
    {
        const uint32_t v = u32();
        float f;
        std::memcpy(&f, &v, sizeof f);
        return f;
    }
    // A 32-bit length and that many bytes.
    void skipBlock()
    {
        const uint32_t n = u32();
        if (b_.size() - pos_ < n)
            throw AppError("corrupted noise profile: the data ends early");
        pos_ += n;
    }
    // A text: the bytes up to the first zero of a length-prefixed block.
    std::string text()
    {
        const uint32_t n = u32();
        if (b_.size() - pos_ < n)
            throw AppError("corrupted noise profile: the data ends early");
        const char* p = reinterpret_cast<const char*>(b_.data() + pos_);
        pos_ += n;
        return std::string(p, strnlen(p, n));
    }
    size_t position() const { return pos_; }

private:
    const std::vector<uint8_t>& b_;
    size_t pos_ = 0;
};

class Writer {
public:
    void u32(uint32_t v)
    {
        out.push_back(static_cast<uint8_t>(v >> 24));
        out.push_back(static_cast<uint8_t>(v >> 16));
        out.push_back(static_cast<uint8_t>(v >> 8));
        out.push_back(static_cast<uint8_t>(v));
    }
    void i32(int32_t v) { u32(static_cast<uint32_t>(v)); }
    void f32(float f)
    {
        uint32_t v;
        std::memcpy(&v, &f, sizeof v);
        u32(v);
    }
    // A present text: an empty one as a zero length, otherwise the length
    // with the terminating zero, the bytes and the zero.
    void text(const std::string& s)
    {
        if (s.empty()) {
            u32(0);
            return;
        }
        u32(static_cast<uint32_t>(s.size() + 1));
        out.insert(out.end(), s.begin(), s.end());
        out.push_back(0);
    }
    // An absent text is the empty C text: a length of 1 and the zero byte.
    void absentText()
    {
        u32(1);
        out.push_back(0);
    }

    std::vector<uint8_t> out;
};

// --- reading the three layouts ------------------------------------------------

void readFlagged(Reader& r, std::optional<std::string>& f)
{
    const int32_t flag = r.i32();
    std::string v = r.text();
    if (flag != 0)
        f = std::move(v);
    else
        f.reset();
}

void readFlagged(Reader& r, std::optional<int>& f)
{
    const int32_t flag = r.i32();
    const int32_t v = r.i32();
    if (flag != 0)
        f = v;
    else
        f.reset();
}

void readFlagged(Reader& r, std::optional<float>& f)
{
    const int32_t flag = r.i32();
    const float v = r.f32();
    if (flag != 0)
        f = v;
    else
        f.reset();
}

ProfileHeader read44546(Reader& r)
{
    ProfileHeader h;
    h.maker = r.text();
    h.model = r.text();
    h.film = r.text();
    h.iso = r.i32();
    h.multisampling = r.i32();
    r.i32();  // a shutter speed in a form no longer used: shutter speed stays absent
    h.exposureComp = 0.0f;
    h.megapixels = r.i32();
    h.quality = r.i32();
    h.sharpness = r.i32();
    h.illuminant = r.i32();
    h.contrast = r.i32();
    h.saturation = r.i32();
    h.colorSpace = r.text();
    h.author = r.text();
    r.text();  // a text no longer used
    h.comment = r.text();
    return h;
}

ProfileHeader read44547(Reader& r)
{
    ProfileHeader h;
    readFlagged(r, h.maker);
    readFlagged(r, h.model);
    readFlagged(r, h.film);
    readFlagged(r, h.iso);
    readFlagged(r, h.multisampling);
    readFlagged(r, h.shutterSpeed);
    readFlagged(r, h.megapixels);
    readFlagged(r, h.quality);
    readFlagged(r, h.sharpness);
    readFlagged(r, h.illuminant);
    readFlagged(r, h.contrast);
    readFlagged(r, h.saturation);
    readFlagged(r, h.temperature);
    readFlagged(r, h.colorSpace);
    readFlagged(r, h.author);
    readFlagged(r, h.comment);
    // This layout stores no exposure compensation.
    h.exposureComp = 0.0f;
    return h;
}

template <typename T>
void readValue(Reader& r, std::optional<T>& f, int32_t flag)
{
    T v;
    if constexpr (std::is_same_v<T, std::string>)
        v = r.text();
    else if constexpr (std::is_same_v<T, float>)
        v = r.f32();
    else
        v = r.i32();
    if (flag != 0)
        f = std::move(v);
    else
        f.reset();
}

ProfileHeader read44548(Reader& r)
{
    ProfileHeader h;
    const int32_t count = r.i32();
    for (int32_t i = 0; i < count; ++i) {
        const int32_t index = r.i32();
        const int32_t tag = r.i32();
        const int32_t flag = r.i32();
        // A known field is read in its own kind whatever its tag says.
        switch (index) {
        case 0: readValue(r, h.maker, flag); break;
        case 1: readValue(r, h.model, flag); break;
        case 2: readValue(r, h.film, flag); break;
        case 3: readValue(r, h.iso, flag); break;
        case 4: readValue(r, h.multisampling, flag); break;
        case 5: readValue(r, h.shutterSpeed, flag); break;
        case 6: readValue(r, h.exposureComp, flag); break;
        case 7: readValue(r, h.megapixels, flag); break;  // tagged as a float, stored as an integer
        case 8: readValue(r, h.quality, flag); break;
        case 9: readValue(r, h.sharpness, flag); break;
        case 10: readValue(r, h.illuminant, flag); break;
        case 11: readValue(r, h.contrast, flag); break;
        case 12: readValue(r, h.saturation, flag); break;
        case 13: readValue(r, h.temperature, flag); break;
        case 14: readValue(r, h.colorSpace, flag); break;
        case 15: readValue(r, h.author, flag); break;
        case 16: readValue(r, h.comment, flag); break;
        default:
            // A field of a later writer: one value skipped by its tag; an
            // unknown tag has no value.
            if (tag == TagString)
                r.text();
            else if (tag == TagInteger)
                r.i32();
            else if (tag == TagFloat)
                r.f32();
            break;
        }
    }
    return h;
}

bool isVersion1(const std::vector<uint8_t>& bytes)
{
    return bytes.size() >= 4 && (uint32_t{bytes[0]} | (uint32_t{bytes[1]} << 8) | (uint32_t{bytes[2]} << 16) |
                                 (uint32_t{bytes[3]} << 24)) == kVersion1Magic;
}

// Reads the header and leaves the reader just after the header record.
ProfileHeader readHeader(Reader& r)
{
    const uint32_t version = r.u32();
    r.i32();  // the second word
    if (version < kVersion44546 || version > kVersion44548)
        corrupt();
    if (version > kVersion44546)
        r.skipBlock();  // the header text, for people only
    if (version == kVersion44546)
        return read44546(r);
    if (version == kVersion44547)
        return read44547(r);
    return read44548(r);
}

// --- writing the tagged record ------------------------------------------------

void writeField(Writer& w, int32_t index, int32_t tag, const std::optional<std::string>& f)
{
    w.i32(index);
    w.i32(tag);
    w.i32(f ? 1 : 0);
    if (f)
        w.text(*f);
    else
        w.absentText();
}

void writeField(Writer& w, int32_t index, int32_t tag, const std::optional<int>& f)
{
    w.i32(index);
    w.i32(tag);
    w.i32(f ? 1 : 0);
    w.i32(f ? *f : 0);
}

void writeField(Writer& w, int32_t index, int32_t tag, const std::optional<float>& f)
{
    w.i32(index);
    w.i32(tag);
    w.i32(f ? 1 : 0);
    w.f32(f ? *f : 0.0f);
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

const char* levelWord(int code)
{
    switch (code) {
    case 1: return "Lo2";
    case 2: return "Lo1";
    case 3: return "Med";
    case 4: return "Hi1";
    case 5: return "Hi2";
    default: return "???";
    }
}

// Halves away from zero, in single precision; a value beyond the integers
// saturates instead of overflowing.
int roundToNearest(float x)
{
    const float r = x >= 0.0f ? std::floor(x + 0.5f) : std::ceil(x - 0.5f);
    if (!(r > static_cast<float>(std::numeric_limits<int>::min())))
        return std::numeric_limits<int>::min();
    if (!(r < static_cast<float>(std::numeric_limits<int>::max())))
        return std::numeric_limits<int>::max();
    return static_cast<int>(r);
}

}  // namespace

ProfileHeader readProfileHeader(const std::vector<uint8_t>& profileBytes)
{
    // The dense older layout carries no header: it reads as an empty one.
    if (isVersion1(profileBytes))
        return ProfileHeader{};
    Reader r(profileBytes);
    return readHeader(r);
}

std::vector<uint8_t> withProfileHeader(const std::vector<uint8_t>& profileBytes, const ProfileHeader& h)
{
    if (isVersion1(profileBytes))
        throw AppError("a Version 1 noise profile has no header to replace");
    Reader r(profileBytes);
    readHeader(r);
    const size_t tail = r.position();

    Writer w;
    w.u32(kVersion44548);
    w.i32(kSecondWord);
    w.u32(0);  // an empty header text block
    w.i32(kFieldCount);
    writeField(w, 0, TagString, h.maker);
    writeField(w, 1, TagString, h.model);
    writeField(w, 2, TagString, h.film);
    writeField(w, 3, TagInteger, h.iso);
    writeField(w, 4, TagInteger, h.multisampling);
    writeField(w, 5, TagFloat, h.shutterSpeed);
    writeField(w, 6, TagFloat, h.exposureComp);
    // Tagged as a float, written as an integer: the layout has always been so.
    writeField(w, 7, TagFloat, h.megapixels);
    writeField(w, 8, TagInteger, h.quality);
    writeField(w, 9, TagInteger, h.sharpness);
    writeField(w, 10, TagInteger, h.illuminant);
    writeField(w, 11, TagInteger, h.contrast);
    writeField(w, 12, TagInteger, h.saturation);
    writeField(w, 13, TagFloat, h.temperature);
    writeField(w, 14, TagString, h.colorSpace);
    writeField(w, 15, TagString, h.author);
    writeField(w, 16, TagString, h.comment);
    w.out.insert(w.out.end(), profileBytes.begin() + static_cast<std::ptrdiff_t>(tail), profileBytes.end());
    return std::move(w.out);
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

std::string autoProfileDirectory(const ProfileHeader& h)
{
    const std::string maker = h.maker.value_or("");
    const std::string model = h.model.value_or("");
    const std::string film = h.film.value_or("");
    std::string dir;
    dir.reserve(1024);
    for (const std::string* part : {&maker, &model}) {
        dir += '/';
        dir += part->empty() ? std::string("other") : *part;
    }
    if (!film.empty()) {
        dir += '/';
        dir += film;
    }
    return dir;
}

// Pieces in a fixed order. Only a RAW quality and the five named illuminants
// reach the name, and a shutter speed never does, while an exposure
// compensation adds just "_eb": the name's formatting of those values has
// always been dropped, and the names of existing profile libraries depend
// on it.
std::string autoProfileFileName(const ProfileHeader& h)
{
    std::string name;
    name.reserve(1024);
    auto add = [&name](std::initializer_list<std::string_view> pieces) {
        for (std::string_view p : pieces)
            name += p;
    };
    add({h.model ? std::string_view(*h.model) : std::string_view("unspec")});
    if (h.film)
        add({"_", *h.film});
    if (h.multisampling)
        add({"_", std::to_string(*h.multisampling), "x"});
    if (h.iso)
        add({"_iso", std::to_string(*h.iso)});
    if (h.megapixels)
        add({"_", std::to_string(*h.megapixels), "mp"});
    if (h.quality && *h.quality == 1)
        add({"_raw"});
    if (h.sharpness)
        add({"_sh", levelWord(*h.sharpness)});
    if (h.contrast)
        add({"_con", levelWord(*h.contrast)});
    if (h.saturation)
        add({"_sat", levelWord(*h.saturation)});
    if (h.temperature)
        add({"_tmp", std::to_string(roundToNearest(*h.temperature))});
    if (h.illuminant) {
        switch (*h.illuminant) {
        case 1: name += "_daylight"; break;
        case 2: name += "_flour"; break;
        case 3: name += "_tungsten"; break;
        case 4: name += "_flash"; break;
        case 10: name += "_cloudy"; break;
        default: break;
        }
    }
    if (h.exposureComp)
        name += "_eb";
    if (name == "unspec")
        return "unnamed";
    return name;
}

}  // namespace murmex_app
