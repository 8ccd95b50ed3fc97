#include "host/replace_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "host/host_error.h"

namespace murmex_host {

namespace fs = std::filesystem;

std::string followLinks(const std::string& path)
{
    fs::path p(path);
    // As many links as the kernel follows before it gives up (ELOOP).
    for (int hops = 0; hops < 40; ++hops) {
        std::error_code ec;
        if (!fs::is_symlink(fs::symlink_status(p, ec)))
            return p.string();
        const fs::path next = fs::read_symlink(p, ec);
        if (ec)
            throw std::system_error(ec);
        p = next.is_absolute() ? next : p.parent_path() / next;
    }
    throw std::system_error(ELOOP, std::generic_category());
}

std::string replaceAll(std::string text, const std::string& from, const std::string& to)
{
    if (from.empty())
        return text;
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

std::string temporaryPattern(const std::string& file)
{
    const fs::path p(file);
    std::string name(1, '.');
    name.append(p.filename().string()).append(".murmex-XXXXXX");
    return p.has_parent_path() ? (p.parent_path() / name).string() : name;
}

int renameIntoPlace(const std::string& temporary, const std::string& file)
{
    mode_t mode;
    struct stat st;
    if (stat(file.c_str(), &st) == 0) {
        mode = st.st_mode & 07777;
    } else {
        const mode_t mask = umask(0);
        umask(mask);
        mode = 0666 & ~mask;
    }
    // A file system without modes keeps the ones it gives: no reason to fail.
    chmod(temporary.c_str(), mode);
    return std::rename(temporary.c_str(), file.c_str()) == 0 ? 0 : errno;
}

void replaceFile(const std::string& path, LinkAtName link, const std::string& context,
                 const std::function<void(const std::string&)>& write)
{
    std::string file = path;
    if (link == LinkAtName::Follow) {
        try {
            file = followLinks(path);
        } catch (const std::system_error& e) {
            throw HostError(context + ": " + std::strerror(e.code().value()));
        }
    }
    std::string temporary = temporaryPattern(file);
    const int fd = mkstemp(temporary.data());
    if (fd < 0)
        throw HostError(context + ": " + std::strerror(errno));
    close(fd);
    try {
        write(temporary);
        if (const int error = renameIntoPlace(temporary, file))
            throw HostError(context + ": " + std::strerror(error));
    } catch (...) {
        std::remove(temporary.c_str());
        throw;
    }
}

}  // namespace murmex_host
