// Seeded test planes (row-major, width * height floats) and a helper that
// pulls every row of a node through the reference protocol.
#pragma once

#include <cstdint>
#include <vector>

class JIncrRaster;

namespace murmex_test {

// Uniform values in [lo, hi) from a fixed seed.
std::vector<float> randomPlane(int width, int height, uint32_t seed, float lo = 0.0f, float hi = 1.0f);

// A mix that exercises rounding: values near 0 (tiny, subnormal, signed zero),
// near 1 (just below and above), negatives and ordinary values in [-2, 2),
// drawn from a fixed seed.
std::vector<float> mixedPlane(int width, int height, uint32_t seed);

// Rows 0..height-1 of the node, pixels 0..width-1 each (one float per pixel):
// each row is referenced, fetched, copied and unreferenced.
std::vector<float> pullPlane(JIncrRaster& node);

}  // namespace murmex_test
