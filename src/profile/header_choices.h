// JHeaderChoices: the choice tables for the values of a profile header
// (illuminant, quality, level words, multisampling, temperature, shutter
// speed, exposure compensation, colour space, ISO), with the display text of
// values that are not on a list.
//
// The tables are filled once, on first use from any thread; every accessor
// runs init() first. All names pass through QObject::tr.
#pragma once

#include <vector>

#include "base/qtless/qstring.h"
#include "profile/enum_name.h"

class JHeaderChoices {
public:
    // Calls JEnumNames::init, copies its light-source table into the
    // illuminant table and fills the other tables. Only the first call works.
    static void init();

    static std::vector<JEnumName>& illuminants();
    // 1 "RAW/Tiff", 2 "JPEG Fine", 3 "JPEG Medium", 4 "JPEG Coarse".
    static std::vector<JEnumName>& quality();
    // 1 "Lowest" ... 5 "Highest": sharpness, contrast and saturation codes.
    static std::vector<JEnumName>& levelWords();
    // 1 "1X", 2 "2X", 4 "4X", 8 "8X", 12 "12X", 16 "16X".
    static std::vector<JEnumName>& multisampling();
    // Code = position: -30 C to 50 C in steps of 5 C.
    static std::vector<JEnumName>& temperature();
    // Code = position: "1/8000" to "15 min".
    static std::vector<JEnumName>& shutterSpeed();
    // Code = position 0..24: "-3.00 stops" to "+3.00 stops".
    static std::vector<JEnumName>& exposureComp();
    // Display order.
    static std::vector<qtless::QString>& colorSpaces();
    // The ISO choices above the plain numbers, from "1000" to "12800".
    static std::vector<qtless::QString>& isoChoices();

    // Display texts of values off the lists: "%0.0fC/%0.0fF" (Celsius and
    // Fahrenheit), "%0.0f sec" below a minute and "%0.0f min" from a minute
    // up, "%0.2f stops".
    static qtless::QString temperatureText(float celsius);
    static qtless::QString shutterSpeedText(float seconds);
    static qtless::QString exposureCompText(float stops);
};
