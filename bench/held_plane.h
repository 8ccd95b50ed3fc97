// A source plane for node benchmarks: seeded random values whose rows are all
// computed and held up front, so that pulling through the node under test
// never recomputes its input and the timing is the node's alone.
#pragma once

#include <cstdint>

#include "support/plane_node.h"
#include "support/planes.h"

namespace murmex_bench {

class HeldPlane : public murmex_test::PlaneNode {
public:
    HeldPlane(int width, int height, uint32_t seed, float lo, float hi)
        : PlaneNode(width, height, murmex_test::randomPlane(width, height, seed, lo, hi))
    {
        for (int y = 0; y < height; ++y) {
            refScanline(y);
            getScanline(y);
        }
    }
};

}  // namespace murmex_bench
