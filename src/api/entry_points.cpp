// The exported entry points. Each builds the engine objects it needs, runs
// one job on the calling thread, destroys what it built and returns 0, or 1
// after printing the failure (see entry_guard.h). Only the Dn functions leave
// the library; everything else is hidden.

#include <cstring>
#include <memory>

#include "api/dn_image_adapter.h"
#include "api/dn_status_wrapper.h"
#include "api/entry_guard.h"
#include "api/host_scale.h"
#include "api/profile_measure.h"
#include "api/status.h"
#include "base/ex.h"
#include "base/qtless/qobject.h"
#include "base/qtless/qstring.h"
#include "base/rect.h"
#include "denoise/denoise.h"
#include "filter/noise_filter_settings.h"
#include "murmex/murmex.h"
#include "profile/noise_profile.h"
#include "profile/noise_sample.h"

using dn_entry::guard;
using qtless::QObject;
using qtless::QString;

namespace {

// The host's record must never be dereferenced when it is missing.
const DnFilterParams& requireParams(const DnFilterParams* params)
{
    if (!params)
        throw JEx(QObject::tr("No filter parameters"));
    return *params;
}

// The host noise-sample record: the sample's rectangle, colours and noise
// table, word for word.
DnNoiseSample hostRecord(const JNoiseSample& s)
{
    DnNoiseSample r;
    r.left = s.rect.left;
    r.top = s.rect.top;
    r.right = s.rect.right;
    r.bottom = s.rect.bottom;
    r.y = s.ycrcb[0];
    r.cr = s.ycrcb[1];
    r.cb = s.ycrcb[2];
    r.r = s.rgb[0];
    r.g = s.rgb[1];
    r.b = s.rgb[2];
    r.labL = s.lab.L;
    r.labA = s.lab.a;
    r.labB = s.lab.b;
    std::memcpy(r.noiseY, s.noise[0], sizeof r.noiseY);
    std::memcpy(r.noiseCr, s.noise[1], sizeof r.noiseCr);
    std::memcpy(r.noiseCb, s.noise[2], sizeof r.noiseCb);
    return r;
}

// Shared by both profile builders: measure the whole image, then save to
// path if given, else to (outData, outLength) if both are given.
int buildProfile(void* hostContext, const char* path, unsigned char** outData, int* outLength,
                 DnGetScanlineCallback getCallback, int width, int height, int flag,
                 DnProgressCallback statusCallback)
{
    return guard([&] {
        DnImageAdapter adapter(hostContext, getCallback, nullptr, width, height);
        JStatus status;
        DnStatusWrapper wrapper(hostContext, &status, statusCallback);
        JNoiseProfile profile;
        dnMeasureProfile(&adapter, profile, flag > 0, &status, dnDefaultMeasureThreads());
        if (path)
            profile.save(QString(path));
        else if (outData && outLength)
            profile.save(outData, outLength);
    });
}

// Loads a profile and hands each sample to the host.
void reportSamples(void* hostContext, const JNoiseProfile& profile, DnSampleCallback sampleCallback)
{
    if (!sampleCallback)
        return;
    const int count = profile.sampleCount();
    for (int i = 0; i < count; i++) {
        const DnNoiseSample record = hostRecord(profile.getSample(i));
        sampleCallback(hostContext, count, i, &record);
    }
}

}  // namespace

extern "C" {

DN_API int DnRemoveNoise(void* hostContext, DnFilterParams* params, int left, int top, int right, int bottom,
                         DnGetScanlineCallback getCallback, DnPutScanlineCallback putCallback,
                         DnProgressCallback statusCallback)
{
    return DnRemoveNoise2(hostContext, params, left, top, right, bottom, nullptr, 0, getCallback, putCallback,
                          statusCallback);
}

DN_API int DnRemoveNoise2(void* hostContext, DnFilterParams* params, int left, int top, int right, int bottom,
                          const unsigned char* profileData, int profileLength,
                          DnGetScanlineCallback getCallback, DnPutScanlineCallback putCallback,
                          DnProgressCallback statusCallback)
{
    // Destroyed when the function returns, after the failure line, in the
    // reverse order: wrapper, adapter, driver. The status, profile and
    // settings live inside the guarded body and go first.
    std::unique_ptr<JDenoise> denoise;
    std::unique_ptr<DnImageAdapter> adapter;
    std::unique_ptr<DnStatusWrapper> wrapper;
    return guard([&] {
        const DnFilterParams& p = requireParams(params);
        denoise = std::make_unique<JDenoise>();
        adapter = std::make_unique<DnImageAdapter>(hostContext, getCallback, putCallback, p.width, p.height);
        JStatus status;
        wrapper = std::make_unique<DnStatusWrapper>(hostContext, &status, statusCallback);

        JNoiseProfile profile;
        if (profileData && profileLength > 0)
            profile.load(profileData, profileLength);
        else if (p.buildProfile == 0 && p.profilePath)
            profile.load(QString(p.profilePath));
        else
            dnMeasureProfile(adapter.get(), profile, false, &status, p.threads);

        if (p.saveProfile != 0 && p.profilePath)
            profile.save(QString(p.profilePath));

        JNoiseFilterSettings settings;
        dnSettingsFromHost(p, settings);
        settings.buildNoiseMaps(profile);

        denoise->setProfile(&profile);
        denoise->setFilterSettings(&settings);
        denoise->setTurbo(p.turbo != 0);
        denoise->setBackground(p.background != 0);
        denoise->setNumThreads(p.threads);

        // A cancelled run is not a failure: its result is not passed on.
        JRect<int> rect(left, top, right, bottom);
        denoise->removeNoise(adapter.get(), &rect, adapter.get(), &status);
    });
}

DN_API int DnBuildProfile(void* hostContext, const char* path, DnGetScanlineCallback getCallback, int width,
                          int height, int flag, DnProgressCallback statusCallback)
{
    return buildProfile(hostContext, path, nullptr, nullptr, getCallback, width, height, flag, statusCallback);
}

DN_API int DnBuildProfile2(void* hostContext, unsigned char** outData, int* outLength,
                           DnGetScanlineCallback getCallback, int width, int height, int flag,
                           DnProgressCallback statusCallback)
{
    return buildProfile(hostContext, nullptr, outData, outLength, getCallback, width, height, flag,
                        statusCallback);
}

DN_API int DnReadProfile(const char* path, unsigned char** outData, int* outLength, DnFilterParams* outParams)
{
    return guard([&] {
        JNoiseProfile profile;
        profile.load(QString(path));
        if (outData && outLength)
            profile.save(outData, outLength);
        if (outParams)
            dnSettingsToHost(profile.settings(), *outParams);
    });
}

DN_API int DnWriteProfile(const char* path, const unsigned char* data, int length, DnFilterParams* params)
{
    return guard([&] {
        const DnFilterParams& p = requireParams(params);
        JNoiseProfile profile;
        profile.load(data, data ? length : 0);
        dnSettingsFromHost(p, profile.settings());
        profile.save(QString(path));
    });
}

DN_API int DnReadProfileSamples(void* hostContext, const char* path, DnSampleCallback sampleCallback)
{
    return guard([&] {
        JNoiseProfile profile;
        profile.load(QString(path));
        reportSamples(hostContext, profile, sampleCallback);
    });
}

DN_API int DnReadProfileSamples2(void* hostContext, const unsigned char* data, int length,
                                 DnSampleCallback sampleCallback)
{
    return guard([&] {
        JNoiseProfile profile;
        // Without a block this entry point has no file name to fall back on:
        // it loads the empty path, which fails to open.
        if (data && length >= 1)
            profile.load(data, length);
        else
            profile.load(QString());
        reportSamples(hostContext, profile, sampleCallback);
    });
}

DN_API void DnFreeMemory(void* block)
{
    delete[] static_cast<unsigned char*>(block);
}

DN_API int DnSetStripWidth(int pixels)
{
    JImageLib::DenoiseStripWidth = pixels;
    return 0;
}

DN_API int DnSetRowsPerThread(int rows)
{
    JDenoise::rows_per_thread_override = rows;
    return 0;
}

DN_API int DnSetDenoiseLevels(int levels)
{
    if (levels != -1 && (levels < 2 || levels > 5))
        return 1;
    JDenoise::denoise_levels_override = levels;
    return 0;
}

}  // extern "C"
