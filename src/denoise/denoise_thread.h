// JDenoiseThread: a long-lived worker of the denoise driver. The driver posts
// one request at a time (a node and a range of rows); the worker pulls those
// rows of the node, releases each, and replies. Requests and replies pass
// through two one-slot signals, so a post must always be followed by
// waitForReply() before the next post.
//
// A worker that has replied computes the rows it expects next while it waits
// for the next request, so that the end of a batch, where some threads wait
// for the last rows, does not leave a processor idle. Those rows only get
// computed; the request that hands them out pulls them as any other.
//
// Rows of a request are claimed one at a time under the request lock, each by
// exactly one thread; every row is still pulled and released once, and which
// thread computes it does not change the row. Two kinds of thread besides the
// worker may claim them:
// - Peers. Workers given the same peer list (all the workers of one driver)
//   take rows from one another once their own are done: a worker whose range
//   is empty takes the upper half of the largest range left among its peers
//   and pulls it from the front, where it can be split again in turn. It
//   replies only when no peer has a row left, so the batch's rows stay spread
//   over all the workers to its end, while the driver still sleeps in its
//   first waitForReply(). A peer's request is the driver's request of the
//   same batch: the driver posts the next batch only after every reply.
// - The thread that waits for the reply (helpThenWaitForReply): it takes the
//   upper half of what is left, again and again, then blocks until the worker
//   replies.
// Starting in the upper half keeps the threads away from each other's rows
// (and from the next range, which begins right after), so that none waits for
// an input row that another is computing.
//
// A row that throws abandons the rest of its request, on whichever thread
// the request's rows are; the failure reaches the driver through that
// request's waitForReply().
#pragma once

#include <atomic>
#include <exception>
#include <vector>

#include "base/mutex.h"
#include "base/qtless/qthread.h"
#include "denoise/one_slot_signal.h"

class JIncrRaster;

class JDenoiseThread : public qtless::QThread {
public:
    // Starts the thread at low priority when `background` is true, at normal
    // priority otherwise; it then waits for its first request.
    explicit JDenoiseThread(bool background);
    // stop(); errors on this path are printed to standard error and go no further.
    ~JDenoiseThread() override;

    // Posts the stop request unless the thread has already stopped, then
    // joins the thread (once).
    void stop();

    // The workers this one takes rows from when its own are done (it may be
    // in the list itself). Called before the first request; the list must
    // stay unchanged and alive while requests are served. Null: none.
    void setPeers(const std::vector<JDenoiseThread*>* peers);

    // Rows first..last of `raster` (an empty range when first > last). A null
    // raster asks the worker to stop. Rows aheadFirst..aheadLast are the ones
    // the worker expects next: once it has replied it computes them, one at a
    // time, from the front, until the next request arrives, under a reference
    // of its own (the request that hands them out later pulls, commits and
    // releases them). Before the graph goes, a request without such rows (an
    // empty one will do) must have been answered.
    void postRequest(JIncrRaster* raster, int first, int last, int aheadFirst = 0, int aheadLast = -1);
    // Waits (blocked) for the reply to the last request. A row evaluation
    // of that request that threw, on whichever thread, is rethrown here, on
    // the driver's thread, once the worker has replied, so that it reaches
    // the entry point instead of leaving the driver waiting for ever.
    void waitForReply();
    // Pulls rows of the last request that the worker has not reached (upper
    // halves of what is left), then waitForReply().
    void helpThenWaitForReply();

    bool stopped() const { return stopped_.load(std::memory_order_acquire); }
    // Requests posted so far, the stop request included.
    int requestsPosted() const { return posts_.load(std::memory_order_relaxed); }

protected:
    void run() override;

private:
    // Rows from..to, claimed by one thread, of `owner`'s request.
    struct Claim {
        JDenoiseThread* owner;
        int from;
        int to;
    };

    // Pulls and releases one row of `owner`'s request. A failure is kept for
    // the owner's waitForReply and abandons the rest of that request; then it
    // returns false.
    static bool pullRow(JDenoiseThread* owner, JIncrRaster* raster, int row);
    // The worker: the rows of its range, one at a time from the front, until
    // the range is empty (peers may shorten it) or its request is abandoned.
    void pullFromFront(JIncrRaster* raster);
    // Under requestLock_: takes the upper half of the rows left in the range,
    // when there are any and they are rows of `raster`.
    bool takeUpperHalf(JIncrRaster* raster, Claim& claim);
    // The worker whose range is empty: takes the upper half of the largest
    // range among the peers and makes it its own range.
    bool takeFromPeers(JIncrRaster* raster);
    // The waiting thread: the upper half of the rows still to do, upwards,
    // until none are left.
    void pullUpperHalves(JIncrRaster* raster);
    // After the reply: rows aheadFirst..aheadLast from the front while no
    // request is waiting.
    void pullAhead(JIncrRaster* raster, int first, int last);
    // This worker's place among its peers plus one, or 0 without peers: the
    // rows' free-buffer pools it uses without a lock (JIncrRaster::setThreadPool).
    int poolIndex();

    JMutex requestLock_;
    JOneSlotSignal request_;
    JOneSlotSignal reply_;
    JIncrRaster* raster_ = nullptr;  // the request's node
    // The rows of the range not yet claimed, next..end, and the worker whose
    // request they belong to: this one, or a peer whose rows it took.
    int next_ = 0;
    int end_ = -1;
    int aheadFirst_ = 0;
    int aheadLast_ = -1;
    JDenoiseThread* owner_ = this;
    // A row of this worker's request failed; read without the lock by the
    // threads that hold its rows.
    std::atomic<bool> abandoned_{false};
    std::exception_ptr error_;  // guarded by requestLock_
    const std::vector<JDenoiseThread*>* peers_ = nullptr;
    std::atomic<bool> stopped_{false};
    std::atomic<int> posts_{0};
    bool joined_ = false;
};
