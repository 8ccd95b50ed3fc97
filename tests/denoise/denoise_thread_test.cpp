#include "denoise/denoise_thread.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "denoise/raster/incr_raster.h"

namespace {

// Row y holds y in every pixel; counts computations per row.
class RowNode : public JIncrRaster {
public:
    RowNode(int w, int h, int throwAt = -1) : JIncrRaster(w, h), computed(h), throwAt_(throwAt)
    {
        for (auto& c : computed)
            c = 0;
    }
    void refInputs(int) override {}
    void computeScanline(int row, float* out) override
    {
        if (row == throwAt_)
            throw std::runtime_error("row failed");
        ++computed[row];
        for (int x = 0; x < width(); ++x)
            out[x] = static_cast<float>(row);
    }
    std::vector<std::atomic<int>> computed;

private:
    int throwAt_;
};

}  // namespace

TEST(DenoiseThreadThreadTest, WorkerThatNeverGotARequestStopsPromptlyOnDestruction)
{
    auto worker = std::make_unique<JDenoiseThread>(false);
    worker.reset();  // returns only once the thread has taken the stop request
    SUCCEED();
}

TEST(DenoiseThreadThreadTest, EmptyRangeRepliesWithoutTouchingTheRaster)
{
    RowNode node(4, 10);
    node.refScanline(5);
    JDenoiseThread worker(true);
    worker.postRequest(&node, 6, 5);
    worker.waitForReply();
    for (int y = 0; y < 10; ++y)
        EXPECT_EQ(node.computed[y].load(), 0);
    EXPECT_EQ(node.refCount(5), 1);
}

TEST(DenoiseThreadThreadTest, WorkerThatAlreadyStoppedIsNotAskedAgain)
{
    JDenoiseThread worker(false);
    worker.postRequest(nullptr, -1, -1);
    while (!worker.stopped())
        std::this_thread::yield();
    worker.stop();
    EXPECT_EQ(worker.requestsPosted(), 1);
    worker.stop();
    EXPECT_EQ(worker.requestsPosted(), 1);
}

TEST(DenoiseThreadThreadTest, StopPostsOneStopRequestAndEndsTheThread)
{
    auto worker = std::make_unique<JDenoiseThread>(false);
    RowNode node(3, 4);
    worker->postRequest(&node, 0, 1);
    worker->waitForReply();
    worker->stop();
    EXPECT_TRUE(worker->stopped());
    EXPECT_EQ(worker->requestsPosted(), 2);
    worker.reset();
}

TEST(DenoiseThreadThreadTest, WorkerEvaluatesAndReleasesEachRowOfTheRange)
{
    const int h = 20;
    RowNode node(5, h);
    for (int y = 0; y < h; ++y)
        node.refScanline(y);
    JDenoiseThread worker(false);
    worker.postRequest(&node, 3, 11);
    worker.waitForReply();
    for (int y = 0; y < h; ++y) {
        const bool inRange = y >= 3 && y <= 11;
        EXPECT_EQ(node.computed[y].load(), inRange ? 1 : 0) << y;
        EXPECT_EQ(node.refCount(y), inRange ? 0 : 1) << y;
        EXPECT_FALSE(node.rowPresent(y)) << y;
    }
}

namespace {

// Pulls every row of a fresh node through the workers, as the driver does:
// batches of perThread rows per worker; after the first reply of a batch the
// waiting thread helps the later workers when `help` is set. Every row must
// be computed once and released.
void expectBatchesComputeEachRowOnce(std::vector<std::unique_ptr<JDenoiseThread>>& workers, int h, int perThread,
                                     bool help)
{
    RowNode node(8, h);
    for (int y = 0; y < h; ++y)
        node.refScanline(y);
    int row = 0;
    while (row < h) {
        for (auto& w : workers) {
            const int first = row;
            const int last = std::min(row + perThread, h) - 1;
            w->postRequest(&node, first, last);
            row = last + 1;
        }
        for (size_t k = 0; k < workers.size(); ++k) {
            if (help && k > 0)
                workers[k]->helpThenWaitForReply();
            else
                workers[k]->waitForReply();
        }
    }
    for (int y = 0; y < h; ++y) {
        EXPECT_EQ(node.computed[y].load(), 1) << y;
        EXPECT_EQ(node.refCount(y), 0) << y;
    }
}

}  // namespace

TEST(DenoiseThreadThreadTest, WorkersShareOneGraphBatchByBatch)
{
    std::vector<std::unique_ptr<JDenoiseThread>> workers;
    for (int i = 0; i < 3; ++i)
        workers.push_back(std::make_unique<JDenoiseThread>(i == 0));
    expectBatchesComputeEachRowOnce(workers, 97, 7, false);
}

TEST(DenoiseThreadThreadTest, RowFailureIsRethrownOnTheWaitingThread)
{
    RowNode node(4, 8, 5);
    for (int y = 0; y < 8; ++y)
        node.refScanline(y);
    JDenoiseThread worker(false);
    worker.postRequest(&node, 0, 7);
    EXPECT_THROW(worker.waitForReply(), std::runtime_error);
    // The worker goes on serving requests afterwards.
    RowNode other(4, 4);
    for (int y = 0; y < 4; ++y)
        other.refScanline(y);
    worker.postRequest(&other, 0, 3);
    EXPECT_NO_THROW(worker.waitForReply());
    EXPECT_EQ(other.computed[3].load(), 1);
}

namespace {

// Row 0 is held back until every other row is done, and each row records the
// thread that computed it.
class HeldFirstRowNode : public JIncrRaster {
public:
    explicit HeldFirstRowNode(int h) : JIncrRaster(2, h), computedBy(h), done(0) {}
    void refInputs(int) override {}
    void computeScanline(int row, float* out) override
    {
        if (row == 0)
            while (done.load() < height() - 1)
                std::this_thread::yield();
        computedBy[row] = std::this_thread::get_id();
        out[0] = out[1] = static_cast<float>(row);
        if (row != 0)
            ++done;
    }
    std::vector<std::thread::id> computedBy;
    std::atomic<int> done;
};

}  // namespace

TEST(DenoiseThreadThreadTest, WaitingThreadPullsTheRowsTheWorkerHasNotReached)
{
    // The worker starts with row 0 and cannot finish it before the other
    // rows are done, so the waiting thread must have computed all of those.
    const int h = 12;
    HeldFirstRowNode node(h);
    for (int y = 0; y < h; ++y)
        node.refScanline(y);
    JDenoiseThread worker(false);
    worker.postRequest(&node, 0, h - 1);
    worker.helpThenWaitForReply();
    for (int y = 1; y < h; ++y) {
        EXPECT_EQ(node.computedBy[y], std::this_thread::get_id()) << y;
        EXPECT_EQ(node.refCount(y), 0) << y;
        EXPECT_FALSE(node.rowPresent(y)) << y;
    }
    EXPECT_EQ(node.refCount(0), 0);
}

TEST(DenoiseThreadThreadTest, EveryRowIsComputedOnceWhenWorkerAndWaiterShareARange)
{
    const int h = 400;
    RowNode node(16, h);
    for (int y = 0; y < h; ++y)
        node.refScanline(y);
    JDenoiseThread worker(false);
    for (int first = 0; first < h; first += 50) {
        worker.postRequest(&node, first, first + 49);
        worker.helpThenWaitForReply();
    }
    for (int y = 0; y < h; ++y) {
        EXPECT_EQ(node.computed[y].load(), 1) << y;
        EXPECT_EQ(node.refCount(y), 0) << y;
    }
}

namespace {

// Row 0 is held until released, and each row records the thread that
// computed it.
class GatedFirstRowNode : public JIncrRaster {
public:
    explicit GatedFirstRowNode(int h) : JIncrRaster(2, h), computedBy(h) {}
    void refInputs(int) override {}
    void computeScanline(int row, float* out) override
    {
        if (row == 0) {
            entered.store(true);
            while (!release.load())
                std::this_thread::yield();
        }
        computedBy[row] = std::this_thread::get_id();
        ++computed;
        out[0] = out[1] = static_cast<float>(row);
    }
    std::vector<std::thread::id> computedBy;
    std::atomic<int> computed{0};
    std::atomic<bool> entered{false};
    std::atomic<bool> release{false};
};

// Two peers: `busy` is posted every row of the node and held in row 0, then
// `idle` is posted an empty range, so that all it does is take busy's rows.
void startWithTheFirstWorkerHeld(GatedFirstRowNode& node, JDenoiseThread& busy, JDenoiseThread& idle,
                                 const std::vector<JDenoiseThread*>& peers)
{
    const int h = node.height();
    for (int y = 0; y < h; ++y)
        node.refScanline(y);
    busy.setPeers(&peers);
    idle.setPeers(&peers);
    busy.postRequest(&node, 0, h - 1);
    while (!node.entered.load())
        std::this_thread::yield();
    idle.postRequest(&node, h, h - 1);
}

}  // namespace

TEST(DenoiseThreadThreadTest, WorkerWhoseRowsAreDoneTakesTheRowsOfABusyPeer)
{
    // The first worker is held in row 0 of its range; its peer, whose own
    // range is empty, must take every other row of it before replying.
    const int h = 20;
    GatedFirstRowNode node(h);
    JDenoiseThread busy(false), idle(false);
    const std::vector<JDenoiseThread*> peers = {&busy, &idle};
    startWithTheFirstWorkerHeld(node, busy, idle, peers);
    idle.waitForReply();
    EXPECT_EQ(node.computed.load(), h - 1);
    node.release.store(true);
    busy.waitForReply();
    const std::thread::id held = node.computedBy[0];
    EXPECT_NE(held, std::this_thread::get_id());
    for (int y = 1; y < h; ++y) {
        EXPECT_NE(node.computedBy[y], held) << y;
        EXPECT_NE(node.computedBy[y], std::this_thread::get_id()) << y;
    }
    for (int y = 0; y < h; ++y) {
        EXPECT_EQ(node.refCount(y), 0) << y;
        EXPECT_FALSE(node.rowPresent(y)) << y;
    }
}

TEST(DenoiseThreadThreadTest, PeersComputeEveryRowOnceBatchByBatch)
{
    std::vector<std::unique_ptr<JDenoiseThread>> workers;
    std::vector<JDenoiseThread*> peers;
    for (int i = 0; i < 3; ++i) {
        workers.push_back(std::make_unique<JDenoiseThread>(false));
        peers.push_back(workers.back().get());
    }
    for (auto& w : workers)
        w->setPeers(&peers);
    expectBatchesComputeEachRowOnce(workers, 301, 13, true);
}

TEST(DenoiseThreadThreadTest, RowFailureOnAPeerIsRethrownByTheWorkerWhoseRequestItWas)
{
    // The peer takes the upper half of the held worker's range, where row
    // 15 fails: the failure belongs to the held worker's request.
    const int h = 20;
    struct FailingGatedNode : GatedFirstRowNode {
        FailingGatedNode() : GatedFirstRowNode(20) {}
        void computeScanline(int row, float* out) override
        {
            if (row == 15)
                throw std::runtime_error("row 15 failed");
            GatedFirstRowNode::computeScanline(row, out);
        }
    } node;
    JDenoiseThread busy(false), idle(false);
    const std::vector<JDenoiseThread*> peers = {&busy, &idle};
    startWithTheFirstWorkerHeld(node, busy, idle, peers);
    EXPECT_NO_THROW(idle.waitForReply());
    node.release.store(true);
    EXPECT_THROW(busy.waitForReply(), std::runtime_error);
    // The rest of the request was abandoned: rows after the failed one stayed
    // uncomputed.
    for (int y = 16; y < h; ++y)
        EXPECT_EQ(node.computedBy[y], std::thread::id()) << y;
    // Both go on serving requests afterwards.
    RowNode other(4, 6);
    for (int y = 0; y < 6; ++y)
        other.refScanline(y);
    busy.postRequest(&other, 0, 2);
    idle.postRequest(&other, 3, 5);
    EXPECT_NO_THROW(busy.waitForReply());
    EXPECT_NO_THROW(idle.waitForReply());
    for (int y = 0; y < 6; ++y)
        EXPECT_EQ(other.computed[y].load(), 1) << y;
}

TEST(DenoiseThreadThreadTest, RowFailureOnTheHelpingThreadIsRethrownAfterTheReply)
{
    // The waiting thread starts with the upper half, where row 7 fails.
    RowNode node(4, 8, 7);
    for (int y = 0; y < 8; ++y)
        node.refScanline(y);
    JDenoiseThread worker(false);
    worker.postRequest(&node, 0, 7);
    EXPECT_THROW(worker.helpThenWaitForReply(), std::runtime_error);
    RowNode other(4, 4);
    for (int y = 0; y < 4; ++y)
        other.refScanline(y);
    worker.postRequest(&other, 0, 3);
    EXPECT_NO_THROW(worker.helpThenWaitForReply());
    for (int y = 0; y < 4; ++y)
        EXPECT_EQ(other.computed[y].load(), 1) << y;
}

namespace {

// A RowNode that counts commits and can be made slow.
class CommitNode : public RowNode {
public:
    CommitNode(int w, int h, int delayMs = 0) : RowNode(w, h), commits(h), delayMs_(delayMs)
    {
        for (auto& c : commits)
            c = 0;
    }
    void computeScanline(int row, float* out) override
    {
        if (delayMs_ > 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(delayMs_));
        RowNode::computeScanline(row, out);
    }
    void commitRow(int row) override { ++commits[row]; }
    std::vector<std::atomic<int>> commits;

private:
    int delayMs_;
};

// References rows 0..n-1, as the driver references every row before a strip.
void referenceRows(JIncrRaster& node, int n)
{
    for (int row = 0; row < n; ++row)
        node.refScanline(row);
}

// Waits (up to a minute) until every row of first..last has been computed.
bool waitForComputed(const RowNode& node, int first, int last)
{
    for (int i = 0; i < 60000; ++i) {
        bool all = true;
        for (int row = first; row <= last; ++row)
            all = all && node.computed[row].load() > 0;
        if (all)
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

}  // namespace

TEST(DenoiseThreadThreadTest, AfterItsReplyAWorkerComputesTheRowsItExpectsNextAndLeavesThemToTheirRequest)
{
    CommitNode node(4, 12);
    referenceRows(node, 8);
    JDenoiseThread worker(false);
    worker.postRequest(&node, 0, 3, 4, 7);
    worker.waitForReply();
    ASSERT_TRUE(waitForComputed(node, 4, 7));
    for (int row = 4; row < 8; ++row) {
        EXPECT_EQ(node.commits[row].load(), 0) << row;
        EXPECT_EQ(node.refCount(row), 1) << row;
    }
    for (int row = 0; row < 4; ++row) {
        EXPECT_EQ(node.commits[row].load(), 1) << row;
        EXPECT_EQ(node.refCount(row), 0) << row;
    }
    // The request that hands them out pulls, commits and releases them,
    // without computing them again.
    worker.postRequest(&node, 4, 7);
    worker.waitForReply();
    for (int row = 4; row < 8; ++row) {
        EXPECT_EQ(node.computed[row].load(), 1) << row;
        EXPECT_EQ(node.commits[row].load(), 1) << row;
        EXPECT_EQ(node.refCount(row), 0) << row;
        EXPECT_FALSE(node.rowPresent(row)) << row;
    }
    EXPECT_EQ(node.computed[8].load(), 0);
}

TEST(DenoiseThreadThreadTest, TheNextRequestStopsTheWorkOnRowsAhead)
{
    const int h = 400;
    CommitNode node(4, h, 5);
    referenceRows(node, h);
    JDenoiseThread worker(false);
    worker.postRequest(&node, 0, 0, 1, h - 1);
    worker.waitForReply();
    ASSERT_TRUE(waitForComputed(node, 1, 1));
    // An empty request: once it is answered, the worker computes no more rows.
    worker.postRequest(&node, 0, -1);
    worker.waitForReply();
    int computed = 0;
    for (int row = 1; row < h; ++row)
        computed += node.computed[row].load();
    EXPECT_LT(computed, h - 1);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    int later = 0;
    for (int row = 1; row < h; ++row)
        later += node.computed[row].load();
    EXPECT_EQ(later, computed);
}

TEST(DenoiseThreadThreadTest, ARowAheadThatFailsIsComputedAgainByItsRequestWhichReportsTheFailure)
{
    RowNode node(4, 8, 5);
    referenceRows(node, 8);
    JDenoiseThread worker(false);
    worker.postRequest(&node, 0, 1, 2, 7);
    worker.waitForReply();
    ASSERT_TRUE(waitForComputed(node, 2, 4));
    // The work ahead stops at the failing row (give it the time to get
    // there); the next request meets the failure again and reports it.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    worker.postRequest(&node, 2, 7);
    EXPECT_THROW(worker.waitForReply(), std::runtime_error);
    EXPECT_EQ(node.computed[6].load(), 0);
    EXPECT_EQ(node.computed[7].load(), 0);
}
