#include "denoise/raster/subtract.h"

#include <gtest/gtest.h>

#include "denoise/raster/binary_node_checks.h"
#include "support/plane_node.h"
#include "support/planes.h"

using murmex_test::PlaneNode;

namespace {

const auto kDifference = [](float a, float b) { return a - b; };

}  // namespace

TEST(SubtractTest, EveryPixelIsTheDifferenceOnEveryPath)
{
    binary_node_checks::everyPixelIsTheOperationOnEveryPath<JIncrRaster_Subtract>(kDifference);
}

TEST(SubtractTest, HandDerivedValues)
{
    PlaneNode a(3, 1, std::vector<float>{5.0f, 0.25f, -1.0f});
    PlaneNode b(3, 1, std::vector<float>{2.0f, 0.5f, -1.0f});
    JIncrRaster_Subtract node(a, b);
    const auto got = murmex_test::pullPlane(node);
    EXPECT_EQ(got, (std::vector<float>{3.0f, -0.25f, 0.0f}));
}

TEST(SubtractTest, SizeIsThatOfTheFirstInput)
{
    binary_node_checks::sizeIsThatOfTheFirstInput<JIncrRaster_Subtract>();
}

TEST(SubtractTest, MirroredRowsAtTopAndBottomReadTheMirroredInputRows)
{
    binary_node_checks::mirroredRowsReadTheMirroredInputRows<JIncrRaster_Subtract>(kDifference);
}

TEST(SubtractTest, OutputMarginsMirrorTheRow)
{
    binary_node_checks::outputMarginsMirrorTheRow<JIncrRaster_Subtract>();
}

TEST(SubtractTest, EveryInputRowIsReleasedAfterAFullPull)
{
    binary_node_checks::everyInputRowIsReleasedAfterAFullPull<JIncrRaster_Subtract>();
}

TEST(SubtractTest, VectorPathsMatchScalarBitForBit)
{
    binary_node_checks::vectorPathsMatchScalarBitForBit<JIncrRaster_Subtract>();
}
