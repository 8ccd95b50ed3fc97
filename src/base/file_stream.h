// JFileStream: a JByteStream that owns its JFileDevice.
#pragma once

#include "base/byte_stream.h"
#include "base/file_device.h"
#include "base/qtless/qstring.h"

class JFileStream : public JByteStream {
public:
    // No device attached; the file device is closed.
    JFileStream() = default;
    // Writes out pending bytes and closes the file. Errors cannot be reported
    // from here; call close() first to see them.
    ~JFileStream() override;

    // Opens the file (errors as JFileDevice::open) and attaches it.
    void open(const qtless::QString& path, int flags);
    JFileDevice& fileDevice() { return file_; }

private:
    JFileDevice file_;
};
