// murmex_output_dump DIR: runs a fixed set of noise-removal jobs and writes
// each job's output image (16-bit RGBX, native byte order) and each measured
// profile as a raw file into DIR, one file per job. scripts/output-hashes.sh
// hashes them, so that a change meant only for speed can show that it leaves
// every output bit where it was.
//
// Every job runs on the scalar paths and on each vector path the processor
// offers, with 0, 1, 2 and 8 workers, turbo rows off and on:
// - the noisy scenes of the driver's tests (tests/denoise/denoise_test.cpp),
//   with fixed noise maps, and variants that add sharpening, a fifth level,
//   the alpha-mask blend, luminance only and narrow strips;
// - the demo scene of `murmex demo` through the entry points: its profile
//   measured with DnBuildProfile2, then DnRemoveNoise2 with the default
//   settings, as the demo does.
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <murmex/murmex.h>

#include "base/cpu_info.h"
#include "base/rect.h"
#include "color/image_lib.h"
#include "demo_scene.h"
#include "denoise/denoise.h"
#include "filter/noise_filter_settings.h"
#include "profile/map_3d.h"
#include "support/memory_image.h"
#include "support/scene.h"
#include "support/simd_paths.h"

namespace fs = std::filesystem;
using murmex_test::MemoryImage;

namespace {

std::string g_dir;

void writeFile(const std::string& name, const void* data, size_t bytes)
{
    const std::string path = (fs::path(g_dir) / name).string();
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (!f || std::fwrite(data, 1, bytes, f) != bytes || std::fclose(f) != 0) {
        std::fprintf(stderr, "murmex_output_dump: cannot write %s\n", path.c_str());
        std::exit(1);
    }
}

// Every run starts from the process-wide defaults: a run without workers
// leaves its height behind as the rows-per-request override.
void resetTuning()
{
    JDenoise::rows_per_thread_override = -1;
    JDenoise::denoise_levels_override = -1;
    JImageLib::DenoiseStripWidth = 3400;
}

void setNoise(JNoiseFilterSettings& s, float y, float chroma)
{
    for (int ch = 0; ch < 3; ++ch)
        for (int l = 0; l < JNoiseFilterSettings::kLevels; ++l) {
            const float v = (ch == 0 ? y : chroma) / static_cast<float>(1 << l);
            for (int i = 0; i < J3DMap::kCells; ++i)
                s.getNoiseMap(ch, l).setCellValue(i, v);
        }
}

struct SceneJob {
    std::string name;
    int width, height;
    double sigma;
    uint32_t seed;
    float noiseY, noiseChroma;
    std::function<void(JNoiseFilterSettings&, JDenoise&)> setup;
    int stripWidth = 3400;
};

std::string runName(const std::string& job, const murmex_test::SIMDPath& path, int threads, bool turbo)
{
    return job + "." + path.name() + ".j" + std::to_string(threads) + (turbo ? ".turbo" : ".full");
}

void runScene(const SceneJob& job, const murmex_test::SIMDPath& path)
{
    MemoryImage in = murmex_test::makeScene(job.width, job.height);
    murmex_test::addNoise(in, job.sigma, job.seed);
    for (bool turbo : {false, true})
        for (int threads : {0, 1, 2, 8}) {
            resetTuning();
            JImageLib::DenoiseStripWidth = job.stripWidth;
            JNoiseFilterSettings settings;
            setNoise(settings, job.noiseY, job.noiseChroma);
            MemoryImage out(job.width, job.height);
            JDenoise d;
            if (job.setup)
                job.setup(settings, d);
            d.setFilterSettings(&settings);
            d.setTurbo(turbo);
            d.setNumThreads(threads);
            JRect<int> rect(0, 0, job.width, job.height);
            d.removeNoise(&in, &rect, &out, nullptr);
            writeFile(runName(job.name, path, threads, turbo) + ".rgbx", out.data().data(),
                      out.data().size() * sizeof(uint16_t));
        }
    resetTuning();
}

struct DemoJob {
    const murmex_app::Image* image;
    std::vector<uint16_t> result;
};

void demoGet(void* context, int y, int xStart, int xEnd, unsigned short* pixels)
{
    const murmex_app::Image& img = *static_cast<DemoJob*>(context)->image;
    const size_t at = (static_cast<size_t>(y) * img.width + xStart) * 4;
    std::memcpy(pixels, img.rgbx.data() + at, static_cast<size_t>(xEnd - xStart + 1) * 4 * sizeof(uint16_t));
}

void demoPut(void* context, int y, int xStart, int xEnd, unsigned short* pixels)
{
    auto* job = static_cast<DemoJob*>(context);
    const size_t at = (static_cast<size_t>(y) * job->image->width + xStart) * 4;
    std::memcpy(job->result.data() + at, pixels, static_cast<size_t>(xEnd - xStart + 1) * 4 * sizeof(uint16_t));
}

void runDemo(const murmex_app::Image& noisy, const murmex_test::SIMDPath& path)
{
    resetTuning();
    DemoJob job{&noisy, {}};
    unsigned char* profile = nullptr;
    int length = 0;
    if (DnBuildProfile2(&job, &profile, &length, demoGet, noisy.width, noisy.height, 0, nullptr) != 0) {
        std::fprintf(stderr, "murmex_output_dump: DnBuildProfile2 failed\n");
        std::exit(1);
    }
    writeFile("demo." + path.name() + ".dnp", profile, static_cast<size_t>(length));
    for (bool turbo : {false, true})
        for (int threads : {0, 1, 2, 8}) {
            resetTuning();
            DnFilterParams params{};
            for (int i = 0; i < DnHostScaleCount; ++i)
                *DnHostScaleField(&params, i) = DnHostScales[i].middle;
            *DnHostScaleField(&params, 6) = DnHostScales[6].low;  // sharpening off, as in the demo
            params.suppressHalos = 1;
            params.threads = threads;
            params.turbo = turbo ? 1 : 0;
            params.width = noisy.width;
            params.height = noisy.height;
            job.result.assign(noisy.rgbx.size(), 0);
            if (DnRemoveNoise2(&job, &params, 0, 0, noisy.width, noisy.height, profile, length, demoGet, demoPut,
                               nullptr) != 0) {
                std::fprintf(stderr, "murmex_output_dump: DnRemoveNoise2 failed\n");
                std::exit(1);
            }
            writeFile(runName("demo", path, threads, turbo) + ".rgbx", job.result.data(),
                      job.result.size() * sizeof(uint16_t));
        }
    DnFreeMemory(profile);
    resetTuning();
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: murmex_output_dump DIR\n");
        return 2;
    }
    g_dir = argv[1];
    std::error_code ec;
    fs::create_directories(g_dir, ec);

    const std::vector<SceneJob> scenes = {
        {"scene700x500", 700, 500, 1800.0, 5, 3e-4f, 1.5e-4f, nullptr},
        {"scene160x120", 160, 120, 2000.0, 11, 4e-4f, 2e-4f, nullptr},
        {"sharpen", 300, 200, 1500.0, 3, 3e-4f, 1.5e-4f,
         [](JNoiseFilterSettings& s, JDenoise&) {
             s.setUSMAmount(2.5f);
             s.setUSMRadius(1.2f);
             s.setUSMSuppressHalos(true);
         }},
        {"fivelevels", 300, 200, 1500.0, 4, 3e-4f, 1.5e-4f,
         [](JNoiseFilterSettings& s, JDenoise&) { s.setLowFreqFlag(true); }},
        {"maskblend", 200, 150, 1500.0, 6, 3e-4f, 1.5e-4f,
         [](JNoiseFilterSettings&, JDenoise& d) { d.setMaskBlend(true); }},
        {"luminance", 200, 150, 1500.0, 7, 3e-4f, 1.5e-4f,
         [](JNoiseFilterSettings&, JDenoise& d) { d.setLuminanceOnly(true); }},
        {"strips", 900, 120, 1500.0, 8, 3e-4f, 1.5e-4f, nullptr, 256},
    };

    const murmex_app::Image demo = murmex_app::addCameraNoise(murmex_app::renderDemoScene(1600, 1064), 1);
    murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& path) {
        for (const SceneJob& job : scenes)
            runScene(job, path);
        runDemo(demo, path);
    });
    return 0;
}
