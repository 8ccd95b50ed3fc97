// Reads arbitrary bytes as a filter-settings stream.
#include <cstddef>
#include <cstdint>
#include <new>

#include "base/ex.h"
#include "base/qtless/qbytearray.h"
#include "base/qtless/qdatastream.h"
#include "filter/noise_filter_settings.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size > (1u << 20))
        return 0;
    qtless::QByteArray bytes;
    bytes.setRawData(const_cast<char*>(reinterpret_cast<const char*>(data)), static_cast<unsigned int>(size));
    try {
        qtless::QDataStream s(bytes, qtless::IO_ReadOnly);
        JNoiseFilterSettings settings;
        s >> settings;
    } catch (const JEx&) {
    } catch (const std::bad_alloc&) {
    }
    bytes.resetRawData();
    return 0;
}
