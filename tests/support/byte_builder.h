// Assembles file bytes field by field, independently of the engine's streams:
// 32-bit integers and IEEE single-precision floats in big- or little-endian
// order, raw bytes, and length-prefixed texts.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace murmex_test {

class ByteBuilder {
public:
    explicit ByteBuilder(bool littleEndian = false) : little_(littleEndian) {}

    ByteBuilder& u32(uint32_t v)
    {
        const unsigned char b[4] = {static_cast<unsigned char>(v >> 24), static_cast<unsigned char>(v >> 16),
                                    static_cast<unsigned char>(v >> 8), static_cast<unsigned char>(v)};
        for (int i = 0; i < 4; ++i)
            bytes_.push_back(little_ ? b[3 - i] : b[i]);
        return *this;
    }
    ByteBuilder& i32(int32_t v) { return u32(static_cast<uint32_t>(v)); }
    ByteBuilder& f32(float f)
    {
        uint32_t v;
        std::memcpy(&v, &f, sizeof v);
        return u32(v);
    }
    ByteBuilder& raw(const std::string& s)
    {
        bytes_.insert(bytes_.end(), s.begin(), s.end());
        return *this;
    }
    // A 32-bit length, then the bytes.
    ByteBuilder& block(const std::string& s)
    {
        u32(static_cast<uint32_t>(s.size()));
        return raw(s);
    }
    // A text as the data stream stores it: an empty text as a zero length,
    // otherwise a length counting a terminating zero, the bytes and the zero.
    ByteBuilder& text(const std::string& s)
    {
        if (s.empty())
            return u32(0);
        u32(static_cast<uint32_t>(s.size() + 1));
        raw(s);
        bytes_.push_back(0);
        return *this;
    }
    ByteBuilder& append(const std::vector<unsigned char>& more)
    {
        bytes_.insert(bytes_.end(), more.begin(), more.end());
        return *this;
    }

    const std::vector<unsigned char>& bytes() const { return bytes_; }
    size_t size() const { return bytes_.size(); }

private:
    bool little_;
    std::vector<unsigned char> bytes_;
};

}  // namespace murmex_test
