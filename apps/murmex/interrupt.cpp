#include "interrupt.h"

#include <limits.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "app_error.h"

namespace murmex_app {

namespace {

// Everything the handler touches is a lock-free atomic or a buffer published
// through one, and it calls only async-signal-safe functions (write, unlink,
// _exit).
std::atomic<int> caughtSignal{0};
std::atomic<bool> progressLineOpen{false};

struct TemporarySlot {
    std::atomic<bool> used{false};
    std::atomic<bool> foreground{false};
    char path[PATH_MAX];
};
// The program writes one output at a time, two at most (a kept profile and
// the image); a few slots spare.
constexpr int kSlots = 8;
TemporarySlot slots[kSlots];

static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);

void say(const char* text)
{
    size_t left = std::strlen(text);
    while (left > 0) {
        const ssize_t n = write(STDERR_FILENO, text, left);
        if (n <= 0)
            return;
        text += n;
        left -= static_cast<size_t>(n);
    }
}

bool writingOutput()
{
    for (const TemporarySlot& s : slots)
        if (s.used.load() && s.foreground.load())
            return true;
    return false;
}

extern "C" void onSignal(int sig)
{
    const int savedErrno = errno;
    int none = 0;
    const bool first = caughtSignal.compare_exchange_strong(none, sig);
    if (first)
        say(progressLineOpen.load() ? "\nmurmex: stopping\n" : "murmex: stopping\n");
    if (!first || writingOutput()) {
        for (TemporarySlot& s : slots)
            if (s.used.load())
                unlink(s.path);
        say("murmex: interrupted\n");
        _exit(128 + caughtSignal.load());
    }
    errno = savedErrno;
}

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

sigset_t handledSignals()
{
    sigset_t set;
    sigemptyset(&set);
    for (int sig : kSignals)
        sigaddset(&set, sig);
    return set;
}

}  // namespace

void installInterruptHandler()
{
    struct sigaction action = {};
    action.sa_handler = onSignal;
    // One signal's handler is not entered again by another of the three.
    action.sa_mask = handledSignals();
    action.sa_flags = SA_RESTART;
    for (int sig : kSignals)
        sigaction(sig, &action, nullptr);
}

bool interruptRequested()
{
    return caughtSignal.load() != 0;
}

int interruptSignal()
{
    return caughtSignal.load();
}

void setInterruptRequested(bool requested, int signal)
{
    caughtSignal = requested ? signal : 0;
}

int interruptedExitStatus()
{
    return 128 + (interruptSignal() != 0 ? interruptSignal() : SIGINT);
}

void throwIfInterrupted()
{
    if (interruptRequested())
        throw Interrupted();
}

int registerTemporaryFile(const std::string& path, bool foreground)
{
    if (path.size() >= PATH_MAX)
        throw AppError("cannot write " + path + ": the name is too long");
    for (int i = 0; i < kSlots; ++i) {
        TemporarySlot& s = slots[i];
        if (s.used.load())
            continue;
        std::memcpy(s.path, path.c_str(), path.size() + 1);
        s.foreground.store(foreground);
        s.used.store(true);
        return i;
    }
    throw AppError("cannot write " + path + ": too many files open for writing");
}

void writeInForeground(int slot)
{
    if (slot >= 0 && slot < kSlots)
        slots[slot].foreground.store(true);
}

void unregisterTemporaryFile(int slot)
{
    if (slot >= 0 && slot < kSlots)
        slots[slot].used.store(false);
}

void setProgressLineOpen(bool open)
{
    progressLineOpen = open;
}

SignalBlock::SignalBlock()
{
    const sigset_t set = handledSignals();
    pthread_sigmask(SIG_BLOCK, &set, &saved_);
}

SignalBlock::~SignalBlock()
{
    pthread_sigmask(SIG_SETMASK, &saved_, nullptr);
}

}  // namespace murmex_app
