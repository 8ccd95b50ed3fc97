#include "base/mutex.h"

#include "base/ex.h"

JMutex::JMutex() : mutex_(new pthread_mutex_t)
{
    pthread_mutexattr_t attr;
    bool ok = pthread_mutexattr_init(&attr) == 0;
    if (ok) {
        ok = pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE) == 0 &&
             pthread_mutex_init(mutex_, &attr) == 0;
        pthread_mutexattr_destroy(&attr);
    }
    if (!ok) {
        delete mutex_;
        // Deliberately not passed through tr().
        throw JEx("Failed to initialize mutex");
    }
}

JMutex::~JMutex()
{
    pthread_mutex_destroy(mutex_);
    delete mutex_;
}

int JMutex::lock()
{
    return pthread_mutex_lock(mutex_);
}

int JMutex::unlock()
{
    return pthread_mutex_unlock(mutex_);
}
