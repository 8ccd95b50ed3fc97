#include "jpeg_xmp.h"

#include <nettle/md5.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>

#include "app_error.h"
#include "file_errors.h"

namespace murmex_app {

namespace {

constexpr std::string_view kStandardName{"http://ns.adobe.com/xap/1.0/\0", 29};
constexpr std::string_view kExtendedName{"http://ns.adobe.com/xmp/extension/\0", 35};
constexpr size_t kGuidSize = 32;
// Name, GUID, full length and offset.
constexpr size_t kExtendedHeader = kExtendedName.size() + kGuidSize + 4 + 4;

constexpr unsigned char kSoi = 0xd8, kEoi = 0xd9, kSos = 0xda, kApp1 = 0xe1;

// Bytes taken in order from a file or from memory.
class ByteSource {
public:
    virtual ~ByteSource() = default;
    // False when fewer than n bytes remain.
    virtual bool read(void* to, size_t n) = 0;
    virtual bool skip(size_t n) = 0;
};

class FileSource final : public ByteSource {
public:
    explicit FileSource(std::FILE* f) : f_(f) {}
    bool read(void* to, size_t n) override { return std::fread(to, 1, n, f_) == n; }
    // Skipping past the end shows at the next read.
    bool skip(size_t n) override { return std::fseek(f_, static_cast<long>(n), SEEK_CUR) == 0; }

private:
    std::FILE* f_;
};

class MemorySource final : public ByteSource {
public:
    explicit MemorySource(std::string_view bytes) : bytes_(bytes) {}
    bool read(void* to, size_t n) override
    {
        if (n > bytes_.size() - at_)
            return false;
        std::copy_n(bytes_.data() + at_, n, static_cast<char*>(to));
        at_ += n;
        return true;
    }
    bool skip(size_t n) override
    {
        if (n > bytes_.size() - at_)
            return false;
        at_ += n;
        return true;
    }

private:
    std::string_view bytes_;
    size_t at_ = 0;
};

// A marker segment in front of the image data: its marker, the offset in
// the file just past it, and for APP1 segments the bytes after the length.
struct Segment {
    unsigned char marker = 0;
    uint64_t end = 0;
    std::string payload;
};

// Calls visit(segment) for each marker segment after the start of image,
// until it returns false or the image data (start of scan) or the end of the
// image comes. A file that is no JPEG, or one that stops making sense (no
// marker where one belongs, a length shorter than its own field, a segment
// cut off by the end of the file), ends the walk quietly.
template <class Visit>
void forEachSegment(ByteSource& in, Visit visit)
{
    unsigned char head[2];
    if (!in.read(head, 2) || head[0] != 0xff || head[1] != kSoi)
        return;
    uint64_t at = 2;
    for (;;) {
        unsigned char c = 0;
        if (!in.read(&c, 1) || c != 0xff)
            return;
        ++at;
        do {  // fill bytes
            if (!in.read(&c, 1))
                return;
            ++at;
        } while (c == 0xff);
        if (c == kSos || c == kEoi || c == 0)
            return;
        if (c == 0x01 || (c >= 0xd0 && c <= 0xd7))
            continue;  // markers without a segment
        unsigned char len[2];
        if (!in.read(len, 2))
            return;
        const size_t length = static_cast<size_t>(len[0]) << 8 | len[1];
        if (length < 2)
            return;
        Segment s;
        s.marker = c;
        s.end = at + length;
        if (c == kApp1) {
            s.payload.resize(length - 2);
            if (!in.read(s.payload.data(), s.payload.size()))
                return;
        } else if (!in.skip(length - 2)) {
            return;
        }
        at = s.end;
        if (!visit(s))
            return;
    }
}

uint32_t bigEndian32(const std::string& bytes, size_t at)
{
    uint32_t v = 0;
    for (size_t i = 0; i < 4; ++i)
        v = v << 8 | static_cast<unsigned char>(bytes[at + i]);
    return v;
}

void appendBigEndian(std::string& to, uint32_t v, int bytes)
{
    for (int i = bytes - 1; i >= 0; --i)
        to += static_cast<char>((v >> (8 * i)) & 0xff);
}

// The chunks of one extended document as they were found.
struct Pieces {
    uint32_t length = 0;
    std::map<uint32_t, std::string> chunks;  // by offset
    bool damaged = false;
};

// The document the chunks make, or nothing when they leave a gap, overlap
// with other bytes or do not make up its length.
std::optional<std::string> assemble(const Pieces& p)
{
    if (p.damaged || p.length == 0)
        return std::nullopt;
    std::string document;
    for (const auto& [offset, chunk] : p.chunks) {
        if (offset > document.size())
            return std::nullopt;
        const size_t shared = std::min(chunk.size(), document.size() - offset);
        if (document.compare(offset, shared, chunk, 0, shared) != 0)
            return std::nullopt;
        document.append(chunk, shared);
    }
    if (document.size() != p.length)
        return std::nullopt;
    return document;
}

struct FileCloser {
    void operator()(std::FILE* f) const { std::fclose(f); }
};

// Where the first standard XMP segment of a JPEG ends: the place for its
// extension.
std::optional<size_t> standardXmpEnd(std::string_view jpeg)
{
    std::optional<size_t> at;
    MemorySource in(jpeg);
    forEachSegment(in, [&](const Segment& s) {
        if (s.marker == kApp1 && s.payload.compare(0, kStandardName.size(), kStandardName) == 0)
            at = static_cast<size_t>(s.end);
        return !at;
    });
    return at;
}

std::string joined(const std::vector<std::string>& segments)
{
    std::string all;
    for (const std::string& s : segments)
        all += s;
    return all;
}

}  // namespace

std::string extendedXmpGuid(std::string_view document)
{
    md5_ctx ctx;
    md5_init(&ctx);
    md5_update(&ctx, document.size(), reinterpret_cast<const uint8_t*>(document.data()));
    uint8_t digest[MD5_DIGEST_SIZE];
    md5_digest(&ctx, MD5_DIGEST_SIZE, digest);
    static const char hex[] = "0123456789ABCDEF";
    std::string guid;
    for (uint8_t b : digest) {
        guid += hex[b >> 4];
        guid += hex[b & 15];
    }
    return guid;
}

std::map<std::string, std::string> readJpegExtendedXmp(const std::string& path)
{
    std::map<std::string, Pieces> found;
    const std::unique_ptr<std::FILE, FileCloser> f(std::fopen(path.c_str(), "rb"));
    if (!f)
        return {};
    FileSource in(f.get());
    forEachSegment(in, [&](const Segment& s) {
        if (s.marker != kApp1 || s.payload.size() < kExtendedHeader ||
            s.payload.compare(0, kExtendedName.size(), kExtendedName) != 0)
            return true;
        const std::string guid = s.payload.substr(kExtendedName.size(), kGuidSize);
        const uint32_t length = bigEndian32(s.payload, kExtendedName.size() + kGuidSize);
        const uint32_t offset = bigEndian32(s.payload, kExtendedName.size() + kGuidSize + 4);
        const size_t size = s.payload.size() - kExtendedHeader;
        Pieces& p = found[guid];
        if (p.chunks.empty())
            p.length = length;
        if (length != p.length || size == 0 || offset > length || size > length - offset) {
            p.damaged = true;
            return true;
        }
        const auto [it, added] = p.chunks.emplace(offset, s.payload.substr(kExtendedHeader));
        if (!added && it->second.compare(0, std::string::npos, s.payload, kExtendedHeader) != 0)
            p.damaged = true;
        return true;
    });
    std::map<std::string, std::string> documents;
    for (const auto& [guid, pieces] : found)
        if (std::optional<std::string> document = assemble(pieces))
            documents.emplace(guid, std::move(*document));
    return documents;
}

std::vector<std::string> extendedXmpSegments(std::string_view document, std::string_view guid)
{
    std::vector<std::string> segments;
    for (size_t offset = 0; offset < document.size(); offset += kJpegExtendedXmpChunk) {
        const size_t n = std::min(kJpegExtendedXmpChunk, document.size() - offset);
        std::string s = "\xff\xe1";
        appendBigEndian(s, static_cast<uint32_t>(2 + kExtendedHeader + n), 2);
        s += kExtendedName;
        s += guid;
        appendBigEndian(s, static_cast<uint32_t>(document.size()), 4);
        appendBigEndian(s, static_cast<uint32_t>(offset), 4);
        s += document.substr(offset, n);
        segments.push_back(std::move(s));
    }
    return segments;
}

bool insertAfterStandardXmp(std::string& jpeg, const std::vector<std::string>& segments)
{
    const std::optional<size_t> at = standardXmpEnd(jpeg);
    if (!at)
        return false;
    jpeg.insert(*at, joined(segments));
    return true;
}

void addJpegExtendedXmp(const std::string& path, std::string_view document, std::string_view guid)
{
    const auto fail = [&](const std::string& why) { throw AppError("cannot write metadata to " + path + ": " + why); };
    std::string jpeg;
    {
        const std::unique_ptr<std::FILE, FileCloser> f(std::fopen(path.c_str(), "rb"));
        if (!f)
            fail(errnoText(errno));
        char buf[1 << 16];
        size_t n;
        while ((n = std::fread(buf, 1, sizeof buf, f.get())) > 0)
            jpeg.append(buf, n);
        if (std::ferror(f.get()))
            fail(errnoText(errno));
    }
    const std::optional<size_t> at = standardXmpEnd(jpeg);
    if (!at)
        fail("the file has no XMP segment to extend");
    // The file is written again from the new segments on.
    const std::string tail = joined(extendedXmpSegments(document, guid)) + jpeg.substr(*at);
    std::FILE* f = std::fopen(path.c_str(), "r+b");
    if (!f)
        fail(errnoText(errno));
    errno = 0;
    bool written = std::fseek(f, static_cast<long>(*at), SEEK_SET) == 0 &&
                   std::fwrite(tail.data(), 1, tail.size(), f) == tail.size() && std::fflush(f) == 0;
    int err = errno;
    if (std::fclose(f) != 0 && written) {
        written = false;
        err = errno;
    }
    if (!written)
        fail(errnoText(err ? err : EIO));
}

}  // namespace murmex_app
