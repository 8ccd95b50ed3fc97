#include "api/profile_measure.h"

#include <cxxabi.h>

#include <exception>

#include "autosample/auto_sampler.h"
#include "profile/noise_profile.h"
#include "profile/noise_sample.h"

namespace {

// The profile's origin for one measured on the image being processed.
constexpr int kOriginMeasured = 3;

}  // namespace

void dnMeasureProfile(JImageAdapter* image, JNoiseProfile& profile, bool relaxed, JStatus* status)
{
    try {
        JAutoSampler sampler;
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
