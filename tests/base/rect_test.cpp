#include "base/rect.h"

#include <climits>

#include <gtest/gtest.h>

namespace {

void expectRect(const JRect<int>& r, int l, int t, int rt, int b)
{
    EXPECT_EQ(r.left, l);
    EXPECT_EQ(r.top, t);
    EXPECT_EQ(r.right, rt);
    EXPECT_EQ(r.bottom, b);
}

}  // namespace

TEST(RectTest, DefaultIsAllZeroAndFieldsKeepConstructorOrder)
{
    expectRect(JRect<int>(), 0, 0, 0, 0);
    const JRect<int> r(1, 2, 7, 11);
    expectRect(r, 1, 2, 7, 11);
    EXPECT_EQ(r.width(), 6);
    EXPECT_EQ(r.height(), 9);
    EXPECT_EQ(r.area(), 54);
    JRect<int> c(r);
    expectRect(c, 1, 2, 7, 11);
    c = JRect<int>(3, 3, 4, 4);
    expectRect(c, 3, 3, 4, 4);
}

TEST(RectTest, RectanglesTouchingAlongAnEdgeDoNotIntersect)
{
    EXPECT_FALSE(JRect<int>(0, 0, 10, 10).intersects(JRect<int>(10, 0, 20, 10)));
    EXPECT_FALSE(JRect<int>(0, 0, 10, 10).intersects(JRect<int>(0, 10, 10, 20)));
}

TEST(RectTest, OverlappingCornerIntersects)
{
    EXPECT_TRUE(JRect<int>(0, 0, 10, 10).intersects(JRect<int>(9, 9, 20, 20)));
    EXPECT_TRUE(JRect<int>(9, 9, 20, 20).intersects(JRect<int>(0, 0, 10, 10)));
}

TEST(RectTest, EmptyRectangleIntersectsNothing)
{
    EXPECT_FALSE(JRect<int>(5, 5, 5, 5).intersects(JRect<int>(0, 0, 10, 10)));
    EXPECT_FALSE(JRect<int>(0, 0, 10, 10).intersects(JRect<int>(3, 3, 3, 8)));
}

TEST(RectTest, ScaleMultipliesAllFourFields)
{
    JRect<int> r(1, 2, 3, 4);
    r.scale(2);
    expectRect(r, 2, 4, 6, 8);
}

TEST(RectTest, OffsetMovesLeftRightByDxAndTopBottomByDy)
{
    JRect<int> r(0, 0, 4, 4);
    r.offset(-1, 5);
    expectRect(r, -1, 5, 3, 9);
}

TEST(RectTest, AreaOfOversizedRectangleWrapsWithoutOverflowTrap)
{
    const JRect<int> r(0, 0, 65536, 65537);
    // 65536 * 65537 = 2^32 + 65536, which wraps to 65536 in 32 bits.
    EXPECT_EQ(r.area(), 65536);
}
