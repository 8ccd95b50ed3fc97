#include "safe_write.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <vector>

#include "app_error.h"
#include "file_errors.h"

namespace murmex_app {

std::string temporaryPattern(const std::string& target)
{
    const std::filesystem::path p(target);
    const std::filesystem::path dir = p.parent_path();
    std::string name(1, '.');
    name.append(p.filename().string()).append(".murmex-XXXXXX");
    return dir.empty() ? name : (dir / name).string();
}

TempOutput::TempOutput(const std::string& target) : target_(target)
{
    std::string pattern = temporaryPattern(target);
    std::vector<char> buf(pattern.begin(), pattern.end());
    buf.push_back('\0');
    const int fd = mkstemp(buf.data());
    if (fd < 0)
        throw AppError("cannot write " + target + ": " + errnoText(errno));
    close(fd);
    path_ = buf.data();
}

TempOutput::~TempOutput()
{
    if (!committed_ && !path_.empty())
        std::remove(path_.c_str());
}

void TempOutput::write(const std::function<void(const std::string& path)>& writer)
{
    try {
        writer(path_);
    } catch (const AppError& e) {
        if (deviceFull(path_))
            throw AppError("cannot write " + target_ + ": " + errnoText(ENOSPC));
        throw AppError(replaceAll(e.what(), path_, target_));
    }
}

void TempOutput::commit()
{
    mode_t mode;
    struct stat st;
    if (stat(target_.c_str(), &st) == 0) {
        mode = st.st_mode & 07777;
    } else {
        const mode_t mask = umask(0);
        umask(mask);
        mode = 0666 & ~mask;
    }
    chmod(path_.c_str(), mode);
    if (std::rename(path_.c_str(), target_.c_str()) != 0)
        throw AppError("cannot write " + target_ + ": " + errnoText(errno));
    committed_ = true;
}

}  // namespace murmex_app
