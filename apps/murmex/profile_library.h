// The profile library: a directory tree of .dnp files, one per camera and
// shooting condition, from which denoise picks a profile automatically.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "metadata.h"
#include "profile_header.h"

namespace murmex_app {

// The library directory: the --library option when given, else
// $MURMEX_PROFILES, else $XDG_DATA_HOME/murmex/profiles, else
// $HOME/.local/share/murmex/profiles.
std::string profileLibraryDirectory(const std::optional<std::string>& option);

struct LibraryEntry {
    std::string path;
    ProfileHeader header;
};

// Every .dnp file under dir (any depth, extension in any case) whose header
// can be read, in path order. Files that cannot be read are skipped; a
// missing directory gives an empty list.
std::vector<LibraryEntry> scanProfileLibrary(const std::string& dir);

// The profile for a photo: among the entries with the photo's maker and model
// (compared without surrounding blanks and case), the one whose ISO is
// nearest to the photo's, the lower ISO on a tie. Entries without an ISO come
// after those with one; when the photo has no ISO, an entry without ISO is
// preferred, then the lowest ISO. Nothing when the photo lacks maker or
// model, or no entry has them.
std::optional<LibraryEntry> matchProfile(const std::vector<LibraryEntry>& entries, const CameraInfo& camera);

// Where a profile with this header is stored in the library at dir: the
// automatic directory and file name of the header, with ".dnp".
std::string libraryPathFor(const std::string& dir, const ProfileHeader& header);

// "Canon EOS 5D at ISO 1600" for messages; the parts that are missing are
// left out ("a photo without camera data" when all are).
std::string describeCamera(const CameraInfo& camera);

}  // namespace murmex_app
