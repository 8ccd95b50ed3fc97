#include "file_errors.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "app_error.h"

namespace murmex_app {

std::string errnoText(int err)
{
    switch (err) {
    case ENOENT:
    case ENOTDIR:
        return "no such file";
    case EACCES:
    case EPERM:
        return "permission denied";
    case ENOSPC:
    case EDQUOT:
        return "no space left on the device";
    case EROFS:
        return "read-only file system";
    case EISDIR:
        return "is a directory";
    default: {
        std::string text = std::strerror(err);
        if (!text.empty())
            text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
        return text;
    }
    }
}

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

void requireReadableKind(const std::string& path, const std::string& context)
{
    const std::string kind = specialFileKind(path);
    if (!kind.empty() && kind != "a directory")
        throw AppError(context + ": it is " + kind + ", not a regular file");
}

bool deviceFull(const std::string& path)
{
    std::filesystem::path p(path);
    struct statvfs st;
    for (int i = 0; i < 2; ++i) {
        if (statvfs(p.c_str(), &st) == 0)
            return st.f_bavail == 0;
        p = p.parent_path().empty() ? std::filesystem::path(".") : p.parent_path();
    }
    return false;
}

}  // namespace murmex_app
