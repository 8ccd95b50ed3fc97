// What a profile header takes from a photo's EXIF. Each host fills it from
// its own metadata access (the program through Exiv2, the plug-in from the
// image's metadata).
#pragma once

#include <optional>
#include <string>

namespace murmex_host {

struct CameraInfo {  // std::nullopt when absent
    std::optional<std::string> maker, model, colorSpace;
    std::optional<int> iso, lightSource, contrast, sharpness, saturation;  // EXIF codes as stored
    std::optional<float> shutterSpeed, exposureComp;                       // seconds, EV
};

}  // namespace murmex_host
