// qtless::QFile: names a file for a QDataStream, which opens it.
#pragma once

#include "base/qtless/qstring.h"

namespace qtless {

class QFile {
public:
    QFile() = default;
    explicit QFile(const QString& name) : name_(name) {}

    const QString& name() const { return name_; }
    void setName(const QString& name) { name_ = name; }

private:
    QString name_;
};

}  // namespace qtless
