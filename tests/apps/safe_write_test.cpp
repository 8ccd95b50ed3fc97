#include "murmex/safe_write.h"

#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "apps/cli_fixtures.h"
#include "murmex/app_error.h"
#include "support/temp_dir.h"

namespace murmex_app {
namespace {

using murmex_test::listDir;
using murmex_test::readText;
using murmex_test::TempDir;
using murmex_test::writeText;



TEST(SafeWrite, TemporaryFileIsAHiddenSiblingOfTheTarget)
{
    EXPECT_EQ(temporaryPattern("/a/b/photo.tif"), "/a/b/.photo.tif.murmex-XXXXXX");
    EXPECT_EQ(temporaryPattern("photo.tif"), ".photo.tif.murmex-XXXXXX");
    TempDir dir;
    TempOutput out(dir.file("photo.tif"));
    const std::string name = std::filesystem::path(out.path()).filename().string();
    EXPECT_EQ(std::filesystem::path(out.path()).parent_path().string(), dir.path());
    EXPECT_EQ(name.rfind(".photo.tif.murmex-", 0), 0u) << name;
    EXPECT_EQ(name.size(), std::string(".photo.tif.murmex-XXXXXX").size());
    EXPECT_TRUE(std::filesystem::exists(out.path()));
}

TEST(SafeWrite, CommitRenamesOverTheTarget)
{
    TempDir dir;
    writeText(dir.file("out.txt"), "old");
    {
        TempOutput out(dir.file("out.txt"));
        writeText(out.path(), "new");
        EXPECT_EQ(readText(dir.file("out.txt")), "old");
        out.commit();
    }
    EXPECT_EQ(readText(dir.file("out.txt")), "new");
    EXPECT_EQ(listDir(dir.path()), std::vector<std::string>{"out.txt"});
}

TEST(SafeWrite, AMadeNameRefusesALinkAndALinkThatAppearsLaterIsReplacedNotFollowed)
{
    TempDir dir;
    writeText(dir.file("victim"), "victim");
    std::filesystem::create_symlink("victim", dir.file("link.txt"));
    std::filesystem::create_symlink("missing", dir.file("dangling.txt"));
    for (const char* name : {"link.txt", "dangling.txt"}) {
        EXPECT_THROW(checkOutputTarget(dir.file(name), Links::Refuse), AppError) << name;
        EXPECT_THROW(TempOutput(dir.file(name), true, Links::Refuse), AppError) << name;
        EXPECT_NO_THROW(checkOutputTarget(dir.file(name), Links::Follow)) << name;
    }
    {
        TempOutput out(dir.file("out.txt"), true, Links::Refuse);
        writeText(out.path(), "new");
        std::filesystem::create_symlink("victim", dir.file("out.txt"));
        out.commit();
    }
    EXPECT_EQ(readText(dir.file("victim")), "victim");
    EXPECT_FALSE(std::filesystem::is_symlink(std::filesystem::symlink_status(dir.file("out.txt"))));
    EXPECT_EQ(readText(dir.file("out.txt")), "new");
    EXPECT_EQ(listDir(dir.path()), (std::vector<std::string>{"dangling.txt", "link.txt", "out.txt", "victim"}));
}

TEST(SafeWrite, AnUncommittedTemporaryFileIsRemovedAndTheTargetKept)
{
    TempDir dir;
    writeText(dir.file("out.txt"), "old");
    try {
        TempOutput out(dir.file("out.txt"));
        writeText(out.path(), "partial");
        throw std::runtime_error("failure while writing");
    } catch (const std::runtime_error&) {
    }
    EXPECT_EQ(listDir(dir.path()), std::vector<std::string>{"out.txt"});
    EXPECT_EQ(readText(dir.file("out.txt")), "old");
}

TEST(SafeWrite, CommitKeepsTheModeOfAnExistingTargetAndUsesTheUmaskOtherwise)
{
    TempDir dir;
    writeText(dir.file("kept.txt"), "old");
    chmod(dir.file("kept.txt").c_str(), 0640);
    {
        TempOutput out(dir.file("kept.txt"));
        out.commit();
    }
    struct stat st;
    ASSERT_EQ(stat(dir.file("kept.txt").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);

    const mode_t mask = umask(022);
    {
        TempOutput out(dir.file("new.txt"));
        out.commit();
    }
    umask(mask);
    ASSERT_EQ(stat(dir.file("new.txt").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0644u);
}

TEST(SafeWrite, AMissingDirectoryIsAnErrorNamingTheTarget)
{
    TempDir dir;
    try {
        TempOutput out(dir.file("no/such/dir/out.tif"));
        FAIL() << "no error";
    } catch (const AppError& e) {
        EXPECT_NE(std::string(e.what()).find("cannot write " + dir.file("no/such/dir/out.tif")), std::string::npos)
            << e.what();
    }
}

}  // namespace
}  // namespace murmex_app
