// Measuring a noise profile from an image, as the entry points do when the
// host asks for a profile (or for a denoise without one).
#pragma once

class JImageAdapter;
class JNoiseProfile;
class JStatus;

// Runs the auto sampler over image (relaxed: its flag), resets profile, then
// measures every accepted patch with JNoiseSample::analyze and adds it;
// finally builds the maps and marks the profile as measured on this image
// (origin 3). A cancelled search leaves no patch and so an empty profile.
// An exception of unknown type is replaced by a plain std::exception; JEx and
// other standard exceptions pass unchanged.
void dnMeasureProfile(JImageAdapter* image, JNoiseProfile& profile, bool relaxed, JStatus* status);
