#include "autosample/auto_sample_index.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "base/ex.h"

namespace {

JAutoSampleRec* makeRec(int l, int t, int r, int b, float L = 50.0f, float a = 0.0f, float bb = 0.0f,
                        float score = 1.0f)
{
    JAutoSampleRec* rec = new JAutoSampleRec;
    rec->rect = JRect<int>(l, t, r, b);
    rec->lab = JLabCoord(L, a, bb);
    rec->score = score;
    rec->valid = 1;
    return rec;
}

std::vector<JAutoSampleRec*> iterate(JAutoSampleIndex& index)
{
    std::vector<JAutoSampleRec*> out;
    JAutoSampleIndexIter it(&index);
    while (it.hasMore())
        out.push_back(it.next());
    return out;
}

int count(const std::vector<JAutoSampleRec*>& v, const JAutoSampleRec* r)
{
    int n = 0;
    for (const JAutoSampleRec* e : v)
        n += e == r;
    return n;
}

uint32_t bucketOf(std::initializer_list<int32_t> key, int buckets)
{
    std::vector<int32_t> k(key);
    return JAutoSampleIndex::hashKey(k.data(), static_cast<int>(k.size())) % static_cast<uint32_t>(buckets);
}

}  // namespace

TEST(AutoSampleIndexTest, DefaultIndexHas4097BucketsCellsOf128AndColourCellOf3)
{
    JAutoSampleIndex index;
    EXPECT_EQ(index.buckets(), 4097);
    EXPECT_EQ(index.cellSize(), 128);
    EXPECT_EQ(index.colourCell(), 3.0f);
    EXPECT_TRUE(iterate(index).empty());
}

TEST(AutoSampleIndexTest, ElfHashMatchesHandComputation)
{
    // (1, 2): bytes 00 00 00 01 00 00 00 02. h = 1 after the fourth byte, then
    // shifts by four per byte: 0x10, 0x100, 0x1000, and 0x10000 + 2 = 0x10002.
    // The top nibble never fills, so no folding.
    const int32_t k12[2] = {1, 2};
    EXPECT_EQ(JAutoSampleIndex::hashKey(k12, 2), 0x10002u);

    // (-1, 0): bytes FF FF FF FF 00 00 00 00.
    //   FF: 0xFF; FF: 0xFF0 + 0xFF = 0x10EF; FF: 0x10FEF; FF: 0x10FFEF;
    //   00: 0x10FFEF0; 00: 0x10FFEF00, g = 0x10000000: h ^ 0x10 = 0x10FFEF10,
    //       minus g = 0x00FFEF10;
    //   00: 0x0FFEF100; 00: 0xFFEF1000, g = 0xF0000000: h ^ 0xF0 = 0xFFEF10F0,
    //       minus g = 0x0FEF10F0.
    const int32_t km10[2] = {-1, 0};
    EXPECT_EQ(JAutoSampleIndex::hashKey(km10, 2), 0x0FEF10F0u);

    // (1, 2, 3): 0x10002 as above, then 00: 0x100020; 00: 0x1000200;
    //   00: 0x10002000, g = 0x10000000: ^ 0x10 = 0x10002010, minus g = 0x2010;
    //   03: 0x20100 + 3 = 0x20103.
    const int32_t k123[3] = {1, 2, 3};
    EXPECT_EQ(JAutoSampleIndex::hashKey(k123, 3), 0x20103u);

    const int32_t k00[2] = {0, 0};
    EXPECT_EQ(JAutoSampleIndex::hashKey(k00, 2), 0u);
}

TEST(AutoSampleIndexTest, RecordIsFiledUnderTheCellOfItsTopLeftCorner)
{
    JAutoSampleIndex index;
    index.init(32771, 128, 10.0f);
    // Corner (130, 260) lies in cell (1, 2): hash 0x10002 = 65538, and
    // 65538 - 32771 = 32767.
    JAutoSampleRec* r = makeRec(130, 260, 250, 380, 25.0f, -5.0f, 15.0f);
    index.add(r);
    EXPECT_EQ(index.spatialBucket(r), 32767);
    EXPECT_EQ(index.spatialHead(32767), r);
    // Colour (25, -5, 15) times 0.1 truncates to cell (2, 0, 1).
    const int cb = static_cast<int>(bucketOf({2, 0, 1}, 32771));
    EXPECT_EQ(index.colourBucket(r), cb);
    EXPECT_EQ(index.colourHead(cb), r);
}

TEST(AutoSampleIndexTest, NegativeCoordinatesTruncateTowardZero)
{
    JAutoSampleIndex index;
    // -100 / 128 is 0 (not -1), -200 / 128 is -1.
    JAutoSampleRec* r = makeRec(-100, -200, 0, 0);
    index.add(r);
    EXPECT_EQ(index.spatialBucket(r), static_cast<int>(bucketOf({0, -1}, 4097)));
    EXPECT_EQ(index.spatialHead(static_cast<int>(bucketOf({0, -1}, 4097))), r);
}

TEST(AutoSampleIndexTest, ColourCellTruncatesTowardZeroAndPinsNaNAndOverflow)
{
    EXPECT_EQ(JAutoSampleIndex::cellIndex(2.9f), 2);
    EXPECT_EQ(JAutoSampleIndex::cellIndex(-0.5f), 0);
    EXPECT_EQ(JAutoSampleIndex::cellIndex(-1.5f), -1);
    EXPECT_EQ(JAutoSampleIndex::cellIndex(std::numeric_limits<float>::quiet_NaN()), INT_MIN);
    EXPECT_EQ(JAutoSampleIndex::cellIndex(-1e20f), INT_MIN);
    EXPECT_EQ(JAutoSampleIndex::cellIndex(1e20f), INT_MAX);
    EXPECT_EQ(JAutoSampleIndex::cellIndex(-std::numeric_limits<float>::infinity()), INT_MIN);
}

TEST(AutoSampleIndexTest, NaNColourIsFiledAndFoundWithoutFault)
{
    JAutoSampleIndex index;
    const float nan = std::numeric_limits<float>::quiet_NaN();
    JAutoSampleRec* r = makeRec(0, 0, 32, 32, nan, nan, nan);
    index.add(r);
    const int cb = static_cast<int>(bucketOf({INT_MIN, INT_MIN, INT_MIN}, 4097));
    EXPECT_EQ(index.colourHead(cb), r);
    // NaN is never within any distance, and the probe's neighbour cells wrap.
    std::vector<JAutoSampleRec*> out;
    index.findSimilar(r, out);
    EXPECT_TRUE(out.empty());
    index.remove(r);
    EXPECT_EQ(index.colourHead(cb), nullptr);
}

TEST(AutoSampleIndexTest, ColourKeyMultipliesInAddButDividesInFindSimilar)
{
    JAutoSampleIndex index;  // colour cell 3: 1/3 rounds to 0.33333334f
    // Just below 15: times 0.33333334f rounds up to 5.0, divided by 3 gives
    // 4.9999995. The record is filed in cell 5, the probe's own cell is 4.
    const float L = std::nextafter(15.0f, 0.0f);
    ASSERT_EQ(static_cast<int>(L * (1.0f / 3.0f)), 5);
    ASSERT_EQ(static_cast<int>(L / 3.0f), 4);
    JAutoSampleRec* r = makeRec(0, 0, 32, 32, L, 0.0f, 0.0f);
    index.add(r);
    ASSERT_NE(bucketOf({5, 0, 0}, 4097), bucketOf({4, 0, 0}, 4097));
    EXPECT_EQ(index.colourBucket(r), static_cast<int>(bucketOf({5, 0, 0}, 4097)));
    EXPECT_EQ(index.colourHead(bucketOf({5, 0, 0}, 4097)), r);
    // Cell 5 is a neighbour of the probe's cell 4, so the record is found.
    std::vector<JAutoSampleRec*> out;
    index.findSimilar(r, out);
    EXPECT_EQ(count(out, r), 1);
}

TEST(AutoSampleIndexTest, QueryOnEmptyIndexEmptiesTheResult)
{
    JAutoSampleIndex index;
    JAutoSampleRec probe;
    probe.rect = JRect<int>(0, 0, 64, 64);
    probe.lab = JLabCoord(50.0f, 0.0f, 0.0f);
    std::vector<JAutoSampleRec*> out = {&probe, &probe};
    index.findOverlapping(&probe, out);
    EXPECT_TRUE(out.empty());
    out = {&probe};
    index.findSimilar(&probe, out);
    EXPECT_TRUE(out.empty());
}

TEST(AutoSampleIndexTest, RectanglesThatOnlyTouchDoNotOverlap)
{
    JAutoSampleIndex index;
    JAutoSampleRec* left = makeRec(0, 0, 64, 64);
    JAutoSampleRec* below = makeRec(64, 64, 128, 128);
    index.add(left);
    index.add(below);
    JAutoSampleRec probe;
    probe.rect = JRect<int>(64, 0, 128, 64);  // touches left's right edge and below's top edge
    std::vector<JAutoSampleRec*> out;
    index.findOverlapping(&probe, out);
    EXPECT_TRUE(out.empty());
    probe.rect = JRect<int>(63, 0, 128, 64);  // one column into left
    index.findOverlapping(&probe, out);
    EXPECT_EQ(count(out, left), 1);
    EXPECT_EQ(count(out, below), 0);
}

TEST(AutoSampleIndexTest, FindOverlappingReachesOneCellLeftAndAbove)
{
    JAutoSampleIndex index;
    // Filed in cell (0, 0), reaching into cell (1, 1).
    JAutoSampleRec* r = makeRec(100, 100, 228, 228);
    index.add(r);
    JAutoSampleRec probe;
    probe.rect = JRect<int>(200, 200, 232, 232);  // corner cell (1, 1)
    std::vector<JAutoSampleRec*> out;
    index.findOverlapping(&probe, out);
    EXPECT_EQ(count(out, r), 1);
}

TEST(AutoSampleIndexTest, RecordWiderThanACellIsMissedTwoCellsAway)
{
    JAutoSampleIndex index;
    // Filed in cell (0, 0) although it spans three cells: the scan from a
    // probe in cell 2 starts at cell 1 and does not see it.
    JAutoSampleRec* wide = makeRec(0, 0, 400, 10);
    index.add(wide);
    JAutoSampleRec probe;
    probe.rect = JRect<int>(300, 0, 310, 10);
    std::vector<JAutoSampleRec*> out;
    index.findOverlapping(&probe, out);
    EXPECT_TRUE(out.empty());
}

TEST(AutoSampleIndexTest, SimilarityIsStrictlyBelowTheColourCell)
{
    JAutoSampleIndex index;
    index.init(32771, 128, 10.0f);
    JAutoSampleRec* r = makeRec(0, 0, 32, 32, 50.0f, 0.0f, 0.0f);
    index.add(r);
    JAutoSampleRec probe;
    probe.rect = JRect<int>(500, 500, 532, 532);
    probe.lab = JLabCoord(60.0f, 0.0f, 0.0f);  // deltaESqr exactly 100
    std::vector<JAutoSampleRec*> out;
    index.findSimilar(&probe, out);
    EXPECT_TRUE(out.empty());
    probe.lab = JLabCoord(56.0f, 6.0f, 0.0f);  // 36 + 36 = 72 < 100
    index.findSimilar(&probe, out);
    EXPECT_EQ(count(out, r), 1);
    probe.lab = JLabCoord(50.0f, 6.0f, 8.0f);  // 36 + 64 = 100, not below
    index.findSimilar(&probe, out);
    EXPECT_TRUE(out.empty());
}

TEST(AutoSampleIndexTest, CellsSharingABucketListARecordMoreThanOnce)
{
    JAutoSampleIndex index;
    index.init(1, 128, 10.0f);  // every cell in bucket 0
    JAutoSampleRec* r = makeRec(0, 0, 32, 32, 50.0f, 0.0f, 0.0f);
    index.add(r);
    std::vector<JAutoSampleRec*> out;
    // Cells x -1..0 by y -1..0: four walks of the one chain.
    index.findOverlapping(r, out);
    EXPECT_EQ(out.size(), 4u);
    EXPECT_EQ(count(out, r), 4);
    // 27 colour cells, all in bucket 0.
    index.findSimilar(r, out);
    EXPECT_EQ(out.size(), 27u);
    // Removing it once leaves both tables empty.
    index.remove(r);
    EXPECT_EQ(index.spatialHead(0), nullptr);
    EXPECT_EQ(index.colourHead(0), nullptr);
}

TEST(AutoSampleIndexTest, RemovingTheHeadMakesItsSuccessorTheHead)
{
    JAutoSampleIndex index;
    JAutoSampleRec* older = makeRec(0, 0, 32, 32, 50.0f, 1.0f, 1.0f);
    JAutoSampleRec* newer = makeRec(10, 10, 42, 42, 50.0f, 1.0f, 1.0f);
    index.add(older);
    index.add(newer);
    const int sb = index.spatialBucket(older);
    const int cb = index.colourBucket(older);
    ASSERT_EQ(index.spatialBucket(newer), sb);
    ASSERT_EQ(index.colourBucket(newer), cb);
    EXPECT_EQ(index.spatialHead(sb), newer);
    EXPECT_EQ(index.colourHead(cb), newer);
    EXPECT_EQ(newer->nextSpatial, older);
    EXPECT_EQ(newer->nextColour, older);
    index.remove(newer);
    EXPECT_EQ(index.spatialHead(sb), older);
    EXPECT_EQ(index.colourHead(cb), older);
}

TEST(AutoSampleIndexTest, RemovingFromTheMiddleUnlinksFromBothChains)
{
    JAutoSampleIndex index;
    JAutoSampleRec* a = makeRec(0, 0, 32, 32, 50.0f, 1.0f, 1.0f);
    JAutoSampleRec* b = makeRec(10, 10, 42, 42, 50.0f, 1.0f, 1.0f);
    JAutoSampleRec* c = makeRec(20, 20, 52, 52, 50.0f, 1.0f, 1.0f);
    index.add(a);
    index.add(b);
    index.add(c);
    index.remove(b);
    const int sb = index.spatialBucket(a);
    const int cb = index.colourBucket(a);
    EXPECT_EQ(index.spatialHead(sb), c);
    EXPECT_EQ(c->nextSpatial, a);
    EXPECT_EQ(index.colourHead(cb), c);
    EXPECT_EQ(c->nextColour, a);
    EXPECT_EQ(a->nextSpatial, nullptr);
    EXPECT_EQ(a->nextColour, nullptr);
    EXPECT_EQ(iterate(index), (std::vector<JAutoSampleRec*>{c, a}));
}

TEST(AutoSampleIndexTest, RemovingARecordThatIsNotIndexedFreesItAndKeepsTheChains)
{
    JAutoSampleIndex index;
    JAutoSampleRec* a = makeRec(0, 0, 32, 32);
    index.add(a);
    JAutoSampleRec* stranger = makeRec(0, 0, 32, 32);  // same keys, never added
    index.remove(stranger);  // freed; the sanitizer build checks for a leak
    EXPECT_EQ(index.spatialHead(index.spatialBucket(a)), a);
    EXPECT_EQ(index.colourHead(index.colourBucket(a)), a);
    EXPECT_EQ(iterate(index), (std::vector<JAutoSampleRec*>{a}));
}

TEST(AutoSampleIndexTest, ClearFollowedByAddWorksWithoutInit)
{
    JAutoSampleIndex index;
    index.add(makeRec(0, 0, 32, 32));
    index.add(makeRec(500, 500, 532, 532, 80.0f));
    index.clear();
    EXPECT_TRUE(iterate(index).empty());
    JAutoSampleRec* r = makeRec(0, 0, 32, 32);
    index.add(r);
    EXPECT_EQ(iterate(index), (std::vector<JAutoSampleRec*>{r}));
    std::vector<JAutoSampleRec*> out;
    index.findOverlapping(r, out);
    EXPECT_EQ(count(out, r), static_cast<int>(out.size()));
    EXPECT_GE(out.size(), 1u);
}

TEST(AutoSampleIndexTest, InitWithNewBucketCountDiscardsAllRecords)
{
    JAutoSampleIndex index;
    index.add(makeRec(0, 0, 32, 32));
    index.add(makeRec(300, 0, 332, 32));
    index.init(7, 64, 5.0f);
    EXPECT_EQ(index.buckets(), 7);
    EXPECT_EQ(index.cellSize(), 64);
    EXPECT_EQ(index.colourCell(), 5.0f);
    EXPECT_TRUE(iterate(index).empty());
    JAutoSampleRec* r = makeRec(0, 0, 32, 32);
    index.add(r);
    EXPECT_EQ(iterate(index), (std::vector<JAutoSampleRec*>{r}));
}

TEST(AutoSampleIndexTest, InitRejectsNonPositiveSizes)
{
    JAutoSampleIndex index;
    EXPECT_THROW(index.init(0, 128, 3.0f), JEx);
    EXPECT_THROW(index.init(7, 0, 3.0f), JEx);
    EXPECT_EQ(index.buckets(), 4097);  // unchanged
}

TEST(AutoSampleIndexTest, IterationRunsInBucketOrderThenNewestFirst)
{
    JAutoSampleIndex index;
    index.init(7, 128, 10.0f);
    // Cell (0, 0): hash 0, bucket 0. Cell (0, 1): hash 1, bucket 1.
    // Cell (1, 2): hash 0x10002 = 65538 = 7 * 9362 + 4, bucket 4.
    JAutoSampleRec* a = makeRec(0, 0, 32, 32);
    JAutoSampleRec* b = makeRec(128, 256, 160, 288);
    JAutoSampleRec* c = makeRec(0, 128, 32, 160);
    JAutoSampleRec* d = makeRec(40, 40, 72, 72);
    index.add(a);
    index.add(b);
    index.add(c);
    index.add(d);
    ASSERT_EQ(index.spatialBucket(a), 0);
    ASSERT_EQ(index.spatialBucket(c), 1);
    ASSERT_EQ(index.spatialBucket(b), 4);
    EXPECT_EQ(iterate(index), (std::vector<JAutoSampleRec*>{d, a, c, b}));
}

TEST(AutoSampleIndexTest, IteratorOverEmptyIndexHasNothing)
{
    JAutoSampleIndex index;
    JAutoSampleIndexIter it(&index);
    EXPECT_FALSE(it.hasMore());
    EXPECT_EQ(it.next(), nullptr);
}

namespace {

// The records of a query result, each once, in address order.
std::vector<JAutoSampleRec*> asSet(std::vector<JAutoSampleRec*> v)
{
    std::sort(v.begin(), v.end());
    v.erase(std::unique(v.begin(), v.end()), v.end());
    return v;
}

// Random records on a small area of image and colour, many of them on cell
// boundaries (multiples of the cell size, of the colour cell and just
// beside), some at negative coordinates and a few with NaN colours.
JAutoSampleRec* randomRec(std::mt19937& rng)
{
    auto coord = [&](int span) {
        const int v = static_cast<int>(rng() % static_cast<unsigned>(2 * span)) - span / 2;
        return rng() % 3 == 0 ? v / 128 * 128 + static_cast<int>(rng() % 3) - 1 : v;
    };
    auto colour = [&](float lo, float hi) {
        const float v = lo + (hi - lo) * static_cast<float>(rng() % 100000) / 100000.0f;
        switch (rng() % 6) {
        case 0: return std::round(v / 10.0f) * 10.0f;
        case 1: return std::nextafter(std::round(v / 10.0f) * 10.0f, -1e9f);
        case 2: return std::nextafter(std::round(v / 10.0f) * 10.0f, 1e9f);
        default: return v;
        }
    };
    const int l = coord(700), t = coord(700);
    const int side = 32 << (rng() % 4);  // up to twice a cell, which the hashed query can miss
    const float L = rng() % 50 == 0 ? std::numeric_limits<float>::quiet_NaN() : colour(0.0f, 60.0f);
    return makeRec(l, t, l + side, t + side, L, colour(-30.0f, 30.0f), colour(-30.0f, 30.0f),
                   static_cast<float>(rng() % 10));
}

}  // namespace

// The sampler's queries list exactly the records the hashed queries list,
// each once, whatever the bucket count (one bucket makes every cell share a
// chain, small counts make distant cells collide), as records come and go.
TEST(AutoSampleIndexTest, OnceQueriesListTheHashedQueriesRecordsOnce)
{
    std::mt19937 rng(20261124u);
    for (int buckets : {1, 7, 101, 32771}) {
        JAutoSampleIndex index;
        index.init(buckets, 128, 10.0f);
        std::vector<JAutoSampleRec*> hashed, once;
        for (int step = 0; step < 600; step++) {
            JAutoSampleRec* probe = randomRec(rng);
            index.findOverlapping(probe, hashed);
            index.findOverlappingOnce(probe, once);
            ASSERT_EQ(once.size(), asSet(once).size());
            ASSERT_EQ(asSet(once), asSet(hashed)) << "overlapping, buckets " << buckets << " step " << step;
            index.findSimilar(probe, hashed);
            index.findSimilarOnce(probe, once);
            ASSERT_EQ(once.size(), asSet(once).size());
            ASSERT_EQ(asSet(once), asSet(hashed)) << "similar, buckets " << buckets << " step " << step;
            // Keep the index at a few dozen records: remove what was found
            // now and then, add the probe otherwise.
            if (!once.empty() && rng() % 3 == 0) {
                for (JAutoSampleRec* e : asSet(once))
                    index.remove(e);
                delete probe;
            } else {
                index.add(probe);
            }
        }
    }
}
