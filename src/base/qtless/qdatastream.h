// qtless::QDataStream: the serialisation interface of the engine's files and
// settings data, over a file (opened read-write, created when missing, never
// truncated) or over a copy of a byte array in memory. Always big-endian.
//
// Encodings (integers and lengths 4 bytes):
//   int, unsigned int     the 32-bit value
//   float                 the IEEE 754 single-precision bit pattern
//   writeBytes(p, n)      n, then the n bytes
//   const char* s         null: 0; else writeBytes(s, strlen(s) + 1), the
//                         terminating zero counted and written
//   QString s             empty: 0; else writeBytes of its UTF-8 bytes with
//                         length() + 1, the terminating zero included
//   readBytes(p, n)       reads n; n > 0: p = new char[n] (the caller
//                         delete[]s it) filled with n bytes; n == 0: p = null
//   >> QString            reads n and n bytes; the text up to the first zero
// Failures throw JEx.
#pragma once

#include "base/file_stream.h"
#include "base/mem_device.h"
#include "base/qtless/qbuffer.h"
#include "base/qtless/qbytearray.h"
#include "base/qtless/qfile.h"
#include "base/qtless/qstring.h"

namespace qtless {

// Open modes accepted by the memory constructor (which does not use them).
enum {
    IO_ReadOnly = 0x0001,
    IO_WriteOnly = 0x0002,
    IO_ReadWrite = IO_ReadOnly | IO_WriteOnly,
};

class QDataStream {
public:
    // Opens file->name() with O_RDWR | O_CREAT; throws "Error opening %1: %2".
    explicit QDataStream(QFile* file);
    // Reads from and writes over a copy of a's bytes, starting at its first
    // byte; mode is not used.
    QDataStream(QByteArray a, int mode);
    // Closes the stream (pending bytes reach the file) and frees the memory
    // device. Errors while closing cannot be reported from here.
    ~QDataStream();
    QDataStream(const QDataStream&) = delete;
    QDataStream& operator=(const QDataStream&) = delete;

    // Memory streams: flushes and returns a buffer holding a copy of the
    // valid bytes. File streams: the (empty) buffer.
    QBuffer* device();
    const QString& name() const { return name_; }

    QDataStream& operator<<(int v);
    QDataStream& operator<<(unsigned int v);
    QDataStream& operator<<(float v);
    QDataStream& operator<<(const char* s);
    QDataStream& operator<<(const QString& s);
    QDataStream& writeBytes(const char* p, unsigned int n);

    QDataStream& operator>>(int& v);
    QDataStream& operator>>(unsigned int& v);
    QDataStream& operator>>(float& v);
    QDataStream& operator>>(QString& s);
    QDataStream& readBytes(char*& p, unsigned int& n);

private:
    QString name_;
    JFileStream stream_;
    JMemDevice* mem_ = nullptr;
    QBuffer buffer_;
};

}  // namespace qtless
