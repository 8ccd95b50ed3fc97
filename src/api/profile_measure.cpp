#include "api/profile_measure.h"

#include <cxxabi.h>

#include <algorithm>
#include <exception>

#include "autosample/auto_sampler.h"
#include "base/cpu_info.h"
#include "profile/noise_profile.h"
#include "profile/noise_sample.h"

namespace {

// The profile's origin for one measured on the image being processed.
constexpr int kOriginMeasured = 3;

}  // namespace

int dnDefaultMeasureThreads()
{
    return std::clamp(JCPUInfo::numProcessors, 1, kMaxMeasureThreads);
}

void dnMeasureProfile(JImageAdapter* image, JNoiseProfile& profile, bool relaxed, JStatus* status, int threads)
{
    try {
        JAutoSampler sampler;
        sampler.setThreads(std::clamp(threads, 1, kMaxMeasureThreads));
        sampler.sample(image, relaxed, status);
        profile.reset();
        for (int i = 0; i < sampler.sampleCount(); i++) {
            JAutoSampleRec* rec = sampler.getSample(i);
            if (!rec->valid)
                continue;
            JNoiseSample sample;
            sample.analyze(image, rec->rect);
            profile.addSample(sample);
        }
        profile.buildProfile();
        profile.setOrigin(kOriginMeasured);
    } catch (const std::exception&) {
        throw;
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        throw std::exception();
    }
}
