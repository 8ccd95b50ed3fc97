// The filter settings as Python names them: one keyword per row of the
// library's host-scale table (DnHostScales, "lum-strength" becoming
// lum_strength), plus the switches suppress_halos and low_frequency. Names,
// scales and defaults all come from that table and the host library's
// default settings, so that no number is written down twice.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <murmex/murmex.h>
#include <pybind11/pybind11.h>

namespace murmex_python {

inline constexpr const char* kSuppressHalos = "suppress_halos";
inline constexpr const char* kLowFrequency = "low_frequency";

// The keyword of row i of DnHostScales; the string lives as long as the process.
const char* scaleKeyword(int i);

// The settings used when nobody gives any: the host library's defaults.
const DnFilterParams& defaultSettings();

// The settings block of params as a dict: floats for the scales, bools for
// the switches, in table order.
pybind11::dict settingsDict(const DnFilterParams& params);

// Throws ValueError unless value lies on row i's scale.
void checkScale(int i, float value);

// Stores the settings named in mapping into the settings block of params,
// checking every value; names not given keep their values. Unknown names
// raise TypeError, values off their scale ValueError.
void applySettings(DnFilterParams& params, const pybind11::handle& mapping);

// The settings of one call as given: the keywords passed (the others
// unset), and whether the settings are chosen for the image (settings="auto").
struct SettingsRequest {
    bool automatic = false;
    std::array<std::optional<float>, DnHostScaleCount> scales;
    std::optional<bool> suppressHalos;
    std::optional<bool> lowFrequency;

    // Stores the keywords given into the settings block of params, checking
    // the scales' values (ValueError).
    void applyGiven(DnFilterParams& params) const;
};

// True for settings="auto", false for None; anything else raises ValueError
// (a string) or TypeError.
bool automaticSettings(const pybind11::handle& settings);

class ArrayImage;

// The settings chosen for image and its serialised profile, as the host
// library's automatic settings choose them: writes the settings block of
// params. Runs without the GIL, as a job (EngineRun); raises murmex.Error
// when the profile cannot be read.
void chooseSettings(const ArrayImage& image, const std::vector<uint8_t>& profile, DnFilterParams& params);

// "luminance noise reduction strength, 0 to 20 (default 10)" for row i.
std::string scaleDoc(int i);

// The scales as a dict {keyword: (low, middle, high)}.
pybind11::dict scalesDict();

}  // namespace murmex_python
