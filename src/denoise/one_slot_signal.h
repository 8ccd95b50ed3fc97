// JOneSlotSignal: a hand-over point between two threads made of a JMutex, a
// limit fixed at 1 and a count. A count equal to the limit means there is
// nothing to take; give() opens the slot once and the next take() closes it.
//
// Waiting blocks (a futex wait on the count through std::atomic::wait) rather
// than spinning on sched_yield(): on a machine with as many cores as workers,
// a spinning waiter takes processor time from the threads it waits for. The
// count changes only under the mutex and is read without it while waiting,
// hence an atomic; give() wakes the waiter after changing it.
#pragma once

#include <atomic>

#include "base/mutex.h"

class JOneSlotSignal {
public:
    void take()
    {
        for (int c = count_.load(std::memory_order_acquire); c == limit_; c = count_.load(std::memory_order_acquire))
            count_.wait(c, std::memory_order_acquire);
        JMutexLocker lock(mutex_);
        count_.fetch_add(1, std::memory_order_acq_rel);
    }

    // A give on a count of 0 does nothing.
    void give()
    {
        if (count_.load(std::memory_order_acquire) != 0) {
            {
                JMutexLocker lock(mutex_);
                count_.fetch_sub(1, std::memory_order_acq_rel);
            }
            count_.notify_all();
        }
    }

    int count() const { return count_.load(std::memory_order_acquire); }

private:
    JMutex mutex_;
    const int limit_ = 1;
    std::atomic<int> count_{0};
};
