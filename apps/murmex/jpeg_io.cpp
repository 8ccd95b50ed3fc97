// JPEG files through libjpeg-turbo: grey and colour (YCbCr or RGB) on input,
// 8-bit colour on output with the chosen quality; the ICC profile travels in
// APP2 markers on both sides. CMYK files are refused.
//
// libjpeg reports errors through error_exit, which here records the message
// and longjmps back. As with PNG, every function that calls setjmp keeps only
// plain values in its frame; buffers and the codec objects live in the
// caller.

#include <cerrno>
#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <jpeglib.h>
#include <jerror.h>

#include "app_error.h"
#include "file_errors.h"
#include "image_formats.h"

namespace murmex_app::detail {

namespace {

struct JpegErrors {
    jpeg_error_mgr mgr;
    std::jmp_buf jump;
    char message[JMSG_LENGTH_MAX] = "";
    // Set by a warning that the image data is cut off or damaged.
    const char* damage = nullptr;
};

[[noreturn]] void jpegErrorExit(j_common_ptr cinfo)
{
    auto* errors = reinterpret_cast<JpegErrors*>(cinfo->err);
    (*cinfo->err->format_message)(cinfo, errors->message);
    std::longjmp(errors->jump, 1);
}

// What a warning says about the image data, or null for the warnings that
// leave the pixels whole (an unknown JFIF revision, a bad ICC marker and the
// like). libjpeg carries on after data that ends early or does not decode,
// filling the rest with grey; for a photo tool that is a damaged input.
const char* damageOf(int code)
{
    switch (code) {
    case JWRN_JPEG_EOF:
    case JWRN_HIT_MARKER:
        return "truncated file";
    case JWRN_HUFF_BAD_CODE:
    case JWRN_MUST_RESYNC:
    case JWRN_BOGUS_PROGRESSION:
    case JWRN_NOT_SEQUENTIAL:
        return "damaged file (the image data does not decode)";
    default:
        return nullptr;
    }
}

// Warnings are silent, except that the first one about damaged image data
// is remembered, to fail the read once libjpeg is done.
void jpegEmitMessage(j_common_ptr cinfo, int level)
{
    auto* errors = reinterpret_cast<JpegErrors*>(cinfo->err);
    if (level < 0 && !errors->damage)
        errors->damage = damageOf(cinfo->err->msg_code);
}

void initErrors(JpegErrors& errors)
{
    jpeg_std_error(&errors.mgr);
    errors.mgr.error_exit = jpegErrorExit;
    errors.mgr.emit_message = jpegEmitMessage;
}

struct JpegRead {
    jpeg_decompress_struct cinfo;
    JpegErrors errors;
    FILE* file = nullptr;
    bool created = false;
    ~JpegRead()
    {
        if (created)
            jpeg_destroy_decompress(&cinfo);
        if (file)
            std::fclose(file);
    }
};

// Creates the decoder and reads the header and the ICC profile; false after
// a libjpeg error.
bool jpegReadHeader(JpegRead& r, std::vector<uint8_t>& icc)
{
    if (setjmp(r.errors.jump))
        return false;
    jpeg_create_decompress(&r.cinfo);
    r.created = true;
    jpeg_stdio_src(&r.cinfo, r.file);
    jpeg_save_markers(&r.cinfo, JPEG_APP0 + 2, 0xffff);
    jpeg_read_header(&r.cinfo, TRUE);
    JOCTET* profile = nullptr;
    unsigned int profileLength = 0;
    if (jpeg_read_icc_profile(&r.cinfo, &profile, &profileLength) && profile) {
        icc.assign(profile, profile + profileLength);
        std::free(profile);
    }
    return true;
}

// Starts decompression to 8-bit grey or RGB; false after a libjpeg error.
bool jpegStart(JpegRead& r)
{
    if (setjmp(r.errors.jump))
        return false;
    r.cinfo.out_color_space = r.cinfo.num_components == 1 ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_start_decompress(&r.cinfo);
    return true;
}

// The least a Huffman-coded file holds: every 8 x 8 block of every
// component codes at least its DC difference, one bit or more. (Arithmetic
// coding has no such floor.)
double minimumHuffmanBytes(const jpeg_decompress_struct& cinfo)
{
    double blocks = 0;
    for (int c = 0; c < cinfo.num_components; ++c)
        blocks += static_cast<double>(cinfo.comp_info[c].width_in_blocks) * cinfo.comp_info[c].height_in_blocks;
    return blocks / 8;
}

bool jpegReadRows(JpegRead& r, std::vector<JSAMPLE>& row, Image& image, int channels)
{
    if (setjmp(r.errors.jump))
        return false;
    while (r.cinfo.output_scanline < r.cinfo.output_height) {
        JSAMPROW rows[1] = {row.data()};
        const int y = static_cast<int>(r.cinfo.output_scanline);
        if (jpeg_read_scanlines(&r.cinfo, rows, 1) != 1 || r.errors.damage)
            return true;
        storeRow8(image, y, row.data(), channels);
    }
    jpeg_finish_decompress(&r.cinfo);
    return true;
}

struct JpegWrite {
    jpeg_compress_struct cinfo;
    JpegErrors errors;
    FILE* file = nullptr;
    bool created = false;
    ~JpegWrite()
    {
        if (created)
            jpeg_destroy_compress(&cinfo);
        if (file)
            std::fclose(file);
    }
};

// JFIF keeps whole numbers up to 65535: centimetres become dots per inch
// when that keeps more of the value (118.11 per cm is 300 per inch).
void setJfifDensity(jpeg_compress_struct& cinfo, const Resolution& r)
{
    if (!r.present())
        return;
    const bool metric = r.unit == Resolution::Centimetre;
    const double scale = metric ? 2.54 : 1;
    const double x = std::round(r.x * scale), y = std::round(r.y * scale);
    if (x < 1 || y < 1 || x > 65535 || y > 65535)
        return;
    cinfo.write_JFIF_header = TRUE;
    cinfo.density_unit = static_cast<UINT8>(r.unit == Resolution::None ? 0 : 1);
    cinfo.X_density = static_cast<UINT16>(x);
    cinfo.Y_density = static_cast<UINT16>(y);
}

bool jpegCompress(JpegWrite& w, const Image& image, RowSource& source, const WriteOptions& options,
                  std::vector<JSAMPLE>& row)
{
    if (setjmp(w.errors.jump))
        return false;
    jpeg_create_compress(&w.cinfo);
    w.created = true;
    jpeg_stdio_dest(&w.cinfo, w.file);
    w.cinfo.image_width = static_cast<JDIMENSION>(image.width);
    w.cinfo.image_height = static_cast<JDIMENSION>(image.height);
    // JPEG has no alpha: a grey source is one component, else three.
    const int components = outputChannels(image) - (keepsAlpha(image) ? 1 : 0);
    w.cinfo.input_components = components;
    w.cinfo.in_color_space = components == 1 ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_set_defaults(&w.cinfo);
    const int quality = options.jpegQuality;
    jpeg_set_quality(&w.cinfo, quality, TRUE);
    setJfifDensity(w.cinfo, image.resolution);
    // At high qualities the colour detail is worth keeping at full
    // resolution: no chroma subsampling from 90 up.
    if (quality >= 90)
        for (int c = 0; c < w.cinfo.num_components; ++c)
            w.cinfo.comp_info[c].h_samp_factor = w.cinfo.comp_info[c].v_samp_factor = 1;
    jpeg_start_compress(&w.cinfo, TRUE);
    if (!image.icc.empty())
        jpeg_write_icc_profile(&w.cinfo, image.icc.data(), static_cast<unsigned int>(image.icc.size()));
    const size_t width = static_cast<size_t>(image.width);
    const int channels = outputChannels(image);
    while (w.cinfo.next_scanline < w.cinfo.image_height) {
        const uint16_t* wide = source.row(static_cast<int>(w.cinfo.next_scanline));
        for (size_t x = 0; x < width; ++x)
            for (int c = 0; c < components; ++c)
                // Nearest 8-bit value: v * 255 / 65535 rounded, which is
                // (v + 128) / 257 for every 16-bit v.
                row[x * components + c] = static_cast<JSAMPLE>((wide[x * channels + c] + 128) / 257);
        JSAMPROW rows[1] = {row.data()};
        jpeg_write_scanlines(&w.cinfo, rows, 1);
        reportRow(options, static_cast<int>(w.cinfo.next_scanline) - 1, image.height);
    }
    jpeg_finish_compress(&w.cinfo);
    return true;
}

}  // namespace

void readJpeg(const std::string& path, const ReadLimits& limits, Image& image)
{
    JpegRead r;
    r.file = std::fopen(path.c_str(), "rb");
    if (!r.file)
        readFailed(path, errnoText(errno));
    r.cinfo.err = &r.errors.mgr;
    initErrors(r.errors);
    if (!jpegReadHeader(r, image.icc))
        readFailed(path, r.errors.message);
    if (r.cinfo.jpeg_color_space == JCS_CMYK || r.cinfo.jpeg_color_space == JCS_YCCK)
        readFailed(path, "CMYK JPEG files are not supported");
    // A unitless 1:1 density says only that pixels are square: no resolution.
    const bool squareOnly = r.cinfo.density_unit == 0 && r.cinfo.X_density == r.cinfo.Y_density;
    if (r.cinfo.saw_JFIF_marker && r.cinfo.X_density > 0 && r.cinfo.Y_density > 0 && !squareOnly) {
        image.resolution.x = r.cinfo.X_density;
        image.resolution.y = r.cinfo.Y_density;
        image.resolution.unit = r.cinfo.density_unit == 1   ? Resolution::Inch
                                : r.cinfo.density_unit == 2 ? Resolution::Centimetre
                                                            : Resolution::None;
    }
    // Before decompression starts: for progressive files it allocates the
    // coefficients of the whole image.
    checkClaimedSize(path, r.cinfo.image_width, r.cinfo.image_height, limits);
    if (!r.cinfo.arith_code)
        checkFileCanHold(path, minimumHuffmanBytes(r.cinfo), 1);
    if (!jpegStart(r))
        readFailed(path, r.errors.message);
    const int channels = static_cast<int>(r.cinfo.output_components);
    if (channels != 1 && channels != 3)
        readFailed(path, "unsupported JPEG layout");
    allocate(image, path, static_cast<int>(r.cinfo.output_width), static_cast<int>(r.cinfo.output_height), channels, 8,
             limits);
    std::vector<JSAMPLE> row(static_cast<size_t>(r.cinfo.output_width) * channels);
    if (!jpegReadRows(r, row, image, channels))
        readFailed(path, r.errors.message);
    if (r.errors.damage)
        readFailed(path, r.errors.damage);
    if (r.cinfo.output_scanline < r.cinfo.output_height)
        readFailed(path, "truncated file");
}

void writeJpeg(const std::string& path, const Image& image, RowSource& rows, const WriteOptions& options)
{
    PartialFileGuard guard(path);
    {
        JpegWrite w;
        w.file = std::fopen(path.c_str(), "wb");
        if (!w.file)
            writeFailed(path, errnoText(errno));
        guard.arm();
        w.cinfo.err = &w.errors.mgr;
        initErrors(w.errors);
        std::vector<JSAMPLE> row(static_cast<size_t>(image.width) * 3);
        errno = 0;
        if (!jpegCompress(w, image, rows, options, row))
            writeFailed(path, w.errors.message, ferror(w.file) ? errno : 0);
        FILE* f = w.file;
        w.file = nullptr;
        const bool flushed = std::fflush(f) == 0 && !std::ferror(f);
        if (std::fclose(f) != 0 || !flushed)
            writeFailed(path, errnoText(errno));
    }
    guard.commit();
}

}  // namespace murmex_app::detail
