#include "base/byte_stream.h"

#include <bit>
#include <cstring>

#include "base/ex.h"
#include "base/qtless/qobject.h"
#include "base/utils.h"

using qtless::QObject;

namespace {

constexpr JByteStream::ByteOrder machineOrder =
    std::endian::native == std::endian::big ? JByteStream::BigEndian : JByteStream::LittleEndian;

}  // namespace

JByteStream::JByteStream(JStreamDevice* device)
    : device_(device),
      swap_(machineOrder != BigEndian),
      buffer_(new unsigned char[BufferSize]()),
      writeLimit_(buffer_ + WriteLimit),
      readEnd_(buffer_),
      readPos_(buffer_),
      writePos_(buffer_)
{
}

JByteStream::~JByteStream()
{
    delete[] buffer_;
}

void JByteStream::setByteOrder(ByteOrder o)
{
    swap_ = o != machineOrder;
}

void JByteStream::attach(JStreamDevice* d)
{
    close();
    device_ = d;
}

void JByteStream::close()
{
    if (!device_)
        return;
    writeOut();
    device_->close();
    device_ = nullptr;
    readPos_ = readEnd_ = writePos_ = buffer_;
}

void JByteStream::flush()
{
    writeOut();
}

// Loops until the device has taken everything. A device that keeps taking 0
// bytes keeps the loop going; unlike writeExactly there is no end-of-output
// check here.
void JByteStream::writeOut()
{
    const unsigned char* p = buffer_;
    while (p < writePos_)
        p += device_->write(p, static_cast<unsigned int>(writePos_ - p));
    writePos_ = buffer_;
}

void JByteStream::refill()
{
    writeOut();
    // A short refill lets a value read past readEnd, leaving readPos beyond
    // it; no bytes are then unread (a negative count would move memory
    // outside the buffer).
    const unsigned int unread = readPos_ < readEnd_ ? static_cast<unsigned int>(readEnd_ - readPos_) : 0;
    if (unread > 0)
        std::memmove(buffer_, readPos_, unread);
    const unsigned int n = device_->read(buffer_ + unread, BufferSize - unread);
    if (n == 0)
        throw JEx(QObject::tr("Unexpected end of file"));
    readPos_ = buffer_;
    readEnd_ = buffer_ + unread + n;
}

void JByteStream::reserveWrite()
{
    if (writePos_ > writeLimit_)
        writeOut();
}

void JByteStream::ensureRead(unsigned int n)
{
    if (readPos_ >= readEnd_ || static_cast<unsigned int>(readEnd_ - readPos_) < n)
        refill();
}

void JByteStream::putu8(unsigned char v)
{
    reserveWrite();
    *writePos_++ = v;
}

void JByteStream::putu32(unsigned int v)
{
    reserveWrite();
    if (swap_)
        v = swap32(v);
    std::memcpy(writePos_, &v, 4);
    writePos_ += 4;
}

void JByteStream::put32(int v)
{
    putu32(static_cast<unsigned int>(v));
}

void JByteStream::putf32(float v)
{
    putu32(std::bit_cast<unsigned int>(v));
}

unsigned char JByteStream::getu8()
{
    ensureRead(1);
    return *readPos_++;
}

unsigned int JByteStream::takeu32()
{
    ensureRead(4);
    unsigned int v;
    std::memcpy(&v, readPos_, 4);
    readPos_ += 4;
    return swap_ ? swap32(v) : v;
}

unsigned int JByteStream::getu32()
{
    return takeu32();
}

int JByteStream::get32()
{
    return static_cast<int>(takeu32());
}

float JByteStream::getf32()
{
    return std::bit_cast<float>(takeu32());
}

void JByteStream::write8(const unsigned char* p, unsigned int n)
{
    // The bypass depends on swap although bytes have no order; kept as is.
    if (!swap_ && n > BufferSize) {
        writeOut();
        device_->writeExactly(p, n);
        return;
    }
    for (unsigned int i = 0; i < n; ++i)
        putu8(p[i]);
}

void JByteStream::read8(unsigned char* p, unsigned int n)
{
    if (n > BufferSize) {
        writeOut();
        const unsigned int buffered =
            readPos_ < readEnd_ ? static_cast<unsigned int>(readEnd_ - readPos_) : 0;
        const unsigned int first = buffered < n ? buffered : n;
        std::memcpy(p, readPos_, first);
        readPos_ = readEnd_ = buffer_;
        device_->readExactly(p + first, n - first);
        return;
    }
    for (unsigned int i = 0; i < n; ++i)
        p[i] = getu8();
}
