// JIncrRaster: the base of every node of the noise-removal pipeline.
//
// A node is a width x height raster whose rows are computed lazily, one row at
// a time, on demand, and kept only while somebody holds a reference to them.
// Nodes are wired into a directed acyclic graph by handing upstream nodes to a
// node's constructor; a node never owns its inputs (whoever builds the graph
// deletes every node). A row is an array of floats, c per pixel (c = 1, 4 or
// 2 by data type), with `margin()` mirrored pixels on each side.
//
// Row protocol. For every row it reads, a consumer calls refScanline(row)
// first, then getScanline(row) as often as it needs, then unrefScanline(row)
// once. A node's own computeScanline follows the same rule for its inputs: it
// reads the input rows that its refInputs referenced and unreferences each of
// them when its row is done. Row indices outside 0..height-1 are mirrored
// (mirrorRow) and share the slot of the stored row they map to.
//
// Threads. Any number of threads may call refScanline, getScanline and
// unrefScanline on one node at once. A row is computed by the one thread that
// claims it (an exchange on its state), never under a lock, so a computation
// may pull rows of its inputs without any lock-ordering concern. A second
// thread asking for a row being computed blocks (a futex wait on the state)
// until the first has filled the row and its margins, so a row is computed
// once. When the computation throws, the row goes back to absent and the
// waiting threads rethrow the same exception; none of them is handed a
// missing row. A finished row is published by its ready pointer (a release
// store that readers observe with an acquire load, which also publishes the
// row's data), so getScanline on a present row (the common case: most rows
// are read by several consumers, or several times) takes no lock; the
// caller's reference keeps the row while it reads. Reference counts change by
// atomic exchanges; the last reference sends the buffer to the pool. The node
// mutex guards the first reference of a row (so that refInputs runs once),
// the shared buffer pool and the failures. The denoise workers keep free
// buffers of their own besides (setThreadPool), so that two workers do not
// pass one lock back and forth for every row of every node. The margin and
// the turbo flag are set while the graph is built and read while rows are
// computed, hence atomics.
#pragma once

#include <atomic>
#include <climits>
#include <exception>
#include <memory>
#include <vector>

#include "base/mutex.h"

class JIncrRaster {
public:
    // Floats per pixel: 0 one (a plane), 1 four (RGBX), 2 two.
    enum DataType { Plane = 0, RGBX = 1, Pair = 2 };

    JIncrRaster(int width, int height);
    virtual ~JIncrRaster();
    JIncrRaster(const JIncrRaster&) = delete;
    JIncrRaster& operator=(const JIncrRaster&) = delete;

    // Fills pixels 0..width-1 of row `row` (0 <= row < height) into `out`,
    // the row's data pointer. The base version does nothing.
    virtual void computeScanline(int row, float* out);
    // Called once when row `row` gets its first reference: takes a reference
    // on every input row that computeScanline(row) will read.
    virtual void refInputs(int row) = 0;
    // The row's data pointer (pixel 0), computing the row first if needed.
    virtual float* getScanline(int row);
    // Hands on what computing row `row` held back (a writing node may keep a
    // row computed ahead of its turn until then). Called once per pulled row
    // by the denoise workers, after getScanline; the base version does nothing.
    virtual void commitRow(int row);

    void refScanline(int row);
    void unrefScanline(int row);
    // One more reference on a row that has one already; false, with nothing
    // done, on a row without references (not referenced yet, or released).
    bool refReferencedScanline(int row);
    // While set, refScanline takes it that no other thread uses this node, as
    // in the pass that references every row of a graph before any is pulled:
    // the counts change by plain loads and stores and a first reference
    // takes no lock. Set and cleared only while no other thread works on the
    // graph (the signal that later hands it on orders the change).
    void setReferencingAlone(bool alone) { referencingAlone_ = alone; }
    // The free-buffer pool of every node that the calling thread uses: index
    // 1..kThreadPools gives it pools of its own, to be used by no other thread
    // at the same time (the denoise workers of one driver). Such a thread
    // keeps up to kThreadPoolBuffers buffers a node without the lock and the
    // rest in an overflow list of its own under the node's lock, and takes
    // from others only when both are empty: the shared pool first, then the
    // other workers' overflow. 0 (the default) and any other index use the
    // shared pool, then the workers' overflow, under the node's lock.
    static constexpr int kThreadPools = 8;
    static constexpr int kThreadPoolBuffers = 8;
    static void setThreadPool(int index);
    // Fetches row `row` and copies it, margins and slack included, into dst,
    // the data pointer of a buffer of this node's layout. The element count is
    // (W + 2m) + 16 for types 0 and 1 and (W + 2m)*2 + 16 for type 2: for type
    // 1 it deliberately does not scale with the four floats of a pixel (the
    // operation serves single-channel nodes).
    void copyScanline(int row, float* dst);
    // dst[i] = (A[i] + B[i]) * 0.5 over the same elements as copyScanline.
    void avgScanlines(int rowA, int rowB, float* dst);

    // Rows of this node carry at least `margin` mirrored pixels on each side.
    // Empties the buffer pool, whose buffers have the old size; callers are
    // node constructors, before any row exists.
    void requestReflection(int margin);
    void setTurbo(bool turbo);
    void setDataType(DataType type);
    // Documents the layout a node expects of an input; checks nothing, deliberately.
    void requireDataType(DataType type, JIncrRaster& input);

    int width() const { return width_; }
    int height() const { return height_; }
    int margin() const { return margin_.load(std::memory_order_relaxed); }
    bool turbo() const { return turbo_.load(std::memory_order_relaxed) != 0; }
    DataType dataType() const { return dataType_; }
    // Floats per pixel.
    int channels() const { return dataType_ == RGBX ? 4 : dataType_ == Pair ? 2 : 1; }

    // The stored row that row index y reads. Inside 0..h-1 it is y; outside,
    // with t = -y above and t = y + 1 below, q = t / h and s = t - q*h, it is
    // s for even q and h - s - 1 for odd q. So row -1 reads 1 and row h reads
    // h-2 (no edge repetition); far rows deliberately follow the same rule
    // rather than a true mirror (row -h reads h-1, rows 2h-2 and 2h-1 read 0).
    int mirrorRow(int y) const;

    // Introspection for tests: the reference count of the slot that row y
    // maps to, whether that slot holds a buffer, and the pooled buffer count.
    int refCount(int row);
    bool rowPresent(int row);
    int pooledBuffers();

protected:
    // Rows computed together. A node whose rows are cheaper side by side (one
    // serial chain of roundings per row, several rows in vector lanes) may,
    // inside computeScanline(row), claim the rows row + k*stride, k = 1 ..
    // maxRows-1, in order, as long as each is inside the raster, referenced
    // (so its inputs are referenced too) and neither present nor being
    // computed. A claimed row gets its buffer and the busy flag exactly as
    // getScanline would give them, so readers wait for it as for any row
    // being computed, plus one reference of the claim so that it cannot be
    // released under the computation. outs[k] receives row k's data pointer
    // (outs[0] is left alone). Returns the claimed count plus one (for row).
    int claimRows(int row, int stride, int maxRows, float** outs);
    // Ends the claim on rows row + k*stride, k = 1 .. n-1. Filled rows get
    // their margins and lose the busy flag; after a failure (filled false,
    // called inside the handler of the failure) they go back to absent, as a
    // row whose computation threw, and their waiting readers rethrow it.
    void releaseClaimedRows(int row, int stride, int n, bool filled);

private:
    // A row's computing state (Slot::busy).
    enum : int { Idle = 0, Computing = 1, Failed = 2 };
    // The count of a row whose last reference is being dropped.
    static constexpr int kReleasing = INT_MIN;

    struct Slot {
        // References. Changed by atomic exchanges; the last release parks it
        // at kReleasing while it pools the buffer.
        std::atomic<int> count{0};
        int bufferMargin = 0;  // the margin the buffer was laid out for
        // Idle (absent or finished), Computing (claimed by one thread, which
        // alone writes buffer and the row), or Failed (absent; the last
        // computation threw).
        std::atomic<int> busy{Idle};
        char* buffer = nullptr;  // as allocated; null while the row is absent
        // The data pointer (pixel 0 inside buffer) once the row and its
        // margins are filled, null otherwise.
        std::atomic<float*> ready{nullptr};
        std::exception_ptr failure;  // why the last computation threw; guarded by the mutex
    };

    // Free buffers of one worker thread (setThreadPool): `buffers`, taken and
    // given back without the lock, on cache lines of their own, as every
    // worker has one; then `overflow`, guarded by the node's lock, which
    // other threads draw on only when they have nothing else. A worker so
    // gets back the buffers it wrote last (rows come and go 32 at a time
    // around the variance nodes' lane groups, more than the lock-free part
    // holds), and no free buffer is out of another thread's reach.
    struct alignas(64) ThreadPool {
        char* buffers[kThreadPoolBuffers] = {};
        int count = 0;
        std::vector<char*> overflow;
    };

    Slot& slot(int row);
    // One more reference on a row that has one; false when it has none.
    static bool addReference(Slot& s);
    // Drops one reference; the last one sends the row's buffer to the pool.
    void release(Slot& s);
    // Makes this thread the one that computes the row; false when another
    // thread computes it or it is finished.
    static bool claim(Slot& s);
    // Ends the computing state of a slot and wakes its waiting readers.
    static void clearBusy(Slot& s, int state);
    // A row whose computation failed goes back to absent, keeping the
    // failure for the readers waiting on it.
    void giveUp(Slot& s, std::exception_ptr failure);
    [[noreturn]] void rethrowFailure(Slot& s, int row);
    // A free buffer of the current margin's size: this thread's own pool,
    // the shared pool, another worker's overflow, or a new one (null when
    // allocation fails and mayThrow is false).
    char* takeBuffer(bool mayThrow);
    void returnBuffer(char* buffer);
    // The last of `buffers`, removed; null when there is none.
    static char* popNewest(std::vector<char*>& buffers);
    // Frees every pooled buffer, shared and per worker (under the lock, or
    // when no other thread can use the node).
    void freePooledBuffers();
    size_t bufferBytes(int margin) const;
    float* dataPointer(char* buffer, int margin) const;
    void fillMargins(float* data, int margin) const;
    // Elements copied or averaged by copyScanline and avgScanlines.
    int rowElements(int margin) const;
    float* fetchWithMargin(int row, int margin);

    JMutex mutex_;
    std::unique_ptr<Slot[]> rows_;
    std::atomic<int> margin_{0};
    int width_;
    int height_;
    std::atomic<int> turbo_{0};
    DataType dataType_ = Plane;
    std::vector<char*> pool_;  // guarded by the mutex
    ThreadPool threadPools_[kThreadPools];
    bool referencingAlone_ = false;
    static thread_local int threadPool_;
};
