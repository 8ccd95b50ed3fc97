#include "denoise/denoise.h"

#include <algorithm>
#include <exception>

#include "api/status.h"
#include "base/image_adapter.h"
#include "base/qtless/qobject.h"
#include "color/image_lib.h"
#include "denoise/denoise_thread.h"
#include "denoise/raster/adapter_to_rgbx.h"
#include "denoise/raster/blend.h"
#include "denoise/raster/constant.h"
#include "denoise/raster/filter_mask.h"
#include "denoise/raster/rgbx_to_mask.h"
#include "denoise/raster/rgbx_to_ycrcb.h"
#include "denoise/raster/sharpen.h"
#include "denoise/raster/shrink.h"
#include "denoise/raster/sum.h"
#include "denoise/raster/to_rgb.h"
#include "denoise/raster/variance.h"
#include "denoise/raster/variance_step_abs.h"
#include "denoise/raster/wavelet.h"
#include "filter/filter_mask.h"
#include "filter/noise_filter_settings.h"
#include "profile/noise_profile.h"

using qtless::QObject;
using qtless::QString;

std::atomic<int> JImageLib::DenoiseStripWidth{3400};
std::atomic<int> JDenoise::rows_per_thread_override{-1};
std::atomic<int> JDenoise::denoise_levels_override{-1};

namespace {

constexpr int kStripMargin = 32;
constexpr int kMaxLevels = 5;

// Marks a graph's nodes as used by this thread alone for as long as it lives.
class ReferencingAlone {
public:
    explicit ReferencingAlone(const std::vector<std::unique_ptr<JIncrRaster>>& nodes) : nodes_(nodes) { set(true); }
    ~ReferencingAlone() { set(false); }
    ReferencingAlone(const ReferencingAlone&) = delete;
    ReferencingAlone& operator=(const ReferencingAlone&) = delete;

private:
    void set(bool alone) const
    {
        for (const auto& node : nodes_)
            node->setReferencingAlone(alone);
    }
    const std::vector<std::unique_ptr<JIncrRaster>>& nodes_;
};

// Stops the workers' work on the rows of their next requests (when `armed`)
// as it goes: each answers an empty request, so none touches the graph after.
class WorkAheadStop {
public:
    WorkAheadStop(const std::vector<std::unique_ptr<JDenoiseThread>>& workers, JIncrRaster* final)
        : workers_(workers), final_(final)
    {
    }
    ~WorkAheadStop()
    {
        if (!armed)
            return;
        for (const auto& worker : workers_)
            worker->postRequest(final_, 0, -1);
        // An empty request cannot fail; the catch keeps the destructor from
        // throwing all the same.
        for (const auto& worker : workers_) {
            try {
                worker->waitForReply();
            } catch (...) {
            }
        }
    }
    WorkAheadStop(const WorkAheadStop&) = delete;
    WorkAheadStop& operator=(const WorkAheadStop&) = delete;

    bool armed = false;

private:
    const std::vector<std::unique_ptr<JDenoiseThread>>& workers_;
    JIncrRaster* final_;
};

}  // namespace

// Every node of one strip's graph. The graph owns them all; they are deleted
// together when the strip ends (nodes never touch their inputs on deletion).
struct JDenoise::Pipeline {
    std::vector<std::unique_ptr<JIncrRaster>> nodes;
    JIncrRaster_ToRGB* final = nullptr;

    template <class Node, class... Args>
    Node* make(Args&&... args)
    {
        auto node = std::make_unique<Node>(std::forward<Args>(args)...);
        Node* raw = node.get();
        nodes.push_back(std::move(node));
        return raw;
    }

    JIncrRaster* adopt(JIncrRaster* node)
    {
        nodes.emplace_back(node);
        return node;
    }
};

JDenoise::JDenoise()
{
    const int override = rows_per_thread_override.load();
    rowsPerThread_ = override != -1 ? override : 128;
}

JDenoise::~JDenoise() = default;

void JDenoise::setNumThreads(int n)
{
    if (n == numThreads())
        return;
    threads_.clear();
    peers_.clear();
    for (int i = 0; i < n; ++i) {
        threads_.push_back(std::make_unique<JDenoiseThread>(background_));
        peers_.push_back(threads_.back().get());
    }
    for (auto& worker : threads_)
        worker->setPeers(&peers_);
}

int JDenoise::levels() const
{
    const int override = denoise_levels_override.load();
    if (override >= 2 && override <= kMaxLevels)
        return override;
    return settings_ && settings_->getLowFreqFlag() ? 5 : 4;
}

bool JDenoise::sharpens() const
{
    // Exactly 1.001 adds no sharpen node.
    return settings_ && settings_->getUSMAmount() > 1.001f;
}

bool JDenoise::removeNoise(JImageAdapter* in, JRect<int>* rect, JImageAdapter* out, JStatus* status)
{
    const int height = rect->height();
    const int width = rect->width();

    // Rows per request. Without workers the override takes the rectangle's
    // height and deliberately keeps it for later runs.
    if (threads_.empty())
        rows_per_thread_override.store(height);
    const int override = rows_per_thread_override.load();
    if (override == -1)
        rowsPerThread_ = threads_.empty() ? height : std::min(128, height / (rowsDivisor_ * numThreads()));
    else
        rowsPerThread_ = override;
    // A batch must advance: more workers than rows, or an override of 0 or
    // less, still give one row per request.
    rowsPerThread_ = std::max(rowsPerThread_, 1);

    // Strips: as few as keep each within the limit. Growing stops at the
    // rectangle's width, so a limit of 0 or below cannot loop for ever.
    int n = 1;
    int stripWidth = width;
    const int limit = JImageLib::DenoiseStripWidth.load();
    while (stripWidth > limit && n < width) {
        ++n;
        stripWidth = width / n;
    }
    stripCount_ = n;
    stripWidth_ = stripWidth;

    if (status) {
        QString label = QObject::tr("User selected:");
        const int origin = profile_ ? profile_->getOrigin() : 2;
        if (origin == 0)
            label = QObject::tr("Auto matched:");
        else if (origin == 1)
            label = QObject::tr("Using previous:");
        QString text;
        const QString fileName = profile_ ? profile_->getFileName() : QString();
        if (!fileName.isEmpty())
            text = text.sprintf("[%s %s.dnp]", label.utf8(), fileName.utf8());
        else
            text += "[New profile: unnamed.dnp]";
        status->setStep(QObject::tr("Removing noise: ") + text, n * height);
        status->update(0);
        status->rowsDone(0);
    }

    bool finished = true;
    for (int i = 0; i < n; ++i) {
        const int xStart = rect->left + i * stripWidth;
        // The last strip always ends at right - 1. Neighbouring strips share
        // the column xStart + stripWidth; both compute the same values there.
        const int xEnd = i == n - 1 ? rect->right - 1 : std::min(xStart + stripWidth, rect->right - 1);
        finished = runStrip(in, out, i, xStart, xEnd, rect->top, rect->bottom - 1, status);
        if (!finished)
            break;
    }

    if (status)
        status->end();
    return finished;
}

std::unique_ptr<JDenoise::Pipeline> JDenoise::buildPipeline(JImageAdapter* in, JImageAdapter* out, int xStart,
                                                             int xEnd)
{
    auto p = std::make_unique<Pipeline>();
    JNoiseFilterSettings& settings = *settings_;

    const int leftMargin = xStart > kStripMargin ? kStripMargin : 0;
    const int rightMargin = xEnd < in->width() - 1 - kStripMargin ? kStripMargin : 0;
    const int x0 = xStart - leftMargin;
    const int x1 = xEnd + rightMargin;
    const int nLevels = levels();

    JIncrRaster* reader = p->make<JIncrRaster_AdapterToRGBX>(in, x0, x1);
    JIncrRaster* half = p->make<JIncrRaster_Constant>(0.5f, reader->width(), reader->height());

    const int nChannels = luminanceOnly_ ? 1 : 3;
    JIncrRaster* channel[3] = {};
    for (int ch = 0; ch < nChannels; ++ch)
        channel[ch] = p->make<JIncrRaster_RGBXToYCrCb>(reader, static_cast<JImageLib::YCrCbIndex>(ch));
    JIncrRaster* alphaMask = maskBlend_ ? p->make<JIncrRaster_RGBXToMask>(reader) : nullptr;

    JIncrRaster* bands[3][kMaxLevels] = {};
    JIncrRaster* lowpasses[3][kMaxLevels] = {};
    for (int ch = 0; ch < nChannels; ++ch) {
        buildIncrWavelet(channel[ch], nLevels, bands[ch], lowpasses[ch]);
        for (int j = 0; j < nLevels; ++j) {
            p->adopt(bands[ch][j]);
            p->adopt(lowpasses[ch][j]);
            lowpasses[ch][j]->setTurbo(turbo_);
        }
    }

    // The shrink nodes are guided by the second low-pass plane of each channel.
    JIncrRaster& guideY = *lowpasses[JImageLib::Y][1];
    JIncrRaster& guideCr = luminanceOnly_ ? *half : *lowpasses[JImageLib::Cr][1];
    JIncrRaster& guideCb = luminanceOnly_ ? *half : *lowpasses[JImageLib::Cb][1];

    JIncrRaster* result[3] = {};
    for (int ch = 0; ch < nChannels; ++ch) {
        JIncrRaster* parts[kMaxLevels + 1];
        for (int j = 0; j < nLevels; ++j) {
            JIncrRaster* variance;
            if (ch == JImageLib::Y)
                variance = p->make<JIncrRaster_Variance>(*bands[ch][j], 4);
            else
                variance = p->make<JIncrRaster_VarianceStepAbs>(*bands[ch][j], 2, j + 1);
            variance->setTurbo(turbo_);
            J3DMap* strengthMap = settings.strengthMapIsNoOp(ch) ? nullptr : &settings.getStrengthMap(ch);
            auto* shrink = p->make<JIncrRaster_Shrink>(*bands[ch][j], guideY, guideCr, guideCb, *variance,
                                                       settings.getNoiseMap(ch, std::min(j, 4)), strengthMap);
            shrink->setThreshold(1.0 - settings.getStrength(ch));
            shrink->setContrast(settings.getContrast(ch));
            parts[j] = shrink;
        }
        parts[nLevels] = lowpasses[ch][nLevels - 1];
        result[ch] = p->make<JIncrRaster_Sum>(parts, nLevels + 1);
    }

    if (sharpens()) {
        auto* sharpen = p->make<JIncrRaster_Sharpen>(*result[JImageLib::Y], settings.getUSMRadius(),
                                                     settings.getUSMAmount());
        sharpen->suppressHalos(settings.getUSMSuppressHalos());
        sharpen->findEdges(false);
        result[JImageLib::Y] = sharpen;
    }

    if (alphaMask)
        for (int ch = 0; ch < nChannels; ++ch)
            result[ch] = p->make<JIncrRaster_Blend>(*result[ch], *channel[ch], *alphaMask);

    if (filterMask_) {
        if (!filterMask_->isLumEmpty()) {
            auto* node = p->make<JIncrRaster_FilterMask>(*channel[JImageLib::Y], *result[JImageLib::Y], *filterMask_,
                                                         x0, x1);
            node->setMaskChannel(JIncrRaster_FilterMask::Luminance);
            result[JImageLib::Y] = node;
        }
        if (!luminanceOnly_ && !filterMask_->isChromaEmpty()) {
            for (int ch : {JImageLib::Cr, JImageLib::Cb}) {
                auto* node = p->make<JIncrRaster_FilterMask>(*channel[ch], *result[ch], *filterMask_, x0, x1);
                node->setMaskChannel(JIncrRaster_FilterMask::Chroma);
                result[ch] = node;
            }
        }
    }

    if (luminanceOnly_)
        result[JImageLib::Cr] = result[JImageLib::Cb] = half;

    p->final = p->make<JIncrRaster_ToRGB>(*result[JImageLib::Y], *result[JImageLib::Cr], *result[JImageLib::Cb], out,
                                          xStart, xEnd, leftMargin);
    return p;
}

bool JDenoise::runStrip(JImageAdapter* in, JImageAdapter* out, int strip, int xStart, int xEnd, int yStart,
                        int yEnd, JStatus* status)
{
    const int rows = yEnd - yStart + 1;
    std::unique_ptr<Pipeline> pipeline = buildPipeline(in, out, xStart, xEnd);
    JIncrRaster* final = pipeline->final;
    graphNodes_ = static_cast<int>(pipeline->nodes.size());

    // Every row is referenced before any is pulled, so that no row of any
    // node is evaluated twice. No worker has the graph yet, so the nodes
    // count these references without locks.
    {
        const ReferencingAlone alone(pipeline->nodes);
        for (int row = yStart; row <= yEnd; ++row)
            final->refScanline(row);
    }

    bool cancelled = false;
    if (threads_.empty()) {
        // The bound compares a row index with the row count that
        // removeNoise stored as rows per thread. This is kept as it is: it
        // evaluates one row past the rectangle when it starts at row 0 and
        // skips rows when it starts further down.
        for (int row = yStart; row <= rowsPerThread_; ++row) {
            final->getScanline(row);
            final->unrefScanline(row);
        }
    } else {
        JIncrRaster_ToRGB* writer = pipeline->final;
        // Each worker computes the rows of its next request while it waits
        // for it; those rows reach the adapter only with their batch, so the
        // writes, progress calls and cancellation keep the batches' order.
        // However the loop ends, the graph stays until the workers have
        // answered a request without such rows.
        WorkAheadStop workingAhead(threads_, final);
        // The last row of `count` requests from row `from` on, in 64 bits: the
        // rows per request may be any positive int.
        const auto lastRow = [&](int from, long long count) {
            return static_cast<int>(std::min<long long>(from + count * rowsPerThread_, yEnd + 1LL) - 1);
        };
        int current = yStart;
        while (!cancelled && current <= yEnd) {
            const int batchFirst = current;
            const int batchLast = lastRow(current, static_cast<long long>(threads_.size()));
            writer->setWriteLimit(batchLast);
            int last = current - 1;
            int ahead = batchLast + 1;
            workingAhead.armed = ahead <= yEnd;
            for (auto& worker : threads_) {
                const int first = current;
                last = lastRow(current, 1);
                const int aheadFirst = ahead;
                const int aheadLast = lastRow(ahead, 1);
                worker->postRequest(final, first, last, aheadFirst, aheadLast);
                current = last + 1;
                ahead = aheadLast + 1;
            }
            // Every worker answers before the graph may go: an error on one
            // is rethrown only once all have replied. The workers take rows
            // from one another, so the first replies only when no row of the
            // batch is left to claim; this thread then helps each later
            // worker with any rows that worker has not reached. So no more
            // threads compute than there are workers (nor rows are held for
            // more), and the batch's tail is shared.
            std::exception_ptr error;
            for (size_t k = 0; k < threads_.size(); ++k) {
                try {
                    if (k == 0)
                        threads_[k]->waitForReply();
                    else
                        threads_[k]->helpThenWaitForReply();
                } catch (...) {
                    if (!error)
                        error = std::current_exception();
                }
            }
            if (error)
                std::rethrow_exception(error);
            for (int row = batchFirst; row < current; ++row)
                out->resampleInterleaved(row, xStart, xEnd);
            if (status) {
                status->update(strip * rows + last);
                status->rowsDone(strip == 0 ? last - yStart + 1 : rows);
                cancelled = status->isCancelled();
            }
        }
    }

    if (status) {
        status->update((strip + 1) * rows);
        status->rowsDone(rows);
    }
    return !cancelled;
}
