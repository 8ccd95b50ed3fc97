#include "profile/header_choices.h"

#include <mutex>

#include "base/qtless/qobject.h"
#include "profile/enum_names.h"

using qtless::QObject;
using qtless::QString;

namespace {

struct Tables {
    std::vector<JEnumName> illuminants;
    std::vector<JEnumName> quality;
    std::vector<JEnumName> levelWords;
    std::vector<JEnumName> multisampling;
    std::vector<JEnumName> temperature;
    std::vector<JEnumName> shutterSpeed;
    std::vector<JEnumName> exposureComp;
    std::vector<QString> colorSpaces;
    std::vector<QString> isoChoices;
};

Tables& tables()
{
    static Tables t;
    return t;
}

std::once_flag initOnce;

// Rows whose code is their position in the list.
std::vector<JEnumName> byPosition(std::initializer_list<const char*> names)
{
    std::vector<JEnumName> rows;
    int code = 0;
    for (const char* n : names)
        rows.push_back({code++, QObject::tr(n)});
    return rows;
}

void fill()
{
    JEnumNames::init();
    Tables& t = tables();
    t.illuminants = JEnumNames::lightSources();
    t.quality = {
        {1, QObject::tr("RAW/Tiff")},
        {2, QObject::tr("JPEG Fine")},
        {3, QObject::tr("JPEG Medium")},
        {4, QObject::tr("JPEG Coarse")},
    };
    t.levelWords = {
        {1, QObject::tr("Lowest")}, {2, QObject::tr("Low")},     {3, QObject::tr("Medium")},
        {4, QObject::tr("High")},   {5, QObject::tr("Highest")},
    };
    t.multisampling = {
        {1, QObject::tr("1X")}, {2, QObject::tr("2X")},   {4, QObject::tr("4X")},
        {8, QObject::tr("8X")}, {12, QObject::tr("12X")}, {16, QObject::tr("16X")},
    };
    t.temperature = byPosition({"-30C/-22F", "-25C/-17F", "-20C/-4F", "-15C/5F", "-10C/14F", "-5C/23F",
                                "0C/32F", "5C/41F", "10C/50F", "15C/59F", "20C/68F", "25C/77F", "30C/86F",
                                "35C/95F", "40C/104F", "45C/113F", "50C/122F"});
    t.shutterSpeed = byPosition({"1/8000", "1/4000", "1/2000", "1/1000", "1/500", "1/250", "1/125", "1/60",
                                 "1/30", "1/15", "1/8", "1/4", "1/2", "1 sec", "2 sec", "4 sec", "8 sec",
                                 "15 sec", "30 sec", "1 min", "2 min", "4 min", "8 min", "15 min"});
    t.exposureComp = byPosition({"-3.00 stops", "-2.67 stops", "-2.50 stops", "-2.33 stops", "-2.00 stops",
                                 "-1.67 stops", "-1.50 stops", "-1.33 stops", "-1.00 stops", "-0.67 stops",
                                 "-0.50 stops", "-0.33 stops", " 0.00 stops", "+0.33 stops", "+0.50 stops",
                                 "+0.67 stops", "+1.00 stops", "+1.33 stops", "+1.50 stops", "+1.67 stops",
                                 "+2.00 stops", "+2.33 stops", "+2.50 stops", "+2.67 stops", "+3.00 stops"});
    for (const char* n : {"Adobe RGB", "Apple RGB", "Best RGB", "Beta RGB", "Bruce RGB", "CIE RGB",
                          "ColorMatch RGB", "Don RGB", "ECI RGB", "EktaSpace", "NTSC RGB", "PAL/SECAM RGB",
                          "ProPhoto RGB", "SMPTE-C RGB", "sRGB", "Wide Gamut RGB"})
        t.colorSpaces.push_back(QObject::tr(n));
    for (const char* n : {"1000", "1200", "1600", "2000", "2400", "3200", "4000", "4800", "6400", "8000", "9600",
                          "12800"})
        t.isoChoices.push_back(QObject::tr(n));
}

}  // namespace

void JHeaderChoices::init()
{
    std::call_once(initOnce, fill);
}

std::vector<JEnumName>& JHeaderChoices::illuminants()
{
    init();
    return tables().illuminants;
}

std::vector<JEnumName>& JHeaderChoices::quality()
{
    init();
    return tables().quality;
}

std::vector<JEnumName>& JHeaderChoices::levelWords()
{
    init();
    return tables().levelWords;
}

std::vector<JEnumName>& JHeaderChoices::multisampling()
{
    init();
    return tables().multisampling;
}

std::vector<JEnumName>& JHeaderChoices::temperature()
{
    init();
    return tables().temperature;
}

std::vector<JEnumName>& JHeaderChoices::shutterSpeed()
{
    init();
    return tables().shutterSpeed;
}

std::vector<JEnumName>& JHeaderChoices::exposureComp()
{
    init();
    return tables().exposureComp;
}

std::vector<QString>& JHeaderChoices::colorSpaces()
{
    init();
    return tables().colorSpaces;
}

std::vector<QString>& JHeaderChoices::isoChoices()
{
    init();
    return tables().isoChoices;
}

QString JHeaderChoices::temperatureText(float celsius)
{
    const double c = celsius;
    return QString().sprintf("%0.0fC/%0.0fF", c, c * 9.0 / 5.0 + 32.0);
}

QString JHeaderChoices::shutterSpeedText(float seconds)
{
    if (seconds >= 60.0f)
        return QString().sprintf("%0.0f min", static_cast<double>(seconds) / 60.0);
    return QString().sprintf("%0.0f sec", static_cast<double>(seconds));
}

QString JHeaderChoices::exposureCompText(float stops)
{
    return QString().sprintf("%0.2f stops", static_cast<double>(stops));
}
