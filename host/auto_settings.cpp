#include "host/auto_settings.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "host/engine_output.h"
#include "host/host_error.h"
#include "host/host_settings.h"

namespace murmex_host {

namespace {

// The image's noise is measured in blocks of kBlock x kBlock pixels: the
// root mean square of the block's 2x2 diagonal details (a - b - c + d) / 2,
// 16 per block and channel. Texture and edges only add to a block's value,
// so the quietest blocks tell the noise: the value at kPercentile of all
// blocks, divided by where that percentile falls for white noise (the
// 1% point of a chi distribution with 16 degrees of freedom over 4,
// sqrt(5.812 / 16)), so that white noise of deviation s reads s. Blocks
// with half or more of their 192 samples at 0 or full scale (blown
// highlights, black borders) are left out, since clipping flattens noise;
// fewer are accepted, because the noise of dark areas often reaches 0.
constexpr int kBlock = 8;
constexpr double kDetailsPerBlock = 16.0;
constexpr double kPercentile = 0.01;
constexpr double kPercentileOfWhiteNoise = 0.6027;
constexpr int kMaxClipped = 96;
// Bands of kBlock rows read at most, spread evenly over the height: 128 of
// a 12-MP photo's 354.
constexpr int kMaxBands = 128;

// The engine's RGB to YCrCb rows without the chroma offsets (differences
// only are used here).
constexpr float kToYCrCb[3][3] = {
    {0.2989f, 0.5866f, 0.1145f},
    {0.5f, -0.4183f, -0.0817f},
    {-0.1687f, -0.3312f, 0.5f},
};


// Profile noise below this (in 0..1 units, about 1/15 of a 16-bit step) is
// no noise: the engine then has nothing to subtract, and the chooser keeps
// the middle of the scales.
constexpr float kNoNoise = 1e-6f;

// The calibrated mapping. Features, per channel group (luminance: Y;
// chroma: the mean of Cr and Cb):
//   level   = log2(256 * image noise)          (0 at 1/256 of full scale)
//   ratio   = log2(image noise / profile noise) (0 when the profile is right)
//   texture = log2(median block detail / image noise): how much of the
//             image's fine detail is signal (0 for a flat image)
// each clamped to its range, and a setting on its host scale is
//   v = base + perLevel * level + perRatio * ratio + perTexture * texture
//   value = v, or 2^v for the smoothnesses, clamped to the scale.
// The smoothnesses scale the profile's noise energy, so a profile that is
// off by a factor k in noise wants a smoothness 1/k^2 as large: their
// logarithm is what varies linearly with the ratio.
// The coefficients come from bench/corpus/calibrate.py: a least-squares fit
// to the per-image grid-search best settings of the calibration images,
// refined by a search for the best mean PSNR, first on the calibration
// images alone and then on the whole corpus (--include-held-out);
// bench/README.md gives the figures. In words: luminance strength grows
// with the noise and falls with texture (on finely detailed photos
// filtering costs more detail than it removes noise); smoothness, which
// scales the profile's noise, follows half the ratio: the image's own
// reading is itself biased (low where the noise grows in the shadows, since
// the quietest blocks are then the bright ones; high where fine texture
// leaves no quiet block), so it only pulls the profile part of the way;
// chroma is filtered at every level, harder as the noise grows; sharpening
// never paid on the corpus and stays off.
struct ModelRow {
    const char* name;  // a row of DnHostScales
    bool chroma;       // features of the chroma channels, else luminance
    bool exponential;  // the formula gives log2 of the value
    float base, perLevel, perRatio, perTexture;
};

constexpr float kLevelRange[2] = {-4.0f, 6.0f};
constexpr float kRatioRange[2] = {-3.0f, 2.0f};
constexpr float kTextureRange[2] = {0.0f, 6.0f};

constexpr ModelRow kAutoModel[] = {
    {"lum-strength", false, false, 14.96f, 2.54f, 2.42f, -8.00f},
    {"lum-smoothness", false, true, 1.80f, 0.00f, 0.50f, 0.00f},
    {"lum-contrast", false, false, 10.32f, 0.02f, -0.07f, -0.25f},
    {"chroma-strength", true, false, 11.42f, 2.30f, -1.79f, -5.19f},
    {"chroma-smoothness", true, true, 2.80f, 0.50f, 1.50f, -1.50f},
    {"chroma-contrast", true, false, 10.04f, 0.05f, -0.88f, -1.05f},
    {"sharpen-amount", false, false, 0.0f, 0.0f, 0.0f, 0.0f},
    {"sharpen-radius", false, false, 1.7f, 0.0f, 0.0f, 0.0f},
};
// The coarsest level is filtered as well from this luminance level up.
constexpr float kLowFrequencyFromLevel = 1.0f;

float median(std::vector<float>& v)
{
    if (v.empty())
        return 0.0f;
    const size_t mid = v.size() / 2;
    std::nth_element(v.begin(), v.begin() + static_cast<std::ptrdiff_t>(mid), v.end());
    return v[mid];
}

float clampTo(float v, const float range[2])
{
    return std::min(std::max(v, range[0]), range[1]);
}

struct Features {
    float level, ratio, texture;
};

Features featuresOf(float image, float profile, float detail)
{
    const float level = std::log2(std::max(image, 1e-7f) * 256.0f);
    const float ratio = std::log2(std::max(image, 1e-7f) / std::max(profile, kNoNoise));
    const float texture = std::log2(std::max(detail, 1e-7f) / std::max(image, 1e-7f));
    return {clampTo(level, kLevelRange), clampTo(ratio, kRatioRange), clampTo(texture, kTextureRange)};
}

struct RgbxSource {
    const uint16_t* rgbx;
    int width;
};

void getRgbxScanline(void* context, int y, int xStart, int xEnd, unsigned short* pixels)
{
    const auto* src = static_cast<const RgbxSource*>(context);
    const size_t at = (static_cast<size_t>(y) * static_cast<size_t>(src->width) + static_cast<size_t>(xStart)) * 4;
    std::memcpy(pixels, src->rgbx + at, static_cast<size_t>(xEnd - xStart + 1) * 4 * sizeof(uint16_t));
}

int collectSample(void* context, int count, int index, const DnNoiseSample* sample)
{
    auto* samples = static_cast<std::vector<DnNoiseSample>*>(context);
    if (samples->size() != static_cast<size_t>(count))
        samples->resize(static_cast<size_t>(count));
    if (index >= 0 && index < count)
        (*samples)[static_cast<size_t>(index)] = *sample;
    return 0;
}

}  // namespace

void estimateImageNoise(const ScanlineImage& image, float out[3], float detail[3])
{
    std::fill(out, out + 3, 0.0f);
    if (detail)
        std::fill(detail, detail + 3, 0.0f);
    const int bands = image.height / kBlock;
    const int blocks = image.width / kBlock;
    if (bands < 1 || blocks < 1 || !image.get)
        return;
    const int used = std::min(bands, kMaxBands);
    std::vector<unsigned short> rows(static_cast<size_t>(image.width) * 4 * kBlock);
    std::vector<float> rms[3];
    for (auto& r : rms)
        r.reserve(static_cast<size_t>(used) * static_cast<size_t>(blocks));
    for (int i = 0; i < used; ++i) {
        // Bands spread evenly, the same ones for the same image size.
        const int band = static_cast<int>((static_cast<int64_t>(i) * bands) / used);
        for (int k = 0; k < kBlock; ++k)
            image.get(image.context, band * kBlock + k, 0, image.width - 1, &rows[static_cast<size_t>(k) * image.width * 4]);
        for (int b = 0; b < blocks; ++b) {
            double sum[3] = {0, 0, 0};
            int clipped = 0;
            for (int py = 0; py < kBlock; py += 2) {
                const unsigned short* top = &rows[(static_cast<size_t>(py) * image.width + static_cast<size_t>(b) * kBlock) * 4];
                const unsigned short* bottom = top + static_cast<size_t>(image.width) * 4;
                for (int px = 0; px < kBlock; px += 2) {
                    const unsigned short* p[4] = {top + 4 * px, top + 4 * px + 4, bottom + 4 * px, bottom + 4 * px + 4};
                    float diag[3];
                    for (int c = 0; c < 3; ++c) {
                        for (const unsigned short* q : p)
                            clipped += q[c] == 0 || q[c] == 65535;
                        diag[c] = (static_cast<float>(p[0][c]) - static_cast<float>(p[1][c]) -
                                   static_cast<float>(p[2][c]) + static_cast<float>(p[3][c])) /
                                  (2.0f * 65535.0f);
                    }
                    for (int ch = 0; ch < 3; ++ch) {
                        const float d = kToYCrCb[ch][0] * diag[0] + kToYCrCb[ch][1] * diag[1] + kToYCrCb[ch][2] * diag[2];
                        sum[ch] += static_cast<double>(d) * d;
                    }
                }
            }
            if (clipped >= kMaxClipped)
                continue;
            for (int ch = 0; ch < 3; ++ch)
                rms[ch].push_back(static_cast<float>(std::sqrt(sum[ch] / kDetailsPerBlock)));
        }
    }
    for (int ch = 0; ch < 3; ++ch) {
        if (rms[ch].empty())
            continue;
        const size_t at = static_cast<size_t>(kPercentile * static_cast<double>(rms[ch].size()));
        std::nth_element(rms[ch].begin(), rms[ch].begin() + static_cast<std::ptrdiff_t>(at), rms[ch].end());
        out[ch] = static_cast<float>(rms[ch][at] / kPercentileOfWhiteNoise);
        if (detail)
            detail[ch] = median(rms[ch]);
    }
}

void profileNoise(const std::vector<DnNoiseSample>& samples, float out[3])
{
    for (int ch = 0; ch < 3; ++ch) {
        std::vector<float> values;
        for (const DnNoiseSample& s : samples) {
            const float v = ch == 0 ? s.noiseY[0] : ch == 1 ? s.noiseCr[0] : s.noiseCb[0];
            if (v >= 0.0f)
                values.push_back(v);
        }
        out[ch] = median(values);
    }
}

void chooseSettings(const NoiseEstimate& noise, DnFilterParams& params)
{
    setDefaultSettings(params);
    const float profileChroma = 0.5f * (noise.profile[1] + noise.profile[2]);
    if (noise.profile[0] < kNoNoise && profileChroma < kNoNoise)
        return;
    const Features lum = featuresOf(noise.image[0], noise.profile[0], noise.detail[0]);
    const Features chroma =
        featuresOf(0.5f * (noise.image[1] + noise.image[2]), profileChroma, 0.5f * (noise.detail[1] + noise.detail[2]));
    for (const ModelRow& row : kAutoModel) {
        const int i = hostScaleRow(row.name);
        if (i < 0)
            continue;
        const Features& f = row.chroma ? chroma : lum;
        float v = row.base + row.perLevel * f.level + row.perRatio * f.ratio + row.perTexture * f.texture;
        if (row.exponential)
            v = std::exp2(v);
        const float range[2] = {DnHostScales[i].low, DnHostScales[i].high};
        *DnHostScaleField(&params, i) = clampTo(v, range);
    }
    params.lowFrequency = lum.level >= kLowFrequencyFromLevel ? 1 : 0;
}

NoiseEstimate chooseAutoSettings(const ScanlineImage& image, const std::vector<uint8_t>& profile,
                                 DnFilterParams& params)
{
    std::vector<DnNoiseSample> samples;
    if (!profile.empty()) {
        EngineResult r = callEngine([&] {
            return DnReadProfileSamples2(&samples, profile.data(), static_cast<int>(profile.size()), collectSample);
        });
        if (r.failed())
            throw HostError("cannot read the noise profile: " + r.message());
    }
    NoiseEstimate noise;
    noise.samples = static_cast<int>(samples.size());
    profileNoise(samples, noise.profile);
    estimateImageNoise(image, noise.image, noise.detail);
    chooseSettings(noise, params);
    return noise;
}

NoiseEstimate chooseAutoSettings(const uint16_t* rgbx, int width, int height, const std::vector<uint8_t>& profile,
                                 DnFilterParams& params)
{
    RgbxSource source{rgbx, width};
    return chooseAutoSettings(ScanlineImage{&source, getRgbxScanline, width, height}, profile, params);
}

std::string describeNoise(const NoiseEstimate& noise)
{
    char buf[260];
    std::snprintf(buf, sizeof buf,
                  "noise Y %.5f Cr %.5f Cb %.5f in the image, Y %.5f Cr %.5f Cb %.5f in the profile (%d samples); "
                  "detail Y %.5f Cr %.5f Cb %.5f",
                  noise.image[0], noise.image[1], noise.image[2], noise.profile[0], noise.profile[1], noise.profile[2],
                  noise.samples, noise.detail[0], noise.detail[1], noise.detail[2]);
    return buf;
}

}  // namespace murmex_host
