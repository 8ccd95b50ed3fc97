// The profile library: a directory tree of .dnp files, one per camera and
// shooting condition, from which denoise picks a profile automatically.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/camera_info.h"
#include "host/profile_header.h"

namespace murmex_host {

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
// nearest to the photo's in stops (the ratio of the two ISOs, so that 2000
// is nearer 3200 than 800), the lower ISO on a tie. Entries without an ISO come
// after those with one; when the photo has no ISO, an entry without ISO is
// preferred, then the lowest ISO. Nothing when the photo lacks maker or
// model, or no entry has them.
std::optional<LibraryEntry> matchProfile(const std::vector<LibraryEntry>& entries, const CameraInfo& camera);

// Where a profile with this header is stored in the library at dir: the
// automatic directory and file name of the header, with ".dnp". The names
// come from a photo's metadata, so each becomes one safe path component
// first (safePathComponent), and the result is checked to resolve inside
// dir (symbolic links included); throws HostError when it does not.
std::string libraryPathFor(const std::string& dir, const ProfileHeader& header);

// text as a single file-name component: separators, control characters and
// DEL become "_", a name of dots only has its dots replaced, and the name is
// cut to at most 64 bytes without splitting a UTF-8 character.
std::string safePathComponent(const std::string& text);

// "Canon EOS 5D at ISO 1600" for messages; the parts that are missing are
// left out ("a photo without camera data" when all are).
std::string describeCamera(const CameraInfo& camera);

}  // namespace murmex_host
