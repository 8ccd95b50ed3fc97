// The filter settings as the user sees them: one option per row of the
// library's host-scale table (DnHostScales) plus the two switches, with help
// text, range checks, defaults and text/JSON output all derived from that
// table, so that no scale is written down twice.
#pragma once

#include <array>
#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

#include <murmex/murmex.h>

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

// The settings used when no profile supplies any: the middle of every host
// scale for the noise settings, no sharpening (the amount scale's low end),
// the sharpening radius at its middle, halo suppression on (the settings'
// own default) and the low-frequency filter off.
void setDefaultSettings(DnFilterParams& params);

// A number as the shortest decimal text that reads back as the same float.
std::string formatFloat(float value);

// The settings block as (name, value text) rows in table order, the two
// switches last as "yes"/"no".
std::vector<std::pair<std::string, std::string>> settingsRows(const DnFilterParams& params);

// "low to high, middle m" for row i of DnHostScales.
std::string scaleText(int i);

// The settings block as one JSON object: the table's names as keys, numbers
// as values, the switches as true/false.
std::string settingsJson(const DnFilterParams& params);

}  // namespace murmex_app
