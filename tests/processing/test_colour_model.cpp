// RGB/HSL model of the 24-bit class: exact doubles and exact bytes.
#include <gtest/gtest.h>

#include <vector>

#include "kevra/traitement.h"

using kevra::CTraitementImg_24_Bpp;

namespace {

const double k = 0.00392156862745098, sixth = 0.16666666666666666;

std::vector<int> to_rgb(CTraitementImg_24_Bpp &t, double h, double s, double l)
{
    unsigned char c1 = 0, c2 = 0, c3 = 0;
    t.HSLtoRGB(h, s, l, &c1, &c2, &c3);
    return {c1, c2, c3};
}

} // namespace

// Components are scaled by k (255 k is exactly 1); the hue is measured from the first
// component, a tie for the maximum goes to the first rule that matches, a negative sector is
// brought into one turn; saturation is d / (max + min) below L = 0.5, else d / (2 - max - min).
TEST(ColourModel, RgbToHslExactDoubles)
{
    struct Case { int c1, c2, c3; double h, s, l; };
    const Case cases[] = {
        {0, 0, 0, 0, 0, 0},
        {255, 255, 255, 0, 0, 1.0},
        {255, 0, 0, 0, 1, 0.5},
        {0, 255, 0, 2.0 * sixth, 1, 0.5},
        {0, 0, 255, 4.0 * sixth, 1, 0.5},
        {255, 0, 255, -1.0 * sixth + 1.0, 1, 0.5},
        {200, 200, 100, 1.0 * sixth, (200 * k - 100 * k) / (2.0 - 200 * k - 100 * k), (200 * k + 100 * k) * 0.5},
        {100, 200, 200, 3.0 * sixth, (200 * k - 100 * k) / (2.0 - 200 * k - 100 * k), (200 * k + 100 * k) * 0.5},
        {100, 50, 20, ((50 * k - 20 * k) / (100 * k - 20 * k)) * sixth, (100 * k - 20 * k) / (100 * k + 20 * k), (100 * k + 20 * k) * 0.5},
        {250, 200, 180, ((200 * k - 180 * k) / (250 * k - 180 * k)) * sixth, (250 * k - 180 * k) / (2.0 - 250 * k - 180 * k), (250 * k + 180 * k) * 0.5},
    };
    CTraitementImg_24_Bpp t;
    for (const Case &c : cases) {
        double h = -1, s = -1, l = -1, hp = -1, sp = -1, lp = -1;
        t.RGBtoHSL(static_cast<unsigned char>(c.c1), static_cast<unsigned char>(c.c2), static_cast<unsigned char>(c.c3), &h, &s, &l);
        EXPECT_TRUE(h == c.h && s == c.s && l == c.l) << c.c1 << " " << c.c2 << " " << c.c3 << ": " << h << " " << s << " " << l;
        // The packed form puts the first component in the lowest byte; the top byte is ignored.
        t.RGBtoHSL(static_cast<unsigned long>(c.c1 | c.c2 << 8 | c.c3 << 16) | 0xAB000000ul, &hp, &sp, &lp);
        EXPECT_TRUE(hp == h && sp == s && lp == l);
        const std::vector<int> rgb = to_rgb(t, h, s, l);
        EXPECT_EQ(t.HSLtoRGB(h, s, l), static_cast<unsigned long>(rgb[0] | rgb[1] << 8 | rgb[2] << 16));
    }
    EXPECT_EQ(t.HSLtoRGB(0.0, 1.0, 0.5), 0x0000FFul);
}

TEST(ColourModel, HueToRgbSectorsAndOneCorrectionEachWay)
{
    CTraitementImg_24_Bpp t;
    const double m1 = 0.25, m2 = 0.75;
    EXPECT_EQ(t.HuetoRGB(m1, m2, 0.1), m1 + ((m2 - m1) * 0.1) * 6.0);
    EXPECT_EQ(t.HuetoRGB(m1, m2, 0.4), m2);
    EXPECT_EQ(t.HuetoRGB(m1, m2, 0.6), m1 + ((m2 - m1) * (0.6666666666666666 - 0.6)) * 6.0);
    EXPECT_EQ(t.HuetoRGB(m1, m2, 0.9), m1);
    // -0.9 -> 0.1, 1.4 -> 0.4, but 2.5 -> 1.5 stays past a turn.
    EXPECT_EQ(t.HuetoRGB(m1, m2, -0.9), t.HuetoRGB(m1, m2, -0.9 + 1.0));
    EXPECT_EQ(t.HuetoRGB(m1, m2, 1.4), m2);
    EXPECT_EQ(t.HuetoRGB(m1, m2, 2.5), m1);
    // H = 1.5 is inside the 0..360 clamp: H + 1/3 loses one turn only, H - 1/3 is 1.1666 ->
    // 0.1666; (2/3 - 1/2) * 6 falls just short of 1 and truncates to 254. Above two turns the
    // hue is not brought back at all: every component takes m1.
    EXPECT_EQ(to_rgb(t, 1.5, 1.0, 0.5), (std::vector<int>{0, 254, 255}));
    EXPECT_EQ(to_rgb(t, 5.0, 1.0, 0.5), (std::vector<int>{0, 0, 0}));
}

TEST(ColourModel, ModelInputsAreClamped)
{
    CTraitementImg_24_Bpp t;
    // Lightness above 1 is white, below 0 black; saturation above 1 acts as 1; a negative hue is 0.
    EXPECT_EQ(t.HSLtoRGB(0.3, 0.5, 7.0), 0xFFFFFFul);
    EXPECT_EQ(t.HSLtoRGB(0.3, 0.5, -1.0), 0x000000ul);
    EXPECT_EQ(t.HSLtoRGB(0.0, 3.0, 0.5), t.HSLtoRGB(0.0, 1.0, 0.5));
    EXPECT_EQ(t.HSLtoRGB(-0.2, 1.0, 0.5), t.HSLtoRGB(0.0, 1.0, 0.5));
}

TEST(ColourModel, ExactlyTwentyFourGreysComeBackOneLower)
{
    CTraitementImg_24_Bpp t;
    const std::vector<int> expected = {33, 37, 41, 45, 49, 53, 57, 61, 66, 74, 82, 90,
                                       98, 106, 114, 122, 132, 148, 164, 180, 196, 212, 228, 244};
    std::vector<int> lower;
    for (int g = 0; g < 256; ++g) {
        double h, s, l;
        t.RGBtoHSL(static_cast<unsigned char>(g), static_cast<unsigned char>(g), static_cast<unsigned char>(g), &h, &s, &l);
        const std::vector<int> back = to_rgb(t, h, s, l);
        ASSERT_TRUE(back[0] == back[1] && back[1] == back[2]) << g;
        ASSERT_TRUE(back[0] == g || back[0] == g - 1) << g;
        if (back[0] != g)
            lower.push_back(g);
    }
    EXPECT_EQ(lower, expected);
}
