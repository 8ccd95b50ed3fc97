#include "demo_scene.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "app_error.h"

namespace murmex_app {

namespace {

struct Rgb {
    float r, g, b;
};

Rgb mix(Rgb a, Rgb b, float t)
{
    return {a.r + (b.r - a.r) * t, a.g + (b.g - a.g) * t, a.b + (b.b - a.b) * t};
}

// A fixed pseudo-random value in 0..1 for a pixel, for the scene's texture.
float hash01(uint32_t x, uint32_t y)
{
    uint32_t h = x * 0x8da6b343u ^ y * 0xd8163841u ^ 0x9e3779b9u;
    h ^= h >> 16;
    h *= 0x7feb352du;
    h ^= h >> 15;
    h *= 0x846ca68bu;
    h ^= h >> 16;
    return static_cast<float>(h >> 8) * (1.0f / 16777216.0f);
}

// Coverage of a disc of radius r around (cx, cy) at pixel centre (x, y),
// with a one-pixel soft rim.
float disc(float x, float y, float cx, float cy, float r)
{
    const float d = std::sqrt((x - cx) * (x - cx) + (y - cy) * (y - cy));
    return std::clamp(r - d + 0.5f, 0.0f, 1.0f);
}

bool inside(float u, float v, float u0, float v0, float u1, float v1)
{
    return u >= u0 && u < u1 && v >= v0 && v < v1;
}

const Rgb chart[4][6] = {
    {{0.05f, 0.05f, 0.05f}, {0.16f, 0.16f, 0.16f}, {0.32f, 0.32f, 0.32f}, {0.50f, 0.50f, 0.50f}, {0.70f, 0.70f, 0.70f}, {0.90f, 0.90f, 0.90f}},
    {{0.85f, 0.10f, 0.08f}, {0.12f, 0.70f, 0.15f}, {0.10f, 0.15f, 0.80f}, {0.10f, 0.75f, 0.80f}, {0.80f, 0.12f, 0.70f}, {0.92f, 0.85f, 0.10f}},
    {{0.76f, 0.58f, 0.48f}, {0.45f, 0.32f, 0.25f}, {0.38f, 0.48f, 0.62f}, {0.35f, 0.42f, 0.22f}, {0.52f, 0.50f, 0.70f}, {0.40f, 0.74f, 0.68f}},
    {{0.20f, 0.06f, 0.05f}, {0.05f, 0.18f, 0.07f}, {0.05f, 0.07f, 0.22f}, {0.22f, 0.20f, 0.05f}, {0.12f, 0.10f, 0.16f}, {0.25f, 0.15f, 0.10f}},
};

Rgb scenePixel(int x, int y, int width, int height)
{
    const float fx = x + 0.5f, fy = y + 0.5f;
    const float u = fx / width, v = fy / height;
    const float unit = static_cast<float>(std::min(width, height));

    // Sky over ground: smooth gradients, the ground darkening into shadow.
    Rgb c;
    if (v < 0.45f)
        c = mix(mix({0.22f, 0.40f, 0.78f}, {0.74f, 0.82f, 0.92f}, v / 0.45f), {0.80f, 0.78f, 0.70f}, 0.25f * u);
    else
        c = mix({0.38f, 0.32f, 0.22f}, {0.06f, 0.05f, 0.04f}, (v - 0.45f) / 0.55f);

    // The sun, a bright disc with a soft rim.
    c = mix(c, {0.98f, 0.92f, 0.60f}, disc(fx, fy, 0.86f * width, 0.14f * height, 0.06f * unit));

    // A saturated red ball lit from the upper left.
    const float bx = 0.30f * width, by = 0.24f * height, br = 0.13f * unit;
    const float ball = disc(fx, fy, bx, by, br);
    if (ball > 0.0f) {
        const float lx = (fx - bx + 0.4f * br) / br, ly = (fy - by + 0.4f * br) / br;
        const float shade = std::clamp(1.0f - 0.55f * std::sqrt(lx * lx + ly * ly), 0.08f, 1.0f);
        c = mix(c, {0.90f * shade, 0.08f * shade, 0.06f * shade}, ball);
    }

    // A dark building with lit windows: long hard edges.
    if (inside(u, v, 0.55f, 0.20f, 0.71f, 0.80f)) {
        c = {0.11f, 0.11f, 0.13f};
        const float wu = (u - 0.57f) / 0.03f, wv = (v - 0.24f) / 0.06f;
        if (wu >= 0.0f && wv >= 0.0f && wu - std::floor(wu) < 0.6f && wv - std::floor(wv) < 0.5f && u < 0.69f && v < 0.74f)
            c = {0.95f, 0.80f, 0.45f};
    }

    // A colour chart: flat patches from black to white, saturated primaries
    // and secondaries, natural tones and dark colours.
    if (inside(u, v, 0.04f, 0.50f, 0.46f, 0.94f)) {
        const float cu = (u - 0.04f) / 0.42f * 6.0f, cv = (v - 0.50f) / 0.44f * 4.0f;
        const int ci = std::min(5, static_cast<int>(cu)), cj = std::min(3, static_cast<int>(cv));
        const bool gap = cu - ci < 0.08f || cu - ci > 0.92f || cv - cj < 0.08f || cv - cj > 0.92f;
        c = gap ? Rgb{0.03f, 0.03f, 0.03f} : chart[cj][ci];
    }

    // Diagonal stripes: edges at an angle, in alternating colours.
    if (inside(u, v, 0.48f, 0.50f, 0.53f, 0.95f)) {
        const float s = (fx + 0.58f * fy) / (0.012f * unit);
        c = (static_cast<int>(std::floor(s)) & 1) ? Rgb{0.85f, 0.82f, 0.75f} : Rgb{0.20f, 0.30f, 0.55f};
    }

    // Fine texture: a woven pattern with grain, close to the pixel scale.
    if (inside(u, v, 0.74f, 0.55f, 0.97f, 0.93f)) {
        const float weave = 0.5f + 0.22f * std::sin(6.2831853f * fx / 4.0f) * std::sin(6.2831853f * fy / 5.0f);
        const float grain = 0.12f * (hash01(static_cast<uint32_t>(x), static_cast<uint32_t>(y)) - 0.5f);
        const float t = std::clamp(weave + grain, 0.0f, 1.0f);
        c = {0.70f * t + 0.08f, 0.48f * t + 0.06f, 0.30f * t + 0.05f};
    }
    return c;
}

uint16_t toSample(float v)
{
    return static_cast<uint16_t>(std::lround(std::clamp(v, 0.0f, 1.0f) * 65535.0f));
}

// Standard normal values by the Box-Muller transform over mt19937, so that
// the noise is the same with every standard library.
class Gaussian {
public:
    explicit Gaussian(uint32_t seed) : engine_(seed) {}
    float next()
    {
        if (haveSpare_) {
            haveSpare_ = false;
            return spare_;
        }
        double u1, u2;
        do
            u1 = (engine_() + 0.5) / 4294967296.0;
        while (u1 <= 0.0);
        u2 = (engine_() + 0.5) / 4294967296.0;
        const double r = std::sqrt(-2.0 * std::log(u1));
        spare_ = static_cast<float>(r * std::sin(6.283185307179586 * u2));
        haveSpare_ = true;
        return static_cast<float>(r * std::cos(6.283185307179586 * u2));
    }

private:
    std::mt19937 engine_;
    float spare_ = 0.0f;
    bool haveSpare_ = false;
};

// A field of white noise smoothed by a box of (2r + 1)^2 pixels and scaled
// back to unit deviation.
std::vector<float> coarseField(int width, int height, int r, Gaussian& gauss)
{
    std::vector<float> white(static_cast<size_t>(width) * height);
    for (float& w : white)
        w = gauss.next();
    if (r <= 0)
        return white;
    std::vector<float> tmp(white.size()), out(white.size());
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            float s = 0.0f;
            for (int d = -r; d <= r; ++d)
                s += white[static_cast<size_t>(y) * width + std::clamp(x + d, 0, width - 1)];
            tmp[static_cast<size_t>(y) * width + x] = s;
        }
    const float scale = 1.0f / static_cast<float>(2 * r + 1);  // sum of n^2 unit variables has deviation n
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            float s = 0.0f;
            for (int d = -r; d <= r; ++d)
                s += tmp[static_cast<size_t>(std::clamp(y + d, 0, height - 1)) * width + x];
            out[static_cast<size_t>(y) * width + x] = s * scale;
        }
    return out;
}

}  // namespace

Image renderDemoScene(int width, int height)
{
    if (width < 16 || height < 16)
        throw AppError("the demo scene needs at least 16 x 16 pixels");
    Image image;
    image.width = width;
    image.height = height;
    image.bitsPerSample = 16;
    image.sourceChannels = 3;
    image.rgbx.resize(static_cast<size_t>(width) * height * 4);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const Rgb c = scenePixel(x, y, width, height);
            uint16_t* p = &image.rgbx[(static_cast<size_t>(y) * width + x) * 4];
            p[0] = toSample(c.r);
            p[1] = toSample(c.g);
            p[2] = toSample(c.b);
            p[3] = 65535;
        }
    return image;
}

Image addCameraNoise(const Image& clean, uint32_t seed, const NoiseModel& model)
{
    Image noisy = clean;
    Gaussian gauss(seed);
    const int w = clean.width, h = clean.height;
    const std::vector<float> chromaA = coarseField(w, h, model.chromaRadius, gauss);
    const std::vector<float> chromaB = coarseField(w, h, model.chromaRadius, gauss);
    const float gamma = 2.2f;
    for (size_t i = 0; i < static_cast<size_t>(w) * h; ++i) {
        // Red and blue move against green: colour noise that leaves the
        // luminance roughly alone.
        const float chroma[3] = {chromaA[i], -0.5f * (chromaA[i] + chromaB[i]), chromaB[i]};
        for (int c = 0; c < 3; ++c) {
            uint16_t& s = noisy.rgbx[i * 4 + c];
            const float linear = std::pow(s / 65535.0f, gamma);
            const float sigma = std::sqrt(model.shotGain * linear + model.readNoise * model.readNoise);
            const float n = model.fineWeight * gauss.next() + model.chromaWeight * chroma[c];
            const float noisyLinear = std::max(0.0f, linear + sigma * n);
            s = toSample(std::pow(noisyLinear, 1.0f / gamma));
        }
    }
    return noisy;
}

double psnr16(const Image& a, const Image& b)
{
    if (a.width != b.width || a.height != b.height || a.rgbx.size() != b.rgbx.size())
        throw AppError("cannot compare images of different sizes");
    double sum = 0.0;
    const size_t pixels = static_cast<size_t>(a.width) * a.height;
    for (size_t i = 0; i < pixels; ++i)
        for (int c = 0; c < 3; ++c) {
            const double d = static_cast<double>(a.rgbx[i * 4 + c]) - b.rgbx[i * 4 + c];
            sum += d * d;
        }
    if (sum == 0.0)
        return std::numeric_limits<double>::infinity();
    const double mse = sum / (3.0 * pixels);
    return 10.0 * std::log10(65535.0 * 65535.0 / mse);
}

}  // namespace murmex_app
