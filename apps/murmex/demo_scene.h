// The demo's test photograph: a synthetic scene with the things noise
// reduction must keep apart from noise (smooth gradients, hard edges, fine
// texture, flat areas, saturated colours) and a camera-like noise model.
#pragma once

#include <cstdint>

#include "image.h"

namespace murmex_app {

// The clean scene, 16-bit RGB (gamma-encoded values), any size from 16 x 16.
// Everything is laid out relative to the size, so a larger scene shows the
// same picture at a higher resolution.
Image renderDemoScene(int width, int height);

// Camera noise, reproducible from seed. The noise is added in linear light
// (encoded value to the power 2.2) with variance shotGain * L + readNoise^2,
// which after re-encoding is strongest in the shadows; each channel gets its
// own fine-grained part and a shared coarse chroma part (noise fields
// smoothed over chromaRadius pixels, moving red and blue against green).
struct NoiseModel {
    float shotGain = 2.4e-3f;
    float readNoise = 3.0e-3f;
    float fineWeight = 0.8f;
    float chromaWeight = 1.2f;
    int chromaRadius = 2;
};
Image addCameraNoise(const Image& clean, uint32_t seed, const NoiseModel& model = NoiseModel());

// Peak signal-to-noise ratio in dB of a against b over the red, green and
// blue samples on the 16-bit scale (peak 65535); infinity for equal images.
double psnr16(const Image& a, const Image& b);

}  // namespace murmex_app
