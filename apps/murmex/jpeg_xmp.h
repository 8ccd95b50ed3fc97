// XMP in JPEG files beyond what one APP1 segment holds.
//
// A JPEG keeps its XMP packet in one APP1 segment named
// "http://ns.adobe.com/xap/1.0/\0", at most 65502 bytes of packet. Larger
// XMP is split in two documents: the standard packet keeps what fits and
// names, in xmpNote:HasExtendedXMP, a GUID (the MD5 of the second document as
// 32 uppercase hexadecimal digits); the second, the extended XMP, is cut into
// APP1 segments named "http://ns.adobe.com/xmp/extension/\0", each followed by
// the GUID, the document's full length and the chunk's offset in it (both
// 4 bytes, big-endian), then the chunk.
//
// This file handles the segments and nothing of XMP itself: which properties
// go into which document is the metadata code's (Exiv2) business.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace murmex_app {

// The largest standard XMP packet that a JPEG file takes.
inline constexpr size_t kJpegStandardXmpLimit = 65502;
// Bytes of extended XMP in one segment: a segment's 65535 bytes less its
// length field, name, GUID, full length and offset.
inline constexpr size_t kJpegExtendedXmpChunk = 65535 - 2 - 35 - 32 - 4 - 4;

// The GUID that names an extended XMP document: the MD5 of its bytes as 32
// uppercase hexadecimal digits.
std::string extendedXmpGuid(std::string_view document);

// The extended XMP documents in the segments before the image data of the
// JPEG file at `path`, by GUID. Only complete documents are given: one whose
// chunks are missing, or disagree on its length, lie outside it or overlap
// with different bytes, is left out, as is everything of a file that is not
// a JPEG or cannot be read. The GUIDs are not checked against the bytes.
std::map<std::string, std::string> readJpegExtendedXmp(const std::string& path);

// The complete APP1 segments (marker and length included) that carry
// `document` as extended XMP under `guid`, in order of offset.
std::vector<std::string> extendedXmpSegments(std::string_view document, std::string_view guid);

// Inserts `segments` into the JPEG `jpeg` right after its first standard XMP
// segment. False, leaving `jpeg` as it was, when it has none before its
// image data.
bool insertAfterStandardXmp(std::string& jpeg, const std::vector<std::string>& segments);

// Adds `document` as extended XMP to the JPEG file at `path`, whose standard
// XMP packet already names `guid`, by rewriting the file. Throws AppError
// "cannot write metadata to PATH: ..." on failure.
void addJpegExtendedXmp(const std::string& path, std::string_view document, std::string_view guid);

}  // namespace murmex_app
