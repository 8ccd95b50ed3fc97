#include "profile/enum_names.h"

#include <mutex>

#include "base/qtless/qobject.h"

using qtless::QObject;
using qtless::QString;

namespace {

struct Tables {
    std::vector<JEnumName> lightSources;
    std::vector<JEnumName> contrast;
    std::vector<JEnumName> sharpness;
    std::vector<JEnumName> saturation;
};

Tables& tables()
{
    static Tables t;
    return t;
}

std::once_flag initOnce;

void fill()
{
    Tables& t = tables();
    t.lightSources = {
        {1, QObject::tr("Daylight")},
        {2, QObject::tr("Fluorescent")},
        {3, QObject::tr("Tungsten")},
        {4, QObject::tr("Flash")},
        {9, QObject::tr("Fine weather")},
        {10, QObject::tr("Cloudy")},
        {11, QObject::tr("Shade")},
        {20, QObject::tr("D55")},
        {21, QObject::tr("D65")},
        {22, QObject::tr("D75")},
        {23, QObject::tr("D50")},
        {24, QObject::tr("ISO studio tungsten")},
        {12, QObject::tr("Fluor. D5700/7100K")},
        {13, QObject::tr("Fluor. N4600/5400K")},
        {14, QObject::tr("Fluor. W3900/4500K")},
        {15, QObject::tr("Fluor. WW3200/3700K")},
        {17, QObject::tr("Standard A")},
        {18, QObject::tr("Standard B")},
        {19, QObject::tr("Standard C")},
        {255, QObject::tr("Other")},
    };
    t.contrast = {{0, QObject::tr("Normal")}, {1, QObject::tr("Soft")}, {2, QObject::tr("Hard")}};
    t.sharpness = {{0, QObject::tr("Normal")}, {1, QObject::tr("Soft")}, {2, QObject::tr("Hard")}};
    t.saturation = {{0, QObject::tr("Normal")}, {1, QObject::tr("Low")}, {2, QObject::tr("High")}};
}

}  // namespace

void JEnumNames::init()
{
    std::call_once(initOnce, fill);
}

QString JEnumNames::lookupName(int code, std::vector<JEnumName>& table, const QString& fallback)
{
    for (const JEnumName& row : table)
        if (row.code == code)
            return row.name;
    return fallback;
}

std::vector<JEnumName>& JEnumNames::lightSources()
{
    init();
    return tables().lightSources;
}

std::vector<JEnumName>& JEnumNames::contrastNames()
{
    init();
    return tables().contrast;
}

std::vector<JEnumName>& JEnumNames::sharpnessNames()
{
    init();
    return tables().sharpness;
}

std::vector<JEnumName>& JEnumNames::saturationNames()
{
    init();
    return tables().saturation;
}
