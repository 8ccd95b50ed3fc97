// Runs a piece of code once on the scalar paths and once on each vector path
// the processor offers, restoring the process-wide switches afterwards.
#pragma once

#include <string>

#include "base/cpu_info.h"

namespace murmex_test {

struct SIMDPath {
    bool enabled;
    int level;
    std::string name() const
    {
        if (!enabled)
            return "scalar";
        switch (level) {
        case JCPUInfo::SSE: return "sse";
        case JCPUInfo::AVX2: return "avx2";
        case JCPUInfo::AVX512: return "avx512";
        default: return "level" + std::to_string(level);
        }
    }
};

class ScopedSIMDPath {
public:
    explicit ScopedSIMDPath(SIMDPath p)
        : oldEnabled_(JCPUInfo::SIMDSupported.load()), oldLevel_(JCPUInfo::SIMDLevel.load())
    {
        JCPUInfo::SIMDSupported = p.enabled;
        JCPUInfo::SIMDLevel = p.enabled ? p.level : static_cast<int>(JCPUInfo::Scalar);
    }
    ~ScopedSIMDPath()
    {
        JCPUInfo::SIMDSupported = oldEnabled_;
        JCPUInfo::SIMDLevel = oldLevel_;
    }
    ScopedSIMDPath(const ScopedSIMDPath&) = delete;
    ScopedSIMDPath& operator=(const ScopedSIMDPath&) = delete;

private:
    bool oldEnabled_;
    int oldLevel_;
};

// fn(const SIMDPath&) is called first with the vector paths off, then for every
// level from SSE up to what the processor offers.
template <class F>
void forEachSIMDPath(F&& fn)
{
    {
        const SIMDPath p{false, JCPUInfo::Scalar};
        ScopedSIMDPath guard(p);
        fn(p);
    }
    for (int level = JCPUInfo::SSE; level <= JCPUInfo::detectedLevel(); ++level) {
        const SIMDPath p{true, level};
        ScopedSIMDPath guard(p);
        fn(p);
    }
}

}  // namespace murmex_test
