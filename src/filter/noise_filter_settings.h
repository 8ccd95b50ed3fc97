// JNoiseFilterSettings: what the user chose for one denoise run, per channel
// (Y, Cr, Cb, indexed by JImageLib::YCrCbIndex): strength, smoothness and
// contrast; unsharp-mask sharpening; a low-frequency flag; and colour-selective
// strength factors (one JNoiseFilterSample per palette colour to start with).
//
// Before a run, buildNoiseMaps turns a profile's dense noise maps into the
// noise maps the shrink nodes read, per channel and level:
//   noise = (float)(((double)smoothness * 1.5) * (double)(v * v) + 1e-08)
// with v the profile's cell value (v * v in single precision), and builds one
// strength map per channel holding 1 - clamp(factor * strength, 0, 1) over
// colour.
//
// Setters do not clamp. The settings travel in a versioned stream (see
// operator<<): written as version 4664, read from 4663, 4664, 4761 and 4864.
#pragma once

#include <cstdint>
#include <vector>

#include "base/qtless/qstring.h"
#include "base/rect.h"
#include "color/lab_coord.h"
#include "filter/noise_filter_sample.h"
#include "profile/map_3d.h"

namespace qtless {
class QDataStream;
}
class JNoiseProfile;

class JNoiseFilterSettings {
public:
    static constexpr int kLevels = 5;

    // One filter sample per palette colour (rows in order, columns within a
    // row), every factor 1.0, and the default values: the middles of the
    // strength, smoothness and contrast ranges, USM amount 1.6 and radius 1.2
    // (below the middles on purpose), suppress halos on, low frequency off,
    // parameter 3.
    JNoiseFilterSettings();

    float getStrength(int ch) const { return strength_[ch]; }
    void setStrength(int ch, float v) { strength_[ch] = v; }
    float getSmoothness(int ch) const { return smoothness_[ch]; }
    void setSmoothness(int ch, float v) { smoothness_[ch] = v; }
    float getContrast(int ch) const { return contrast_[ch]; }
    void setContrast(int ch, float v) { contrast_[ch] = v; }
    float getUSMAmount() const { return usmAmount_; }
    void setUSMAmount(float v) { usmAmount_ = v; }
    float getUSMRadius() const { return usmRadius_; }
    void setUSMRadius(float v) { usmRadius_ = v; }
    bool getUSMSuppressHalos() const { return usmSuppressHalos_ != 0; }
    void setUSMSuppressHalos(bool v) { usmSuppressHalos_ = v ? 1 : 0; }
    bool getLowFreqFlag() const { return lowFreq_ != 0; }
    void setLowFreqFlag(bool v) { lowFreq_ = v ? 1 : 0; }
    // A serialised parameter, 3 by default; its consumer lies outside the
    // settings.
    int getParameter() const { return parameter_; }
    void setParameter(int v) { parameter_ = v; }

    // (minimum, middle, maximum); the middle is the centre of the host's scale.
    static void getStrengthRange(int ch, float& min, float& middle, float& max);
    static void getSmoothnessRange(int ch, float& min, float& middle, float& max);
    static void getContrastRange(int ch, float& min, float& middle, float& max);
    static void getUSMAmountRange(float& min, float& middle, float& max);
    static void getUSMRadiusRange(float& min, float& middle, float& max);

    // Copies every setting and the filter samples, not the maps.
    void assignSettings(const JNoiseFilterSettings& o);

    int sampleCount() const { return static_cast<int>(samples_.size()); }
    // No bounds check.
    JNoiseFilterSample& getSample(int i) { return samples_[i]; }
    const JNoiseFilterSample& getSample(int i) const { return samples_[i]; }
    void addSample(const JNoiseFilterSample& s) { samples_.push_back(s); }
    void clearSamples() { samples_.clear(); }

    // The sample whose colour is nearest to lab by deltaE; the first of equally
    // near samples wins; null without samples.
    JNoiseFilterSample* nearestSample(const JLabCoord& lab);
    // Appends lab to the nearest sample's colour list unless an equal colour
    // is there already.
    void addColor(const JLabCoord& lab);

    J3DMap& getNoiseMap(int ch, int level) { return noiseMaps_[ch][level]; }
    J3DMap& getStrengthMap(int ch) { return strengthMaps_[ch]; }

    // True when every sample's factor of ch is within 0.001 of 1.0 (so also
    // without samples).
    bool strengthMapIsNoOp(int ch) const;

    // Builds the strength maps from the samples and the noise maps from the
    // profile's dense maps.
    void buildNoiseMaps(JNoiseProfile& profile);

    // Read or write the settings stream on the named file; the file is opened
    // read-write without truncation.
    void load(const qtless::QString& path);
    void save(const qtless::QString& path) const;

    friend qtless::QDataStream& operator<<(qtless::QDataStream& s, const JNoiseFilterSettings& f);
    friend qtless::QDataStream& operator>>(qtless::QDataStream& s, JNoiseFilterSettings& f);

private:
    float clampedStrength(const JNoiseFilterSample& s, int ch) const;

    JRect<int> rect_;
    float strength_[3];
    float smoothness_[3];
    float contrast_[3];
    float usmAmount_;
    float usmRadius_;
    int32_t usmSuppressHalos_;
    int32_t reserved_;
    int32_t lowFreq_;
    int32_t parameter_;
    std::vector<JNoiseFilterSample> samples_;
    J3DMap strengthMaps_[3];
    J3DMap noiseMaps_[3][kLevels];
};

// Settings stream, big-endian 32-bit words: version (4664), 20, then per
// channel strength, smoothness, contrast; USM amount, radius; suppress halos
// (not in version 4663); low-frequency flag; parameter; sample count; per
// sample L, a, b, then per channel factor and second factor, then the colour
// count and L, a, b of each colour. Reading any other version than 4663, 4664,
// 4761 or 4864 throws JEx("Invalid filter settings file") before any field
// changes.
qtless::QDataStream& operator<<(qtless::QDataStream& s, const JNoiseFilterSettings& f);
qtless::QDataStream& operator>>(qtless::QDataStream& s, JNoiseFilterSettings& f);
