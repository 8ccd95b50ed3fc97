#include "base/file_stream.h"

JFileStream::~JFileStream()
{
    try {
        close();
    } catch (...) {
        // A destructor cannot throw; close() the stream first to see errors.
    }
}

void JFileStream::open(const qtless::QString& path, int flags)
{
    close();
    file_.open(path, flags);
    attach(&file_);
}
