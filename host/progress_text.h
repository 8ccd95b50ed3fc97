// Progress in the user's words. The engine names its steps for its own log
// ("Profiling image...", "Removing noise: [User selected: cam.dnp]"); hosts
// show the stage instead and name the profile their own way.
#pragma once

#include <string>
#include <string_view>

namespace murmex_host {

inline constexpr std::string_view kMeasuringStep = "Measuring noise profile";
inline constexpr std::string_view kRemovingStep = "Removing noise";
inline constexpr std::string_view kWritingStep = "Writing";

// The stage an engine step text belongs to: kMeasuringStep for the
// profiling step, kRemovingStep for the denoise step (with or without the
// profile label that follows it); any other text as it is.
std::string userStepText(std::string_view engineStep);

}  // namespace murmex_host
