// JOneSlotSignal: a hand-over point between two threads made of a JMutex, a
// limit fixed at 1 and a count. A count equal to the limit means there is
// nothing to take; give() opens the slot once and the next take() closes it.
//
// Waiting is a sched_yield() loop, not a blocking primitive: the worker
// threads trade idle processor time for the lowest hand-over latency between
// batches of rows. The count changes only under the mutex but is read without
// it while spinning, hence an atomic; a stale read only costs one more yield.
#pragma once

#include <sched.h>

#include <atomic>

#include "base/mutex.h"

class JOneSlotSignal {
public:
    void take()
    {
        while (count_.load(std::memory_order_acquire) == limit_)
            sched_yield();
        JMutexLocker lock(mutex_);
        count_.fetch_add(1, std::memory_order_acq_rel);
    }

    // A give on a count of 0 does nothing.
    void give()
    {
        if (count_.load(std::memory_order_acquire) != 0) {
            JMutexLocker lock(mutex_);
            count_.fetch_sub(1, std::memory_order_acq_rel);
        }
    }

    int count() const { return count_.load(std::memory_order_acquire); }

private:
    JMutex mutex_;
    const int limit_ = 1;
    std::atomic<int> count_{0};
};
