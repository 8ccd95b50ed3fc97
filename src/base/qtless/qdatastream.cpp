#include "base/qtless/qdatastream.h"

#include <fcntl.h>

#include <cstring>
#include <memory>
#include <string>

namespace qtless {

QDataStream::QDataStream(QFile* file) : name_(file->name())
{
    // No O_TRUNC: writing fewer bytes than the file holds leaves its tail.
    stream_.open(name_, O_RDWR | O_CREAT);
}

QDataStream::QDataStream(QByteArray a, int mode)
    : mem_(new JMemDevice(reinterpret_cast<const unsigned char*>(a.data()), static_cast<int>(a.size())))
{
    (void)mode;
    stream_.attach(mem_);
}

QDataStream::~QDataStream()
{
    try {
        stream_.close();
    } catch (...) {
        // A destructor cannot throw.
    }
    delete mem_;
}

QBuffer* QDataStream::device()
{
    stream_.flush();
    if (mem_) {
        QByteArray a(static_cast<int>(mem_->size()));
        if (mem_->size() > 0)
            std::memcpy(a.data(), mem_->buf(), mem_->size());
        buffer_.setBuffer(a);
    }
    return &buffer_;
}

QDataStream& QDataStream::operator<<(int v)
{
    stream_.put32(v);
    return *this;
}

QDataStream& QDataStream::operator<<(unsigned int v)
{
    stream_.putu32(v);
    return *this;
}

QDataStream& QDataStream::operator<<(float v)
{
    stream_.putf32(v);
    return *this;
}

QDataStream& QDataStream::writeBytes(const char* p, unsigned int n)
{
    stream_.putu32(n);
    stream_.write8(reinterpret_cast<const unsigned char*>(p), n);
    return *this;
}

QDataStream& QDataStream::operator<<(const char* s)
{
    if (!s) {
        stream_.putu32(0);
        return *this;
    }
    return writeBytes(s, static_cast<unsigned int>(std::strlen(s)) + 1);
}

QDataStream& QDataStream::operator<<(const QString& s)
{
    if (s.isEmpty()) {
        stream_.putu32(0);
        return *this;
    }
    return writeBytes(s.utf8(), static_cast<unsigned int>(s.length()) + 1);
}

QDataStream& QDataStream::operator>>(int& v)
{
    v = stream_.get32();
    return *this;
}

QDataStream& QDataStream::operator>>(unsigned int& v)
{
    v = stream_.getu32();
    return *this;
}

QDataStream& QDataStream::operator>>(float& v)
{
    v = stream_.getf32();
    return *this;
}

QDataStream& QDataStream::readBytes(char*& p, unsigned int& n)
{
    n = stream_.getu32();
    if (n == 0) {
        p = nullptr;
        return *this;
    }
    std::unique_ptr<char[]> bytes(new char[n]);
    stream_.read8(reinterpret_cast<unsigned char*>(bytes.get()), n);
    p = bytes.release();
    return *this;
}

QDataStream& QDataStream::operator>>(QString& s)
{
    char* p = nullptr;
    unsigned int n = 0;
    readBytes(p, n);
    std::unique_ptr<char[]> bytes(p);
    s = QString(std::string(p ? p : "", p ? strnlen(p, n) : 0));
    return *this;
}

}  // namespace qtless
