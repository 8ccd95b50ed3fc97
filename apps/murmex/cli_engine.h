// The application's calls into the library: an Image handed over through the
// scanline callbacks, progress through a Progress, the library's output
// captured, and failures turned into one-line AppErrors.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <murmex/murmex.h>

#include "image.h"
#include "progress.h"

namespace murmex_app {

// Measures a noise profile from the whole image (DnBuildProfile2) and returns
// its serialised form. relaxed is the library's flag. name is the image's
// file name for messages. Returns an empty block when interrupted.
std::vector<uint8_t> measureProfile(const Image& image, bool relaxed, Progress& progress, const std::string& name);

// Denoises the whole image with DnRemoveNoise2 and returns the result's RGBX
// samples. The profile is the block when it is not empty, else
// params.profilePath as the library takes it. Reads come from image and
// writes go to a separate buffer, so no row is read after it was replaced.
// params.width and height are set here. An interrupted job returns what the
// library finished; the caller checks the interrupt flag.
std::vector<uint16_t> removeNoise(const Image& image, DnFilterParams params, const std::vector<uint8_t>& profile,
                                  Progress& progress, const std::string& name);

struct LoadedProfile {
    std::vector<uint8_t> bytes;  // the serialised profile
    DnFilterParams settings{};   // its stored settings (settings block only)
};
// DnReadProfile. Throws AppError "cannot load profile PATH: <library's message>".
LoadedProfile loadProfile(const std::string& path);

// Saves a profile block with the settings block of settings at path, through
// a temporary file and a rename (DnWriteProfile). Throws AppError.
void saveProfile(const std::string& path, const std::vector<uint8_t>& bytes, const DnFilterParams& settings);

// The samples of a profile block (DnReadProfileSamples2). Throws AppError
// naming path.
std::vector<DnNoiseSample> profileSamples(const std::vector<uint8_t>& bytes, const std::string& path);

// Sets the library's process-wide tuning values that are given. Throws
// AppError when the library refuses one.
void applyTuning(std::optional<int> stripWidth, std::optional<int> rowsPerThread, std::optional<int> levels);

}  // namespace murmex_app
