#include "settings_options.h"

namespace murmex_app {

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

}  // namespace murmex_app
