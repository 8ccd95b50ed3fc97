// Checks shared by the tests of the two-input pixel-wise nodes (Add,
// Subtract). Node is the node class, built from two plane inputs; op is the
// plain per-pixel operation the node must reproduce bit for bit.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "support/bits.h"
#include "support/plane_node.h"
#include "support/planes.h"
#include "support/simd_paths.h"

namespace binary_node_checks {

template <class Node>
std::vector<float> pullNode(int w, int h, const std::vector<float>& a, const std::vector<float>& b)
{
    murmex_test::PlaneNode na(w, h, a);
    murmex_test::PlaneNode nb(w, h, b);
    Node node(na, nb);
    return murmex_test::pullPlane(node);
}

template <class Node, class Op>
void everyPixelIsTheOperationOnEveryPath(Op op)
{
    const int w = 19, h = 4;
    const auto a = murmex_test::randomPlane(w, h, 11, -1.0f, 2.0f);
    const auto b = murmex_test::randomPlane(w, h, 12, -1.0f, 2.0f);
    std::vector<float> expected(a.size());
    for (size_t i = 0; i < a.size(); ++i)
        expected[i] = op(a[i], b[i]);
    murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& p) {
        const auto got = pullNode<Node>(w, h, a, b);
        EXPECT_TRUE(murmex_test::sameBits(expected.data(), got.data(), w * h)) << p.name();
    });
}

template <class Node>
void sizeIsThatOfTheFirstInput()
{
    murmex_test::PlaneNode a(7, 5, 1.0f);
    murmex_test::PlaneNode b(9, 6, 1.0f);
    Node node(a, b);
    EXPECT_EQ(node.width(), 7);
    EXPECT_EQ(node.height(), 5);
    EXPECT_EQ(node.dataType(), JIncrRaster::Plane);
}

template <class Node, class Op>
void mirroredRowsReadTheMirroredInputRows(Op op)
{
    const int w = 4, h = 5;
    const auto a = murmex_test::randomPlane(w, h, 21);
    const auto b = murmex_test::randomPlane(w, h, 22);
    murmex_test::PlaneNode na(w, h, a);
    murmex_test::PlaneNode nb(w, h, b);
    Node node(na, nb);
    for (int y : {-1, -2, h, h + 1}) {
        const int r = murmex_test::mirroredRow(y, h);
        node.refScanline(y);
        const float* row = node.getScanline(y);
        for (int x = 0; x < w; ++x)
            EXPECT_EQ(row[x], op(a[r * w + x], b[r * w + x])) << "row " << y << " x " << x;
        node.unrefScanline(y);
    }
    EXPECT_TRUE(murmex_test::allRowsReleased(node));
}

template <class Node>
void outputMarginsMirrorTheRow()
{
    const int w = 6, h = 2;
    murmex_test::PlaneNode a(w, h, murmex_test::randomPlane(w, h, 31));
    murmex_test::PlaneNode b(w, h, murmex_test::randomPlane(w, h, 32));
    Node node(a, b);
    node.requestReflection(3);
    node.refScanline(1);
    const float* row = node.getScanline(1);
    for (int i = 1; i <= 3; ++i) {
        EXPECT_EQ(row[-i], row[i]);
        EXPECT_EQ(row[w - 1 + i], row[w - 1 - i]);
    }
    node.unrefScanline(1);
}

template <class Node>
void everyInputRowIsReleasedAfterAFullPull()
{
    const int w = 5, h = 6;
    murmex_test::PlaneNode a(w, h, 2.0f);
    murmex_test::PlaneNode b(w, h, 1.0f);
    Node node(a, b);
    murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& p) {
        murmex_test::pullPlane(node);
        EXPECT_TRUE(murmex_test::allRowsReleased(a)) << p.name();
        EXPECT_TRUE(murmex_test::allRowsReleased(b)) << p.name();
        EXPECT_TRUE(murmex_test::allRowsReleased(node)) << p.name();
    });
    // Each pull computed every row of each input once.
    for (int y = 0; y < h; ++y) {
        EXPECT_GE(a.computeCount(y), 1);
        EXPECT_EQ(a.computeCount(y), b.computeCount(y));
    }
}

template <class Node>
void vectorPathsMatchScalarBitForBit()
{
    const int h = 3;
    for (int w : {1, 3, 7, 8, 9, 15, 16, 17, 31, 33, 64, 101}) {
        const auto a = murmex_test::mixedPlane(w, h, 100 + w);
        const auto b = murmex_test::mixedPlane(w, h, 200 + w);
        std::vector<float> scalar;
        murmex_test::forEachSIMDPath([&](const murmex_test::SIMDPath& p) {
            const auto got = pullNode<Node>(w, h, a, b);
            if (!p.enabled)
                scalar = got;
            else
                EXPECT_TRUE(murmex_test::sameBits(scalar.data(), got.data(), w * h)) << p.name() << ", width " << w;
        });
    }
}

}  // namespace binary_node_checks
