// qtless::QString: the engine's string, a value class over an 8-bit byte
// string. Text is UTF-8 by convention; no encoding conversion ever happens.
#pragma once

#include <string>

namespace qtless {

class QString {
public:
    QString() = default;
    // A null pointer gives the empty string.
    QString(const char* s) : s_(s ? s : "") {}
    explicit QString(const std::string& s) : s_(s) {}

    // All three give the same zero-terminated bytes, unchanged.
    operator const char*() const { return s_.c_str(); }
    const char* ascii() const { return s_.c_str(); }
    const char* utf8() const { return s_.c_str(); }
    const std::string& toStdString() const { return s_; }

    bool isEmpty() const { return s_.empty(); }
    int length() const { return static_cast<int>(s_.size()); }
    // No bounds check; the byte at length() is the terminating zero.
    char at(int i) const { return s_.c_str()[i]; }
    void reserve(unsigned int) {}

    QString& operator+=(const QString& s);
    QString& operator+=(const char* s);
    // Appends c as a one-character C text, so appending '\0' appends nothing.
    QString& operator+=(char c);

    static QString number(int n);     // "%d"
    static QString number(double x);  // "%f"

    // Formats with the C library's printf rules into a new string; *this is unchanged.
    QString sprintf(const char* format, ...) const __attribute__((format(printf, 2, 3)));

    // ASCII letters lowered as in the "C" locale; every other byte unchanged.
    QString lower() const;

    // Replaces the first '%' and the character after it by a. Without a '%'
    // the text comes back unchanged; a '%' as the last character throws
    // std::out_of_range. Only the first '%' counts, so chained calls fill
    // %1, %2, ... in order, and a '%' inside an inserted text is found next.
    QString arg(const QString& a) const;
    QString arg(int n) const;

private:
    std::string s_;
};

QString operator+(const QString& a, const QString& b);
QString operator+(const QString& a, const char* b);
QString operator+(const char* a, const QString& b);

bool operator==(const QString& a, const QString& b);
bool operator==(const QString& a, const char* b);
bool operator==(const char* a, const QString& b);
bool operator!=(const QString& a, const QString& b);
bool operator!=(const QString& a, const char* b);
bool operator!=(const char* a, const QString& b);

}  // namespace qtless
