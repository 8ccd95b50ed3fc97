// Helpers for the tests that run the built murmex program the way a user
// would: spawning it with captured output, a strict little JSON reader for
// its --json output, test photographs with camera metadata, and listing
// directories.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <exiv2/exiv2.hpp>
#include <gtest/gtest.h>

#include "murmex/demo_scene.h"
#include "murmex/image_io.h"
#include "support/temp_dir.h"

extern char** environ;

namespace murmex_test {

// ---- Running the program ------------------------------------------------

struct RunResult {
    int status = -1;  // exit status, or 128 + signal
    std::string out;  // standard output
    std::string err;  // standard error
};

inline std::vector<std::string> splitLines(const std::string& text)
{
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos)
            end = text.size();
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

// The program under test: the build's murmex, or the one that
// $MURMEX_TEST_PROGRAM names (to run these tests against another build).
inline std::string programPath()
{
    const char* other = std::getenv("MURMEX_TEST_PROGRAM");
    return other && *other ? other : MURMEX_CLI_PATH;
}

// A started murmex process with its standard output and error on pipes.
class Murmex {
public:
    // env entries "NAME=value" replace those of the test's environment.
    // MURMEX_PROFILES points at a directory that does not exist unless the
    // caller sets it, so that no user library takes part. A wrapper, when
    // given, is the command that starts the program (e.g. setpriv).
    explicit Murmex(const std::vector<std::string>& args, const std::vector<std::string>& env = {},
                    const std::vector<std::string>& wrapper = {})
    {
        int outPipe[2], errPipe[2];
        if (pipe(outPipe) != 0 || pipe(errPipe) != 0)
            throw std::runtime_error("pipe failed");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, outPipe[1], STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, errPipe[1], STDERR_FILENO);
        posix_spawn_file_actions_addclose(&actions, outPipe[0]);
        posix_spawn_file_actions_addclose(&actions, errPipe[0]);

        std::vector<std::string> argStrings = wrapper;
        argStrings.push_back(programPath());
        argStrings.insert(argStrings.end(), args.begin(), args.end());
        std::vector<std::string> envStrings;
        auto addUnlessSet = [&](const std::string& entry) {
            const std::string name = entry.substr(0, entry.find('='));
            for (const std::string& own : envStrings)
                if (own.substr(0, own.find('=')) == name)
                    return;
            envStrings.push_back(entry);
        };
        for (const std::string& e : env)
            addUnlessSet(e);
        addUnlessSet("MURMEX_PROFILES=/nonexistent/murmex-test-library");
        for (char** e = environ; *e; ++e)
            addUnlessSet(*e);
        std::vector<char*> argv, envp;
        for (std::string& a : argStrings)
            argv.push_back(a.data());
        argv.push_back(nullptr);
        for (std::string& e : envStrings)
            envp.push_back(e.data());
        envp.push_back(nullptr);
        const int rc = posix_spawn(&pid_, argStrings[0].c_str(), &actions, nullptr, argv.data(), envp.data());
        posix_spawn_file_actions_destroy(&actions);
        close(outPipe[1]);
        close(errPipe[1]);
        outFd_ = outPipe[0];
        errFd_ = errPipe[0];
        if (rc != 0)
            throw std::runtime_error("cannot start " + argStrings[0]);
    }
    ~Murmex()
    {
        if (pid_ > 0 && status_ < 0) {
            kill(pid_, SIGKILL);
            wait();
        }
        closeFds();
    }
    Murmex(const Murmex&) = delete;
    Murmex& operator=(const Murmex&) = delete;

    // Reads what is available until standard error holds text for which
    // ready is true, the program closes its outputs, or timeout passes.
    template <class Pred>
    bool readUntil(Pred ready, std::chrono::milliseconds timeout)
    {
        const auto end = std::chrono::steady_clock::now() + timeout;
        while (!ready(err_)) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
            if (left.count() <= 0 || !pump(static_cast<int>(left.count())))
                return ready(err_);
        }
        return true;
    }

    void signal(int sig) { kill(pid_, sig); }
    pid_t pid() const { return pid_; }
    const std::string& err() const { return err_; }

    // Reads everything to the end and waits for the exit.
    RunResult wait()
    {
        while (pump(-1)) {
        }
        if (status_ < 0) {
            int st = 0;
            waitpid(pid_, &st, 0);
            status_ = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
        }
        return {status_, out_, err_};
    }

private:
    // One poll round; false when both outputs are closed.
    bool pump(int timeoutMs)
    {
        pollfd fds[2];
        int n = 0;
        int* owners[2];
        std::string* sinks[2];
        if (outFd_ >= 0) {
            fds[n] = {outFd_, POLLIN, 0};
            owners[n] = &outFd_;
            sinks[n++] = &out_;
        }
        if (errFd_ >= 0) {
            fds[n] = {errFd_, POLLIN, 0};
            owners[n] = &errFd_;
            sinks[n++] = &err_;
        }
        if (n == 0)
            return false;
        if (poll(fds, n, timeoutMs) <= 0)
            return true;
        for (int i = 0; i < n; ++i) {
            if (!(fds[i].revents & (POLLIN | POLLHUP | POLLERR)))
                continue;
            char buf[65536];
            const ssize_t got = read(fds[i].fd, buf, sizeof buf);
            if (got > 0) {
                sinks[i]->append(buf, static_cast<size_t>(got));
            } else {
                close(*owners[i]);
                *owners[i] = -1;
            }
        }
        return true;
    }
    void closeFds()
    {
        if (outFd_ >= 0)
            close(outFd_);
        if (errFd_ >= 0)
            close(errFd_);
        outFd_ = errFd_ = -1;
    }

    pid_t pid_ = -1;
    int outFd_ = -1, errFd_ = -1;
    int status_ = -1;
    std::string out_, err_;
};

inline RunResult runMurmex(const std::vector<std::string>& args, const std::vector<std::string>& env = {},
                           const std::vector<std::string>& wrapper = {})
{
    Murmex m(args, env, wrapper);
    return m.wait();
}

inline bool contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

// One line on standard error, beginning "murmex: ".
inline void expectOneLineError(const RunResult& r, const std::string& part)
{
    const std::vector<std::string> lines = splitLines(r.err);
    ASSERT_EQ(lines.size(), 1u) << r.err;
    EXPECT_EQ(lines[0].rfind("murmex: ", 0), 0u) << lines[0];
    EXPECT_TRUE(contains(lines[0], part)) << lines[0];
}

inline std::vector<uint8_t> fileBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

// ---- A strict JSON reader ------------------------------------------------

struct Json {
    enum class Type { Null, Bool, Number, String, Array, Object } type = Type::Null;
    bool boolean = false;
    double number = 0.0;
    std::string text;
    std::vector<Json> items;
    std::vector<std::pair<std::string, Json>> members;

    bool has(const std::string& key) const
    {
        for (const auto& m : members)
            if (m.first == key)
                return true;
        return false;
    }
    const Json& operator[](const std::string& key) const
    {
        for (const auto& m : members)
            if (m.first == key)
                return m.second;
        throw std::runtime_error("no member " + key);
    }
    const Json& operator[](size_t i) const { return items.at(i); }
};

// Parses exactly one JSON value (RFC 8259: no trailing commas, no comments,
// no NaN) surrounded by white space; throws std::runtime_error otherwise.
class JsonParser {
public:
    static Json parse(const std::string& text)
    {
        JsonParser p(text);
        p.space();
        Json v = p.value();
        p.space();
        if (p.at_ != text.size())
            p.fail("trailing text");
        return v;
    }

private:
    explicit JsonParser(const std::string& t) : t_(t) {}
    [[noreturn]] void fail(const std::string& what) const
    {
        throw std::runtime_error("JSON: " + what + " at offset " + std::to_string(at_));
    }
    void space()
    {
        while (at_ < t_.size() && (t_[at_] == ' ' || t_[at_] == '\n' || t_[at_] == '\r' || t_[at_] == '\t'))
            ++at_;
    }
    bool literal(const char* word)
    {
        const size_t n = std::strlen(word);
        if (t_.compare(at_, n, word) != 0)
            return false;
        at_ += n;
        return true;
    }
    Json value()
    {
        if (at_ >= t_.size())
            fail("unexpected end");
        Json v;
        const char c = t_[at_];
        if (c == '{') {
            v.type = Json::Type::Object;
            ++at_;
            space();
            if (at_ < t_.size() && t_[at_] == '}') {
                ++at_;
                return v;
            }
            for (;;) {
                space();
                if (at_ >= t_.size() || t_[at_] != '"')
                    fail("expected a key");
                std::string key = string();
                space();
                if (at_ >= t_.size() || t_[at_] != ':')
                    fail("expected ':'");
                ++at_;
                space();
                v.members.emplace_back(key, value());
                space();
                if (at_ < t_.size() && t_[at_] == ',') {
                    ++at_;
                    continue;
                }
                if (at_ < t_.size() && t_[at_] == '}') {
                    ++at_;
                    return v;
                }
                fail("expected ',' or '}'");
            }
        }
        if (c == '[') {
            v.type = Json::Type::Array;
            ++at_;
            space();
            if (at_ < t_.size() && t_[at_] == ']') {
                ++at_;
                return v;
            }
            for (;;) {
                space();
                v.items.push_back(value());
                space();
                if (at_ < t_.size() && t_[at_] == ',') {
                    ++at_;
                    continue;
                }
                if (at_ < t_.size() && t_[at_] == ']') {
                    ++at_;
                    return v;
                }
                fail("expected ',' or ']'");
            }
        }
        if (c == '"') {
            v.type = Json::Type::String;
            v.text = string();
            return v;
        }
        if (literal("true")) {
            v.type = Json::Type::Bool;
            v.boolean = true;
            return v;
        }
        if (literal("false")) {
            v.type = Json::Type::Bool;
            return v;
        }
        if (literal("null"))
            return v;
        v.type = Json::Type::Number;
        v.number = number();
        return v;
    }
    std::string string()
    {
        ++at_;  // the opening quote
        std::string s;
        while (at_ < t_.size() && t_[at_] != '"') {
            const unsigned char c = static_cast<unsigned char>(t_[at_++]);
            if (c < 0x20)
                fail("control character in a string");
            if (c != '\\') {
                s += static_cast<char>(c);
                continue;
            }
            if (at_ >= t_.size())
                fail("unexpected end");
            const char e = t_[at_++];
            switch (e) {
            case '"': s += '"'; break;
            case '\\': s += '\\'; break;
            case '/': s += '/'; break;
            case 'b': s += '\b'; break;
            case 'f': s += '\f'; break;
            case 'n': s += '\n'; break;
            case 'r': s += '\r'; break;
            case 't': s += '\t'; break;
            case 'u': {
                if (at_ + 4 > t_.size())
                    fail("short \\u escape");
                const unsigned long code = std::stoul(t_.substr(at_, 4), nullptr, 16);
                at_ += 4;
                if (code >= 0x80)
                    fail("non-ASCII \\u escapes are not used by murmex");
                s += static_cast<char>(code);
                break;
            }
            default:
                fail("bad escape");
            }
        }
        if (at_ >= t_.size())
            fail("unterminated string");
        ++at_;
        return s;
    }
    double number()
    {
        const size_t start = at_;
        if (at_ < t_.size() && t_[at_] == '-')
            ++at_;
        auto digits = [&] {
            const size_t from = at_;
            while (at_ < t_.size() && t_[at_] >= '0' && t_[at_] <= '9')
                ++at_;
            return at_ - from;
        };
        if (at_ < t_.size() && t_[at_] == '0')
            ++at_;
        else if (digits() == 0)
            fail("bad number");
        if (at_ < t_.size() && t_[at_] == '.') {
            ++at_;
            if (digits() == 0)
                fail("bad fraction");
        }
        if (at_ < t_.size() && (t_[at_] == 'e' || t_[at_] == 'E')) {
            ++at_;
            if (at_ < t_.size() && (t_[at_] == '+' || t_[at_] == '-'))
                ++at_;
            if (digits() == 0)
                fail("bad exponent");
        }
        return std::strtod(t_.substr(start, at_ - start).c_str(), nullptr);
    }

    const std::string& t_;
    size_t at_ = 0;
};

// ---- Test photographs ----------------------------------------------------

// The demo's scene with camera-like noise: a photograph with flat patches
// that the profile measurement finds.
inline murmex_app::Image noisyPhoto(int width, int height, uint32_t seed = 7)
{
    return murmex_app::addCameraNoise(murmex_app::renderDemoScene(width, height), seed);
}

// A measured profile of a small photo, written with `murmex profile`.
inline std::string makeProfile(const TempDir& dir, const std::string& name = "p.dnp", int width = 600, int height = 400)
{
    const std::string photo = dir.file("profile-source.tif");
    murmex_app::writeImage(photo, noisyPhoto(width, height), murmex_app::ImageFormat::Tiff);
    const RunResult r = runMurmex({"profile", photo, "-o", dir.file(name), "-q"});
    EXPECT_EQ(r.status, 0) << r.err;
    return dir.file(name);
}

// Writes EXIF camera data into an existing image file.
inline void setCameraExif(const std::string& path, const std::string& maker, const std::string& model, int iso)
{
    auto image = Exiv2::ImageFactory::open(path);
    image->readMetadata();
    Exiv2::ExifData& exif = image->exifData();
    exif["Exif.Image.Make"] = maker;
    exif["Exif.Image.Model"] = model;
    exif["Exif.Photo.ISOSpeedRatings"] = static_cast<uint16_t>(iso);
    exif["Exif.Photo.ExposureTime"] = Exiv2::URational(1, 125);
    exif["Exif.Image.Artist"] = std::string("Murmex test");
    image->writeMetadata();
}

// An EXIF value of a file as text, or "" when absent.
inline std::string exifValue(const std::string& path, const std::string& key)
{
    auto image = Exiv2::ImageFactory::open(path);
    image->readMetadata();
    const Exiv2::ExifData& exif = image->exifData();
    const auto it = exif.findKey(Exiv2::ExifKey(key));
    return it == exif.end() ? std::string() : it->toString();
}

// The names of the entries of a directory, sorted.
inline std::vector<std::string> listDir(const std::string& dir)
{
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(dir))
        names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace murmex_test
