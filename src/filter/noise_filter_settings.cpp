#include "filter/noise_filter_settings.h"

#include "base/ex.h"
#include "base/qtless/qdatastream.h"
#include "base/qtless/qfile.h"
#include "base/qtless/qobject.h"
#include "color/color_palette.h"
#include "color/image_lib.h"
#include "profile/noise_profile.h"

namespace {

constexpr unsigned int kWrittenVersion = 4664;
constexpr unsigned int kVersionWithoutHalos = 4663;

bool acceptedVersion(unsigned int v)
{
    return v == 4663 || v == 4664 || v == 4761 || v == 4864;
}

}  // namespace

JNoiseFilterSettings::JNoiseFilterSettings()
{
    JColorPalette* palette = JColorPalette::getPalette();
    for (int row = 0; row < palette->nrows(); row++)
        for (int col = 0; col < palette->ncols(); col++)
            samples_.push_back(JNoiseFilterSample(palette->getColor(row, col)));

    float min, max;
    for (int ch = 0; ch < 3; ch++) {
        getStrengthRange(ch, min, strength_[ch], max);
        getSmoothnessRange(ch, min, smoothness_[ch], max);
        getContrastRange(ch, min, contrast_[ch], max);
    }
    usmAmount_ = 1.6f;
    usmRadius_ = 1.2f;
    usmSuppressHalos_ = 1;
    reserved_ = 0;
    lowFreq_ = 0;
    parameter_ = 3;
    for (JNoiseFilterSample& s : samples_)
        s.colors.clear();
}

void JNoiseFilterSettings::getStrengthRange(int ch, float& min, float& middle, float& max)
{
    min = 0.0f;
    middle = ch == JImageLib::Y ? 0.55f : 0.75f;
    max = 1.0f;
}

void JNoiseFilterSettings::getSmoothnessRange(int, float& min, float& middle, float& max)
{
    min = 0.0f;
    middle = 3.0f;
    max = 8.0f;
}

void JNoiseFilterSettings::getContrastRange(int, float& min, float& middle, float& max)
{
    min = 0.5f;
    middle = 1.0f;
    max = 1.5f;
}

void JNoiseFilterSettings::getUSMAmountRange(float& min, float& middle, float& max)
{
    min = 1.0f;
    max = 5.0f;
    middle = (min + max) / 2.0f;
}

void JNoiseFilterSettings::getUSMRadiusRange(float& min, float& middle, float& max)
{
    min = 0.4f;
    max = 3.0f;
    middle = (min + max) / 2.0f;
}

void JNoiseFilterSettings::assignSettings(const JNoiseFilterSettings& o)
{
    for (int ch = 0; ch < 3; ch++) {
        strength_[ch] = o.strength_[ch];
        smoothness_[ch] = o.smoothness_[ch];
        contrast_[ch] = o.contrast_[ch];
    }
    usmAmount_ = o.usmAmount_;
    usmRadius_ = o.usmRadius_;
    usmSuppressHalos_ = o.usmSuppressHalos_;
    reserved_ = o.reserved_;
    lowFreq_ = o.lowFreq_;
    parameter_ = o.parameter_;
    samples_ = o.samples_;
}

JNoiseFilterSample* JNoiseFilterSettings::nearestSample(const JLabCoord& lab)
{
    JNoiseFilterSample* best = nullptr;
    float bestDist = 1e38f;
    for (JNoiseFilterSample& s : samples_) {
        float d = s.color.deltaE(lab);
        if (d < bestDist) {
            bestDist = d;
            best = &s;
        }
    }
    return best;
}

void JNoiseFilterSettings::addColor(const JLabCoord& lab)
{
    JNoiseFilterSample* s = nearestSample(lab);
    if (!s)
        return;
    for (const JLabCoord& c : s->colors)
        if (c == lab)
            return;
    s->colors.push_back(lab);
}

bool JNoiseFilterSettings::strengthMapIsNoOp(int ch) const
{
    for (const JNoiseFilterSample& s : samples_) {
        float d = s.factor[ch] - 1.0f;
        if (d > 0.001f || d < -0.001f)
            return false;
    }
    return true;
}

float JNoiseFilterSettings::clampedStrength(const JNoiseFilterSample& s, int ch) const
{
    float t = s.factor[ch] * strength_[ch];
    if (t < 0.0f)
        t = 0.0f;
    if (t > 1.0f)
        t = 1.0f;
    return t;
}

void JNoiseFilterSettings::buildNoiseMaps(JNoiseProfile& profile)
{
    for (int ch = 0; ch < 3; ch++) {
        J3DMap& map = strengthMaps_[ch];
        map.beginSampling();
        float y, cr, cb;
        for (const JNoiseFilterSample& s : samples_) {
            float t = clampedStrength(s, ch);
            for (const JLabCoord& c : s.colors) {
                c.toYCrCb(y, cr, cb);
                map.addSample(y, cr, cb, 1.0f - t);
            }
            if (!s.colors.empty()) {
                s.color.toYCrCb(y, cr, cb);
                map.addSample(y, cr, cb, 1.0f - t);
            }
        }
        // Every sample colour that no entry has covered yet gets its own
        // value; the check runs per sample, so colours added earlier in this
        // pass count.
        for (const JNoiseFilterSample& s : samples_) {
            float t = clampedStrength(s, ch);
            s.color.toYCrCb(y, cr, cb);
            if (!map.hasSample(y, cr, cb))
                map.addSample(y, cr, cb, 1.0f - t);
        }
        map.endSampling();
    }

    for (int ch = 0; ch < 3; ch++) {
        for (int level = 0; level < kLevels; level++) {
            J3DMap& dense = profile.getDenseMap(static_cast<JImageLib::YCrCbIndex>(ch), level);
            J3DMap& noise = noiseMaps_[ch][level];
            for (int i = 0; i < dense.cellCount(); i++) {
                float v = dense.getCellValue(i);
                float v2 = v * v;
                double n = (static_cast<double>(smoothness_[ch]) * 1.5) * static_cast<double>(v2) + 1e-08;
                noise.setCellValue(i, static_cast<float>(n));
            }
        }
    }
}

void JNoiseFilterSettings::load(const qtless::QString& path)
{
    qtless::QFile file(path);
    qtless::QDataStream s(&file);
    s >> *this;
}

void JNoiseFilterSettings::save(const qtless::QString& path) const
{
    qtless::QFile file(path);
    qtless::QDataStream s(&file);
    s << *this;
}

qtless::QDataStream& operator<<(qtless::QDataStream& s, const JNoiseFilterSettings& f)
{
    s << kWrittenVersion << 20u;
    for (int ch = 0; ch < 3; ch++)
        s << f.strength_[ch] << f.smoothness_[ch] << f.contrast_[ch];
    s << f.usmAmount_ << f.usmRadius_;
    s << static_cast<unsigned int>(f.usmSuppressHalos_ ? 1 : 0);
    s << static_cast<unsigned int>(f.lowFreq_ ? 1 : 0);
    s << static_cast<int>(f.parameter_);
    s << static_cast<unsigned int>(f.samples_.size());
    for (const JNoiseFilterSample& fs : f.samples_) {
        s << fs.color.L << fs.color.a << fs.color.b;
        for (int ch = 0; ch < 3; ch++)
            s << fs.factor[ch] << fs.secondFactor[ch];
        s << static_cast<int>(fs.colors.size());
        for (const JLabCoord& c : fs.colors)
            s << c.L << c.a << c.b;
    }
    return s;
}

qtless::QDataStream& operator>>(qtless::QDataStream& s, JNoiseFilterSettings& f)
{
    unsigned int version;
    s >> version;
    if (!acceptedVersion(version))
        throw JEx(qtless::QObject::tr("Invalid filter settings file"));
    unsigned int ignored;
    s >> ignored;
    for (int ch = 0; ch < 3; ch++)
        s >> f.strength_[ch] >> f.smoothness_[ch] >> f.contrast_[ch];
    s >> f.usmAmount_ >> f.usmRadius_;
    unsigned int flag;
    if (version != kVersionWithoutHalos) {
        s >> flag;
        f.usmSuppressHalos_ = flag != 0 ? 1 : 0;
    }
    s >> flag;
    f.lowFreq_ = flag != 0 ? 1 : 0;
    int parameter;
    s >> parameter;
    f.parameter_ = parameter;
    // Counts are read as signed; a negative count reads nothing and leaves
    // an empty vector. The vector ends with as many entries as the count says; entries past
    // the old end are default samples, appended as they are read so that a
    // corrupt count cannot reserve more than the stream holds.
    int count;
    s >> count;
    size_t n = count > 0 ? static_cast<size_t>(count) : 0;
    if (f.samples_.size() > n)
        f.samples_.resize(n);
    for (size_t i = 0; i < n; i++) {
        if (i == f.samples_.size())
            f.samples_.push_back(JNoiseFilterSample());
        JNoiseFilterSample& fs = f.samples_[i];
        s >> fs.color.L >> fs.color.a >> fs.color.b;
        for (int ch = 0; ch < 3; ch++)
            s >> fs.factor[ch] >> fs.secondFactor[ch];
        int colorCount;
        s >> colorCount;
        fs.colors.clear();
        for (int k = 0; k < colorCount; k++) {
            JLabCoord c;
            s >> c.L >> c.a >> c.b;
            fs.colors.push_back(c);
        }
    }
    return s;
}
