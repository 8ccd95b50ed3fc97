// Camera raw files through LibRaw: demosaiced to 16-bit RGB in sRGB
// primaries with the sRGB tone curve, white-balanced as the camera recorded
// it, without automatic brightening, and turned upright as the camera says.

#include <libraw/libraw.h>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include "app_error.h"
#include "file_errors.h"
#include "image_formats.h"

namespace murmex_app::detail {

namespace {

struct ProcessedImageFree {
    void operator()(libraw_processed_image_t* p) const { LibRaw::dcraw_clear_mem(p); }
};

// The decoder's failure in the program's words: its input/output error
// after a successful open means the data ends early.
std::string rawFailure(int rc)
{
    if (rc == LIBRAW_IO_ERROR)
        return "truncated file";
    std::string text = libraw_strerror(rc);
    if (!text.empty())
        text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
    return text;
}

}  // namespace

void readCameraRaw(const std::string& path, const ReadLimits& limits, Image& image)
{
    std::unique_ptr<LibRaw> raw;
    try {
        raw = std::make_unique<LibRaw>(LIBRAW_OPTIONS_NONE);
    } catch (const std::bad_alloc&) {
        readFailed(path, "not enough memory");
    }
    libraw_output_params_t& params = raw->imgdata.params;
    params.output_bps = 16;
    params.output_color = 1;  // sRGB
    params.use_camera_wb = 1;
    params.no_auto_bright = 1;
    // The sRGB tone curve: power 1/2.4 with a linear toe of slope 12.92.
    params.gamm[0] = 1.0 / 2.4;
    params.gamm[1] = 12.92;

    errno = 0;
    int rc = raw->open_file(path.c_str());
    if (rc == LIBRAW_FILE_UNSUPPORTED)
        readFailed(path, "not a TIFF, PNG, JPEG or camera raw file");
    if (rc == LIBRAW_IO_ERROR && errno != 0)
        readFailed(path, errnoText(errno));
    if (rc != LIBRAW_SUCCESS)
        readFailed(path, rawFailure(rc));
    checkClaimedSize(path, raw->imgdata.sizes.width, raw->imgdata.sizes.height, limits);
    if ((rc = raw->unpack()) != LIBRAW_SUCCESS)
        readFailed(path, rawFailure(rc));
    if ((rc = raw->dcraw_process()) != LIBRAW_SUCCESS)
        readFailed(path, rawFailure(rc));
    std::unique_ptr<libraw_processed_image_t, ProcessedImageFree> out(raw->dcraw_make_mem_image(&rc));
    if (!out || rc != LIBRAW_SUCCESS)
        readFailed(path, rawFailure(rc));
    if (out->type != LIBRAW_IMAGE_BITMAP || out->bits != 16 || (out->colors != 3 && out->colors != 1))
        readFailed(path, "the raw decoder gave an unexpected image layout");

    const int channels = out->colors;
    allocate(image, path, out->width, out->height, channels == 1 ? 1 : 3, 16, limits);
    // The decoder's samples are 16-bit in host order, rows packed.
    const auto* samples = reinterpret_cast<const uint16_t*>(out->data);
    const size_t rowSamples = static_cast<size_t>(out->width) * channels;
    if (out->data_size < rowSamples * out->height * sizeof(uint16_t))
        readFailed(path, "the raw decoder gave a short image");
    for (int y = 0; y < out->height; ++y)
        storeRow(image, y, samples + static_cast<size_t>(y) * rowSamples, channels);
}

}  // namespace murmex_app::detail
