#include "host/engine_output.h"

#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <iostream>

#include "host/host_error.h"

namespace murmex_host {

namespace {

std::atomic<bool> verboseEngine{false};

bool startsWith(const std::string& s, const std::string& prefix)
{
    return s.compare(0, prefix.size(), prefix) == 0;
}

// Points fd 1 at a temporary file for its lifetime.
class StdoutCapture {
public:
    StdoutCapture()
    {
        std::cout.flush();
        std::fflush(stdout);
        file_ = std::tmpfile();
        if (!file_)
            throw HostError("cannot capture the library's output: no temporary file");
        saved_ = dup(STDOUT_FILENO);
        if (saved_ < 0 || dup2(fileno(file_), STDOUT_FILENO) < 0) {
            if (saved_ >= 0)
                close(saved_);
            std::fclose(file_);
            throw HostError("cannot capture the library's output");
        }
    }
    ~StdoutCapture()
    {
        restore();
        std::fclose(file_);
    }
    StdoutCapture(const StdoutCapture&) = delete;
    StdoutCapture& operator=(const StdoutCapture&) = delete;

    void restore()
    {
        if (saved_ < 0)
            return;
        std::cout.flush();
        std::fflush(stdout);
        dup2(saved_, STDOUT_FILENO);
        close(saved_);
        saved_ = -1;
    }

    std::vector<std::string> lines()
    {
        restore();
        std::vector<std::string> out;
        std::rewind(file_);
        std::string line;
        int c;
        bool any = false;
        while ((c = std::fgetc(file_)) != EOF) {
            any = true;
            if (c == '\n') {
                out.push_back(line);
                line.clear();
                any = false;
            } else {
                line.push_back(static_cast<char>(c));
            }
        }
        if (any)
            out.push_back(line);
        return out;
    }

private:
    std::FILE* file_ = nullptr;
    int saved_ = -1;
};

}  // namespace

std::string EngineResult::message() const
{
    return error.empty() ? std::string("the library reported a failure") : error;
}

void setEngineVerbose(bool verbose)
{
    verboseEngine = verbose;
}

std::string engineErrorMessage(const std::vector<std::string>& lines)
{
    for (const std::string& line : lines) {
        for (const char* prefix : {"Murmex error: ", "Murmex exception: "})
            if (startsWith(line, prefix))
                return line.substr(std::string(prefix).size());
        if (startsWith(line, "Murmex unknown error"))
            return "unknown error";
    }
    return {};
}

EngineResult callEngine(const std::function<int()>& call)
{
    EngineResult result;
    {
        StdoutCapture capture;
        result.code = call();
        result.lines = capture.lines();
    }
    result.error = engineErrorMessage(result.lines);
    if (verboseEngine) {
        for (const std::string& line : result.lines)
            if (engineErrorMessage({line}).empty())
                std::fprintf(stderr, "%s\n", line.c_str());
    }
    return result;
}

}  // namespace murmex_host
