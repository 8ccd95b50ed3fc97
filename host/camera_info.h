// What a profile header takes from a photo's EXIF. Each host fills it from
// its own metadata access (the program through Exiv2, the plug-in from the
// image's metadata).
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace murmex_host {

struct CameraInfo {  // std::nullopt when absent
    std::optional<std::string> maker, model, colorSpace;
    std::optional<int> iso, lightSource, contrast, sharpness, saturation;  // EXIF codes as stored
    std::optional<float> shutterSpeed, exposureComp;                       // seconds, EV
};

// A host's access to a photo's EXIF tags by key ("Exif.Image.Make"): a
// tag's text without surrounding blanks, or its first value as a number;
// nothing when the tag is absent, empty or not a number.
struct ExifAccess {
    std::function<std::optional<std::string>(const char* key)> text;
    std::function<std::optional<int>(const char* key)> integer;
    std::function<std::optional<float>(const char* key)> real;
};

// The camera data that the tags hold: maker, model, ISO (the Exif
// directory's, else the first directory's), exposure time and
// compensation, light source, contrast, sharpness, saturation, and the
// colour space when it is sRGB or Adobe RGB.
CameraInfo cameraFromExif(const ExifAccess& exif);

}  // namespace murmex_host
