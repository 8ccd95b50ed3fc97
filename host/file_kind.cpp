#include "host/file_kind.h"

#include <sys/stat.h>

namespace murmex_host {

std::string specialFileKind(const std::string& path)
{
    struct stat st;
    if (stat(path.c_str(), &st) != 0 || S_ISREG(st.st_mode))
        return {};
    return S_ISDIR(st.st_mode)                         ? "a directory"
           : S_ISCHR(st.st_mode) || S_ISBLK(st.st_mode) ? "a device"
           : S_ISFIFO(st.st_mode)                       ? "a named pipe"
           : S_ISSOCK(st.st_mode)                       ? "a socket"
                                                        : "a special file";
}

std::string unreadableKind(const std::string& path)
{
    const std::string kind = specialFileKind(path);
    if (kind.empty() || kind == "a directory")
        return {};
    return "it is " + kind + ", not a regular file";
}

}  // namespace murmex_host
