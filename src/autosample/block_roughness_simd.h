// Vector path of the automatic sampler's directional roughness: for each of n
// blocks of one block row, the sums over its 7 x 7 window (rows r0 .., columns
// c0[i] ..) of the five-pixel line variances along the rows, the columns and
// the two diagonals, in that order in out[4i .. 4i+3]. The seven line variances of a window row are computed
// side by side in one vector; each lane takes the scalar steps in the same
// order and precision (separate products and sums, no fused multiply-add),
// and the sums then add the seven lanes one by one in column order, as the
// scalar loop does; four blocks run side by side so that their sums overlap.
// So the results are bit-identical. Needs AVX2. The unused
// eighth lane reads one column further right than the window's own lines
// (column c0 + 9); a block's window ends at least 16 columns before the
// tile's right edge, so that stays inside the tile.
//
// What it bought: with the vector tile conversion (color/pixel_rect_simd.cpp)
// the sampler on 24 megapixels (BM_AutoSamplePeakHeap24MP, CPU time, median
// of 3, the synthetic scene's generation included) went from 748 ms to
// 554 ms, of which this part took it from 567 ms. Shared 2-core Intel Xeon
// (AVX-512) build machine under load, Release build.
#pragma once

namespace block_roughness_simd {

void windowSumsAVX2(const float* plane, long stride, int r0, const int* c0, int n, float* out);

}  // namespace block_roughness_simd
