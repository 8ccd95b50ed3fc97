// TIFF files through libtiff: 8- and 16-bit grey and RGB, with or without
// alpha, in strips or tiles, contiguous or in separate planes; other 8-bit
// layouts (palette, YCbCr, CMYK, fewer bits) through libtiff's RGBA
// conversion. Written as 16-bit RGB or RGBA, deflate-compressed unless asked
// otherwise.

#include <sys/stat.h>
#include <tiffio.h>

#include <cerrno>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <algorithm>
#include <memory>
#include <new>
#include <vector>

#include "app_error.h"
#include "deflate_coder.h"
#include "file_errors.h"
#include "image_formats.h"

namespace murmex_app::detail {

namespace {

// libtiff reports through process-wide handlers. The last error of the
// calling thread is kept for the one-line message; warnings are dropped.
thread_local std::string tiffError;

void recordTiffError(const char* /*module*/, const char* fmt, va_list ap)
{
    char buf[512];
    std::vsnprintf(buf, sizeof buf, fmt, ap);
    tiffError = buf;
}

void installTiffHandlers()
{
    static std::once_flag once;
    std::call_once(once, [] {
        TIFFSetErrorHandler(recordTiffError);
        TIFFSetWarningHandler(nullptr);
    });
}

std::string lastTiffError(const char* fallback)
{
    return tiffError.empty() ? std::string(fallback) : tiffError;
}

struct TiffCloser {
    void operator()(TIFF* t) const { TIFFClose(t); }
};
using TiffPtr = std::unique_ptr<TIFF, TiffCloser>;

// Why the image data of an open TIFF cannot be read, without libtiff's
// internals (strip numbers, byte counts): a strip or tile that lies past the
// end of the file means a truncated file, anything else damaged data.
std::string dataFailure(TIFF* tif, const std::string& path)
{
    struct stat st;
    if (stat(path.c_str(), &st) == 0) {
        const uint32_t striles = TIFFIsTiled(tif) ? TIFFNumberOfTiles(tif) : TIFFNumberOfStrips(tif);
        for (uint32_t i = 0; i < striles; ++i) {
            int err = 0;
            const uint64_t offset = TIFFGetStrileOffsetWithErr(tif, i, &err);
            const uint64_t bytes = TIFFGetStrileByteCountWithErr(tif, i, &err);
            if (err || offset > static_cast<uint64_t>(st.st_size) || bytes > static_cast<uint64_t>(st.st_size) - offset)
                return "truncated file";
        }
    }
    return "damaged file (the image data does not decode)";
}

// The largest strip read whole; larger ones (a whole image in one strip) are
// read a row at a time, so as not to hold a second copy of the image.
constexpr size_t kWholeStripBytes = 4 << 20;

// Reads the samples of the first directory as 16-bit values, `spp` per pixel
// interleaved, whatever the storage (strips or tiles, one plane or several),
// and hands them to emit(y, row) row by row, top to bottom. Contiguous strips
// go strip by strip (row by row when a strip is too large to read whole);
// tiles and separate planes are gathered whole first.
template <class Emit>
void readSamples(TIFF* tif, const std::string& path, uint32_t width, uint32_t height, uint16_t spp, uint16_t bps,
                 bool separate, Emit emit)
{
    const size_t w = width, h = height;
    const int planes = separate ? spp : 1;
    const int perPixel = separate ? 1 : spp;
    auto widen = [&](const unsigned char* src, uint16_t* dst, size_t n, size_t stride) {
        if (bps == 16) {
            const uint16_t* s = reinterpret_cast<const uint16_t*>(src);
            for (size_t i = 0; i < n; ++i)
                dst[i * stride] = s[i];
        } else {
            for (size_t i = 0; i < n; ++i)
                dst[i * stride] = static_cast<uint16_t>(src[i] * 257);
        }
    };
    if (!TIFFIsTiled(tif) && !separate) {
        const tmsize_t lineSize = TIFFScanlineSize(tif);
        const size_t rowBytes = w * perPixel * (bps / 8);
        if (lineSize <= 0 || static_cast<size_t>(lineSize) < rowBytes)
            readFailed(path, "bad strip layout");
        std::vector<uint16_t> row(w * spp);
        auto emitLine = [&](uint32_t y, const unsigned char* line) {
            if (bps == 16) {
                emit(y, reinterpret_cast<const uint16_t*>(line));
            } else {
                widen(line, row.data(), w * spp, 1);
                emit(y, row.data());
            }
        };
        uint32_t rowsPerStrip = 0;
        TIFFGetFieldDefaulted(tif, TIFFTAG_ROWSPERSTRIP, &rowsPerStrip);
        rowsPerStrip = std::min(rowsPerStrip, height);
        const tmsize_t stripSize = TIFFStripSize(tif);
        if (rowsPerStrip > 0 && stripSize > 0 && static_cast<size_t>(stripSize) <= kWholeStripBytes) {
            // Whole strips at a time: libtiff decodes a deflate strip read
            // whole with libdeflate and one read a row at a time with zlib,
            // which took half as long again for a 12-megapixel photo.
            std::vector<unsigned char> strip(static_cast<size_t>(stripSize));
            for (uint32_t y = 0; y < height; y += rowsPerStrip) {
                const uint32_t rows = std::min(rowsPerStrip, height - y);
                const tmsize_t got = TIFFReadEncodedStrip(tif, TIFFComputeStrip(tif, y, 0), strip.data(), -1);
                if (got < 0)
                    readFailed(path, dataFailure(tif, path));
                if (static_cast<size_t>(got) < static_cast<size_t>(lineSize) * rows)
                    readFailed(path, "bad strip layout");
                for (uint32_t r = 0; r < rows; ++r)
                    emitLine(y + r, strip.data() + static_cast<size_t>(lineSize) * r);
            }
            return;
        }
        std::vector<unsigned char> line(static_cast<size_t>(lineSize));
        for (uint32_t y = 0; y < height; ++y) {
            if (TIFFReadScanline(tif, line.data(), y, 0) < 0)
                readFailed(path, dataFailure(tif, path));
            emitLine(y, line.data());
        }
        return;
    }
    std::vector<uint16_t> out;
    // The buffer grows with the rows of the first plane that decode.
    auto reach = [&](size_t rows) { growTo(out, w * spp, std::min(rows, h), h); };
    auto put = [&](const unsigned char* src, size_t x0, size_t y, size_t count, int plane) {
        uint16_t* dst = out.data() + (y * w + x0) * spp + (separate ? plane : 0);
        widen(src, dst, count * perPixel, separate ? spp : 1);
    };
    if (TIFFIsTiled(tif)) {
        uint32_t tw = 0, th = 0;
        TIFFGetField(tif, TIFFTAG_TILEWIDTH, &tw);
        TIFFGetField(tif, TIFFTAG_TILELENGTH, &th);
        const tmsize_t tileSize = TIFFTileSize(tif);
        if (tw == 0 || th == 0 || tileSize <= 0)
            readFailed(path, "bad tile layout");
        const size_t rowBytes = static_cast<size_t>(tw) * perPixel * (bps / 8);
        if (static_cast<size_t>(tileSize) < rowBytes * th)
            readFailed(path, "bad tile layout");
        std::vector<unsigned char> tile(static_cast<size_t>(tileSize));
        for (int plane = 0; plane < planes; ++plane)
            for (uint32_t ty = 0; ty < height; ty += th)
                for (uint32_t tx = 0; tx < width; tx += tw) {
                    reach(static_cast<size_t>(ty) + th);
                    if (TIFFReadTile(tif, tile.data(), tx, ty, 0, static_cast<uint16_t>(plane)) < 0)
                        readFailed(path, dataFailure(tif, path));
                    const size_t cols = std::min<size_t>(tw, width - tx);
                    for (uint32_t r = 0; r < th && ty + r < height; ++r)
                        put(tile.data() + r * rowBytes, tx, ty + r, cols, plane);
                }
    } else {
        const tmsize_t lineSize = TIFFScanlineSize(tif);
        const size_t rowBytes = w * perPixel * (bps / 8);
        if (lineSize <= 0 || static_cast<size_t>(lineSize) < rowBytes)
            readFailed(path, "bad strip layout");
        std::vector<unsigned char> line(static_cast<size_t>(lineSize));
        for (int plane = 0; plane < planes; ++plane)
            for (uint32_t y = 0; y < height; ++y) {
                if (TIFFReadScanline(tif, line.data(), y, static_cast<uint16_t>(plane)) < 0)
                    readFailed(path, dataFailure(tif, path));
                reach(static_cast<size_t>(y) + 1);
                put(line.data(), 0, y, w, plane);
            }
    }
    for (uint32_t y = 0; y < height; ++y)
        emit(y, out.data() + static_cast<size_t>(y) * w * spp);
}

// The most that a compression scheme packs into one byte of file, for the
// schemes with a known bound (deflate 1032 to one, LZW's 12-bit codes for
// strings of up to 4096 bytes, PackBits' 128 bytes from two); 0 when unknown.
double maxCompressionRatio(uint16_t compression)
{
    switch (compression) {
    case COMPRESSION_NONE: return 1;
    case COMPRESSION_PACKBITS: return 64;
    case COMPRESSION_LZW: return 2800;
    case COMPRESSION_DEFLATE:
    case COMPRESSION_ADOBE_DEFLATE: return 1100;
    default: return 0;
    }
}

Resolution tiffResolution(TIFF* tif)
{
    Resolution r;
    float x = 0, y = 0;
    uint16_t unit = RESUNIT_INCH;
    if (!TIFFGetField(tif, TIFFTAG_XRESOLUTION, &x) || !TIFFGetField(tif, TIFFTAG_YRESOLUTION, &y) ||
        !(x > 0) || !(y > 0) || !std::isfinite(x) || !std::isfinite(y))
        return r;
    TIFFGetFieldDefaulted(tif, TIFFTAG_RESOLUTIONUNIT, &unit);
    r.x = x;
    r.y = y;
    r.unit = unit == RESUNIT_CENTIMETER ? Resolution::Centimetre : unit == RESUNIT_NONE ? Resolution::None : Resolution::Inch;
    return r;
}

// One strip on its way to the file: its rows, differenced, and their
// deflate stream.
struct DeflateStrip {
    std::vector<uint16_t> samples;
    std::vector<uint8_t> coded;
    size_t rows = 0;
};

// The strips are compressed here, two at a time (DeflatePair), and handed to
// libtiff as they are. The stream is what libtiff writes: horizontal
// differencing of the 16-bit samples of each row (predictor 2), then a zlib
// stream (DeflateCoder). The denoised 12-megapixel 16-bit demo scene is
// compressed in 0.12 s of processor time instead of 0.77 s with libdeflate's
// fastest level, to the same size (61.2 MB); noiseless synthetic gradients
// grow (the clean demo scene: 10.5 MB instead of 9.8 MB).
bool compressStrip(DeflateCoder& coder, DeflateStrip& s)
{
    return coder.zlibStream(reinterpret_cast<const uint8_t*>(s.samples.data()), s.samples.size() * sizeof(uint16_t),
                            s.coded);
}

// Deflate strips of about 256 kB, where libtiff's default would give one
// row of a large photo: every strip starts its Huffman codes afresh, so
// that one-row strips took half as long again to compress (0.16 s instead
// of 0.11 s of processor time for the denoised 12-megapixel demo scene).
// Other schemes keep libtiff's choice.
uint32_t rowsPerStrip(TIFF* t, const Image& image, uint16_t spp, TiffCompression compression)
{
    if (compression != TiffCompression::Deflate)
        return TIFFDefaultStripSize(t, 0);
    constexpr size_t kStripBytes = 256 * 1024;
    const size_t rowBytes = static_cast<size_t>(image.width) * spp * sizeof(uint16_t);
    const size_t rows = std::clamp<size_t>(kStripBytes / std::max<size_t>(rowBytes, 1), 1,
                                            static_cast<size_t>(std::max(image.height, 1)));
    return static_cast<uint32_t>(rows);
}

// Copies rows first .. first + strip.rows - 1 into strip, differencing each
// row as predictor 2 stores it.
void fillStrip(DeflateStrip& strip, RowSource& rows, int first, size_t rowSamples, int spp)
{
    strip.samples.resize(strip.rows * rowSamples);
    for (size_t r = 0; r < strip.rows; ++r) {
        uint16_t* row = strip.samples.data() + r * rowSamples;
        std::memcpy(row, rows.row(first + static_cast<int>(r)), rowSamples * sizeof(uint16_t));
        for (size_t i = rowSamples; i-- > static_cast<size_t>(spp);)
            row[i] = static_cast<uint16_t>(row[i] - row[i - spp]);
    }
}

void writeDeflateStrips(TIFF* t, const std::string& path, const Image& image, RowSource& rows, int spp,
                        uint32_t rowsPerStrip, const WriteOptions& options)
{
    const size_t rowSamples = static_cast<size_t>(image.width) * static_cast<size_t>(spp);
    const int height = image.height;
    DeflatePair writer;
    DeflateStrip strips[2];
    int y = 0;
    while (y < height) {
        int first[2] = {y, y};
        int count = 0;
        for (DeflateStrip& s : strips) {
            if (y >= height)
                break;
            s.rows = std::min<size_t>(rowsPerStrip, static_cast<size_t>(height - y));
            first[count++] = y;
            fillStrip(s, rows, y, rowSamples, spp);
            y += static_cast<int>(s.rows);
        }
        if (!writer.compress(strips[0], count > 1 ? &strips[1] : nullptr, compressStrip))
            writeFailed(path, "cannot compress a strip");
        for (int k = 0; k < count; ++k) {
            const DeflateStrip& s = strips[k];
            const uint32_t strip = static_cast<uint32_t>(first[k]) / rowsPerStrip;
            errno = 0;
            if (TIFFWriteRawStrip(t, strip, const_cast<uint8_t*>(s.coded.data()), static_cast<tmsize_t>(s.coded.size())) < 0)
                writeFailed(path, lastTiffError("cannot write a row"), errno);
            for (size_t r = 0; r < s.rows; ++r)
                reportRow(options, first[k] + static_cast<int>(r), height);
        }
    }
}

}  // namespace

void readTiff(const std::string& path, const ReadLimits& limits, Image& image)
{
    installTiffHandlers();
    tiffError.clear();
    // Read, not mapped: a mapped file's pages would stay resident beside the
    // decoded samples (65 MB more at the peak for a 12-megapixel 16-bit file).
    TiffPtr tif(TIFFOpen(path.c_str(), "rm"));
    if (!tif)
        readFailed(path, "damaged file (not a readable TIFF directory)");
    uint32_t width = 0, height = 0;
    uint16_t bps = 1, spp = 1, photometric = PHOTOMETRIC_MINISBLACK, planar = PLANARCONFIG_CONTIG;
    uint16_t sampleFormat = SAMPLEFORMAT_UINT;
    TIFFGetField(tif.get(), TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(tif.get(), TIFFTAG_IMAGELENGTH, &height);
    TIFFGetFieldDefaulted(tif.get(), TIFFTAG_BITSPERSAMPLE, &bps);
    TIFFGetFieldDefaulted(tif.get(), TIFFTAG_SAMPLESPERPIXEL, &spp);
    TIFFGetFieldDefaulted(tif.get(), TIFFTAG_PLANARCONFIG, &planar);
    TIFFGetFieldDefaulted(tif.get(), TIFFTAG_SAMPLEFORMAT, &sampleFormat);
    const bool hasPhotometric = TIFFGetField(tif.get(), TIFFTAG_PHOTOMETRIC, &photometric) != 0;
    uint16_t compression = COMPRESSION_NONE;
    TIFFGetFieldDefaulted(tif.get(), TIFFTAG_COMPRESSION, &compression);
    checkClaimedSize(path, width, height, limits);
    checkFileCanHold(path, std::ceil(static_cast<double>(width) * bps * spp / 8) * height,
                     maxCompressionRatio(compression));

    image.resolution = tiffResolution(tif.get());
    uint32_t iccSize = 0;
    void* iccData = nullptr;
    if (TIFFGetField(tif.get(), TIFFTAG_ICCPROFILE, &iccSize, &iccData) && iccData && iccSize > 0) {
        const auto* p = static_cast<const uint8_t*>(iccData);
        image.icc.assign(p, p + iccSize);
    }

    // The extra sample after the colour samples is alpha when it says so.
    uint16_t extraCount = 0;
    uint16_t* extraTypes = nullptr;
    TIFFGetField(tif.get(), TIFFTAG_EXTRASAMPLES, &extraCount, &extraTypes);
    const bool firstExtraIsAlpha =
        extraCount > 0 && extraTypes && (extraTypes[0] == EXTRASAMPLE_ASSOCALPHA || extraTypes[0] == EXTRASAMPLE_UNASSALPHA);

    const bool grey = hasPhotometric ? (photometric == PHOTOMETRIC_MINISBLACK || photometric == PHOTOMETRIC_MINISWHITE)
                                     : spp < 3;
    const bool rgb = hasPhotometric ? photometric == PHOTOMETRIC_RGB : spp >= 3;
    const bool direct = sampleFormat == SAMPLEFORMAT_UINT && (bps == 8 || bps == 16) &&
                        ((grey && spp >= 1) || (rgb && spp >= 3)) && !(grey && rgb);
    if (!direct) {
        if (bps > 8 || sampleFormat != SAMPLEFORMAT_UINT)
            readFailed(path, "unsupported TIFF layout (" + std::to_string(bps) + "-bit, photometric " +
                                 std::to_string(photometric) + ", sample format " + std::to_string(sampleFormat) + ")");
        // Palette, YCbCr, CMYK, 1- to 4-bit and other 8-bit layouts: libtiff
        // converts them to 8-bit RGBA.
        char why[1024] = "";
        if (!TIFFRGBAImageOK(tif.get(), why))
            readFailed(path, std::string("unsupported TIFF layout: ") + why);
        const int channels = firstExtraIsAlpha ? 4 : 3;
        allocate(image, path, static_cast<int>(width), static_cast<int>(height), channels, 8, limits);
        std::vector<uint32_t> raster;
        try {
            raster.resize(static_cast<size_t>(width) * height);
        } catch (const std::bad_alloc&) {
            readFailed(path, "not enough memory");
        }
        if (!TIFFReadRGBAImageOriented(tif.get(), width, height, raster.data(), ORIENTATION_TOPLEFT, 1))
            readFailed(path, dataFailure(tif.get(), path));
        std::vector<uint8_t> row(static_cast<size_t>(width) * 4);
        for (uint32_t y = 0; y < height; ++y) {
            for (uint32_t x = 0; x < width; ++x) {
                const uint32_t px = raster[static_cast<size_t>(y) * width + x];
                row[x * 4 + 0] = static_cast<uint8_t>(TIFFGetR(px));
                row[x * 4 + 1] = static_cast<uint8_t>(TIFFGetG(px));
                row[x * 4 + 2] = static_cast<uint8_t>(TIFFGetB(px));
                row[x * 4 + 3] = static_cast<uint8_t>(TIFFGetA(px));
            }
            // storeRow8 with 4 channels keeps alpha only when it was allocated.
            storeRow8(image, static_cast<int>(y), row.data(), 4);
        }
        return;
    }

    const int colour = grey ? 1 : 3;
    const int channels = colour + (spp > colour && firstExtraIsAlpha ? 1 : 0);
    allocate(image, path, static_cast<int>(width), static_cast<int>(height), channels, bps, limits);
    const bool invert = photometric == PHOTOMETRIC_MINISWHITE && hasPhotometric;
    std::vector<uint16_t> px(static_cast<size_t>(width) * channels);
    try {
        readSamples(tif.get(), path, width, height, spp, bps, planar == PLANARCONFIG_SEPARATE && spp > 1,
                    [&](uint32_t y, const uint16_t* s) {
                        if (spp == channels && !invert) {
                            storeRow(image, static_cast<int>(y), s, channels);
                            return;
                        }
                        for (uint32_t x = 0; x < width; ++x)
                            for (int c = 0; c < channels; ++c) {
                                uint16_t v = s[static_cast<size_t>(x) * spp + c];
                                if (invert && c < colour)
                                    v = static_cast<uint16_t>(65535 - v);
                                px[static_cast<size_t>(x) * channels + c] = v;
                            }
                        storeRow(image, static_cast<int>(y), px.data(), channels);
                    });
    } catch (const std::bad_alloc&) {
        readFailed(path, "not enough memory");
    }
}

SourceKind tiffRawMarks(const std::string& path)
{
    installTiffHandlers();
    TiffPtr tif(TIFFOpen(path.c_str(), "r"));
    if (!tif)
        return SourceKind::Tiff;
    void* dngVersion = nullptr;
    uint16_t photometric = 0;
    uint32_t subfileType = 0;
    uint16_t subDirectories = 0;
    uint64_t* offsets = nullptr;
    if (TIFFGetField(tif.get(), TIFFTAG_DNGVERSION, &dngVersion))
        return SourceKind::TiffCameraRaw;
    if (TIFFGetField(tif.get(), TIFFTAG_PHOTOMETRIC, &photometric) &&
        (photometric == 32803 /* colour filter array */ || photometric == 34892 /* linear raw */))
        return SourceKind::TiffCameraRaw;
    if (TIFFGetField(tif.get(), TIFFTAG_SUBFILETYPE, &subfileType) && (subfileType & FILETYPE_REDUCEDIMAGE))
        return SourceKind::TiffCameraRaw;
    if (TIFFGetField(tif.get(), TIFFTAG_SUBIFD, &subDirectories, &offsets) && subDirectories > 0)
        return SourceKind::TiffMaybeCameraRaw;
    return SourceKind::Tiff;
}

bool readTiffShape(const std::string& path, TiffShape& shape)
{
    installTiffHandlers();
    TiffPtr tif(TIFFOpen(path.c_str(), "r"));
    if (!tif)
        return false;
    shape = TiffShape{};
    TIFFGetField(tif.get(), TIFFTAG_IMAGEWIDTH, &shape.width);
    TIFFGetField(tif.get(), TIFFTAG_IMAGELENGTH, &shape.height);
    TIFFGetFieldDefaulted(tif.get(), TIFFTAG_BITSPERSAMPLE, &shape.bitsPerSample);
    TIFFGetFieldDefaulted(tif.get(), TIFFTAG_SAMPLESPERPIXEL, &shape.samplesPerPixel);
    TIFFGetField(tif.get(), TIFFTAG_PHOTOMETRIC, &shape.photometric);
    return true;
}

void writeTiff(const std::string& path, const Image& image, RowSource& rows, const WriteOptions& options)
{
    installTiffHandlers();
    tiffError.clear();
    PartialFileGuard guard(path);
    errno = 0;
    TiffPtr tif(TIFFOpen(path.c_str(), "w"));
    if (!tif)
        writeFailed(path, errno ? errnoText(errno) : lastTiffError("cannot create the file"));
    guard.arm();
    const bool withAlpha = keepsAlpha(image);
    const uint16_t spp = static_cast<uint16_t>(outputChannels(image));
    const bool grey = spp - (withAlpha ? 1 : 0) == 1;
    TIFF* t = tif.get();
    bool ok = TIFFSetField(t, TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(image.width)) &&
              TIFFSetField(t, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(image.height)) &&
              TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 16) && TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, spp) &&
              TIFFSetField(t, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT) &&
              TIFFSetField(t, TIFFTAG_PHOTOMETRIC, grey ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB) &&
              TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) &&
              TIFFSetField(t, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    switch (options.tiffCompression) {
    case TiffCompression::None:
        ok = ok && TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
        break;
    case TiffCompression::Deflate:
        // The strips are compressed here (writeDeflateStrips).
        ok = ok && TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE) &&
             TIFFSetField(t, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
        break;
    case TiffCompression::Lzw:
        ok = ok && TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_LZW) &&
             TIFFSetField(t, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
        break;
    }
    if (ok && withAlpha) {
        const uint16_t extra[1] = {EXTRASAMPLE_UNASSALPHA};
        ok = TIFFSetField(t, TIFFTAG_EXTRASAMPLES, 1, extra);
    }
    if (ok && image.resolution.present()) {
        const Resolution& r = image.resolution;
        ok = TIFFSetField(t, TIFFTAG_XRESOLUTION, static_cast<float>(r.x)) &&
             TIFFSetField(t, TIFFTAG_YRESOLUTION, static_cast<float>(r.y)) &&
             TIFFSetField(t, TIFFTAG_RESOLUTIONUNIT, r.unit == Resolution::Inch         ? RESUNIT_INCH
                                                     : r.unit == Resolution::Centimetre ? RESUNIT_CENTIMETER
                                                                                        : RESUNIT_NONE);
    }
    if (ok && !image.icc.empty())
        ok = TIFFSetField(t, TIFFTAG_ICCPROFILE, static_cast<uint32_t>(image.icc.size()), image.icc.data());
    if (ok)
        ok = TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, rowsPerStrip(t, image, spp, options.tiffCompression));
    if (!ok)
        writeFailed(path, lastTiffError("cannot set up the TIFF directory"));

    if (options.tiffCompression == TiffCompression::Deflate) {
        uint32_t rowsPerStrip = 1;
        TIFFGetField(t, TIFFTAG_ROWSPERSTRIP, &rowsPerStrip);
        writeDeflateStrips(t, path, image, rows, spp, std::max<uint32_t>(rowsPerStrip, 1), options);
    } else {
        for (int y = 0; y < image.height; ++y) {
            uint16_t* row = rows.row(y);
            errno = 0;
            if (TIFFWriteScanline(t, row, static_cast<uint32_t>(y), 0) < 0)
                writeFailed(path, lastTiffError("cannot write a row"), errno);
            reportRow(options, y, image.height);
        }
    }
    errno = 0;
    if (!TIFFFlush(t))
        writeFailed(path, lastTiffError("cannot finish the file"), errno);
    tif.reset();
    if (!tiffError.empty())
        writeFailed(path, tiffError);
    guard.commit();
}

}  // namespace murmex_app::detail
