#include "base/qtless/qstring.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <vector>

namespace qtless {

QString& QString::operator+=(const QString& s)
{
    s_ += s.s_;
    return *this;
}

QString& QString::operator+=(const char* s)
{
    if (s)
        s_.append(s, std::strlen(s));
    return *this;
}

QString& QString::operator+=(char c)
{
    const char text[2] = {c, '\0'};
    return *this += text;
}

QString QString::number(int n)
{
    return QString().sprintf("%d", n);
}

QString QString::number(double x)
{
    return QString().sprintf("%f", x);
}

QString QString::sprintf(const char* format, ...) const
{
    va_list args;
    va_start(args, format);
    va_list measure;
    va_copy(measure, args);
    const int needed = std::vsnprintf(nullptr, 0, format, measure);
    va_end(measure);
    if (needed < 0) {
        va_end(args);
        return QString();
    }
    std::vector<char> buf(static_cast<size_t>(needed) + 1);
    std::vsnprintf(buf.data(), buf.size(), format, args);
    va_end(args);
    return QString(std::string(buf.data(), static_cast<size_t>(needed)));
}

QString QString::lower() const
{
    std::string out = s_;
    for (char& c : out)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return QString(out);
}

QString QString::arg(const QString& a) const
{
    const size_t p = s_.find('%');
    if (p == std::string::npos)
        return *this;
    // substr(p + 2) throws std::out_of_range when '%' is the last character.
    return QString(s_.substr(0, p) + a.s_ + s_.substr(p + 2));
}

QString QString::arg(int n) const
{
    return arg(number(n));
}

QString operator+(const QString& a, const QString& b)
{
    QString r(a);
    r += b;
    return r;
}

QString operator+(const QString& a, const char* b)
{
    return a + QString(b);
}

QString operator+(const char* a, const QString& b)
{
    return QString(a) + b;
}

bool operator==(const QString& a, const QString& b)
{
    return a.toStdString() == b.toStdString();
}

bool operator==(const QString& a, const char* b) { return a == QString(b); }
bool operator==(const char* a, const QString& b) { return QString(a) == b; }
bool operator!=(const QString& a, const QString& b) { return !(a == b); }
bool operator!=(const QString& a, const char* b) { return !(a == QString(b)); }
bool operator!=(const char* a, const QString& b) { return !(QString(a) == b); }

}  // namespace qtless
