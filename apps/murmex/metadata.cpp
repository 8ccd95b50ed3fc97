// Camera metadata through Exiv2: the few EXIF values a profile header
// records, and carrying EXIF and XMP from the input photo to the output.

#include "metadata.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <mutex>

#include <exiv2/exiv2.hpp>

#include "app_error.h"
#include "file_errors.h"
#include "image_formats.h"

namespace murmex_app {

namespace {

void initExiv2()
{
    static std::once_flag once;
    std::call_once(once, [] {
        Exiv2::XmpParser::initialize();
        Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
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

// The largest XMP packet that one JPEG APP1 segment holds after its
// "http://ns.adobe.com/xap/1.0/" name.
constexpr size_t kJpegXmpLimit = 0xffff - 2 - 29;

void checkMetadataFits(const std::string& from, const std::string& to, ImageFormat format)
{
    if (format != ImageFormat::Jpeg)
        return;
    std::unique_ptr<Exiv2::Image> source;
    try {
        source = openForMetadata(from);
    } catch (const AppError&) {
        return;
    }
    if (!source || source->xmpData().empty())
        return;
    std::string packet;
    try {
        Exiv2::XmpParser::encode(packet, source->xmpData(),
                                 Exiv2::XmpParser::useCompactFormat | Exiv2::XmpParser::omitAllFormatting);
    } catch (const std::exception&) {
        return;
    }
    if (packet.size() > kJpegXmpLimit)
        throw AppError("cannot write " + to + ": the XMP metadata of " + from + " (" + std::to_string(packet.size()) +
                       " bytes) does not fit in a JPEG file (at most " + std::to_string(kJpegXmpLimit) +
                       "); write TIFF or PNG");
}

void copyMetadata(const std::string& from, const std::string& to)
{
    std::unique_ptr<Exiv2::Image> source;
    try {
        source = openForMetadata(from);
    } catch (const AppError&) {
        source = nullptr;
    }
    if (!source || (source->exifData().empty() && source->xmpData().empty()))
        return;

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

    // The raw decoder has already turned the pixels upright, so the
    // camera's orientation no longer applies. (A TIFF with sub-directories
    // that the raw decoder does not know was read as stored.)
    bool pixelsUpright = false;
    try {
        const detail::SourceKind kind = detail::detectSource(from);
        pixelsUpright = kind == detail::SourceKind::CameraRaw || kind == detail::SourceKind::TiffCameraRaw;
    } catch (const AppError&) {
    }

    try {
        const int width = target->pixelWidth();
        const int height = target->pixelHeight();

        const Exiv2::ExifData& sourceExif = source->exifData();
        Exiv2::ExifData exif = target->exifData();
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

        Exiv2::XmpData xmp = source->xmpData();
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

        target->setExifData(exif);
        target->setXmpData(xmp);
        target->writeMetadata();
    } catch (const Exiv2::AnyError& e) {
        throw AppError(detail::oneLine("cannot write metadata to " + to + ": " + e.what()));
    } catch (const std::exception& e) {
        throw AppError(detail::oneLine("cannot write metadata to " + to + ": " + e.what()));
    }

    if (tiffTarget) {
        detail::TiffShape shapeAfter;
        if (!detail::readTiffShape(to, shapeAfter) || !(shapeAfter == shapeBefore))
            throw AppError("cannot write metadata to " + to + ": the metadata writer changed the image structure");
    }
}

}  // namespace murmex_app
