// Writing a file whole or not at all: the contents go to a temporary file
// beside it, which is renamed over the file only once it is complete. A write
// that fails (a full disk, a refused profile) leaves the file as it was.
#pragma once

#include <functional>
#include <string>

namespace murmex_host {

// What a symbolic link at the file's name does.
enum class LinkAtName {
    Follow,   // the file it points to is replaced, the link stays (a name the user gave)
    Replace,  // the link itself is replaced (a name the host made)
};

// The file a name stands for once symbolic links are followed (the name
// itself when it is no link); a dangling link stands for the missing file it
// points to. Throws std::system_error (ELOOP for a loop of links) for the
// caller to word.
std::string followLinks(const std::string& path);

// text with every occurrence of `from` replaced by `to`: a message about a
// temporary file made to name the file it stands for.
std::string replaceAll(std::string text, const std::string& from, const std::string& to);

// The name a temporary file for file gets, ".NAME.murmex-XXXXXX" in file's
// directory, with "XXXXXX" still in it (for mkstemp).
std::string temporaryPattern(const std::string& file);

// Gives temporary the mode of file (for a new file, 0666 less the umask;
// where the file system refuses, it keeps its own) and renames it over file.
// Returns 0, or the errno of the rename.
int renameIntoPlace(const std::string& temporary, const std::string& file);

// Calls write(temporary) on ".NAME.murmex-XXXXXX", made (mkstemp) in the
// directory of the file path stands for, then gives it the mode of the file
// it replaces (for a new file, 0666 less the umask) and renames it over that
// file. Whatever write throws is rethrown after the temporary file is
// removed; failing to make or rename it throws HostError (context + ":
// <reason>", context being for instance "cannot write PATH").
void replaceFile(const std::string& path, LinkAtName link, const std::string& context,
                 const std::function<void(const std::string&)>& write);

}  // namespace murmex_host
