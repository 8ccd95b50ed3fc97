#include "cli_commands.h"

#include <cstdio>
#include <filesystem>

#include "host/engine_output.h"

namespace murmex_app {

void OutputOptions::addTo(CLI::App& sub)
{
    sub.add_flag("-q,--quiet", quiet, "show no progress");
    sub.add_flag("-v,--verbose", verbose, "also show the library's own diagnostic lines (on standard error)");
}

void OutputOptions::apply() const
{
    setEngineVerbose(verbose);
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
