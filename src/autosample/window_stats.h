// The statistics the auto sampler tests a candidate patch on: for every
// candidate square of s x s blocks in one candidate row (top block row by,
// left block columns bx = 0, 2, 4, ... while bx < gw - s), over the square's
// blocks in row order:
//   per channel c (Y, Cr, Cb): the least and greatest block mean and block
//     variance (extremes start at 1e6 and -1e6; a block replaces the least
//     only when strictly smaller, the greatest only when strictly greater)
//     and the sum of the block means, in single precision from 0;
//   for Y only: the sum of the block variances;
//   when directional measures are given: the sum of each of the four, from
//     1e-6.
// Every sum adds the blocks one by one in row order, so each is the exact
// value the sampler's plain loops give.
//
// rowScalar is the reference. The vector rows (window_stats_simd.cpp) put one
// candidate in each lane and take the same steps in the same order lane by
// lane, so their results are bit-identical; they read the grids through a
// Decimated copy in which every second block column lies contiguously.
//
// What it bought: most candidates of a real photo pass the uniformity test
// (three in four on the demo scene), so the plain loops ran in full for each;
// the whole measurement of the demo's 24-megapixel image (DnBuildProfile2 on
// the image in memory, processor time) went from about 0.68 s to 0.54 s.
// Shared 2-core Intel Xeon (AVX-512) machine under load, Release build.
#pragma once

#include <vector>

namespace window_stats {

// Index of each statistic in a row's output: out[(stat) * stride + j] for
// candidate j (left block column 2j).
enum Stat {
    kMinMean = 0,   // + c
    kMaxMean = 3,   // + c
    kMinVar = 6,    // + c
    kMaxVar = 9,    // + c
    kSumMean = 12,  // + c
    kSumVarY = 15,
    kDirSum = 16,   // + direction 0..3
    kStatCount = 20
};

// The block grids of one tile, gw x gh blocks each, in row order. dirs[0] is
// null when the directional measures are not wanted (relaxed search); then
// the kDirSum entries of the output are left untouched.
struct Grids {
    const float* means[3];
    const float* vars[3];
    const float* dirs[4];
    int gw;
    int gh;
};

// Candidates of size s in one row: bx = 0, 2, ... while bx < gw - s.
int candidateCount(int gw, int s);

// The statistics of the n = candidateCount(g.gw, s) candidates of row by.
void rowScalar(const Grids& g, int by, int s, float* out, long stride);

// The grids with even and odd block columns apart: column 2j + parity of
// plane p lies at plane(p, parity, y)[j]. Rows are padded so that a vector
// row may read whole vectors past its last candidate.
class Decimated {
public:
    // Planes 0-2 the means, 3-5 the variances, 6-9 the directional measures
    // (left out when g.dirs[0] is null).
    void build(const Grids& g);
    const float* plane(int p, int parity, int y) const
    {
        return data_.data() + ((static_cast<long>(p) * 2 + parity) * gh_ + y) * stride_;
    }
    bool hasDirs() const { return dirs_; }

private:
    std::vector<float> data_;
    long stride_ = 0;
    int gh_ = 0;
    bool dirs_ = false;
};

// The vector rows: the same output as rowScalar for the n candidates of row
// by, written in whole vectors, so out's rows must hold n rounded up to 16
// entries. Only for a processor with the named instruction set.
void rowAVX2(const Decimated& d, int by, int s, int n, float* out, long stride);
void rowAVX512(const Decimated& d, int by, int s, int n, float* out, long stride);

}  // namespace window_stats
