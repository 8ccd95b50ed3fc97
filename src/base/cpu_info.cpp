#include "base/cpu_info.h"

#include <unistd.h>

namespace {

int queryProcessors()
{
    const long n = sysconf(_SC_NPROCESSORS_ONLN);
    return n > 0 ? static_cast<int>(n) : 1;
}

int queryLevel()
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
        __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl") &&
        __builtin_cpu_supports("fma"))
        return JCPUInfo::AVX512;
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma"))
        return JCPUInfo::AVX2;
    if (__builtin_cpu_supports("sse4.1"))
        return JCPUInfo::SSE;
#endif
    return JCPUInfo::Scalar;
}

}  // namespace

int JCPUInfo::numProcessors = queryProcessors();
std::atomic<int> JCPUInfo::SIMDLevel{queryLevel()};
std::atomic<bool> JCPUInfo::SIMDSupported{queryLevel() > JCPUInfo::Scalar};

int JCPUInfo::detectedLevel()
{
    static const int level = queryLevel();
    return level;
}

void JCPUInfo::reset()
{
    SIMDLevel = detectedLevel();
    SIMDSupported = detectedLevel() > Scalar;
}
