#include "host/file_kind.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "support/temp_dir.h"

namespace murmex_host {
namespace {

TEST(FileKind, EachKindOfFileIsNamedAndOnlySpecialOnesAreUnreadable)
{
    murmex_test::TempDir dir;
    std::ofstream(dir.file("plain")) << "x";
    std::filesystem::create_directory(dir.file("folder"));
    ASSERT_EQ(mkfifo(dir.file("pipe").c_str(), 0644), 0);
    std::filesystem::create_symlink("pipe", dir.file("link-to-pipe"));
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, dir.file("socket").c_str(), sizeof addr.sun_path - 1);
    ASSERT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof addr), 0) << std::strerror(errno);

    const std::vector<std::tuple<std::string, std::string, std::string>> cases = {
        {dir.file("plain"), "", ""},
        {dir.file("missing"), "", ""},
        {dir.file("folder"), "a directory", ""},
        {dir.file("pipe"), "a named pipe", "it is a named pipe, not a regular file"},
        {dir.file("link-to-pipe"), "a named pipe", "it is a named pipe, not a regular file"},
        {dir.file("socket"), "a socket", "it is a socket, not a regular file"},
        {"/dev/null", "a device", "it is a device, not a regular file"},
    };
    for (const auto& [path, kind, why] : cases) {
        EXPECT_EQ(specialFileKind(path), kind) << path;
        EXPECT_EQ(unreadableKind(path), why) << path;
    }
    close(fd);
}

}  // namespace
}  // namespace murmex_host
