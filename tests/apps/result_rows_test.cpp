// Tests of the result rows between the library's threads and a writer
// thread: pieces put from several threads, strip by strip, come out as whole
// rows in the output's channels, in order, with the source's alpha; rows
// never put are zero; an abandoned job wakes the writer.

#include "murmex/result_rows.h"

#include <atomic>
#include <chrono>
#include <random>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "murmex/app_error.h"
#include "apps/app_fixtures.h"

using murmex_app::AppError;
using murmex_app::Image;
using murmex_app::ResultRows;
using namespace murmex_app_test;

namespace {

// A library result: width x height RGBX pixels from a fixed seed.
std::vector<uint16_t> randomRgbx(int width, int height, uint32_t seed)
{
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> sample(0, 65535);
    std::vector<uint16_t> v(static_cast<size_t>(width) * height * 4);
    for (auto& s : v)
        s = static_cast<uint16_t>(sample(rng));
    return v;
}

// The source image in its Source layout: its own samples, channels a pixel.
Image sourceLayout(const Image& rgbxImage)
{
    Image s = rgbxImage;
    s.layout = Image::Layout::Source;
    const size_t n = static_cast<size_t>(s.width) * s.height;
    const int c = s.sourceChannels;
    s.samples.resize(n * c);
    for (size_t i = 0; i < n; ++i) {
        const int colour = c <= 2 ? 1 : 3;
        for (int k = 0; k < colour; ++k)
            s.samples[i * c + k] = rgbxImage.rgbx[i * 4 + k];
        if (c == 2 || c == 4)
            s.samples[i * c + c - 1] = rgbxImage.alpha[i];
    }
    s.rgbx.clear();
    s.alpha.clear();
    return s;
}

// What a writer must get for pixel i of the result: the grey mean rounded,
// or R, G, B; then the source's alpha.
std::vector<uint16_t> expectedRow(const Image& source, const std::vector<uint16_t>& rgbx, int y)
{
    std::vector<uint16_t> row;
    for (int x = 0; x < source.width; ++x) {
        const size_t i = static_cast<size_t>(y) * source.width + x;
        const uint32_t r = rgbx[i * 4], g = rgbx[i * 4 + 1], b = rgbx[i * 4 + 2];
        if (source.sourceChannels <= 2) {
            row.push_back(static_cast<uint16_t>((r + g + b + 1) / 3));
        } else {
            row.push_back(static_cast<uint16_t>(r));
            row.push_back(static_cast<uint16_t>(g));
            row.push_back(static_cast<uint16_t>(b));
        }
        if (source.sourceChannels == 2 || source.sourceChannels == 4)
            row.push_back(source.alpha[i]);
    }
    return row;
}

// Puts the result as the library's strips do: strip by strip left to right,
// neighbours sharing their edge column, each strip's rows shared out between
// two threads in batches of `batch` rows.
void putInStrips(ResultRows& rows, const std::vector<uint16_t>& rgbx, int width, int height, int strips, int batch)
{
    const int stripWidth = width / strips;
    for (int s = 0; s < strips; ++s) {
        const int x0 = s * stripWidth;
        const int x1 = s == strips - 1 ? width - 1 : x0 + stripWidth;
        std::vector<std::thread> workers;
        for (int t = 0; t < 2; ++t)
            workers.emplace_back([&, t, x0, x1] {
                for (int first = t * batch; first < height; first += 2 * batch)
                    for (int y = first; y < std::min(first + batch, height); ++y)
                        rows.put(y, x0, x1, rgbx.data() + (static_cast<size_t>(y) * width + x0) * 4);
            });
        for (auto& w : workers)
            w.join();
    }
}

void expectWriterGetsEveryRow(const Image& source, int strips)
{
    const std::vector<uint16_t> rgbx = randomRgbx(source.width, source.height, 11);
    for (const Image& s : {source, sourceLayout(source)}) {
        ResultRows rows(s);
        std::vector<std::vector<uint16_t>> written;
        std::thread writer([&] {
            const size_t n = expectedRow(source, rgbx, 0).size();
            for (int y = 0; y < s.height; ++y) {
                const uint16_t* r = rows.row(y);
                written.emplace_back(r, r + n);
            }
        });
        putInStrips(rows, rgbx, s.width, s.height, strips, 5);
        writer.join();
        ASSERT_EQ(written.size(), static_cast<size_t>(s.height));
        for (int y = 0; y < s.height; ++y)
            ASSERT_EQ(written[y], expectedRow(source, rgbx, y)) << "row " << y << ", " << strips << " strips";
    }
}

}  // namespace

TEST(ResultRowsThreadTest, PiecesFromSeveralThreadsReachTheWriterAsWholeRowsWithTheSourcesAlpha)
{
    expectWriterGetsEveryRow(randomImage(37, 23, 4, 1), 3);
    expectWriterGetsEveryRow(randomImage(37, 23, 3, 2), 1);
}

TEST(ResultRowsThreadTest, GreySourcesGetTheRoundedMeanOfTheThreeChannels)
{
    expectWriterGetsEveryRow(randomImage(29, 17, 2, 3), 2);
    expectWriterGetsEveryRow(randomImage(29, 17, 1, 4), 4);
}

// Waits, up to ten seconds, until done() holds; false if it never does.
template <class Done>
bool eventually(Done done)
{
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!done()) {
        if (std::chrono::steady_clock::now() > until)
            return false;
        std::this_thread::yield();
    }
    return true;
}

TEST(ResultRowsThreadTest, AWaitingWriterIsWokenForEightRowsAtATimeUpToTheLast)
{
    // Waking the writer takes a processor from the library's workers, so a
    // writer that waits for row y wakes once rows y..y+7 are all there (or
    // the rows up to the last, or the job ends), whatever order they come in.
    static_assert(ResultRows::kWakeRows == 8);
    const int width = 5, height = 10;
    const Image source = randomImage(width, height, 3, 8);
    const std::vector<uint16_t> rgbx = randomRgbx(width, height, 9);
    ResultRows rows(source);
    std::atomic<int> taken{0};
    std::thread writer([&] {
        for (int y = 0; y < height; ++y) {
            rows.row(y);
            taken = y + 1;
        }
    });
    auto put = [&](int y) { rows.put(y, 0, width - 1, rgbx.data() + static_cast<size_t>(y) * width * 4); };
    bool ok = eventually([&] { return rows.writerWaiting(); });
    EXPECT_TRUE(ok) << "the writer never waited for row 0";
    for (int y : {3, 0, 1, 2, 6, 4, 5})
        put(y);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(taken.load(), 0) << "woken before row 7 was complete";
    put(7);
    ok = eventually([&] { return taken.load() == 8 && rows.writerWaiting(); });
    EXPECT_TRUE(ok) << "rows 0 to 7 did not reach the writer";
    // Rows 8 and 9 are the last two: the writer waits for them alone.
    put(9);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(taken.load(), 8);
    put(8);
    writer.join();
    EXPECT_EQ(taken.load(), height);
}

TEST(ResultRowsThreadTest, FinishCompletesRowsNeverPutWithZeros)
{
    const Image source = randomImage(8, 4, 4, 5);
    const std::vector<uint16_t> rgbx = randomRgbx(8, 4, 6);
    ResultRows rows(source);
    rows.put(0, 0, 7, rgbx.data());
    rows.put(2, 0, 3, rgbx.data() + 2 * 8 * 4);  // the left half only
    std::vector<std::vector<uint16_t>> written;
    std::thread writer([&] {
        for (int y = 0; y < 4; ++y) {
            const uint16_t* r = rows.row(y);
            written.emplace_back(r, r + 8 * 4);
        }
    });
    rows.finish();
    writer.join();
    std::vector<uint16_t> zeros(rgbx.size(), 0);
    std::copy(rgbx.begin(), rgbx.begin() + 8 * 4, zeros.begin());
    std::copy(rgbx.begin() + 2 * 8 * 4, rgbx.begin() + 2 * 8 * 4 + 4 * 4, zeros.begin() + 2 * 8 * 4);
    for (int y = 0; y < 4; ++y)
        EXPECT_EQ(written[y], expectedRow(source, zeros, y)) << "row " << y;
}

TEST(ResultRowsThreadTest, AbandoningTheJobWakesAWaitingWriterWithAnError)
{
    const Image source = randomImage(8, 4, 3, 7);
    ResultRows rows(source);
    bool failed = false;
    std::thread writer([&] {
        try {
            rows.row(0);
        } catch (const AppError&) {
            failed = true;
        }
    });
    rows.abandon();
    writer.join();
    EXPECT_TRUE(failed);
    EXPECT_THROW(rows.row(1), AppError);
}
