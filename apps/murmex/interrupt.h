// Stopping on Ctrl-C, SIGTERM and SIGHUP without harming a file.
//
// The first signal sets a flag and prints "murmex: stopping". The progress
// callback that the library calls answers 1 while the flag is set, which
// makes the library stop the job and return; the command then sees the flag,
// unwinds with Interrupted (removing its temporary files) and exits with
// 128 + the signal's number.
//
// Outputs are written to temporary files (TempOutput), which register here.
// While one is being written in the foreground, a signal does not wait for
// the writer: the handler removes every registered temporary file and ends
// the program at once. An output written in the background while the library
// still works (its rows written as they are denoised) registers as such: a
// first signal then stops the library as above, and the command removes the
// file as it unwinds. A second signal removes every registered file and ends
// the program in any phase. So no signal leaves a temporary file behind or
// ends the program before its temporary files are gone, and an existing
// output is only ever replaced by a complete one.
#pragma once

#include <signal.h>

#include <exception>
#include <string>

namespace murmex_app {

// Installs the handler for SIGINT, SIGTERM and SIGHUP.
void installInterruptHandler();
bool interruptRequested();
// The number of the signal that set the flag, 0 when none did.
int interruptSignal();
// Sets or clears the flag as the handler does (signal 0 when cleared); for
// tests.
void setInterruptRequested(bool requested, int signal = 2);

// The exit status of an interrupted run: 128 + the signal's number.
int interruptedExitStatus();

// Thrown by a command that sees the interrupt flag after a library call.
struct Interrupted : std::exception {
    const char* what() const noexcept override { return "interrupted"; }
};
// Throws Interrupted when the flag is set.
void throwIfInterrupted();

// Registers a temporary file for removal by a signal; returns its slot.
// foreground: the program is writing it now (a first signal ends the program
// at once); else it is written in the background (see above) until
// writeInForeground(slot). Throws AppError when too many are registered at
// once. The caller blocks the signals (SignalBlock) between creating the
// file and registering it.
int registerTemporaryFile(const std::string& path, bool foreground = true);
void writeInForeground(int slot);
// Forgets a slot (after the file was renamed or removed).
void unregisterTemporaryFile(int slot);

// Tells the handler that a progress bar's line is open, so that its message
// starts on a line of its own.
void setProgressLineOpen(bool open);

// Holds SIGINT, SIGTERM and SIGHUP back from the calling thread for its
// lifetime; a signal that arrives meanwhile is handled afterwards.
class SignalBlock {
public:
    SignalBlock();
    ~SignalBlock();
    SignalBlock(const SignalBlock&) = delete;
    SignalBlock& operator=(const SignalBlock&) = delete;

private:
    sigset_t saved_;
};

}  // namespace murmex_app
