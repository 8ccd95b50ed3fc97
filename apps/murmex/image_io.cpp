// Dispatch between the image formats and the helpers the readers share.

#include "image_io.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <new>

#include "app_error.h"
#include "file_errors.h"
#include "image_formats.h"

namespace murmex_app {

namespace detail {

namespace {

// One maker's raw files borrow the TIFF header and mark themselves with "CR"
// in bytes 8 and 9.
bool hasRawMarkAfterTiffHeader(const unsigned char* head, size_t n)
{
    return n >= 10 && head[8] == 'C' && head[9] == 'R';
}

}  // namespace

void checkClaimedSize(const std::string& path, long long width, long long height, const ReadLimits& limits)
{
    if (width <= 0 || height <= 0)
        readFailed(path, "the image has no pixels");
    const double megapixels = static_cast<double>(width) * static_cast<double>(height) / 1e6;
    if (megapixels > limits.maxMegapixels || width > std::numeric_limits<int>::max() ||
        height > std::numeric_limits<int>::max()) {
        char text[160];
        std::snprintf(text, sizeof text, "the image is %lld x %lld pixels (%.4g megapixels), more than the limit of %g megapixels (--max-megapixels)",
                      width, height, megapixels, limits.maxMegapixels);
        readFailed(path, text);
    }
}

void checkFileCanHold(const std::string& path, double rawBytes, double maxRatio)
{
    struct stat st;
    if (stat(path.c_str(), &st) != 0 || maxRatio <= 0)
        return;
    if (static_cast<double>(st.st_size) * maxRatio < rawBytes)
        readFailed(path, "truncated file (" + std::to_string(st.st_size) +
                             " bytes cannot hold the image its header claims)");
}

void allocate(Image& image, const std::string& path, int width, int height, int channels, int bitsPerSample,
              const ReadLimits& limits)
{
    checkClaimedSize(path, width, height, limits);
    image.width = width;
    image.height = height;
    image.sourceChannels = channels;
    image.bitsPerSample = bitsPerSample;
    image.rgbx.clear();
    image.alpha.clear();
    image.samples.clear();
    if (image.layout == Image::Layout::Source)
        image.samples.reserve(static_cast<size_t>(width) * static_cast<size_t>(height) * static_cast<size_t>(channels));
    if (image.watch)
        image.watch->started();
}

void growTo(std::vector<uint16_t>& v, size_t perRow, size_t rows, size_t totalRows)
{
    const size_t need = perRow * rows;
    if (v.size() >= need)
        return;
    if (v.capacity() < need)
        v.reserve(std::min(perRow * totalRows, std::max(need, v.capacity() * 2)));
    v.resize(need, 65535);
}

namespace {

bool hasAlpha(const Image& image)
{
    return image.sourceChannels == 2 || image.sourceChannels == 4;
}

// Makes room for rows 0..y and returns the sample pointers of row y.
void rowPointers(Image& image, int y, uint16_t*& out, uint16_t*& alpha)
{
    const size_t w = static_cast<size_t>(image.width);
    growTo(image.rgbx, w * 4, static_cast<size_t>(y) + 1, static_cast<size_t>(image.height));
    if (hasAlpha(image))
        growTo(image.alpha, w, static_cast<size_t>(y) + 1, static_cast<size_t>(image.height));
    out = image.rgbx.data() + static_cast<size_t>(y) * w * 4;
    alpha = hasAlpha(image) ? image.alpha.data() + static_cast<size_t>(y) * w : nullptr;
}

// Row y of a Source-layout image, the buffer grown to hold rows 0..y.
uint16_t* sourceRow(Image& image, int y)
{
    const size_t perRow = static_cast<size_t>(image.width) * static_cast<size_t>(image.sourceChannels);
    growTo(image.samples, perRow, static_cast<size_t>(y) + 1, static_cast<size_t>(image.height));
    return image.samples.data() + static_cast<size_t>(y) * perRow;
}

}  // namespace

void storeRow(Image& image, int y, const uint16_t* samples, int channels)
{
    const size_t w = static_cast<size_t>(image.width);
    if (image.layout == Image::Layout::Source) {
        uint16_t* out = sourceRow(image, y);
        const int keep = image.sourceChannels;
        for (size_t x = 0; x < w; ++x, out += keep, samples += channels)
            std::memcpy(out, samples, static_cast<size_t>(keep) * sizeof(uint16_t));
        if (image.watch)
            image.watch->stored(y + 1);
        return;
    }
    uint16_t* out;
    uint16_t* alpha;
    rowPointers(image, y, out, alpha);
    for (size_t x = 0; x < w; ++x, out += 4, samples += channels) {
        if (channels <= 2) {
            out[0] = out[1] = out[2] = samples[0];
        } else {
            out[0] = samples[0];
            out[1] = samples[1];
            out[2] = samples[2];
        }
        out[3] = 65535;
        if (alpha && (channels == 2 || channels == 4))
            alpha[x] = samples[channels - 1];
    }
}

void storeRow8(Image& image, int y, const uint8_t* samples, int channels)
{
    const size_t w = static_cast<size_t>(image.width);
    if (image.layout == Image::Layout::Source) {
        uint16_t* out = sourceRow(image, y);
        const int keep = image.sourceChannels;
        for (size_t x = 0; x < w; ++x, out += keep, samples += channels)
            for (int c = 0; c < keep; ++c)
                out[c] = static_cast<uint16_t>(samples[c] * 257);
        if (image.watch)
            image.watch->stored(y + 1);
        return;
    }
    uint16_t* out;
    uint16_t* alpha;
    rowPointers(image, y, out, alpha);
    for (size_t x = 0; x < w; ++x, out += 4, samples += channels) {
        if (channels <= 2) {
            out[0] = out[1] = out[2] = static_cast<uint16_t>(samples[0] * 257);
        } else {
            out[0] = static_cast<uint16_t>(samples[0] * 257);
            out[1] = static_cast<uint16_t>(samples[1] * 257);
            out[2] = static_cast<uint16_t>(samples[2] * 257);
        }
        out[3] = 65535;
        if (alpha && (channels == 2 || channels == 4))
            alpha[x] = static_cast<uint16_t>(samples[channels - 1] * 257);
    }
}

bool keepsAlpha(const Image& image)
{
    return image.layout == Image::Layout::Source ? hasAlpha(image) : !image.alpha.empty();
}

int outputChannels(const Image& image)
{
    const bool grey = image.sourceChannels == 1 || image.sourceChannels == 2;
    return (grey ? 1 : 3) + (keepsAlpha(image) ? 1 : 0);
}

void packPixels(const Image& image, int y, int x0, int x1, const uint16_t* rgbx, uint16_t* out)
{
    const int channels = outputChannels(image);
    const bool alpha = keepsAlpha(image);
    const bool grey = channels - (alpha ? 1 : 0) == 1;
    const size_t first = static_cast<size_t>(y) * static_cast<size_t>(image.width) + static_cast<size_t>(x0);
    // The image's alpha sample of each pixel, and the step to the next.
    const uint16_t* a = nullptr;
    size_t step = 1;
    if (alpha && image.layout == Image::Layout::Source) {
        step = static_cast<size_t>(image.sourceChannels);
        a = image.samples.data() + first * step + step - 1;
    } else if (alpha) {
        a = image.alpha.data() + first;
    }
    if (!grey && !a) {
        // The common case, RGB without alpha, as a loop without branches.
        for (int x = x0; x <= x1; ++x, rgbx += 4, out += 3) {
            out[0] = rgbx[0];
            out[1] = rgbx[1];
            out[2] = rgbx[2];
        }
        return;
    }
    for (int x = x0; x <= x1; ++x, rgbx += 4, out += channels) {
        if (grey) {
            out[0] = static_cast<uint16_t>((static_cast<uint32_t>(rgbx[0]) + rgbx[1] + rgbx[2] + 1) / 3);
        } else {
            out[0] = rgbx[0];
            out[1] = rgbx[1];
            out[2] = rgbx[2];
        }
        if (a) {
            out[channels - 1] = *a;
            a += step;
        }
    }
}

void packRow(const Image& image, int y, uint16_t* row)
{
    const size_t w = static_cast<size_t>(image.width);
    if (image.layout == Image::Layout::Source) {
        // A grey source's R = G = B are their own mean.
        const size_t perRow = w * static_cast<size_t>(image.sourceChannels);
        std::memcpy(row, image.samples.data() + static_cast<size_t>(y) * perRow, perRow * sizeof(uint16_t));
        return;
    }
    packPixels(image, y, 0, image.width - 1, image.rgbx.data() + static_cast<size_t>(y) * w * 4, row);
}

std::string oneLine(const std::string& text)
{
    std::string s = text;
    for (char& c : s)
        if (c == '\n' || c == '\r')
            c = ' ';
    const size_t first = s.find_first_not_of(" \t");
    if (first == std::string::npos)
        return {};
    return s.substr(first, s.find_last_not_of(" \t") - first + 1);
}

void readFailed(const std::string& path, const std::string& reason)
{
    throw AppError(oneLine("cannot read " + path + ": " + reason));
}

void writeFailed(const std::string& path, const std::string& reason)
{
    // The libraries word a full disk in their own ways ("IO error writing
    // tag data"); the free space says what happened.
    if (deviceFull(path))
        throw AppError("cannot write " + path + ": " + errnoText(ENOSPC));
    throw AppError(oneLine("cannot write " + path + ": " + reason));
}

void writeFailed(const std::string& path, const std::string& reason, int err)
{
    if (err == ENOSPC || err == EDQUOT || err == EFBIG || err == EIO)
        throw AppError("cannot write " + path + ": " + errnoText(err));
    writeFailed(path, reason);
}

ImageRows::ImageRows(const Image& image)
    : image_(image), row_(static_cast<size_t>(image.width) * static_cast<size_t>(outputChannels(image)))
{
}

uint16_t* ImageRows::row(int y)
{
    packRow(image_, y, row_.data());
    return row_.data();
}

void reportRow(const WriteOptions& options, int y, int height)
{
    if (options.progress)
        options.progress(static_cast<float>(y + 1) / static_cast<float>(height));
}

PartialFileGuard::~PartialFileGuard()
{
    if (armed_)
        std::remove(path_.c_str());
}

SourceKind detectSource(const std::string& path)
{
    requireReadableKind(path, oneLine("cannot read " + path));
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f)
        readFailed(path, errnoText(errno));
    unsigned char head[16] = {};
    const size_t n = std::fread(head, 1, sizeof head, f);
    const int readError = std::ferror(f) ? errno : 0;
    std::fclose(f);
    if (readError)
        readFailed(path, errnoText(readError));
    if (n == 0)
        readFailed(path, "empty file");
    static const unsigned char png[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    if (n >= 8 && std::memcmp(head, png, 8) == 0)
        return SourceKind::Png;
    if (n >= 3 && head[0] == 0xff && head[1] == 0xd8 && head[2] == 0xff)
        return SourceKind::Jpeg;
    const bool intel = n >= 4 && head[0] == 'I' && head[1] == 'I' && (head[2] == 42 || head[2] == 43) && head[3] == 0;
    const bool motorola = n >= 4 && head[0] == 'M' && head[1] == 'M' && head[2] == 0 && (head[3] == 42 || head[3] == 43);
    if (intel || motorola)
        return hasRawMarkAfterTiffHeader(head, n) ? SourceKind::TiffCameraRaw : tiffRawMarks(path);
    return SourceKind::CameraRaw;
}

}  // namespace detail

namespace {

// A reader that fails leaves its image half filled: each attempt gets a
// fresh one.
Image readWith(void (*reader)(const std::string&, const ReadLimits&, Image&), const std::string& path,
               const ReadLimits& limits, Image::Layout layout)
{
    Image image;
    image.layout = layout;
    reader(path, limits, image);
    return image;
}

Image readByKind(const std::string& path, const ReadLimits& limits, Image::Layout layout)
{
    switch (detail::detectSource(path)) {
    case detail::SourceKind::Png:
        return readWith(detail::readPng, path, limits, layout);
    case detail::SourceKind::Jpeg:
        return readWith(detail::readJpeg, path, limits, layout);
    case detail::SourceKind::Tiff:
        return readWith(detail::readTiff, path, limits, layout);
    case detail::SourceKind::TiffMaybeCameraRaw:
        // Not understood by the raw decoder, it may still be an ordinary
        // TIFF with extra directories. The raw decoder's complaint is the
        // one reported when libtiff cannot read it either.
        try {
            return readWith(detail::readCameraRaw, path, limits, layout);
        } catch (const AppError& rawError) {
            try {
                return readWith(detail::readTiff, path, limits, layout);
            } catch (const AppError&) {
                throw rawError;
            }
        }
    case detail::SourceKind::TiffCameraRaw:
    case detail::SourceKind::CameraRaw:
        break;
    }
    return readWith(detail::readCameraRaw, path, limits, layout);
}

size_t pixelCount(const Image& image)
{
    return static_cast<size_t>(image.width) * static_cast<size_t>(image.height);
}

}  // namespace

Image readImage(const std::string& path, const ReadLimits& limits)
{
    return readImage(path, limits, Image::Layout::Rgbx);
}

namespace {

// Every reader stores rows in order; one that stopped early without saying
// why has met the end of the data.
void checkComplete(const std::string& path, const Image& image)
{
    const size_t stored = image.layout == Image::Layout::Source
                              ? image.samples.size() / static_cast<size_t>(std::max(image.sourceChannels, 1))
                              : image.rgbx.size() / 4;
    if (stored != pixelCount(image))
        detail::readFailed(path, "truncated file");
}

}  // namespace

Image readImage(const std::string& path, const ReadLimits& limits, Image::Layout layout)
{
    Image image;
    try {
        image = readByKind(path, limits, layout);
    } catch (const std::bad_alloc&) {
        detail::readFailed(path, "not enough memory");
    }
    checkComplete(path, image);
    return image;
}

bool readImageInPlace(const std::string& path, const ReadLimits& limits, Image& image)
{
    void (*reader)(const std::string&, const ReadLimits&, Image&) = nullptr;
    switch (detail::detectSource(path)) {
    case detail::SourceKind::Png: reader = detail::readPng; break;
    case detail::SourceKind::Jpeg: reader = detail::readJpeg; break;
    case detail::SourceKind::Tiff: reader = detail::readTiff; break;
    default: return false;
    }
    try {
        reader(path, limits, image);
    } catch (const std::bad_alloc&) {
        detail::readFailed(path, "not enough memory");
    }
    checkComplete(path, image);
    return true;
}

void readRgbx(const Image& image, int y, int x0, int x1, uint16_t* rgbx)
{
    const size_t w = static_cast<size_t>(image.width);
    const size_t n = static_cast<size_t>(x1 - x0 + 1);
    if (image.watch && !image.watch->waitFor(y)) {
        // The read failed: the job is being stopped, and these pixels are
        // never used.
        std::memset(rgbx, 0, n * 4 * sizeof(uint16_t));
        return;
    }
    if (image.layout == Image::Layout::Rgbx) {
        std::memcpy(rgbx, image.rgbx.data() + (static_cast<size_t>(y) * w + static_cast<size_t>(x0)) * 4,
                    n * 4 * sizeof(uint16_t));
        return;
    }
    const size_t channels = static_cast<size_t>(image.sourceChannels);
    const uint16_t* in = image.samples.data() + (static_cast<size_t>(y) * w + static_cast<size_t>(x0)) * channels;
    if (channels >= 3) {
        for (size_t x = 0; x < n; ++x, in += channels, rgbx += 4) {
            rgbx[0] = in[0];
            rgbx[1] = in[1];
            rgbx[2] = in[2];
            rgbx[3] = 65535;
        }
    } else {
        for (size_t x = 0; x < n; ++x, in += channels, rgbx += 4) {
            rgbx[0] = rgbx[1] = rgbx[2] = in[0];
            rgbx[3] = 65535;
        }
    }
}

ImageFormat formatForPath(const std::string& path)
{
    const size_t slash = path.find_last_of('/');
    const size_t dot = path.find_last_of('.');
    std::string ext;
    if (dot != std::string::npos && (slash == std::string::npos || dot > slash))
        ext = path.substr(dot + 1);
    for (char& c : ext)
        c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    if (ext == "tif" || ext == "tiff")
        return ImageFormat::Tiff;
    if (ext == "png")
        return ImageFormat::Png;
    if (ext == "jpg" || ext == "jpeg")
        return ImageFormat::Jpeg;
    throw AppError("cannot write " + path + ": unknown image format (use .tif, .tiff, .png, .jpg or .jpeg)");
}

void writeImage(const std::string& path, const Image& image, ImageFormat format, const WriteOptions& options)
{
    const bool source = image.layout == Image::Layout::Source;
    const size_t held = source ? image.samples.size() : image.rgbx.size();
    const size_t perPixel = source ? static_cast<size_t>(image.sourceChannels) : 4;
    if (image.width <= 0 || image.height <= 0 || held != pixelCount(image) * perPixel)
        detail::writeFailed(path, "the image has no pixels");
    if (!source && !image.alpha.empty() && image.alpha.size() != pixelCount(image))
        detail::writeFailed(path, "the alpha channel does not match the image size");
    detail::ImageRows rows(image);
    writeImage(path, image, rows, format, options);
}

void writeImage(const std::string& path, const Image& image, RowSource& rows, ImageFormat format,
                const WriteOptions& options)
{
    if (image.width <= 0 || image.height <= 0)
        detail::writeFailed(path, "the image has no pixels");
    switch (format) {
    case ImageFormat::Tiff:
        detail::writeTiff(path, image, rows, options);
        return;
    case ImageFormat::Png:
        detail::writePng(path, image, rows, options);
        return;
    case ImageFormat::Jpeg:
        if (options.jpegQuality < 1 || options.jpegQuality > 100)
            detail::writeFailed(path, "JPEG quality " + std::to_string(options.jpegQuality) + " is outside 1..100");
        detail::writeJpeg(path, image, rows, options);
        return;
    }
}

void writeImage(const std::string& path, const Image& image, ImageFormat format, int jpegQuality)
{
    WriteOptions options;
    options.jpegQuality = jpegQuality;
    writeImage(path, image, format, options);
}

}  // namespace murmex_app
