// Camera metadata: what a profile header takes from a photo's EXIF, and
// carrying EXIF and XMP over from an input file to the written output.
#pragma once

#include <string>
#include <vector>

#include "app_error.h"
#include "host/camera_info.h"
#include "image_io.h"

namespace murmex_app {

// Exiv2; an image without EXIF gives all-empty; throws AppError only for unreadable files.
CameraInfo readCameraInfo(const std::string& path);

// Throws AppError "cannot write <to>: ..." when the metadata of `from` cannot
// go into a file of `format` (for a JPEG: EXIF larger than its one segment),
// so that the caller can refuse before any work is done. The metadata is
// written into a one-pixel image in memory as copyMetadata would write it.
// Unreadable metadata passes.
void checkMetadataFits(const std::string& from, const std::string& to, ImageFormat format);

// The chunks that carry the EXIF and XMP of `from` into a PNG output `to` of
// width x height: what copyMetadata would add to `to`, written by Exiv2 into
// a one-pixel PNG in memory, for the writer to put in before the image data
// (WriteOptions::pngChunks) instead of the file being rewritten after it.
// Empty when `from` has no metadata. Throws AppError "cannot write metadata
// to <to>: ..." when Exiv2 cannot write it.
std::vector<PngChunk> pngMetadataChunks(const std::string& from, const std::string& to, int width, int height);

// Copies EXIF and XMP from `from` into the already written file `to` (Exiv2),
// fixing up dimensions/orientation tags that no longer hold. A JPEG's
// extended XMP is read with the rest; XMP beyond one segment of a JPEG `to`
// is written as extended XMP. Missing metadata is not an error.
void copyMetadata(const std::string& from, const std::string& to);

}  // namespace murmex_app
