// Automatic settings: the eight settings and two switches chosen per image
// from the noise it carries, without a slider being touched.
//
// Two measurements meet here. The profile says how much noise the engine
// will take out at each colour (its finest-level noise per channel); the
// image itself says, through the finest diagonal detail of its quietest
// blocks, how much noise is really there. Their ratio tells how far the profile's
// measurement is off (flat patches that are not quite flat, or too few of
// them), the image's own level tells how strongly to filter, and the
// detail of its typical blocks against that level tells how much fine
// texture there is to keep. These are mapped onto the host scales by a
// small table calibrated on the project's noise corpus (bench/corpus): see
// kAutoModel in auto_settings.cpp. The
// clean image is never consulted, and the choice depends on nothing but the
// image's pixels and the profile (not on threads or timing).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <murmex/murmex.h>

namespace murmex_host {

// An image as the engine reads it: the scanline callback and its context.
struct ScanlineImage {
    void* context = nullptr;
    DnGetScanlineCallback get = nullptr;
    int width = 0;
    int height = 0;
};

// What the chooser measured, in the engine's YCrCb units (0..1).
struct NoiseEstimate {
    float image[3] = {0, 0, 0};    // Y, Cr, Cb: noise seen in the image (robust, finest scale)
    float profile[3] = {0, 0, 0};  // Y, Cr, Cb: median finest-level noise of the profile's samples
    int samples = 0;               // samples in the profile
    float detail[3] = {0, 0, 0};   // Y, Cr, Cb: median finest-scale detail of the image's blocks
};

// The finest-scale noise of the image per YCrCb channel, from the quietest
// 8x8 blocks of its 2x2 diagonal details (see auto_settings.cpp), on bands
// of rows spread evenly over the height. Reads rows through the callback on
// the calling thread only.
// detail, when given, receives the median of the blocks' values (noise and
// texture together).
void estimateImageNoise(const ScanlineImage& image, float out[3], float detail[3] = nullptr);

// The median finest-level noise per channel over samples (0 without any).
void profileNoise(const std::vector<DnNoiseSample>& samples, float out[3]);

// The settings for an estimate: writes the settings block of params
// (lumStrength .. lowFrequency); the other fields are left as they are.
void chooseSettings(const NoiseEstimate& noise, DnFilterParams& params);

// Both measurements and the choice: the image through its callback, the
// profile as a serialised block (as from DnBuildProfile2 or DnReadProfile).
// Throws HostError when the profile block cannot be read.
NoiseEstimate chooseAutoSettings(const ScanlineImage& image, const std::vector<uint8_t>& profile,
                                 DnFilterParams& params);

// The same for an image of packed 16-bit RGBX pixels in memory.
NoiseEstimate chooseAutoSettings(const uint16_t* rgbx, int width, int height, const std::vector<uint8_t>& profile,
                                 DnFilterParams& params);

// "noise Y 0.0123 Cr 0.0045 Cb 0.0051 in the image, Y 0.0150 ... in the
// profile (3 samples); detail Y 0.0310 ..." for the verbose output.
std::string describeNoise(const NoiseEstimate& noise);

}  // namespace murmex_host
