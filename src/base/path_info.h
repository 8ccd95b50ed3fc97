// PathInfo: splits file paths into directory, name, title and extension.
//
// Every query returns a pointer into the object's own buffer, valid until the
// next query on the same object. The separator is '/' unless set otherwise.
//
// getAbsPath(path, base) resolves path against the directory base:
// - a path that starts with the separator is taken as it is, base ignored;
//   otherwise it is appended to base;
// - the result is then normalised: empty and "." components are dropped, and
//   ".." removes the component before it; ".." at the root stays at the root,
//   while ".." that leads above a relative base is kept;
// - the result has no trailing separator; it is the separator alone for the
//   root and "." for an empty relative result. It starts with the separator
//   exactly when path or base does.
// The file system is not consulted: symbolic links are not followed.
#pragma once

#include <string>

class PathInfo {
public:
    explicit PathInfo(char separator = '/') : sep_(separator) {}

    char separator() const { return sep_; }
    void setSeparator(char s) { sep_ = s; }

    // The text after the last separator; the whole path when there is none.
    const char* getName(const char* path);
    // getName(path) cut before its last '.'; the whole name without a '.'.
    const char* getTitle(const char* path);
    // getName(path) after its last '.', without the dot; empty without a '.'.
    const char* getExtension(const char* path);
    // The path up to and including its last separator; empty without one.
    const char* getDirectory(const char* path);
    const char* getAbsPath(const char* path, const char* base);

private:
    std::string nameOf(const char* path) const;

    char sep_;
    std::string buf_;
};
