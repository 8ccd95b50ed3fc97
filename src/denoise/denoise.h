// JDenoise: removes noise from a rectangle of an image.
//
// The rectangle is cut into vertical strips no wider than
// JImageLib::DenoiseStripWidth. For each strip a fresh graph of raster nodes
// reads the strip (with up to 32 columns of context on each side) from the
// input adapter, splits it into Y, Cr and Cb, decomposes each channel into
// wavelet bands, shrinks every band against the profile's noise maps,
// rebuilds the channels, optionally sharpens, blends and masks, and writes
// RGB rows to the output adapter. Rows are evaluated in batches by the worker
// threads (or by the calling thread when there are none) and progress is
// reported after every batch.
//
// Threads: only the calling thread builds graphs, posts batches and reports
// progress; workers only evaluate rows of the final node. A worker whose
// rows of a batch are done takes rows of the others' (JDenoiseThread peers),
// so all of them stay busy to the batch's end; once the first worker of a
// batch has replied, the calling thread evaluates rows of the later workers'
// requests while it waits for them (JDenoiseThread::helpThenWaitForReply).
// A worker that has replied computes the rows of its next request while the
// others finish theirs; the output node keeps those rows until their batch
// pulls them, so no row is written before its batch is handed out.
// Batches, progress calls and rows stay what they were. The three tuning values are process-wide and set by the
// entry points, hence atomics.
#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "base/rect.h"

class JDenoiseThread;
class JFilterMask;
class JImageAdapter;
class JIncrRaster;
class JNoiseFilterSettings;
class JNoiseProfile;
class JStatus;

namespace JImageLib {
// The widest strip the driver builds a graph for; 3400 by default.
extern std::atomic<int> DenoiseStripWidth;
}  // namespace JImageLib

class JDenoise {
public:
    // Rows per worker request; -1 (the default) picks them from the height.
    static std::atomic<int> rows_per_thread_override;
    // Wavelet levels; 2..5 override the settings' choice, -1 (the default) does not.
    static std::atomic<int> denoise_levels_override;

    JDenoise();
    ~JDenoise();
    JDenoise(const JDenoise&) = delete;
    JDenoise& operator=(const JDenoise&) = delete;

    void setProfile(JNoiseProfile* profile) { profile_ = profile; }
    void setFilterSettings(JNoiseFilterSettings* settings) { settings_ = settings; }
    void setTurbo(bool turbo) { turbo_ = turbo; }
    void setBackground(bool background) { background_ = background; }
    // Replaces the workers by n new ones (none for n <= 0); the same count keeps them.
    void setNumThreads(int n);
    int numThreads() const { return static_cast<int>(threads_.size()); }

    // Options that the entry points leave at their defaults: blending filtered
    // and unfiltered channels by the alpha-derived mask, filtering luminance
    // only (Cr and Cb become 0.5), and a painted filter mask (not owned).
    void setMaskBlend(bool on) { maskBlend_ = on; }
    void setLuminanceOnly(bool on) { luminanceOnly_ = on; }
    void setFilterMask(JFilterMask* mask) { filterMask_ = mask; }

    // Filters `rect` of `in` into `out`. Returns false when the host cancelled
    // through `status` (which may be null), true when every strip finished.
    // Node and adapter errors propagate unchanged.
    bool removeNoise(JImageAdapter* in, JRect<int>* rect, JImageAdapter* out, JStatus* status);

    // What the last removeNoise used: rows per worker request, the number of
    // strips and their width.
    int rowsPerThread() const { return rowsPerThread_; }
    int stripCount() const { return stripCount_; }
    int stripWidth() const { return stripWidth_; }
    // Nodes in the last strip's graph.
    int graphNodeCount() const { return graphNodes_; }
    // Wavelet levels a strip's graph would use with the current settings.
    int levels() const;
    // Whether a graph built with the current settings has a sharpen node.
    bool sharpens() const;

private:
    struct Pipeline;

    std::unique_ptr<Pipeline> buildPipeline(JImageAdapter* in, JImageAdapter* out, int xStart, int xEnd);
    bool runStrip(JImageAdapter* in, JImageAdapter* out, int strip, int xStart, int xEnd, int yStart, int yEnd,
                  JStatus* status);

    bool turbo_ = true;
    bool background_ = false;
    const int rowsDivisor_ = 1;
    int rowsPerThread_;
    bool maskBlend_ = false;
    bool luminanceOnly_ = false;
    // The workers again, as each one's peer list; declared first so that it
    // outlives them.
    std::vector<JDenoiseThread*> peers_;
    std::vector<std::unique_ptr<JDenoiseThread>> threads_;
    JNoiseProfile* profile_ = nullptr;
    JNoiseFilterSettings* settings_ = nullptr;
    JFilterMask* filterMask_ = nullptr;
    int stripCount_ = 0;
    int stripWidth_ = 0;
    int graphNodes_ = 0;
};
