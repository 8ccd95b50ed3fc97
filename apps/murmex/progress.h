// Progress display on standard error and cancellation by Ctrl-C.
//
// The SIGINT handler only sets a flag. The progress callback that the library
// calls answers 1 while the flag is set, which makes the library stop the job
// and return; the command then sees the flag, removes its temporary files
// (by unwinding with Interrupted) and exits with status 130. A second Ctrl-C
// gets the default action.
#pragma once

#include <chrono>
#include <cstdio>
#include <exception>
#include <string>

namespace murmex_app {

// Installs the SIGINT handler (sigaction, reset to the default action after
// the first signal).
void installInterruptHandler();
bool interruptRequested();
// Sets or clears the flag as the handler does; for tests.
void setInterruptRequested(bool requested);

// Thrown by a command that sees the interrupt flag after a library call.
struct Interrupted : std::exception {
    const char* what() const noexcept override { return "interrupted"; }
};
// Throws Interrupted when the flag is set.
void throwIfInterrupted();

class Progress {
public:
    enum class Mode {
        Quiet,  // nothing is shown
        Bar,    // one line redrawn in place: label, bar, percentage, step text
        Lines,  // plain lines: one per step and one per tenth done
    };
    // Bar when standard error is a terminal, Lines otherwise, Quiet when quiet.
    static Mode modeFor(bool quiet);

    // label names the job on every line, e.g. the input file.
    Progress(Mode mode, std::string label, std::FILE* out = stderr);
    // Ends a bar's line.
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // The library's step texts are shown with every occurrence of from
    // replaced by to (the application relabels a profile it chose itself).
    void relabel(std::string from, std::string to);

    // One progress report; answers 1 when the job should stop.
    int report(const char* stepText, float fraction);

    // A line of its own (e.g. the final summary), after the bar if any.
    void note(const std::string& text);

    // Ends the bar's line, so that other output can follow.
    void finish();

    // The library's progress callback; hostContext is a Progress*.
    static int callback(void* hostContext, const char* stepText, float fraction);

    // The text of a bar line for width columns (without the leading "\r").
    static std::string barLine(const std::string& label, const std::string& step, int percent, int width);

private:

    Mode mode_;
    std::string label_;
    std::FILE* out_;
    std::string from_, to_;
    std::string step_;
    int percent_ = -1;
    int lastTenth_ = -1;
    bool barOpen_ = false;
};

}  // namespace murmex_app
