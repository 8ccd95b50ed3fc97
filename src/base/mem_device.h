// JMemDevice: a JStreamDevice over a growable block of memory it owns.
//
// Writing past the capacity grows the block to 1024 bytes, or to 1024 doubled
// until it is strictly greater than the bytes needed; a write that exactly
// fills the capacity grows it as well. size() counts the valid bytes, which
// end at the furthest position written. Bytes that were never written (after
// a seek beyond the end) read as zero.
#pragma once

#include "base/stream_device.h"

class JMemDevice : public JStreamDevice {
public:
    // A copy of the n bytes; size and capacity n, position 0.
    JMemDevice(const unsigned char* data, int n);
    // Empty, with that capacity.
    explicit JMemDevice(int capacity = 0);
    ~JMemDevice() override;
    JMemDevice(const JMemDevice&) = delete;
    JMemDevice& operator=(const JMemDevice&) = delete;

    // Frees the block; size, capacity and position become 0.
    void close() override;
    unsigned int write(const void* buf, unsigned int len) override;
    // 0 at or beyond the end of the valid bytes.
    unsigned int read(void* buf, unsigned int len) override;
    // Sets the position without a check.
    void seek(long long pos) override;
    long long position() override { return pos_; }
    void flush() override {}

    unsigned int size() const { return size_; }
    unsigned int capacity() const { return capacity_; }
    unsigned char* buf() { return buffer_; }
    const unsigned char* buf() const { return buffer_; }

private:
    unsigned char* buffer_ = nullptr;
    unsigned int size_ = 0;
    unsigned int capacity_ = 0;
    unsigned int pos_ = 0;
};
