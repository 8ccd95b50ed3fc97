// Vector rows of window_stats: one candidate per lane, 8 or 16 candidates at
// once. Lane j adds and compares exactly the values rowScalar does for
// candidate j, in the same order: min(b, acc) and max(b, acc) are the vector
// unit's (b < acc ? b : acc, b > acc ? b : acc), as std::min(acc, b) and
// std::max(acc, b) are; sums are separate single-precision additions. So the
// statistics are bit-identical.
#include <immintrin.h>

#include "autosample/window_stats.h"
#include "base/simd_lanes.h"
#include "base/simd_target.h"

namespace {

MURMEX_TARGET_BEGIN("avx512f,avx512dq,avx512bw,avx512vl,fma")
namespace avx512 {
#include "autosample/window_stats_simd_row.h"
}  // namespace avx512
MURMEX_TARGET_END

MURMEX_TARGET_BEGIN("avx2,fma")
namespace avx2 {
#include "autosample/window_stats_simd_row.h"
}  // namespace avx2
MURMEX_TARGET_END

}  // namespace

namespace window_stats {

void rowAVX2(const Decimated& d, int by, int s, int n, float* out, long stride)
{
    avx2::windowRow<simd_lanes::Lanes8>(d, by, s, n, out, stride);
}

void rowAVX512(const Decimated& d, int by, int s, int n, float* out, long stride)
{
    avx512::windowRow<simd_lanes::Lanes16>(d, by, s, n, out, stride);
}

}  // namespace window_stats
