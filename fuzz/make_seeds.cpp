// Writes the fuzzers' seed corpus: profiles and settings streams made by the
// engine's writers, and a Version 1 profile assembled here.
//   make_seeds <profile-dir> <settings-dir>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "base/qtless/qdatastream.h"
#include "filter/noise_filter_settings.h"
#include "profile/noise_profile.h"

namespace {

void writeFile(const std::string& path, const unsigned char* data, size_t n)
{
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) {
        std::perror(path.c_str());
        std::exit(1);
    }
    std::fwrite(data, 1, n, f);
    std::fclose(f);
}

void writeProfile(const std::string& path, JNoiseProfile& p)
{
    unsigned char* data = nullptr;
    int length = 0;
    p.save(&data, &length);
    writeFile(path, data, static_cast<size_t>(length));
    delete[] data;
}

JNoiseSample sample(float L, float a, float b, float base, int measuredLevels)
{
    JNoiseSample s;
    s.lab = JLabCoord(L, a, b);
    for (int c = 0; c < 3; ++c)
        for (int l = 0; l < 5; ++l)
            s.noise[c][l] = l < measuredLevels ? base / static_cast<float>(1 + l) : -1.0f;
    return s;
}

void putLE(std::vector<unsigned char>& out, uint32_t v)
{
    for (int i = 0; i < 4; ++i)
        out.push_back(static_cast<unsigned char>(v >> (8 * i)));
}

void putLE(std::vector<unsigned char>& out, float f)
{
    uint32_t v;
    std::memcpy(&v, &f, 4);
    putLE(out, v);
}

std::vector<unsigned char> version1()
{
    std::vector<unsigned char> out;
    for (int c = 0; c < 3; ++c) {
        putLE(out, 13243546u);
        putLE(out, 0.5f);
        putLE(out, 0.5f);
        putLE(out, 0.5f);
        putLE(out, 2u);
        putLE(out, 1.0f);
        putLE(out, 0.5f);
        putLE(out, 1u);
        putLE(out, 0.0f);
        putLE(out, 0.0f);
        for (int k = 0; k < 512; ++k)
            putLE(out, 0.01f + 0.0001f * static_cast<float>(k));
    }
    return out;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: make_seeds <profile-dir> <settings-dir>\n");
        return 2;
    }
    const std::string profiles = argv[1];
    const std::string settings = argv[2];

    JNoiseProfile empty;
    writeProfile(profiles + "/empty.dnp", empty);

    JNoiseProfile full;
    JProfileHeader h;
    h.maker.set("Acme");
    h.model.set("Z9");
    h.iso.set(800);
    h.shutterspeed.set(0.01f);
    h.megapixels.set(24);
    h.illuminant.set(1);
    h.contrast.set(2);
    h.saturation.set(3);
    h.temperature.set(20.0f);
    h.comment.set("seed <profile>");
    full.setHeader(h);
    full.addSample(sample(50.0f, 2.0f, -3.0f, 0.02f, 5));
    full.addSample(sample(20.0f, -10.0f, 15.0f, 0.05f, 1));
    full.settings().addColor(JLabCoord(60.0f, 5.0f, 5.0f));
    writeProfile(profiles + "/full.dnp", full);

    const std::vector<unsigned char> v1 = version1();
    writeFile(profiles + "/version1.dnp", v1.data(), v1.size());

    {
        qtless::QDataStream s(qtless::QByteArray(), qtless::IO_WriteOnly);
        s << full.settings();
        const qtless::QByteArray a = s.device()->buffer();
        writeFile(settings + "/with_colour.bin", reinterpret_cast<const unsigned char*>(a.data()), a.size());
    }
    {
        JNoiseFilterSettings plain;
        plain.clearSamples();
        qtless::QDataStream s(qtless::QByteArray(), qtless::IO_WriteOnly);
        s << plain;
        const qtless::QByteArray a = s.device()->buffer();
        writeFile(settings + "/no_samples.bin", reinterpret_cast<const unsigned char*>(a.data()), a.size());
    }
    return 0;
}
