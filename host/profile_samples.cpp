#include "host/profile_samples.h"

namespace murmex_host {

int collectProfileSample(void* samples, int count, int index, const DnNoiseSample* sample)
{
    auto* list = static_cast<std::vector<DnNoiseSample>*>(samples);
    if (list->size() != static_cast<size_t>(count))
        list->resize(static_cast<size_t>(count));
    if (index >= 0 && index < count)
        (*list)[static_cast<size_t>(index)] = *sample;
    return 0;
}

}  // namespace murmex_host
