// Shared helpers of the application's unit tests: deterministic test
// images, a small well-formed ICC profile, an image distance, and writers
// that make input files straight through libtiff, libpng and libjpeg, so
// that the readers are checked against files the code under test never saw.
#pragma once

#include <png.h>
#include <tiffio.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <jpeglib.h>

#include <gtest/gtest.h>

#include "murmex/image.h"

namespace murmex_app_test {

using murmex_app::Image;

// A width x height image with `channels` source channels (alpha when 2 or
// 4) and 16-bit samples from a fixed seed; grey sources get R = G = B.
inline Image randomImage(int width, int height, int channels, uint32_t seed)
{
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> sample(0, 65535);
    Image im;
    im.width = width;
    im.height = height;
    im.bitsPerSample = 16;
    im.sourceChannels = channels;
    const size_t n = static_cast<size_t>(width) * static_cast<size_t>(height);
    im.rgbx.resize(n * 4);
    for (size_t i = 0; i < n; ++i) {
        const uint16_t r = static_cast<uint16_t>(sample(rng));
        im.rgbx[i * 4 + 0] = r;
        im.rgbx[i * 4 + 1] = channels <= 2 ? r : static_cast<uint16_t>(sample(rng));
        im.rgbx[i * 4 + 2] = channels <= 2 ? r : static_cast<uint16_t>(sample(rng));
        im.rgbx[i * 4 + 3] = 65535;
    }
    if (channels == 2 || channels == 4) {
        im.alpha.resize(n);
        for (auto& a : im.alpha)
            a = static_cast<uint16_t>(sample(rng));
    }
    return im;
}

// A smooth colour image (gradients), the kind of content a lossy encoder
// keeps well.
inline Image smoothImage(int width, int height)
{
    Image im;
    im.width = width;
    im.height = height;
    im.rgbx.resize(static_cast<size_t>(width) * height * 4);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            uint16_t* p = im.rgbx.data() + (static_cast<size_t>(y) * width + x) * 4;
            p[0] = static_cast<uint16_t>(8000 + 50000.0 * x / width);
            p[1] = static_cast<uint16_t>(10000 + 40000.0 * y / height);
            p[2] = static_cast<uint16_t>(30000 + 20000.0 * std::sin(0.05 * (x + y)));
            p[3] = 65535;
        }
    return im;
}

// Peak signal-to-noise ratio in dB of two images of the same size over the
// R, G and B samples, on the 16-bit scale.
inline double psnr(const Image& a, const Image& b)
{
    double sum = 0.0;
    size_t n = 0;
    for (size_t i = 0; i < a.rgbx.size(); ++i) {
        if (i % 4 == 3)
            continue;
        const double d = static_cast<double>(a.rgbx[i]) - static_cast<double>(b.rgbx[i]);
        sum += d * d;
        ++n;
    }
    if (sum == 0.0)
        return 1000.0;
    return 10.0 * std::log10(65535.0 * 65535.0 / (sum / static_cast<double>(n)));
}

// A small but well-formed RGB display profile: a 128-byte header, a tag
// table of four entries (media white point and the three primaries) and
// their XYZ data, 260 bytes, big-endian throughout. (libpng refuses profiles
// much smaller than this as too short.)
inline std::vector<uint8_t> testIccProfile()
{
    std::vector<uint8_t> p(260, 0);
    auto put32 = [&p](size_t at, uint32_t v) {
        p[at] = static_cast<uint8_t>(v >> 24);
        p[at + 1] = static_cast<uint8_t>(v >> 16);
        p[at + 2] = static_cast<uint8_t>(v >> 8);
        p[at + 3] = static_cast<uint8_t>(v);
    };
    auto put4cc = [&p](size_t at, const char* s) {
        for (int i = 0; i < 4; ++i)
            p[at + i] = static_cast<uint8_t>(s[i]);
    };
    put32(0, 260);              // profile size
    put32(8, 0x02100000);       // version 2.1
    put4cc(12, "mntr");         // display device
    put4cc(16, "RGB ");         // data colour space
    put4cc(20, "XYZ ");         // connection space
    put4cc(36, "acsp");         // signature
    put32(68, 0x0000f6d6);      // D50 illuminant X = 0.9642
    put32(72, 0x00010000);      // Y = 1.0
    put32(76, 0x0000d32d);      // Z = 0.8249
    put4cc(80, "mmxt");         // creator (the tests)
    put32(128, 4);              // four tags
    // Tag, then its XYZ value as s15.16 numbers.
    const char* tags[4] = {"wtpt", "rXYZ", "gXYZ", "bXYZ"};
    const uint32_t xyz[4][3] = {{0xf6d6, 0x10000, 0xd32d},
                                {0x6fa2, 0x38f5, 0x0390},
                                {0x6299, 0xb785, 0x18da},
                                {0x24a0, 0x0f84, 0xb6cf}};
    for (size_t t = 0; t < 4; ++t) {
        const size_t entry = 132 + 12 * t, data = 180 + 20 * t;
        put4cc(entry, tags[t]);
        put32(entry + 4, static_cast<uint32_t>(data));
        put32(entry + 8, 20);
        put4cc(data, "XYZ ");
        for (size_t c = 0; c < 3; ++c)
            put32(data + 8 + 4 * c, xyz[t][c]);
    }
    return p;
}

// A TIFF written directly with libtiff from `samples` (spp interleaved
// samples per pixel, 8- or 16-bit values in 16-bit storage), optionally in
// separate planes and/or 16 x 16 tiles; alpha marked when `alphaExtra`.
struct RawTiff {
    int width = 0, height = 0, spp = 3, bps = 16;
    uint16_t photometric = PHOTOMETRIC_RGB;
    bool separate = false, tiled = false, alphaExtra = false;
    std::vector<uint16_t> samples;
    std::vector<uint16_t> colormap;  // 3 * 2^bps entries for palette images
    uint32_t subfileType = 0;        // FILETYPE_REDUCEDIMAGE marks a preview
    bool withSubDirectory = false;   // a 2 x 2 grey image in a sub-directory
    uint32_t rowsPerStrip = 3;       // of a striped image
    uint16_t compression = COMPRESSION_NONE;
    uint16_t predictor = PREDICTOR_NONE;
};

inline bool writeRawTiff(const std::string& path, const RawTiff& t)
{
    TIFF* tif = TIFFOpen(path.c_str(), "w");
    if (!tif)
        return false;
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(t.width));
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(t.height));
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, t.bps);
    TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, t.spp);
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, t.photometric);
    TIFFSetField(tif, TIFFTAG_PLANARCONFIG, t.separate ? PLANARCONFIG_SEPARATE : PLANARCONFIG_CONTIG);
    TIFFSetField(tif, TIFFTAG_COMPRESSION, t.compression);
    if (t.predictor != PREDICTOR_NONE)
        TIFFSetField(tif, TIFFTAG_PREDICTOR, t.predictor);
    if (t.alphaExtra) {
        const uint16_t extra[1] = {EXTRASAMPLE_UNASSALPHA};
        TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, 1, extra);
    }
    if (t.subfileType != 0)
        TIFFSetField(tif, TIFFTAG_SUBFILETYPE, t.subfileType);
    if (t.withSubDirectory) {
        uint64_t offsets[1] = {0};
        TIFFSetField(tif, TIFFTAG_SUBIFD, 1, offsets);
    }
    if (!t.colormap.empty()) {
        const size_t n = t.colormap.size() / 3;
        TIFFSetField(tif, TIFFTAG_COLORMAP, t.colormap.data(), t.colormap.data() + n, t.colormap.data() + 2 * n);
    }
    const int bytes = t.bps / 8;
    const int planes = t.separate ? t.spp : 1;
    const int perPixel = t.separate ? 1 : t.spp;
    // One plane's pixels of rows y0.. and columns x0.. packed into `out`.
    auto pack = [&](std::vector<uint8_t>& out, int x0, int y0, int w, int h, int plane) {
        out.assign(static_cast<size_t>(w) * h * perPixel * bytes, 0);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                for (int c = 0; c < perPixel; ++c) {
                    const int sx = x0 + x, sy = y0 + y;
                    if (sx >= t.width || sy >= t.height)
                        continue;
                    const uint16_t v = t.samples[(static_cast<size_t>(sy) * t.width + sx) * t.spp + (t.separate ? plane : c)];
                    const size_t at = ((static_cast<size_t>(y) * w + x) * perPixel + c) * bytes;
                    if (bytes == 2) {
                        std::memcpy(&out[at], &v, 2);
                    } else {
                        out[at] = static_cast<uint8_t>(v);
                    }
                }
    };
    std::vector<uint8_t> buf;
    bool ok = true;
    if (t.tiled) {
        TIFFSetField(tif, TIFFTAG_TILEWIDTH, 16u);
        TIFFSetField(tif, TIFFTAG_TILELENGTH, 16u);
        for (int plane = 0; plane < planes && ok; ++plane)
            for (int y = 0; y < t.height && ok; y += 16)
                for (int x = 0; x < t.width && ok; x += 16) {
                    pack(buf, x, y, 16, 16, plane);
                    ok = TIFFWriteTile(tif, buf.data(), static_cast<uint32_t>(x), static_cast<uint32_t>(y), 0,
                                       static_cast<uint16_t>(plane)) >= 0;
                }
    } else {
        TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, t.rowsPerStrip);
        for (int plane = 0; plane < planes && ok; ++plane)
            for (int y = 0; y < t.height && ok; ++y) {
                pack(buf, 0, y, t.width, 1, plane);
                ok = TIFFWriteScanline(tif, buf.data(), static_cast<uint32_t>(y), static_cast<uint16_t>(plane)) >= 0;
            }
    }
    if (ok && t.withSubDirectory) {
        ok = TIFFWriteDirectory(tif) != 0;
        TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, 2u);
        TIFFSetField(tif, TIFFTAG_IMAGELENGTH, 2u);
        TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 8);
        TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 1);
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
        TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, 2u);
        const uint8_t grey[2] = {7, 9};
        for (uint32_t y = 0; y < 2 && ok; ++y)
            ok = TIFFWriteScanline(tif, const_cast<uint8_t*>(grey), y, 0) >= 0;
    }
    TIFFClose(tif);
    return ok;
}

// A PNG written directly with libpng from rows already in the file's own
// form (16-bit samples big-endian, as the format stores them).
inline bool writeRawPng(const std::string& path, int width, int height, int colourType, int bitDepth,
                        const std::vector<std::vector<uint8_t>>& rows, const std::vector<png_color>& palette = {},
                        const std::vector<uint8_t>& paletteAlpha = {})
{
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f)
        return false;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, f);
    png_set_IHDR(png, info, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), bitDepth, colourType,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (!palette.empty())
        png_set_PLTE(png, info, palette.data(), static_cast<int>(palette.size()));
    if (!paletteAlpha.empty())
        png_set_tRNS(png, info, paletteAlpha.data(), static_cast<int>(paletteAlpha.size()), nullptr);
    png_write_info(png, info);
    for (const auto& row : rows)
        png_write_row(png, row.data());
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return std::fclose(f) == 0;
}

// A JPEG written directly with libjpeg from 8-bit samples (1 or 3
// components), at quality 100.
inline bool writeRawJpeg(const std::string& path, int width, int height, int components,
                         const std::vector<uint8_t>& samples)
{
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f)
        return false;
    jpeg_compress_struct cinfo;
    jpeg_error_mgr err;
    cinfo.err = jpeg_std_error(&err);
    jpeg_create_compress(&cinfo);
    jpeg_stdio_dest(&cinfo, f);
    cinfo.image_width = static_cast<JDIMENSION>(width);
    cinfo.image_height = static_cast<JDIMENSION>(height);
    cinfo.input_components = components;
    cinfo.in_color_space = components == 1 ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_set_defaults(&cinfo);
    jpeg_set_quality(&cinfo, 100, TRUE);
    jpeg_start_compress(&cinfo, TRUE);
    while (cinfo.next_scanline < cinfo.image_height) {
        JSAMPROW row = const_cast<JSAMPLE*>(samples.data()) +
                       static_cast<size_t>(cinfo.next_scanline) * static_cast<size_t>(width) * components;
        jpeg_write_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_compress(&cinfo);
    jpeg_destroy_compress(&cinfo);
    return std::fclose(f) == 0;
}

// A minimal DNG written with libtiff: one uncompressed 16-bit colour filter
// array (red, green / green, blue in every 2 x 2 block) holding `level` of
// 65535 in every photosite, with the colour matrix, neutral and levels a raw
// decoder needs to develop it.
inline bool writeTestDng(const std::string& path, int width, int height, uint16_t level)
{
    TIFF* tif = TIFFOpen(path.c_str(), "w");
    if (!tif)
        return false;
    const uint8_t version[4] = {1, 4, 0, 0}, backward[4] = {1, 1, 0, 0};
    const uint16_t repeat[2] = {2, 2};
    const uint8_t pattern[4] = {0, 1, 1, 2};
    // XYZ to camera: the sRGB primaries' matrix, so that the camera is sRGB.
    const float colorMatrix[9] = {3.2406f, -1.5372f, -0.4986f, -0.9689f, 1.8758f, 0.0415f, 0.0557f, -0.2040f, 1.0570f};
    const float neutral[3] = {1, 1, 1};
    const uint32_t white[1] = {65535};
    const float black[1] = {0};
    TIFFSetField(tif, TIFFTAG_SUBFILETYPE, 0);
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(width));
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(height));
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 16);
    TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, 32803);  // colour filter array
    TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, static_cast<uint32_t>(height));
    TIFFSetField(tif, TIFFTAG_MAKE, "Murmex");
    TIFFSetField(tif, TIFFTAG_MODEL, "Test DNG");
    TIFFSetField(tif, TIFFTAG_DNGVERSION, version);
    TIFFSetField(tif, TIFFTAG_DNGBACKWARDVERSION, backward);
    TIFFSetField(tif, TIFFTAG_UNIQUECAMERAMODEL, "Murmex Test DNG");
    TIFFSetField(tif, TIFFTAG_CFAREPEATPATTERNDIM, repeat);
    TIFFSetField(tif, TIFFTAG_CFAPATTERN, 4, pattern);
    TIFFSetField(tif, TIFFTAG_COLORMATRIX1, 9, colorMatrix);
    TIFFSetField(tif, TIFFTAG_CALIBRATIONILLUMINANT1, 21);  // D65
    TIFFSetField(tif, TIFFTAG_ASSHOTNEUTRAL, 3, neutral);
    TIFFSetField(tif, TIFFTAG_BLACKLEVEL, 1, black);
    TIFFSetField(tif, TIFFTAG_WHITELEVEL, 1, white);
    std::vector<uint16_t> row(static_cast<size_t>(width), level);
    bool ok = true;
    for (int y = 0; y < height && ok; ++y)
        ok = TIFFWriteScanline(tif, row.data(), static_cast<uint32_t>(y), 0) >= 0;
    TIFFClose(tif);
    return ok;
}

}  // namespace murmex_app_test
