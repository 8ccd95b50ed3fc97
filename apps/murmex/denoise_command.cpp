// murmex denoise INPUT... [-o OUTPUT | --out-dir DIR]
#include <malloc.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "auto_option.h"
#include "background_write.h"
#include "cli_commands.h"
#include "cli_engine.h"
#include "image_io.h"
#include "interrupt.h"
#include "metadata.h"
#include "host/profile_header.h"
#include "host/profile_library.h"
#include "host/progress_text.h"
#include "progress.h"
#include "read_ahead.h"
#include "result_rows.h"
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
    std::optional<std::string> suffix;
    std::string format;  // "tif", "tiff", "png", "jpg", "jpeg" or empty: from the names
    std::string compression = "deflate";
    bool skipExisting = false;
    std::string profile;
    std::string library;
    std::string saveProfile;
    SettingsOptions settings;
    AutoSettingsOption autoSettings;
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
profile and the print resolution of the input are copied to the output; XMP
beyond one JPEG segment is kept as extended XMP. EXIF larger than the 64 KB
a JPEG holds is refused before the work starts.

Outputs: the format follows the output's extension: .tif/.tiff and .png at 16
bits per sample, .jpg/.jpeg at 8 bits (--jpeg-quality); --format gives it for
names made here. Without -o or --out-dir the result goes next to the input
as NAME-denoised.EXT (TIFF for camera raw inputs); --out-dir keeps the
input's name; --suffix replaces "-denoised". An input is never overwritten
unless --in-place is given (then the result replaces the input), nor is the
profile read or another output of the run. An existing file at the output's
name is replaced, as cp would, if the user may write it; a symbolic link given
with -o is followed and the file it points to replaced, while one at a name
made here (beside the input or in --out-dir) is refused. Devices, named pipes
and sockets are refused, as inputs and as outputs. Outputs are written to a
temporary file and renamed when complete. Ctrl-C (or SIGTERM, SIGHUP) stops;
while an output is being written it stops at once, removing the temporary
file.

Profile: --profile FILE.dnp; otherwise the profile in the library whose
camera maker and model are the photo's, at the nearest ISO counted in stops
(the lower on a tie); otherwise one measured from the image itself. --save-profile always
measures (the library is not searched) and keeps that profile.

Settings: those stored in the profile file when one is used, else the
middle of every scale and no sharpening; with --settings auto, those chosen
for the image from the noise measured in it and in the profile (-v shows
them). Setting options given override either.)";

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
    if (o.inPlace) {
        if (!isWritableExtension(in))
            throw UsageError("cannot write " + input + " in place: camera raw files are read only (use -o)");
        if (!o.format.empty() && formatForPath(input) != formatForPath("." + o.format))
            throw UsageError("cannot write " + input + " in place as " + o.format + " (use --out-dir or --suffix)");
        return input;
    }
    const std::string ext = !o.format.empty() ? "." + o.format : isWritableExtension(in) ? in.extension().string() : ".tif";
    const std::string suffix = o.suffix ? *o.suffix : o.outDir.empty() ? "-denoised" : "";
    const fs::path dir = o.outDir.empty() ? in.parent_path() : fs::path(o.outDir);
    return (dir / (in.stem().string() + suffix + ext)).string();
}

struct Job {
    std::string input;
    std::string output;
    ImageFormat format;
    bool skip = false;  // --skip-existing and the output exists
    // A name made here rather than given: a symbolic link there is refused.
    Links links = Links::Follow;
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
        if (o.output.empty() && !o.inPlace)
            job.links = Links::Refuse;
        try {
            job.format = formatForPath(job.output);
        } catch (const AppError& e) {
            throw UsageError(e.what());
        }
        if (!o.format.empty() && job.format != formatForPath("." + o.format))
            throw UsageError("the output " + job.output + " is not " + o.format + " (--format)");
        for (const std::string& other : o.inputs)
            if (sameFile(job.output, other) && !(o.inPlace && other == input))
                throw UsageError("refusing to overwrite the input " + other + " (use --in-place)");
        if (!o.profile.empty() && sameFile(job.output, o.profile))
            throw UsageError("refusing to overwrite the profile " + o.profile + " with the image " + job.output);
        for (const Job& earlier : jobs)
            if (sameFile(job.output, earlier.output))
                throw UsageError("inputs " + earlier.input + " and " + input + " would both be written to " + job.output);
        std::error_code ec;
        job.skip = o.skipExisting && fs::exists(job.output, ec);
        jobs.push_back(job);
    }
    if (!o.saveProfile.empty()) {
        for (const std::string& input : o.inputs)
            if (sameFile(o.saveProfile, input))
                throw UsageError("refusing to overwrite the input " + input + " with the profile (--save-profile)");
        for (const Job& job : jobs)
            if (sameFile(o.saveProfile, job.output))
                throw UsageError("--save-profile " + o.saveProfile + " and the image output " + job.output +
                                 " are the same file");
        checkOutputTarget(o.saveProfile);
    }
    for (const Job& job : jobs)
        if (!job.skip)
            checkOutputTarget(job.output, job.links);
    return jobs;
}

TiffCompression compressionNamed(const std::string& name)
{
    return name == "none" ? TiffCompression::None : name == "lzw" ? TiffCompression::Lzw : TiffCompression::Deflate;
}

// "name: text" for every line the run prints about one file.
std::string about(const std::string& label, const std::string& text)
{
    return label + ": " + text;
}

std::string settingsLine(const DnFilterParams& params)
{
    std::string line;
    for (const auto& [name, value] : settingsRows(params))
        line += (line.empty() ? "" : ", ") + name + " " + value;
    return line;
}

void denoiseOne(const DenoiseOptions& o, const Job& job, size_t index, size_t count)
{
    const auto start = std::chrono::steady_clock::now();
    const std::string label =
        displayName(job.input) +
        (count > 1 ? " (file " + std::to_string(index + 1) + " of " + std::to_string(count) + ")" : std::string());
    Progress progress(Progress::modeFor(o.output_.quiet), label);
    if (job.skip) {
        progress.note(about(label, "skipped, " + job.output + " exists"));
        return;
    }
    checkMetadataFits(job.input, job.output, job.format);
    // The rows are decoded while the profile is loaded and the library works.
    ImageReadAhead reading(job.input, o.limits);
    Image& image = reading.image();

    DnFilterParams params{};
    std::vector<uint8_t> measured;
    std::string profilePath = o.profile;
    std::string profileText = o.profile.empty() ? "" : o.profile + " (--profile)";
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
            profileText = match->path + " (matched to " + describeCamera(camera) + ")";
            progress.note(about(label, "Auto matched: " + match->path));
        } else {
            progress.note(about(label, "no profile for " + describeCamera(camera) +
                                           (dir.empty() ? std::string() : " in " + dir) + "; measuring one from the image"));
        }
    }

    std::optional<ProfileCopy> profileCopy;
    if (!profilePath.empty()) {
        LoadedProfile loaded = loadProfile(profilePath);
        checkProfileSamples(loaded.bytes, profilePath);
        params = loaded.settings;
        profileCopy.emplace(profilePath);
        params.profilePath = profileCopy->path().c_str();
        o.autoSettings.apply(image, loaded.bytes, params, displayName(job.input), o.output_.verbose);
    } else {
        profileText = "measured from the image";
        setDefaultSettings(params);
        measured = measureProfile(image, false, progress, job.input);
        // The profile needs every row: a read that failed stops here. A
        // Ctrl-C comes first, so that the rest of the file is not read.
        throwIfInterrupted();
        reading.finish();
        o.autoSettings.apply(image, measured, params, displayName(job.input), o.output_.verbose);
    }
    o.settings.applyTo(params);
    params.buildProfile = 0;
    params.saveProfile = 0;
    params.threads = o.threads;
    params.turbo = o.turbo ? 1 : 0;
    params.background = o.background ? 1 : 0;
    if (o.output_.verbose) {
        progress.note(about(label, "profile " + profileText));
        progress.note(about(label, "settings " + settingsLine(params)));
    }

    if (!o.saveProfile.empty()) {
        const ProfileHeader header = headerFromCamera(readCameraInfo(job.input), image.width, image.height);
        saveProfile(o.saveProfile, withProfileHeader(measured, header), params);
    }

    // The output is written while the library works, each row as soon as
    // it is denoised, so that the whole result is never held. Until the
    // library is done a signal stops it as usual (the file goes as this
    // unwinds); from then on, as for every output, it ends the program at
    // once.
    const std::string writing(kWritingStep);
    {
        TempOutput out(job.output, false, job.links);
        WriteOptions options;
        options.jpegQuality = o.jpegQuality;
        options.tiffCompression = compressionNamed(o.compression);
        // A PNG gets its metadata as it is written, not by a rewrite of
        // the whole file afterwards.
        if (job.format == ImageFormat::Png)
            options.pngChunks = pngMetadataChunks(job.input, job.output, image.width, image.height);
        ResultRows rows(image);
        // A writer that fails (a full disk) stops the library at its next
        // progress call; its error is reported below.
        BackgroundWrite writer(out.path(), image, rows, job.format, options, [&rows] { rows.close(); });
        // Whatever ends this block early lets the writer go before it is
        // joined.
        struct Abandon {
            ResultRows& rows;
            ~Abandon() { rows.abandon(); }
        } abandon{rows};
        try {
            removeNoise(image, params, measured, progress, job.input, rows);
        } catch (const AppError& e) {
            throw AppError(profileCopy ? profileCopy->forUser(e.what()) : std::string(e.what()));
        }
        if (rows.writerStopped())
            out.write([&](const std::string&) { writer.wait([](float) {}); });
        throwIfInterrupted();
        reading.finish();
        rows.finish();
        // The rows hold their alpha already: the source can go, before the
        // metadata is copied.
        std::vector<uint16_t>().swap(image.samples);
        out.writeInForeground();
        // The rows take most of the writing time; the metadata and the
        // rename the rest, so 100 % shows only once the output is in place.
        progress.report(writing.c_str(), 0.0f);
        out.write([&](const std::string& path) {
            writer.wait([&](float done) { progress.report(writing.c_str(), 0.95f * done); });
            // The library's and the rows' freed memory goes back to the
            // system before the metadata step, which reads both files whole
            // for JPEG outputs (a TIFF only gets its directories appended, a
            // PNG has its metadata already).
            malloc_trim(0);
            if (job.format != ImageFormat::Png)
                copyMetadata(job.input, path);
        });
        throwIfInterrupted();
        out.commit();
    }
    progress.report(writing.c_str(), 1.0f);
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
    for (size_t i = 0; i < jobs.size(); ++i) {
        try {
            denoiseOne(o, jobs[i], i, jobs.size());
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
    CLI::Option* inPlace = sub->add_flag("--in-place", o->inPlace, "allow the output to replace its input");
    sub->add_option("--suffix", o->suffix,
                    "added to the input's name to make the output's (default: -denoised, nothing with --out-dir)")
        ->type_name("TEXT")
        ->excludes(out)
        ->excludes(inPlace);
    sub->add_option("--format", o->format, "the outputs' format (default: the input's; TIFF for camera raw files)")
        ->type_name("tif|png|jpg")
        ->check(CLI::IsMember({"tif", "tiff", "png", "jpg", "jpeg"}));
    sub->add_option("--compression", o->compression, "compression of TIFF outputs (lossless)")
        ->type_name("none|deflate|lzw")
        ->capture_default_str()
        ->check(CLI::IsMember({"none", "deflate", "lzw"}));
    sub->add_flag("--skip-existing", o->skipExisting, "leave an input alone when its output exists already")
        ->excludes(inPlace);
    sub->add_option("--profile", o->profile, "the noise profile to use")->type_name("FILE.dnp");
    sub->add_option("--library", o->library,
                    "the profile library (default: $MURMEX_PROFILES, else $XDG_DATA_HOME/murmex/profiles)")
        ->type_name("DIR");
    sub->add_option("--save-profile", o->saveProfile, "measure the profile from the image and keep it in FILE")
        ->type_name("FILE.dnp");
    o->settings.addTo(*sub);
    o->autoSettings.addTo(*sub, "choose the settings for each image from its noise instead of the profile's");
    sub->add_option("-j,--threads", o->threads, "worker threads; 0 computes on the main thread")
        ->capture_default_str()
        ->check(wholeNumberWithin(0, 1024));
    sub->add_flag("--turbo", o->turbo, "faster, slightly coarser filtering");
    sub->add_flag("--background", o->background, "run the workers at a lower priority");
    sub->add_option("--strip-width", o->stripWidth, "widest strip the denoiser processes at once, in pixels (default 3400)")
        ->type_name("PIXELS")
        ->check(wholeNumberWithin(16, 1 << 20));
    sub->add_option("--rows-per-thread", o->rowsPerThread, "rows one worker computes per request (-1: automatic)")
        ->type_name("ROWS")
        ->check(wholeNumber([](long long v) { return v == -1 || v > 0; }, "-1 or positive"));
    sub->add_option("--levels", o->levels, "wavelet levels, 2 to 5 (-1: automatic)")
        ->type_name("N")
        ->check(wholeNumber([](long long v) { return v == -1 || (v >= 2 && v <= 5); }, "-1 or within 2 to 5"));
    sub->add_option("--jpeg-quality", o->jpegQuality, "quality of JPEG outputs, 1 to 100")
        ->capture_default_str()
        ->check(wholeNumberWithin(1, 100));
    addReadLimits(*sub, o->limits);
    o->output_.addTo(*sub);
    return [o] { runDenoise(*o); };
}

}  // namespace murmex_app
