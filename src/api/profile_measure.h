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
// threads: how many threads scan the image's tiles, the calling thread among
// them (0 and 1: the calling thread alone), at most kMaxMeasureThreads; the
// profile is the same bit for bit whatever the count. With more than one,
// image->getScanline is called from those threads, one call at a time.
// An exception of unknown type is replaced by a plain std::exception; JEx and
// other standard exceptions pass unchanged.
void dnMeasureProfile(JImageAdapter* image, JNoiseProfile& profile, bool relaxed, JStatus* status, int threads);

// Beyond four threads the tile scan gains little: the offers to the index and
// the scanline reads run one at a time, and each thread holds a tile.
constexpr int kMaxMeasureThreads = 4;

// The thread count of a measurement the host gave no count for: one per
// processor, at most kMaxMeasureThreads.
int dnDefaultMeasureThreads();
