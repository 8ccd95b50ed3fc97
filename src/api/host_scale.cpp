#include "api/host_scale.h"

#include <cstddef>
#include <cstring>

#include "base/ex.h"
#include "base/qtless/qobject.h"
#include "color/image_lib.h"
#include "filter/noise_filter_settings.h"

using JImageLib::Cb;
using JImageLib::Cr;
using JImageLib::Y;
using qtless::QObject;

namespace {

using Settings = JNoiseFilterSettings;

// The setting that one float field of the settings block drives: its range,
// how the host value is written (to both chroma channels for the chroma
// fields) and how it is read back (chroma from Cr only).
struct Binding {
    size_t offset;
    void (*range)(float& min, float& def, float& max);
    void (*set)(Settings& s, float v);
    float (*get)(const Settings& s);
};

const Binding kBindings[] = {
    {offsetof(DnFilterParams, lumStrength),
     [](float& a, float& b, float& c) { Settings::getStrengthRange(Y, a, b, c); },
     [](Settings& s, float v) { s.setStrength(Y, v); },
     [](const Settings& s) { return s.getStrength(Y); }},
    {offsetof(DnFilterParams, lumSmoothness),
     [](float& a, float& b, float& c) { Settings::getSmoothnessRange(Y, a, b, c); },
     [](Settings& s, float v) { s.setSmoothness(Y, v); },
     [](const Settings& s) { return s.getSmoothness(Y); }},
    {offsetof(DnFilterParams, lumContrast),
     [](float& a, float& b, float& c) { Settings::getContrastRange(Y, a, b, c); },
     [](Settings& s, float v) { s.setContrast(Y, v); },
     [](const Settings& s) { return s.getContrast(Y); }},
    {offsetof(DnFilterParams, chromaStrength),
     [](float& a, float& b, float& c) { Settings::getStrengthRange(Cr, a, b, c); },
     [](Settings& s, float v) {
         s.setStrength(Cr, v);
         s.setStrength(Cb, v);
     },
     [](const Settings& s) { return s.getStrength(Cr); }},
    {offsetof(DnFilterParams, chromaSmoothness),
     [](float& a, float& b, float& c) { Settings::getSmoothnessRange(Cr, a, b, c); },
     [](Settings& s, float v) {
         s.setSmoothness(Cr, v);
         s.setSmoothness(Cb, v);
     },
     [](const Settings& s) { return s.getSmoothness(Cr); }},
    {offsetof(DnFilterParams, chromaContrast),
     [](float& a, float& b, float& c) { Settings::getContrastRange(Cr, a, b, c); },
     [](Settings& s, float v) {
         s.setContrast(Cr, v);
         s.setContrast(Cb, v);
     },
     [](const Settings& s) { return s.getContrast(Cr); }},
    {offsetof(DnFilterParams, sharpenAmount), [](float& a, float& b, float& c) { Settings::getUSMAmountRange(a, b, c); },
     [](Settings& s, float v) { s.setUSMAmount(v); }, [](const Settings& s) { return s.getUSMAmount(); }},
    {offsetof(DnFilterParams, sharpenRadius), [](float& a, float& b, float& c) { Settings::getUSMRadiusRange(a, b, c); },
     [](Settings& s, float v) { s.setUSMRadius(v); }, [](const Settings& s) { return s.getUSMRadius(); }},
};

static_assert(sizeof(kBindings) / sizeof(kBindings[0]) == DnHostScaleCount,
              "one binding per row of the host-scale table");

// The binding of the host-scale row, found by the field it describes, so
// that the table in the public header stays the one list of scales.
const Binding& bindingOf(const DnHostScale& row)
{
    for (const Binding& b : kBindings)
        if (b.offset == row.offset)
            return b;
    throw JEx(QObject::tr("No setting for the host scale %1").arg(row.name));
}

}  // namespace

float dnMapScale(float v, float low, float middle, float high, float min, float def, float max)
{
    if (v < middle)
        return min + ((def - min) * (v - low)) / (middle - low);
    return def + ((max - def) * (v - middle)) / (high - middle);
}

void dnSettingsFromHost(const DnFilterParams& params, JNoiseFilterSettings& settings)
{
    for (const DnHostScale& row : DnHostScales) {
        const Binding& b = bindingOf(row);
        float min, def, max;
        b.range(min, def, max);
        float v;
        std::memcpy(&v, reinterpret_cast<const char*>(&params) + row.offset, sizeof v);
        b.set(settings, dnMapScale(v, row.low, row.middle, row.high, min, def, max));
    }
    settings.setUSMSuppressHalos(params.suppressHalos != 0);
    settings.setLowFreqFlag(params.lowFrequency != 0);
}

void dnSettingsToHost(const JNoiseFilterSettings& settings, DnFilterParams& params)
{
    for (int i = 0; i < DnHostScaleCount; i++) {
        const DnHostScale& row = DnHostScales[i];
        const Binding& b = bindingOf(row);
        float min, def, max;
        b.range(min, def, max);
        *DnHostScaleField(&params, i) = dnMapScale(b.get(settings), min, def, max, row.low, row.middle, row.high);
    }
    params.suppressHalos = settings.getUSMSuppressHalos() ? 1 : 0;
    params.lowFrequency = settings.getLowFreqFlag() ? 1 : 0;
}
