// Gathering a profile's samples from the library's per-sample callback.
#pragma once

#include <vector>

#include <murmex/murmex.h>

namespace murmex_host {

// A DnSampleCallback whose context is a std::vector<DnNoiseSample>*: the
// vector ends up with the profile's samples in order.
int collectProfileSample(void* samples, int count, int index, const DnNoiseSample* sample);

}  // namespace murmex_host
