#include "settings.h"

#include <array>
#include <cstring>

#include "array_image.h"
#include "engine_run.h"
#include "host/auto_settings.h"
#include "host/host_error.h"
#include "host/host_settings.h"
#include "mapping_items.h"

namespace py = pybind11;

namespace murmex_python {

namespace {

const std::array<std::string, DnHostScaleCount>& keywords()
{
    static const std::array<std::string, DnHostScaleCount> names = [] {
        std::array<std::string, DnHostScaleCount> n;
        for (int i = 0; i < DnHostScaleCount; ++i) {
            n[i] = DnHostScales[i].name;
            for (char& c : n[i])
                if (c == '-')
                    c = '_';
        }
        return n;
    }();
    return names;
}

// A float as the shortest decimal that reads back as the same float, so that
// 1.7f shows as 1.7 rather than 1.7000000476837158.
py::float_ shortest(float value)
{
    return py::float_(std::stod(murmex_host::formatFloat(value)));
}

bool switchValue(const std::string& name, const py::handle& value)
{
    if (PyBool_Check(value.ptr()))
        return value.ptr() == Py_True;
    if (py::isinstance(value, py::module_::import("numpy").attr("bool_")))
        return value.cast<bool>();
    if (PyLong_Check(value.ptr())) {
        const long v = PyLong_AsLong(value.ptr());
        if (v == 0 || v == 1)
            return v == 1;
        PyErr_Clear();
    }
    throw py::type_error(name + " must be True or False, not " + py::repr(value).cast<std::string>());
}

float scaleValue(int i, const py::handle& value)
{
    const double v = PyFloat_AsDouble(value.ptr());
    if (v == -1.0 && PyErr_Occurred()) {
        PyErr_Clear();
        throw py::type_error(std::string(scaleKeyword(i)) + " must be a number, not " +
                             py::repr(value).cast<std::string>());
    }
    const float f = static_cast<float>(v);
    checkScale(i, f);
    return f;
}

}  // namespace

const char* scaleKeyword(int i)
{
    return keywords()[i].c_str();
}

const DnFilterParams& defaultSettings()
{
    static const DnFilterParams defaults = [] {
        DnFilterParams p{};
        murmex_host::setDefaultSettings(p);
        return p;
    }();
    return defaults;
}

py::dict settingsDict(const DnFilterParams& params)
{
    DnFilterParams copy = params;
    py::dict d;
    for (int i = 0; i < DnHostScaleCount; ++i)
        d[scaleKeyword(i)] = shortest(*DnHostScaleField(&copy, i));
    d[kSuppressHalos] = py::bool_(params.suppressHalos != 0);
    d[kLowFrequency] = py::bool_(params.lowFrequency != 0);
    return d;
}

void checkScale(int i, float value)
{
    const DnHostScale& s = DnHostScales[i];
    if (!(value >= s.low && value <= s.high))
        throw py::value_error(std::string(scaleKeyword(i)) + " must be from " + murmex_host::formatFloat(s.low) +
                              " to " + murmex_host::formatFloat(s.high) + ", not " +
                              py::repr(py::float_(value)).cast<std::string>());
}

void applySettings(DnFilterParams& params, const py::handle& mapping)
{
    DnFilterParams updated = params;
    forEachItem(mapping, "settings", "Profile.settings", [&](const py::handle& key, const py::handle& value) {
        const std::string name = py::str(key).cast<std::string>();
        bool known = false;
        for (int i = 0; i < DnHostScaleCount && !known; ++i) {
            if (name == scaleKeyword(i)) {
                *DnHostScaleField(&updated, i) = scaleValue(i, value);
                known = true;
            }
        }
        if (name == kSuppressHalos) {
            updated.suppressHalos = switchValue(name, value) ? 1 : 0;
            known = true;
        } else if (name == kLowFrequency) {
            updated.lowFrequency = switchValue(name, value) ? 1 : 0;
            known = true;
        }
        if (!known)
            throw py::type_error("unknown setting " + py::repr(key).cast<std::string>() + "; the settings are " +
                                 py::str(", ").attr("join")(settingsDict(defaultSettings())).cast<std::string>());
    });
    params = updated;
}

void SettingsRequest::applyGiven(DnFilterParams& params) const
{
    for (int i = 0; i < DnHostScaleCount; ++i) {
        if (scales[i]) {
            checkScale(i, *scales[i]);
            *DnHostScaleField(&params, i) = *scales[i];
        }
    }
    if (suppressHalos)
        params.suppressHalos = *suppressHalos ? 1 : 0;
    if (lowFrequency)
        params.lowFrequency = *lowFrequency ? 1 : 0;
}

bool automaticSettings(const py::handle& settings)
{
    if (settings.is_none())
        return false;
    if (!py::isinstance<py::str>(settings))
        throw py::type_error("settings must be \"auto\" or None, not " + py::repr(settings).cast<std::string>());
    if (settings.cast<std::string>() != "auto")
        throw py::value_error("settings must be \"auto\" or None, not " + py::repr(settings).cast<std::string>());
    return true;
}

namespace {

void readImageRow(void* context, int y, int xStart, int xEnd, unsigned short* pixels)
{
    static_cast<const ArrayImage*>(context)->readRow(y, xStart, xEnd, pixels);
}

}  // namespace

void chooseSettings(const ArrayImage& image, const std::vector<uint8_t>& profile, DnFilterParams& params)
{
    // A job like the others: it reads the profile through the library, whose
    // standard output is the process's.
    std::string failure;
    EngineRun(py::none()).run(
        [&] {
            try {
                murmex_host::chooseAutoSettings(
                    murmex_host::ScanlineImage{const_cast<ArrayImage*>(&image), readImageRow, image.width(),
                                               image.height()},
                    profile, params);
            } catch (const murmex_host::HostError& e) {
                failure = e.what();
            }
            return 0;
        },
        "cannot choose the settings");
    if (!failure.empty())
        raiseError("cannot choose the settings: " + failure);
}

std::string scaleDoc(int i)
{
    const DnHostScale& s = DnHostScales[i];
    DnFilterParams copy = defaultSettings();
    return std::string(s.description) + ", " + murmex_host::formatFloat(s.low) + " to " +
           murmex_host::formatFloat(s.high) + " (default " + murmex_host::formatFloat(*DnHostScaleField(&copy, i)) + ")";
}

py::dict scalesDict()
{
    py::dict d;
    for (int i = 0; i < DnHostScaleCount; ++i)
        d[scaleKeyword(i)] =
            py::make_tuple(shortest(DnHostScales[i].low), shortest(DnHostScales[i].middle), shortest(DnHostScales[i].high));
    return d;
}

}  // namespace murmex_python
