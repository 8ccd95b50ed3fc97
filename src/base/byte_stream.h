// JByteStream: a 64 KiB buffer in front of a JStreamDevice that reads and
// writes bytes, 32-bit integers and 32-bit IEEE floats in a chosen byte order
// (big-endian unless told otherwise).
//
// Writing: values are appended to the buffer; once the write position has
// passed 65528 bytes, the pending bytes go to the device before the next value.
// Reading: when fewer bytes are buffered than a value needs, the buffer is
// refilled with ONE device read. If that read returns nothing, JEx "Unexpected
// end of file" is thrown; if it returns fewer bytes than the value needs, the
// value is completed from stale buffer bytes without an error. This is kept
// deliberately; the buffer is zero-filled when allocated so the stale bytes
// are deterministic. Transfers of more than 65536 bytes bypass the buffer.
//
// The device is not owned. A stream is used by one thread at a time.
#pragma once

#include "base/stream_device.h"

class JByteStream {
public:
    enum ByteOrder {
        BigEndian = 0,
        LittleEndian = 1,
    };

    static constexpr unsigned int BufferSize = 65536;
    static constexpr unsigned int WriteLimit = 65528;

    explicit JByteStream(JStreamDevice* device = nullptr);
    // Frees the buffer; the device is left as it is.
    virtual ~JByteStream();
    JByteStream(const JByteStream&) = delete;
    JByteStream& operator=(const JByteStream&) = delete;

    void setByteOrder(ByteOrder o);
    // close(), then uses d.
    void attach(JStreamDevice* d);
    // With a device attached: writes out pending bytes, closes the device,
    // detaches it and empties the buffer.
    void close();
    // Writes out pending bytes; the device's own flush() is not called.
    void flush();
    JStreamDevice* device() const { return device_; }

    void putu8(unsigned char v);
    void putu32(unsigned int v);
    void put32(int v);
    void putf32(float v);

    unsigned char getu8();
    unsigned int getu32();
    int get32();
    float getf32();

    void write8(const unsigned char* p, unsigned int n);
    void read8(unsigned char* p, unsigned int n);

private:
    void writeOut();
    void refill();
    void reserveWrite();
    void ensureRead(unsigned int n);
    unsigned int takeu32();

    JStreamDevice* device_;
    int swap_;
    unsigned char* buffer_;
    unsigned char* writeLimit_;
    unsigned char* readEnd_;
    unsigned char* readPos_;
    unsigned char* writePos_;
};
