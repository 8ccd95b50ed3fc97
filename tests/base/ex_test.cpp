#include "base/ex.h"

#include <stdexcept>
#include <type_traits>

#include <gtest/gtest.h>

#include "base/qtless/qobject.h"

TEST(ExTest, IsAStandardRuntimeError)
{
    static_assert(std::is_base_of_v<std::runtime_error, JEx>);
    try {
        throw JEx(qtless::QObject::tr("Error opening %1: %2").arg(qtless::QString("/p")).arg(qtless::QString("why")));
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Error opening /p: why");
        return;
    }
    FAIL() << "not caught as std::runtime_error";
}

TEST(ExTest, WhatReturnsTheMessageBytesUnchanged)
{
    const JEx e(qtless::QString("caf\xC3\xA9 100%"));
    EXPECT_STREQ(e.what(), "caf\xC3\xA9 100%");
}
