#include "base/file_stream.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/ex.h"
#include "support/temp_dir.h"

using murmex_test::TempDir;
using Bytes = std::vector<unsigned char>;

TEST(FileStreamTest, WritesValuesToTheFileAndReadsThemBack)
{
    TempDir dir;
    const std::string path = dir.file("v.bin");
    {
        JFileStream s;
        s.open(path.c_str(), O_RDWR | O_CREAT);
        s.putu32(0x01020304u);
        s.put32(-1);
        s.close();
    }
    EXPECT_EQ(murmex_test::readFileBytes(path), (Bytes{1, 2, 3, 4, 0xff, 0xff, 0xff, 0xff}));
    JFileStream r;
    r.open(path.c_str(), O_RDONLY);
    EXPECT_EQ(r.getu32(), 0x01020304u);
    EXPECT_EQ(r.get32(), -1);
}

TEST(FileStreamTest, DestructorWritesPendingBytes)
{
    TempDir dir;
    const std::string path = dir.file("d.bin");
    {
        JFileStream s;
        s.open(path.c_str(), O_WRONLY | O_CREAT);
        s.putu8(0x42);
    }
    EXPECT_EQ(murmex_test::readFileBytes(path), (Bytes{0x42}));
}

TEST(FileStreamTest, FileEndingTwoBytesIntoValueGivesThoseBytesAndStaleBytes)
{
    TempDir dir;
    const std::string path = dir.file("short.bin");
    murmex_test::writeFileBytes(path, {0x12, 0x34});
    JFileStream s;
    s.open(path.c_str(), O_RDONLY);
    EXPECT_EQ(s.getu32(), 0x12340000u);
}

TEST(FileStreamTest, OpeningMissingDirectoryPathThrowsErrorOpening)
{
    TempDir dir;
    const std::string path = dir.file("nowhere/x.bin");
    JFileStream s;
    try {
        s.open(path.c_str(), O_RDWR | O_CREAT);
        FAIL() << "no exception";
    } catch (const JEx& e) {
        EXPECT_EQ(std::string(e.what()), "Error opening " + path + ": " + std::strerror(ENOENT));
    }
    EXPECT_EQ(s.device(), nullptr);
}
