// The descriptive header of a .dnp profile file, read and replaced without the library.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "metadata.h"

namespace murmex_app {

struct ProfileHeader {
    std::optional<std::string> maker, model, film;
    std::optional<int> iso, multisampling;
    std::optional<float> shutterSpeed, exposureComp;
    std::optional<int> megapixels, quality, sharpness, illuminant, contrast, saturation;
    std::optional<float> temperature;
    std::optional<std::string> colorSpace, author, comment;
};

// Throws AppError on a corrupt block.
ProfileHeader readProfileHeader(const std::vector<uint8_t>& profileBytes);

// The same profile bytes with the header record replaced (version 44548, tagged record; empty header text block, which the library regenerates when the block is saved through DnWriteProfile).
std::vector<uint8_t> withProfileHeader(const std::vector<uint8_t>& profileBytes, const ProfileHeader& header);

// Also megapixels from the image size.
ProfileHeader headerFromCamera(const CameraInfo& info, int width, int height);

std::string autoProfileDirectory(const ProfileHeader& header);  // e.g. "/Canon/EOS 5D"
std::string autoProfileFileName(const ProfileHeader& header);   // without ".dnp"

}  // namespace murmex_app
