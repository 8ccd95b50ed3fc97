#include "deflate_coder.h"

#include <isa-l/igzip_lib.h>

#include <limits>

namespace murmex_app {

namespace {

constexpr int kLevel = 1;

}  // namespace

DeflateCoder::DeflateCoder() : stream_(std::make_unique<isal_zstream>()), levelBuffer_(ISAL_DEF_LVL1_DEFAULT) {}

DeflateCoder::~DeflateCoder() = default;

size_t DeflateCoder::bound(size_t size)
{
    // Data that does not shrink goes out in stored blocks of at most 65535
    // bytes with 5 bytes of header each; the rest covers the block that
    // gives up, the zlib header and checksum, and the byte-aligning flush.
    return size + 5 * (size / 65535 + 2) + 64;
}

bool DeflateCoder::zlibStream(const uint8_t* data, size_t size, std::vector<uint8_t>& out)
{
    out.resize(bound(size));
    const size_t n = compress(data, size, IGZIP_ZLIB, true, out.data(), out.size());
    out.resize(n);
    return n > 0;
}

size_t DeflateCoder::streamPart(const uint8_t* data, size_t size, bool last, uint8_t* out, size_t room)
{
    return compress(data, size, IGZIP_DEFLATE, last, out, room);
}

uint32_t DeflateCoder::adler32(uint32_t adler, const uint8_t* data, size_t size)
{
    return isal_adler32(adler, data, size);
}

size_t DeflateCoder::compress(const uint8_t* data, size_t size, int wrapper, bool last, uint8_t* out, size_t room)
{
    if (size > std::numeric_limits<uint32_t>::max() || room > std::numeric_limits<uint32_t>::max())
        return 0;
    isal_zstream& s = *stream_;
    isal_deflate_stateless_init(&s);
    s.level = kLevel;
    s.level_buf = levelBuffer_.data();
    s.level_buf_size = static_cast<uint32_t>(levelBuffer_.size());
    s.gzip_flag = static_cast<uint16_t>(wrapper);
    // A part that the stream goes on after ends byte-aligned.
    s.flush = last ? NO_FLUSH : FULL_FLUSH;
    s.end_of_stream = last ? 1 : 0;
    // The input is only read.
    s.next_in = const_cast<uint8_t*>(data);
    s.avail_in = static_cast<uint32_t>(size);
    s.next_out = out;
    s.avail_out = static_cast<uint32_t>(room);
    if (isal_deflate_stateless(&s) != COMP_OK || s.avail_in != 0)
        return 0;
    return s.total_out;
}

}  // namespace murmex_app
