#include "denoise/raster/incr_raster.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/bits.h"

namespace {

// A source node whose pixel (x, y) of channel k is y * 1000 + x + k / 10,
// counting computations and refInputs calls per row.
class CountingNode : public JIncrRaster {
public:
    CountingNode(int w, int h, DataType type = Plane)
        : JIncrRaster(w, h), computed(h), referenced(h)
    {
        setDataType(type);
        for (int i = 0; i < h; ++i) {
            computed[i] = 0;
            referenced[i] = 0;
        }
    }

    static float value(int x, int y, int k) { return static_cast<float>(y * 1000 + x) + static_cast<float>(k) / 10.0f; }

    void computeScanline(int row, float* out) override
    {
        ++computed[row];
        const int c = channels();
        for (int x = 0; x < width(); ++x)
            for (int k = 0; k < c; ++k)
                out[x * c + k] = value(x, row, k);
    }
    void refInputs(int row) override { ++referenced[row]; }

    std::vector<std::atomic<int>> computed;
    std::vector<std::atomic<int>> referenced;
};

// out = in(y - 1) + in(y + 1): reads two input rows and drops them when done.
class PairSumNode : public JIncrRaster {
public:
    explicit PairSumNode(JIncrRaster& in) : JIncrRaster(in.width(), in.height()), in_(in) {}

    void refInputs(int row) override
    {
        in_.refScanline(row - 1);
        in_.refScanline(row + 1);
    }
    void computeScanline(int row, float* out) override
    {
        const float* a = in_.getScanline(row - 1);
        const float* b = in_.getScanline(row + 1);
        for (int x = 0; x < width(); ++x)
            out[x] = a[x] + b[x];
        in_.unrefScanline(row - 1);
        in_.unrefScanline(row + 1);
    }

private:
    JIncrRaster& in_;
};

// Holds its computation until released, so that a second reader arrives while
// the row is busy.
class GateNode : public JIncrRaster {
public:
    GateNode(int w, int h) : JIncrRaster(w, h) {}
    void refInputs(int) override {}
    void computeScanline(int row, float* out) override
    {
        ++computations;
        entered.store(true);
        while (!release.load())
            std::this_thread::yield();
        for (int x = 0; x < width(); ++x)
            out[x] = static_cast<float>(row + x);
    }
    std::atomic<int> computations{0};
    std::atomic<bool> entered{false};
    std::atomic<bool> release{false};
};

// A gate node whose first computation throws once released; later ones
// succeed, so a reader that arrives after the failure computes the row anew.
class FailingGateNode : public GateNode {
public:
    FailingGateNode(int w, int h) : GateNode(w, h) {}
    void computeScanline(int row, float* out) override
    {
        const bool first = computations.load() == 0;
        GateNode::computeScanline(row, out);
        if (first)
            throw std::runtime_error("row " + std::to_string(row) + " failed");
    }
};

}  // namespace

TEST(IncrRasterTest, HeightOneMapsEveryRowToRowZero)
{
    CountingNode n(4, 1);
    for (int y : {-1000, -3, -2, -1, 0, 1, 2, 3, 17, 1000})
        EXPECT_EQ(n.mirrorRow(y), 0) << "row " << y;
}

TEST(IncrRasterTest, MirrorTableForHeightTen)
{
    CountingNode n(4, 10);
    EXPECT_EQ(n.mirrorRow(-1), 1);
    EXPECT_EQ(n.mirrorRow(-2), 2);
    EXPECT_EQ(n.mirrorRow(10), 8);
    EXPECT_EQ(n.mirrorRow(11), 7);
    EXPECT_EQ(n.mirrorRow(-10), 9);
    EXPECT_EQ(n.mirrorRow(-11), 8);
    EXPECT_EQ(n.mirrorRow(18), 0);
    EXPECT_EQ(n.mirrorRow(19), 0);
    EXPECT_EQ(n.mirrorRow(20), 1);
    for (int y = 0; y < 10; ++y)
        EXPECT_EQ(n.mirrorRow(y), y);
}

TEST(IncrRasterTest, MirroredRowsShareTheStoredRowSlot)
{
    CountingNode n(3, 10);
    n.refScanline(-1);
    EXPECT_EQ(n.refCount(1), 1);
    float* p = n.getScanline(-1);
    EXPECT_EQ(p, n.getScanline(1));
    EXPECT_EQ(p[2], CountingNode::value(2, 1, 0));
    EXPECT_EQ(n.computed[1].load(), 1);
    n.unrefScanline(1);
    EXPECT_FALSE(n.rowPresent(-1));
}

TEST(IncrRasterTest, MarginMirrorsWithoutEdgeRepetitionAndSlackIsZero)
{
    const int w = 7, m = 5;
    CountingNode n(w, 3);
    n.requestReflection(m);
    n.refScanline(1);
    const float* row = n.getScanline(1);
    EXPECT_EQ(row[-1], row[1]);
    EXPECT_EQ(row[w], row[w - 2]);
    for (int i = 0; i <= m; ++i) {
        EXPECT_EQ(row[-i], CountingNode::value(i, 1, 0)) << i;
        EXPECT_EQ(row[w - 1 + i], CountingNode::value(w - 1 - i, 1, 0)) << i;
    }
    for (int k = 0; k < 4; ++k)
        EXPECT_EQ(murmex_test::floatBits(row[w + m + k]), 0u) << k;
    n.unrefScanline(1);
}

TEST(IncrRasterTest, RowsNarrowerThanTheMarginStillMirror)
{
    CountingNode two(2, 1);
    two.requestReflection(3);
    two.refScanline(0);
    const float* r = two.getScanline(0);
    // Pixels -3..4 of a two-pixel row reflect back and forth: 1 0 1 | 0 1 | 0 1 0.
    const int expect[] = {1, 0, 1, 0, 1, 0, 1, 0};
    for (int x = -3; x <= 4; ++x)
        EXPECT_EQ(r[x], CountingNode::value(expect[x + 3], 0, 0)) << x;
    two.unrefScanline(0);

    CountingNode one(1, 1);
    one.requestReflection(4);
    one.refScanline(0);
    const float* p = one.getScanline(0);
    for (int x = -4; x <= 4; ++x)
        EXPECT_EQ(p[x], CountingNode::value(0, 0, 0)) << x;
    for (int k = 0; k < 4; ++k)
        EXPECT_EQ(murmex_test::floatBits(p[5 + k]), 0u);
    one.unrefScanline(0);
}

TEST(IncrRasterTest, FourFloatPixelsMirrorWholePixels)
{
    const int w = 5, m = 3;
    CountingNode n(w, 2, JIncrRaster::RGBX);
    n.requestReflection(m);
    n.refScanline(0);
    const float* row = n.getScanline(0);
    for (int i = 1; i <= m; ++i)
        for (int k = 0; k < 4; ++k) {
            EXPECT_EQ(row[-i * 4 + k], CountingNode::value(i, 0, k));
            EXPECT_EQ(row[(w - 1 + i) * 4 + k], CountingNode::value(w - 1 - i, 0, k));
        }
    // The 16 bytes after the right margin: one RGBX pixel of zeros.
    for (int k = 0; k < 4; ++k)
        EXPECT_EQ(murmex_test::floatBits(row[(w + m) * 4 + k]), 0u);
    n.unrefScanline(0);
}

TEST(IncrRasterTest, DataPointerIsSixteenByteAligned)
{
    for (int m : {0, 1, 3, 6}) {
        CountingNode n(13, 4);
        n.requestReflection(m);
        for (int y = 0; y < 4; ++y) {
            n.refScanline(y);
            EXPECT_EQ(reinterpret_cast<uintptr_t>(n.getScanline(y)) % 16, 0u) << "margin " << m;
        }
        for (int y = 0; y < 4; ++y)
            n.unrefScanline(y);
    }
}

TEST(IncrRasterThreadTest, TwoThreadsPullingOneRowComputeItOnce)
{
    GateNode n(8, 4);
    n.refScanline(2);
    float* first = nullptr;
    float* second = nullptr;
    std::thread a([&] { first = n.getScanline(2); });
    while (!n.entered.load())
        std::this_thread::yield();
    std::atomic<bool> secondDone{false};
    std::thread b([&] {
        second = n.getScanline(2);
        secondDone.store(true);
    });
    // The second reader cannot finish while the row is being computed.
    for (int i = 0; i < 1000; ++i)
        std::this_thread::yield();
    EXPECT_FALSE(secondDone.load());
    n.release.store(true);
    a.join();
    b.join();
    EXPECT_EQ(n.computations.load(), 1);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first, second);
    for (int x = 0; x < 8; ++x)
        EXPECT_EQ(second[x], static_cast<float>(2 + x));
    n.unrefScanline(2);
}

TEST(IncrRasterThreadTest, ReaderWaitingOnARowWhoseComputationThrowsGetsTheFailure)
{
    // The second reader has to be waiting when the computation throws; on a
    // busy machine it may arrive late, so the scene is repeated until it did.
    bool waited = false;
    for (int attempt = 0; attempt < 20 && !waited; ++attempt) {
        FailingGateNode n(8, 4);
        n.refScanline(1);
        std::string firstError, secondError;
        float* second = nullptr;
        std::thread a([&] {
            try {
                n.getScanline(1);
            } catch (const std::runtime_error& e) {
                firstError = e.what();
            }
        });
        while (!n.entered.load())
            std::this_thread::yield();
        std::atomic<bool> started{false};
        std::thread b([&] {
            started.store(true);
            try {
                second = n.getScanline(1);
            } catch (const std::runtime_error& e) {
                secondError = e.what();
            }
        });
        while (!started.load())
            std::this_thread::yield();
        for (int i = 0; i < 1000; ++i)
            std::this_thread::yield();
        n.release.store(true);
        a.join();
        b.join();
        EXPECT_EQ(firstError, "row 1 failed");
        if (n.computations.load() == 1) {
            waited = true;
            EXPECT_EQ(second, nullptr);
            EXPECT_EQ(secondError, "row 1 failed");
        } else {
            // Arrived after the failure: the row was computed anew.
            ASSERT_NE(second, nullptr);
            EXPECT_EQ(second[3], 4.0f);
        }
        EXPECT_EQ(n.pooledBuffers() + (n.rowPresent(1) ? 1 : 0), 1);
        n.unrefScanline(1);
    }
    EXPECT_TRUE(waited);
}

TEST(IncrRasterThreadTest, ManyThreadsPullingAGraphComputeEachRowOnce)
{
    const int w = 33, h = 40;
    CountingNode src(w, h);
    PairSumNode sum(src);
    for (int y = 0; y < h; ++y)
        sum.refScanline(y);
    // Each thread keeps what it read; every thread reads every row.
    std::vector<std::vector<float>> seen(4, std::vector<float>(static_cast<size_t>(w) * h));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < h; ++i) {
                const int y = (i * 7 + t * 3) % h;
                const float* r = sum.getScanline(y);
                for (int x = 0; x < w; ++x)
                    seen[t][static_cast<size_t>(y) * w + x] = r[x];
            }
        });
    for (auto& th : threads)
        th.join();
    for (int y = 0; y < h; ++y) {
        EXPECT_EQ(sum.getScanline(y), sum.getScanline(y));
        for (int t = 0; t < 4; ++t)
            for (int x = 0; x < w; ++x)
                EXPECT_EQ(seen[t][static_cast<size_t>(y) * w + x],
                          CountingNode::value(x, src.mirrorRow(y - 1), 0) + CountingNode::value(x, src.mirrorRow(y + 1), 0));
        sum.unrefScanline(y);
    }
    for (int y = 0; y < h; ++y)
        EXPECT_EQ(src.computed[y].load(), 1) << y;  // every reference was taken before any pull
    for (int y = 0; y < h; ++y) {
        EXPECT_EQ(src.refCount(y), 0) << y;
        EXPECT_FALSE(src.rowPresent(y)) << y;
        EXPECT_FALSE(sum.rowPresent(y)) << y;
    }
}

TEST(IncrRasterThreadTest, ReferencesCrossingZeroOnManyThreadsLeaveNoReferenceBehind)
{
    // Counts above one change without the node lock; every crossing of zero
    // must still run refInputs (on the way up) or pool the row and leave its
    // inputs released (on the way down), never both at once.
    const int w = 9, h = 5;
    CountingNode src(w, h);
    PairSumNode sum(src);
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 3000; ++i) {
                const int y = (i + t) % h;
                sum.refScanline(y);
                const float* r = sum.getScanline(y);
                const float expected =
                    CountingNode::value(2, src.mirrorRow(y - 1), 0) + CountingNode::value(2, src.mirrorRow(y + 1), 0);
                if (r[2] != expected)
                    ++wrong;
                sum.unrefScanline(y);
            }
        });
    for (auto& th : threads)
        th.join();
    EXPECT_EQ(wrong.load(), 0);
    for (int y = 0; y < h; ++y) {
        EXPECT_EQ(sum.refCount(y), 0) << y;
        EXPECT_FALSE(sum.rowPresent(y)) << y;
        EXPECT_EQ(src.refCount(y), 0) << y;
        EXPECT_FALSE(src.rowPresent(y)) << y;
    }
}

TEST(IncrRasterTest, RowReleasedToZeroAndReferencedAgainIsRecomputedWithItsInputs)
{
    CountingNode src(6, 8);
    PairSumNode sum(src);
    sum.refScanline(3);
    EXPECT_EQ(src.refCount(2), 1);
    EXPECT_EQ(src.refCount(4), 1);
    sum.getScanline(3);
    EXPECT_EQ(src.computed[2].load(), 1);
    // The computation dropped its input references again.
    EXPECT_EQ(src.refCount(2), 0);
    EXPECT_FALSE(src.rowPresent(2));
    sum.unrefScanline(3);
    EXPECT_FALSE(sum.rowPresent(3));

    sum.refScanline(3);
    EXPECT_EQ(src.referenced[2].load(), 2);
    EXPECT_EQ(src.referenced[4].load(), 2);
    EXPECT_EQ(sum.getScanline(3)[1], CountingNode::value(1, 2, 0) + CountingNode::value(1, 4, 0));
    EXPECT_EQ(src.computed[2].load(), 2);
    EXPECT_EQ(src.computed[4].load(), 2);
    sum.unrefScanline(3);
}

TEST(IncrRasterTest, RefInputsRunsOnlyOnTheFirstReference)
{
    CountingNode n(4, 4);
    n.refScanline(1);
    n.refScanline(1);
    n.refScanline(-1);
    EXPECT_EQ(n.referenced[1].load(), 1);
    EXPECT_EQ(n.refCount(1), 3);
    n.getScanline(1);
    n.unrefScanline(1);
    n.unrefScanline(1);
    EXPECT_TRUE(n.rowPresent(1));
    n.unrefScanline(1);
    EXPECT_FALSE(n.rowPresent(1));
    EXPECT_EQ(n.pooledBuffers(), 1);
}

TEST(IncrRasterTest, ExtraUnrefDrivesTheCountNegativeWithoutReport)
{
    CountingNode n(4, 4);
    n.unrefScanline(2);
    EXPECT_EQ(n.refCount(2), -1);
}

TEST(IncrRasterTest, RowFetchedWithoutReferenceStaysCached)
{
    CountingNode n(4, 4);
    n.getScanline(0);
    n.getScanline(0);
    EXPECT_EQ(n.computed[0].load(), 1);
    EXPECT_TRUE(n.rowPresent(0));
}

TEST(IncrRasterTest, PoolReusesTheNewestBufferFirst)
{
    CountingNode n(16, 6);
    n.refScanline(0);
    n.refScanline(1);
    float* a = n.getScanline(0);
    float* b = n.getScanline(1);
    n.unrefScanline(0);
    n.unrefScanline(1);
    EXPECT_EQ(n.pooledBuffers(), 2);
    n.refScanline(4);
    EXPECT_EQ(n.getScanline(4), b);
    n.refScanline(5);
    EXPECT_EQ(n.getScanline(5), a);
    EXPECT_EQ(n.pooledBuffers(), 0);
    n.unrefScanline(4);
    n.unrefScanline(5);
}

TEST(IncrRasterTest, SmallerReflectionRequestKeepsMarginButEmptiesPool)
{
    CountingNode n(8, 4);
    n.requestReflection(6);
    EXPECT_EQ(n.margin(), 6);
    n.refScanline(0);
    n.getScanline(0);
    n.unrefScanline(0);
    EXPECT_EQ(n.pooledBuffers(), 1);
    n.requestReflection(2);
    EXPECT_EQ(n.margin(), 6);
    EXPECT_EQ(n.pooledBuffers(), 0);
    n.requestReflection(9);
    EXPECT_EQ(n.margin(), 9);
}

TEST(IncrRasterTest, CopyScanlineCopiesMarginsAndSlack)
{
    const int w = 9, m = 4;
    CountingNode n(w, 3);
    n.requestReflection(m);
    n.refScanline(2);
    const float* src = n.getScanline(2);
    const int count = (w + 2 * m) + 16;
    std::vector<float> dstBuf(count + 64, -7.0f);
    float* dst = dstBuf.data() + m;
    n.copyScanline(2, dst);
    for (int i = -m; i < w + m + 16 - m; ++i)
        EXPECT_EQ(murmex_test::floatBits(dst[i]), murmex_test::floatBits(src[i])) << i;
    // Nothing beyond the element count is written.
    EXPECT_EQ(dst[-m + count], -7.0f);
    n.unrefScanline(2);
}

TEST(IncrRasterTest, CopyScanlineOfFourFloatPixelsCopiesOnlyThePlaneCount)
{
    const int w = 6, m = 2;
    CountingNode n(w, 2, JIncrRaster::RGBX);
    n.requestReflection(m);
    n.refScanline(0);
    const float* src = n.getScanline(0);
    const int count = (w + 2 * m) + 16;  // deliberately not times four
    std::vector<float> dstBuf(4 * (w + 2 * m) + 64, -7.0f);
    float* dst = dstBuf.data() + 4 * m;
    n.copyScanline(0, dst);
    for (int i = 0; i < count; ++i)
        EXPECT_EQ(dst[-4 * m + i], src[-4 * m + i]) << i;
    EXPECT_EQ(dst[-4 * m + count], -7.0f);
    n.unrefScanline(0);
}

TEST(IncrRasterTest, AvgScanlinesAveragesElementwise)
{
    const int w = 5, m = 3;
    CountingNode n(w, 6);
    n.requestReflection(m);
    n.refScanline(1);
    n.refScanline(4);
    const float* a = n.getScanline(1);
    const float* b = n.getScanline(4);
    const int count = (w + 2 * m) + 16;
    std::vector<float> dstBuf(count + 8);
    float* dst = dstBuf.data() + m;
    n.avgScanlines(1, 4, dst);
    for (int i = 0; i < count; ++i)
        EXPECT_EQ(dst[-m + i], (a[-m + i] + b[-m + i]) * 0.5f) << i;
    EXPECT_EQ(dst[0], (CountingNode::value(0, 1, 0) + CountingNode::value(0, 4, 0)) * 0.5f);
    n.unrefScanline(1);
    n.unrefScanline(4);
}

TEST(IncrRasterTest, TurboAndDataTypeAreStored)
{
    CountingNode n(4, 4);
    EXPECT_FALSE(n.turbo());
    EXPECT_EQ(n.dataType(), JIncrRaster::Plane);
    EXPECT_EQ(n.channels(), 1);
    n.setTurbo(true);
    EXPECT_TRUE(n.turbo());
    n.setDataType(JIncrRaster::Pair);
    EXPECT_EQ(n.channels(), 2);
    CountingNode other(4, 4);
    n.requireDataType(JIncrRaster::RGBX, other);  // documents only; never fails
    EXPECT_EQ(static_cast<int>(JIncrRaster::RGBX), 1);
    EXPECT_EQ(static_cast<int>(JIncrRaster::Pair), 2);
}

namespace {

// Odd rows reference this node's own rows y - 1 and y + 1, as a node averaging
// its own rows does; even rows reference the input row y.
class OwnRowsNode : public JIncrRaster {
public:
    explicit OwnRowsNode(JIncrRaster& in) : JIncrRaster(in.width(), in.height()), in_(in) {}
    void refInputs(int row) override
    {
        if (row & 1) {
            refScanline(row - 1);
            refScanline(row + 1);
        } else {
            in_.refScanline(row);
        }
    }

private:
    JIncrRaster& in_;
};

// refInputs throws for one row.
class FailingRefNode : public JIncrRaster {
public:
    FailingRefNode(int w, int h, int failing) : JIncrRaster(w, h), failing_(failing) {}
    void refInputs(int row) override
    {
        ++calls;
        if (row == failing_)
            throw std::runtime_error("no inputs for row " + std::to_string(row));
    }
    int calls = 0;

private:
    int failing_;
};

// Every node's count of every row after referencing rows -3 .. h + 2 of the
// top of CountingNode <- PairSumNode <- OwnRowsNode, with one row unreferenced
// beforehand so that its count starts below zero.
std::vector<int> countsAfterReferencing(bool alone)
{
    const int w = 5, h = 9;
    CountingNode src(w, h);
    PairSumNode sum(src);
    OwnRowsNode top(sum);
    for (JIncrRaster* node : {static_cast<JIncrRaster*>(&src), static_cast<JIncrRaster*>(&sum),
                              static_cast<JIncrRaster*>(&top)})
        node->setReferencingAlone(alone);
    sum.unrefScanline(4);
    for (int y = -3; y < h + 3; ++y)
        top.refScanline(y);
    std::vector<int> counts;
    for (int y = 0; y < h; ++y) {
        counts.push_back(src.refCount(y));
        counts.push_back(src.referenced[y].load());
        counts.push_back(sum.refCount(y));
        counts.push_back(top.refCount(y));
    }
    return counts;
}

}  // namespace

TEST(IncrRasterTest, ReferencingAloneCountsAsTheLockedReferencesDo)
{
    const std::vector<int> locked = countsAfterReferencing(false);
    EXPECT_EQ(countsAfterReferencing(true), locked);
    // The graph is referenced through mirrored rows, own rows and a negative
    // count: not a trivial comparison.
    EXPECT_NE(std::count(locked.begin(), locked.end(), 0), static_cast<long>(locked.size()));
}

TEST(IncrRasterTest, ReferencingAloneRowsArePulledAndReleasedAsUsual)
{
    CountingNode src(6, 8);
    PairSumNode sum(src);
    src.setReferencingAlone(true);
    sum.setReferencingAlone(true);
    for (int y = 0; y < 8; ++y)
        sum.refScanline(y);
    src.setReferencingAlone(false);
    sum.setReferencingAlone(false);
    for (int y = 0; y < 8; ++y) {
        const float* r = sum.getScanline(y);
        EXPECT_EQ(r[3], CountingNode::value(3, src.mirrorRow(y - 1), 0) + CountingNode::value(3, src.mirrorRow(y + 1), 0));
        sum.unrefScanline(y);
    }
    for (int y = 0; y < 8; ++y) {
        EXPECT_EQ(src.computed[y].load(), 1) << y;
        EXPECT_EQ(src.refCount(y), 0) << y;
        EXPECT_FALSE(src.rowPresent(y)) << y;
        EXPECT_FALSE(sum.rowPresent(y)) << y;
    }
}

TEST(IncrRasterTest, AFailingFirstReferenceStillCountsAloneOrNot)
{
    for (const bool alone : {false, true}) {
        FailingRefNode n(4, 6, 2);
        n.setReferencingAlone(alone);
        EXPECT_THROW(n.refScanline(2), std::runtime_error) << alone;
        EXPECT_EQ(n.refCount(2), 1) << alone;
        n.refScanline(2);
        EXPECT_EQ(n.refCount(2), 2) << alone;
        EXPECT_EQ(n.calls, 1) << alone;
    }
}

// Runs fn on a thread of its own that uses worker pool `pool` (0: the shared
// pool alone), and waits for it.
template <class Fn>
void onPoolThread(int pool, Fn fn)
{
    std::thread t([&] {
        JIncrRaster::setThreadPool(pool);
        fn();
    });
    t.join();
}

// Computes row y on the calling thread and drops it again; returns its buffer's data pointer.
float* computeAndDrop(JIncrRaster& n, int y)
{
    n.refScanline(y);
    float* data = n.getScanline(y);
    n.unrefScanline(y);
    return data;
}

TEST(IncrRasterThreadTest, AWorkerGetsBackTheBuffersItFreedAndNoOtherThreadDoes)
{
    CountingNode n(16, 8);
    float* a = nullptr;
    float* b = nullptr;
    onPoolThread(1, [&] {
        n.refScanline(0);
        n.refScanline(1);
        a = n.getScanline(0);
        b = n.getScanline(1);
        n.unrefScanline(0);
        n.unrefScanline(1);
    });
    EXPECT_EQ(n.pooledBuffers(), 2);
    float* other = nullptr;
    onPoolThread(2, [&] { other = computeAndDrop(n, 2); });
    float* shared = nullptr;
    onPoolThread(0, [&] { shared = computeAndDrop(n, 3); });
    EXPECT_NE(other, a);
    EXPECT_NE(other, b);
    EXPECT_NE(shared, a);
    EXPECT_NE(shared, b);
    // Newest first, as the shared pool.
    float* again[2] = {};
    onPoolThread(1, [&] {
        n.refScanline(4);
        n.refScanline(5);
        again[0] = n.getScanline(4);
        again[1] = n.getScanline(5);
        n.unrefScanline(4);
        n.unrefScanline(5);
    });
    EXPECT_EQ(again[0], b);
    EXPECT_EQ(again[1], a);
}

// Has worker 1 compute rows first.. first + count - 1 and drop them again;
// returns their buffers' data pointers in that order.
std::vector<float*> freedByWorkerOne(JIncrRaster& n, int first, int count)
{
    std::vector<float*> freed;
    onPoolThread(1, [&] {
        for (int y = first; y < first + count; ++y)
            n.refScanline(y);
        for (int y = first; y < first + count; ++y)
            freed.push_back(n.getScanline(y));
        for (int y = first; y < first + count; ++y)
            n.unrefScanline(y);
    });
    return freed;
}

TEST(IncrRasterThreadTest, BuffersBeyondAWorkersFullPoolStayWithinEveryThreadsReach)
{
    const int rows = JIncrRaster::kThreadPoolBuffers + 3;
    // Another worker, and a thread without a pool of its own.
    for (const int pool : {2, 0}) {
        CountingNode n(16, rows + 4);
        const std::vector<float*> freed = freedByWorkerOne(n, 0, rows);
        EXPECT_EQ(n.pooledBuffers(), rows);
        // The last three went past worker 1's pool. With the shared pool
        // empty, any thread takes them, the newest first, before it makes a
        // new buffer.
        float* taken[4] = {};
        onPoolThread(pool, [&] {
            for (int k = 0; k < 4; ++k) {
                n.refScanline(rows + k);
                taken[k] = n.getScanline(rows + k);
            }
        });
        for (int k = 0; k < 3; ++k)
            EXPECT_EQ(taken[k], freed[rows - 1 - k]) << pool << " " << k;
        EXPECT_EQ(std::find(freed.begin(), freed.end(), taken[3]), freed.end()) << pool;
        EXPECT_EQ(n.pooledBuffers(), rows - 3) << pool;
        for (int k = 0; k < 4; ++k)
            n.unrefScanline(rows + k);
    }
}

TEST(IncrRasterThreadTest, AWorkerGetsBackEveryBufferItFreedBeforeAnyOtherThreadsOne)
{
    const int rows = JIncrRaster::kThreadPoolBuffers + 3;
    CountingNode n(16, 2 * rows + 1);
    // This thread has no pool of its own: the buffer of its row goes to the
    // shared pool, after worker 1 has freed more than its pool holds.
    n.refScanline(rows);
    float* shared = n.getScanline(rows);
    const std::vector<float*> freed = freedByWorkerOne(n, 0, rows);
    n.unrefScanline(rows);
    std::vector<float*> taken;
    onPoolThread(1, [&] {
        for (int y = rows + 1; y <= 2 * rows; ++y) {
            n.refScanline(y);
            taken.push_back(n.getScanline(y));
        }
    });
    std::vector<float*> mine = freed;
    std::sort(mine.begin(), mine.end());
    std::sort(taken.begin(), taken.end());
    EXPECT_EQ(taken, mine);
    EXPECT_EQ(std::find(taken.begin(), taken.end(), shared), taken.end());
    EXPECT_EQ(n.pooledBuffers(), 1);
    for (int y = rows + 1; y <= 2 * rows; ++y)
        n.unrefScanline(y);
}

TEST(IncrRasterThreadTest, AnIndexOutsideTheWorkerPoolsUsesTheSharedPool)
{
    for (int pool : {-1, JIncrRaster::kThreadPools + 1}) {
        CountingNode n(16, 4);
        float* freed = nullptr;
        onPoolThread(pool, [&] { freed = computeAndDrop(n, 0); });
        float* taken = nullptr;
        onPoolThread(0, [&] { taken = computeAndDrop(n, 1); });
        EXPECT_EQ(taken, freed) << pool;
    }
}

TEST(IncrRasterThreadTest, RaisingTheMarginEmptiesTheWorkerPoolsToo)
{
    CountingNode n(8, 4);
    onPoolThread(1, [&] { computeAndDrop(n, 0); });
    onPoolThread(JIncrRaster::kThreadPools, [&] { computeAndDrop(n, 1); });
    EXPECT_EQ(n.pooledBuffers(), 2);
    n.requestReflection(5);
    EXPECT_EQ(n.pooledBuffers(), 0);
    // Rows laid out afterwards carry the new margin.
    onPoolThread(1, [&] {
        n.refScanline(2);
        const float* row = n.getScanline(2);
        EXPECT_EQ(row[-5], row[5]);
        n.unrefScanline(2);
    });
}
