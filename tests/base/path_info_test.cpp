#include "base/path_info.h"

#include <string>

#include <gtest/gtest.h>

TEST(PathInfoTest, TitleOfPathWithTwoDotsCutsBeforeTheLastDot)
{
    PathInfo p;
    EXPECT_STREQ(p.getTitle("/a/b/profile.v2.dnp"), "profile.v2");
    EXPECT_STREQ(p.getExtension("/a/b/profile.v2.dnp"), "dnp");
    EXPECT_STREQ(p.getName("/a/b/profile.v2.dnp"), "profile.v2.dnp");
    EXPECT_STREQ(p.getDirectory("/a/b/profile.v2.dnp"), "/a/b/");
}

TEST(PathInfoTest, LastComponentWithoutDotHasEmptyExtension)
{
    PathInfo p;
    EXPECT_STREQ(p.getExtension("/a/b.c/name"), "");
    EXPECT_STREQ(p.getTitle("/a/b.c/name"), "name");
}

TEST(PathInfoTest, PathWithoutSeparatorHasEmptyDirectoryAndIsItsOwnName)
{
    PathInfo p;
    EXPECT_STREQ(p.getDirectory("file.dnp"), "");
    EXPECT_STREQ(p.getName("file.dnp"), "file.dnp");
}

TEST(PathInfoTest, PathEndingInSeparatorIsItsOwnDirectory)
{
    PathInfo p;
    EXPECT_STREQ(p.getDirectory("/a/b/"), "/a/b/");
    EXPECT_STREQ(p.getName("/a/b/"), "");
}

TEST(PathInfoTest, ResultPointsIntoTheObjectsBufferUntilTheNextQuery)
{
    PathInfo p;
    const char* first = p.getName("/x/first");
    EXPECT_STREQ(first, "first");
    const std::string kept = first;
    p.getName("/x/second");
    EXPECT_EQ(kept, "first");
    PathInfo other;
    EXPECT_STREQ(other.getName("/y/z"), "z");
    EXPECT_STREQ(p.getName("/x/second"), "second");
}

TEST(PathInfoTest, SeparatorIsSlashByDefaultAndCanBeChanged)
{
    PathInfo p;
    EXPECT_EQ(p.separator(), '/');
    PathInfo w('\\');
    EXPECT_STREQ(w.getName("C:\\dir\\n.dnp"), "n.dnp");
    EXPECT_STREQ(w.getDirectory("C:\\dir\\n.dnp"), "C:\\dir\\");
}

TEST(PathInfoTest, AbsPathResolvesRelativePathAgainstBase)
{
    PathInfo p;
    EXPECT_STREQ(p.getAbsPath("c/d.dnp", "/a/b"), "/a/b/c/d.dnp");
    EXPECT_STREQ(p.getAbsPath("c/d.dnp", "/a/b/"), "/a/b/c/d.dnp");
}

TEST(PathInfoTest, AbsPathKeepsAbsolutePathAndIgnoresBase)
{
    PathInfo p;
    EXPECT_STREQ(p.getAbsPath("/x/y", "/a/b"), "/x/y");
}

TEST(PathInfoTest, AbsPathDropsDotAndEmptyComponentsAndDotDotRemovesOne)
{
    PathInfo p;
    EXPECT_STREQ(p.getAbsPath("./c//../d/./e", "/a/b"), "/a/b/d/e");
    EXPECT_STREQ(p.getAbsPath("../../x", "/a/b"), "/x");
}

TEST(PathInfoTest, AbsPathStopsDotDotAtTheRoot)
{
    PathInfo p;
    EXPECT_STREQ(p.getAbsPath("../../../x", "/a"), "/x");
    EXPECT_STREQ(p.getAbsPath("..", "/"), "/");
}

TEST(PathInfoTest, AbsPathKeepsDotDotAboveRelativeBase)
{
    PathInfo p;
    EXPECT_STREQ(p.getAbsPath("../../x", "a"), "../x");
    EXPECT_STREQ(p.getAbsPath("..", "a"), ".");
    EXPECT_STREQ(p.getAbsPath("x/", ""), "x");
}
