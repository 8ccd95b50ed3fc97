#include "safe_write.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <vector>

#include "app_error.h"
#include "file_errors.h"
#include "interrupt.h"

namespace murmex_app {

namespace fs = std::filesystem;

std::string resolveOutputPath(const std::string& target)
{
    try {
        return murmex_host::followLinks(target);
    } catch (const std::system_error& e) {
        throw AppError("cannot write " + target + ": " + errnoText(e.code().value()));
    }
}

bool sameFile(const std::string& a, const std::string& b)
{
    std::error_code ec;
    if (fs::equivalent(a, b, ec))
        return true;
    auto name = [](const std::string& p) {
        std::error_code ignored;
        try {
            return fs::weakly_canonical(resolveOutputPath(p), ignored);
        } catch (const AppError&) {
            return fs::weakly_canonical(p, ignored);
        }
    };
    return name(a) == name(b);
}

void checkOutputTarget(const std::string& target, Links links)
{
    std::error_code ec;
    if (links == Links::Refuse && fs::is_symlink(fs::symlink_status(target, ec)))
        throw AppError("cannot write " + target +
                       ": it is a symbolic link, which is followed only for an output named on the command line");
    const std::string file = resolveOutputPath(target);
    // A new file: whether its directory takes it shows when it is created.
    if (!fs::exists(fs::symlink_status(file, ec)))
        return;
    const std::string kind = specialFileKind(file);
    if (!kind.empty())
        throw AppError("cannot write " + target + ": it is " + kind + ", not a regular file");
    if (access(file.c_str(), W_OK) != 0)
        throw AppError("cannot write " + target + ": " + errnoText(errno) + " (the existing file is not writable)");
}

TempOutput::TempOutput(const std::string& target, bool foreground, Links links) : target_(target)
{
    checkOutputTarget(target, links);
    resolved_ = links == Links::Follow ? resolveOutputPath(target) : target;
    std::string pattern = temporaryPattern(resolved_);
    std::vector<char> buf(pattern.begin(), pattern.end());
    buf.push_back('\0');
    // No signal between creating the file and registering it for removal.
    SignalBlock block;
    const int fd = mkstemp(buf.data());
    if (fd < 0)
        throw AppError("cannot write " + target + ": " + errnoText(errno));
    close(fd);
    path_ = buf.data();
    try {
        slot_ = registerTemporaryFile(path_, foreground);
    } catch (...) {
        std::remove(path_.c_str());
        throw;
    }
}

TempOutput::~TempOutput()
{
    SignalBlock block;
    if (!committed_ && !path_.empty())
        std::remove(path_.c_str());
    unregisterTemporaryFile(slot_);
}

void TempOutput::writeInForeground()
{
    murmex_app::writeInForeground(slot_);
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
    SignalBlock block;
    if (const int error = murmex_host::renameIntoPlace(path_, resolved_))
        throw AppError("cannot write " + target_ + ": " + errnoText(error));
    committed_ = true;
    unregisterTemporaryFile(slot_);
    slot_ = -1;
}

}  // namespace murmex_app
