// The murmex subcommands. Each add*Command function adds its subcommand and
// options to the application and returns the function that runs it once the
// command line has been parsed.
#pragma once

#include <functional>
#include <string>

#include <CLI/CLI.hpp>

#include "app_error.h"
#include "image_io.h"

namespace murmex_app {

// Exit statuses of the program.
enum ExitStatus {
    ExitOk = 0,
    ExitFailure = 1,       // a runtime error: unreadable input, failed write, a profile that does not load
    ExitUsage = 2,         // a command line that cannot be followed
    ExitInterrupted = 130  // Ctrl-C
};

// A usage mistake that only shows after parsing (exit status 2).
struct UsageError : AppError {
    using AppError::AppError;
};

// Failures already reported on standard error, one line each; the command
// ends with exit status 1.
struct ReportedFailure : std::exception {
    const char* what() const noexcept override { return "failed"; }
};

using CommandRunner = std::function<void()>;

CommandRunner addDenoiseCommand(CLI::App& app);
CommandRunner addProfileCommand(CLI::App& app);
CommandRunner addInfoCommand(CLI::App& app);
CommandRunner addSetCommand(CLI::App& app);
CommandRunner addDemoCommand(CLI::App& app);

// --quiet and --verbose, which every command that calls the library has.
struct OutputOptions {
    bool quiet = false;
    bool verbose = false;
    void addTo(CLI::App& sub);
    // Applies --verbose to the library's output capture.
    void apply() const;
};

// --max-megapixels, for the commands that read photos.
void addReadLimits(CLI::App& sub, ReadLimits& limits);

// Option checks that tell text that is no number ("value abc is not a
// number") from a number out of range ("value 500 is not within 1 to 100").
// allowed describes the accepted values, e.g. "within 1 to 100", and is
// also shown in the help. numberWithin reads the value as the float it is
// stored in.
CLI::Validator wholeNumber(std::function<bool(long long)> accept, const std::string& allowed);
CLI::Validator wholeNumberWithin(long long low, long long high);
CLI::Validator numberWithin(float low, float high, const std::string& allowed);

// "murmex: " + message on standard error, one line (line breaks in message
// become "; ").
void printError(const std::string& message);

// The file name without its directory, for progress lines.
std::string displayName(const std::string& path);

}  // namespace murmex_app
