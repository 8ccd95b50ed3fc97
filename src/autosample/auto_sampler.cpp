#include "autosample/auto_sampler.h"

#include <algorithm>
#include <climits>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

#include "api/status.h"
#include "base/qtless/qobject.h"
#include "color/color_palette.h"
#include "color/lab_coord.h"

using qtless::QObject;

namespace {

constexpr int kTileSize = 1024;
constexpr int kTileStep = 904;
constexpr int kMinTileSide = 128;

// Progress counts are ints; images beyond 2^31 pixels saturate instead of
// overflowing.
int progressCount(long long v)
{
    return v > INT_MAX ? INT_MAX : static_cast<int>(v);
}

// Reports a tile position's progress; false when the user has cancelled.
bool report(JStatus* status, long long done)
{
    if (!status)
        return true;
    status->update(progressCount(done));
    return !status->isCancelled();
}

// The image behind a lock, so that the threads scanning tiles call its
// getScanline one at a time.
class LockedImage : public JImageAdapter {
public:
    explicit LockedImage(JImageAdapter* image) : image_(image), width_(image->width()), height_(image->height()) {}
    int width() override { return width_; }
    int height() override { return height_; }
    void getScanline(int y, int xStart, int xEnd, unsigned short* pixels) override
    {
        std::lock_guard<std::mutex> lock(mutex_);
        image_->getScanline(y, xStart, xEnd, pixels);
    }
    void putScanline(int y, int xStart, int xEnd, const unsigned short* pixels) override
    {
        std::lock_guard<std::mutex> lock(mutex_);
        image_->putScanline(y, xStart, xEnd, pixels);
    }

private:
    JImageAdapter* image_;
    int width_;
    int height_;
    std::mutex mutex_;
};

}  // namespace

// One tile position in scan order: its rectangle, its progress count, and
// whether it is large enough to be loaded.
struct JAutoSampler::Tile {
    JRect<int> rect;
    long long progress;
    bool loaded;
};

JAutoSampler::JAutoSampler() : samples_(nullptr), relaxed_(0)
{
    const JColorPalette* palette = JColorPalette::getPalette();
    samples_ = new JAutoSampleRec[palette->ncols() * palette->nrows()];
    index_.init(32771, 128, 10.0f);
    scans_.push_back(std::make_unique<JTileScan>());
}

JAutoSampler::~JAutoSampler()
{
    delete[] samples_;
}

int JAutoSampler::sampleCount()
{
    const JColorPalette* palette = JColorPalette::getPalette();
    return palette->ncols() * palette->nrows();
}

JAutoSampleRec* JAutoSampler::getSample(int i)
{
    return &samples_[i];
}

void JAutoSampler::reset()
{
    index_.clear();
    const int n = sampleCount();
    for (int i = 0; i < n; i++)
        samples_[i].valid = 0;
    loadedTiles_.clear();
    examined_[0] = examined_[1] = examined_[2] = 0;
}

bool JAutoSampler::sample(JImageAdapter* image, bool relaxed, JStatus* status)
{
    reset();
    relaxed_ = relaxed ? 1 : 0;
    const int width = image->width();
    const int height = image->height();
    if (status)
        status->setStep(QObject::tr("Profiling image..."), progressCount(static_cast<long long>(height) * width));

    std::vector<Tile> tiles;
    int loaded = 0;
    for (int tileY = 0; tileY < height; tileY += kTileStep) {
        for (int tileX = 0; tileX < width; tileX += kTileStep) {
            const JRect<int> r(tileX, tileY, std::min(tileX + kTileSize, width), std::min(tileY + kTileSize, height));
            const bool load = r.width() >= kMinTileSide && r.height() >= kMinTileSide;
            tiles.push_back(Tile{r, static_cast<long long>(tileY) * width + tileX, load});
            loaded += load;
        }
    }
    const int threads = std::min(threads_, loaded);
    bool finished = false;
    try {
        finished = threads > 1 ? scanInParallel(image, tiles, threads, status) : scanInOrder(image, tiles, status);
    } catch (...) {
        for (auto& scan : scans_)
            scan->releaseTile();
        throw;
    }
    // The tiles' planes live only during the search.
    for (auto& scan : scans_)
        scan->releaseTile();
    if (!finished)
        return false;
    assignSlots();
    if (status)
        status->end();
    return true;
}

bool JAutoSampler::scanInOrder(JImageAdapter* image, const std::vector<Tile>& tiles, JStatus* status)
{
    JTileScan::Result result;
    for (const Tile& t : tiles) {
        if (!report(status, t.progress))
            return false;
        if (!t.loaded)
            continue;
        JPixelRect::printLoadLine(t.rect);
        scans_[0]->scan(image, t.rect, relaxed_ != 0, result);
        merge(t.rect, result, 0);
    }
    return true;
}

bool JAutoSampler::scanInParallel(JImageAdapter* image, const std::vector<Tile>& tiles, int threads, JStatus* status)
{
    while (static_cast<int>(scans_.size()) < threads)
        scans_.push_back(std::make_unique<JTileScan>());
    std::vector<const Tile*> work;
    for (const Tile& t : tiles) {
        if (t.loaded)
            work.push_back(&t);
    }
    const int n = static_cast<int>(work.size());
    const int ahead = 2 * threads;
    LockedImage locked(image);

    // Everything below the mutex is shared; a tile's result belongs to the
    // thread that claimed it until its ready flag is set.
    std::mutex mutex;
    std::condition_variable changed;
    int next = 0;    // the next tile to claim
    int merged = 0;  // tiles offered so far
    bool stop = false;
    std::vector<JTileScan::Result> results(static_cast<size_t>(n));
    std::vector<std::exception_ptr> errors(static_cast<size_t>(n));
    std::vector<int> scannedBy(static_cast<size_t>(n), -1);

    // Claims the next tile if one is due (lock held); scans it unlocked.
    auto scanNext = [&](std::unique_lock<std::mutex>& lock, int scan) {
        const int k = next++;
        lock.unlock();
        try {
            scans_[scan]->scan(&locked, work[k]->rect, relaxed_ != 0, results[k]);
        } catch (...) {
            errors[k] = std::current_exception();
        }
        lock.lock();
        scannedBy[k] = scan;
        changed.notify_all();
    };
    auto due = [&] { return next < n && next < merged + ahead; };

    std::vector<std::thread> helpers;
    struct Joiner {
        std::mutex& mutex;
        std::condition_variable& changed;
        bool& stop;
        std::vector<std::thread>& helpers;
        ~Joiner()
        {
            {
                std::lock_guard<std::mutex> lock(mutex);
                stop = true;
            }
            changed.notify_all();
            for (std::thread& h : helpers)
                h.join();
        }
    } joiner{mutex, changed, stop, helpers};
    for (int t = 1; t < threads; t++) {
        try {
            helpers.emplace_back([&, t] {
                std::unique_lock<std::mutex> lock(mutex);
                for (;;) {
                    changed.wait(lock, [&] { return stop || next >= n || due(); });
                    if (stop || next >= n)
                        return;
                    scanNext(lock, t);
                }
            });
        } catch (const std::system_error&) {
            break;  // no more threads to be had: the others do the work
        }
    }

    int k = 0;
    for (const Tile& t : tiles) {
        if (!report(status, t.progress))
            return false;
        if (!t.loaded)
            continue;
        {
            std::unique_lock<std::mutex> lock(mutex);
            while (scannedBy[k] < 0) {
                if (due())
                    scanNext(lock, 0);
                else
                    changed.wait(lock);
            }
        }
        if (errors[k])
            std::rethrow_exception(errors[k]);
        JPixelRect::printLoadLine(t.rect);
        merge(t.rect, results[k], scannedBy[k]);
        results[k] = JTileScan::Result();
        {
            std::lock_guard<std::mutex> lock(mutex);
            merged++;
        }
        changed.notify_all();
        k++;
    }
    return true;
}

void JAutoSampler::merge(const JRect<int>& r, const JTileScan::Result& result, int scan)
{
    loadedTiles_.push_back(r);
    for (int k = 0; k < 3; k++)
        examined_[k] += result.examined[k];
    for (JAutoSampleRec candidate : result.candidates)
        offer(candidate);
    lastScan_ = scan;
}

// Removes every rival in found_ (each listed once) unless one of them has a
// strictly smaller score, in which case the candidate loses and nothing
// changes.
bool JAutoSampler::beatsAll(const JAutoSampleRec& candidate)
{
    for (const JAutoSampleRec* rival : found_) {
        if (rival->score < candidate.score)
            return false;
    }
    for (JAutoSampleRec* rival : found_)
        index_.remove(rival);
    return true;
}

void JAutoSampler::offer(JAutoSampleRec& candidate)
{
    index_.findOverlappingOnce(&candidate, found_);
    if (!beatsAll(candidate))
        return;
    index_.findSimilarOnce(&candidate, found_);
    if (!beatsAll(candidate))
        return;
    index_.add(new JAutoSampleRec(candidate));
}

void JAutoSampler::assignSlots()
{
    const JColorPalette* palette = JColorPalette::getPalette();
    const int ncols = palette->ncols();
    JAutoSampleIndexIter it(&index_);
    while (it.hasMore()) {
        JAutoSampleRec* r = it.next();
        // A colour with no nearest entry (NaN) falls to slot 0.
        int row = 0, col = 0;
        palette->findNearestEntry(r->lab, row, col);
        JAutoSampleRec& slot = samples_[row * ncols + col];
        const bool take = !slot.valid || (relaxed_ ? r->yVariance > slot.yVariance : r->yVariance < slot.yVariance);
        if (!take)
            continue;
        slot.rect = r->rect;
        slot.lab = r->lab;
        slot.score = r->score;
        slot.yVariance = r->yVariance;
        slot.valid = 1;
    }
}
