// The library prints its diagnostic and error lines on standard output. While
// the application calls into it, file descriptor 1 is pointed at a temporary
// file, so that machine-readable output stays clean and the library's error
// line can become part of the application's own one-line message.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace murmex_host {

struct EngineResult {
    int code = 0;                     // what the entry point returned
    std::vector<std::string> lines;   // what it printed, one entry per line
    std::string error;                // the message of its error line, or empty

    bool failed() const { return code != 0; }
    // The message to show for a failure: the error line's message, else a
    // generic text.
    std::string message() const;
};

// When set, lines the library prints that are not its error line are copied
// to standard error after the call (the --verbose option).
void setEngineVerbose(bool verbose);

// Runs call with standard output captured and returns its result and lines.
// Standard output is restored before returning, also when call throws.
EngineResult callEngine(const std::function<int()>& call);

// The message of the first failure line among lines: the text after
// "Murmex error: " or "Murmex exception: ", or "unknown error" for
// "Murmex unknown error"; empty when there is none.
std::string engineErrorMessage(const std::vector<std::string>& lines);

}  // namespace murmex_host
