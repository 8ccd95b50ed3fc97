#include "profile/noise_sample.h"

#include <algorithm>
#include <memory>

#include "base/image_region_adapter.h"
#include "base/qtless/qdatastream.h"
#include "color/image_lib.h"
#include "color/pixel_rect.h"
#include "denoise/raster/adapter_to_rgbx.h"
#include "denoise/raster/incr_raster.h"
#include "denoise/raster/mean_abs.h"
#include "denoise/raster/rgbx_to_ycrcb.h"
#include "denoise/raster/wavelet.h"

JNoiseSample::JNoiseSample() : flag(1), aux(0.0f), rect(0, 0, 0, 0), ycrcb{0.0f, 0.0f, 0.0f}, rgb{0.0f, 0.0f, 0.0f},
      lab(0.0f, 0.0f, 0.0f)
{
    for (int c = 0; c < kChannels; c++)
        for (int l = 0; l < kLevels; l++)
            noise[c][l] = -1.0f;
}

void JNoiseSample::analyze(JImageAdapter* image, JRect<int>& r)
{
    JPixelRect pixels(3);
    rect = r;
    pixels.loadLab(image, r);
    lab.L = pixels.mean(pixels.planes[0]);
    lab.a = pixels.mean(pixels.planes[1]);
    lab.b = pixels.mean(pixels.planes[2]);
    lab.toYCrCb(ycrcb[0], ycrcb[1], ycrcb[2]);
    lab.toRGB(rgb[0], rgb[1], rgb[2]);

    JImageRegionAdapter region(image, r);
    for (int c = 0; c < kChannels; c++)
        measureChannel(&region, c);
    flag = 1;
    aux = 0.0f;
}

void JNoiseSample::measureChannel(JImageAdapter* region, int c)
{
    const int w = region->width();
    const int h = region->height();

    // The graph's builder owns every node. Declared in build order, so they
    // are deleted in reverse: mean-abs nodes, wavelet nodes, colour nodes.
    auto rgbx = std::make_unique<JIncrRaster_AdapterToRGBX>(region, 0, w - 1);
    auto ycc = std::make_unique<JIncrRaster_RGBXToYCrCb>(rgbx.get(), static_cast<JImageLib::YCrCbIndex>(c));
    JIncrRaster* details[kLevels];
    JIncrRaster* smooth[kLevels];
    buildIncrWavelet(ycc.get(), kLevels, details, smooth);
    std::unique_ptr<JIncrRaster> detailNodes[kLevels];
    std::unique_ptr<JIncrRaster> smoothNodes[kLevels];
    for (int l = 0; l < kLevels; l++) {
        detailNodes[l].reset(details[l]);
        smoothNodes[l].reset(smooth[l]);
    }
    std::unique_ptr<JIncrRaster_MeanAbs> meanAbs[kLevels];
    for (int l = 0; l < kLevels; l++) {
        meanAbs[l] = std::make_unique<JIncrRaster_MeanAbs>(*details[l]);
        noise[c][l] = -1.0f;
    }

    noise[c][0] = meanAbs[0]->calcResult() / kMeanAbsDivisor;
    const int m = std::min(w, h);
    for (int l = 1; l < kLevels; l++)
        if (m > kLevelThreshold[l])
            noise[c][l] = meanAbs[l]->calcResult() / kMeanAbsDivisor;
    for (int l = 0; l < kLevels; l++)
        meanAbs[l].reset();
    for (int l = 0; l < kLevels; l++) {
        detailNodes[l].reset();
        smoothNodes[l].reset();
    }
}

qtless::QDataStream& operator<<(qtless::QDataStream& s, const JNoiseSample& n)
{
    s << n.lab.L << n.lab.a << n.lab.b;
    for (int c = 0; c < JNoiseSample::kChannels; c++)
        for (int l = 0; l < JNoiseSample::kLevels; l++)
            s << n.noise[c][l];
    return s;
}

qtless::QDataStream& operator>>(qtless::QDataStream& s, JNoiseSample& n)
{
    s >> n.lab.L >> n.lab.a >> n.lab.b;
    for (int c = 0; c < JNoiseSample::kChannels; c++)
        for (int l = 0; l < JNoiseSample::kLevels; l++)
            s >> n.noise[c][l];
    n.lab.toRGB(n.rgb[0], n.rgb[1], n.rgb[2]);
    n.lab.toYCrCb(n.ycrcb[0], n.ycrcb[1], n.ycrcb[2]);
    return s;
}
