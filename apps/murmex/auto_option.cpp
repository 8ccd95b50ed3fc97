#include "auto_option.h"

#include <cstdio>

#include "app_error.h"
#include "host/auto_settings.h"
#include "host/host_error.h"
#include "host/host_settings.h"
#include "image_io.h"

namespace murmex_app {

namespace {

void readImageRow(void* context, int y, int xStart, int xEnd, unsigned short* pixels)
{
    readRgbx(*static_cast<const Image*>(context), y, xStart, xEnd, pixels);
}

}  // namespace

void AutoSettingsOption::addTo(CLI::App& sub, const std::string& help)
{
    sub.add_option("--settings", mode, help)->type_name("auto")->check(CLI::IsMember({"auto"}));
}

void AutoSettingsOption::apply(const Image& image, const std::vector<uint8_t>& profile, DnFilterParams& params,
                               const std::string& name, bool verbose) const
{
    if (!enabled())
        return;
    murmex_host::NoiseEstimate noise;
    try {
        const murmex_host::ScanlineImage rows{const_cast<Image*>(&image), readImageRow, image.width, image.height};
        noise = murmex_host::chooseAutoSettings(rows, profile, params);
    } catch (const murmex_host::HostError& e) {
        throw AppError(name + ": " + e.what());
    }
    if (!verbose)
        return;
    std::string chosen;
    for (const auto& [key, value] : murmex_host::settingsRows(params))
        chosen += (chosen.empty() ? "" : " ") + key + " " + value;
    std::fprintf(stderr, "%s: %s\n%s: automatic settings: %s\n", name.c_str(),
                 murmex_host::describeNoise(noise).c_str(), name.c_str(), chosen.c_str());
}

}  // namespace murmex_app
