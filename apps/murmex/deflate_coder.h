// Deflate compression for the writers, through ISA-L's igzip at its level 1.
// On the rows of a 16-bit photograph, differenced as the TIFF predictor and
// the PNG Sub filter store them, it is six times as fast as libdeflate's
// fastest level and the output is the same size: the low bytes are noise, so
// what counts is the Huffman coding, not the search for matches. Only
// noiseless images grow (see the writers).
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "helper_thread.h"

struct isal_zstream;

namespace murmex_app {

class DeflateCoder {
public:
    DeflateCoder();
    ~DeflateCoder();
    DeflateCoder(const DeflateCoder&) = delete;
    DeflateCoder& operator=(const DeflateCoder&) = delete;

    // Room enough for the deflate blocks of size bytes, with a zlib header
    // and checksum around them.
    static size_t bound(size_t size);

    // size bytes as one zlib stream, which replaces out. False on failure.
    bool zlibStream(const uint8_t* data, size_t size, std::vector<uint8_t>& out);

    // size bytes as raw deflate blocks that go on a longer stream, into at
    // most room bytes at out: the blocks start afresh (no match reaches back
    // into earlier parts) and end on a byte boundary, and those of the last
    // part end the stream. The number of bytes written, 0 on failure.
    size_t streamPart(const uint8_t* data, size_t size, bool last, uint8_t* out, size_t room);

    // The Adler-32 checksum of a zlib stream's data, continued from adler
    // (1 for the start of the data).
    static uint32_t adler32(uint32_t adler, const uint8_t* data, size_t size);

private:
    size_t compress(const uint8_t* data, size_t size, int wrapper, bool last, uint8_t* out, size_t room);

    std::unique_ptr<isal_zstream> stream_;
    std::vector<uint8_t> levelBuffer_;
};

// Two parts of a file compressed at once, one on a helper thread and one on
// the caller's: compression is most of the writing, and the format libraries
// would run it on the writing thread alone.
class DeflatePair {
public:
    // compress(coder, a) on the helper and compress(coder, *b) here, when b
    // is given; true when both return true.
    template <class Part, class Compress>
    bool compress(Part& a, Part* b, Compress compress)
    {
        return helper_.both([&] { return compress(theirs_, a); }, [&] { return !b || compress(mine_, *b); });
    }

private:
    DeflateCoder mine_;
    DeflateCoder theirs_;
    HelperThread helper_;
};

}  // namespace murmex_app
