#include "base/file_device.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/ex.h"
#include "base/qtless/qobject.h"

using qtless::QObject;
using qtless::QString;

JFileDevice::~JFileDevice()
{
    close();
}

void JFileDevice::fail(const char* message) const
{
    const int err = errno;
    throw JEx(QObject::tr(message).arg(name_).arg(QString(std::strerror(err))));
}

void JFileDevice::open(const QString& path, int flags)
{
    close();
    name_ = path;
    fd_ = ::open(path.utf8(), flags, 0666);
    if (fd_ < 0)
        fail("Error opening %1: %2");
}

void JFileDevice::close()
{
    if (fd_ >= 0)
        ::close(fd_);
    fd_ = -1;
}

unsigned int JFileDevice::write(const void* buf, unsigned int len)
{
    const ssize_t n = ::write(fd_, buf, len);
    if (n < 0)
        fail("Error writing %1: %2");
    return static_cast<unsigned int>(n);
}

unsigned int JFileDevice::read(void* buf, unsigned int len)
{
    const ssize_t n = ::read(fd_, buf, len);
    if (n < 0)
        fail("Error reading %1: %2");
    return static_cast<unsigned int>(n);
}

void JFileDevice::seek(long long pos)
{
    if (::lseek(fd_, static_cast<off_t>(pos), SEEK_SET) < 0)
        fail("Error seeking %1: %2");
}

long long JFileDevice::position()
{
    const off_t p = ::lseek(fd_, 0, SEEK_CUR);
    if (p < 0)
        fail("Couldn't get position of %1: %2");
    return static_cast<long long>(p);
}

void JFileDevice::flush()
{
    if (::fsync(fd_) != 0)
        fail("Error flushing %1: %2");
}
