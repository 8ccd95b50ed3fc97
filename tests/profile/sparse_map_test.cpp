#include "profile/sparse_map.h"

#include <cmath>

#include <gtest/gtest.h>

#include "base/ex.h"

namespace {

float manhattan(JSparseMapRecord& a, JSparseMapRecord& b)
{
    return std::fabs(a.x - b.x) + std::fabs(a.y - b.y) + std::fabs(a.z - b.z);
}

// Looks only at z: a sample lands on the record closest in z, however far in x.
float zOnly(JSparseMapRecord& a, JSparseMapRecord& b)
{
    return std::fabs(a.z - b.z);
}

}  // namespace

TEST(SparseMapTest, NewMapHasNoRecords)
{
    JSparseMap map;
    EXPECT_EQ(map.recordCount(), 0);
}

TEST(SparseMapTest, AddRecordStartsAtValueZeroCountZero)
{
    JSparseMap map;
    map.addRecord(0.25f, 0.5f, 0.75f);
    ASSERT_EQ(map.recordCount(), 1);
    const JSparseMapRecord& r = map.getRecord(0);
    EXPECT_EQ(r.x, 0.25f);
    EXPECT_EQ(r.y, 0.5f);
    EXPECT_EQ(r.z, 0.75f);
    EXPECT_EQ(r.value, 0.0f);
    EXPECT_EQ(r.count, 0);
}

TEST(SparseMapTest, GetRecordOutsideTheRecordsThrows)
{
    JSparseMap map;
    map.addRecord(0, 0, 0);
    EXPECT_THROW(map.getRecord(1), JEx);
    EXPECT_THROW(map.getRecord(-1), JEx);
}

TEST(SparseMapTest, SamplingAMapWithoutRecordsThrows)
{
    JSparseMap map;
    EXPECT_THROW(map.addSampleMean(0, 0, 0, 1), JEx);
    EXPECT_THROW(map.addSampleMax(0, 0, 0, 1), JEx);
}

TEST(SparseMapTest, MapWithoutSamplesEndsWithAllValuesZero)
{
    JSparseMap map;
    map.addRecord(0, 0, 0);
    map.addRecord(1, 0, 0);
    map.addRecord(0, 1, 0);
    map.beginSampling();
    map.endSampling();
    for (int i = 0; i < map.recordCount(); ++i) {
        EXPECT_EQ(map.getRecord(i).value, 0.0f) << i;
        EXPECT_EQ(map.getRecord(i).count, 0) << i;
    }
}

TEST(SparseMapTest, AddSampleMaxWithOnlyNegativeSamplesKeepsValueZeroCountOne)
{
    JSparseMap map;
    map.addRecord(0, 0, 0);
    map.beginSampling();
    map.addSampleMax(0, 0, 0, -3.0f);
    map.addSampleMax(0.1f, 0, 0, -0.5f);
    EXPECT_EQ(map.getRecord(0).value, 0.0f);
    EXPECT_EQ(map.getRecord(0).count, 1);
    map.endSampling();
    EXPECT_EQ(map.getRecord(0).value, 0.0f);
}

TEST(SparseMapTest, AddSampleMaxKeepsTheLargestSample)
{
    JSparseMap map;
    map.addRecord(0, 0, 0);
    map.beginSampling();
    map.addSampleMax(0, 0, 0, 2.0f);
    map.addSampleMax(0, 0, 0, 5.0f);
    map.addSampleMax(0, 0, 0, 3.0f);
    EXPECT_EQ(map.getRecord(0).value, 5.0f);
    EXPECT_EQ(map.getRecord(0).count, 1);
}

TEST(SparseMapTest, EqualDistanceGoesToTheLowerIndex)
{
    JSparseMap map;
    map.addRecord(0, 0, 0);
    map.addRecord(2, 0, 0);
    map.beginSampling();
    map.addSampleMean(1, 0, 0, 7.0f);
    EXPECT_EQ(map.getRecord(0).count, 1);
    EXPECT_EQ(map.getRecord(0).value, 7.0f);
    EXPECT_EQ(map.getRecord(1).count, 0);

    // The same holds for two records at one point, whichever comes later.
    JSparseMap twins;
    twins.addRecord(5, 5, 5);
    twins.addRecord(1, 1, 1);
    twins.addRecord(1, 1, 1);
    twins.beginSampling();
    twins.addSampleMean(1, 1, 1, 1.0f);
    EXPECT_EQ(twins.getRecord(1).count, 1);
    EXPECT_EQ(twins.getRecord(2).count, 0);
}

TEST(SparseMapTest, AStrictlyCloserLaterRecordWins)
{
    JSparseMap map;
    map.addRecord(0, 0, 0);
    map.addRecord(1, 0, 0);
    map.beginSampling();
    map.addSampleMean(0.6f, 0, 0, 1.0f);
    EXPECT_EQ(map.getRecord(0).count, 0);
    EXPECT_EQ(map.getRecord(1).count, 1);
}

TEST(SparseMapTest, MeanSamplingAveragesTheSamplesOfARecord)
{
    JSparseMap map;
    map.addRecord(0, 0, 0);
    map.addRecord(10, 0, 0);
    map.beginSampling();
    map.addSampleMean(0, 0, 0, 1.0f);
    map.addSampleMean(0.5f, 0, 0, 2.0f);
    map.addSampleMean(-1, 0, 0, 6.0f);
    map.addSampleMean(9, 0, 0, 4.0f);
    EXPECT_EQ(map.getRecord(0).count, 3);
    EXPECT_EQ(map.getRecord(0).value, 9.0f);
    map.endSampling();
    EXPECT_EQ(map.getRecord(0).value, 3.0f);
    EXPECT_EQ(map.getRecord(1).value, 4.0f);
}

TEST(SparseMapTest, BeginSamplingAndClearResetValuesAndCounts)
{
    JSparseMap map;
    map.addRecord(0, 0, 0);
    map.addSampleMean(0, 0, 0, 4.0f);
    map.beginSampling();
    EXPECT_EQ(map.getRecord(0).value, 0.0f);
    EXPECT_EQ(map.getRecord(0).count, 0);
    map.addSampleMean(0, 0, 0, 4.0f);
    map.clear();
    EXPECT_EQ(map.getRecord(0).value, 0.0f);
    EXPECT_EQ(map.getRecord(0).count, 0);
    EXPECT_EQ(map.recordCount(), 1);
}

TEST(SparseMapTest, FillWithTheDefaultSquaredDistance)
{
    // Squared distances 1 and 9 from the empty record, S = 10, so d = 0.1 and
    // 0.9 and the weights are 1/0.001 and 1/0.729.
    JSparseMap map;
    map.addRecord(0, 0, 0);
    map.addRecord(4, 0, 0);
    map.addRecord(1, 0, 0);
    map.beginSampling();
    map.addSampleMean(0, 0, 0, 2.0f);
    map.addSampleMean(4, 0, 0, 8.0f);
    map.endSampling();
    const double expected = (2.0 / 0.001 + 8.0 / 0.729) / (1.0 / 0.001 + 1.0 / 0.729);
    EXPECT_NEAR(map.getRecord(2).value, expected, 1e-5);
    EXPECT_EQ(map.getRecord(2).count, 0);
}

TEST(SparseMapTest, FillWithACustomDistanceFunction)
{
    // Manhattan distances 1 and 3, S = 4, d = 1/4 and 3/4, weights 64 and
    // 64/27: value = (2 + 8/27) / (1 + 1/27) = 62/28 = 31/14.
    JSparseMap map;
    map.setDistanceFunc(&manhattan);
    map.addRecord(0, 0, 0);
    map.addRecord(4, 0, 0);
    map.addRecord(1, 0, 0);
    map.beginSampling();
    map.addSampleMean(0, 0, 0, 2.0f);
    map.addSampleMean(4, 0, 0, 8.0f);
    map.endSampling();
    EXPECT_NEAR(map.getRecord(2).value, 31.0 / 14.0, 1e-5);
}

TEST(SparseMapTest, CustomDistanceChoosesTheNearestRecord)
{
    JSparseMap map;
    map.setDistanceFunc(&zOnly);
    map.addRecord(0, 0, 0);
    map.addRecord(100, 0, 1);
    map.beginSampling();
    map.addSampleMean(100, 0, 0.1f, 1.0f);
    EXPECT_EQ(map.getRecord(0).count, 1);
    EXPECT_EQ(map.getRecord(1).count, 0);
}

TEST(SparseMapTest, FilledRecordsNeverFeedLaterOnes)
{
    const float pts[4] = {0.0f, 10.0f, 1.0f, 1.1f};
    const float vals[2] = {0.0f, 10.0f};
    JSparseMap map;
    for (float p : pts)
        map.addRecord(p, 0, 0);
    map.beginSampling();
    map.addSampleMean(pts[0], 0, 0, vals[0]);
    map.addSampleMean(pts[1], 0, 0, vals[1]);
    map.endSampling();

    // Each empty record is interpolated from records 0 and 1 only, with
    // single-precision sums in record order.
    for (int t = 2; t < 4; ++t) {
        float d2[2];
        for (int r = 0; r < 2; ++r) {
            const float dx = pts[r] - pts[t];
            d2[r] = dx * dx + 0.0f * 0.0f + 0.0f * 0.0f;
        }
        float s = 1e-10f;
        s += d2[0];
        s += d2[1];
        float sumWV = 0.0f, sumW = 0.0f;
        for (int r = 0; r < 2; ++r) {
            const float d = d2[r] / s;
            const float w = 1.0f / (d * d * d + 1e-10f);
            sumWV += w * vals[r];
            sumW += w;
        }
        EXPECT_EQ(map.getRecord(t).value, sumWV / sumW) << t;
        EXPECT_EQ(map.getRecord(t).count, 0) << t;
    }
}
