#include "autosample/auto_sample_index.h"

#include <algorithm>
#include <climits>
#include <cmath>

#include "base/ex.h"
#include "base/qtless/qobject.h"

using qtless::QObject;

namespace {

// Neighbouring cells of an extreme key wrap around in two's complement, as
// 32-bit cell arithmetic does; the wrapped cell is simply another bucket.
int32_t shifted(int32_t v, int d)
{
    return static_cast<int32_t>(static_cast<uint32_t>(v) + static_cast<uint32_t>(d));
}

}  // namespace

JAutoSampleIndex::JAutoSampleIndex()
    : spatialHeads_(nullptr), colourHeads_(nullptr), buckets_(0), cellSize_(1), colourCell_(1.0f),
      colourCellInv_(1.0f)
{
    init(4097, 128, 3.0f);
}

JAutoSampleIndex::~JAutoSampleIndex()
{
    clear();
    freeTables();
}

void JAutoSampleIndex::freeTables()
{
    delete[] spatialHeads_;
    delete[] colourHeads_;
    spatialHeads_ = nullptr;
    colourHeads_ = nullptr;
    buckets_ = 0;
}

void JAutoSampleIndex::init(int buckets, int cellSize, float colourCell)
{
    if (buckets <= 0 || cellSize <= 0)
        throw JEx(QObject::tr("Sample index needs positive bucket count and cell size, not %1 and %2")
                      .arg(buckets)
                      .arg(cellSize));
    clear();
    freeTables();
    spatialHeads_ = new JAutoSampleRec*[buckets]();
    colourHeads_ = new JAutoSampleRec*[buckets]();
    buckets_ = buckets;
    cellSize_ = cellSize;
    colourCell_ = colourCell;
    colourCellInv_ = 1.0f / colourCell;
}

void JAutoSampleIndex::clear()
{
    for (int i = 0; i < buckets_; i++) {
        JAutoSampleRec* r = spatialHeads_[i];
        while (r) {
            JAutoSampleRec* next = r->nextSpatial;
            delete r;
            r = next;
        }
        spatialHeads_[i] = nullptr;
        colourHeads_[i] = nullptr;
    }
    records_.clear();
}

uint32_t JAutoSampleIndex::hashKey(const int32_t* key, int n)
{
    uint32_t h = 0;
    for (int i = 0; i < n; i++) {
        const uint32_t k = static_cast<uint32_t>(key[i]);
        for (int shift = 24; shift >= 0; shift -= 8) {
            h = (h << 4) + ((k >> shift) & 0xFFu);
            const uint32_t g = h & 0xF0000000u;
            if (g != 0)
                h ^= g >> 24;
            h &= ~g;
        }
    }
    return h;
}

int32_t JAutoSampleIndex::cellIndex(float v)
{
    // Converting NaN or an out-of-range float to int is undefined; pin them
    // (NaN and below to INT_MIN, above to INT_MAX) instead.
    if (std::isnan(v) || v < -2147483648.0f)
        return INT_MIN;
    if (v >= 2147483648.0f)
        return INT_MAX;
    return static_cast<int32_t>(v);
}

int JAutoSampleIndex::bucketOf(const int32_t* key, int n) const
{
    return static_cast<int>(hashKey(key, n) % static_cast<uint32_t>(buckets_));
}

int JAutoSampleIndex::spatialBucket(const JAutoSampleRec* r) const
{
    const int32_t key[2] = {r->rect.left / cellSize_, r->rect.top / cellSize_};
    return bucketOf(key, 2);
}

int JAutoSampleIndex::colourBucket(const JAutoSampleRec* r) const
{
    const int32_t key[3] = {cellIndex(r->lab.L * colourCellInv_), cellIndex(r->lab.a * colourCellInv_),
                            cellIndex(r->lab.b * colourCellInv_)};
    return bucketOf(key, 3);
}

void JAutoSampleIndex::add(JAutoSampleRec* r)
{
    const int s = spatialBucket(r);
    r->nextSpatial = spatialHeads_[s];
    spatialHeads_[s] = r;
    const int c = colourBucket(r);
    r->nextColour = colourHeads_[c];
    colourHeads_[c] = r;
    records_.push_back(r);
}

void JAutoSampleIndex::remove(JAutoSampleRec* r)
{
    for (JAutoSampleRec** link = &spatialHeads_[spatialBucket(r)]; *link; link = &(*link)->nextSpatial) {
        if (*link == r) {
            *link = r->nextSpatial;
            break;
        }
    }
    for (JAutoSampleRec** link = &colourHeads_[colourBucket(r)]; *link; link = &(*link)->nextColour) {
        if (*link == r) {
            *link = r->nextColour;
            break;
        }
    }
    const auto at = std::find(records_.begin(), records_.end(), r);
    if (at != records_.end()) {
        *at = records_.back();
        records_.pop_back();
    }
    delete r;
}

void JAutoSampleIndex::findOverlapping(JAutoSampleRec* r, std::vector<JAutoSampleRec*>& out)
{
    out.clear();
    const int32_t x0 = r->rect.left / cellSize_;
    const int32_t y0 = r->rect.top / cellSize_;
    const int32_t x1 = r->rect.right / cellSize_;
    const int32_t y1 = r->rect.bottom / cellSize_;
    // 64-bit counters: a cell index of INT_MAX must still end the loop.
    for (long long y = static_cast<long long>(y0) - 1; y <= y1; y++) {
        for (long long x = static_cast<long long>(x0) - 1; x <= x1; x++) {
            const int32_t key[2] = {static_cast<int32_t>(x), static_cast<int32_t>(y)};
            for (JAutoSampleRec* e = spatialHeads_[bucketOf(key, 2)]; e; e = e->nextSpatial) {
                if (e->rect.intersects(r->rect))
                    out.push_back(e);
            }
        }
    }
}

void JAutoSampleIndex::findSimilar(JAutoSampleRec* r, std::vector<JAutoSampleRec*>& out)
{
    out.clear();
    const int32_t l = cellIndex(r->lab.L / colourCell_);
    const int32_t a = cellIndex(r->lab.a / colourCell_);
    const int32_t b = cellIndex(r->lab.b / colourCell_);
    const float limit = colourCell_ * colourCell_;
    for (int dl = -1; dl <= 1; dl++) {
        for (int da = -1; da <= 1; da++) {
            for (int db = -1; db <= 1; db++) {
                const int32_t key[3] = {shifted(l, dl), shifted(a, da), shifted(b, db)};
                for (JAutoSampleRec* e = colourHeads_[bucketOf(key, 3)]; e; e = e->nextColour) {
                    if (r->lab.deltaESqr(e->lab) < limit)
                        out.push_back(e);
                }
            }
        }
    }
}

// The cells a query walks, as findOverlapping and findSimilar compute them.
namespace {

struct SpatialRange {
    int32_t x0, y0, x1, y1;
};

SpatialRange spatialRange(const JAutoSampleRec* r, int cellSize)
{
    return {r->rect.left / cellSize, r->rect.top / cellSize, r->rect.right / cellSize, r->rect.bottom / cellSize};
}

// v is c - 1, c or c + 1 in 32-bit cell arithmetic.
bool nextTo(int32_t v, int32_t c)
{
    return static_cast<uint32_t>(v) - static_cast<uint32_t>(c) + 1u <= 2u;
}

}  // namespace

bool JAutoSampleIndex::probed(int bucket, std::vector<int>& buckets, bool& made, const JAutoSampleRec* r,
                              bool spatial) const
{
    if (!made) {
        buckets.clear();
        if (spatial) {
            const SpatialRange c = spatialRange(r, cellSize_);
            for (long long y = static_cast<long long>(c.y0) - 1; y <= c.y1; y++) {
                for (long long x = static_cast<long long>(c.x0) - 1; x <= c.x1; x++) {
                    const int32_t key[2] = {static_cast<int32_t>(x), static_cast<int32_t>(y)};
                    buckets.push_back(bucketOf(key, 2));
                }
            }
        } else {
            const int32_t l = cellIndex(r->lab.L / colourCell_);
            const int32_t a = cellIndex(r->lab.a / colourCell_);
            const int32_t b = cellIndex(r->lab.b / colourCell_);
            for (int dl = -1; dl <= 1; dl++) {
                for (int da = -1; da <= 1; da++) {
                    for (int db = -1; db <= 1; db++) {
                        const int32_t key[3] = {shifted(l, dl), shifted(a, da), shifted(b, db)};
                        buckets.push_back(bucketOf(key, 3));
                    }
                }
            }
        }
        made = true;
    }
    return std::find(buckets.begin(), buckets.end(), bucket) != buckets.end();
}

void JAutoSampleIndex::findOverlappingOnce(JAutoSampleRec* r, std::vector<JAutoSampleRec*>& out)
{
    out.clear();
    const SpatialRange c = spatialRange(r, cellSize_);
    bool made = false;
    for (JAutoSampleRec* e : records_) {
        if (!e->rect.intersects(r->rect))
            continue;
        // A record filed in one of the walked cells is found there; one filed
        // elsewhere only when its cell shares a bucket with a walked one.
        const long long x = e->rect.left / cellSize_;
        const long long y = e->rect.top / cellSize_;
        const bool walked = x >= static_cast<long long>(c.x0) - 1 && x <= c.x1 &&
                            y >= static_cast<long long>(c.y0) - 1 && y <= c.y1;
        if (walked || probed(spatialBucket(e), probedBuckets_, made, r, true))
            out.push_back(e);
    }
}

void JAutoSampleIndex::findSimilarOnce(JAutoSampleRec* r, std::vector<JAutoSampleRec*>& out)
{
    out.clear();
    const float limit = colourCell_ * colourCell_;
    bool made = false;
    for (JAutoSampleRec* e : records_) {
        if (!(r->lab.deltaESqr(e->lab) < limit))
            continue;
        const bool walked = nextTo(cellIndex(e->lab.L * colourCellInv_), cellIndex(r->lab.L / colourCell_)) &&
                            nextTo(cellIndex(e->lab.a * colourCellInv_), cellIndex(r->lab.a / colourCell_)) &&
                            nextTo(cellIndex(e->lab.b * colourCellInv_), cellIndex(r->lab.b / colourCell_));
        if (walked || probed(colourBucket(e), probedBuckets_, made, r, false))
            out.push_back(e);
    }
}

JAutoSampleIndexIter::JAutoSampleIndexIter(JAutoSampleIndex* index) : index_(index), bucket_(-1), current_(nullptr)
{
    advanceToBucketAfter(-1);
}

void JAutoSampleIndexIter::advanceToBucketAfter(int bucket)
{
    current_ = nullptr;
    for (bucket_ = bucket + 1; bucket_ < index_->buckets_; bucket_++) {
        if (index_->spatialHeads_[bucket_]) {
            current_ = index_->spatialHeads_[bucket_];
            return;
        }
    }
}

JAutoSampleRec* JAutoSampleIndexIter::next()
{
    JAutoSampleRec* r = current_;
    if (!r)
        return nullptr;
    current_ = r->nextSpatial;
    if (!current_)
        advanceToBucketAfter(bucket_);
    return r;
}
