#include "base/qtless/qfile.h"

#include <gtest/gtest.h>

TEST(QFileTest, CarriesItsPath)
{
    qtless::QFile f("/tmp/x.dnp");
    EXPECT_EQ(f.name(), qtless::QString("/tmp/x.dnp"));
    f.setName("y");
    EXPECT_EQ(f.name(), qtless::QString("y"));
    EXPECT_TRUE(qtless::QFile().name().isEmpty());
}
