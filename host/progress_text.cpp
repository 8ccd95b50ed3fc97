#include "host/progress_text.h"

namespace murmex_host {

namespace {

bool startsWith(std::string_view s, std::string_view prefix)
{
    return s.substr(0, prefix.size()) == prefix;
}

}  // namespace

std::string userStepText(std::string_view engineStep)
{
    if (startsWith(engineStep, "Profiling image"))
        return std::string(kMeasuringStep);
    if (startsWith(engineStep, "Removing noise"))
        return std::string(kRemovingStep);
    return std::string(engineStep);
}

}  // namespace murmex_host
