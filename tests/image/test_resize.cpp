// Image resampling, RectHomothetique and CRectInterieur.
#include <gtest/gtest.h>

#include <cstring>

#include "kevra/dib.h"
#include "kevra/traitement.h"

using namespace kevra;

// Double ratio, truncations toward zero, centred. A zero aspect side gives a
// degenerate rectangle, not a crash: an infinite height saturates (then
// h' = rh, w' = 0), not-a-number gives 0.
TEST(RectHomothetique, FitsTheAspectCentred)
{
    const struct {
        int a, b;
        CRect in, out;
    } cases[] = {
        {4, 3, {0, 0, 100, 100}, {0, 12, 100, 87}},   // h' = 75, dy = 12
        {3, 4, {0, 0, 100, 100}, {12, 0, 87, 100}},   // h' = 133 > 100: w' = 75, dx = 12
        {16, 9, {10, 20, 73, 61}, {10, 23, 73, 58}},  // rw 63, h' = 35 (35.4), dy = 3
        {0, 3, {0, 0, 50, 40}, {25, 0, 25, 40}},
        {0, 0, {0, 0, 50, 40}, {0, 20, 50, 20}},
    };
    CDibRoot any;
    for (const auto & c : cases) {
        CRect r = c.in;
        any.RectHomothetique(c.a, c.b, &r);
        EXPECT_EQ(r, c.out) << c.a << ":" << c.b;
    }
    // The image form takes the image's size; an empty image gives (0, 0, 0, 0).
    CDibRoot image(CSize(200, 100), 16);
    CRect r(0, 0, 100, 100);
    image.RectHomothetique(&r);
    EXPECT_EQ(r, CRect(0, 25, 100, 75));
    any.RectHomothetique(&r);
    EXPECT_EQ(r, CRect(0, 0, 0, 0));
}

// Flag 1 left (2 right only without 1), 16 top (32 bottom only without 16),
// centred otherwise; truncating integer divisions. Refused aspects and
// outer rectangles without area leave the rectangle as it was.
TEST(RectInterieur, PlacementFlagsAndRefusals)
{
    CRect wide(0, 0, 100, 50), tall(10, 10, 40, 110), flat(0, 0, 100, 0), kept(5, 6, 7, 8);
    const struct {
        CRect & outer;
        int a, b, flags;
        CRect want;
    } cases[] = {
        {wide, 1, 1, 1 + 32, {0, 0, 50, 50}},    {wide, 1, 1, 2, {50, 0, 100, 50}},
        {wide, 1, 1, 0, {25, 0, 75, 50}},        {wide, 1, 1, 1 + 2, {0, 0, 50, 50}},
        {tall, 3, 2, 16, {10, 10, 40, 30}},      {tall, 3, 2, 32, {10, 90, 40, 110}},
        {tall, 3, 2, 16 + 32, {10, 10, 40, 30}}, {wide, 0, 3, 0, kept},
        {wide, 3, -1, 0, kept},                  {flat, 1, 1, 0, kept},
        {tall, 9, 7, 0, {10, 48, 40, 71}}, // h' = 30 * 7 / 9 = 23, top = 10 + (100 - 23) / 2
    };
    for (const auto & c : cases) {
        SCOPED_TRACE(testing::Message() << c.a << ":" << c.b << " flags " << c.flags);
        CRectInterieur r;
        r = kept;
        r.Init(c.outer, c.a, c.b, static_cast<CRectInterieur::e_Place>(c.flags));
        EXPECT_EQ(r, c.want);
    }
    EXPECT_EQ(CRectInterieur(tall, CSize(3, 2), CRectInterieur::e_Place(32)), CRect(10, 90, 40, 110));
    // The outer rectangle may be the rectangle itself.
    CRectInterieur r;
    r = CRect(0, 0, 90, 30);
    r.Init(r, 1, 1, CRectInterieur::e_Place(2 + 16));
    EXPECT_EQ(r, CRect(60, 0, 90, 30));
}

// Each depth goes through its processing class with mode 1, whatever mode is
// given; the image then has a fresh store's resolution and a (0, 0, 0, 0)
// zone, deliberately, and keeps its palette.
TEST(ImageResample, UsesThePerDepthResamplingWithModeOne)
{
    for (unsigned short bpp : {8, 16, 24}) {
        SCOPED_TRACE(bpp);
        CDibRoot image(CSize(9, 7), bpp);
        for (unsigned long i = 0; i < image.SizeImage(); ++i)
            image.GetBits()[i] = static_cast<uint8_t>(i * 29);
        image.SetDisplayPalette(e_Palette21);
        image.SetXPelsPerMeter(5000);
        image.SetZoneTravail(CRect(1, 1, 5, 5));
        CDibRoot source(&image, true, true, true), other(&image, true, true, true), expected(CSize(4, 3), bpp);
        void * in = source.GetBits();
        void * out = expected.GetBits();
        const bool ok = bpp == 8    ? CTraitementImg_8_Bpp().Resample(9, 7, in, 4, 3, out, 1)
                        : bpp == 16 ? CTraitementImg_16_Bpp().Resample(9, 7, in, 4, 3, out, 1)
                                    : CTraitementImg_24_Bpp().Resample(9, 7, in, 4, 3, out, 1);
        ASSERT_TRUE(ok);

        ASSERT_TRUE(image.Resample(4u, 3u, 0u));
        ASSERT_TRUE(other.Resample(4L, 3L, 7));
        for (CDibRoot * d : {&image, &other}) {
            EXPECT_EQ(d->Size(), CSize(4, 3));
            EXPECT_EQ(d->BitCount(), bpp);
            for (int r = 0; r < 3; ++r)
                EXPECT_EQ(std::memcmp(d->GetPixelPtr(0, r), expected.GetPixelPtr(0, r), 4 * bpp / 8), 0) << r;
            EXPECT_EQ(d->GetXPelsPerMeter(), 2835u);
            EXPECT_EQ(d->BoundingRectangle(), CRect(0, 0, 0, 0));
            if (bpp != 24) {
                EXPECT_EQ(std::memcmp(d->GetBits() - 1024, source.GetBits() - 1024, 1024), 0);
            }
        }
    }
}

// Any other depth fails, but the image takes the new size all the same; an
// impossible size leaves no pixels.
TEST(ImageResample, FailuresStillReplaceTheStore)
{
    CDibRoot bilevel(CSize(4, 4), 1), empty, image(CSize(4, 4), 8);
    EXPECT_FALSE(bilevel.Resample(10u, 10u, 1u));
    EXPECT_EQ(bilevel.Size(), CSize(10, 10));
    EXPECT_EQ(bilevel.BitCount(), 1);
    EXPECT_FALSE(empty.Resample(10u, 10u, 1u));
    EXPECT_EQ(empty.Width(), 0);
    EXPECT_FALSE(image.Resample(-1L, 5L, 1) || image.IsOK());
}
