// JFileDevice: a JStreamDevice over a POSIX file descriptor.
//
// Every system failure throws JEx with the file's name and the system's error
// text, e.g. "Error opening <path>: No such file or directory". read() and
// write() are one system call each; a short count is not an error here.
#pragma once

#include "base/qtless/qstring.h"
#include "base/stream_device.h"

class JFileDevice : public JStreamDevice {
public:
    JFileDevice() = default;
    // Closes the descriptor if it is still open.
    ~JFileDevice() override;
    JFileDevice(const JFileDevice&) = delete;
    JFileDevice& operator=(const JFileDevice&) = delete;

    // Opens path with the given open(2) flags and permission bits 0666. The
    // name becomes path even when opening fails.
    void open(const qtless::QString& path, int flags);
    void close() override;
    unsigned int write(const void* buf, unsigned int len) override;
    unsigned int read(void* buf, unsigned int len) override;
    void seek(long long pos) override;
    long long position() override;
    // fsync(2).
    void flush() override;

    bool isOpen() const { return fd_ >= 0; }
    // "[No file]" until open() is called, then the path last given to open().
    const qtless::QString& name() const { return name_; }

private:
    // Throws JEx with message (holding %1 and %2) filled with the name and
    // the text of the current errno.
    [[noreturn]] void fail(const char* message) const;

    int fd_ = -1;
    qtless::QString name_ = "[No file]";
};
