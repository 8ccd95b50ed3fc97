#include "base/mutex.h"

#include "base/ex.h"

namespace {

// Most locks here are held for a few microseconds: a row copied to or from a
// host, a buffer pooled. Sleeping on a held lock costs a system call on each
// side and a switch, so a waiter first tries again for about as long (200
// pauses) before it sleeps.
constexpr int kTriesBeforeSleeping = 200;

inline void relax()
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
}

}  // namespace

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
    for (int i = 0; i < kTriesBeforeSleeping; ++i) {
        if (pthread_mutex_trylock(mutex_) == 0)
            return 0;
        relax();
    }
    return pthread_mutex_lock(mutex_);
}

int JMutex::unlock()
{
    return pthread_mutex_unlock(mutex_);
}
