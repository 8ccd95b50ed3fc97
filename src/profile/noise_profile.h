// JNoiseProfile: everything known about the noise of one camera setting: a
// descriptive header, the measured samples, the filter settings that belong
// to the profile, and the maps built from the samples, which give for every
// colour the expected noise of each YCrCb channel at each of five wavelet
// levels.
//
// Sparse maps hold one record per palette colour (record i*6 + j is the
// colour of column i, row j) under the profile distance, a squared L*a*b*
// distance in which lightness counts 2.5 times. buildProfile derives:
//   ratio[c][l]  mean of noise(c, l) / noise(c, 0) nearest each record
//   level[c][0]  largest noise(c, 0) nearest each record
//   level[c][l]  ratio[c][l] * level[c][0], record by record
//   denseRatio[c][l], dense[c][0]  the sparse records spread over the YCrCb cube
//   dense[c][l]  denseRatio[c][l] * dense[c][0], cell by cell (l = 1..4)
// The denoise engine reads dense[c][l] through getDenseMap.
#pragma once

#include <cstdint>
#include <vector>

#include "base/qtless/qstring.h"
#include "color/image_lib.h"
#include "profile/map_3d.h"
#include "profile/noise_sample.h"
#include "profile/profile_header.h"
#include "profile/sparse_map.h"

class JNoiseFilterSettings;

class JNoiseProfile {
public:
    static constexpr int kChannels = 3;
    static constexpr int kLevels = 5;

    // Default header, no samples, prepared sparse maps, cleared dense maps,
    // default settings, origin 2.
    JNoiseProfile();
    // Builds like assignment does.
    JNoiseProfile(const JNoiseProfile& o);
    ~JNoiseProfile();

    // Resets, copies the header and the settings (not their maps), adds every
    // sample of o, rebuilds the maps, takes o's path and copies the origin.
    JNoiseProfile& operator=(const JNoiseProfile& o);

    // Empties the samples, clears every sparse map (records kept) and every
    // dense map; header and settings are kept.
    void reset();

    void addSample(const JNoiseSample& s);
    int sampleCount() const { return static_cast<int>(samples_.size()); }
    // No bounds check.
    const JNoiseSample& getSample(int i) const { return samples_[i]; }

    // Rebuilds every map from the samples. Fills the levels that no sample
    // measured in place, from the level below (see the source).
    void buildProfile();

    J3DMap& getDenseMap(JImageLib::YCrCbIndex c, int level) { return dense_[c][level]; }
    JSparseMap& getRatioMap(int c, int level) { return ratio_[c][level]; }
    JSparseMap& getLevelMap(int c, int level) { return level_[c][level]; }

    JNoiseFilterSettings& settings() const { return *settings_; }

    const JProfileHeader& header() const { return header_; }
    JProfileHeader& header() { return header_; }
    void setHeader(const JProfileHeader& h) { header_ = h; }

    // Keeps the directory (with its trailing separator) and the file name of
    // path.
    void setPath(const qtless::QString& path);
    // The file name without its extension: the denoise step text shows it
    // with ".dnp" appended.
    qtless::QString getFileName() const;
    qtless::QString getDirectory() const { return directory_; }

    // How the profile came to be chosen: 2 after construction, 3 when it was
    // measured on the image being processed; the denoise driver names it by
    // this (0 automatic match, 1 previous profile, else user-selected).
    int getOrigin() const { return origin_; }
    void setOrigin(int origin) { origin_ = origin; }

    // The greatest level 1..4 at which some sample has a positive luminance
    // noise, after buildProfile; 0 if none.
    int highestLevel() const { return highestLevel_; }

    // The profile files: loading tries the dense version-1 layout first, then
    // the stream profile; saving writes the stream profile.
    void load(const qtless::QString& path);
    void load(const unsigned char* data, int length);
    void save(const qtless::QString& path);
    void save(unsigned char** data, int* length);

    // Squared L*a*b* distance with lightness weighted 2.5.
    static float profileDistance(JSparseMapRecord& a, JSparseMapRecord& b);

private:
    JProfileHeader header_;
    qtless::QString directory_;
    qtless::QString name_;
    int32_t origin_;
    std::vector<JNoiseSample> samples_;
    JSparseMap ratio_[kChannels][kLevels];
    JSparseMap level_[kChannels][kLevels];
    J3DMap denseRatio_[kChannels][kLevels];
    J3DMap dense_[kChannels][kLevels];
    JNoiseFilterSettings* settings_;
    int32_t highestLevel_;
};
