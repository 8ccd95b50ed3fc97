#include "base/qtless/qobject.h"
#include "base/qtless/qstring.h"

#include <cstdio>
#include <limits>
#include <stdexcept>

#include <gtest/gtest.h>

using qtless::QObject;
using qtless::QString;

TEST(QStringTest, NullPointerGivesEmptyStringEqualToEmptyTextAndNull)
{
    const QString s(static_cast<const char*>(nullptr));
    EXPECT_TRUE(s.isEmpty());
    EXPECT_EQ(s.length(), 0);
    EXPECT_TRUE(s == "");
    EXPECT_TRUE(s == static_cast<const char*>(nullptr));
    EXPECT_TRUE(static_cast<const char*>(nullptr) == s);
    EXPECT_FALSE(QString("a") == static_cast<const char*>(nullptr));
    EXPECT_TRUE(QString("a") != static_cast<const char*>(nullptr));
}

TEST(QStringTest, ArgReplacesFirstPercentAndFollowingCharacter)
{
    EXPECT_EQ(QString("a%1b").arg(QString("X")), QString("aXb"));
    EXPECT_EQ(QString("a%b").arg(QString("X")), QString("aX"));
}

TEST(QStringTest, ArgOnTrailingPercentThrowsOutOfRange)
{
    EXPECT_THROW(QString("50%").arg(QString("X")), std::out_of_range);
}

TEST(QStringTest, ArgWithoutPercentReturnsTextUnchanged)
{
    EXPECT_EQ(QString("plain").arg(QString("X")), QString("plain"));
}

TEST(QStringTest, ArgFindsPercentInsertedByEarlierArg)
{
    EXPECT_EQ(QString("%1 and %2").arg(QString("5%")).arg(QString("Z")), QString("5Zand %2"));
}

TEST(QStringTest, ArgChainFillsPlaceholdersInOrder)
{
    EXPECT_EQ(QString("Error opening %1: %2").arg(QString("/x")).arg(QString("No such file")),
              QString("Error opening /x: No such file"));
    EXPECT_EQ(QString("%1-%2").arg(7).arg(-3), QString("7--3"));
}

TEST(QStringTest, NumberFormatsLikePrintf)
{
    EXPECT_EQ(QString::number(2.5), QString("2.500000"));
    EXPECT_EQ(QString::number(-3), QString("-3"));
    char buf[64];
    std::snprintf(buf, sizeof buf, "%f", 1.0 / 0.0);
    EXPECT_EQ(QString::number(1.0 / 0.0), QString(buf));
    const double nan = std::numeric_limits<double>::quiet_NaN();
    std::snprintf(buf, sizeof buf, "%f", nan);
    EXPECT_EQ(QString::number(nan), QString(buf));
    std::snprintf(buf, sizeof buf, "%f", -1.0 / 0.0);
    EXPECT_EQ(QString::number(-1.0 / 0.0), QString(buf));
}

TEST(QStringTest, SprintfReturnsNewStringAndLeavesReceiverUnchanged)
{
    const QString s("keep");
    const QString r = s.sprintf("%s-%03d", "x", 7);
    EXPECT_EQ(r, QString("x-007"));
    EXPECT_EQ(s, QString("keep"));
    const QString longer = s.sprintf("%0200d", 1);
    EXPECT_EQ(longer.length(), 200);
}

TEST(QStringTest, LowerChangesOnlyAsciiLetters)
{
    const QString s("\xC3\x84" "Bc \xC3\x96" "Z");  // "ÄBc ÖZ" in UTF-8
    EXPECT_EQ(s.lower(), QString("\xC3\x84" "bc \xC3\x96" "z"));
}

TEST(QStringTest, AppendingZeroCharacterAppendsNothing)
{
    QString s("ab");
    s += '\0';
    EXPECT_EQ(s.length(), 2);
    s += 'c';
    EXPECT_EQ(s, QString("abc"));
}

TEST(QStringTest, ConcatenationAndComparison)
{
    EXPECT_EQ(QString("ab") + "cd", QString("abcd"));
    EXPECT_EQ("ab" + QString("cd"), QString("abcd"));
    EXPECT_EQ(QString("ab") + QString("cd"), QString("abcd"));
    EXPECT_NE(QString("ab"), QString("abc"));
    EXPECT_NE(QString("abc"), QString("ab"));
    QString s("x");
    s += static_cast<const char*>(nullptr);
    s += "y";
    s += QString("z");
    EXPECT_EQ(s, QString("xyz"));
    EXPECT_STREQ(s.utf8(), "xyz");
    EXPECT_STREQ(s.ascii(), "xyz");
    EXPECT_STREQ(static_cast<const char*>(s), "xyz");
    EXPECT_EQ(s.at(1), 'y');
}

TEST(QObjectTest, TrReturnsTextUnchanged)
{
    EXPECT_EQ(QObject::tr("Profiling image..."), QString("Profiling image..."));
    EXPECT_EQ(QObject::tr("x", "a comment"), QString("x"));
}
