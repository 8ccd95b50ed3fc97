// murmex info FILE.dnp [--json]
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <sstream>

#include "cli_commands.h"
#include "cli_engine.h"
#include "host/profile_header.h"
#include "settings_options.h"

namespace murmex_app {

namespace {

struct InfoOptions {
    std::string profile;
    bool json = false;
    OutputOptions output_;
};

std::string jsonString(const std::string& s)
{
    std::string out = "\"";
    for (unsigned char c : s) {
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        default:
            if (c < 0x20) {
                char buf[8];
                std::snprintf(buf, sizeof buf, "\\u%04x", c);
                out += buf;
            } else {
                out += static_cast<char>(c);
            }
        }
    }
    return out + "\"";
}

std::string jsonNumber(float v)
{
    return std::isfinite(v) ? formatFloat(v) : std::string("null");
}

// The header fields that are present, as (key, text, JSON value), in the
// order of the profile format.
struct HeaderField {
    std::string key, label, text, json;
};

std::vector<HeaderField> headerFields(const ProfileHeader& h)
{
    std::vector<HeaderField> out;
    auto text = [&](const char* key, const char* label, const std::optional<std::string>& v) {
        if (v)
            out.push_back({key, label, *v, jsonString(*v)});
    };
    auto integer = [&](const char* key, const char* label, const std::optional<int>& v) {
        if (v)
            out.push_back({key, label, std::to_string(*v), std::to_string(*v)});
    };
    auto real = [&](const char* key, const char* label, const std::optional<float>& v) {
        if (v)
            out.push_back({key, label, formatFloat(*v), jsonNumber(*v)});
    };
    text("maker", "maker", h.maker);
    text("model", "model", h.model);
    text("film", "film", h.film);
    integer("iso", "ISO", h.iso);
    integer("multisampling", "multisampling", h.multisampling);
    real("shutterspeed", "shutter speed (s)", h.shutterSpeed);
    real("exposurecomp", "exposure comp. (EV)", h.exposureComp);
    integer("megapixels", "megapixels", h.megapixels);
    integer("quality", "quality", h.quality);
    integer("sharpness", "sharpness", h.sharpness);
    integer("illuminant", "illuminant", h.illuminant);
    integer("contrast", "contrast", h.contrast);
    integer("saturation", "saturation", h.saturation);
    real("temperature", "temperature", h.temperature);
    text("colorspace", "colour space", h.colorSpace);
    text("author", "author", h.author);
    text("comment", "comment", h.comment);
    return out;
}

std::string floatList(const float* v, int n, const char* separator)
{
    std::string out;
    for (int i = 0; i < n; ++i)
        out += (i ? separator : "") + jsonNumber(v[i]);
    return out;
}

void printJson(const std::string& path, const ProfileHeader& header, const DnFilterParams& settings,
               const std::vector<DnNoiseSample>& samples)
{
    std::ostringstream out;
    out << "{\n  \"file\": " << jsonString(path) << ",\n  \"header\": {";
    const std::vector<HeaderField> fields = headerFields(header);
    for (size_t i = 0; i < fields.size(); ++i)
        out << (i ? ", " : "") << jsonString(fields[i].key) << ": " << fields[i].json;
    out << "},\n  \"settings\": " << settingsJson(settings) << ",\n  \"scales\": {";
    for (int i = 0; i < DnHostScaleCount; ++i)
        out << (i ? ", " : "") << jsonString(DnHostScales[i].name) << ": [" << formatFloat(DnHostScales[i].low) << ", "
            << formatFloat(DnHostScales[i].middle) << ", " << formatFloat(DnHostScales[i].high) << "]";
    out << "},\n  \"sample_count\": " << samples.size() << ",\n  \"samples\": [";
    for (size_t i = 0; i < samples.size(); ++i) {
        const DnNoiseSample& s = samples[i];
        const float ycrcb[3] = {s.y, s.cr, s.cb}, rgb[3] = {s.r, s.g, s.b}, lab[3] = {s.labL, s.labA, s.labB};
        out << (i ? "," : "") << "\n    {\"rect\": [" << s.left << ", " << s.top << ", " << s.right << ", " << s.bottom
            << "], \"ycrcb\": [" << floatList(ycrcb, 3, ", ") << "], \"rgb\": [" << floatList(rgb, 3, ", ")
            << "], \"lab\": [" << floatList(lab, 3, ", ") << "],\n     \"noise\": {\"y\": ["
            << floatList(s.noiseY, 5, ", ") << "], \"cr\": [" << floatList(s.noiseCr, 5, ", ") << "], \"cb\": ["
            << floatList(s.noiseCb, 5, ", ") << "]}}";
    }
    out << (samples.empty() ? "]\n}\n" : "\n  ]\n}\n");
    std::fputs(out.str().c_str(), stdout);
}

std::string padded(const std::string& s, size_t width)
{
    return s.size() >= width ? s + " " : s + std::string(width - s.size(), ' ');
}

std::string fixed(float v, int width, int decimals)
{
    char buf[48];
    std::snprintf(buf, sizeof buf, "%*.*f", width, decimals, static_cast<double>(v));
    return buf;
}

void printText(const std::string& path, const ProfileHeader& header, const DnFilterParams& settings,
               const std::vector<DnNoiseSample>& samples)
{
    std::ostringstream out;
    out << "Profile " << path << "\n\nHeader\n";
    const std::vector<HeaderField> fields = headerFields(header);
    if (fields.empty())
        out << "  (no fields)\n";
    for (const HeaderField& f : fields)
        out << "  " << padded(f.label, 22) << f.text << "\n";
    out << "\nSettings\n";
    const auto rows = settingsRows(settings);
    for (size_t i = 0; i < rows.size(); ++i) {
        out << "  " << padded(rows[i].first, 22) << padded(rows[i].second, 10);
        if (static_cast<int>(i) < DnHostScaleCount)
            out << "(" << scaleText(static_cast<int>(i)) << ")";
        out << "\n";
    }
    out << "\nSamples: " << samples.size() << "\n";
    // Profile files keep a sample's colour and noise but not the patch it was
    // measured on, so the table shows no rectangle (JSON has it, as stored).
    if (!samples.empty())
        out << "     #       Y      Cr      Cb  channel  noise at levels 0 1 2 3 4\n";
    for (size_t i = 0; i < samples.size(); ++i) {
        const DnNoiseSample& s = samples[i];
        char head[96];
        std::snprintf(head, sizeof head, "  %4zu  ", i);
        const std::string colour = fixed(s.y, 6, 4) + " " + fixed(s.cr, 7, 4) + " " + fixed(s.cb, 7, 4);
        const float* noise[3] = {s.noiseY, s.noiseCr, s.noiseCb};
        const char* names[3] = {"Y ", "Cr", "Cb"};
        for (int c = 0; c < 3; ++c) {
            out << (c == 0 ? std::string(head) + colour : std::string(std::strlen(head) + colour.size(), ' '))
                << "  " << names[c] << "     ";
            for (int l = 0; l < 5; ++l)
                out << " " << fixed(noise[c][l], 9, 6);
            out << "\n";
        }
    }
    std::fputs(out.str().c_str(), stdout);
}

void runInfo(const InfoOptions& o)
{
    o.output_.apply();
    const LoadedProfile loaded = loadProfile(o.profile);
    const ProfileHeader header = readProfileHeader(loaded.bytes);
    const std::vector<DnNoiseSample> samples = profileSamples(loaded.bytes, o.profile);
    if (o.json)
        printJson(o.profile, header, loaded.settings, samples);
    else
        printText(o.profile, header, loaded.settings, samples);
}

}  // namespace

CommandRunner addInfoCommand(CLI::App& app)
{
    auto o = std::make_shared<InfoOptions>();
    CLI::App* sub = app.add_subcommand("info", "show what a noise profile holds");
    sub->footer(
        "Shows the header fields that are present, the stored settings on the scales of the settings\n"
        "options, and the samples: per sample its patch, its colour (Y, Cr, Cb; in JSON also R, G, B\n"
        "and L*a*b*) and its noise per channel and wavelet level (0 the finest; -1 not measured).");
    sub->add_option("profile", o->profile, "the profile file")->required()->type_name("FILE.dnp");
    sub->add_flag("--json", o->json, "print JSON instead of aligned text");
    o->output_.addTo(*sub);
    return [o] { runInfo(*o); };
}

}  // namespace murmex_app
