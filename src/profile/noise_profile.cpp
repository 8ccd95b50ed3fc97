#include "profile/noise_profile.h"

#include "base/path_info.h"
#include "color/color_palette.h"
#include "color/lab_coord.h"
#include "filter/noise_filter_settings.h"

float JNoiseProfile::profileDistance(JSparseMapRecord& a, JSparseMapRecord& b)
{
    JLabCoord p(2.5f * a.x, a.y, a.z);
    JLabCoord q(2.5f * b.x, b.y, b.z);
    return p.deltaESqr(q);
}

JNoiseProfile::JNoiseProfile() : origin_(2), settings_(new JNoiseFilterSettings()), highestLevel_(0)
{
    JColorPalette* palette = JColorPalette::getPalette();
    for (int c = 0; c < kChannels; c++) {
        for (int l = 0; l < kLevels; l++) {
            JSparseMap* maps[2] = {&ratio_[c][l], &level_[c][l]};
            for (JSparseMap* m : maps) {
                m->setDistanceFunc(profileDistance);
                // Column-major: record i * nrows + j is column i, row j.
                for (int i = 0; i < palette->ncols(); i++) {
                    for (int j = 0; j < palette->nrows(); j++) {
                        JLabCoord col = palette->getColor(j, i);
                        m->addRecord(col.L, col.a, col.b);
                    }
                }
            }
        }
    }
}

JNoiseProfile::JNoiseProfile(const JNoiseProfile& o) : JNoiseProfile()
{
    *this = o;
}

JNoiseProfile::~JNoiseProfile()
{
    delete settings_;
}

JNoiseProfile& JNoiseProfile::operator=(const JNoiseProfile& o)
{
    if (this == &o)
        return *this;
    reset();
    header_ = o.header_;
    settings_->assignSettings(*o.settings_);
    for (const JNoiseSample& s : o.samples_)
        addSample(s);
    buildProfile();
    setPath(o.directory_ + o.name_);
    origin_ = o.origin_;
    return *this;
}

void JNoiseProfile::reset()
{
    samples_.clear();
    for (int c = 0; c < kChannels; c++) {
        for (int l = 0; l < kLevels; l++) {
            ratio_[c][l].clear();
            level_[c][l].clear();
            denseRatio_[c][l].clear();
            dense_[c][l].clear();
        }
    }
}

void JNoiseProfile::addSample(const JNoiseSample& s)
{
    samples_.push_back(s);
}

void JNoiseProfile::setPath(const qtless::QString& path)
{
    PathInfo info;
    directory_ = qtless::QString(info.getDirectory(path));
    name_ = qtless::QString(info.getName(path));
}

qtless::QString JNoiseProfile::getFileName() const
{
    PathInfo info;
    return qtless::QString(info.getTitle(name_.utf8()));
}

void JNoiseProfile::buildProfile()
{
    // 1. Levels that no sample measured (luminance decides for all channels)
    // are derived from the level below: half of it wherever it is not 0.0.
    // The samples change in place, and an unmeasured -1.0 below gives -0.5,
    // as intended.
    bool present[kLevels] = {true, false, false, false, false};
    highestLevel_ = 0;
    for (int l = 1; l < kLevels; l++) {
        for (const JNoiseSample& s : samples_) {
            if (s.noise[0][l] > 0.0f) {
                present[l] = true;
                highestLevel_ = l;
                break;
            }
        }
    }
    for (int c = 0; c < kChannels; c++) {
        for (int l = 1; l < kLevels; l++) {
            if (present[l])
                continue;
            for (JNoiseSample& s : samples_)
                if (s.noise[c][l - 1] != 0.0f)
                    s.noise[c][l] = 0.5f * s.noise[c][l - 1];
        }
    }

    // 2. Relative maps: the mean ratio of each level to level 0.
    for (int c = 0; c < kChannels; c++) {
        for (int l = 0; l < kLevels; l++) {
            JSparseMap& m = ratio_[c][l];
            m.beginSampling();
            for (const JNoiseSample& s : samples_)
                if (s.noise[c][0] > 0.0f && s.noise[c][l] >= 0.0f)
                    m.addSampleMean(s.lab.L, s.lab.a, s.lab.b, s.noise[c][l] / s.noise[c][0]);
            m.endSampling();
        }
    }

    // 3. Absolute base maps: the largest level-0 noise nearest each colour.
    for (int c = 0; c < kChannels; c++) {
        JSparseMap& m = level_[c][0];
        m.beginSampling();
        for (const JNoiseSample& s : samples_)
            if (s.noise[c][0] >= 0.0f)
                m.addSampleMax(s.lab.L, s.lab.a, s.lab.b, s.noise[c][0]);
        m.endSampling();
    }

    // 4. Absolute upper levels, record by record.
    for (int c = 0; c < kChannels; c++) {
        JSparseMap& base = level_[c][0];
        for (int l = 1; l < kLevels; l++) {
            JSparseMap& m = level_[c][l];
            JSparseMap& ratio = ratio_[c][l];
            m.clear();
            for (int k = 0; k < m.recordCount(); k++) {
                m.getRecord(k).value = ratio.getRecord(k).value * base.getRecord(k).value;
                if (ratio.getRecord(k).count > 0)
                    m.getRecord(k).count = 1;
            }
        }
    }

    // 5. and 6. Every record, sampled or interpolated, spread over the cube.
    auto spread = [](JSparseMap& from, J3DMap& to) {
        to.beginSampling();
        float y, cr, cb;
        for (int k = 0; k < from.recordCount(); k++) {
            JSparseMapRecord& r = from.getRecord(k);
            JLabCoord(r.x, r.y, r.z).toYCrCb(y, cr, cb);
            to.addSample(y, cr, cb, r.value);
        }
        to.endSampling();
    };
    for (int c = 0; c < kChannels; c++)
        for (int l = 0; l < kLevels; l++)
            spread(ratio_[c][l], denseRatio_[c][l]);
    for (int c = 0; c < kChannels; c++)
        spread(level_[c][0], dense_[c][0]);

    // 7. Upper dense levels: the base noise times the level's ratio.
    for (int c = 0; c < kChannels; c++) {
        for (int l = 1; l < kLevels; l++) {
            J3DMap& m = dense_[c][l];
            m.clear();
            for (int i = 0; i < m.cellCount(); i++)
                m.setCellValue(i, denseRatio_[c][l].getCellValue(i) * dense_[c][0].getCellValue(i));
        }
    }
}
