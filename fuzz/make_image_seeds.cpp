// Writes the image reader fuzzer's seed corpus with the application's own
// writers: small RGB and RGBA photos as TIFF, PNG and JPEG, the TIFF and JPEG
// of the second with an ICC profile (a blob libpng would refuse).
//   make_image_seeds <dir>
#include <cstdio>
#include <string>

#include "app_error.h"
#include "image_io.h"

int main(int argc, char** argv)
{
    using namespace murmex_app;
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_image_seeds DIR\n");
        return 2;
    }
    const std::string dir = argv[1];
    int n = 0;
    for (const bool alpha : {false, true}) {
        Image image;
        image.width = 19;
        image.height = 13;
        image.rgbx.resize(static_cast<size_t>(image.width) * image.height * 4);
        for (size_t i = 0; i < image.rgbx.size(); ++i)
            image.rgbx[i] = (i % 4 == 3) ? 65535 : static_cast<uint16_t>(i * 2654435761u >> 16);
        if (alpha)
            image.alpha.assign(static_cast<size_t>(image.width) * image.height, 40000);
        const std::string base = dir + "/seed" + std::to_string(n++);
        try {
            writeImage(base + ".png", image, ImageFormat::Png);
            if (alpha)
                image.icc.assign(200, 7);
            writeImage(base + ".tif", image, ImageFormat::Tiff);
            writeImage(base + ".jpg", image, ImageFormat::Jpeg, alpha ? 60 : 95);
        } catch (const AppError& e) {
            std::fprintf(stderr, "%s\n", e.what());
            return 1;
        }
    }
    return 0;
}
