#include "denoise/raster/incr_raster.h"

#include <cstdint>
#include <cstring>
#include <exception>
#include <new>
#include <thread>

#include "base/ex.h"
#include "base/qtless/qobject.h"

using qtless::QObject;

JIncrRaster::JIncrRaster(int width, int height)
    : rows_(new Slot[height > 0 ? height : 0]), width_(width), height_(height)
{
}

JIncrRaster::~JIncrRaster()
{
    for (int i = 0; i < height_; ++i)
        delete[] rows_[i].buffer;
    freePooledBuffers();
}

void JIncrRaster::freePooledBuffers()
{
    const auto freeAll = [](std::vector<char*>& buffers) {
        for (char* b : buffers)
            delete[] b;
        buffers.clear();
    };
    freeAll(pool_);
    for (ThreadPool& own : threadPools_) {
        for (int i = 0; i < own.count; ++i)
            delete[] own.buffers[i];
        own.count = 0;
        freeAll(own.overflow);
    }
}

void JIncrRaster::computeScanline(int row, float* out)
{
    (void)row;
    (void)out;
}

void JIncrRaster::commitRow(int row)
{
    (void)row;
}

int JIncrRaster::mirrorRow(int y) const
{
    const long long h = height_;
    if (y >= 0 && y < h)
        return y;
    if (h <= 0)
        throw JEx(QObject::tr("Row %1 requested from an empty raster").arg(y));
    // 64-bit so that -y and y + 1 cannot overflow.
    const long long t = y < 0 ? -static_cast<long long>(y) : static_cast<long long>(y) + 1;
    const long long q = t / h;
    const long long s = t - q * h;
    return static_cast<int>(q % 2 == 0 ? s : h - s - 1);
}

JIncrRaster::Slot& JIncrRaster::slot(int row)
{
    return rows_[mirrorRow(row)];
}

size_t JIncrRaster::bufferBytes(int margin) const
{
    const size_t c = static_cast<size_t>(channels());
    return (static_cast<size_t>(width_) * c + 2 * static_cast<size_t>(margin) * c) * 4 + 192;
}

float* JIncrRaster::dataPointer(char* buffer, int margin) const
{
    // Pixel 0 sits after the left margin, rounded up to 16 bytes so that
    // vector code works on aligned whole vectors.
    const uintptr_t p = reinterpret_cast<uintptr_t>(buffer) + static_cast<uintptr_t>(margin) * channels() * 4;
    return reinterpret_cast<float*>((p + 15) & ~static_cast<uintptr_t>(15));
}

void JIncrRaster::fillMargins(float* data, int m) const
{
    const int c = channels();
    const int w = width_;
    const size_t pixelBytes = static_cast<size_t>(c) * sizeof(float);
    if (w == 1) {
        // A one-pixel row reflects onto itself: pixel i of the rule below
        // would be a margin pixel not yet written.
        for (int i = 1; i <= m; ++i) {
            std::memcpy(data - static_cast<ptrdiff_t>(i) * c, data, pixelBytes);
            std::memcpy(data + static_cast<ptrdiff_t>(i) * c, data, pixelBytes);
        }
    } else if (w > 1) {
        // Pixel -i = pixel i and pixel W-1+i = pixel W-1-i: a mirror about
        // the edge pixel, which is not repeated. For rows narrower than the
        // margin the loop reads margin pixels written by earlier iterations.
        for (int i = 0; i <= m; ++i) {
            std::memcpy(data - static_cast<ptrdiff_t>(i) * c, data + static_cast<ptrdiff_t>(i) * c, pixelBytes);
            std::memcpy(data + static_cast<ptrdiff_t>(w - 1 + i) * c, data + static_cast<ptrdiff_t>(w - 1 - i) * c,
                        pixelBytes);
        }
    }
    std::memset(data + static_cast<ptrdiff_t>(w + m) * c, 0, 16);
}

thread_local int JIncrRaster::threadPool_ = 0;

void JIncrRaster::setThreadPool(int index)
{
    threadPool_ = index >= 1 && index <= kThreadPools ? index : 0;
}

char* JIncrRaster::popNewest(std::vector<char*>& buffers)
{
    if (buffers.empty())
        return nullptr;
    char* buffer = buffers.back();
    buffers.pop_back();
    return buffer;
}

char* JIncrRaster::takeBuffer(bool mayThrow)
{
    if (threadPool_ != 0) {
        ThreadPool& own = threadPools_[threadPool_ - 1];
        if (own.count > 0)
            return own.buffers[--own.count];
    }
    {
        JMutexLocker lock(mutex_);
        if (threadPool_ != 0)
            if (char* buffer = popNewest(threadPools_[threadPool_ - 1].overflow))
                return buffer;
        if (char* buffer = popNewest(pool_))
            return buffer;
        for (ThreadPool& other : threadPools_)
            if (char* buffer = popNewest(other.overflow))
                return buffer;
    }
    const size_t bytes = bufferBytes(margin());
    return mayThrow ? new char[bytes] : new (std::nothrow) char[bytes];
}

void JIncrRaster::returnBuffer(char* buffer)
{
    if (threadPool_ != 0) {
        ThreadPool& own = threadPools_[threadPool_ - 1];
        if (own.count < kThreadPoolBuffers) {
            own.buffers[own.count++] = buffer;
            return;
        }
    }
    JMutexLocker lock(mutex_);
    (threadPool_ != 0 ? threadPools_[threadPool_ - 1].overflow : pool_).push_back(buffer);
}

void JIncrRaster::clearBusy(Slot& s, int state)
{
    s.busy.store(state, std::memory_order_release);
    s.busy.notify_all();
}

bool JIncrRaster::claim(Slot& s)
{
    int state = s.busy.load(std::memory_order_relaxed);
    while (state != Computing)
        if (s.busy.compare_exchange_weak(state, Computing, std::memory_order_acquire, std::memory_order_relaxed)) {
            if (!s.ready.load(std::memory_order_acquire))
                return true;
            // Finished between the caller's look and the claim: hand the
            // row back as it was.
            clearBusy(s, Idle);
            return false;
        }
    return false;
}

void JIncrRaster::rethrowFailure(Slot& s, int row)
{
    std::exception_ptr failure;
    {
        JMutexLocker lock(mutex_);
        failure = s.failure;
    }
    if (failure)
        std::rethrow_exception(failure);
    throw JEx(QObject::tr("Row %1 was given up while being computed").arg(row));
}

float* JIncrRaster::getScanline(int row)
{
    const int r = mirrorRow(row);
    Slot& s = rows_[r];
    for (;;) {
        // A finished row is read as it is: the caller's reference keeps it
        // present, and the acquire load sees the row's data.
        if (float* ready = s.ready.load(std::memory_order_acquire))
            return ready;
        if (s.busy.load(std::memory_order_acquire) == Computing) {
            s.busy.wait(Computing, std::memory_order_acquire);
            if (float* ready = s.ready.load(std::memory_order_acquire))
                return ready;
            // The computation this thread waited for threw: hand on its
            // failure rather than a row that does not exist.
            if (s.busy.load(std::memory_order_acquire) == Failed)
                rethrowFailure(s, row);
            continue;
        }
        if (claim(s))
            break;
    }

    const int m = margin();
    char* buffer;
    try {
        buffer = takeBuffer(true);
    } catch (...) {
        giveUp(s, std::current_exception());
        throw;
    }
    float* data = dataPointer(buffer, m);
    s.buffer = buffer;
    s.bufferMargin = m;
    try {
        computeScanline(r, data);
    } catch (...) {
        giveUp(s, std::current_exception());
        throw;
    }
    fillMargins(data, m);
    s.ready.store(data, std::memory_order_release);
    clearBusy(s, Idle);
    return data;
}

void JIncrRaster::giveUp(Slot& s, std::exception_ptr failure)
{
    {
        JMutexLocker lock(mutex_);
        s.failure = std::move(failure);
    }
    if (s.buffer) {
        returnBuffer(s.buffer);
        s.buffer = nullptr;
    }
    clearBusy(s, Failed);
}

void JIncrRaster::refScanline(int row)
{
    const int r = mirrorRow(row);
    Slot& s = rows_[r];
    if (referencingAlone_) {
        // The steps below, with no other thread to exclude.
        const int count = s.count.load(std::memory_order_relaxed);
        if (count == 0) {
            try {
                refInputs(r);
            } catch (...) {
                s.count.store(1, std::memory_order_relaxed);
                throw;
            }
        }
        s.count.store(count + 1, std::memory_order_relaxed);
        return;
    }
    // A row that is referenced already, its inputs with it, takes one more
    // reference without the lock.
    if (addReference(s))
        return;
    // The first reference: refInputs runs under the lock and before the count
    // leaves zero, so no other thread can reference the row and compute it
    // while its input rows are not yet referenced (that computation's unrefs
    // would release rows that other consumers still read). It only takes
    // references (upstream locks, and this recursive one again for turbo
    // rows), so no row is computed under the lock. The release store hands
    // those references on to whoever takes the next one without the lock.
    for (;;) {
        {
            JMutexLocker lock(mutex_);
            int count = s.count.load(std::memory_order_acquire);
            if (count == 0) {
                // Only the lock holder moves the count up from zero.
                try {
                    refInputs(r);
                } catch (...) {
                    s.count.fetch_add(1, std::memory_order_release);
                    throw;
                }
                s.count.fetch_add(1, std::memory_order_release);
                return;
            }
            // Referenced meanwhile by another thread, whose last reference
            // may be dropped at any moment: add to the count as it is.
            while (count != kReleasing)
                if (s.count.compare_exchange_weak(count, count + 1, std::memory_order_acq_rel,
                                                  std::memory_order_acquire))
                    return;
        }
        // A last reference is being dropped on another thread: the row must be
        // absent again before it is referenced anew.
        std::this_thread::yield();
    }
}

bool JIncrRaster::addReference(Slot& s)
{
    int count = s.count.load(std::memory_order_relaxed);
    while (count > 0)
        if (s.count.compare_exchange_weak(count, count + 1, std::memory_order_acquire, std::memory_order_relaxed))
            return true;
    return false;
}

bool JIncrRaster::refReferencedScanline(int row)
{
    return addReference(rows_[mirrorRow(row)]);
}

void JIncrRaster::unrefScanline(int row)
{
    release(rows_[mirrorRow(row)]);
}

void JIncrRaster::release(Slot& s)
{
    // Above one the count drops as it is. The last reference parks the count
    // at kReleasing while it takes the row's buffer, so that a new first
    // reference (which waits for 0) finds the row absent. The releasing
    // exchanges order every reader's use of the row before that.
    int count = s.count.load(std::memory_order_relaxed);
    for (;;) {
        if (count == kReleasing) {
            std::this_thread::yield();
            count = s.count.load(std::memory_order_relaxed);
        } else if (count != 1) {
            // Above one the count just drops; at zero or below (an unref
            // without a reference) it goes further below zero, without a
            // report.
            if (s.count.compare_exchange_weak(count, count - 1, std::memory_order_acq_rel, std::memory_order_relaxed))
                return;
        } else if (s.count.compare_exchange_weak(count, kReleasing, std::memory_order_acq_rel,
                                                 std::memory_order_relaxed)) {
            char* buffer = s.buffer;
            if (buffer) {
                s.ready.store(nullptr, std::memory_order_relaxed);
                s.buffer = nullptr;
            }
            s.count.store(0, std::memory_order_release);
            // Pooled only now: a thread waiting for the count may hold this
            // node's lock (a first reference of a row whose refInputs
            // references rows of the same node).
            if (buffer)
                returnBuffer(buffer);
            return;
        }
    }
}

int JIncrRaster::claimRows(int row, int stride, int maxRows, float** outs)
{
    const int m = margin();
    int n = 1;
    for (; n < maxRows; ++n) {
        const long long y = row + static_cast<long long>(n) * stride;
        if (y < 0 || y >= height_)
            break;
        Slot& s = rows_[y];
        // The claim's own reference, taken only on a referenced row.
        if (!addReference(s))
            break;
        if (!claim(s)) {
            release(s);
            break;
        }
        char* buffer = takeBuffer(false);
        if (!buffer) {
            clearBusy(s, Idle);
            release(s);
            break;
        }
        s.buffer = buffer;
        s.bufferMargin = m;
        outs[n] = dataPointer(buffer, m);
    }
    return n;
}

void JIncrRaster::releaseClaimedRows(int row, int stride, int n, bool filled)
{
    for (int k = 1; k < n; ++k) {
        Slot& s = rows_[row + k * stride];
        if (filled) {
            float* data = dataPointer(s.buffer, s.bufferMargin);
            fillMargins(data, s.bufferMargin);
            s.ready.store(data, std::memory_order_release);
            clearBusy(s, Idle);
        } else {
            giveUp(s, std::current_exception());
        }
        release(s);
    }
}

int JIncrRaster::rowElements(int m) const
{
    const int pixels = width_ + 2 * m;
    return dataType_ == Pair ? pixels * 2 + 16 : pixels + 16;
}

float* JIncrRaster::fetchWithMargin(int row, int m)
{
    float* data = getScanline(row);
    // Read without the lock: the layout was written before getScanline
    // handed out the row, and the caller's reference keeps it.
    const int bufferMargin = slot(row).bufferMargin;
    // A row laid out before the margin was raised would be read outside its
    // buffer; margins are raised only while a graph is built, so this is a
    // wiring error.
    if (bufferMargin < m)
        throw JEx(QObject::tr("Row %1 was laid out for a smaller margin").arg(row));
    return data;
}

void JIncrRaster::copyScanline(int row, float* dst)
{
    const int m = margin();
    const float* src = fetchWithMargin(row, m);
    const ptrdiff_t start = -static_cast<ptrdiff_t>(m) * channels();
    std::memcpy(dst + start, src + start, static_cast<size_t>(rowElements(m)) * sizeof(float));
}

void JIncrRaster::avgScanlines(int rowA, int rowB, float* dst)
{
    const int m = margin();
    const float* a = fetchWithMargin(rowA, m);
    const float* b = fetchWithMargin(rowB, m);
    const ptrdiff_t start = -static_cast<ptrdiff_t>(m) * channels();
    const int n = rowElements(m);
    for (int i = 0; i < n; ++i)
        dst[start + i] = (a[start + i] + b[start + i]) * 0.5f;
}

void JIncrRaster::requestReflection(int margin)
{
    {
        JMutexLocker lock(mutex_);
        if (margin > margin_.load(std::memory_order_relaxed))
            margin_.store(margin, std::memory_order_relaxed);
    }
    JMutexLocker lock(mutex_);
    freePooledBuffers();
}

void JIncrRaster::setTurbo(bool turbo)
{
    turbo_.store(turbo ? 1 : 0, std::memory_order_relaxed);
}

void JIncrRaster::setDataType(DataType type)
{
    dataType_ = type;
}

void JIncrRaster::requireDataType(DataType type, JIncrRaster& input)
{
    (void)type;
    (void)input;
}

int JIncrRaster::refCount(int row)
{
    JMutexLocker lock(mutex_);
    return slot(row).count.load(std::memory_order_relaxed);
}

bool JIncrRaster::rowPresent(int row)
{
    const Slot& s = slot(row);
    return s.ready.load(std::memory_order_acquire) || s.busy.load(std::memory_order_acquire) == Computing;
}

int JIncrRaster::pooledBuffers()
{
    JMutexLocker lock(mutex_);
    int n = static_cast<int>(pool_.size());
    for (const ThreadPool& own : threadPools_)
        n += own.count + static_cast<int>(own.overflow.size());
    return n;
}
