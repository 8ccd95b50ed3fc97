#include "base/mem_device.h"

#include <cstring>

#include "base/ex.h"
#include "base/qtless/qobject.h"

using qtless::QObject;

JMemDevice::JMemDevice(const unsigned char* data, int n)
{
    if (n > 0) {
        buffer_ = new unsigned char[n];
        std::memcpy(buffer_, data, static_cast<size_t>(n));
        size_ = capacity_ = static_cast<unsigned int>(n);
    }
}

JMemDevice::JMemDevice(int capacity)
{
    if (capacity > 0) {
        buffer_ = new unsigned char[capacity]();
        capacity_ = static_cast<unsigned int>(capacity);
    }
}

JMemDevice::~JMemDevice()
{
    delete[] buffer_;
}

void JMemDevice::close()
{
    delete[] buffer_;
    buffer_ = nullptr;
    size_ = capacity_ = pos_ = 0;
}

unsigned int JMemDevice::write(const void* buf, unsigned int len)
{
    const unsigned long long end = static_cast<unsigned long long>(pos_) + len;
    if (capacity_ <= end) {
        // Doubling past 2^31 would wrap the 32-bit capacity and never end.
        if (end >= 0x80000000ull)
            throw JEx(QObject::tr("Memory device too large"));
        unsigned int cap = 1024;
        if (end >= 1024)
            while (cap <= end)
                cap *= 2;
        unsigned char* grown = new unsigned char[cap]();
        if (size_ > 0)
            std::memcpy(grown, buffer_, size_);
        delete[] buffer_;
        buffer_ = grown;
        capacity_ = cap;
    }
    if (len > 0)
        std::memcpy(buffer_ + pos_, buf, len);
    pos_ += len;
    if (pos_ > size_)
        size_ = pos_;
    return len;
}

unsigned int JMemDevice::read(void* buf, unsigned int len)
{
    if (pos_ >= size_)
        return 0;
    const unsigned int n = len < size_ - pos_ ? len : size_ - pos_;
    std::memcpy(buf, buffer_ + pos_, n);
    pos_ += n;
    return n;
}

void JMemDevice::seek(long long pos)
{
    pos_ = static_cast<unsigned int>(pos);
}
