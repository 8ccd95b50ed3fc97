// Internal to the image files: the per-format readers and writers behind
// readImage and writeImage, and the helpers they share. Every function
// throws AppError with a one-line message naming the file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "image.h"
#include "image_io.h"

namespace murmex_app::detail {

// What a file holds, judged by its first bytes and, for TIFF-structured
// files, by the marks that camera raw formats built on TIFF carry (their
// first directory is mostly a small preview, which must not be mistaken for
// the photograph):
//   TiffCameraRaw      marked unmistakably as raw data: only the raw decoder
//                      reads it;
//   TiffMaybeCameraRaw TIFF with sub-directories: the raw decoder first, then
//                      libtiff if the raw decoder does not know it;
//   CameraRaw          anything else that is not TIFF, PNG or JPEG.
enum class SourceKind { Tiff, Png, Jpeg, TiffCameraRaw, TiffMaybeCameraRaw, CameraRaw };
SourceKind detectSource(const std::string& path);

// The raw marks of a TIFF-structured file's first directory: a raw-format
// version tag, colour-filter-array or linear-raw samples, or a
// reduced-resolution first image give TiffCameraRaw; sub-directories alone
// give TiffMaybeCameraRaw; none give Tiff (also when libtiff cannot open it).
SourceKind tiffRawMarks(const std::string& path);

// The readers fill image, which comes empty but for its layout.
void readTiff(const std::string& path, const ReadLimits& limits, Image& image);
void readPng(const std::string& path, const ReadLimits& limits, Image& image);
void readJpeg(const std::string& path, const ReadLimits& limits, Image& image);
void readCameraRaw(const std::string& path, const ReadLimits& limits, Image& image);

// The writers take the shape and metadata from image and the rows from rows.
void writeTiff(const std::string& path, const Image& image, RowSource& rows, const WriteOptions& options);
void writePng(const std::string& path, const Image& image, RowSource& rows, const WriteOptions& options);
void writeJpeg(const std::string& path, const Image& image, RowSource& rows, const WriteOptions& options);

// Tells options.progress that row y of height rows is written.
void reportRow(const WriteOptions& options, int y, int height);

// The structure of a TIFF file's first directory, to check that rewriting
// its metadata left the image itself alone. False when libtiff cannot open it.
struct TiffShape {
    uint32_t width = 0, height = 0;
    uint16_t bitsPerSample = 0, samplesPerPixel = 0, photometric = 0;
    bool operator==(const TiffShape&) const = default;
};
bool readTiffShape(const std::string& path, TiffShape& shape);

// Refuses a claimed size of no pixels or above the limit. Readers call it
// before they allocate anything for the image.
void checkClaimedSize(const std::string& path, long long width, long long height, const ReadLimits& limits);

// Refuses a file that is too small for the samples its header claims:
// rawBytes of samples compressed at most maxRatio to one need at least
// rawBytes / maxRatio bytes of file.
void checkFileCanHold(const std::string& path, double rawBytes, double maxRatio);

// Starts `image` as width x height pixels of a source with `channels`
// channels (1 grey, 2 grey+alpha, 3 RGB, 4 RGBA) after checkClaimedSize.
// The sample buffers start empty and grow as storeRow stores rows (in the
// Source layout the whole image is reserved at once: pages are only
// touched as rows arrive, and the buffer is never copied).
void allocate(Image& image, const std::string& path, int width, int height, int channels, int bitsPerSample,
              const ReadLimits& limits);

// Grows a buffer of `perRow` samples a row to hold `rows` rows (new samples
// full scale), its capacity doubling up to totalRows rows so that the rows
// already read are not copied over and over.
void growTo(std::vector<uint16_t>& v, size_t perRow, size_t rows, size_t totalRows);

// Stores row y from `channels` interleaved 16-bit samples per pixel: grey is
// copied to R, G and B, alpha goes aside (when the source has alpha), X is
// full scale; in the Source layout the first sourceChannels samples are kept
// as they are. The buffers grow to hold rows 0..y.
void storeRow(Image& image, int y, const uint16_t* samples, int channels);

// The same for 8-bit samples, each scaled to 16 bits by v * 257.
void storeRow8(Image& image, int y, const uint8_t* samples, int channels);

// Whether the writers keep an alpha channel: the image holds alpha.
bool keepsAlpha(const Image& image);

// The samples per pixel a writer stores: one grey sample for grey sources
// (their ICC profile describes grey), else R, G, B; plus alpha when present.
int outputChannels(const Image& image);

// The rows of an Image for a writer (packRow).
class ImageRows : public RowSource {
public:
    explicit ImageRows(const Image& image);
    uint16_t* row(int y) override;

private:
    const Image& image_;
    std::vector<uint16_t> row_;
};

// Columns x0..x1 of row y in the writer's channels, from the RGBX pixels
// `rgbx` of those columns (e.g. the library's result): the rounded mean of R,
// G and B for a grey source, else R, G, B; then the image's alpha when it
// keeps it.
void packPixels(const Image& image, int y, int x0, int x1, const uint16_t* rgbx, uint16_t* out);

// Row y as a writer stores it, outputChannels(image) samples per pixel. A
// grey source's sample is the mean of R, G and B (rounded), which after
// denoising may differ slightly from each other.
void packRow(const Image& image, int y, uint16_t* row);

// The text with line breaks turned into spaces and the ends trimmed: the
// libraries' own messages may span lines, the application's errors do not.
std::string oneLine(const std::string& text);

// "cannot read <path>: <reason>" and "cannot write <path>: <reason>".
[[noreturn]] void readFailed(const std::string& path, const std::string& reason);
[[noreturn]] void writeFailed(const std::string& path, const std::string& reason);
// The same for a write that failed with the system error err (errno just
// after the failing library call, cleared before it): a full disk, a file
// size limit or an I/O error is said in those words rather than the
// library's ("Write error at scanline 10", "Write Error").
[[noreturn]] void writeFailed(const std::string& path, const std::string& reason, int err);

// Removes the file at `path` when it goes out of scope unless commit() was
// called, so that a failed writer leaves no partial file behind. A writer
// arms it once it has created the file: a file it could not create, and so
// did not touch, is left alone.
class PartialFileGuard {
public:
    explicit PartialFileGuard(std::string path) : path_(std::move(path)) {}
    ~PartialFileGuard();
    PartialFileGuard(const PartialFileGuard&) = delete;
    PartialFileGuard& operator=(const PartialFileGuard&) = delete;
    void arm() { armed_ = true; }
    void commit() { armed_ = false; }

private:
    std::string path_;
    bool armed_ = false;
};

}  // namespace murmex_app::detail
