// Seeded test planes (row-major, width * height floats) and a helper that
// pulls every row of a node through the reference protocol.
#pragma once

#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

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

// The same rows, but every row is referenced before any is fetched (as the
// denoise driver does), then fetched, copied and unreferenced top to bottom:
// nodes that compute referenced rows together get the chance to.
std::vector<float> pullPlaneReferencedFirst(JIncrRaster& node);

// Every row is referenced, then `threads` threads each fetch every row, thread
// t in the order (i * stride + t * offset) % height, and copy what they read;
// then every row is unreferenced. Returns one plane per thread.
std::vector<std::vector<float>> pullPlaneFromThreads(JIncrRaster& node, int threads, int stride, int offset);

// Succeeds when no row of the node holds a reference or a buffer.
::testing::AssertionResult allRowsReleased(JIncrRaster& node);

// The stored row that row index y reads in a raster of height h, written out
// from the mirroring rule independently of the node code: inside 0..h-1 it is
// y; outside, t = -y above or y + 1 below, q = t / h, s = t - q*h, and the row
// is s for even q, h - s - 1 for odd q.
int mirroredRow(int y, int h);

// Column x of a row of width w with mirrored margins: pixel -i is pixel i and
// pixel w-1+i is pixel w-1-i (for |offset| below w).
int mirroredColumn(int x, int w);

}  // namespace murmex_test
