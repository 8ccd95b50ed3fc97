#include "base/qtless/qbytearray.h"

#include <atomic>
#include <cstdint>
#include <new>

namespace qtless {

namespace {

using Count = std::atomic<int32_t>;
static_assert(sizeof(Count) == 4, "the share count occupies the first four bytes");

Count* countOf(char* alloc)
{
    return std::launder(reinterpret_cast<Count*>(alloc));
}

}  // namespace

QByteArray::QByteArray(int n)
{
    const unsigned int bytes = n > 0 ? static_cast<unsigned int>(n) : 0;
    alloc_ = new char[4 + bytes]();
    new (alloc_) Count(1);
    data_ = alloc_ + 4;
    size_ = bytes;
}

QByteArray::QByteArray(const QByteArray& o) : alloc_(o.alloc_), data_(o.data_), size_(o.size_)
{
    if (alloc_)
        countOf(alloc_)->fetch_add(1, std::memory_order_relaxed);
}

QByteArray& QByteArray::operator=(const QByteArray& o)
{
    // Taken before release(), which clears *this when o is *this.
    char* const alloc = o.alloc_;
    char* const data = o.data_;
    const unsigned int size = o.size_;
    if (alloc)
        countOf(alloc)->fetch_add(1, std::memory_order_relaxed);
    release();
    alloc_ = alloc;
    data_ = data;
    size_ = size;
    return *this;
}

QByteArray::~QByteArray()
{
    release();
}

void QByteArray::release()
{
    // acq_rel: the thread that frees sees every write of the other sharers.
    if (alloc_ && countOf(alloc_)->fetch_sub(1, std::memory_order_acq_rel) == 1) {
        countOf(alloc_)->~Count();
        delete[] alloc_;
    }
    alloc_ = nullptr;
    data_ = nullptr;
    size_ = 0;
}

void QByteArray::setRawData(char* p, unsigned int n)
{
    release();
    data_ = p;
    size_ = n;
}

void QByteArray::resetRawData()
{
    release();
}

int QByteArray::shareCount() const
{
    return alloc_ ? countOf(alloc_)->load(std::memory_order_relaxed) : 0;
}

}  // namespace qtless
