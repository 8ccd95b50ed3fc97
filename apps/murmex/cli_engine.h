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
#include "safe_write.h"

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

// The same, handing the result's rows to rows as they complete (for a writer
// on another thread) instead of returning the whole image. The library is
// stopped, as by an interrupt, once the writer has stopped taking rows.
// Nothing is finished or abandoned here: the caller decides once this
// returns.
class ResultRows;
void removeNoise(const Image& image, DnFilterParams params, const std::vector<uint8_t>& profile, Progress& progress,
                 const std::string& name, ResultRows& rows);

// A private copy of a user's profile file, for the library: it opens profile
// files for writing as well as reading and creates them when missing, so it
// never gets the user's own file. The copy has the original's file name (the
// library's progress shows it) in a temporary folder of its own, removed
// with the object. Throws AppError "cannot load profile PATH: no such file",
// ": empty file", ": permission denied" and the like.
class ProfileCopy {
public:
    explicit ProfileCopy(const std::string& path);
    ~ProfileCopy();
    ProfileCopy(const ProfileCopy&) = delete;
    ProfileCopy& operator=(const ProfileCopy&) = delete;
    const std::string& path() const { return path_; }
    // message with the copy's path replaced by the original's.
    std::string forUser(const std::string& message) const;

private:
    std::string original_, dir_, path_;
};

struct LoadedProfile {
    std::vector<uint8_t> bytes;  // the serialised profile
    DnFilterParams settings{};   // its stored settings (settings block only)
};
// DnReadProfile on a ProfileCopy. Throws AppError "cannot load profile PATH:
// <reason>".
LoadedProfile loadProfile(const std::string& path);

// Saves a profile block with the settings block of settings at path, through
// a temporary file and a rename (DnWriteProfile). Throws AppError.
void saveProfile(const std::string& path, const std::vector<uint8_t>& bytes, const DnFilterParams& settings,
                 Links links = Links::Follow);

// The samples of a profile block (DnReadProfileSamples2). Throws AppError
// naming path.
std::vector<DnNoiseSample> profileSamples(const std::vector<uint8_t>& bytes, const std::string& path);

// Refuses a profile that would denoise nothing or nonsense: one with no
// samples, or with a noise value that is not a number, negative (other than
// -1, not measured) or above full scale. Throws AppError "cannot use profile
// PATH: <why>".
void checkProfileSamples(const std::vector<uint8_t>& bytes, const std::string& path);

// Sets the library's process-wide tuning values that are given. Throws
// AppError when the library refuses one.
void applyTuning(std::optional<int> stripWidth, std::optional<int> rowsPerThread, std::optional<int> levels);

}  // namespace murmex_app
