// The image object: creation, geometry, working zone, sharing and copying,
// and the conversion between the two grey depths.
#include <gtest/gtest.h>

#include <cstring>

#include "kevra/dib.h"
#include "support/kevra_test.h"

using namespace kevra;
using kevra_test::DibProbe;

namespace {

uint16_t sample16(CDibRoot & d, int x, int y)
{
    const uint8_t * p = d.GetPixelPtr(x, y);
    return static_cast<uint16_t>(p[0] | (p[1] << 8));
}

} // namespace

// Per requested depth: stored depth, palette entries, palette step at
// creation (1 and 4 bits black) and after SetGrayPalette (255 / (entries - 1)),
// pitch of a 21-pixel row (padded to 4 bytes) and offset of pixel (9, 1).
TEST(DibCore, CreationGeometryAndPalettePerDepth)
{
    const struct {
        unsigned short asked, bpp;
        int entries, created_step, ramp_step, pitch, pixel_9_1;
    } cases[] = {{0, 1, 2, 0, 255, 4, 4 + 1},      {3, 4, 16, 0, 17, 12, 12 + 4},  {8, 8, 256, 1, 1, 24, 24 + 9},
                 {12, 16, 256, 1, 1, 44, 44 + 18}, {32, 24, 0, 0, 0, 64, 64 + 27}};
    for (const auto & c : cases) {
        SCOPED_TRACE(c.asked);
        CDibRoot d(CSize(21, 3), c.asked);
        EXPECT_EQ(d.BitCount(), c.bpp);
        EXPECT_EQ(d.GetInfo()->bmiHeader.biClrUsed, static_cast<unsigned>(c.entries));
        EXPECT_EQ(d.Pitch(), c.pitch);
        EXPECT_EQ(d.XOffset(9), (9 * c.bpp) >> 3);
        EXPECT_EQ(d.YOffset(2), 2 * c.pitch);
        EXPECT_EQ(d.GetPixelPtr(9, 1) - d.GetBits(), c.pixel_9_1);
        EXPECT_EQ(d.IsGrayScale(), c.entries == 256);
        for (int step : {c.created_step, c.ramp_step}) {
            const uint8_t * pal = d.GetBits() - c.entries * 4;
            for (int i = 0; i < c.entries; ++i)
                ASSERT_TRUE(pal[4 * i] == step * i && pal[4 * i + 1] == step * i && pal[4 * i + 2] == step * i) << i;
            d.SetGrayPalette();
        }
    }
    CDibRoot eight(CSize(3, 3), 8);
    eight.GetBits()[-4 * 256 + 4 * 7 + 1] = 0; // entry 7 green
    EXPECT_FALSE(eight.IsGrayScale());
}

TEST(DibCore, EmptyImageWorkingZoneAndPointInSelection)
{
    CDibRoot e, src(CSize(2, 2), 8);
    EXPECT_EQ(e.Width() + e.Height() + e.BitCount() + e.Pitch() + e.GetXPelsPerMeter(), 0u);
    EXPECT_TRUE(e.GetBits() == nullptr && e.GetInfo() == nullptr && e.GetLastError() == nullptr);
    EXPECT_EQ(e.BoundingRectangle(), CRect(0, 0, 0, 0));
    EXPECT_FALSE(e.IsOK() || e.IsGrayScale());
    CPoint p(0, 0);
    EXPECT_FALSE(e.PointInSelection(p));
    EXPECT_FALSE(e.Copy(src, true, true, true));
    EXPECT_EQ(e.Width(), 0);

    // The zone is normalised and clamped; PointInSelection only asks whether the point lies in
    // the image, whatever the zone.
    CDibRoot d(CSize(100, 50), 8);
    EXPECT_EQ(d.BoundingRectangle(), CRect(0, 0, 99, 49));
    d.SetZoneTravail(CRect(50, 40, -10, 500));
    EXPECT_EQ(d.BoundingRectangle(), CRect(0, 40, 50, 49));
    CPoint inside[] = {{0, 0}, {99, 49}}, outside[] = {{100, 0}, {0, 50}, {-1, 0}};
    for (CPoint & q : inside)
        EXPECT_TRUE(d.PointInSelection(q));
    for (CPoint & q : outside)
        EXPECT_FALSE(d.PointInSelection(q));
}

TEST(DibCore, AssignmentSharesOneStoreAndSwapExchangesStores)
{
    CDibRoot b(CSize(3, 2), 8);
    {
        CDibRoot a;
        a = b;
        a.GetBits()[0] = 77;
        CDibRoot c(a); // the plain copy shares too
        EXPECT_EQ(c.GetBits(), b.GetBits());
    }
    // The other handles are gone; b's store is still alive and intact.
    ASSERT_TRUE(b.IsOK());
    EXPECT_EQ(b.GetBits()[0], 77);
    // Re-creating one handle detaches it only.
    CDibRoot a;
    a = b;
    a.Create(CSize(7, 7), 24);
    EXPECT_EQ(b.Width(), 3);

    CDibRoot other(CSize(9, 2), 24);
    b.SetZoneTravail(CRect(1, 1, 2, 1));
    b.SwapImage(other);
    EXPECT_EQ(b.Size(), CSize(9, 2));
    EXPECT_EQ(b.BoundingRectangle(), CRect(0, 0, 8, 1));
    EXPECT_EQ(other.Size(), CSize(3, 2));
    EXPECT_EQ(other.BoundingRectangle(), CRect(1, 1, 2, 1));
}

// A copy duplicates block, zone and resolution; a 16-bit copy builds the
// grey view of high bytes, which ReleaseBits discards.
TEST(DibCore, CopyAndCopyingConstructorsDuplicate)
{
    CDibRoot src(CSize(5, 3), 16);
    for (long i = 0; i < src.Pitch() * src.Height(); ++i)
        src.GetBits()[i] = static_cast<uint8_t>(i * 7);
    src.SetZoneTravail(CRect(1, 1, 3, 2));
    src.SetXPelsPerMeter(1000);
    src.SetYPelsPerMeter(2000);

    DibProbe dst(CSize(1, 1), 24);
    ASSERT_TRUE(dst.Copy(src, true, true, true));
    EXPECT_EQ(dst.BitCount(), 16);
    EXPECT_NE(dst.GetBits(), src.GetBits());
    EXPECT_EQ(0, std::memcmp(dst.GetBits() - 1024, src.GetBits() - 1024, 1024 + 36));
    EXPECT_EQ(dst.BoundingRectangle(), CRect(1, 1, 3, 2));
    EXPECT_TRUE(dst.GetXPelsPerMeter() == 1000u && dst.GetYPelsPerMeter() == 2000u);
    // The resolution setters change the header only, not the store's 72 dpi.
    EXPECT_EQ(dst.store()->x_dpi(), 72);
    const uint8_t * view = dst.store()->grey_view();
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(view[1], src.GetBits()[3]);
    EXPECT_EQ(view[8 + 4], src.GetBits()[12 + 9]);
    dst.ReleaseBits();
    EXPECT_EQ(dst.store()->grey_view(), nullptr);

    // Without pixels, the palette is still copied.
    src.GetBits()[-1024 + 5] = 99;
    CDibRoot noPixels(src, false, false, false);
    EXPECT_EQ(noPixels.GetBits()[-1024 + 5], 99);

    CDib cd(5, 3, 24);
    cd.GetBits()[4] = 9;
    CDib deep(cd), deepFromPtr(&cd);
    EXPECT_NE(deep.GetBits(), cd.GetBits());
    EXPECT_EQ(deep.GetBits()[4] + deepFromPtr.GetBits()[4], 18);
}

TEST(DibCore, CreateFailsCleanly)
{
    CDibRoot d(CSize(2, 2), 8);
    {
        kevra_test::FailAllocations fail(64); // the block, not the store object
        EXPECT_FALSE(d.Create(CSize(100, 100), 8));
    }
    EXPECT_FALSE(d.IsOK());
    {
        kevra_test::FailAllocations fail;
        EXPECT_FALSE(d.Create(CSize(10, 10), 8));
    }
    EXPECT_EQ(d.BitCount(), 0);
    // Sizes that cannot be represented are refused, not wrapped.
    EXPECT_FALSE(d.Create(CSize(0, 10), 8) || d.Create(CSize(-5, 10), 8));
    EXPECT_FALSE(d.Create(CSize(0x7FFFFFFF, 0x7FFFFFFF), 24) || d.IsOK());
}

// 8 to 16 bits multiplies by 256 (not 257), 16 to 8 keeps the high byte
// (no rounding); 5 pixels a row are converted and the padding stays. The
// same depth is copied whole.
TEST(ConvertBpp, PlainScalingBothWaysLeavesPadding)
{
    CDibRoot g8(CSize(5, 2), 8), g16(CSize(5, 2), 16), back(CSize(5, 2), 8);
    for (int i = 0; i < 16; ++i)
        g8.GetBits()[i] = static_cast<uint8_t>(i == 0 ? 255 : i);
    std::memset(g16.GetBits(), 0xEE, 24);
    std::memset(back.GetBits(), 0x77, 16);
    ASSERT_TRUE(g16.CopyToDifferentBpp(g8));
    for (int y = 0; y < 2; ++y) {
        for (int x = 0; x < 5; ++x)
            EXPECT_EQ(sample16(g16, x, y), g8.GetPixelPtr(x, y)[0] << 8) << x << "," << y;
        EXPECT_EQ(g16.GetPixelPtr(0, y)[10], 0xEE);
        EXPECT_EQ(g16.GetPixelPtr(0, y)[11], 0xEE);
    }

    g16.GetPixelPtr(1, 0)[0] = 0xFF; // 0x01FF
    ASSERT_TRUE(back.CopyToDifferentBpp(g16));
    for (int i = 0; i < 16; ++i)
        EXPECT_EQ(back.GetBits()[i], i % 8 >= 5 ? 0x77 : g8.GetBits()[i]) << i;

    // Same depth: a copy, palette included.
    g8.GetBits()[-1024 + 4 * 3] = 9;
    ASSERT_TRUE(back.CopyToDifferentBpp(g8));
    EXPECT_EQ(0, std::memcmp(back.GetBits() - 1024, g8.GetBits() - 1024, 1024 + 16));
}

TEST(ConvertBpp, RefusalsAndTheToDoMessage)
{
    kevra_test::CaptureMessageBoxes boxes;
    CDibRoot c24(CSize(2, 2), 24), g8(CSize(2, 2), 8), other(CSize(3, 2), 16), empty;
    g8.GetBits()[0] = 3;
    EXPECT_FALSE(g8.CopyToDifferentBpp(c24));
    EXPECT_FALSE(c24.CopyToDifferentBpp(g8));
    EXPECT_EQ(boxes.texts, std::vector<std::string>(2, "TO DO"));
    // Silent refusals.
    EXPECT_FALSE(other.CopyToDifferentBpp(g8) || empty.CopyToDifferentBpp(g8) ||
                 g8.CopyToDifferentBpp(empty));
    EXPECT_EQ(boxes.texts.size(), 2u);
    EXPECT_EQ(g8.GetBits()[0], 3);
}
