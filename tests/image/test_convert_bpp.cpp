#include <gtest/gtest.h>

#include "kevra/dib.h"
#include "support/kevra_test.h"

using namespace kevra;

namespace {
uint16_t sample16(CDibRoot & d, int x, int y)
{
    const uint8_t * p = d.GetPixelPtr(x, y);
    return static_cast<uint16_t>(p[0] | (p[1] << 8));
}
void set16(CDibRoot & d, int x, int y, uint16_t v)
{
    uint8_t * p = d.GetPixelPtr(x, y);
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
}
} // namespace

TEST(ConvertBpp, EightToSixteenMultipliesBy256NotBy257)
{
    CDibRoot src(CSize(3, 1), 8), dst(CSize(3, 1), 16);
    src.GetBits()[0] = 0;
    src.GetBits()[1] = 1;
    src.GetBits()[2] = 255;
    ASSERT_TRUE(dst.CopyToDifferentBpp(src));
    EXPECT_EQ(sample16(dst, 0, 0), 0);
    EXPECT_EQ(sample16(dst, 1, 0), 256);
    EXPECT_EQ(sample16(dst, 2, 0), 65280);
}

TEST(ConvertBpp, SixteenToEightKeepsTheHighByte)
{
    CDibRoot src(CSize(2, 1), 16), dst(CSize(2, 1), 8);
    set16(src, 0, 0, 0x01FF);
    set16(src, 1, 0, 0xFF00);
    ASSERT_TRUE(dst.CopyToDifferentBpp(src));
    EXPECT_EQ(dst.GetBits()[0], 1);
    EXPECT_EQ(dst.GetBits()[1], 255);
}

TEST(ConvertBpp, OddWidthLeavesPaddingAlone)
{
    CDibRoot src(CSize(5, 2), 8), dst(CSize(5, 2), 16);
    for (int i = 0; i < src.Pitch() * 2; ++i)
        src.GetBits()[i] = static_cast<uint8_t>(i + 1);
    for (int i = 0; i < dst.Pitch() * 2; ++i)
        dst.GetBits()[i] = 0xEE;
    ASSERT_TRUE(dst.CopyToDifferentBpp(src));
    for (int y = 0; y < 2; ++y) {
        for (int x = 0; x < 5; ++x)
            EXPECT_EQ(sample16(dst, x, y), (src.GetPixelPtr(x, y)[0]) << 8);
        EXPECT_EQ(dst.GetPixelPtr(0, y)[10], 0xEE);
        EXPECT_EQ(dst.GetPixelPtr(0, y)[11], 0xEE);
    }
    // Back down: the 8-bit padding bytes keep their values.
    CDibRoot down(CSize(5, 2), 8);
    down.GetBits()[5] = 0x77;
    ASSERT_TRUE(down.CopyToDifferentBpp(dst));
    EXPECT_EQ(down.GetBits()[5], 0x77);
    EXPECT_EQ(down.GetBits()[4], 5);
}

TEST(ConvertBpp, SameDepthCopiesPaletteAndPixels)
{
    CDibRoot src(CSize(2, 2), 8), dst(CSize(2, 2), 8);
    src.GetBits()[0] = 42;
    src.GetBits()[-1024 + 4 * 3] = 9;
    ASSERT_TRUE(dst.CopyToDifferentBpp(src));
    EXPECT_EQ(dst.GetBits()[0], 42);
    EXPECT_EQ(dst.GetBits()[-1024 + 4 * 3], 9);
}

TEST(ConvertBpp, RefusalsAndTheToDoMessage)
{
    kevra_test::CaptureMessageBoxes boxes;
    CDibRoot c24(CSize(2, 2), 24), g8(CSize(2, 2), 8), other(CSize(3, 2), 16), empty;
    g8.GetBits()[0] = 3;
    EXPECT_FALSE(g8.CopyToDifferentBpp(c24));
    EXPECT_FALSE(c24.CopyToDifferentBpp(g8));
    ASSERT_EQ(boxes.texts.size(), 2u);
    EXPECT_EQ(boxes.texts[0], "TO DO");
    EXPECT_EQ(boxes.texts[1], "TO DO");
    // Silent refusals.
    EXPECT_FALSE(other.CopyToDifferentBpp(g8));
    EXPECT_FALSE(empty.CopyToDifferentBpp(g8));
    EXPECT_FALSE(g8.CopyToDifferentBpp(empty));
    EXPECT_EQ(boxes.texts.size(), 2u);
    EXPECT_EQ(g8.GetBits()[0], 3);
}
