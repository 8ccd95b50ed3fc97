// Helpers of the node benchmarks that compare a node's scalar row with its
// vector paths.
#pragma once

#include <cstdint>

#include <benchmark/benchmark.h>

#include "base/cpu_info.h"
#include "denoise/raster/incr_raster.h"

namespace murmex_bench {

// Switches the process to the scalar paths (vector false) or to the vector
// paths up to `level`. Returns false, with the benchmark marked skipped, when
// the processor lacks that level.
inline bool selectPath(benchmark::State& state, bool vector, int level)
{
    if (vector && JCPUInfo::detectedLevel() < level) {
        state.SkipWithError("vector level not available on this processor");
        return false;
    }
    JCPUInfo::SIMDSupported = vector;
    JCPUInfo::SIMDLevel = vector ? level : static_cast<int>(JCPUInfo::Scalar);
    return true;
}

// Each iteration references every row of node, pulls them all and releases
// them; items_per_second counts output pixels. Restores the processor's own
// paths at the end.
inline void pullEveryRow(benchmark::State& state, JIncrRaster& node)
{
    const int h = node.height();
    for (auto _ : state) {
        for (int y = 0; y < h; ++y)
            node.refScanline(y);
        for (int y = 0; y < h; ++y)
            benchmark::DoNotOptimize(node.getScanline(y));
        for (int y = 0; y < h; ++y)
            node.unrefScanline(y);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(node.width()) * h);
    JCPUInfo::reset();
}

}  // namespace murmex_bench
