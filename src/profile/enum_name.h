// JEnumName: one row of a name table, a coded value and the word shown for it.
#pragma once

#include "base/qtless/qstring.h"

struct JEnumName {
    int code;
    qtless::QString name;
};
