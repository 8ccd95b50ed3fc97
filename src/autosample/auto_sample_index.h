// JAutoSampleIndex: the patches the auto sampler has accepted so far, filed in
// two hash tables at once so that a new candidate finds its rivals quickly:
// those that overlap it in the image and those of nearly the same colour.
//
// Both tables chain through the records themselves (nextSpatial, nextColour)
// and push new records at the head of their bucket, so chains run newest
// first. The index owns its records; remove() and clear() free them.
//
// Keys are two or three 32-bit ints hashed with the ELF hash over their bytes,
// most significant byte first; the bucket is the hash modulo the bucket count.
//   spatial key: (left / cellSize, top / cellSize), the top-left corner's cell
//   colour key:  (L, a, b) * (1 / colourCell) truncated toward zero in add and
//                remove, but L / colourCell etc. in findSimilar; the two can
//                differ on a cell boundary, and the queries tolerate it.
// Different cells can share a bucket, so a query may walk a chain twice and
// return a record more than once; callers must tolerate repeated entries.
#pragma once

#include <cstdint>
#include <vector>

#include "autosample/auto_sample_rec.h"

class JAutoSampleIndex {
public:
    // Empty tables of 4097 buckets, cells of 128 pixels and 3.0 colour units.
    JAutoSampleIndex();
    ~JAutoSampleIndex();

    JAutoSampleIndex(const JAutoSampleIndex&) = delete;
    JAutoSampleIndex& operator=(const JAutoSampleIndex&) = delete;

    // Frees every record, then makes two tables of `buckets` empty chains.
    // Throws JEx unless buckets and cellSize are positive.
    void init(int buckets, int cellSize, float colourCell);
    // Frees every record; the tables keep their size.
    void clear();

    // Takes ownership of r and files it at the head of both of its chains.
    void add(JAutoSampleRec* r);
    // Unlinks r from the chains its keys name (a chain that does not hold it
    // is left alone) and frees it, whether or not it was indexed.
    void remove(JAutoSampleRec* r);

    // Clears out, then appends every record whose rect intersects r's, from
    // the cells one to the left of and above r's corner cell to its far
    // corner's cell. Relies on no record being larger than a cell.
    void findOverlapping(JAutoSampleRec* r, std::vector<JAutoSampleRec*>& out);
    // Clears out, then appends every record from the 27 colour cells around
    // r's whose deltaESqr to r is strictly below colourCell^2.
    void findSimilar(JAutoSampleRec* r, std::vector<JAutoSampleRec*>& out);

    // The same records as findOverlapping and findSimilar, each listed once,
    // in no particular order: the sampler only asks whether any rival beats a
    // candidate and then removes them all. They test every record of the
    // index instead of hashing each neighbouring cell, which for the few
    // dozen records a sampler keeps is much the cheaper; a record qualifies
    // when it passes the query's test and its chain is one the query walks.
    // On the demo's 24-megapixel image some 200000 candidates reach both
    // queries; hashing their cells took a tenth of the measurement.
    void findOverlappingOnce(JAutoSampleRec* r, std::vector<JAutoSampleRec*>& out);
    void findSimilarOnce(JAutoSampleRec* r, std::vector<JAutoSampleRec*>& out);

    int buckets() const { return buckets_; }
    int cellSize() const { return cellSize_; }
    float colourCell() const { return colourCell_; }

    // The ELF hash of n key ints, their bytes most significant first.
    static uint32_t hashKey(const int32_t* key, int n);
    // Float to cell index by truncation toward zero; NaN gives INT_MIN.
    static int32_t cellIndex(float v);
    // The buckets a record is filed under.
    int spatialBucket(const JAutoSampleRec* r) const;
    int colourBucket(const JAutoSampleRec* r) const;
    // Chain heads, for inspection.
    JAutoSampleRec* spatialHead(int bucket) const { return spatialHeads_[bucket]; }
    JAutoSampleRec* colourHead(int bucket) const { return colourHeads_[bucket]; }

private:
    friend class JAutoSampleIndexIter;

    int bucketOf(const int32_t* key, int n) const;
    void freeTables();
    // Whether bucket is one of those the query's cells hash to; the list is
    // made on first use per query.
    bool probed(int bucket, std::vector<int>& buckets, bool& made, const JAutoSampleRec* r, bool spatial) const;

    JAutoSampleRec** spatialHeads_;
    JAutoSampleRec** colourHeads_;
    int buckets_;
    int cellSize_;
    float colourCell_;
    float colourCellInv_;
    // Every record, in no particular order.
    std::vector<JAutoSampleRec*> records_;
    std::vector<int> probedBuckets_;
};

// Walks every record of an index: spatial buckets 0, 1, ... in turn, each
// chain from its head (newest first). The index must not change meanwhile.
class JAutoSampleIndexIter {
public:
    explicit JAutoSampleIndexIter(JAutoSampleIndex* index);

    bool hasMore() const { return current_ != nullptr; }
    // The current record; then moves to the next one.
    JAutoSampleRec* next();

private:
    void advanceToBucketAfter(int bucket);

    JAutoSampleIndex* index_;
    int bucket_;
    JAutoSampleRec* current_;
};
