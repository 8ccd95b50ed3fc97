#include "base/qtless/qbuffer.h"

#include <gtest/gtest.h>

using qtless::QBuffer;
using qtless::QByteArray;

TEST(QBufferTest, BufferReturnsASharedCopy)
{
    QByteArray a(2);
    QBuffer b(a);
    QByteArray c = b.buffer();
    EXPECT_EQ(c.data(), a.data());
    EXPECT_EQ(a.shareCount(), 3);
    QBuffer empty;
    EXPECT_TRUE(empty.buffer().isNull());
    empty.setBuffer(a);
    EXPECT_EQ(empty.buffer().data(), a.data());
}
