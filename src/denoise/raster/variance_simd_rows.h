// Rows of Variance side by side, written once for any vector width (see
// variance_simd.cpp). L is a lane type of lane_table.h. This file has no
// include guard on purpose: variance_simd.cpp includes it once per
// instruction set, each time inside its own namespace and under
// MURMEX_TARGET_BEGIN (base/simd_target.h).

// Lanes W*g .. W*g + W-1 of every group g < G (W = L::kWidth), for all
// pixels of the rows. Column c of the tables is column c - r - 1 of the
// input rows.
template <class L, int G>
void laneRows(const lane_table::Table& squares, const lane_table::Table& values, int r, int width,
              float* const* outs, int n)
{
    using F = typename L::F;
    constexpr int W = L::kWidth;
    const int taps = 2 * r + 1;
    const F area = L::set1(static_cast<float>(taps * taps));
    int tapEntry[11];
    for (int j = 0; j < taps; ++j)
        tapEntry[j] = squares.entry(j);

    F s[G];
    for (int g = 0; g < G; ++g)
        s[g] = L::zero();
    for (int j = 0; j < taps; ++j)
        for (int c = 0; c < taps; ++c) {
            const float* v = values.column(c) + tapEntry[j];
            for (int g = 0; g < G; ++g) {
                const F x = L::load(v + W * g);
                s[g] = L::fmadd(x, x, s[g]);
            }
        }
    for (int g = 0; g < G; ++g)
        s[g] = L::mul(L::div(s[g], area), area);

    // Eight pixels at a time are staged and then written to the rows, while
    // they are still in the first-level cache.
    alignas(64) float staged[8 * W * G];
    for (int x0 = 0; x0 < width; x0 += 8) {
        const int count = width - x0 < 8 ? width - x0 : 8;
        for (int i = 0; i < count; ++i) {
            const float* leaving = squares.column(x0 + i);
            const float* entering = squares.column(x0 + i + taps);
            for (int j = 0; j < taps; ++j)
                for (int g = 0; g < G; ++g) {
                    s[g] = L::sub(s[g], L::load(leaving + tapEntry[j] + W * g));
                    s[g] = L::add(s[g], L::load(entering + tapEntry[j] + W * g));
                }
            for (int g = 0; g < G; ++g)
                L::store(staged + i * W * G + W * g, L::div(s[g], area));
        }
        lane_table::writeRows(staged, W * G, x0, count, outs, n);
    }
}

// Runs the n lanes (at most kMaxRows) in as few groups as hold them.
template <class L>
void laneRowsOf(const lane_table::Table& squares, const lane_table::Table& values, int r, int width,
                float* const* outs, int n)
{
    static_assert(kMaxRows % L::kWidth == 0 && kMaxRows / L::kWidth <= 4);
    switch ((n + L::kWidth - 1) / L::kWidth) {
    case 1: laneRows<L, 1>(squares, values, r, width, outs, n); break;
    case 2: laneRows<L, 2>(squares, values, r, width, outs, n); break;
    default:
        if constexpr (kMaxRows / L::kWidth > 2) {
            if (n <= 3 * L::kWidth)
                laneRows<L, 3>(squares, values, r, width, outs, n);
            else
                laneRows<L, 4>(squares, values, r, width, outs, n);
        }
        break;
    }
}
