// RGB/HSL model of the 24-bit class: exact doubles and exact bytes.
#include <gtest/gtest.h>

#include <vector>

#include "kevra/traitement.h"

using kevra::CTraitementImg_24_Bpp;

namespace {

struct Model {
    double h = -1, s = -1, l = -1;
};

Model to_hsl(CTraitementImg_24_Bpp &t, int c1, int c2, int c3)
{
    Model m;
    t.RGBtoHSL(static_cast<unsigned char>(c1), static_cast<unsigned char>(c2),
               static_cast<unsigned char>(c3), &m.h, &m.s, &m.l);
    return m;
}

} // namespace

TEST(ColourModel, BlackAndWhite)
{
    CTraitementImg_24_Bpp t;
    Model black = to_hsl(t, 0, 0, 0);
    EXPECT_EQ(black.h, 0.0);
    EXPECT_EQ(black.s, 0.0);
    EXPECT_EQ(black.l, 0.0);
    Model white = to_hsl(t, 255, 255, 255);
    EXPECT_EQ(white.h, 0.0);
    EXPECT_EQ(white.s, 0.0);
    // 255 * 0.00392156862745098 is exactly 1 in double precision.
    EXPECT_EQ(white.l, 1.0);
}

TEST(ColourModel, PrimariesAreMeasuredFromTheFirstComponent)
{
    CTraitementImg_24_Bpp t;
    Model first = to_hsl(t, 255, 0, 0);
    EXPECT_EQ(first.h, 0.0);
    EXPECT_EQ(first.s, 1.0);
    EXPECT_EQ(first.l, 0.5);
    EXPECT_EQ(to_hsl(t, 0, 255, 0).h, 2.0 * 0.16666666666666666);
    EXPECT_EQ(to_hsl(t, 0, 0, 255).h, 4.0 * 0.16666666666666666);
    // A negative sector is brought into one turn: (x2 - x3) / d = -1, times 1/6, plus one.
    EXPECT_EQ(to_hsl(t, 255, 0, 255).h, -1.0 * 0.16666666666666666 + 1.0);
}

TEST(ColourModel, TiesForTheMaximum)
{
    CTraitementImg_24_Bpp t;
    // First and second largest: the first rule, (x2 - x3) / d = 1 -> 1/6.
    EXPECT_EQ(to_hsl(t, 200, 200, 100).h, 1.0 * 0.16666666666666666);
    // Second and third largest: the second rule, (x3 - x1) / d + 2 = 3 -> 1/2.
    EXPECT_EQ(to_hsl(t, 100, 200, 200).h, 3.0 * 0.16666666666666666);
}

TEST(ColourModel, SaturationUsesTheLowerOrUpperFormula)
{
    CTraitementImg_24_Bpp t;
    const double k = 0.00392156862745098;
    // L < 0.5: d / (max + min).
    Model dark = to_hsl(t, 100, 50, 20);
    EXPECT_EQ(dark.s, (100 * k - 20 * k) / (100 * k + 20 * k));
    EXPECT_EQ(dark.l, (100 * k + 20 * k) * 0.5);
    EXPECT_EQ(dark.h, ((50 * k - 20 * k) / (100 * k - 20 * k)) * 0.16666666666666666);
    // L >= 0.5: d / (2 - max - min), subtracted in that order.
    Model light = to_hsl(t, 250, 200, 180);
    EXPECT_EQ(light.s, (250 * k - 180 * k) / (2.0 - 250 * k - 180 * k));
}

TEST(ColourModel, PackedFormsPutTheFirstComponentInTheLowestByte)
{
    CTraitementImg_24_Bpp t;
    Model a = to_hsl(t, 10, 120, 230);
    Model b;
    t.RGBtoHSL(10ul | (120ul << 8) | (230ul << 16) | 0xAB000000ul, &b.h, &b.s, &b.l);
    EXPECT_EQ(a.h, b.h);
    EXPECT_EQ(a.s, b.s);
    EXPECT_EQ(a.l, b.l);

    EXPECT_EQ(t.HSLtoRGB(0.0, 1.0, 0.5), 0x0000FFul);
    unsigned char c1 = 0, c2 = 0, c3 = 0;
    t.HSLtoRGB(a.h, a.s, a.l, &c1, &c2, &c3);
    EXPECT_EQ(t.HSLtoRGB(a.h, a.s, a.l),
              static_cast<unsigned long>(c1) | (static_cast<unsigned long>(c2) << 8)
                  | (static_cast<unsigned long>(c3) << 16));
}

TEST(ColourModel, HueToRgbSectors)
{
    CTraitementImg_24_Bpp t;
    const double m1 = 0.25, m2 = 0.75;
    EXPECT_EQ(t.HuetoRGB(m1, m2, 0.1), m1 + ((m2 - m1) * 0.1) * 6.0);
    EXPECT_EQ(t.HuetoRGB(m1, m2, 0.4), m2);
    EXPECT_EQ(t.HuetoRGB(m1, m2, 0.6), m1 + ((m2 - m1) * (0.6666666666666666 - 0.6)) * 6.0);
    EXPECT_EQ(t.HuetoRGB(m1, m2, 0.9), m1);
    // One correction each way: -0.9 -> 0.1, 1.4 -> 0.4, but 2.5 -> 1.5 stays past a turn.
    EXPECT_EQ(t.HuetoRGB(m1, m2, -0.9), t.HuetoRGB(m1, m2, -0.9 + 1.0));
    EXPECT_EQ(t.HuetoRGB(m1, m2, 1.4), m2);
    EXPECT_EQ(t.HuetoRGB(m1, m2, 2.5), m1);
}

TEST(ColourModel, HueAboveOneTurnIsNotReduced)
{
    CTraitementImg_24_Bpp t;
    // 1.5 is inside the 0..360 clamp; H + 1/3 loses one turn only, H - 1/3 is 1.1666 -> 0.1666.
    unsigned char c1 = 0, c2 = 0, c3 = 0;
    t.HSLtoRGB(1.5, 1.0, 0.5, &c1, &c2, &c3);
    EXPECT_EQ(c1, 0);
    EXPECT_EQ(c2, 254); // (2/3 - 1/2) * 6 falls just short of 1, then truncates
    EXPECT_EQ(c3, 255);
    // Above two turns the hue is not brought back at all: every component takes m1.
    t.HSLtoRGB(5.0, 1.0, 0.5, &c1, &c2, &c3);
    EXPECT_EQ(c1, 0);
    EXPECT_EQ(c2, 0);
    EXPECT_EQ(c3, 0);
}

TEST(ColourModel, ModelInputsAreClamped)
{
    CTraitementImg_24_Bpp t;
    // Lightness above 1 is white, below 0 black; saturation above 1 acts as 1.
    EXPECT_EQ(t.HSLtoRGB(0.3, 0.5, 7.0), 0xFFFFFFul);
    EXPECT_EQ(t.HSLtoRGB(0.3, 0.5, -1.0), 0x000000ul);
    EXPECT_EQ(t.HSLtoRGB(0.0, 3.0, 0.5), t.HSLtoRGB(0.0, 1.0, 0.5));
    // A negative hue becomes 0.
    EXPECT_EQ(t.HSLtoRGB(-0.2, 1.0, 0.5), t.HSLtoRGB(0.0, 1.0, 0.5));
}

TEST(ColourModel, ExactlyTwentyFourGreysComeBackOneLower)
{
    CTraitementImg_24_Bpp t;
    const std::vector<int> expected_lower = {33,  37,  41,  45,  49,  53,  57,  61,
                                             66,  74,  82,  90,  98,  106, 114, 122,
                                             132, 148, 164, 180, 196, 212, 228, 244};
    std::vector<int> lower;
    for (int g = 0; g < 256; ++g) {
        Model m = to_hsl(t, g, g, g);
        unsigned char c1 = 0, c2 = 0, c3 = 0;
        t.HSLtoRGB(m.h, m.s, m.l, &c1, &c2, &c3);
        ASSERT_EQ(c1, c2) << g;
        ASSERT_EQ(c1, c3) << g;
        if (c1 == g)
            continue;
        ASSERT_EQ(c1, g - 1) << "grey " << g;
        lower.push_back(g);
    }
    EXPECT_EQ(lower, expected_lower);
}
