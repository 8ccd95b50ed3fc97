// The library's result on its way to the output file. The library hands its
// rows over in pieces, from its worker threads and the calling thread: an
// image wider than the library's strip width is denoised in strips, left to
// right, each strip putting its columns of every row, top to bottom. A writer
// on a thread of its own takes each row, in the output's channels, as soon as
// all its columns have arrived, while the library still works on the rows
// below. So the program never holds the whole result: only the pieces of rows
// still missing columns (the earlier strips' share) and the rows the writer
// has not reached yet.
//
// Thread rules: put() and writerStopped() from any thread, several at once;
// row() and close() from the one writer thread; finish() and abandon() from
// the thread that called the library, once it has returned.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

#include "image.h"
#include "image_io.h"

namespace murmex_app {

class ResultRows : public RowSource {
public:
    // source is the image being denoised (either layout): the size, the
    // output channels and the alpha samples come from it.
    explicit ResultRows(const Image& source);

    // Columns x0..x1 of row y as packed RGBX. A column put twice (strips
    // share their edge column) keeps the later values.
    void put(int y, int x0, int x1, const uint16_t* rgbx);

    // The library has returned and put everything it will: rows with
    // columns never put are completed as if those were RGBX 0 (as a result
    // buffer that starts zeroed would hold them), alpha still the source's.
    void finish();

    // The job stopped (failure or interrupt): a writer waiting for a row, or
    // asking for one later, gets AppError instead.
    void abandon();

    // Row y in the output's channels, once complete; blocks until then. The
    // previous row's buffer goes back to the pool. A writer that has to wait
    // is woken when the rows from y on are complete for kWakeRows rows (or to
    // the last row, or the job ends), not for each row: every wake-up takes
    // a processor from the library's workers.
    uint16_t* row(int y) override;
    static constexpr int kWakeRows = 8;

    // The writer failed and takes no more rows: the rows held are freed and
    // later puts are dropped. The library should then be stopped
    // (writerStopped() tells its progress callback).
    void close();
    bool writerStopped() const { return closed_.load(std::memory_order_relaxed); }

    // For tests: whether the writer is waiting in row().
    bool writerWaiting();

private:
    struct Piece {
        int x0, x1;
        std::vector<uint16_t> samples;  // (x1 - x0 + 1) * channels_
    };
    struct Row {
        std::vector<Piece> pieces;
        std::vector<uint16_t> whole;  // the complete row; empty until then
        bool written = false;         // taken by the writer
    };

    // Converts columns x0..x1 of row y from RGBX to the output's channels.
    void convert(int y, int x0, int x1, const uint16_t* rgbx, uint16_t* out) const;
    // True when the pieces of r cover every column.
    bool covered(const Row& r) const;
    // Lays the pieces of r over `base` (a full row) into r.whole, in the
    // order they came. Called with the lock held.
    void assemble(Row& r, std::vector<uint16_t> base);
    // A full-row buffer from the pool, or a new one. Called with the lock held.
    std::vector<uint16_t> takeBuffer();
    // Whether rows from..to are all complete. Called with the lock held.
    bool complete(int from, int to) const;
    // Row y has just become complete: wakes the writer when it waits for the
    // rows this completes. Called with the lock held.
    void completed(int y);

    const Image& source_;
    const int width_, height_, channels_;
    std::mutex mutex_;
    std::condition_variable ready_;
    std::vector<Row> rows_;
    std::vector<std::vector<uint16_t>> pool_;  // full-row buffers for reuse
    int taken_ = -1;                           // the row the writer holds
    int waitFrom_ = -1, waitTo_ = -1;          // the rows a waiting writer needs, else -1
    bool abandoned_ = false;
    std::atomic<bool> closed_{false};
};

}  // namespace murmex_app
