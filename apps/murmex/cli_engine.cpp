#include "cli_engine.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "app_error.h"
#include "image_io.h"
#include "result_rows.h"
#include "file_errors.h"
#include "host/engine_output.h"
#include "host/profile_samples.h"
#include "host/progress_text.h"
#include "safe_write.h"

namespace murmex_app {

namespace {

// The host context of one library call.
struct HostJob {
    const Image* source = nullptr;
    uint16_t* result = nullptr;     // RGBX of the whole image, or null
    ResultRows* rows = nullptr;     // or the rows on their way to a writer, or null for jobs that only read
    Progress* progress = nullptr;
};

void getScanline(void* context, int y, int xStart, int xEnd, unsigned short* pixels)
{
    readRgbx(*static_cast<const HostJob*>(context)->source, y, xStart, xEnd, pixels);
}

void putScanline(void* context, int y, int xStart, int xEnd, unsigned short* pixels)
{
    const HostJob* job = static_cast<const HostJob*>(context);
    if (job->rows) {
        job->rows->put(y, xStart, xEnd, pixels);
        return;
    }
    const size_t at = (static_cast<size_t>(y) * job->source->width + xStart) * 4;
    std::memcpy(job->result + at, pixels, static_cast<size_t>(xEnd - xStart + 1) * 4 * sizeof(uint16_t));
}

int progressCallback(void* context, const char* stepText, float fraction)
{
    const HostJob* job = static_cast<HostJob*>(context);
    // The output's writer has failed, or the input's reader on its own
    // thread: the rest of the work would be lost.
    if ((job->rows && job->rows->writerStopped()) || (job->source->watch && job->source->watch->failed()))
        return 1;
    return job->progress->report(userStepText(stepText ? stepText : "").c_str(), fraction);
}

}  // namespace

std::vector<uint8_t> measureProfile(const Image& image, bool relaxed, Progress& progress, const std::string& name)
{
    HostJob job{&image, nullptr, nullptr, &progress};
    unsigned char* data = nullptr;
    int length = 0;
    EngineResult r = callEngine([&] {
        return DnBuildProfile2(&job, &data, &length, getScanline, image.width, image.height, relaxed ? 1 : 0,
                               progressCallback);
    });
    std::vector<uint8_t> bytes;
    if (data && length > 0)
        bytes.assign(data, data + length);
    DnFreeMemory(data);
    if (r.failed())
        throw AppError("cannot measure a noise profile from " + name + ": " + r.message());
    return bytes;
}

namespace {

void runRemoveNoise(HostJob& job, DnFilterParams params, const std::vector<uint8_t>& profile, const std::string& name)
{
    const Image& image = *job.source;
    params.width = image.width;
    params.height = image.height;
    EngineResult r = callEngine([&] {
        return DnRemoveNoise2(&job, &params, 0, 0, image.width, image.height, profile.empty() ? nullptr : profile.data(),
                              static_cast<int>(profile.size()), getScanline, putScanline, progressCallback);
    });
    if (r.failed()) {
        if (profile.empty() && params.profilePath && !params.buildProfile)
            throw AppError("cannot load profile " + std::string(params.profilePath) + ": " + r.message());
        throw AppError("cannot denoise " + name + ": " + r.message());
    }
}

}  // namespace

std::vector<uint16_t> removeNoise(const Image& image, DnFilterParams params, const std::vector<uint8_t>& profile,
                                  Progress& progress, const std::string& name)
{
    std::vector<uint16_t> result(static_cast<size_t>(image.width) * static_cast<size_t>(image.height) * 4);
    HostJob job{&image, result.data(), nullptr, &progress};
    runRemoveNoise(job, params, profile, name);
    return result;
}

void removeNoise(const Image& image, DnFilterParams params, const std::vector<uint8_t>& profile, Progress& progress,
                 const std::string& name, ResultRows& rows)
{
    HostJob job{&image, nullptr, &rows, &progress};
    runRemoveNoise(job, params, profile, name);
}

ProfileCopy::ProfileCopy(const std::string& path) : original_(path)
{
    requireReadableKind(path, "cannot load profile " + path);
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw AppError("cannot load profile " + path + ": " + errnoText(errno));
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad())
        throw AppError("cannot load profile " + path + ": " + errnoText(errno ? errno : EIO));
    if (bytes.empty())
        throw AppError("cannot load profile " + path + ": empty file");
    std::string pattern = (std::filesystem::temp_directory_path() / "murmex-profile-XXXXXX").string();
    if (!mkdtemp(pattern.data()))
        throw AppError("cannot load profile " + path + ": cannot make a temporary folder: " + errnoText(errno));
    dir_ = pattern;
    path_ = (std::filesystem::path(dir_) / std::filesystem::path(path).filename()).string();
    std::ofstream out(path_, std::ios::binary);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    out.close();
    if (!out)
        throw AppError("cannot load profile " + path + ": cannot copy it to " + dir_ + ": " + errnoText(errno));
}

ProfileCopy::~ProfileCopy()
{
    std::error_code ec;
    if (!dir_.empty())
        std::filesystem::remove_all(dir_, ec);
}

std::string ProfileCopy::forUser(const std::string& message) const
{
    return replaceAll(message, path_, original_);
}

LoadedProfile loadProfile(const std::string& path)
{
    const ProfileCopy copy(path);
    LoadedProfile loaded;
    unsigned char* data = nullptr;
    int length = 0;
    EngineResult r = callEngine([&] { return DnReadProfile(copy.path().c_str(), &data, &length, &loaded.settings); });
    if (data && length > 0)
        loaded.bytes.assign(data, data + length);
    DnFreeMemory(data);
    if (r.failed())
        throw AppError("cannot load profile " + path + ": " + copy.forUser(r.message()));
    return loaded;
}

void saveProfile(const std::string& path, const std::vector<uint8_t>& bytes, const DnFilterParams& settings,
                 Links links)
{
    TempOutput out(path, true, links);
    DnFilterParams params = settings;
    out.write([&](const std::string& temporary) {
        EngineResult r = callEngine([&] {
            return DnWriteProfile(temporary.c_str(), bytes.data(), static_cast<int>(bytes.size()), &params);
        });
        if (r.failed())
            throw AppError("cannot write profile " + path + ": " + r.message());
    });
    out.commit();
}

std::vector<DnNoiseSample> profileSamples(const std::vector<uint8_t>& bytes, const std::string& path)
{
    std::vector<DnNoiseSample> samples;
    EngineResult r = callEngine([&] {
        return DnReadProfileSamples2(&samples, bytes.data(), static_cast<int>(bytes.size()), collectProfileSample);
    });
    if (r.failed())
        throw AppError("cannot read the samples of " + path + ": " + r.message());
    return samples;
}

void checkProfileSamples(const std::vector<uint8_t>& bytes, const std::string& path)
{
    const std::vector<DnNoiseSample> samples = profileSamples(bytes, path);
    if (samples.empty())
        throw AppError("cannot use profile " + path + ": it holds no noise samples, so it would remove nothing");
    for (size_t i = 0; i < samples.size(); ++i) {
        const DnNoiseSample& s = samples[i];
        for (const float* level : {s.noiseY, s.noiseCr, s.noiseCb})
            for (int k = 0; k < 5; ++k) {
                const float v = level[k];
                if (v == -1.0f || (v >= 0.0f && v <= 1.0f))
                    continue;
                char text[64];
                std::snprintf(text, sizeof text, "%g", static_cast<double>(v));
                throw AppError("cannot use profile " + path + ": sample " + std::to_string(i + 1) +
                               " holds an impossible noise value (" + text + ")");
            }
    }
}

void applyTuning(std::optional<int> stripWidth, std::optional<int> rowsPerThread, std::optional<int> levels)
{
    if (stripWidth)
        DnSetStripWidth(*stripWidth);
    if (rowsPerThread)
        DnSetRowsPerThread(*rowsPerThread);
    if (levels && DnSetDenoiseLevels(*levels) != 0)
        throw AppError("the library refuses " + std::to_string(*levels) + " wavelet levels (2 to 5, or -1 for automatic)");
}

}  // namespace murmex_app
