// Bit-for-bit comparison of float data, for scalar-versus-vector tests.
#pragma once

#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace murmex_test {

inline uint32_t floatBits(float f)
{
    uint32_t b;
    std::memcpy(&b, &f, sizeof b);
    return b;
}

// Succeeds when every float of a and b has the same bit pattern; the failure
// names the first differing index.
inline ::testing::AssertionResult sameBits(const float* a, const float* b, int n)
{
    for (int i = 0; i < n; ++i) {
        if (floatBits(a[i]) != floatBits(b[i])) {
            std::ostringstream s;
            s.precision(9);
            s << "element " << i << " differs: " << a[i] << " (0x" << std::hex << floatBits(a[i])
              << ") vs " << std::dec << b[i] << " (0x" << std::hex << floatBits(b[i]) << ")";
            return ::testing::AssertionFailure() << s.str();
        }
    }
    return ::testing::AssertionSuccess();
}

}  // namespace murmex_test
