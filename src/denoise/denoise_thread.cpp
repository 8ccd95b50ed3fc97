#include "denoise/denoise_thread.h"

#include <algorithm>
#include <cstdio>
#include <exception>

#include "denoise/raster/incr_raster.h"

JDenoiseThread::JDenoiseThread(bool background)
{
    // Both signals start closed: the worker waits for a request, the driver
    // for a reply.
    request_.take();
    reply_.take();
    start(background ? LowPriority : NormalPriority);
}

JDenoiseThread::~JDenoiseThread()
{
    try {
        stop();
    } catch (const std::exception& e) {
        std::fprintf(stderr, "JDenoiseThread::~JDenoiseThread exception: %s\n", e.what());
    } catch (...) {
        std::fprintf(stderr, "JDenoiseThread::~JDenoiseThread unknown exception\n");
    }
}

void JDenoiseThread::stop()
{
    if (!stopped())
        postRequest(nullptr, -1, -1);
    if (!joined_) {
        wait(static_cast<unsigned long>(-1));
        joined_ = true;
    }
}

void JDenoiseThread::setPeers(const std::vector<JDenoiseThread*>* peers)
{
    JMutexLocker lock(requestLock_);
    peers_ = peers;
}

void JDenoiseThread::postRequest(JIncrRaster* raster, int first, int last, int aheadFirst, int aheadLast)
{
    {
        JMutexLocker lock(requestLock_);
        raster_ = raster;
        next_ = raster ? first : 0;
        end_ = raster ? last : -1;
        aheadFirst_ = raster ? aheadFirst : 0;
        aheadLast_ = raster ? aheadLast : -1;
        owner_ = this;
        abandoned_.store(false, std::memory_order_relaxed);
    }
    posts_.fetch_add(1, std::memory_order_relaxed);
    request_.give();
}

void JDenoiseThread::helpThenWaitForReply()
{
    JIncrRaster* raster;
    {
        JMutexLocker lock(requestLock_);
        raster = raster_;
    }
    if (raster)
        pullUpperHalves(raster);
    waitForReply();
}

void JDenoiseThread::waitForReply()
{
    reply_.take();
    std::exception_ptr error;
    {
        JMutexLocker lock(requestLock_);
        error = error_;
        error_ = nullptr;
    }
    if (error)
        std::rethrow_exception(error);
}

bool JDenoiseThread::pullRow(JDenoiseThread* owner, JIncrRaster* raster, int row)
{
    try {
        raster->getScanline(row);
        raster->commitRow(row);
        raster->unrefScanline(row);
        return true;
    } catch (...) {
        JMutexLocker lock(owner->requestLock_);
        if (!owner->error_)
            owner->error_ = std::current_exception();
        // The rest of the request is abandoned, as by a worker alone: the
        // owner's range (when it still holds the request's rows) here, the
        // rows other threads hold when they next look at the flag.
        if (owner->owner_ == owner)
            owner->next_ = owner->end_ + 1;
        owner->abandoned_.store(true, std::memory_order_relaxed);
        return false;
    }
}

void JDenoiseThread::pullFromFront(JIncrRaster* raster)
{
    for (;;) {
        JDenoiseThread* owner;
        int row;
        {
            JMutexLocker lock(requestLock_);
            if (next_ > end_)
                return;
            owner = owner_;
            if (owner->abandoned_.load(std::memory_order_relaxed)) {
                next_ = end_ + 1;
                return;
            }
            row = next_++;
        }
        if (!pullRow(owner, raster, row))
            return;
    }
}

bool JDenoiseThread::takeUpperHalf(JIncrRaster* raster, Claim& claim)
{
    if (raster_ != raster || next_ > end_ || owner_->abandoned_.load(std::memory_order_relaxed))
        return false;
    claim.owner = owner_;
    claim.from = next_ + (end_ - next_ + 1) / 2;
    claim.to = end_;
    end_ = claim.from - 1;
    return true;
}

bool JDenoiseThread::takeFromPeers(JIncrRaster* raster)
{
    const std::vector<JDenoiseThread*>* peers;
    {
        JMutexLocker lock(requestLock_);
        peers = peers_;
    }
    if (!peers)
        return false;
    for (;;) {
        JDenoiseThread* victim = nullptr;
        int most = 0;
        for (JDenoiseThread* peer : *peers) {
            if (peer == this)
                continue;
            JMutexLocker lock(peer->requestLock_);
            if (peer->raster_ == raster && peer->end_ - peer->next_ + 1 > most &&
                !peer->owner_->abandoned_.load(std::memory_order_relaxed)) {
                most = peer->end_ - peer->next_ + 1;
                victim = peer;
            }
        }
        if (!victim)
            return false;
        Claim claim;
        bool taken;
        {
            JMutexLocker lock(victim->requestLock_);
            taken = victim->takeUpperHalf(raster, claim);
        }
        if (!taken)
            continue;  // the victim's rows went meanwhile: look again
        JMutexLocker lock(requestLock_);
        next_ = claim.from;
        end_ = claim.to;
        owner_ = claim.owner;
        return true;
    }
}

void JDenoiseThread::pullUpperHalves(JIncrRaster* raster)
{
    for (;;) {
        Claim claim;
        {
            JMutexLocker lock(requestLock_);
            if (!takeUpperHalf(raster, claim))
                return;
        }
        for (int row = claim.from; row <= claim.to; ++row) {
            if (claim.owner->abandoned_.load(std::memory_order_relaxed))
                return;
            if (!pullRow(claim.owner, raster, row))
                return;
        }
    }
}

int JDenoiseThread::poolIndex()
{
    JMutexLocker lock(requestLock_);
    if (!peers_)
        return 0;
    const auto at = std::find(peers_->begin(), peers_->end(), this);
    return at == peers_->end() ? 0 : static_cast<int>(at - peers_->begin()) + 1;
}

void JDenoiseThread::run()
{
    for (;;) {
        request_.take();
        JIncrRaster* raster;
        {
            JMutexLocker lock(requestLock_);
            raster = raster_;
        }
        if (!raster) {
            stopped_.store(true, std::memory_order_release);
            return;
        }
        JIncrRaster::setThreadPool(poolIndex());
        do
            pullFromFront(raster);
        while (takeFromPeers(raster));
        int aheadFirst;
        int aheadLast;
        {
            JMutexLocker lock(requestLock_);
            const bool abandoned = abandoned_.load(std::memory_order_relaxed);
            aheadFirst = abandoned ? 0 : aheadFirst_;
            aheadLast = abandoned ? -1 : aheadLast_;
        }
        reply_.give();
        pullAhead(raster, aheadFirst, aheadLast);
    }
}

void JDenoiseThread::pullAhead(JIncrRaster* raster, int first, int last)
{
    // A request has arrived when the signal's count has left its limit.
    for (int row = first; row <= last && request_.count() != 0; ++row) {
        // A reference of its own keeps the row while it is computed: the
        // request that hands it out may arrive meanwhile, and another thread
        // pull and release it. A row released already is not computed again.
        if (!raster->refReferencedScanline(row))
            return;
        try {
            raster->getScanline(row);
        } catch (...) {
            // The row is absent again; the request that hands it out computes
            // it once more and reports its failure.
            raster->unrefScanline(row);
            return;
        }
        raster->unrefScanline(row);
    }
}
