// What went wrong with a file, in the words the program's messages use.
#pragma once

#include <string>

#include "host/replace_file.h"

namespace murmex_app {

// The reason for a failed system call: "no such file", "permission denied",
// "no space left on the device", "empty file" and the like; other errors in
// the system's own words, lower case.
std::string errnoText(int err);

// True when the file system that holds `path` (or would hold it) has no
// free space left: a failed write there failed for that reason, whatever
// the library that wrote said.
bool deviceFull(const std::string& path);

// What path names when that is no regular file: "a directory", "a device",
// "a named pipe", "a socket" or "a special file" (links followed); empty for
// a regular file or a name that does not exist.
std::string specialFileKind(const std::string& path);

// Throws AppError ("<context>: it is a named pipe, not a regular file") when
// an input names a device, a named pipe, a socket or another special file:
// opening or reading one may wait for ever (a pipe without a writer, a
// terminal). Directories and missing files are left to the reader's own
// message.
void requireReadableKind(const std::string& path, const std::string& context);

using murmex_host::replaceAll;

}  // namespace murmex_app
