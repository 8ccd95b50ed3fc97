// JMutex: a recursive POSIX mutex. The same thread may lock it again; every
// lock needs its unlock.
#pragma once

#include <pthread.h>

class JMutex {
public:
    JMutex();  // throws JEx "Failed to initialize mutex"
    ~JMutex();
    JMutex(const JMutex&) = delete;
    JMutex& operator=(const JMutex&) = delete;

    // The POSIX results; neither throws.
    int lock();
    int unlock();

private:
    pthread_mutex_t* mutex_;
};

// Holds a JMutex for the lifetime of a scope.
class JMutexLocker {
public:
    explicit JMutexLocker(JMutex& m) : m_(m) { m_.lock(); }
    ~JMutexLocker() { m_.unlock(); }
    JMutexLocker(const JMutexLocker&) = delete;
    JMutexLocker& operator=(const JMutexLocker&) = delete;

private:
    JMutex& m_;
};
