// Heap accounting for the benchmarks: the benchmark program replaces the
// global operator new and delete so that a benchmark can read the peak number
// of bytes that were live on the heap while its code ran.
#pragma once

#include <cstddef>

namespace murmex_bench {

// Bytes live on the heap now, through operator new.
std::size_t liveHeapBytes();
// Restarts the peak at the bytes live now.
void resetHeapPeak();
// The highest number of live bytes since the last reset.
std::size_t heapPeakBytes();

}  // namespace murmex_bench
