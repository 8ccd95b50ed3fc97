#include "base/path_info.h"

#include <vector>

std::string PathInfo::nameOf(const char* path) const
{
    const std::string p = path ? path : "";
    const size_t s = p.rfind(sep_);
    return s == std::string::npos ? p : p.substr(s + 1);
}

const char* PathInfo::getName(const char* path)
{
    buf_ = nameOf(path);
    return buf_.c_str();
}

const char* PathInfo::getTitle(const char* path)
{
    const std::string name = nameOf(path);
    const size_t dot = name.rfind('.');
    buf_ = dot == std::string::npos ? name : name.substr(0, dot);
    return buf_.c_str();
}

const char* PathInfo::getExtension(const char* path)
{
    const std::string name = nameOf(path);
    const size_t dot = name.rfind('.');
    buf_ = dot == std::string::npos ? std::string() : name.substr(dot + 1);
    return buf_.c_str();
}

const char* PathInfo::getDirectory(const char* path)
{
    const std::string p = path ? path : "";
    const size_t s = p.rfind(sep_);
    buf_ = s == std::string::npos ? std::string() : p.substr(0, s + 1);
    return buf_.c_str();
}

const char* PathInfo::getAbsPath(const char* path, const char* base)
{
    const std::string p = path ? path : "";
    const std::string b = base ? base : "";
    const bool pathAbsolute = !p.empty() && p[0] == sep_;
    const std::string joined = pathAbsolute ? p : b + sep_ + p;
    const bool absolute = pathAbsolute || (!b.empty() && b[0] == sep_);

    std::vector<std::string> parts;
    size_t start = 0;
    while (start <= joined.size()) {
        size_t end = joined.find(sep_, start);
        if (end == std::string::npos)
            end = joined.size();
        const std::string part = joined.substr(start, end - start);
        if (part == "..") {
            if (!parts.empty() && parts.back() != "..")
                parts.pop_back();
            else if (!absolute)
                parts.push_back(part);
        } else if (!part.empty() && part != ".") {
            parts.push_back(part);
        }
        start = end + 1;
    }

    buf_.clear();
    if (absolute)
        buf_ += sep_;
    for (size_t i = 0; i < parts.size(); ++i) {
        if (i > 0)
            buf_ += sep_;
        buf_ += parts[i];
    }
    if (buf_.empty())
        buf_.push_back('.');
    return buf_.c_str();
}
