// JProfileHeader: the descriptive header of a noise profile, which camera and
// which shooting conditions the profile was measured for.
//
// Seventeen optional fields in a fixed order (0 maker ... 16 comment); each is
// a value with its present flag. A default-constructed record has every field
// absent, every number 0 and every string empty. The record is a plain value:
// copying and assignment are member-wise.
#pragma once

#include <cstdint>

#include "base/qtless/qstring.h"

template <class T>
struct JProfileHeaderField {
    T value{};
    bool present = false;

    void set(const T& v)
    {
        value = v;
        present = true;
    }
};

class JProfileHeader {
public:
    static constexpr int kFieldCount = 17;

    JProfileHeaderField<qtless::QString> maker;          // 0
    JProfileHeaderField<qtless::QString> model;          // 1
    JProfileHeaderField<qtless::QString> film;           // 2
    JProfileHeaderField<int32_t> iso;                    // 3
    JProfileHeaderField<int32_t> multisampling;          // 4
    JProfileHeaderField<float> shutterspeed;             // 5
    JProfileHeaderField<float> exposurecomp;             // 6
    JProfileHeaderField<int32_t> megapixels;             // 7
    JProfileHeaderField<int32_t> quality;                // 8, quality table code
    JProfileHeaderField<int32_t> sharpness;              // 9
    JProfileHeaderField<int32_t> illuminant;             // 10, light-source table code
    JProfileHeaderField<int32_t> contrast;               // 11
    JProfileHeaderField<int32_t> saturation;             // 12
    JProfileHeaderField<float> temperature;              // 13
    JProfileHeaderField<qtless::QString> colorspace;     // 14
    JProfileHeaderField<qtless::QString> author;         // 15
    JProfileHeaderField<qtless::QString> comment;        // 16
};
