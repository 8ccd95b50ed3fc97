// Reads arbitrary bytes as a photo through the murmex application's own
// readers (TIFF, PNG, JPEG and a JPEG's extended XMP), with a pixel limit
// that keeps what a lying header can make it allocate below the fuzzer's
// malloc limit. Every input must end in an AppError or in an image whose
// buffers match its size; an extended XMP document found is never larger
// than the file.
// Inputs that the application would hand to the camera raw decoder are
// skipped: that decoder is a library of its own.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "app_error.h"
#include "image_formats.h"
#include "image_io.h"
#include "jpeg_xmp.h"

namespace {

// The input as a file the readers can open by name, without touching disk.
class MemoryFile {
public:
    MemoryFile(const uint8_t* data, size_t size) : fd_(memfd_create("image", 0))
    {
        if (fd_ < 0)
            std::abort();
        for (size_t done = 0; done < size;) {
            const ssize_t n = write(fd_, data + done, size - done);
            if (n <= 0)
                std::abort();
            done += static_cast<size_t>(n);
        }
        path_ = "/proc/self/fd/" + std::to_string(fd_);
    }
    ~MemoryFile() { close(fd_); }
    const std::string& path() const { return path_; }

private:
    int fd_;
    std::string path_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace murmex_app;
    MemoryFile file(data, size);
    try {
        const detail::SourceKind kind = detail::detectSource(file.path());
        if (kind != detail::SourceKind::Tiff && kind != detail::SourceKind::Png && kind != detail::SourceKind::Jpeg)
            return 0;
        if (kind == detail::SourceKind::Jpeg)
            for (const auto& [guid, document] : readJpegExtendedXmp(file.path()))
                if (guid.size() != 32 || document.empty() || document.size() > size)
                    std::abort();
        ReadLimits limits;
        limits.maxMegapixels = 4;
        const Image image = readImage(file.path(), limits);
        const size_t pixels = static_cast<size_t>(image.width) * static_cast<size_t>(image.height);
        if (image.width <= 0 || image.height <= 0 || image.rgbx.size() != pixels * 4 ||
            !(image.alpha.empty() || image.alpha.size() == pixels))
            std::abort();
    } catch (const AppError&) {
    }
    return 0;
}
