// JStreamDevice: raw bytes to and from a medium (a file, a memory block).
//
// read() and write() may move fewer bytes than asked; read() returns 0 at the
// end of the data. writeExactly() and readExactly() loop until every byte has
// moved and throw JEx when the device stops making progress. Every failure is
// a JEx.
#pragma once

class JStreamDevice {
public:
    virtual ~JStreamDevice() = default;
    virtual void close() = 0;
    virtual unsigned int write(const void* buf, unsigned int len) = 0;
    virtual unsigned int read(void* buf, unsigned int len) = 0;
    // Absolute byte position from the start of the medium.
    virtual void seek(long long pos) = 0;
    virtual long long position() = 0;
    // Pushes written data to the medium.
    virtual void flush() = 0;

    // Throws "Unexpected end of output" when a write() moves nothing.
    void writeExactly(const void* buf, unsigned int len);
    // Throws "Unexpected end of input" when a read() moves nothing.
    void readExactly(void* buf, unsigned int len);
};
