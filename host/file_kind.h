// What kind of file a name stands for, in the words the hosts' messages use.
#pragma once

#include <string>

namespace murmex_host {

// What path names when that is no regular file: "a directory", "a device",
// "a named pipe", "a socket" or "a special file" (links followed); empty for
// a regular file or a name that does not exist.
std::string specialFileKind(const std::string& path);

// Why an input must not be opened: "it is a named pipe, not a regular file"
// for a device, a named pipe, a socket or another special file, since
// opening or reading one may wait for ever (a pipe without a writer, a
// terminal) where no signal reaches the program; empty otherwise.
// Directories and missing files are left to the reader's own message.
std::string unreadableKind(const std::string& path);

}  // namespace murmex_host
