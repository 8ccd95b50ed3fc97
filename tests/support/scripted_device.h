// A JStreamDevice over a byte vector whose read() and write() move at most a
// fixed number of bytes per call, and that records every call, for testing
// the loops and the single refill of the byte stream.
#pragma once

#include <algorithm>
#include <cstring>
#include <vector>

#include "base/stream_device.h"

namespace murmex_test {

class ScriptedDevice : public JStreamDevice {
public:
    explicit ScriptedDevice(std::vector<unsigned char> input = {}, unsigned int chunk = 0xffffffffu)
        : input(std::move(input)), chunk(chunk)
    {
    }

    void close() override { ++closeCalls; }
    unsigned int write(const void* buf, unsigned int len) override
    {
        ++writeCalls;
        const unsigned int n = std::min(len, chunk);
        const unsigned char* p = static_cast<const unsigned char*>(buf);
        output.insert(output.end(), p, p + n);
        return n;
    }
    unsigned int read(void* buf, unsigned int len) override
    {
        ++readCalls;
        readRequests.push_back(len);
        const unsigned int left = static_cast<unsigned int>(input.size() - readPos);
        const unsigned int n = std::min({len, chunk, left});
        if (n > 0)
            std::memcpy(buf, input.data() + readPos, n);
        readPos += n;
        return n;
    }
    void seek(long long pos) override { readPos = static_cast<size_t>(pos); }
    long long position() override { return static_cast<long long>(readPos); }
    void flush() override { ++flushCalls; }

    std::vector<unsigned char> input;
    std::vector<unsigned char> output;
    std::vector<unsigned int> readRequests;
    unsigned int chunk;
    size_t readPos = 0;
    int readCalls = 0;
    int writeCalls = 0;
    int closeCalls = 0;
    int flushCalls = 0;
};

}  // namespace murmex_test
