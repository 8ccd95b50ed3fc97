#include "tiff_directory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <map>

#include "app_error.h"
#include "file_errors.h"

namespace murmex_app::detail {

namespace {

constexpr uint16_t kExifPointer = 34665, kGpsPointer = 34853, kInteropPointer = 40965;
constexpr uint16_t kLong = 4;

uint16_t get16(const uint8_t* p)
{
    return static_cast<uint16_t>(p[0] | p[1] << 8);
}

uint32_t get32(const uint8_t* p)
{
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
           static_cast<uint32_t>(p[3]) << 24;
}

void put16(std::vector<uint8_t>& out, uint16_t v)
{
    out.push_back(static_cast<uint8_t>(v));
    out.push_back(static_cast<uint8_t>(v >> 8));
}

void put32(std::vector<uint8_t>& out, uint32_t v)
{
    for (int shift = 0; shift < 32; shift += 8)
        out.push_back(static_cast<uint8_t>(v >> shift));
}

class File {
public:
    File(const std::string& path, int flags) : path_(path), fd_(open(path.c_str(), flags | O_CLOEXEC)) {}
    ~File()
    {
        if (fd_ >= 0)
            close(fd_);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    bool isOpen() const { return fd_ >= 0; }
    bool readAt(uint64_t offset, uint8_t* to, size_t n) const
    {
        return pread(fd_, to, n, static_cast<off_t>(offset)) == static_cast<ssize_t>(n);
    }
    void writeAt(uint64_t offset, const std::vector<uint8_t>& bytes) const
    {
        size_t done = 0;
        while (done < bytes.size()) {
            const ssize_t n = pwrite(fd_, bytes.data() + done, bytes.size() - done, static_cast<off_t>(offset + done));
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                throw AppError("cannot write metadata to " + path_ + ": " + errnoText(n < 0 ? errno : EIO));
            done += static_cast<size_t>(n);
        }
    }
    uint64_t size() const
    {
        struct stat st;
        return fstat(fd_, &st) == 0 ? static_cast<uint64_t>(st.st_size) : 0;
    }

private:
    std::string path_;
    int fd_;
};

// The first directory of a classic little-endian TIFF: where it is, its raw
// 12-byte entries and the offset of the next directory.
struct RawDirectory {
    uint32_t offset = 0;
    std::vector<std::array<uint8_t, 12>> entries;
    uint32_t next = 0;
};

std::optional<RawDirectory> readFirstDirectory(const File& f)
{
    uint8_t header[8];
    if (!f.readAt(0, header, sizeof header) || header[0] != 'I' || header[1] != 'I' || get16(header + 2) != 42)
        return std::nullopt;
    RawDirectory d;
    d.offset = get32(header + 4);
    uint8_t count[2];
    if (d.offset < 8 || !f.readAt(d.offset, count, 2))
        return std::nullopt;
    const uint16_t n = get16(count);
    std::vector<uint8_t> bytes(static_cast<size_t>(n) * 12 + 4);
    if (!f.readAt(d.offset + 2ull, bytes.data(), bytes.size()))
        return std::nullopt;
    d.entries.resize(n);
    for (uint16_t i = 0; i < n; ++i)
        std::memcpy(d.entries[i].data(), bytes.data() + static_cast<size_t>(i) * 12, 12);
    d.next = get32(bytes.data() + static_cast<size_t>(n) * 12);
    return d;
}

// A directory being laid out: its entries by tag, each raw (kept from the
// file, values where they were) or with a value to place.
struct NewDirectory {
    std::map<uint16_t, std::array<uint8_t, 12>> kept;
    std::map<uint16_t, TiffEntry> added;

    void add(const TiffEntry& e)
    {
        kept.erase(e.tag);
        added[e.tag] = e;
    }
    void pointTo(uint16_t tag, uint32_t offset)
    {
        TiffEntry e{tag, kLong, 1, {}};
        put32(e.value, offset);
        add(e);
    }
    bool empty() const { return kept.empty() && added.empty(); }

    // The directory's bytes at `offset` in the file: the directory, then the
    // values that do not fit into their entries, each at an even offset.
    std::vector<uint8_t> lay(uint32_t offset, uint32_t next) const
    {
        const size_t n = kept.size() + added.size();
        std::vector<uint8_t> dir, values;
        put16(dir, static_cast<uint16_t>(n));
        const uint64_t valuesAt = offset + 2ull + 12ull * n + 4;
        auto k = kept.begin();
        auto a = added.begin();
        while (k != kept.end() || a != added.end()) {
            if (a == added.end() || (k != kept.end() && k->first < a->first)) {
                dir.insert(dir.end(), k->second.begin(), k->second.end());
                ++k;
                continue;
            }
            const TiffEntry& e = a->second;
            put16(dir, e.tag);
            put16(dir, e.type);
            put32(dir, e.count);
            if (e.value.size() <= 4) {
                dir.insert(dir.end(), e.value.begin(), e.value.end());
                dir.insert(dir.end(), 4 - e.value.size(), 0);
            } else {
                const uint64_t at = valuesAt + values.size();
                if (at > 0xffffffffu)
                    throw AppError("the file is too large for its metadata");
                put32(dir, static_cast<uint32_t>(at));
                values.insert(values.end(), e.value.begin(), e.value.end());
                if (values.size() % 2)
                    values.push_back(0);
            }
            ++a;
        }
        put32(dir, next);
        dir.insert(dir.end(), values.begin(), values.end());
        return dir;
    }
};

}  // namespace

uint32_t tiffTypeSize(uint16_t type)
{
    switch (type) {
    case 1: case 2: case 6: case 7: return 1;   // BYTE, ASCII, SBYTE, UNDEFINED
    case 3: case 8: return 2;                   // SHORT, SSHORT
    case 4: case 9: case 11: case 13: return 4; // LONG, SLONG, FLOAT, IFD
    case 5: case 10: case 12: return 8;         // RATIONAL, SRATIONAL, DOUBLE
    default: return 0;
    }
}

bool extendableTiff(const std::string& path)
{
    const File f(path, O_RDONLY);
    return f.isOpen() && readFirstDirectory(f).has_value();
}

std::optional<uint16_t> tiffFirstDirectoryShort(const std::string& path, uint16_t tag)
{
    const File f(path, O_RDONLY);
    if (!f.isOpen())
        return std::nullopt;
    const std::optional<RawDirectory> d = readFirstDirectory(f);
    if (!d)
        return std::nullopt;
    for (const auto& e : d->entries)
        if (get16(e.data()) == tag && get16(e.data() + 2) == 3 && get32(e.data() + 4) >= 1)
            return get16(e.data() + 8);
    return std::nullopt;
}

bool appendTiffMetadata(const std::string& path, const TiffMetadataEntries& entries)
{
    const File f(path, O_RDWR);
    if (!f.isOpen())
        throw AppError("cannot write metadata to " + path + ": " + errnoText(errno));
    const std::optional<RawDirectory> old = readFirstDirectory(f);
    if (!old)
        return false;
    for (const auto* list : {&entries.image, &entries.exif, &entries.gps, &entries.interop})
        for (const TiffEntry& e : *list)
            if (tiffTypeSize(e.type) == 0 || e.value.size() != static_cast<size_t>(tiffTypeSize(e.type)) * e.count)
                return false;

    NewDirectory first, exif, gps, interop;
    for (const auto& raw : old->entries)
        first.kept[get16(raw.data())] = raw;
    for (const uint16_t pointer : {kExifPointer, kGpsPointer})
        first.kept.erase(pointer);
    for (const TiffEntry& e : entries.image)
        first.add(e);
    for (const TiffEntry& e : entries.exif)
        exif.add(e);
    for (const TiffEntry& e : entries.gps)
        gps.add(e);
    for (const TiffEntry& e : entries.interop)
        interop.add(e);
    exif.kept.erase(kInteropPointer);
    exif.added.erase(kInteropPointer);

    // Laid out from the end of the file, at an even offset: the
    // sub-directories first, so that their offsets are known to the
    // directories that point to them.
    const uint64_t start = f.size();       // where `bytes` go
    std::vector<uint8_t> bytes(start % 2, 0);  // to an even offset
    auto layHere = [&](const NewDirectory& d, uint32_t next) {
        const uint64_t at = start + bytes.size();
        if (at > 0xffffffffu)
            throw AppError("cannot write metadata to " + path + ": the file is too large");
        const std::vector<uint8_t> laid = d.lay(static_cast<uint32_t>(at), next);
        bytes.insert(bytes.end(), laid.begin(), laid.end());
        if (bytes.size() % 2)
            bytes.push_back(0);
        return static_cast<uint32_t>(at);
    };
    try {
        if (!interop.empty())
            exif.pointTo(kInteropPointer, layHere(interop, 0));
        if (!exif.empty())
            first.pointTo(kExifPointer, layHere(exif, 0));
        if (!gps.empty())
            first.pointTo(kGpsPointer, layHere(gps, 0));
        const uint32_t firstAt = layHere(first, old->next);
        f.writeAt(start, bytes);
        std::vector<uint8_t> pointer;
        put32(pointer, firstAt);
        f.writeAt(4, pointer);
    } catch (const AppError& e) {
        const std::string lead = "cannot write metadata to " + path;
        const std::string what = e.what();
        throw AppError(what.rfind(lead, 0) == 0 ? what : lead + ": " + what);
    }
    return true;
}

}  // namespace murmex_app::detail
