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

using murmex_host::replaceAll;

}  // namespace murmex_app
