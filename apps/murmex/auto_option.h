// --settings auto: the settings chosen per image from its noise (the host
// library's automatic settings), for the commands that denoise or store
// settings.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include <murmex/murmex.h>

#include "image.h"

namespace murmex_app {

struct AutoSettingsOption {
    std::string mode;  // "auto", or empty

    // Adds --settings (the only value is "auto") to sub; help names what
    // the chosen settings replace.
    void addTo(CLI::App& sub, const std::string& help);
    bool enabled() const { return mode == "auto"; }

    // When enabled, writes the settings chosen for image and its profile
    // block into the settings block of params and, with verbose, prints the
    // measured noise and the chosen settings on standard error, each line
    // beginning with name. Throws AppError naming name when the profile
    // cannot be read.
    void apply(const Image& image, const std::vector<uint8_t>& profile, DnFilterParams& params,
               const std::string& name, bool verbose) const;
};

}  // namespace murmex_app
