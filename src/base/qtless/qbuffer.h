// qtless::QBuffer: holds a QByteArray; buffer() hands out a shared copy.
#pragma once

#include "base/qtless/qbytearray.h"

namespace qtless {

class QBuffer {
public:
    QBuffer() = default;
    explicit QBuffer(const QByteArray& a) : a_(a) {}

    QByteArray buffer() const { return a_; }
    void setBuffer(const QByteArray& a) { a_ = a; }

private:
    QByteArray a_;
};

}  // namespace qtless
