// Tone adjustments through CTraitementImg and the placeholder pseudo-relief.
#include <gtest/gtest.h>

#include <vector>

#include "kevra/dib.h"
#include "kevra/lut.h"
#include "kevra/platform.h"
#include "kevra/traitement.h"
#include "lut/buffer_fixture.h"

using namespace kevra;
using lut_test::GuardedBuffer;

TEST(Tone, RecordOfTheMiddleClass)
{
    CTraitementImg_8_Bpp p;
    EXPECT_TRUE(p.IsKindOf(KEVRA_RUNTIME_CLASS(CTraitementImg)));
    EXPECT_STREQ(CTraitementImg::classCTraitementImg.m_lpszClassName, "CTraitementImg");
    EXPECT_EQ(CTraitementImg::classCTraitementImg.m_pBaseClass, KEVRA_RUNTIME_CLASS(CTraitementImgBase));
}

TEST(Tone, EachAdjustmentUsesItsTriple)
{
    // Every 8-bit level once, through each adjustment; expected values from the grey table.
    struct Case { int which; float v; float l, c, g; };
    const Case cases[] = {{0, 0.25f, 0.25f, 1, 1}, {1, 1.7f, 0, 1.7f, 1}, {2, 0.6f, 0, 1, 0.6f}};
    for (const Case &k : cases) {
        CTraitementImg_8_Bpp p;
        GuardedBuffer buf(256, 1, 8);
        for (int i = 0; i < 256; ++i)
            *buf.at(i, 0) = static_cast<uint8_t>(i);
        CRect rc(0, 0, 255, 0);
        bool ok = false;
        if (k.which == 0)
            ok = p.ReglageLuminosite(k.v, 256, 1, buf.bits(), rc);
        else if (k.which == 1)
            ok = p.ReglageContraste(k.v, 256, 1, buf.bits(), rc);
        else
            ok = p.ReglageGamma(k.v, 256, 1, buf.bits(), rc);
        EXPECT_TRUE(ok);
        CLUT_8_Bpp expected;
        expected.SetLuminositeConstrateGamma(k.l, k.c, k.g);
        for (int i = 0; i < 256; ++i)
            ASSERT_EQ(*buf.at(i, 0), expected[i]) << k.which << " " << i;
    }
}

TEST(Tone, BrightnessZeroLeavesAnImageUnchanged)
{
    CTraitementImg_8_Bpp p;
    CDibRoot image(CSize(9, 4), 8);
    lut_test::fill_random(image, 3);
    const auto before = lut_test::image_bytes(image);
    EXPECT_TRUE(p.ReglageLuminosite(0.0f, &image));
    EXPECT_EQ(lut_test::image_bytes(image), before);
}

TEST(Tone, SixteenBitImageFormOnTheWorkingZone)
{
    CTraitementImg_16_Bpp p;
    CDibRoot image(CSize(4, 3), 16);
    lut_test::fill_random(image, 4);
    image.SetZoneTravail(CRect(0, 0, 1, 0)); // picture row 0 = memory row 2, columns 0..1
    const auto before = lut_test::image_bytes(image);
    EXPECT_TRUE(p.ReglageLuminositeContrasteGamma(0.5f, 1.0f, 1.0f, &image));
    const auto after = lut_test::image_bytes(image);
    for (std::size_t i = 0; i < after.size(); i += 2) {
        const uint16_t was = static_cast<uint16_t>(before[i] | before[i + 1] << 8);
        const uint16_t now = static_cast<uint16_t>(after[i] | after[i + 1] << 8);
        const bool inside = i >= 16 && i < 20;
        // 0.5 brightness: 32767 + v, saturating at 65535
        const uint32_t expect = inside ? (was + 32767u > 65535u ? 65535u : was + 32767u) : was;
        EXPECT_EQ(now, expect) << i;
    }
}

TEST(Tone, ColourAdjustmentTouchesAllThreeBytes)
{
    CTraitementImg_24_Bpp p;
    GuardedBuffer buf(3, 2, 24, 6);
    const auto before = buf.rows();
    CRect rc(0, 0, 2, 1);
    EXPECT_TRUE(p.ReglageContraste(0.5f, 3, 2, buf.bits(), rc));
    CLUT_8_Bpp half;
    half.SetContraste(0.5f);
    for (long r = 0; r < 2; ++r)
        for (std::size_t i = 0; i < 9; ++i)
            EXPECT_EQ(buf.bits()[buf.pitch() * r + i], half[before[buf.pitch() * r + i]]);
    EXPECT_TRUE(buf.padding_intact());
}

TEST(Tone, RefusalsChangeNothing)
{
    CTraitementImg_8_Bpp p;
    CDibRoot colour(CSize(3, 3), 24), empty;
    lut_test::fill_random(colour, 8);
    const auto before = lut_test::image_bytes(colour);
    EXPECT_FALSE(p.ReglageContraste(2.0f, &colour));
    EXPECT_FALSE(p.ReglageGamma(2.0f, nullptr));
    EXPECT_FALSE(p.ReglageLuminosite(0.1f, &empty));
    EXPECT_EQ(lut_test::image_bytes(colour), before);

    // Without a working table (its allocation failed) the adjustments fail and touch nothing.
    auto previous = platform::set_allocation_hook([](std::size_t n) { return n == sizeof(CLUT_24_Bpp); });
    CTraitementImg_24_Bpp noTable;
    platform::set_allocation_hook(previous);
    EXPECT_FALSE(noTable.ReglageLuminositeContrasteGamma(0.1f, 2.0f, 1.0f, &colour));
    EXPECT_EQ(lut_test::image_bytes(colour), before);
}

TEST(Pseudo3D, AlwaysFalseAndTargetUntouched)
{
    CTraitementImg_8_Bpp p;
    CDibRoot a(CSize(5, 5), 8), b(CSize(5, 5), 8), c(CSize(5, 5), 24), d(CSize(5, 5), 16);
    lut_test::fill_random(a, 1);
    lut_test::fill_random(b, 2);
    const auto target = lut_test::image_bytes(b);
    EXPECT_FALSE(p.Pseudo3D(&a, &b));
    EXPECT_EQ(lut_test::image_bytes(b), target);
    EXPECT_FALSE(p.Pseudo3D(&a, &d));
    EXPECT_FALSE(p.Pseudo3D(&c, &c));
    EXPECT_FALSE(p.Pseudo3D(nullptr, &b));
    EXPECT_FALSE(p.Pseudo3D(a.GetInfo(), a.GetBits(), b.GetInfo(), nullptr));
    EXPECT_FALSE(p.Pseudo3D(a.GetInfo(), a.GetBits(), b.GetInfo(), b.GetBits()));
    CDibRoot empty;
    EXPECT_FALSE(p.Pseudo3D(&empty, &empty));
}
