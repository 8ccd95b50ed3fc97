// JAutoSampler: finds, without help, square patches of an image that are flat
// (free of edges and texture), so that the noise measured in them is noise and
// not detail, and keeps at most one patch per palette colour.
//
// The image is read in tiles of 1024 pixels stepping by 904; tiles of 127
// pixels or less in either direction are skipped. Each tile is cut into 8x8
// blocks (one block fewer than fits in each direction, so that the directional
// window of the last block stays inside the tile) with their mean and variance
// per channel and, unless relaxed, four directional roughness measures of Y.
// Patches of 4, 8 and 16 blocks at every second block are tested for
// uniformity and (unless relaxed) for direction-free texture; survivors
// compete in a JAutoSampleIndex against overlapping and like-coloured rivals,
// where a strictly smaller score wins and a tie goes to the newcomer. Finally
// each kept patch goes to its nearest palette slot, where the least noisy
// patch wins (the noisiest when relaxed).
//
// Memory stays bounded by one tile of three float planes plus the block grids,
// whatever the image size. One thread at a time.
#pragma once

#include <vector>

#include "autosample/auto_sample_index.h"
#include "autosample/auto_sample_rec.h"
#include "autosample/window_stats.h"
#include "base/image_adapter.h"
#include "base/rect.h"
#include "color/pixel_rect.h"

class JStatus;

class JAutoSampler {
public:
    // One empty slot per palette entry; an index of 32771 buckets, cells of
    // 128 pixels and a colour radius of 10 units.
    JAutoSampler();
    ~JAutoSampler();

    JAutoSampler(const JAutoSampler&) = delete;
    JAutoSampler& operator=(const JAutoSampler&) = delete;

    // Runs the whole search. Returns false when the user cancelled through
    // status (every slot then empty), true otherwise. status may be null.
    bool sample(JImageAdapter* image, bool relaxed, JStatus* status);

    // Palette columns x rows, whether or not the slots hold a patch.
    int sampleCount();
    // Slot i = row * ncols + column; no bounds check. Skip records with valid 0.
    JAutoSampleRec* getSample(int i);

    // What the last sample() call did, for inspection: the tiles it loaded,
    // the candidate positions it examined at 4, 8 and 16 blocks (sizeIndex 0,
    // 1, 2), and the block grids of the last tile loaded.
    const std::vector<JRect<int>>& loadedTiles() const { return loadedTiles_; }
    int candidatesExamined(int sizeIndex) const { return examined_[sizeIndex]; }
    const JPixelRect& blockMeans() const { return blockMeans_; }
    const JPixelRect& blockVars() const { return blockVars_; }
    const JPixelRect& blockDirs() const { return blockDirs_; }
    JAutoSampleIndex& index() { return index_; }

private:
    void reset();
    void computeBlockStats(const JPixelRect& tile);
    void searchCandidates(int s, int sizeIndex, int tileX, int tileY);
    // The tests of candidate j of the current row, whose statistics
    // computeRowStats has gathered.
    bool uniform(int j, int s, float& scoreY, float& meanVarY, float means[3]) const;
    bool directionFree(int j, int s) const;
    window_stats::Grids grids() const;
    void prepareRowStats();
    void computeRowStats(int by, int s);
    void offer(JAutoSampleRec& candidate);
    bool beatsAll(const JAutoSampleRec& candidate);
    void assignSlots();

    JAutoSampleRec* samples_;
    JPixelRect blockMeans_;
    JPixelRect blockVars_;
    JPixelRect blockDirs_;
    JAutoSampleIndex index_;
    int relaxed_;

    int gw_ = 0;
    int gh_ = 0;
    // The window statistics of one candidate row (window_stats.h) and, for
    // the vector rows, the tile's grids with even and odd columns apart.
    std::vector<float> rowStats_;
    long rowStride_ = 0;
    window_stats::Decimated decimated_;
    // Reused query results, so that candidates allocate nothing but their copy.
    std::vector<JAutoSampleRec*> found_;
    std::vector<JRect<int>> loadedTiles_;
    int examined_[3] = {0, 0, 0};
};
