// qtless::QByteArray: an implicitly shared array of bytes.
//
// Copies share one allocation; its first four bytes hold the number of
// arrays sharing it (an atomic count, so copies may live on different
// threads) and the bytes follow. The last array to let go frees it. Writing
// through data() is seen by every copy. setRawData() points the array at
// bytes it does not own.
#pragma once

namespace qtless {

class QByteArray {
public:
    // The null array: no bytes, data() null.
    QByteArray() = default;
    // n zero bytes in a new allocation with a count of 1.
    explicit QByteArray(int n);
    QByteArray(const QByteArray& o);
    QByteArray& operator=(const QByteArray& o);
    ~QByteArray();

    // Releases any own allocation and refers to the n bytes at p, unowned.
    void setRawData(char* p, unsigned int n);
    // Forgets the bytes given to setRawData(): the array becomes null.
    void resetRawData();

    unsigned int size() const { return size_; }
    char* data() { return data_; }
    const char* data() const { return data_; }
    bool isNull() const { return data_ == nullptr; }
    // Arrays sharing this one's allocation, this one included; 0 when it owns none.
    int shareCount() const;

private:
    void release();

    char* alloc_ = nullptr;
    char* data_ = nullptr;
    unsigned int size_ = 0;
};

}  // namespace qtless
