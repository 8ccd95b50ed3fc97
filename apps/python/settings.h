// The filter settings as Python names them: one keyword per row of the
// library's host-scale table (DnHostScales, "lum-strength" becoming
// lum_strength), plus the switches suppress_halos and low_frequency. Names,
// scales and defaults all come from that table and the host library's
// default settings, so that no number is written down twice.
#pragma once

#include <string>

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

// "luminance noise reduction strength, 0 to 20 (default 10)" for row i.
std::string scaleDoc(int i);

// The scales as a dict {keyword: (low, middle, high)}.
pybind11::dict scalesDict();

}  // namespace murmex_python
