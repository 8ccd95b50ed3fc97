// JCPUInfo: process-wide facts about the processor, filled once when the
// library loads. Nodes with a vector path read SIMDSupported (and, for the
// width of the vector path, SIMDLevel) on every row; tests switch them to run
// the scalar and each vector path on the same data. Both are atomics because
// worker threads read them while nothing holds a lock.
#pragma once

#include <atomic>

struct JCPUInfo {
    enum Level {
        Scalar = 0,  // no vector unit
        SSE = 1,     // 4-wide single precision (SSE4.1)
        AVX2 = 2,    // 8-wide with fused multiply-add (AVX2 + FMA)
        AVX512 = 3,  // 16-wide (AVX-512 F, DQ, BW, VL)
    };

    static int numProcessors;
    // True when the processor has a 4-wide single-precision vector unit.
    static std::atomic<bool> SIMDSupported;
    // The widest vector path the processor runs; a node uses the widest path
    // it has that is not above this level.
    static std::atomic<int> SIMDLevel;

    // What the processor offers, independent of the switches above.
    static int detectedLevel();
    // Restores both switches to what the processor offers.
    static void reset();

    // True when vector code of at least `level` may run now.
    static bool useSIMD(int level)
    {
        return SIMDSupported.load(std::memory_order_relaxed) &&
               SIMDLevel.load(std::memory_order_relaxed) >= level;
    }
};
