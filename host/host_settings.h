// The filter settings on the host scales, as every host shows and stores
// them: defaults, text and JSON, all derived from the library's host-scale
// table (DnHostScales), so that no scale is written down twice.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <murmex/murmex.h>

namespace murmex_host {

// The settings used when no profile supplies any: the middle of every host
// scale for the noise settings, no sharpening (the amount scale's low end),
// the sharpening radius at its middle, halo suppression on (the settings'
// own default) and the low-frequency filter off.
void setDefaultSettings(DnFilterParams& params);

// The row of DnHostScales with this name, or -1.
int hostScaleRow(const std::string& name);

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

}  // namespace murmex_host
