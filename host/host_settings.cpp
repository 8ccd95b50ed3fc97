#include "host/host_settings.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace murmex_host {

int hostScaleRow(const std::string& name)
{
    for (int i = 0; i < DnHostScaleCount; ++i)
        if (name == DnHostScales[i].name)
            return i;
    return -1;
}

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

void setDefaultSettings(DnFilterParams& params)
{
    for (int i = 0; i < DnHostScaleCount; ++i)
        *DnHostScaleField(&params, i) = DnHostScales[i].middle;
    // The low end of the amount scale is the settings' smallest amount, which
    // the denoiser treats as "no sharpening".
    const int amount = hostScaleRow("sharpen-amount");
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

}  // namespace murmex_host
