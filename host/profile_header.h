// The descriptive header of a noise profile as the hosts see it: read from a
// profile block and written into one through the engine's own profile
// classes, so that the profile format has a single implementation.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/camera_info.h"

namespace murmex_host {

struct ProfileHeader {
    std::optional<std::string> maker, model, film;
    std::optional<int> iso, multisampling;
    std::optional<float> shutterSpeed, exposureComp;
    std::optional<int> megapixels, quality, sharpness, illuminant, contrast, saturation;
    std::optional<float> temperature;
    std::optional<std::string> colorSpace, author, comment;
};

// The header of a profile block (either file layout; the older dense layout
// has an empty header). Throws HostError with the engine's message when the
// block is not a profile.
ProfileHeader readProfileHeader(const std::vector<uint8_t>& profileBytes);

// The profile block written again with its header replaced; samples and
// stored settings are kept. Throws HostError when the block is not a
// profile.
std::vector<uint8_t> withProfileHeader(const std::vector<uint8_t>& profileBytes, const ProfileHeader& header);

// The header for a profile measured from a photo: the camera's EXIF, and the
// megapixels from the image size.
ProfileHeader headerFromCamera(const CameraInfo& info, int width, int height);

// The storage place the engine suggests for a profile with this header:
// "/maker/model[/film]" and the file name without ".dnp". Taken as they are,
// these may hold separators or ".." from the camera's metadata:
// libraryPathFor makes them safe.
std::string autoProfileDirectory(const ProfileHeader& header);
std::string autoProfileFileName(const ProfileHeader& header);

}  // namespace murmex_host
