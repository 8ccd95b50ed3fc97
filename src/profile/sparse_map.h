// JSparseMap: a fixed set of reference points (records) in a 3-D colour space
// that gathers scattered samples onto the nearest record and then fills the
// records that received none by inverse-distance interpolation.
//
// Fill of an unsampled record t from the sampled records r (count > 0), all in
// single precision, running sums in record order:
//   S = 1e-10 + sum dist(r, t);  d = dist(r, t) / S;  w = 1 / (d*d*d + 1e-10)
//   value = (sum w*value) / max(sum w, 1e-38)
// Filled records keep count 0, so they never feed the records filled after them.
#pragma once

#include <cstdint>
#include <vector>

struct JSparseMapRecord {
    float x;
    float y;
    float z;
    float value;
    int32_t count;
};

class JSparseMap {
public:
    using DistanceFunc = float (*)(JSparseMapRecord&, JSparseMapRecord&);

    // No records; the squared Euclidean distance.
    JSparseMap();

    // (x1-x2)^2 + (y1-y2)^2 + (z1-z2)^2, summed in that order.
    static float squaredDistance(JSparseMapRecord& a, JSparseMapRecord& b);

    void setDistanceFunc(DistanceFunc f);

    // Appends a record at (x, y, z) with value 0 and count 0.
    void addRecord(float x, float y, float z);
    int recordCount() const;
    // Throws JEx for an index outside the records.
    JSparseMapRecord& getRecord(int i);

    // Value and count of every record to 0; the records stay.
    void beginSampling();
    void clear();

    // Nearest record: value += v, count += 1.
    void addSampleMean(float x, float y, float z, float v);
    // Nearest record: count = 1, value = v when v >= value. Values start at 0,
    // so negative samples never win.
    void addSampleMax(float x, float y, float z, float v);

    // Divides sums by counts, then fills the unsampled records (see above).
    void endSampling();

    // Index of the record nearest to (x, y, z): the first of equally near
    // records wins. Throws JEx when the map has no records.
    int nearestRecord(float x, float y, float z);

private:
    std::vector<JSparseMapRecord> records_;
    DistanceFunc distance_;
};
