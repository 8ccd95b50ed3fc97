// Shared synthetic test images: flat patches and Gaussian noise from fixed
// seeds, built on MemoryImage.
#pragma once

#include <cstdint>
#include <vector>

#include "support/memory_image.h"

namespace murmex_test {

// n standard normal values (mean 0, deviation 1) from a fixed seed, by the
// Box-Muller transform over std::mt19937, so the values are the same with
// every standard library.
std::vector<double> gaussianValues(int n, uint32_t seed);

// An image of one colour, x = 65535.
MemoryImage flatImage(int width, int height, uint16_t r, uint16_t g, uint16_t b);

// Adds grey noise: the same value, sigma * 65535 times a standard normal
// value, to red, green and blue of each pixel (so it lands in luminance and
// cancels in chroma), rounded to nearest and clamped to 0..65535.
void addGreyNoise(MemoryImage& image, double sigma, uint32_t seed);

}  // namespace murmex_test
