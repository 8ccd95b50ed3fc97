// Progress display on standard error. The progress callback that the library
// calls answers 1 once an interrupt was requested (interrupt.h).
#pragma once

#include <chrono>
#include <cstdio>
#include <string>

#include "interrupt.h"

namespace murmex_app {

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

    // One progress report; answers 1 when the job should stop.
    int report(const char* stepText, float fraction);

    // A line of its own (e.g. the final summary), after the bar if any.
    void note(const std::string& text);

    // Ends the bar's line, so that other output can follow.
    void finish();

    // The library's progress callback; hostContext is a Progress*.
    static int callback(void* hostContext, const char* stepText, float fraction);

    // The text of a bar line for a terminal of width columns (without the
    // leading "\r"): "label [####......]  40% step", never longer than
    // width - 1 characters; a long label loses its middle, a long step text
    // its end.
    static std::string barLine(const std::string& label, const std::string& step, int percent, int width);

private:

    Mode mode_;
    std::string label_;
    std::FILE* out_;
    std::string step_;
    int percent_ = -1;
    int lastTenth_ = -1;
    bool barOpen_ = false;
};

}  // namespace murmex_app
