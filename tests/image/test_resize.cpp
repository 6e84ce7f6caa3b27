// Image resampling, RectHomothetique and CRectInterieur.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "kevra/dib.h"
#include "kevra/traitement.h"

using kevra::CDibRoot;
using kevra::CRect;
using kevra::CRectInterieur;
using kevra::CSize;

namespace {

CRectInterieur::e_Place place(int flags) { return static_cast<CRectInterieur::e_Place>(flags); }

} // namespace

TEST(RectHomothetique, FitsTheAspectCentred)
{
    CDibRoot any;
    CRect r(0, 0, 100, 100);
    any.RectHomothetique(4, 3, &r);
    EXPECT_EQ(r, CRect(0, 12, 100, 87)); // h' = 75, dy = 12

    r = CRect(0, 0, 100, 100);
    any.RectHomothetique(3, 4, &r);
    EXPECT_EQ(r, CRect(12, 0, 87, 100)); // h' = 133 > 100: w' = 75, dx = 12

    r = CRect(10, 20, 73, 61);
    any.RectHomothetique(16, 9, &r); // rw 63, h' = 35 (35.4), dy = 3
    EXPECT_EQ(r, CRect(10, 23, 73, 58));

    // A zero aspect side gives a degenerate rectangle, not a crash: an
    // infinite height saturates (then h' = rh, w' = 0), not-a-number gives 0.
    r = CRect(0, 0, 50, 40);
    any.RectHomothetique(0, 3, &r);
    EXPECT_EQ(r, CRect(25, 0, 25, 40));
    r = CRect(0, 0, 50, 40);
    any.RectHomothetique(0, 0, &r);
    EXPECT_EQ(r, CRect(0, 20, 50, 20));
}

TEST(RectHomothetique, ImageFormUsesTheImageSize)
{
    CDibRoot image(CSize(200, 100), 16);
    CRect r(0, 0, 100, 100);
    image.RectHomothetique(&r);
    EXPECT_EQ(r, CRect(0, 25, 100, 75));

    CDibRoot empty;
    r = CRect(1, 2, 3, 4);
    empty.RectHomothetique(&r);
    EXPECT_EQ(r, CRect(0, 0, 0, 0));
}

TEST(RectInterieur, PlacementFlags)
{
    CRect outer(0, 0, 100, 50);
    EXPECT_EQ(CRectInterieur(outer, 1, 1, place(1 + 32)), CRect(0, 0, 50, 50));
    EXPECT_EQ(CRectInterieur(outer, 1, 1, place(2)), CRect(50, 0, 100, 50));
    EXPECT_EQ(CRectInterieur(outer, 1, 1, place(0)), CRect(25, 0, 75, 50));
    EXPECT_EQ(CRectInterieur(outer, 1, 1, place(1 + 2)), CRect(0, 0, 50, 50)); // 2 only without 1

    CRect tall(10, 10, 40, 110); // w 30, h 100
    EXPECT_EQ(CRectInterieur(tall, CSize(3, 2), place(16)), CRect(10, 10, 40, 30));
    EXPECT_EQ(CRectInterieur(tall, CSize(3, 2), place(32)), CRect(10, 90, 40, 110));
    EXPECT_EQ(CRectInterieur(tall, CSize(3, 2), place(16 + 32)), CRect(10, 10, 40, 30));
    EXPECT_EQ(CRectInterieur(tall, CSize(3, 2), place(0)), CRect(10, 50, 40, 70));
    // Truncating divisions: h' = 30 * 7 / 9 = 23, top = 10 + (100 - 23) / 2 = 48.
    EXPECT_EQ(CRectInterieur(tall, 9, 7, place(0)), CRect(10, 48, 40, 71));
}

TEST(RectInterieur, RefusedAspectsLeaveTheRectangle)
{
    CRect outer(0, 0, 100, 50);
    CRectInterieur r;
    r = CRect(5, 6, 7, 8);
    r.Init(outer, 0, 3, place(0));
    EXPECT_EQ(r, CRect(5, 6, 7, 8));
    r.Init(outer, 3, -1, place(0));
    EXPECT_EQ(r, CRect(5, 6, 7, 8));
    CRect flat(0, 0, 100, 0);
    r.Init(flat, 1, 1, place(0));
    EXPECT_EQ(r, CRect(5, 6, 7, 8));
    EXPECT_EQ(CRectInterieur(flat, 1, 1, place(0)), CRect(0, 0, 0, 0));

    // The outer rectangle may be the rectangle itself.
    r = CRect(0, 0, 90, 30);
    r.Init(r, 1, 1, place(2 + 16));
    EXPECT_EQ(r, CRect(60, 0, 90, 30));
}

TEST(ImageResample, UsesThePerDepthResamplingWithModeOne)
{
    for (unsigned short bpp : {8, 16, 24}) {
        CDibRoot image(CSize(9, 7), bpp);
        unsigned char *bits = image.GetBits();
        for (unsigned long i = 0; i < image.SizeImage(); ++i)
            bits[i] = static_cast<unsigned char>(i * 29);
        image.ReleaseBits();
        image.SetXPelsPerMeter(5000);
        image.SetZoneTravail(CRect(1, 1, 5, 5));

        CDibRoot expected(CSize(4, 3), bpp);
        CDibRoot source(&image, true, true, true);
        bool ok = false;
        if (bpp == 8)
            ok = kevra::CTraitementImg_8_Bpp().Resample(9, 7, source.GetBits(), 4, 3, expected.GetBits(), 1);
        else if (bpp == 16)
            ok = kevra::CTraitementImg_16_Bpp().Resample(9, 7, source.GetBits(), 4, 3, expected.GetBits(), 1);
        else
            ok = kevra::CTraitementImg_24_Bpp().Resample(9, 7, source.GetBits(), 4, 3, expected.GetBits(), 1);
        ASSERT_TRUE(ok);

        // The mode argument has no effect.
        ASSERT_TRUE(image.Resample(4u, 3u, 0u));
        EXPECT_EQ(image.Width(), 4);
        EXPECT_EQ(image.Height(), 3);
        EXPECT_EQ(image.BitCount(), bpp);
        const int used = 4 * bpp / 8;
        for (int r = 0; r < 3; ++r)
            EXPECT_EQ(std::memcmp(image.GetBits() + r * image.Pitch(),
                                  expected.GetBits() + r * expected.Pitch(), used),
                      0)
                << bpp << " row " << r;
        // A fresh store's resolution and working zone, deliberately.
        EXPECT_EQ(image.GetXPelsPerMeter(), 2835u);
        EXPECT_EQ(image.BoundingRectangle(), CRect(0, 0, 0, 0));

        CDibRoot other(&source, true, true, true);
        ASSERT_TRUE(other.Resample(4L, 3L, 7));
        EXPECT_EQ(std::memcmp(other.GetBits(), image.GetBits(), image.SizeImage()), 0);
    }
}

TEST(ImageResample, KeepsThePalette)
{
    CDibRoot image(CSize(6, 6), 8);
    image.SetDisplayPalette(kevra::e_Palette21);
    kevra::tagRGBQUAD before[256], after[256];
    ASSERT_EQ(image.GetCurrentDisplayPalette(before, 256), 1);
    ASSERT_TRUE(image.Resample(3u, 12u, 1u));
    ASSERT_EQ(image.GetCurrentDisplayPalette(after, 256), 1);
    EXPECT_EQ(std::memcmp(before, after, sizeof before), 0);
}

// Any other depth fails, but the image takes the new size all the same.
TEST(ImageResample, OtherDepthsFailButTakeTheNewSize)
{
    CDibRoot bilevel(CSize(4, 4), 1);
    EXPECT_FALSE(bilevel.Resample(10u, 10u, 1u));
    EXPECT_EQ(bilevel.Width(), 10);
    EXPECT_EQ(bilevel.Height(), 10);
    EXPECT_EQ(bilevel.BitCount(), 1);

    CDibRoot empty;
    EXPECT_FALSE(empty.Resample(10u, 10u, 1u));
    EXPECT_EQ(empty.Width(), 0);

    // An impossible size: no pixels afterwards, no crash.
    CDibRoot image(CSize(4, 4), 8);
    EXPECT_FALSE(image.Resample(-1L, 5L, 1));
    EXPECT_FALSE(image.IsOK());
}
