// Reading and writing the application's image files: TIFF, PNG and JPEG, and
// camera raw files on input.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "image.h"

namespace murmex_app {

enum class ImageFormat { Tiff, Png, Jpeg };

// What a reader may be asked to hold. A file whose header claims more is
// refused before anything is allocated for it.
struct ReadLimits {
    static constexpr double kDefaultMaxMegapixels = 1000;
    double maxMegapixels = kDefaultMaxMegapixels;
};

// Reads TIFF, PNG or JPEG by content (magic bytes), otherwise tries LibRaw (camera raw, demosaiced to 16-bit sRGB).
// Grey becomes R = G = B; alpha is kept aside in Image::alpha and written back when the output format can hold it.
// 8-bit samples are scaled to 16 bits by v * 257. Images above limits.maxMegapixels, and files too small for the
// image their header claims, are refused before the pixels are allocated; the sample buffers grow as rows decode.
// Throws AppError naming the file on any failure.
Image readImage(const std::string& path, const ReadLimits& limits = {});
// The same with the pixels in the given layout (Image::Layout::Source keeps the source's own samples).
Image readImage(const std::string& path, const ReadLimits& limits, Image::Layout layout);

// Reads a TIFF, PNG or JPEG file as readImage does, into `image`, whose
// layout and watch are set and which stays in place while it is read (its
// users may be reading it meanwhile, image.watch). False, nothing read, for
// any other file (camera raw): readImage reads those.
bool readImageInPlace(const std::string& path, const ReadLimits& limits, Image& image);

// Columns x0..x1 of row y as packed RGBX (4 samples a pixel, X full scale), from either layout: what the
// library's scanline callbacks hand over.
void readRgbx(const Image& image, int y, int x0, int x1, uint16_t* rgbx);

// The output format from the file name's extension (.tif/.tiff, .png, .jpg/.jpeg, case-insensitive); throws AppError otherwise.
ImageFormat formatForPath(const std::string& path);

// How TIFF outputs are compressed: not at all, or losslessly with deflate
// (zip) or LZW, both with horizontal differencing.
enum class TiffCompression { None, Deflate, Lzw };

// A chunk that goes whole into a PNG output: its four-letter type and data.
struct PngChunk {
    std::string type;
    std::vector<uint8_t> data;
};

struct WriteOptions {
    int jpegQuality = 92;  // 1..100
    TiffCompression tiffCompression = TiffCompression::Deflate;
    // Chunks a PNG output gets between its header and its image data (its
    // metadata); the other formats have no use for them.
    std::vector<PngChunk> pngChunks;
    // Called after every row written with the fraction of rows done; must
    // not throw (it runs between the image libraries' own frames).
    std::function<void(float)> progress;
};

// Where a writer takes its rows: row y as the writer stores it (one grey
// sample or R, G, B, then alpha when the image keeps it; 16-bit), asked for
// once each in order 0, 1, ... height - 1. The row is the writer's until the
// next call (libtiff's horizontal differencing overwrites it). An
// implementation may block until the row exists, and may throw AppError,
// which the writer lets through after removing its file.
class RowSource {
public:
    virtual ~RowSource() = default;
    virtual uint16_t* row(int y) = 0;
};

// Writes `image` to `path` in `format`: TIFF and PNG at 16 bits per sample (RGB, or RGBA when alpha is present), JPEG at 8 bits with options.jpegQuality; embeds image.icc. Writes exactly to `path` (the caller picks a temporary name and renames).
// On failure throws AppError and leaves no file at `path`.
void writeImage(const std::string& path, const Image& image, ImageFormat format, const WriteOptions& options = {});
// The same with the rows taken from rows; image gives the size, the channels
// and the metadata, and may be in either layout.
void writeImage(const std::string& path, const Image& image, RowSource& rows, ImageFormat format,
                const WriteOptions& options);
// The same with the other options at their defaults.
void writeImage(const std::string& path, const Image& image, ImageFormat format, int jpegQuality);

}  // namespace murmex_app
