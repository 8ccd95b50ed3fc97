// A synthetic photograph-like scene for whole-image tests: a smooth gradient
// sky, a dark and a bright saturated block, colour patches, a hard vertical
// step edge, diagonal edges and fine texture; and seeded Gaussian noise.
#pragma once

#include <cstdint>

#include "support/memory_image.h"

namespace murmex_test {

// The clean scene, 16-bit RGB with x = 65535.
MemoryImage makeScene(int width, int height);

// Adds Gaussian noise of standard deviation sigma (in 16-bit units) to the
// red, green and blue samples, clamped to 0..65535; reproducible from seed.
void addNoise(MemoryImage& image, double sigma, uint32_t seed);

// Peak signal-to-noise ratio in dB of a against b over the RGB samples.
double psnr(const MemoryImage& a, const MemoryImage& b);

}  // namespace murmex_test
