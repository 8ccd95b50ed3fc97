// The filter settings as command-line options: one option per row of the
// library's host-scale table (DnHostScales) plus the two switches, with help
// text and range checks derived from that table (the defaults, text and JSON
// forms are the host library's).
#pragma once

#include <array>

#include <CLI/CLI.hpp>

#include <murmex/murmex.h>

#include "app_error.h"
#include "host/host_settings.h"

namespace murmex_app {

class SettingsOptions {
public:
    // Adds --lum-strength ... --sharpen-radius (each checked against its
    // scale) and --suppress-halos/--no-suppress-halos,
    // --low-frequency/--no-low-frequency to app. The object must outlive the
    // parse.
    void addTo(CLI::App& app);

    // True when the command line set any of the options.
    bool any() const;

    // Writes every option that was given into the settings block of params;
    // the others keep their values.
    void applyTo(DnFilterParams& params) const;

private:
    std::array<float, DnHostScaleCount> values_{};
    std::array<CLI::Option*, DnHostScaleCount> options_{};
    int suppressHalos_ = 0;  // > 0 on, < 0 off, 0 not given
    int lowFrequency_ = 0;
};

}  // namespace murmex_app
