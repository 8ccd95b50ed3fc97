// Compiles a stretch of code for one instruction set, so that a vector body
// written once as a template can be instantiated per instruction set inside
// MURMEX_TARGET_BEGIN("avx2,fma") ... MURMEX_TARGET_END. Every function
// declared in between is compiled for that target; the rest of the file keeps
// the baseline, so one build runs on any x86-64 and dispatches at run time.
// GCC and clang spell this differently; both forms are here.
#pragma once

#define MURMEX_PRAGMA(x) _Pragma(#x)

#if defined(__clang__)
#define MURMEX_TARGET_BEGIN(isa) \
    MURMEX_PRAGMA(clang attribute push(__attribute__((target(isa))), apply_to = function))
#define MURMEX_TARGET_END MURMEX_PRAGMA(clang attribute pop)
#else
#define MURMEX_TARGET_BEGIN(isa) MURMEX_PRAGMA(GCC push_options) MURMEX_PRAGMA(GCC target(isa))
#define MURMEX_TARGET_END MURMEX_PRAGMA(GCC pop_options)
#endif
