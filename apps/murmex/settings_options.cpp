#include "settings_options.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace murmex_app {

namespace {

int rowNamed(const char* name)
{
    for (int i = 0; i < DnHostScaleCount; ++i)
        if (std::string(DnHostScales[i].name) == name)
            return i;
    return -1;
}

}  // namespace

std::string formatFloat(float value)
{
    if (!std::isfinite(value))
        return std::isnan(value) ? "nan" : (value > 0 ? "inf" : "-inf");
    char buf[32];
    for (int precision = 1; precision <= 9; ++precision) {
        std::snprintf(buf, sizeof buf, "%.*g", precision, static_cast<double>(value));
        // Plain notation where it reads back exactly; exponents only for
        // numbers that need them.
        const bool exponent = std::strchr(buf, 'e') != nullptr;
        const float magnitude = std::fabs(value);
        if (std::strtof(buf, nullptr) == value && (!exponent || magnitude >= 1e7f || magnitude < 1e-4f))
            break;
    }
    return buf;
}

std::string scaleText(int i)
{
    const DnHostScale& s = DnHostScales[i];
    return formatFloat(s.low) + " to " + formatFloat(s.high) + ", middle " + formatFloat(s.middle);
}

void SettingsOptions::addTo(CLI::App& app)
{
    for (int i = 0; i < DnHostScaleCount; ++i) {
        const DnHostScale& s = DnHostScales[i];
        options_[i] = app.add_option(std::string("--") + s.name, values_[i], s.description)
                          ->type_name("VALUE")
                          ->check(CLI::Validator(
                              [i](std::string& text) {
                                  const DnHostScale& row = DnHostScales[i];
                                  float v = 0.0f;
                                  if (CLI::detail::lexical_cast(text, v) && v >= row.low && v <= row.high)
                                      return std::string();
                                  return "value " + text + " is not a number from " + formatFloat(row.low) + " to " +
                                         formatFloat(row.high);
                              },
                              scaleText(i)));
    }
    app.add_flag_function(
        "--suppress-halos,!--no-suppress-halos", [this](int64_t n) { suppressHalos_ = n > 0 ? 1 : -1; },
        "limit sharpening so that no halos form along edges (on by default)");
    app.add_flag_function(
        "--low-frequency,!--no-low-frequency", [this](int64_t n) { lowFrequency_ = n > 0 ? 1 : -1; },
        "also filter the coarsest noise (off by default)");
}

bool SettingsOptions::any() const
{
    for (const CLI::Option* o : options_)
        if (o && o->count() > 0)
            return true;
    return suppressHalos_ != 0 || lowFrequency_ != 0;
}

void SettingsOptions::applyTo(DnFilterParams& params) const
{
    for (int i = 0; i < DnHostScaleCount; ++i)
        if (options_[i] && options_[i]->count() > 0)
            *DnHostScaleField(&params, i) = values_[i];
    if (suppressHalos_ != 0)
        params.suppressHalos = suppressHalos_ > 0 ? 1 : 0;
    if (lowFrequency_ != 0)
        params.lowFrequency = lowFrequency_ > 0 ? 1 : 0;
}

void setDefaultSettings(DnFilterParams& params)
{
    for (int i = 0; i < DnHostScaleCount; ++i)
        *DnHostScaleField(&params, i) = DnHostScales[i].middle;
    // The low end of the amount scale is the settings' smallest amount, which
    // the denoiser treats as "no sharpening".
    const int amount = rowNamed("sharpen-amount");
    if (amount >= 0)
        *DnHostScaleField(&params, amount) = DnHostScales[amount].low;
    params.suppressHalos = 1;
    params.lowFrequency = 0;
}

std::vector<std::pair<std::string, std::string>> settingsRows(const DnFilterParams& params)
{
    std::vector<std::pair<std::string, std::string>> rows;
    DnFilterParams copy = params;
    for (int i = 0; i < DnHostScaleCount; ++i)
        rows.emplace_back(DnHostScales[i].name, formatFloat(*DnHostScaleField(&copy, i)));
    rows.emplace_back("suppress-halos", params.suppressHalos ? "yes" : "no");
    rows.emplace_back("low-frequency", params.lowFrequency ? "yes" : "no");
    return rows;
}

std::string settingsJson(const DnFilterParams& params)
{
    DnFilterParams copy = params;
    std::string out = "{";
    for (int i = 0; i < DnHostScaleCount; ++i) {
        float v = *DnHostScaleField(&copy, i);
        out += std::string(i ? ", " : "") + "\"" + DnHostScales[i].name + "\": " +
               (std::isfinite(v) ? formatFloat(v) : std::string("null"));
    }
    out += std::string(", \"suppress-halos\": ") + (params.suppressHalos ? "true" : "false");
    out += std::string(", \"low-frequency\": ") + (params.lowFrequency ? "true" : "false");
    out += "}";
    return out;
}

}  // namespace murmex_app
