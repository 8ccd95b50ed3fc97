// Reads arbitrary bytes as the descriptive header of a profile file, the way
// the murmex application does. Every input must end in an AppError or a
// header; a header that was read must survive being written back and read
// again unchanged.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "app_error.h"
#include "profile_header.h"

namespace {

bool sameFloat(const std::optional<float>& a, const std::optional<float>& b)
{
    if (a.has_value() != b.has_value())
        return false;
    return !a || std::memcmp(&*a, &*b, sizeof(float)) == 0;
}

bool sameHeader(const murmex_app::ProfileHeader& a, const murmex_app::ProfileHeader& b)
{
    return a.maker == b.maker && a.model == b.model && a.film == b.film && a.iso == b.iso &&
           a.multisampling == b.multisampling && sameFloat(a.shutterSpeed, b.shutterSpeed) &&
           sameFloat(a.exposureComp, b.exposureComp) && a.megapixels == b.megapixels &&
           a.quality == b.quality && a.sharpness == b.sharpness && a.illuminant == b.illuminant &&
           a.contrast == b.contrast && a.saturation == b.saturation &&
           sameFloat(a.temperature, b.temperature) && a.colorSpace == b.colorSpace && a.author == b.author &&
           a.comment == b.comment;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size > (1u << 20))
        return 0;
    const std::vector<uint8_t> bytes(data, data + size);
    murmex_app::ProfileHeader header;
    try {
        header = murmex_app::readProfileHeader(bytes);
    } catch (const murmex_app::AppError&) {
        return 0;
    } catch (const std::bad_alloc&) {
        return 0;
    }
    std::vector<uint8_t> rewritten;
    try {
        rewritten = murmex_app::withProfileHeader(bytes, header);
    } catch (const murmex_app::AppError&) {
        return 0;  // an old dense profile has no header to replace
    }
    // Names built from any header stay finite strings.
    (void)murmex_app::autoProfileDirectory(header);
    (void)murmex_app::autoProfileFileName(header);
    if (!sameHeader(murmex_app::readProfileHeader(rewritten), header))
        std::abort();
    return 0;
}
