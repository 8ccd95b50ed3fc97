#include "profile/sparse_map.h"

#include "base/ex.h"
#include "base/qtless/qobject.h"

using qtless::QObject;

JSparseMap::JSparseMap() : distance_(&JSparseMap::squaredDistance) {}

float JSparseMap::squaredDistance(JSparseMapRecord& a, JSparseMapRecord& b)
{
    const float dx = a.x - b.x;
    const float dy = a.y - b.y;
    const float dz = a.z - b.z;
    return dx * dx + dy * dy + dz * dz;
}

void JSparseMap::setDistanceFunc(DistanceFunc f)
{
    distance_ = f;
}

void JSparseMap::addRecord(float x, float y, float z)
{
    records_.push_back(JSparseMapRecord{x, y, z, 0.0f, 0});
}

int JSparseMap::recordCount() const
{
    return static_cast<int>(records_.size());
}

JSparseMapRecord& JSparseMap::getRecord(int i)
{
    if (i < 0 || i >= recordCount())
        throw JEx(QObject::tr("Sparse map record %1 out of range").arg(i));
    return records_[static_cast<size_t>(i)];
}

void JSparseMap::beginSampling()
{
    for (JSparseMapRecord& r : records_) {
        r.value = 0.0f;
        r.count = 0;
    }
}

void JSparseMap::clear()
{
    beginSampling();
}

int JSparseMap::nearestRecord(float x, float y, float z)
{
    // Sampling an empty map has no record to land on.
    if (records_.empty())
        throw JEx(QObject::tr("Sparse map has no records"));
    JSparseMapRecord probe{x, y, z, 0.0f, 0};
    int best = 0;
    float bestDist = distance_(records_[0], probe);
    for (size_t i = 1; i < records_.size(); ++i) {
        const float d = distance_(records_[i], probe);
        if (d < bestDist) {
            bestDist = d;
            best = static_cast<int>(i);
        }
    }
    return best;
}

void JSparseMap::addSampleMean(float x, float y, float z, float v)
{
    JSparseMapRecord& r = records_[static_cast<size_t>(nearestRecord(x, y, z))];
    r.value += v;
    r.count += 1;
}

void JSparseMap::addSampleMax(float x, float y, float z, float v)
{
    JSparseMapRecord& r = records_[static_cast<size_t>(nearestRecord(x, y, z))];
    r.count = 1;
    if (v >= r.value)
        r.value = v;
}

void JSparseMap::endSampling()
{
    for (JSparseMapRecord& r : records_) {
        if (r.count > 0)
            r.value = r.value / static_cast<float>(r.count);
    }

    for (JSparseMapRecord& target : records_) {
        if (target.count != 0)
            continue;
        float s = 1e-10f;
        for (JSparseMapRecord& r : records_) {
            if (r.count > 0)
                s += distance_(r, target);
        }
        float sumWV = 0.0f;
        float sumW = 0.0f;
        for (JSparseMapRecord& r : records_) {
            if (r.count <= 0)
                continue;
            const float d = distance_(r, target) / s;
            const float w = 1.0f / (d * d * d + 1e-10f);
            sumWV += w * r.value;
            sumW += w;
        }
        if (!(sumW > 1e-38f))
            sumW = 1e-38f;
        target.value = sumWV / sumW;
    }
}
