#include "settings_options.h"

#include "cli_commands.h"

namespace murmex_app {

void SettingsOptions::addTo(CLI::App& app)
{
    for (int i = 0; i < DnHostScaleCount; ++i) {
        const DnHostScale& s = DnHostScales[i];
        options_[i] = app.add_option(std::string("--") + s.name, values_[i], s.description)
                          ->type_name("VALUE")
                          ->check(numberWithin(s.low, s.high, "within " + formatFloat(s.low) + " to " + formatFloat(s.high))
                                      .description(scaleText(i)));
    }
    // Separate names for on and off: a negated flag would show its
    // default as "{false}" beside a switch that is on by default.
    auto addSwitch = [&app](const std::string& name, int& state, const std::string& on, const std::string& off) {
        CLI::Option* yes = app.add_flag_callback("--" + name, [&state] { state = 1; }, on);
        CLI::Option* no = app.add_flag_callback("--no-" + name, [&state] { state = -1; }, off);
        yes->excludes(no);
    };
    addSwitch("suppress-halos", suppressHalos_,
              "limit sharpening so that no halos form along edges (on by default)",
              "let sharpening form halos along edges");
    addSwitch("low-frequency", lowFrequency_, "also filter the coarsest noise (off by default)",
              "leave the coarsest noise alone (the default)");
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
