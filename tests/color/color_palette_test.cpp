#include "color/color_palette.h"

#include <cmath>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

JLabCoord labOf(float r, float g, float b)
{
    JLabCoord c;
    c.fromRGB(r, g, b);
    return c;
}

void expectEntry(int row, int col, float r, float g, float b)
{
    JLabCoord want = labOf(r, g, b);
    JLabCoord got = JColorPalette::getPalette()->getColor(row, col);
    EXPECT_EQ(got.L, want.L) << "row " << row << " col " << col;
    EXPECT_EQ(got.a, want.a) << "row " << row << " col " << col;
    EXPECT_EQ(got.b, want.b) << "row " << row << " col " << col;
}

}  // namespace

TEST(ColorPaletteTest, HasSixRowsAndTwelveColumns)
{
    JColorPalette* p = JColorPalette::getPalette();
    EXPECT_EQ(p->nrows(), 6);
    EXPECT_EQ(p->ncols(), 12);
}

TEST(ColorPaletteTest, GetPaletteReturnsSameObjectOnEveryCall)
{
    JColorPalette* a = JColorPalette::getPalette();
    JColorPalette* b = JColorPalette::getPalette();
    EXPECT_EQ(a, b);
}

TEST(ColorPaletteThreadTest, FirstCallsFromSeveralThreadsShareOnePalette)
{
    std::vector<JColorPalette*> got(8, nullptr);
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; i++)
        threads.emplace_back([&got, i] { got[i] = JColorPalette::getPalette(); });
    for (auto& t : threads)
        t.join();
    for (int i = 0; i < 8; i++)
        EXPECT_EQ(got[i], JColorPalette::getPalette());
}

TEST(ColorPaletteTest, MiddleColumnsFollowTheirVariations)
{
    // Column 4 is green (0, 1, 0).
    expectEntry(0, 4, 0.0f, 0.4f, 0.0f);      // shade 0.4
    expectEntry(1, 4, 0.35f, 0.65f, 0.35f);   // greyMix 0.3: 0.3 c + 0.35
    expectEntry(2, 4, 0.0f, 0.8f, 0.0f);      // shade 0.8
    expectEntry(3, 4, 0.0f, 1.0f, 0.0f);      // shade 1.0
    expectEntry(4, 4, 0.5f, 1.0f, 0.5f);      // shade 1.5: k = 0.5
    expectEntry(5, 4, 0.8f, 1.0f, 0.8f);      // shade 1.8: k = 0.8
    // Column 8 is blue (0, 0, 1).
    expectEntry(3, 8, 0.0f, 0.0f, 1.0f);
    expectEntry(0, 8, 0.0f, 0.0f, 0.4f);
}

TEST(ColorPaletteTest, RedColumnFollowsItsOwnVariations)
{
    expectEntry(0, 0, 0.3f, 0.0f, 0.0f);      // shade 0.3
    expectEntry(1, 0, 0.7f, 0.0f, 0.0f);      // shade 0.7
    expectEntry(2, 0, 0.65f, 0.35f, 0.35f);   // greyMix 0.3
    expectEntry(4, 0, 1.0f, 0.5f, 0.5f);      // shade 1.5
}

TEST(ColorPaletteTest, GreyColumnUsesShadesOnly)
{
    expectEntry(0, 11, 0.05f, 0.05f, 0.05f);  // shade 0.1 of 0.5
    expectEntry(1, 11, 0.25f, 0.25f, 0.25f);  // shade 0.5
    expectEntry(2, 11, 0.45f, 0.45f, 0.45f);  // shade 0.9
    expectEntry(4, 11, 0.8f, 0.8f, 0.8f);     // shade 1.6: 0.6 + 0.4 * 0.5
}

TEST(ColorPaletteTest, BaseColoursAreFloatValuesPromotedToDouble)
{
    // Column 3 is (0.7f, 1, 0): its shade 0.4 mixes the float 0.7f in double.
    float r = static_cast<float>(static_cast<double>(0.7f) * 0.4);
    expectEntry(0, 3, r, 0.4f, 0.0f);
}

TEST(ColorPaletteTest, NearestEntryOfOwnValueIsThatEntry)
{
    JColorPalette* p = JColorPalette::getPalette();
    for (int row = 0; row < p->nrows(); row++) {
        for (int col = 0; col < p->ncols(); col++) {
            JLabCoord c = p->getColor(row, col);
            int r = -1, k = -1;
            JLabCoord got = p->findNearestEntry(c, r, k);
            EXPECT_EQ(r, row);
            EXPECT_EQ(k, col);
            EXPECT_TRUE(got == c);
        }
    }
}

TEST(ColorPaletteTest, PureRedIsNotAnEntry)
{
    JColorPalette* p = JColorPalette::getPalette();
    JLabCoord red = labOf(1.0f, 0.0f, 0.0f);
    int row = -1, col = -1;
    JLabCoord got = p->findNearestEntry(red, row, col);
    EXPECT_GT(got.deltaESqr(red), 0.0f);
    for (int r = 0; r < p->nrows(); r++)
        for (int c = 0; c < p->ncols(); c++)
            EXPECT_FALSE(p->getColor(r, c) == red);
}

TEST(ColorPaletteTest, NearestEntryScansRowsThenColumnsWithStrictComparison)
{
    JColorPalette* p = JColorPalette::getPalette();
    // A literal scan, rows outside and columns inside, strict improvement only.
    JLabCoord probe(55.0f, 10.0f, -20.0f);
    float best = 1e38f;
    int wantRow = -1, wantCol = -1;
    for (int r = 0; r < 6; r++) {
        for (int c = 0; c < 12; c++) {
            JLabCoord e = p->getColor(r, c);
            float dL = e.L - probe.L, da = e.a - probe.a, db = e.b - probe.b;
            float d = dL * dL + da * da + db * db;
            if (d < best) {
                best = d;
                wantRow = r;
                wantCol = c;
            }
        }
    }
    int row = -1, col = -1;
    p->findNearestEntry(probe, row, col);
    EXPECT_EQ(row, wantRow);
    EXPECT_EQ(col, wantCol);
}

TEST(ColorPaletteTest, NearestEntryWithNaNLeavesRowAndColumnUnchanged)
{
    JColorPalette* p = JColorPalette::getPalette();
    JLabCoord probe(std::nanf(""), 0.0f, 0.0f);
    int row = 42, col = 17;
    p->findNearestEntry(probe, row, col);
    EXPECT_EQ(row, 42);
    EXPECT_EQ(col, 17);
}
