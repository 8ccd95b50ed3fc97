// A temporary directory made for one test and removed with everything in it
// when the object goes out of scope.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

#include <gtest/gtest.h>

namespace murmex_test {

class TempDir {
public:
    TempDir()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "murmex-test-XXXXXX").string();
        std::vector<char> buf(pattern.begin(), pattern.end());
        buf.push_back('\0');
        if (mkdtemp(buf.data()))
            path_ = buf.data();
        else
            ADD_FAILURE() << "cannot create a temporary directory";
    }
    ~TempDir()
    {
        std::error_code ec;
        if (!path_.empty())
            std::filesystem::remove_all(path_, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return path_; }
    // The path of name inside the directory.
    std::string file(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

// The whole content of a file, as bytes.
inline std::vector<unsigned char> readFileBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::vector<unsigned char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void writeFileBytes(const std::string& path, const std::vector<unsigned char>& bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

// The whole content of a file, as text.
inline std::string readText(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

inline void writeText(const std::string& path, const std::string& text)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

}  // namespace murmex_test
