#include "file_errors.h"

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

void requireReadableKind(const std::string& path, const std::string& context)
{
    const std::string why = murmex_host::unreadableKind(path);
    if (!why.empty())
        throw AppError(context + ": " + why);
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
