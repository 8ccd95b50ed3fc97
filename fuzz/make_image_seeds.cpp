// Writes the image reader fuzzer's seed corpus with the application's own
// writers: small RGB and RGBA photos as TIFF, PNG and JPEG, the TIFF and JPEG
// of the second with an ICC profile (a blob libpng would refuse), and a JPEG
// with extended XMP.
//   make_image_seeds <dir>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "app_error.h"
#include "image_io.h"
#include "jpeg_xmp.h"

namespace {

// The JPEG at `from` with a standard XMP segment and two extended XMP
// documents after it, one in a single segment, one in two.
bool writeExtendedXmpSeed(const std::string& from, const std::string& to)
{
    std::ifstream in(from, std::ios::binary);
    std::string jpeg((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const std::string packet = std::string("http://ns.adobe.com/xap/1.0/", 29) + "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"/>";
    const auto length = [](size_t n) { return std::string{static_cast<char>(n >> 8), static_cast<char>(n & 0xff)}; };
    jpeg.insert(2, "\xff\xe1" + length(packet.size() + 2) + packet);
    std::string document;
    while (document.size() < 300)
        document += "<rdf:li>" + std::to_string(document.size()) + "</rdf:li>";
    std::vector<std::string> segments = murmex_app::extendedXmpSegments(document, murmex_app::extendedXmpGuid(document));
    // The second document's chunks: its one segment cut in two, last first.
    const std::string halves = document + document;
    const std::string guid = murmex_app::extendedXmpGuid(halves);
    const std::string whole = murmex_app::extendedXmpSegments(halves, guid).front();
    const size_t header = 4 + 35 + 32 + 4;  // marker, length, name, GUID, full length
    const size_t half = document.size();
    std::string second = whole.substr(0, header) + '\0' + '\0' + length(half) + halves.substr(half);
    second.replace(2, 2, length(second.size() - 2));
    segments.insert(segments.begin(), second);
    std::string first = whole.substr(0, header + 4) + halves.substr(0, half);
    first.replace(2, 2, length(first.size() - 2));
    segments.push_back(first);
    if (!murmex_app::insertAfterStandardXmp(jpeg, segments))
        return false;
    std::ofstream out(to, std::ios::binary);
    out << jpeg;
    return static_cast<bool>(out);
}

}  // namespace

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
            if (!alpha && !writeExtendedXmpSeed(base + ".jpg", base + "-xmp.jpg")) {
                std::fprintf(stderr, "cannot write %s-xmp.jpg\n", base.c_str());
                return 1;
            }
        } catch (const AppError& e) {
            std::fprintf(stderr, "%s\n", e.what());
            return 1;
        }
    }
    return 0;
}
