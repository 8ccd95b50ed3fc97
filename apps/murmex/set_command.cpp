// murmex set FILE.dnp [settings options]
#include <memory>

#include "cli_commands.h"
#include "cli_engine.h"
#include "settings_options.h"

namespace murmex_app {

namespace {

struct SetOptions {
    std::string profile;
    SettingsOptions settings;
    OutputOptions output_;
};

void runSet(const SetOptions& o)
{
    o.output_.apply();
    if (!o.settings.any())
        throw UsageError("nothing to change: give at least one settings option (see murmex set --help)");
    LoadedProfile loaded = loadProfile(o.profile);
    o.settings.applyTo(loaded.settings);
    // The library writes the whole profile again: header and samples as
    // loaded, the settings block replaced.
    saveProfile(o.profile, loaded.bytes, loaded.settings);
}

}  // namespace

CommandRunner addSetCommand(CLI::App& app)
{
    auto o = std::make_shared<SetOptions>();
    CLI::App* sub = app.add_subcommand("set", "change the settings stored in a noise profile");
    sub->footer(
        "Settings not given keep their stored values. The profile is written to a temporary file\n"
        "beside it and renamed over the original only when that succeeded.");
    sub->add_option("profile", o->profile, "the profile file to change")->required()->type_name("FILE.dnp");
    o->settings.addTo(*sub);
    o->output_.addTo(*sub);
    return [o] { runSet(*o); };
}

}  // namespace murmex_app
