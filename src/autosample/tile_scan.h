// JTileScan: the auto sampler's work on one tile that depends on nothing but
// the tile itself, so that tiles can be scanned on any thread and their
// candidates offered to the index afterwards, in tile order.
//
// The tile is read as Y, Cr, Cb planes and cut into 8x8 blocks (one block
// fewer than fits in each direction, so that the directional window of the
// last block stays inside the tile) with their mean and variance per channel
// and, unless relaxed, four directional roughness measures of Y. Patches of
// 4, 8 and 16 blocks at every second block are tested for uniformity and
// (unless relaxed) for direction-free texture; those that pass become the
// tile's candidates, in the order of size, then block row, then block column.
//
// A scan owns one tile of three float planes plus the block grids; the
// planes are kept for the next tile until releaseTile(). One thread at a
// time per scan.
#pragma once

#include <vector>

#include "autosample/auto_sample_rec.h"
#include "autosample/window_stats.h"
#include "base/image_adapter.h"
#include "base/rect.h"
#include "color/pixel_rect.h"

class JTileScan {
public:
    // What one tile yields: its candidates (rect in image pixels, colour,
    // score, yVariance, valid 1) in order, and the number of candidate
    // positions examined at 4, 8 and 16 blocks.
    struct Result {
        std::vector<JAutoSampleRec> candidates;
        int examined[3] = {0, 0, 0};
    };

    JTileScan();
    JTileScan(const JTileScan&) = delete;
    JTileScan& operator=(const JTileScan&) = delete;

    // Reads rectangle r of image (without the diagnostic line; the sampler
    // prints it in tile order) and scans it into out.
    void scan(JImageAdapter* image, const JRect<int>& r, bool relaxed, Result& out);
    // Frees the tile's planes; the block grids stay for inspection.
    void releaseTile();

    // The block grids of the last tile scanned.
    const JPixelRect& blockMeans() const { return blockMeans_; }
    const JPixelRect& blockVars() const { return blockVars_; }
    const JPixelRect& blockDirs() const { return blockDirs_; }

private:
    void computeBlockStats();
    // The tests of candidate j of the current row, whose statistics
    // computeRowStats has gathered.
    bool uniform(int j, int s, float& scoreY, float& meanVarY, float means[3]) const;
    bool directionFree(int j, int s) const;
    window_stats::Grids grids() const;
    void prepareRowStats();
    void computeRowStats(int by, int s);
    void searchCandidates(int s, int tileX, int tileY, int& examined, std::vector<JAutoSampleRec>& out);

    JPixelRect tile_;
    JPixelRect blockMeans_;
    JPixelRect blockVars_;
    JPixelRect blockDirs_;
    int relaxed_ = 0;
    int gw_ = 0;
    int gh_ = 0;
    // The window statistics of one candidate row (window_stats.h) and, for
    // the vector rows, the tile's grids with even and odd columns apart.
    std::vector<float> rowStats_;
    long rowStride_ = 0;
    window_stats::Decimated decimated_;
};
