// JEnumNames: the shared name tables for coded camera metadata (EXIF light
// source, contrast, sharpness and saturation codes) and the lookup over them.
#pragma once

#include <vector>

#include "base/qtless/qstring.h"
#include "profile/enum_name.h"

class JEnumNames {
public:
    // Fills the tables. Only the first call does the work; concurrent first
    // calls wait for it, so every caller sees complete tables.
    static void init();

    // The name of the first row, from the front, whose code equals code;
    // fallback when no row matches.
    static qtless::QString lookupName(int code, std::vector<JEnumName>& table, const qtless::QString& fallback);

    // Light sources by EXIF LightSource code, in display order (codes 12-15
    // stand after 24). Names pass through QObject::tr.
    static std::vector<JEnumName>& lightSources();
    // EXIF contrast and sharpness: 0 "Normal", 1 "Soft", 2 "Hard".
    static std::vector<JEnumName>& contrastNames();
    static std::vector<JEnumName>& sharpnessNames();
    // EXIF saturation: 0 "Normal", 1 "Low", 2 "High".
    static std::vector<JEnumName>& saturationNames();
};
