// Rows of VarianceStepAbs (radius 2) side by side, written once for any
// vector width (see variance_step_abs_simd.cpp). L is a lane type of
// lane_table.h. This file has no include guard on purpose:
// variance_step_abs_simd.cpp includes it once per instruction set, each time
// inside its own namespace and under MURMEX_TARGET_BEGIN (base/simd_target.h).

// out = (A / 25) * (A / 25) of every lane, into the staged pixel at result.
template <class L, int G>
inline void storeLanes(const typename L::F* a, float* result)
{
    const typename L::F taps = L::set1(25.0f);
    for (int g = 0; g < G; ++g) {
        const typename L::F m = L::div(a[g], taps);
        L::store(result + L::kWidth * g, L::mul(m, m));
    }
}

// Lanes W*g .. W*g + W-1 of every group g < G (W = L::kWidth). Column c of
// the table is column c - 3s of the input rows, tap j (0..4, rows from the
// top) input row j*s of the lane. The row goes in blocks of 64 pixels, and
// within a block residue class by residue class, so that a class's running
// sum stays in a register; between blocks it waits in `sums`. The block's
// results are staged and handed to the rows while they are in the
// first-level cache.
template <class L, int G>
void laneRows(const lane_table::Table& t, int s, int width, float* const* outs, int n)
{
    using F = typename L::F;
    constexpr int W = L::kWidth;
    constexpr int kBlock = 64;
    const F taps = L::set1(25.0f);
    int tapEntry[5];
    for (int j = 0; j < 5; ++j)
        tapEntry[j] = t.entry(j * s);
    alignas(64) float staged[kBlock * W * G];
    thread_local std::vector<float> sums;
    sums.resize(static_cast<size_t>(s) * W * G);
    for (int x0 = 0; x0 < width; x0 += kBlock) {
        const int end = width - x0 < kBlock ? width : x0 + kBlock;
        for (int c = 0; c < s && c < width; ++c) {
            // The first pixel of class c in this block.
            int x = x0 + ((c - x0) % s + s) % s;
            if (x >= end)
                continue;
            float* sum = sums.data() + static_cast<size_t>(c) * W * G;
            F a[G];
            if (x == c) {
                // Pixel c in full, rows from the top, columns from the left.
                for (int g = 0; g < G; ++g)
                    a[g] = L::zero();
                for (int j = 0; j < 5; ++j)
                    for (int k = -2; k <= 2; ++k) {
                        const float* v = t.column(c + k * s + 3 * s) + tapEntry[j];
                        for (int g = 0; g < G; ++g)
                            a[g] = L::add(a[g], L::load(v + W * g));
                    }
                float* result = staged + (x - x0) * W * G;
                storeLanes<L, G>(a, result);
                // The class's sum restarts from the stored value, as in the
                // scalar row.
                for (int g = 0; g < G; ++g)
                    a[g] = L::mul(L::sqrt(L::load(result + W * g)), taps);
                x += s;
            } else {
                for (int g = 0; g < G; ++g)
                    a[g] = L::load(sum + W * g);
            }
            for (; x < end; x += s) {
                const float* leaving = t.column(x);
                const float* entering = t.column(x + 5 * s);
                for (int j = 0; j < 5; ++j)
                    for (int g = 0; g < G; ++g) {
                        a[g] = L::sub(a[g], L::load(leaving + tapEntry[j] + W * g));
                        a[g] = L::add(a[g], L::load(entering + tapEntry[j] + W * g));
                    }
                storeLanes<L, G>(a, staged + (x - x0) * W * G);
            }
            for (int g = 0; g < G; ++g)
                L::store(sum + W * g, a[g]);
        }
        lane_table::writeRows(staged, W * G, x0, end - x0, outs, n);
    }
}

// Runs the n lanes (at most kMaxRows) in as few groups as hold them.
template <class L>
void laneRowsOf(const lane_table::Table& t, int s, int width, float* const* outs, int n)
{
    static_assert(kMaxRows % L::kWidth == 0 && kMaxRows / L::kWidth <= 4);
    switch ((n + L::kWidth - 1) / L::kWidth) {
    case 1: laneRows<L, 1>(t, s, width, outs, n); break;
    case 2: laneRows<L, 2>(t, s, width, outs, n); break;
    default:
        if constexpr (kMaxRows / L::kWidth > 2) {
            if (n <= 3 * L::kWidth)
                laneRows<L, 3>(t, s, width, outs, n);
            else
                laneRows<L, 4>(t, s, width, outs, n);
        }
        break;
    }
}
