// JAutoSampler: finds, without help, square patches of an image that are flat
// (free of edges and texture), so that the noise measured in them is noise and
// not detail, and keeps at most one patch per palette colour.
//
// The image is read in tiles of 1024 pixels stepping by 904; tiles of 127
// pixels or less in either direction are skipped. Each tile is scanned for
// candidate patches on its own (tile_scan.h): 8x8 block statistics, then
// patches of 4, 8 and 16 blocks tested for uniformity and (unless relaxed)
// for direction-free texture. The candidates then compete, tile by tile in
// order, in a JAutoSampleIndex against overlapping and like-coloured rivals,
// where a strictly smaller score wins and a tie goes to the newcomer. Finally
// each kept patch goes to its nearest palette slot, where the least noisy
// patch wins (the noisiest when relaxed).
//
// Threads: with setThreads(n), n > 1, the calling thread and n - 1 helpers
// scan tiles, at most 2n tiles ahead of the one being offered; the offers,
// progress reports, cancellation checks and the diagnostic line of each tile
// stay on the calling thread in tile order, so the result is the one a single
// thread finds, bit for bit. The image's getScanline is then called from all
// of them, one call at a time. Memory stays bounded by one tile of three
// float planes plus the block grids per thread, whatever the image size.
// One sample() at a time.
//
// What the threads buy: on the demo's 24-megapixel image (the whole profile
// measurement, image in memory) the calling thread's processor time fell
// from about 0.40 s to 0.26 s with two threads, the helper taking 0.17 s,
// so a free second core shortens the measurement by about a third. On the
// shared 2-core build machine with every core busy with other sessions'
// work they gained nothing and cost about a tenth more processor time.
#pragma once

#include <memory>
#include <vector>

#include "autosample/auto_sample_index.h"
#include "autosample/auto_sample_rec.h"
#include "autosample/tile_scan.h"
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
    // How many threads scan tiles in sample(), the calling thread among them;
    // 0 and 1 both mean the calling thread alone (the default).
    void setThreads(int n) { threads_ = n; }

    // Palette columns x rows, whether or not the slots hold a patch.
    int sampleCount();
    // Slot i = row * ncols + column; no bounds check. Skip records with valid 0.
    JAutoSampleRec* getSample(int i);

    // What the last sample() call did, for inspection: the tiles it loaded,
    // the candidate positions it examined at 4, 8 and 16 blocks (sizeIndex 0,
    // 1, 2), and the block grids of the last tile loaded.
    const std::vector<JRect<int>>& loadedTiles() const { return loadedTiles_; }
    int candidatesExamined(int sizeIndex) const { return examined_[sizeIndex]; }
    const JPixelRect& blockMeans() const { return scans_[lastScan_]->blockMeans(); }
    const JPixelRect& blockVars() const { return scans_[lastScan_]->blockVars(); }
    const JPixelRect& blockDirs() const { return scans_[lastScan_]->blockDirs(); }
    JAutoSampleIndex& index() { return index_; }

private:
    struct Tile;
    void reset();
    bool scanInOrder(JImageAdapter* image, const std::vector<Tile>& tiles, JStatus* status);
    bool scanInParallel(JImageAdapter* image, const std::vector<Tile>& tiles, int threads, JStatus* status);
    void merge(const JRect<int>& r, const JTileScan::Result& result, int scan);
    void offer(JAutoSampleRec& candidate);
    bool beatsAll(const JAutoSampleRec& candidate);
    void assignSlots();

    JAutoSampleRec* samples_;
    JAutoSampleIndex index_;
    int relaxed_;
    int threads_ = 1;
    // One scan per thread, the calling thread's first; lastScan_ did the
    // last tile offered.
    std::vector<std::unique_ptr<JTileScan>> scans_;
    int lastScan_ = 0;

    // Reused query results, so that candidates allocate nothing but their copy.
    std::vector<JAutoSampleRec*> found_;
    std::vector<JRect<int>> loadedTiles_;
    int examined_[3] = {0, 0, 0};
};
