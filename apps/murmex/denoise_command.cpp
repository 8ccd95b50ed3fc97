// murmex denoise INPUT... [-o OUTPUT | --out-dir DIR]
#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "cli_commands.h"
#include "cli_engine.h"
#include "image_io.h"
#include "metadata.h"
#include "host/profile_header.h"
#include "host/profile_library.h"
#include "progress.h"
#include "safe_write.h"
#include "settings_options.h"

namespace murmex_app {

namespace {

namespace fs = std::filesystem;

struct DenoiseOptions {
    std::vector<std::string> inputs;
    std::string output;
    std::string outDir;
    bool inPlace = false;
    std::string profile;
    std::string library;
    std::string saveProfile;
    SettingsOptions settings;
    int threads = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
    bool turbo = false;
    bool background = false;
    std::optional<int> stripWidth, rowsPerThread, levels;
    int jpegQuality = 92;
    ReadLimits limits;
    OutputOptions output_;
};

const char* kDenoiseFooter = R"(Inputs: 8- and 16-bit TIFF, PNG and JPEG files and camera raw files (demosaiced
to 16-bit RGB). Grey inputs are denoised as R = G = B and written as grey
(one channel, the mean of the three); an alpha channel is carried through
untouched to TIFF and PNG outputs and dropped for JPEG. EXIF, XMP, the ICC
profile and the print resolution of the input are copied to the output.

Outputs: the format follows the output's extension: .tif/.tiff and .png at 16
bits per sample, .jpg/.jpeg at 8 bits (--jpeg-quality). Without -o or
--out-dir the result goes next to the input as NAME-denoised.EXT (TIFF for
camera raw inputs); --out-dir keeps the input's name. An input is never
overwritten unless --in-place is given (then the result replaces the input);
any other existing file at the output's name is replaced, as cp would.
Outputs are written to a temporary file and renamed when complete.

Profile: --profile FILE.dnp; otherwise the profile in the library whose
camera maker and model are the photo's, at the nearest ISO counted in stops
(the lower on a tie); otherwise one measured from the image itself. --save-profile always
measures (the library is not searched) and keeps that profile.

Settings: those stored in the profile file when one is used, else the
middle of every scale and no sharpening; options given override them.)";

bool isWritableExtension(const fs::path& p)
{
    std::string ext = p.extension().string();
    for (char& c : ext)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return ext == ".tif" || ext == ".tiff" || ext == ".png" || ext == ".jpg" || ext == ".jpeg";
}

// The output file name for input under the naming rules above.
std::string outputFor(const DenoiseOptions& o, const std::string& input)
{
    if (!o.output.empty())
        return o.output;
    const fs::path in(input);
    const std::string ext = isWritableExtension(in) ? in.extension().string() : std::string(".tif");
    if (!o.outDir.empty())
        return (fs::path(o.outDir) / (in.stem().string() + ext)).string();
    if (o.inPlace) {
        if (!isWritableExtension(in))
            throw UsageError("cannot write " + input + " in place: camera raw files are read only (use -o)");
        return input;
    }
    return (in.parent_path() / (in.stem().string() + "-denoised" + ext)).string();
}

bool sameFile(const std::string& a, const std::string& b)
{
    std::error_code ec;
    if (fs::equivalent(a, b, ec))
        return true;
    return fs::weakly_canonical(a, ec) == fs::weakly_canonical(b, ec);
}

struct Job {
    std::string input;
    std::string output;
    ImageFormat format;
};

std::vector<Job> planJobs(const DenoiseOptions& o)
{
    if (!o.output.empty() && o.inputs.size() > 1)
        throw UsageError("-o names one output; use --out-dir for several inputs");
    if (!o.saveProfile.empty() && o.inputs.size() > 1)
        throw UsageError("--save-profile keeps the profile of one input; give one input");
    if (!o.saveProfile.empty() && !o.profile.empty())
        throw UsageError("--save-profile keeps a measured profile and cannot be used with --profile");
    std::vector<Job> jobs;
    for (const std::string& input : o.inputs) {
        Job job{input, outputFor(o, input), ImageFormat::Tiff};
        try {
            job.format = formatForPath(job.output);
        } catch (const AppError& e) {
            throw UsageError(e.what());
        }
        for (const std::string& other : o.inputs)
            if (sameFile(job.output, other) && !(o.inPlace && other == input))
                throw UsageError("refusing to overwrite the input " + other + " (use --in-place)");
        for (const Job& earlier : jobs)
            if (sameFile(job.output, earlier.output))
                throw UsageError("inputs " + earlier.input + " and " + input + " would both be written to " + job.output);
        jobs.push_back(job);
    }
    return jobs;
}

void denoiseOne(const DenoiseOptions& o, const Job& job)
{
    const auto start = std::chrono::steady_clock::now();
    Progress progress(Progress::modeFor(o.output_.quiet), displayName(job.input));
    checkMetadataFits(job.input, job.output, job.format);
    Image image = readImage(job.input, o.limits);

    DnFilterParams params{};
    std::vector<uint8_t> measured;
    std::string profilePath = o.profile;
    if (profilePath.empty() && o.saveProfile.empty()) {
        CameraInfo camera;
        try {
            camera = readCameraInfo(job.input);
        } catch (const AppError&) {
            // No camera data: nothing to match.
        }
        std::string dir;
        try {
            dir = profileLibraryDirectory(o.library.empty() ? std::nullopt : std::optional<std::string>(o.library));
        } catch (const AppError&) {
        }
        std::optional<LibraryEntry> match = dir.empty() ? std::nullopt : matchProfile(scanProfileLibrary(dir), camera);
        if (match) {
            profilePath = match->path;
            progress.relabel("User selected:", "Auto matched:");
            progress.note(displayName(job.input) + ": Auto matched: " + match->path);
        } else {
            progress.note(displayName(job.input) + ": no profile for " + describeCamera(camera) +
                          (dir.empty() ? std::string() : " in " + dir) + "; measuring one from the image");
        }
    }

    std::optional<ProfileCopy> profileCopy;
    if (!profilePath.empty()) {
        LoadedProfile loaded = loadProfile(profilePath);
        checkProfileSamples(loaded.bytes, profilePath);
        params = loaded.settings;
        profileCopy.emplace(profilePath);
        params.profilePath = profileCopy->path().c_str();
    } else {
        setDefaultSettings(params);
        measured = measureProfile(image, false, progress, job.input);
        throwIfInterrupted();
    }
    o.settings.applyTo(params);
    params.buildProfile = 0;
    params.saveProfile = 0;
    params.threads = o.threads;
    params.turbo = o.turbo ? 1 : 0;
    params.background = o.background ? 1 : 0;

    if (!o.saveProfile.empty()) {
        const ProfileHeader header = headerFromCamera(readCameraInfo(job.input), image.width, image.height);
        saveProfile(o.saveProfile, withProfileHeader(measured, header), params);
    }

    std::vector<uint16_t> result;
    try {
        result = removeNoise(image, params, measured, progress, job.input);
    } catch (const AppError& e) {
        throw AppError(profileCopy ? profileCopy->forUser(e.what()) : std::string(e.what()));
    }
    throwIfInterrupted();

    image.rgbx = std::move(result);
    {
        TempOutput out(job.output);
        out.write([&](const std::string& path) {
            writeImage(path, image, job.format, o.jpegQuality);
            copyMetadata(job.input, path);
        });
        throwIfInterrupted();
        out.commit();
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    char took[32];
    std::snprintf(took, sizeof took, "%.2f s", seconds);
    progress.note(displayName(job.input) + " -> " + job.output + " (" + took + ")");
}

void runDenoise(const DenoiseOptions& o)
{
    o.output_.apply();
    const std::vector<Job> jobs = planJobs(o);
    if (!o.outDir.empty()) {
        std::error_code ec;
        fs::create_directories(o.outDir, ec);
        if (ec)
            throw AppError("cannot create " + o.outDir + ": " + ec.message());
    }
    applyTuning(o.stripWidth, o.rowsPerThread, o.levels);
    bool failed = false;
    for (const Job& job : jobs) {
        try {
            denoiseOne(o, job);
        } catch (const AppError& e) {
            printError(e.what());
            failed = true;
        }
    }
    if (failed)
        throw ReportedFailure();
}

}  // namespace

CommandRunner addDenoiseCommand(CLI::App& app)
{
    auto o = std::make_shared<DenoiseOptions>();
    CLI::App* sub = app.add_subcommand("denoise", "remove noise from photos");
    sub->footer(kDenoiseFooter);
    sub->add_option("inputs", o->inputs, "the photos to denoise, one after the other")->required()->type_name("INPUT");
    CLI::Option* out = sub->add_option("-o,--output", o->output, "the output file (one input only)")->type_name("OUTPUT");
    sub->add_option("--out-dir", o->outDir, "write the outputs into DIR under the inputs' names")
        ->type_name("DIR")
        ->excludes(out);
    sub->add_flag("--in-place", o->inPlace, "allow the output to replace its input");
    sub->add_option("--profile", o->profile, "the noise profile to use")->type_name("FILE.dnp");
    sub->add_option("--library", o->library,
                    "the profile library (default: $MURMEX_PROFILES, else $XDG_DATA_HOME/murmex/profiles)")
        ->type_name("DIR");
    sub->add_option("--save-profile", o->saveProfile, "measure the profile from the image and keep it in FILE")
        ->type_name("FILE.dnp");
    o->settings.addTo(*sub);
    sub->add_option("-j,--threads", o->threads, "worker threads; 0 computes on the main thread")
        ->capture_default_str()
        ->check(CLI::Range(0, 1024));
    sub->add_flag("--turbo", o->turbo, "faster, slightly coarser filtering");
    sub->add_flag("--background", o->background, "run the workers at a lower priority");
    sub->add_option("--strip-width", o->stripWidth, "widest strip the denoiser processes at once, in pixels (default 3400)")
        ->type_name("PIXELS")
        ->check(CLI::Range(16, 1 << 20));
    sub->add_option("--rows-per-thread", o->rowsPerThread, "rows one worker computes per request (-1: automatic)")
        ->type_name("ROWS")
        ->check(CLI::Validator(
            [](std::string& text) {
                int v = 0;
                return CLI::detail::lexical_cast(text, v) && (v == -1 || v > 0) ? std::string()
                                                                               : "Value " + text + " is neither -1 nor positive";
            },
            "-1 or positive"));
    sub->add_option("--levels", o->levels, "wavelet levels, 2 to 5 (-1: automatic)")
        ->type_name("N")
        ->check(CLI::IsMember({-1, 2, 3, 4, 5}));
    sub->add_option("--jpeg-quality", o->jpegQuality, "quality of JPEG outputs, 1 to 100")
        ->capture_default_str()
        ->check(CLI::Range(1, 100));
    addReadLimits(*sub, o->limits);
    o->output_.addTo(*sub);
    return [o] { runDenoise(*o); };
}

}  // namespace murmex_app
