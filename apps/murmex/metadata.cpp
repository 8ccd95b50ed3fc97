// Camera metadata through Exiv2: the few EXIF values a profile header
// records, and carrying EXIF and XMP from the input photo to the output.
// Exiv2 reads and writes only the standard XMP packet of a JPEG; its
// extended XMP (jpeg_xmp.h) is read, split off and added here.

#include "metadata.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <vector>

#include <exiv2/exiv2.hpp>

#include "app_error.h"
#include "file_errors.h"
#include "image_formats.h"
#include "jpeg_xmp.h"
#include "tiff_directory.h"

namespace murmex_app {

namespace {

void initExiv2()
{
    static std::once_flag once;
    std::call_once(once, [] {
        Exiv2::XmpParser::initialize();
        Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
        // Where a JPEG's standard XMP names its extension; unknown to Exiv2.
        Exiv2::XmpProperties::registerNs("http://ns.adobe.com/xmp/note/", "xmpNote");
    });
}

std::string trimmed(const std::string& s)
{
    const char* space = " \t\r\n\v\f";
    std::string t = s.substr(0, s.find('\0'));
    const size_t first = t.find_first_not_of(space);
    if (first == std::string::npos)
        return {};
    return t.substr(first, t.find_last_not_of(space) - first + 1);
}

const Exiv2::Exifdatum* findExif(const Exiv2::ExifData& exif, const char* key)
{
    const auto it = exif.findKey(Exiv2::ExifKey(key));
    return it == exif.end() || it->count() == 0 ? nullptr : &*it;
}

std::optional<std::string> exifText(const Exiv2::ExifData& exif, const char* key)
{
    const Exiv2::Exifdatum* d = findExif(exif, key);
    if (!d)
        return std::nullopt;
    std::string s = trimmed(d->toString());
    if (s.empty())
        return std::nullopt;
    return s;
}

std::optional<int> exifInt(const Exiv2::ExifData& exif, const char* key)
{
    const Exiv2::Exifdatum* d = findExif(exif, key);
    if (!d)
        return std::nullopt;
    const long v = d->value().toLong(0);
    if (!d->value().ok())
        return std::nullopt;
    return static_cast<int>(v);
}

std::optional<float> exifFloat(const Exiv2::ExifData& exif, const char* key)
{
    const Exiv2::Exifdatum* d = findExif(exif, key);
    if (!d)
        return std::nullopt;
    const float v = d->value().toFloat(0);
    if (!d->value().ok() || !std::isfinite(v))
        return std::nullopt;
    return v;
}

// Opens and reads the metadata of `path`. Null when Exiv2 does not know the
// file's type or cannot make sense of its metadata: the photo then simply has
// none. A file that cannot be opened at all is an error.
std::unique_ptr<Exiv2::Image> openForMetadata(const std::string& path)
{
    initExiv2();
    if (FILE* f = std::fopen(path.c_str(), "rb"))
        std::fclose(f);
    else
        throw AppError("cannot read " + path + ": " + errnoText(errno));
    std::unique_ptr<Exiv2::Image> image;
    try {
        image.reset(Exiv2::ImageFactory::open(path).release());
    } catch (const Exiv2::AnyError& e) {
        if (e.code() == Exiv2::kerFileContainsUnknownImageType)
            return nullptr;
        throw AppError(detail::oneLine("cannot read " + path + ": " + e.what()));
    }
    if (!image)
        return nullptr;
    try {
        image->readMetadata();
    } catch (const std::exception&) {
        return nullptr;
    }
    return image;
}

// Tags of the first directory that describe the picture rather than how its
// pixels are stored; the others (sizes, sample layout, strip and tile
// offsets, the ICC profile, thumbnails) belong to the file they were read
// from and are never carried over.
bool isDescriptiveImageTag(const std::string& tag)
{
    static const char* const kept[] = {"Make",       "Model",       "DateTime",       "Artist",
                                       "Copyright",  "Orientation", "Software",       "ImageDescription",
                                       "HostComputer", "XResolution", "YResolution", "ResolutionUnit",
                                       "DateTimeOriginal", "Rating", "RatingPercent"};
    for (const char* k : kept)
        if (tag == k)
            return true;
    return false;
}

// Which EXIF entries of the input go into the output. A TIFF output gets the
// descriptive first-directory tags, the Exif and GPS directories and the
// interoperability tags; the maker's private note, whose insides carry file
// offsets, stays behind. JPEG and PNG outputs also get the maker note.
bool carriedOver(const Exiv2::Exifdatum& d, bool tiffTarget)
{
    const std::string group = d.groupName();
    if (group == "Image")
        return isDescriptiveImageTag(d.tagName());
    if (group == "Photo")
        return !(tiffTarget && d.tagName() == "MakerNote");
    if (group == "GPSInfo" || group == "Iop")
        return true;
    if (!tiffTarget && (group == "MakerNote" || Exiv2::ExifTags::isMakerGroup(group)))
        return true;
    return false;
}

void setExif(Exiv2::ExifData& exif, const char* key, uint32_t v)
{
    exif[key] = v;
}

void setExifShort(Exiv2::ExifData& exif, const char* key, uint16_t v)
{
    exif[key] = v;
}

}  // namespace

CameraInfo readCameraInfo(const std::string& path)
{
    CameraInfo info;
    const std::unique_ptr<Exiv2::Image> image = openForMetadata(path);
    if (!image)
        return info;
    const Exiv2::ExifData& exif = image->exifData();
    if (exif.empty())
        return info;
    return cameraFromExif({[&](const char* key) { return exifText(exif, key); },
                           [&](const char* key) { return exifInt(exif, key); },
                           [&](const char* key) { return exifFloat(exif, key); }});
}

namespace {

constexpr const char* kExtendedXmpNote = "Xmp.xmpNote.HasExtendedXMP";

// The top-level property that an XMP key belongs to: "Xmp.xmpMM.History"
// for "Xmp.xmpMM.History[2]/stEvt:action". Properties move between the
// standard and the extended XMP of a JPEG whole.
std::string topLevelProperty(const std::string& key)
{
    const size_t prefixEnd = key.find('.', key.find('.') + 1);
    if (prefixEnd == std::string::npos)
        return key;
    return key.substr(0, key.find_first_of("[/", prefixEnd));
}

// The XMP of `source` (the file at `path`), with a JPEG's extended XMP merged
// in; its properties replace those of the same names in the standard packet,
// as they were moved there from it. An extension that is missing or damaged
// is left out, and the note that names it goes either way.
Exiv2::XmpData sourceXmp(const Exiv2::Image& source, const std::string& path)
{
    Exiv2::XmpData xmp = source.xmpData();
    const auto note = xmp.findKey(Exiv2::XmpKey(kExtendedXmpNote));
    if (note == xmp.end())
        return xmp;
    const std::string guid = note->toString();
    xmp.erase(note);
    if (source.imageType() != Exiv2::ImageType::jpeg)
        return xmp;
    const std::map<std::string, std::string> documents = readJpegExtendedXmp(path);
    const auto document = documents.find(guid);
    if (document == documents.end())
        return xmp;
    Exiv2::XmpData extended;
    try {
        // Exiv2 reports most bad XMP by its result, some by throwing.
        if (Exiv2::XmpParser::decode(extended, document->second) != 0)
            return xmp;
    } catch (const Exiv2::AnyError&) {
        return xmp;
    }
    std::set<std::string> replaced;
    for (const Exiv2::Xmpdatum& d : extended)
        replaced.insert(topLevelProperty(d.key()));
    Exiv2::XmpData merged;
    for (const Exiv2::Xmpdatum& d : xmp)
        if (replaced.count(topLevelProperty(d.key())) == 0)
            merged.add(d);
    for (const Exiv2::Xmpdatum& d : extended)
        if (d.key() != kExtendedXmpNote)
            merged.add(d);
    return merged;
}

// The XMP packet as Exiv2 writes it into a JPEG (with `wrapper`) or as an
// extended XMP document (without); nothing when Exiv2 cannot serialise it.
std::optional<std::string> encodeXmp(const Exiv2::XmpData& xmp, bool wrapper)
{
    std::string packet;
    uint16_t flags = Exiv2::XmpParser::useCompactFormat | Exiv2::XmpParser::omitAllFormatting;
    if (!wrapper)
        flags |= Exiv2::XmpParser::omitPacketWrapper;
    if (Exiv2::XmpParser::encode(packet, xmp, flags) != 0)
        return std::nullopt;
    return packet;
}

// XMP for a JPEG that holds more than one segment: the standard packet and
// the extended document it names.
struct SplitXmp {
    std::string standard;
    std::string extended;
    std::string guid;
};

// Splits XMP whose packet does not fit in one JPEG segment. The standard
// packet keeps the small properties, which are the ones a reader of the
// standard packet alone most wants (titles, ratings, dates, camera
// settings); the extended document takes the raw developer's settings
// first, then the editing history, then the others, largest first, until
// the rest fits. Throws AppError when Exiv2 cannot serialise a part.
SplitXmp splitXmpForJpeg(const Exiv2::XmpData& xmp)
{
    struct Property {
        std::string name;
        int rank;  // 0 moves first
        size_t size;
    };
    std::vector<Property> properties;
    std::map<std::string, size_t> index;
    for (const Exiv2::Xmpdatum& d : xmp) {
        const std::string name = topLevelProperty(d.key());
        auto [it, added] = index.emplace(name, properties.size());
        if (added)
            properties.push_back({name, d.groupName() == "crs" ? 0 : name == "Xmp.photoshop.History" ? 1 : 2, 0});
        properties[it->second].size += d.key().size() + d.toString().size();
    }
    std::stable_sort(properties.begin(), properties.end(), [](const Property& a, const Property& b) {
        return a.rank != b.rank ? a.rank < b.rank : a.size > b.size;
    });

    const auto partOf = [&](const std::set<std::string>& names, bool inNames) {
        Exiv2::XmpData part;
        for (const Exiv2::Xmpdatum& d : xmp)
            if ((names.count(topLevelProperty(d.key())) != 0) == inNames)
                part.add(d);
        return part;
    };
    const auto encoded = [](const Exiv2::XmpData& part, bool wrapper) {
        std::optional<std::string> packet = encodeXmp(part, wrapper);
        if (!packet)
            throw AppError("Exiv2 cannot serialise the XMP");
        return *packet;
    };

    // The GUID has a fixed length: a stand-in gives the standard packet's size.
    const std::string standIn(32, '0');
    std::set<std::string> moved;
    size_t next = 0;
    for (;;) {
        Exiv2::XmpData standard = partOf(moved, false);
        standard[kExtendedXmpNote] = standIn;
        const size_t size = encoded(standard, true).size();
        if (size <= kJpegStandardXmpLimit)
            break;
        if (next == properties.size())
            throw AppError("the standard XMP packet does not fit in a JPEG segment");
        // Moves about as much as is too much, by the properties' sizes.
        for (size_t freed = 0; next < properties.size() && freed < size - kJpegStandardXmpLimit; ++next) {
            moved.insert(properties[next].name);
            freed += properties[next].size;
        }
    }
    SplitXmp split;
    split.extended = encoded(partOf(moved, true), false);
    if (split.extended.size() > 0xffffffffu)
        throw AppError("the XMP is too large for a JPEG file");
    split.guid = extendedXmpGuid(split.extended);
    Exiv2::XmpData standard = partOf(moved, false);
    standard[kExtendedXmpNote] = split.guid;
    split.standard = encoded(standard, true);
    return split;
}

// The EXIF and XMP that go into an output: `exif` (what the output holds
// already) with the entries of `source` (read from the file at
// `sourcePath`) that are carried over, the dimensions of an output `width` x
// `height` (unknown: 0) and its orientation fixed up.
struct OutputMetadata {
    Exiv2::ExifData exif;
    Exiv2::XmpData xmp;
};
OutputMetadata outputMetadata(const Exiv2::Image& source, const std::string& sourcePath, Exiv2::ExifData exif,
                              bool tiffTarget, int width, int height, bool pixelsUpright)
{
    const Exiv2::ExifData& sourceExif = source.exifData();
    for (const Exiv2::Exifdatum& d : sourceExif) {
        if (!carriedOver(d, tiffTarget))
            continue;
        const Exiv2::ExifKey key(d.key());
        for (auto it = exif.findKey(key); it != exif.end(); it = exif.findKey(key))
            exif.erase(it);
        exif.add(d);
    }
    if (!sourceExif.empty()) {
        if (width > 0 && height > 0) {
            setExif(exif, "Exif.Photo.PixelXDimension", static_cast<uint32_t>(width));
            setExif(exif, "Exif.Photo.PixelYDimension", static_cast<uint32_t>(height));
        }
        if (pixelsUpright && exif.findKey(Exiv2::ExifKey("Exif.Image.Orientation")) != exif.end())
            setExifShort(exif, "Exif.Image.Orientation", 1);
    }

    Exiv2::XmpData xmp = sourceXmp(source, sourcePath);
    // Descriptions of the stored pixels that the output no longer matches.
    for (const char* stale : {"Xmp.tiff.BitsPerSample", "Xmp.tiff.Compression", "Xmp.tiff.PhotometricInterpretation",
                              "Xmp.tiff.SamplesPerPixel", "Xmp.tiff.PlanarConfiguration"}) {
        const auto it = xmp.findKey(Exiv2::XmpKey(stale));
        if (it != xmp.end())
            xmp.erase(it);
    }
    if (width > 0 && height > 0) {
        for (const auto& [key, value] : {std::pair{"Xmp.tiff.ImageWidth", width}, std::pair{"Xmp.tiff.ImageLength", height},
                                         std::pair{"Xmp.exif.PixelXDimension", width},
                                         std::pair{"Xmp.exif.PixelYDimension", height}})
            if (xmp.findKey(Exiv2::XmpKey(key)) != xmp.end())
                xmp[key] = std::to_string(value);
    }
    if (pixelsUpright && xmp.findKey(Exiv2::XmpKey("Xmp.tiff.Orientation")) != xmp.end())
        xmp["Xmp.tiff.Orientation"] = "1";

    return {std::move(exif), std::move(xmp)};
}

// Puts the metadata of `source` (read from the file at `sourcePath`) into
// `target`, an image `width` x `height` (unknown: 0), and writes it there. A
// JPEG target whose XMP needs more than one segment gets the standard packet
// here; the extended document it names is returned, for the caller to add.
std::optional<SplitXmp> putMetadata(const Exiv2::Image& source, const std::string& sourcePath, Exiv2::Image& target,
                                    int width, int height, bool pixelsUpright)
{
    const bool tiffTarget = target.imageType() == Exiv2::ImageType::tiff;
    OutputMetadata m = outputMetadata(source, sourcePath, target.exifData(), tiffTarget, width, height, pixelsUpright);
    Exiv2::ExifData& exif = m.exif;
    Exiv2::XmpData& xmp = m.xmp;
    target.setExifData(exif);
    std::optional<SplitXmp> split;
    if (target.imageType() == Exiv2::ImageType::jpeg && !xmp.empty()) {
        const std::optional<std::string> whole = encodeXmp(xmp, true);
        if (whole && whole->size() > kJpegStandardXmpLimit)
            split = splitXmpForJpeg(xmp);
    }
    if (split) {
        target.setXmpPacket(split->standard);
        target.writeXmpFromPacket(true);
    } else {
        target.setXmpData(xmp);
    }
    target.writeMetadata();
    return split;
}

// Whether the pixels of `from` were turned upright on reading.
bool readUpright(const std::string& from)
{
    // The raw decoder has already turned the pixels upright, so the
    // camera's orientation no longer applies. (A TIFF with sub-directories
    // that the raw decoder does not know was read as stored.)
    try {
        const detail::SourceKind kind = detail::detectSource(from);
        return kind == detail::SourceKind::CameraRaw || kind == detail::SourceKind::TiffCameraRaw;
    } catch (const AppError&) {
        return false;
    }
}

// Adds the metadata of `source` to the TIFF file `to` as Exiv2 would write
// it, without rewriting the file (tiff_directory.h): the same entries from
// the same rules. False, the file untouched, when `to` is not a TIFF that
// can be extended so or an entry has a type classic TIFF does not know.
bool appendToTiff(const Exiv2::Image& source, const std::string& from, const std::string& to)
{
    detail::TiffShape shape;
    if (!detail::extendableTiff(to) || !detail::readTiffShape(to, shape))
        return false;
    Exiv2::ExifData own;
    if (const std::optional<uint16_t> orientation = detail::tiffFirstDirectoryShort(to, 274))
        setExifShort(own, "Exif.Image.Orientation", *orientation);
    const OutputMetadata m = outputMetadata(source, from, own, true, static_cast<int>(shape.width),
                                            static_cast<int>(shape.height), readUpright(from));
    detail::TiffMetadataEntries entries;
    for (const Exiv2::Exifdatum& d : m.exif) {
        const std::string group = d.groupName();
        std::vector<detail::TiffEntry>* list = group == "Image"     ? &entries.image
                                               : group == "Photo"   ? &entries.exif
                                               : group == "GPSInfo" ? &entries.gps
                                               : group == "Iop"     ? &entries.interop
                                                                    : nullptr;
        const uint32_t typeSize = detail::tiffTypeSize(static_cast<uint16_t>(d.typeId()));
        const long size = d.size();
        if (!list || typeSize == 0 || size <= 0 || size % typeSize != 0)
            return false;
        // Exiv2 keeps a TIFF's own resolution tags, which the writer took
        // from the image.
        if (list == &entries.image && (d.tag() == 282 || d.tag() == 283 || d.tag() == 296))
            continue;
        detail::TiffEntry e;
        e.tag = d.tag();
        e.type = static_cast<uint16_t>(d.typeId());
        e.count = static_cast<uint32_t>(size / typeSize);
        e.value.resize(static_cast<size_t>(size));
        d.copy(e.value.data(), Exiv2::littleEndian);
        list->push_back(std::move(e));
    }
    if (!m.xmp.empty()) {
        // As Exiv2 writes a TIFF's XMP: the compact packet, as bytes.
        std::string packet;
        if (Exiv2::XmpParser::encode(packet, m.xmp) > 1)
            return false;
        if (!packet.empty())
            entries.image.push_back({700, 1, static_cast<uint32_t>(packet.size()), {packet.begin(), packet.end()}});
    }
    if (!detail::appendTiffMetadata(to, entries))
        return false;
    detail::TiffShape after;
    if (!detail::readTiffShape(to, after) || !(after == shape))
        throw AppError("cannot write metadata to " + to + ": the metadata writer changed the image structure");
    return true;
}

// The smallest JPEG that Exiv2 writes metadata into: one grey pixel's frame
// header and an empty scan.
const Exiv2::byte kTinyJpeg[] = {0xff, 0xd8, 0xff, 0xc0, 0x00, 0x0b, 0x08, 0x00, 0x01, 0x00, 0x01, 0x01, 0x01,
                                 0x11, 0x00, 0xff, 0xda, 0x00, 0x08, 0x01, 0x01, 0x00, 0x00, 0x3f, 0x00, 0xff, 0xd9};

// The smallest PNG that Exiv2 writes metadata into: one black grey pixel.
const Exiv2::byte kTinyPng[] = {
    0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a, 0x00, 0x00, 0x00, 0x0d, 0x49, 0x48, 0x44, 0x52, 0x00,
    0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x01, 0x08, 0x00, 0x00, 0x00, 0x00, 0x3a, 0x7e, 0x9b, 0x55, 0x00,
    0x00, 0x00, 0x0a, 0x49, 0x44, 0x41, 0x54, 0x78, 0x9c, 0x63, 0x60, 0x00, 0x00, 0x00, 0x02, 0x00, 0x01,
    0x48, 0xaf, 0xa4, 0x71, 0x00, 0x00, 0x00, 0x00, 0x49, 0x45, 0x4e, 0x44, 0xae, 0x42, 0x60, 0x82};

// What Exiv2 wrote into an image held in memory.
std::string memoryImageBytes(Exiv2::Image& image)
{
    Exiv2::BasicIo& io = image.io();
    io.open();
    std::string bytes(reinterpret_cast<const char*>(io.mmap()), static_cast<size_t>(io.size()));
    io.munmap();
    io.close();
    return bytes;
}

// The metadata of `from` when it has EXIF or XMP; null when it has neither
// or cannot be read.
std::unique_ptr<Exiv2::Image> sourceMetadata(const std::string& from)
{
    std::unique_ptr<Exiv2::Image> source;
    try {
        source = openForMetadata(from);
    } catch (const AppError&) {
        return nullptr;
    }
    if (!source || (source->exifData().empty() && source->xmpData().empty()))
        return nullptr;
    return source;
}

}  // namespace

void checkMetadataFits(const std::string& from, const std::string& to, ImageFormat format)
{
    if (format != ImageFormat::Jpeg)
        return;
    const std::unique_ptr<Exiv2::Image> source = sourceMetadata(from);
    if (!source)
        return;
    // The metadata goes into a one-pixel JPEG in memory the way it will go
    // into the output, so that what a JPEG cannot hold shows now.
    const std::string refusal = "cannot write " + to + ": the metadata of " + from + " does not fit in a JPEG file (";
    try {
        std::unique_ptr<Exiv2::Image> target(Exiv2::ImageFactory::open(kTinyJpeg, sizeof kTinyJpeg).release());
        target->readMetadata();
        const std::optional<SplitXmp> split = putMetadata(*source, from, *target, 1, 1, readUpright(from));
        if (split) {
            std::string jpeg = memoryImageBytes(*target);
            if (!insertAfterStandardXmp(jpeg, extendedXmpSegments(split->extended, split->guid)))
                throw AppError("no place for the extended XMP");
        }
    } catch (const Exiv2::AnyError& e) {
        // The XMP takes as many segments as it needs; the EXIF has one.
        if (e.code() == Exiv2::kerTooLargeJpegSegment)
            throw AppError("cannot write " + to + ": the EXIF metadata of " + from +
                           " does not fit in a JPEG file (at most 64 KB); write TIFF or PNG");
        throw AppError(detail::oneLine(refusal + e.what() + "); write TIFF or PNG"));
    } catch (const std::exception& e) {
        throw AppError(detail::oneLine(refusal + e.what() + "); write TIFF or PNG"));
    }
}

std::vector<PngChunk> pngMetadataChunks(const std::string& from, const std::string& to, int width, int height)
{
    const std::unique_ptr<Exiv2::Image> source = sourceMetadata(from);
    if (!source)
        return {};
    std::string png;
    try {
        std::unique_ptr<Exiv2::Image> target(Exiv2::ImageFactory::open(kTinyPng, sizeof kTinyPng).release());
        target->readMetadata();
        putMetadata(*source, from, *target, width, height, readUpright(from));
        png = memoryImageBytes(*target);
    } catch (const Exiv2::AnyError& e) {
        throw AppError(detail::oneLine("cannot write metadata to " + to + ": " + e.what()));
    } catch (const std::exception& e) {
        throw AppError(detail::oneLine("cannot write metadata to " + to + ": " + e.what()));
    }
    // Every chunk but the one-pixel image's own.
    std::vector<PngChunk> chunks;
    const auto byteAt = [&](size_t i) { return static_cast<uint32_t>(static_cast<uint8_t>(png[i])); };
    for (size_t at = 8; at + 12 <= png.size();) {
        const size_t length = byteAt(at) << 24 | byteAt(at + 1) << 16 | byteAt(at + 2) << 8 | byteAt(at + 3);
        if (length > png.size() - at - 12)
            throw AppError("cannot write metadata to " + to + ": Exiv2 wrote a damaged PNG chunk");
        std::string type = png.substr(at + 4, 4);
        if (type != "IHDR" && type != "IDAT" && type != "IEND")
            chunks.push_back({std::move(type), {png.begin() + static_cast<std::ptrdiff_t>(at + 8),
                                                png.begin() + static_cast<std::ptrdiff_t>(at + 8 + length)}});
        at += 12 + length;
    }
    return chunks;
}

void copyMetadata(const std::string& from, const std::string& to)
{
    const std::unique_ptr<Exiv2::Image> source = sourceMetadata(from);
    if (!source)
        return;

    try {
        if (appendToTiff(*source, from, to))
            return;
    } catch (const Exiv2::AnyError& e) {
        throw AppError(detail::oneLine("cannot write metadata to " + to + ": " + e.what()));
    }

    std::unique_ptr<Exiv2::Image> target;
    try {
        target = openForMetadata(to);
    } catch (const AppError& e) {
        const std::string message = e.what();
        const std::string lead = "cannot read " + to + ": ";
        throw AppError("cannot write metadata to " + to + ": " +
                       (message.rfind(lead, 0) == 0 ? message.substr(lead.size()) : message));
    }
    if (!target)
        throw AppError("cannot write metadata to " + to + ": unknown file type");
    const bool tiffTarget = target->imageType() == Exiv2::ImageType::tiff;
    detail::TiffShape shapeBefore;
    if (tiffTarget && !detail::readTiffShape(to, shapeBefore))
        throw AppError("cannot write metadata to " + to + ": not a readable TIFF file");

    std::optional<SplitXmp> split;
    try {
        split = putMetadata(*source, from, *target, target->pixelWidth(), target->pixelHeight(), readUpright(from));
    } catch (const Exiv2::AnyError& e) {
        throw AppError(detail::oneLine("cannot write metadata to " + to + ": " + e.what()));
    } catch (const std::exception& e) {
        throw AppError(detail::oneLine("cannot write metadata to " + to + ": " + e.what()));
    }
    target.reset();
    if (split)
        addJpegExtendedXmp(to, split->extended, split->guid);

    if (tiffTarget) {
        detail::TiffShape shapeAfter;
        if (!detail::readTiffShape(to, shapeAfter) || !(shapeAfter == shapeBefore))
            throw AppError("cannot write metadata to " + to + ": the metadata writer changed the image structure");
    }
}

}  // namespace murmex_app
