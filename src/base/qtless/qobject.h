// qtless::QObject::tr marks every user-visible text; it translates nothing.
#pragma once

#include "base/qtless/qstring.h"

namespace qtless {

class QObject {
public:
    static QString tr(const char* text, const char* comment = nullptr)
    {
        (void)comment;
        return QString(text);
    }
};

}  // namespace qtless
