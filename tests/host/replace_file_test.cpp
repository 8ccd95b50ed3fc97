#include "host/replace_file.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/host_error.h"
#include "support/temp_dir.h"

namespace murmex_host {
namespace {

namespace fs = std::filesystem;
using murmex_test::readText;
using murmex_test::TempDir;
using murmex_test::writeText;



std::vector<std::string> names(const std::string& dir)
{
    std::vector<std::string> out;
    for (const auto& e : fs::directory_iterator(dir))
        out.push_back(e.path().filename().string());
    std::sort(out.begin(), out.end());
    return out;
}

mode_t modeOf(const std::string& path)
{
    struct stat st {};
    stat(path.c_str(), &st);
    return st.st_mode & 07777;
}

TEST(ReplaceFile, TheContentsArriveWholeThroughAHiddenTemporaryFileBeside)
{
    TempDir dir;
    writeText(dir.file("p.dnp"), "old");
    chmod(dir.file("p.dnp").c_str(), 0640);
    std::string seen;
    replaceFile(dir.file("p.dnp"), LinkAtName::Follow, "cannot write", [&](const std::string& temporary) {
        seen = temporary;
        EXPECT_EQ(readText(dir.file("p.dnp")), "old");
        writeText(temporary, "new");
    });
    EXPECT_EQ(fs::path(seen).parent_path(), fs::path(dir.path()));
    EXPECT_EQ(fs::path(seen).filename().string().rfind(".p.dnp.murmex-", 0), 0u) << seen;
    EXPECT_EQ(readText(dir.file("p.dnp")), "new");
    EXPECT_EQ(modeOf(dir.file("p.dnp")), 0640u);
    EXPECT_EQ(names(dir.path()), std::vector<std::string>{"p.dnp"});
}

TEST(ReplaceFile, ANewFileGetsTheUsualModeUnderTheUmask)
{
    TempDir dir;
    const mode_t mask = umask(027);
    replaceFile(dir.file("new.dnp"), LinkAtName::Replace, "cannot write",
                [](const std::string& temporary) { writeText(temporary, "new"); });
    umask(mask);
    EXPECT_EQ(modeOf(dir.file("new.dnp")), 0640u);
}

TEST(ReplaceFile, AFailedWriteLeavesTheFileAsItWasAndTakesItsTemporaryFile)
{
    TempDir dir;
    writeText(dir.file("p.dnp"), "old");
    EXPECT_THROW(replaceFile(dir.file("p.dnp"), LinkAtName::Follow, "cannot write",
                             [](const std::string& temporary) {
                                 writeText(temporary, "half");
                                 throw std::runtime_error("disk full");
                             }),
                 std::runtime_error);
    EXPECT_EQ(readText(dir.file("p.dnp")), "old");
    EXPECT_EQ(names(dir.path()), std::vector<std::string>{"p.dnp"});
}

TEST(ReplaceFile, ALinkIsFollowedOrReplacedAsAsked)
{
    TempDir dir;
    writeText(dir.file("real.dnp"), "old");
    fs::create_symlink("real.dnp", dir.file("followed.dnp"));
    fs::create_symlink("real.dnp", dir.file("replaced.dnp"));
    replaceFile(dir.file("followed.dnp"), LinkAtName::Follow, "cannot write",
                [](const std::string& temporary) { writeText(temporary, "through the link"); });
    EXPECT_TRUE(fs::is_symlink(fs::symlink_status(dir.file("followed.dnp"))));
    EXPECT_EQ(readText(dir.file("real.dnp")), "through the link");
    replaceFile(dir.file("replaced.dnp"), LinkAtName::Replace, "cannot write",
                [](const std::string& temporary) { writeText(temporary, "in place of the link"); });
    EXPECT_FALSE(fs::is_symlink(fs::symlink_status(dir.file("replaced.dnp"))));
    EXPECT_EQ(readText(dir.file("replaced.dnp")), "in place of the link");
    EXPECT_EQ(readText(dir.file("real.dnp")), "through the link");
}

TEST(ReplaceFile, AMissingDirectoryOrALoopOfLinksIsAnErrorInTheCallersWords)
{
    TempDir dir;
    fs::create_symlink("b", dir.file("a"));
    fs::create_symlink("a", dir.file("b"));
    const std::vector<std::pair<std::string, std::string>> cases = {
        {dir.file("no/such/p.dnp"), "No such file or directory"},
        {dir.file("a"), "Too many levels of symbolic links"},
    };
    for (const auto& [path, reason] : cases) {
        try {
            replaceFile(path, LinkAtName::Follow, "cannot write profile " + path,
                        [](const std::string&) { FAIL() << "nothing to write into"; });
            ADD_FAILURE() << path;
        } catch (const HostError& e) {
            EXPECT_EQ(std::string(e.what()), "cannot write profile " + path + ": " + reason);
        }
    }
    EXPECT_EQ(names(dir.path()), (std::vector<std::string>{"a", "b"}));
}

TEST(ReplaceFile, ReplaceAllNamesTheFileInEveryPlace)
{
    EXPECT_EQ(replaceAll("Error writing /d/.p.murmex-1: full (/d/.p.murmex-1)", "/d/.p.murmex-1", "/d/p"),
              "Error writing /d/p: full (/d/p)");
    EXPECT_EQ(replaceAll("abc", "", "x"), "abc");
    EXPECT_EQ(replaceAll("aaa", "a", "aa"), "aaaaaa");
}

}  // namespace
}  // namespace murmex_host
