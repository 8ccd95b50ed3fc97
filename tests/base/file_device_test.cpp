#include "base/file_device.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/ex.h"
#include "support/temp_dir.h"

using murmex_test::TempDir;

namespace {

std::string sys(int err)
{
    return std::strerror(err);
}

template <class F>
std::string messageOf(F&& f)
{
    try {
        f();
    } catch (const JEx& e) {
        return e.what();
    }
    return "<no exception>";
}

}  // namespace

TEST(FileDeviceTest, NameIsNoFileUntilOpened)
{
    JFileDevice d;
    EXPECT_EQ(d.name(), qtless::QString("[No file]"));
    EXPECT_FALSE(d.isOpen());
}

TEST(FileDeviceTest, OpeningMissingDirectoryPathThrowsErrorOpeningWithSystemText)
{
    TempDir dir;
    const std::string path = dir.file("missing/sub/file.dnp");
    JFileDevice d;
    EXPECT_EQ(messageOf([&] { d.open(path.c_str(), O_RDONLY); }),
              "Error opening " + path + ": " + sys(ENOENT));
    EXPECT_EQ(d.name(), qtless::QString(path.c_str()));
    EXPECT_FALSE(d.isOpen());
}

TEST(FileDeviceTest, WriteSeekReadAndPosition)
{
    TempDir dir;
    const std::string path = dir.file("data.bin");
    JFileDevice d;
    d.open(path.c_str(), O_RDWR | O_CREAT);
    EXPECT_TRUE(d.isOpen());
    const unsigned char data[5] = {10, 20, 30, 40, 50};
    EXPECT_EQ(d.write(data, 5), 5u);
    EXPECT_EQ(d.position(), 5);
    d.flush();
    d.seek(1);
    EXPECT_EQ(d.position(), 1);
    unsigned char out[8] = {};
    EXPECT_EQ(d.read(out, 8), 4u);
    EXPECT_EQ(out[0], 20);
    EXPECT_EQ(out[3], 50);
    EXPECT_EQ(d.read(out, 8), 0u);
    d.close();
    EXPECT_FALSE(d.isOpen());
    EXPECT_EQ(murmex_test::readFileBytes(path), std::vector<unsigned char>(data, data + 5));
}

TEST(FileDeviceTest, OperationsOnClosedDeviceThrowTheirMessages)
{
    JFileDevice d;
    unsigned char b[1] = {0};
    const std::string tail = ": " + sys(EBADF);
    EXPECT_EQ(messageOf([&] { d.write(b, 1); }), "Error writing [No file]" + tail);
    EXPECT_EQ(messageOf([&] { d.read(b, 1); }), "Error reading [No file]" + tail);
    EXPECT_EQ(messageOf([&] { d.seek(0); }), "Error seeking [No file]" + tail);
    EXPECT_EQ(messageOf([&] { d.position(); }), "Couldn't get position of [No file]" + tail);
    EXPECT_EQ(messageOf([&] { d.flush(); }), "Error flushing [No file]" + tail);
}

TEST(FileDeviceTest, SeekingBeforeTheStartThrowsErrorSeeking)
{
    TempDir dir;
    const std::string path = dir.file("s.bin");
    JFileDevice d;
    d.open(path.c_str(), O_RDWR | O_CREAT);
    EXPECT_EQ(messageOf([&] { d.seek(-5); }), "Error seeking " + path + ": " + sys(EINVAL));
}
