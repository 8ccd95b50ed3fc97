#include "denoise/raster/add.h"

#include <gtest/gtest.h>

#include "denoise/raster/binary_node_checks.h"
#include "support/plane_node.h"
#include "support/planes.h"

using murmex_test::PlaneNode;

namespace {

const auto kSum = [](float a, float b) { return a + b; };

}  // namespace

TEST(AddTest, EveryPixelIsTheSumOnEveryPath)
{
    binary_node_checks::everyPixelIsTheOperationOnEveryPath<JIncrRaster_Add>(kSum);
}

TEST(AddTest, HandDerivedValues)
{
    PlaneNode a(4, 1, std::vector<float>{5.0f, 0.25f, -1.0f, 16777216.0f});
    PlaneNode b(4, 1, std::vector<float>{2.0f, 0.5f, 1.0f, 1.0f});
    JIncrRaster_Add node(a, b);
    const auto got = murmex_test::pullPlane(node);
    // 2^24 + 1 rounds to even, back to 2^24.
    EXPECT_EQ(got, (std::vector<float>{7.0f, 0.75f, 0.0f, 16777216.0f}));
}

TEST(AddTest, SizeIsThatOfTheFirstInput)
{
    binary_node_checks::sizeIsThatOfTheFirstInput<JIncrRaster_Add>();
}

TEST(AddTest, MirroredRowsAtTopAndBottomReadTheMirroredInputRows)
{
    binary_node_checks::mirroredRowsReadTheMirroredInputRows<JIncrRaster_Add>(kSum);
}

TEST(AddTest, OutputMarginsMirrorTheRow)
{
    binary_node_checks::outputMarginsMirrorTheRow<JIncrRaster_Add>();
}

TEST(AddTest, EveryInputRowIsReleasedAfterAFullPull)
{
    binary_node_checks::everyInputRowIsReleasedAfterAFullPull<JIncrRaster_Add>();
}

TEST(AddTest, VectorPathsMatchScalarBitForBit)
{
    binary_node_checks::vectorPathsMatchScalarBitForBit<JIncrRaster_Add>();
}
