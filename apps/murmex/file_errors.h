// What went wrong with a file, in the words the program's messages use.
#pragma once

#include <string>

#include "host/file_kind.h"
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

// Throws AppError ("<context>: it is a named pipe, not a regular file") for
// an input that must not be opened (murmex_host::unreadableKind).
void requireReadableKind(const std::string& path, const std::string& context);

using murmex_host::replaceAll;
using murmex_host::specialFileKind;

}  // namespace murmex_app
