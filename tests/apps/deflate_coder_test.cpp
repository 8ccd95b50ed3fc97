// Tests of the writers' deflate coder, with zlib as the independent decoder:
// whole zlib streams, streams put together from separately compressed parts,
// and the checksum that closes them.

#include "murmex/deflate_coder.h"

#include <zlib.h>

#include <cstdint>
#include <random>
#include <vector>

#include <gtest/gtest.h>

using murmex_app::DeflateCoder;

namespace {

// Noise in the low bytes over a slow ramp in the high bytes: the kind of
// data the writers compress.
std::vector<uint8_t> photoLikeBytes(size_t size, unsigned seed)
{
    std::mt19937 rng(seed);
    std::vector<uint8_t> bytes(size);
    for (size_t i = 0; i < size; ++i)
        bytes[i] = i % 2 == 0 ? static_cast<uint8_t>(i / 4096) : static_cast<uint8_t>(rng());
    return bytes;
}

std::vector<uint8_t> randomBytes(size_t size, unsigned seed)
{
    std::mt19937 rng(seed);
    std::vector<uint8_t> bytes(size);
    for (uint8_t& b : bytes)
        b = static_cast<uint8_t>(rng());
    return bytes;
}

// zlib's inflate of a whole zlib stream, which also checks the Adler-32;
// false when the stream is damaged or does not hold exactly expected bytes.
bool inflatesTo(const std::vector<uint8_t>& stream, const std::vector<uint8_t>& expected)
{
    std::vector<uint8_t> out(expected.size() + 1);
    uLongf size = static_cast<uLongf>(out.size());
    uLong consumed = static_cast<uLong>(stream.size());
    if (uncompress2(out.data(), &size, stream.data(), &consumed) != Z_OK)
        return false;
    out.resize(size);
    return consumed == stream.size() && out == expected;
}

// The parts compressed one by one and put together as the PNG writer does:
// the zlib header, the parts' blocks, the combined checksum.
std::vector<uint8_t> streamOfParts(const std::vector<std::vector<uint8_t>>& parts)
{
    DeflateCoder coder;
    std::vector<uint8_t> stream = {0x78, 0x01};
    uLong adler = adler32(0, nullptr, 0);
    for (size_t k = 0; k < parts.size(); ++k) {
        const std::vector<uint8_t>& part = parts[k];
        std::vector<uint8_t> coded(DeflateCoder::bound(part.size()));
        const size_t n = coder.streamPart(part.data(), part.size(), k + 1 == parts.size(), coded.data(), coded.size());
        EXPECT_GT(n, 0u) << "part " << k;
        stream.insert(stream.end(), coded.begin(), coded.begin() + static_cast<ptrdiff_t>(n));
        adler = adler32_combine(adler, DeflateCoder::adler32(1, part.data(), part.size()),
                                static_cast<z_off_t>(part.size()));
    }
    for (int i = 0; i < 4; ++i)
        stream.push_back(static_cast<uint8_t>(adler >> (24 - 8 * i)));
    return stream;
}

}  // namespace

TEST(DeflateCoderTest, AZlibStreamInflatesToItsData)
{
    DeflateCoder coder;
    for (size_t size : {size_t{1}, size_t{1000}, size_t{65536}, size_t{400000}}) {
        const std::vector<uint8_t> data = photoLikeBytes(size, static_cast<unsigned>(size));
        std::vector<uint8_t> stream;
        ASSERT_TRUE(coder.zlibStream(data.data(), data.size(), stream)) << size;
        EXPECT_TRUE(inflatesTo(stream, data)) << size;
    }
}

TEST(DeflateCoderTest, DataIsCompressedNotStored)
{
    DeflateCoder coder;
    // A slow ramp, as in a noiseless gradient, repeats itself.
    std::vector<uint8_t> smooth(400000);
    for (size_t i = 0; i < smooth.size(); ++i)
        smooth[i] = static_cast<uint8_t>(i / 4096);
    std::vector<uint8_t> stream;
    ASSERT_TRUE(coder.zlibStream(smooth.data(), smooth.size(), stream));
    EXPECT_LT(stream.size(), smooth.size() / 20);
    // Noise in every other byte still leaves the constant bytes cheaper.
    const std::vector<uint8_t> noisy = photoLikeBytes(400000, 3);
    ASSERT_TRUE(coder.zlibStream(noisy.data(), noisy.size(), stream));
    EXPECT_LT(stream.size(), noisy.size() * 95 / 100);
}

TEST(DeflateCoderTest, DataThatDoesNotShrinkStaysWithinTheBound)
{
    DeflateCoder coder;
    for (size_t size : {size_t{17}, size_t{65535}, size_t{65536}, size_t{300001}}) {
        const std::vector<uint8_t> data = randomBytes(size, static_cast<unsigned>(size));
        std::vector<uint8_t> stream;
        ASSERT_TRUE(coder.zlibStream(data.data(), data.size(), stream)) << size;
        EXPECT_LE(stream.size(), DeflateCoder::bound(size));
        EXPECT_TRUE(inflatesTo(stream, data)) << size;
    }
}

TEST(DeflateCoderTest, AnEmptyInputIsAnEmptyStream)
{
    DeflateCoder coder;
    std::vector<uint8_t> stream;
    ASSERT_TRUE(coder.zlibStream(nullptr, 0, stream));
    EXPECT_TRUE(inflatesTo(stream, {}));
}

TEST(DeflateCoderTest, PartsCompressedApartMakeOneStream)
{
    for (int count : {1, 2, 3, 7}) {
        std::vector<std::vector<uint8_t>> parts;
        std::vector<uint8_t> whole;
        for (int k = 0; k < count; ++k) {
            // Uneven sizes, so that the parts' bit lengths differ.
            const std::vector<uint8_t> part =
                k % 2 ? randomBytes(3000 + 77 * k, static_cast<unsigned>(k)) : photoLikeBytes(90001 + k, static_cast<unsigned>(k));
            parts.push_back(part);
            whole.insert(whole.end(), part.begin(), part.end());
        }
        EXPECT_TRUE(inflatesTo(streamOfParts(parts), whole)) << count << " parts";
    }
}

TEST(DeflateCoderTest, APartThatDoesNotFitItsRoomFails)
{
    DeflateCoder coder;
    const std::vector<uint8_t> data = randomBytes(10000, 5);
    std::vector<uint8_t> coded(5000);
    EXPECT_EQ(coder.streamPart(data.data(), data.size(), true, coded.data(), coded.size()), 0u);
}

TEST(DeflateCoderTest, TheChecksumIsAdler32)
{
    for (size_t size : {size_t{0}, size_t{1}, size_t{5551}, size_t{5552}, size_t{5553}, size_t{100003}}) {
        const std::vector<uint8_t> data = randomBytes(size + 3, static_cast<unsigned>(size));
        // From an odd address as well as the start.
        for (size_t offset : {size_t{0}, size_t{3}}) {
            const uint8_t* p = data.data() + offset;
            EXPECT_EQ(DeflateCoder::adler32(1, p, size), adler32_z(adler32_z(0, nullptr, 0), p, size)) << size;
        }
        // Continued from an earlier checksum.
        const uLong first = adler32_z(adler32_z(0, nullptr, 0), data.data(), 2);
        EXPECT_EQ(DeflateCoder::adler32(static_cast<uint32_t>(first), data.data() + 2, size),
                  adler32_z(first, data.data() + 2, size));
    }
}
