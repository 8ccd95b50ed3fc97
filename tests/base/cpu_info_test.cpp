#include "base/cpu_info.h"

#include <gtest/gtest.h>

TEST(CPUInfoTest, ProcessorCountIsPositive)
{
    EXPECT_GT(JCPUInfo::numProcessors, 0);
}

TEST(CPUInfoTest, SIMDSupportedCanBeSwitchedOffAndOnAndReset)
{
    JCPUInfo::SIMDSupported = false;
    for (int level = JCPUInfo::Scalar; level <= JCPUInfo::AVX512; ++level)
        EXPECT_FALSE(JCPUInfo::useSIMD(level));
    JCPUInfo::SIMDSupported = true;
    JCPUInfo::SIMDLevel = JCPUInfo::SSE;
    EXPECT_TRUE(JCPUInfo::useSIMD(JCPUInfo::SSE));
    EXPECT_FALSE(JCPUInfo::useSIMD(JCPUInfo::AVX2));
    JCPUInfo::reset();
    EXPECT_EQ(JCPUInfo::SIMDSupported.load(), JCPUInfo::detectedLevel() > JCPUInfo::Scalar);
    EXPECT_EQ(JCPUInfo::SIMDLevel.load(), JCPUInfo::detectedLevel());
}

TEST(CPUInfoTest, DetectedLevelMatchesTheProcessor)
{
    int expect = JCPUInfo::Scalar;
#if defined(__x86_64__) || defined(__i386__)
    if (__builtin_cpu_supports("sse4.1"))
        expect = JCPUInfo::SSE;
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma"))
        expect = JCPUInfo::AVX2;
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
        __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl") &&
        __builtin_cpu_supports("fma"))
        expect = JCPUInfo::AVX512;
#endif
    EXPECT_EQ(JCPUInfo::detectedLevel(), expect);
}
