// JDenoiseThread: a long-lived worker of the denoise driver. The driver posts
// one request at a time (a node and a range of rows); the worker pulls those
// rows of the node, releases each, and replies. Requests and replies pass
// through two one-slot signals, so a post must always be followed by
// waitForReply() before the next post.
//
// The thread that waits for the reply helps: while the worker pulls rows from
// the start of the range, it takes the upper half of what is left and pulls
// those rows upwards, again and again, then blocks until the worker replies.
// Starting in the middle keeps the two away from each other's rows (and from
// the next worker's, which begins right after this range), so that neither
// waits for an input row the other is computing. Rows are claimed under the
// request lock, each by exactly one of the two; every row of the range is
// still pulled and released once, and which thread computes it does not change
// the row.
#pragma once

#include <atomic>
#include <exception>

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

    // Rows first..last of `raster` (an empty range when first > last). A null
    // raster asks the worker to stop.
    void postRequest(JIncrRaster* raster, int first, int last);
    // Waits (blocked) for the reply to the last request. A row evaluation
    // that threw, on the worker or in helpThenWaitForReply, is rethrown here,
    // on the driver's thread, once the worker has replied, so that it reaches
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
    // Pulls and releases one row. A failure is kept for waitForReply and
    // abandons the rest of the request; then it returns false.
    bool pullRow(JIncrRaster* raster, int row);
    // The worker: the rows still to do, one at a time from the front.
    void pullFromFront(JIncrRaster* raster);
    // The waiting thread: the upper half of the rows still to do, upwards,
    // until none are left.
    void pullUpperHalves(JIncrRaster* raster);

    JMutex requestLock_;
    JOneSlotSignal request_;
    JOneSlotSignal reply_;
    // The request's node and, of its rows, those not yet claimed: next..end.
    JIncrRaster* raster_ = nullptr;
    int next_ = 0;
    int end_ = -1;
    bool abandoned_ = false;  // a row of the request failed
    std::exception_ptr error_;  // guarded by requestLock_
    std::atomic<bool> stopped_{false};
    std::atomic<int> posts_{0};
    bool joined_ = false;
};
