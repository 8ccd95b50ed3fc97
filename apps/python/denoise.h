// murmex.denoise: one image through DnRemoveNoise2.
#pragma once

#include <optional>

#include <murmex/murmex.h>
#include <pybind11/pybind11.h>

#include "settings.h"

namespace murmex_python {

struct DenoiseOptions {
    SettingsRequest settings;        // the settings keywords given, and settings="auto"
    std::optional<int> threads;      // none: one worker per processor
    bool turbo = false;
    pybind11::object progress = pybind11::none();
    pybind11::object out = pybind11::none();
};

// image: see ArrayImage. profile: a murmex.Profile, a path to a .dnp file, or
// None to measure one from the image. The settings are the defaults, or
// those chosen for the image and profile with settings.automatic, with the
// keywords given written over them. Returns out when given, else a new array
// of the image's shape and dtype.
pybind11::object denoise(const pybind11::handle& image, const pybind11::handle& profile, DenoiseOptions options);

}  // namespace murmex_python
