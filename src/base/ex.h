// JEx: the one exception the engine throws on purpose. Its message has passed
// through QObject::tr (file errors are built with arg()).
#pragma once

#include <stdexcept>

#include "base/qtless/qstring.h"

class JEx : public std::runtime_error {
public:
    explicit JEx(const qtless::QString& message) : std::runtime_error(message.utf8()) {}
};
