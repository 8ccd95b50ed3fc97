// Reads arbitrary bytes as the descriptive header of a profile file, the way
// the hosts do. Every input must end in a HostError or a header; a header
// that was read must survive being written back and read again unchanged.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "host/host_error.h"
#include "host/profile_header.h"

namespace {

bool sameFloat(const std::optional<float>& a, const std::optional<float>& b)
{
    if (a.has_value() != b.has_value())
        return false;
    return !a || std::memcmp(&*a, &*b, sizeof(float)) == 0;
}

bool sameHeader(const murmex_host::ProfileHeader& a, const murmex_host::ProfileHeader& b)
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
    murmex_host::ProfileHeader header;
    try {
        header = murmex_host::readProfileHeader(bytes);
    } catch (const murmex_host::HostError&) {
        return 0;
    } catch (const std::bad_alloc&) {
        return 0;
    }
    std::vector<uint8_t> rewritten;
    try {
        rewritten = murmex_host::withProfileHeader(bytes, header);
    } catch (const murmex_host::HostError&) {
        return 0;
    } catch (const std::bad_alloc&) {
        return 0;
    }
    // Names built from any header stay finite strings.
    (void)murmex_host::autoProfileDirectory(header);
    (void)murmex_host::autoProfileFileName(header);
    if (!sameHeader(murmex_host::readProfileHeader(rewritten), header))
        std::abort();
    return 0;
}
