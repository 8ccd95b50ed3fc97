// Loads arbitrary bytes as a noise profile: the Version 1 reader, then the
// stream reader. Every input must end in a JEx or a loaded profile.
#include <cstddef>
#include <cstdint>
#include <new>

#include "base/ex.h"
#include "profile/noise_profile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size > (1u << 20))
        return 0;
    JNoiseProfile profile;
    try {
        profile.load(data, static_cast<int>(size));
    } catch (const JEx&) {
    } catch (const std::bad_alloc&) {
    }
    return 0;
}
