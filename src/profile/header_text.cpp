#include "profile/header_text.h"

#include "base/utils.h"
#include "profile/enum_names.h"
#include "profile/header_choices.h"

using qtless::QString;

namespace {

void element(QString& out, const char* tag, const QString& value, bool newline = true)
{
    out += "  <";
    out += tag;
    out += ">";
    out += value;
    out += "</";
    out += tag;
    out += ">";
    if (newline)
        out += "\n";
}

QString levelName(int code)
{
    return JHeaderText::escape(JEnumNames::lookupName(code, JHeaderChoices::levelWords(), "???"));
}

// The short level word of the file name: 1 "Lo2" ... 5 "Hi2".
const char* shortLevelWord(int code)
{
    switch (code) {
    case 1: return "Lo2";
    case 2: return "Lo1";
    case 3: return "Med";
    case 4: return "Hi1";
    case 5: return "Hi2";
    default: return "???";
    }
}

// Formats prefix and value into a string and drops the result, returning an
// empty string: QString::sprintf leaves the string it is called on unchanged.
// Intended: a non-RAW quality or an unnamed illuminant leaves no trace in a
// file name, and existing profile names depend on that.
QString droppedFormat(const char* prefix, bool withValue, int value)
{
    QString s;
    if (withValue)
        s.sprintf("%s%d", prefix, value);
    else
        s.sprintf("%sX", prefix);
    return s;
}

}  // namespace

QString JHeaderText::escape(const QString& text)
{
    QString out;
    for (int i = 0; i < text.length(); ++i) {
        const char c = text.at(i);
        switch (c) {
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '&': out += "&amp;"; break;
        case '"': out += "&quot;"; break;
        case '\'': out += "&apos;"; break;
        default: out += c; break;
        }
    }
    return out;
}

QString JHeaderText::write(const JProfileHeader& h)
{
    QString out;
    out.reserve(2048);
    out += "\n\n<!-- Automatically generated. DO NOT EDIT. -->\n";
    out += "<profilehdr version=\"2.0\">\n";
    if (h.maker.present)
        element(out, "maker", escape(h.maker.value));
    if (h.model.present)
        element(out, "model", escape(h.model.value));
    if (h.film.present)
        element(out, "film", escape(h.film.value));
    if (h.iso.present)
        element(out, "iso", QString::number(h.iso.value));
    if (h.multisampling.present)
        element(out, "multisampling", QString::number(h.multisampling.value));
    if (h.shutterspeed.present)
        element(out, "shutterspeed", QString::number(static_cast<double>(h.shutterspeed.value)));
    if (h.exposurecomp.present)
        element(out, "exposurecomp", QString::number(static_cast<double>(h.exposurecomp.value)));
    if (h.megapixels.present)
        element(out, "megapixels", QString::number(h.megapixels.value));
    if (h.quality.present)
        element(out, "quality", escape(JEnumNames::lookupName(h.quality.value, JHeaderChoices::quality(), "???")));
    if (h.sharpness.present)
        element(out, "sharpness", levelName(h.sharpness.value));
    if (h.illuminant.present)
        element(out, "illuminant",
                escape(JEnumNames::lookupName(h.illuminant.value, JHeaderChoices::illuminants(), "???")));
    if (h.contrast.present)
        element(out, "contrast", levelName(h.contrast.value));
    // Intended: the saturation element shows the contrast code's word, whatever
    // the contrast flag says. Nothing parses this block; files carry it so.
    if (h.saturation.present)
        element(out, "saturation", levelName(h.contrast.value));
    if (h.temperature.present)
        element(out, "temperature", QString::number(static_cast<double>(h.temperature.value)));
    if (h.colorspace.present)
        element(out, "colorspace", escape(h.colorspace.value));
    if (h.author.present)
        element(out, "author", escape(h.author.value));
    if (h.comment.present)
        element(out, "comment", escape(h.comment.value), false);
    out += "\n</profilehdr>\n";
    return out;
}

QString JHeaderText::autoDirectory(const JProfileHeader& h)
{
    const QString maker = h.maker.present ? h.maker.value : QString();
    const QString model = h.model.present ? h.model.value : QString();
    const QString film = h.film.present ? h.film.value : QString();
    QString dir;
    dir.reserve(1024);
    dir += maker.isEmpty() ? QString("/other") : "/" + maker;
    dir += model.isEmpty() ? QString("/other") : "/" + model;
    if (!film.isEmpty())
        dir += "/" + film;
    return dir;
}

QString JHeaderText::autoFileName(const JProfileHeader& h)
{
    QString name;
    name.reserve(1024);
    name += h.model.present ? h.model.value : QString("unspec");
    if (h.film.present)
        name += "_" + h.film.value;
    if (h.multisampling.present)
        name += "_" + QString::number(h.multisampling.value) + "x";
    if (h.iso.present)
        name += "_iso" + QString::number(h.iso.value);
    if (h.megapixels.present)
        name += "_" + QString::number(h.megapixels.value) + "mp";
    if (h.quality.present)
        name += h.quality.value == 1 ? QString("_raw") : droppedFormat("_q", true, h.quality.value);
    if (h.sharpness.present) {
        name += "_sh";
        name += shortLevelWord(h.sharpness.value);
    }
    if (h.contrast.present) {
        name += "_con";
        name += shortLevelWord(h.contrast.value);
    }
    if (h.saturation.present) {
        name += "_sat";
        name += shortLevelWord(h.saturation.value);
    }
    if (h.temperature.present)
        name += "_tmp" + QString::number(roundToNearest(h.temperature.value));
    if (h.illuminant.present) {
        switch (h.illuminant.value) {
        case 1: name += "_daylight"; break;
        case 2: name += "_flour"; break;
        case 3: name += "_tungsten"; break;
        case 4: name += "_flash"; break;
        case 10: name += "_cloudy"; break;
        default: name += droppedFormat("_illum", true, h.illuminant.value); break;
        }
    }
    // Intended: both speeds and compensations are formatted into a scratch
    // string whose result is dropped, so no shutter speed reaches a name and a
    // present compensation contributes exactly "_eb".
    if (h.shutterspeed.present) {
        QString speed;
        const double s = h.shutterspeed.value;
        if (s >= 1.0)
            speed.sprintf("_%.0fsec", s);
        else
            speed.sprintf("_%.0esec", s);
        name += speed;
    }
    if (h.exposurecomp.present) {
        QString comp;
        comp.sprintf("%0.2f", static_cast<double>(h.exposurecomp.value));
        name += "_eb" + comp;
    }
    QString copy;
    copy.reserve(1024);
    for (int i = 0; i < name.length(); ++i)
        copy += name.at(i);
    if (copy == "unspec")
        copy = "unnamed";
    return copy;
}
