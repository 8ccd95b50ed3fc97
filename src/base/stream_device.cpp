#include "base/stream_device.h"

#include "base/ex.h"
#include "base/qtless/qobject.h"

using qtless::QObject;

void JStreamDevice::writeExactly(const void* buf, unsigned int len)
{
    const unsigned char* p = static_cast<const unsigned char*>(buf);
    while (len > 0) {
        const unsigned int n = write(p, len);
        if (n == 0)
            throw JEx(QObject::tr("Unexpected end of output"));
        p += n;
        len -= n;
    }
}

void JStreamDevice::readExactly(void* buf, unsigned int len)
{
    unsigned char* p = static_cast<unsigned char*>(buf);
    while (len > 0) {
        const unsigned int n = read(p, len);
        if (n == 0)
            throw JEx(QObject::tr("Unexpected end of input"));
        p += n;
        len -= n;
    }
}
