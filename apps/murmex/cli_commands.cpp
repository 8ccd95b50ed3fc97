#include "cli_commands.h"

#include <cmath>
#include <cstdio>
#include <optional>
#include <filesystem>

#include "host/engine_output.h"

namespace murmex_app {

void OutputOptions::addTo(CLI::App& sub)
{
    sub.add_flag("-q,--quiet", quiet, "show nothing but errors (wins over --verbose)");
    sub.add_flag("-v,--verbose", verbose,
                 "also show the profile and settings each file gets and the library's own diagnostic lines");
}

void OutputOptions::apply() const
{
    setEngineVerbose(verbose && !quiet);
}

namespace {

// The whole text as a number of type T, or nothing.
template <class T>
std::optional<T> parseNumber(const std::string& text)
{
    T value{};
    if (text.empty() || !CLI::detail::lexical_cast(text, value))
        return std::nullopt;
    return value;
}

}  // namespace

CLI::Validator wholeNumber(std::function<bool(long long)> accept, const std::string& allowed)
{
    return CLI::Validator(
        [accept, allowed](std::string& text) {
            const std::optional<long long> v = parseNumber<long long>(text);
            if (!v)
                return parseNumber<double>(text) ? "value " + text + " is not a whole number"
                                                 : "value " + text + " is not a number";
            return accept(*v) ? std::string() : "value " + text + " is not " + allowed;
        },
        allowed);
}

CLI::Validator wholeNumberWithin(long long low, long long high)
{
    return wholeNumber([low, high](long long v) { return v >= low && v <= high; },
                       "within " + std::to_string(low) + " to " + std::to_string(high));
}

CLI::Validator numberWithin(float low, float high, const std::string& allowed)
{
    return CLI::Validator(
        [low, high, allowed](std::string& text) {
            const std::optional<float> v = parseNumber<float>(text);
            if (!v || !std::isfinite(*v))
                return "value " + text + " is not a number";
            return *v >= low && *v <= high ? std::string() : "value " + text + " is not " + allowed;
        },
        allowed);
}

void addReadLimits(CLI::App& sub, ReadLimits& limits)
{
    sub.add_option("--max-megapixels", limits.maxMegapixels,
                   "refuse photos larger than this (guards against files that claim a huge size)")
        ->capture_default_str()
        ->type_name("MP")
        ->check(CLI::PositiveNumber);
}

void printError(const std::string& message)
{
    std::string line;
    for (size_t i = 0; i < message.size(); ++i) {
        if (message[i] == '\n') {
            while (i + 1 < message.size() && message[i + 1] == '\n')
                ++i;
            if (i + 1 < message.size())
                line += "; ";
        } else {
            line += message[i];
        }
    }
    std::fprintf(stderr, "murmex: %s\n", line.c_str());
    std::fflush(stderr);
}

std::string displayName(const std::string& path)
{
    return std::filesystem::path(path).filename().string();
}

}  // namespace murmex_app
