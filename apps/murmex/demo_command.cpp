// murmex demo [--out-dir DIR]: the built-in job on a synthetic photograph.
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <system_error>
#include <thread>

#include "auto_option.h"
#include "cli_commands.h"
#include "cli_engine.h"
#include "demo_scene.h"
#include "image_io.h"
#include "progress.h"
#include "safe_write.h"
#include "settings_options.h"

namespace murmex_app {

namespace {

namespace fs = std::filesystem;

struct DemoOptions {
    std::string outDir = "murmex-demo";
    int width = 1600;
    int height = 1064;
    unsigned seed = 1;
    int threads = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
    OutputOptions output_;
};

// The demo's outputs have names made here, in the folder the user chose: a
// symbolic link at one of them is refused rather than written through.
void writeTiff(const std::string& path, const Image& image)
{
    TempOutput out(path, true, Links::Refuse);
    writeImage(out.path(), image, ImageFormat::Tiff);
    throwIfInterrupted();
    out.commit();
}

double secondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void runDemo(const DemoOptions& o)
{
    o.output_.apply();
    std::error_code ec;
    fs::create_directories(o.outDir, ec);
    if (ec)
        throw AppError("cannot create " + o.outDir + ": " + ec.message());

    const std::string cleanPath = (fs::path(o.outDir) / "clean.tif").string();
    const std::string noisyPath = (fs::path(o.outDir) / "noisy.tif").string();
    const std::string denoisedPath = (fs::path(o.outDir) / "denoised.tif").string();
    const std::string autoPath = (fs::path(o.outDir) / "denoised-auto.tif").string();
    const std::string profilePath = (fs::path(o.outDir) / "demo.dnp").string();
    for (const std::string& path : {cleanPath, noisyPath, denoisedPath, autoPath, profilePath})
        checkOutputTarget(path, Links::Refuse);

    Progress progress(Progress::modeFor(o.output_.quiet), "demo");
    const Image clean = renderDemoScene(o.width, o.height);
    const Image noisy = addCameraNoise(clean, o.seed);

    const auto start = std::chrono::steady_clock::now();
    const std::vector<uint8_t> profile = measureProfile(noisy, false, progress, "the demo scene");
    throwIfInterrupted();
    const double profileSeconds = secondsSince(start);
    DnFilterParams params{};
    setDefaultSettings(params);
    params.threads = o.threads;
    const auto denoiseStart = std::chrono::steady_clock::now();
    Image denoised = noisy;
    denoised.rgbx = removeNoise(noisy, params, profile, progress, "the demo scene");
    throwIfInterrupted();
    const double denoiseSeconds = secondsSince(denoiseStart);

    // The same job with the settings chosen automatically, for comparison.
    DnFilterParams autoParams = params;
    AutoSettingsOption{"auto"}.apply(noisy, profile, autoParams, "demo", o.output_.verbose);
    Image autoDenoised = noisy;
    autoDenoised.rgbx = removeNoise(noisy, autoParams, profile, progress, "the demo scene");
    throwIfInterrupted();
    progress.finish();

    writeTiff(cleanPath, clean);
    writeTiff(noisyPath, noisy);
    writeTiff(denoisedPath, denoised);
    writeTiff(autoPath, autoDenoised);
    saveProfile(profilePath, profile, params, Links::Refuse);
    const size_t samples = profileSamples(profile, profilePath).size();

    const double before = psnr16(noisy, clean);
    const double after = psnr16(denoised, clean);
    const double afterAuto = psnr16(autoDenoised, clean);
    std::printf("murmex demo: a %d x %d synthetic scene with camera-like noise\n", o.width, o.height);
    std::printf("  clean      %s\n", cleanPath.c_str());
    std::printf("  noisy      %-40s PSNR %6.2f dB\n", noisyPath.c_str(), before);
    std::printf("  denoised   %-40s PSNR %6.2f dB  (gain %+.2f dB, default settings)\n", denoisedPath.c_str(), after,
                after - before);
    std::printf("  auto       %-40s PSNR %6.2f dB  (gain %+.2f dB, automatic settings)\n", autoPath.c_str(), afterAuto,
                afterAuto - before);
    std::printf("  profile    %-40s %zu samples\n", profilePath.c_str(), samples);
    std::printf("  time       %.2f s (profile %.2f s, denoise %.2f s) with %d threads\n", profileSeconds + denoiseSeconds,
                profileSeconds, denoiseSeconds, o.threads);
}

}  // namespace

CommandRunner addDemoCommand(CLI::App& app)
{
    auto o = std::make_shared<DemoOptions>();
    CLI::App* sub = app.add_subcommand("demo", "denoise a built-in synthetic photograph and show the gain");
    sub->footer(
        "Renders a photograph-like scene (gradients, edges, fine texture, flat colour areas, saturated\n"
        "colours), adds camera-like noise (stronger in the shadows, coarser in colour), measures a\n"
        "profile from the noisy image and denoises it with the default settings and with the settings\n"
        "chosen automatically (--settings auto). Writes clean.tif, noisy.tif, denoised.tif,\n"
        "denoised-auto.tif (16-bit) and the profile demo.dnp, and prints the PSNR of the noisy and the\n"
        "two denoised images against the clean one (16-bit RGB) and the time taken by the default run\n"
        "(measuring and denoising; not the file writing).");
    sub->add_option("--out-dir", o->outDir, "where the files go")->capture_default_str()->type_name("DIR");
    sub->add_option("--width", o->width, "scene width in pixels")->capture_default_str()->check(wholeNumberWithin(16, 20000));
    sub->add_option("--height", o->height, "scene height in pixels")->capture_default_str()->check(wholeNumberWithin(16, 20000));
    sub->add_option("--seed", o->seed, "seed of the noise")->capture_default_str();
    sub->add_option("-j,--threads", o->threads, "worker threads; 0 computes on the main thread")
        ->capture_default_str()
        ->check(wholeNumberWithin(0, 1024));
    o->output_.addTo(*sub);
    return [o] { runDemo(*o); };
}

}  // namespace murmex_app
