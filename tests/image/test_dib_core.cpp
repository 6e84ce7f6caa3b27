#include <gtest/gtest.h>

#include <cstring>

#include "image/ximage.h"
#include "kevra/dib.h"
#include "support/kevra_test.h"

using namespace kevra;

namespace {

// Exposes the store for checks the public API cannot make.
class DibProbe : public CDibRoot {
public:
    using CDibRoot::CDibRoot;
    CxImage * store() { return Donne_pCxImage(); }
};

void expect_grey_ramp(CDibRoot & dib, int entries, int step)
{
    const uint8_t * pal = dib.GetBits() - entries * 4;
    for (int i = 0; i < entries; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(pal[4 * i], step * i);
        EXPECT_EQ(pal[4 * i + 1], step * i);
        EXPECT_EQ(pal[4 * i + 2], step * i);
    }
}

} // namespace

TEST(DibCore, CreateRoundsBitCount)
{
    CDibRoot a(CSize(4, 2), 12);
    EXPECT_EQ(a.BitCount(), 16);
    expect_grey_ramp(a, 256, 1);
    EXPECT_TRUE(a.IsGrayScale());

    CDibRoot b(CSize(4, 2), 0);
    EXPECT_EQ(b.BitCount(), 1);
    expect_grey_ramp(b, 2, 0); // both entries black
    CDibRoot c(CSize(4, 2), 32);
    EXPECT_EQ(c.BitCount(), 24);
    EXPECT_FALSE(c.IsGrayScale());
    CDibRoot d(CSize(4, 2), 3);
    EXPECT_EQ(d.BitCount(), 4);
    EXPECT_EQ(d.GetInfo()->bmiHeader.biClrUsed, 16u);
}

TEST(DibCore, GreyRampSteps)
{
    CDibRoot four(CSize(3, 3), 4);
    four.SetGrayPalette();
    expect_grey_ramp(four, 16, 17);
    CDibRoot one(CSize(3, 3), 1);
    one.SetGrayPalette();
    const uint8_t * pal = one.GetBits() - 8;
    EXPECT_EQ(pal[0], 0);
    EXPECT_EQ(pal[4], 255);
    CDibRoot eight(CSize(3, 3), 8);
    EXPECT_TRUE(eight.IsGrayScale());
    eight.GetBits()[-4 * 256 + 4 * 7 + 1] = 0; // entry 7 green
    EXPECT_FALSE(eight.IsGrayScale());
}

TEST(DibCore, PitchAndSizes)
{
    CDibRoot c24(CSize(5, 3), 24), c16(CSize(5, 3), 16), c8(CSize(5, 3), 8);
    EXPECT_EQ(c24.Pitch(), 16);
    EXPECT_EQ(c24.SizeImage(), 48u);
    EXPECT_EQ(c16.Pitch(), 12);
    EXPECT_EQ(c8.Pitch(), 8);
    EXPECT_EQ(c8.ScanBytes(1, 1), 4);
    EXPECT_EQ(c8.ScanBytes(33, 1), 8);
    EXPECT_EQ(c24.XOffset(3), 9);
    EXPECT_EQ(c16.YOffset(2), 24);
    EXPECT_EQ(c24.Rect(), CRect(0, 0, 5, 3));
    EXPECT_EQ(c24.Size(), CSize(5, 3));
    EXPECT_EQ(c24.GetXPelsPerMeter(), 2835u);
    EXPECT_EQ(c24.GetYPelsPerMeter(), 2835u);
    const tagBITMAPINFOHEADER & h = c8.GetInfo()->bmiHeader;
    EXPECT_EQ(h.biSize, 40u);
    EXPECT_EQ(h.biPlanes, 1);
    EXPECT_EQ(h.biClrUsed, 256u);
    EXPECT_EQ(h.biSizeImage, 24u);
}

TEST(DibCore, PixelAddresses)
{
    CDibRoot c1(CSize(20, 2), 1), c4(CSize(20, 2), 4), c16(CSize(20, 2), 16), c24(CSize(20, 2), 24);
    EXPECT_EQ(c1.GetPixelPtr(9, 1) - c1.GetBits(), 4 + 1);
    EXPECT_EQ(c4.GetPixelPtr(9, 1) - c4.GetBits(), 12 + 4);
    EXPECT_EQ(c16.GetPixelPtr(9, 1) - c16.GetBits(), 40 + 18);
    EXPECT_EQ(c24.GetPixelPtr(9, 1) - c24.GetBits(), 60 + 27);
    EXPECT_EQ(c16.GetPixelPtr(0, 0), c16.GetBits());
}

TEST(DibCore, EmptyImage)
{
    CDibRoot e;
    EXPECT_EQ(e.Width(), 0);
    EXPECT_EQ(e.Height(), 0);
    EXPECT_EQ(e.BitCount(), 0);
    EXPECT_EQ(e.Pitch(), 0);
    EXPECT_EQ(e.GetXPelsPerMeter(), 0u);
    EXPECT_EQ(e.GetBits(), nullptr);
    EXPECT_EQ(e.GetInfo(), nullptr);
    EXPECT_EQ(e.GetLastError(), nullptr);
    EXPECT_EQ(e.BoundingRectangle(), CRect(0, 0, 0, 0));
    EXPECT_FALSE(e.IsOK());
    EXPECT_FALSE(e.IsGrayScale());
    CPoint p(0, 0);
    EXPECT_FALSE(e.PointInSelection(p));
    CDibRoot src(CSize(2, 2), 8);
    EXPECT_FALSE(e.Copy(src, true, true, true));
    EXPECT_EQ(e.Width(), 0);
}

TEST(DibCore, WorkingZoneIsNormalisedAndClamped)
{
    CDibRoot d(CSize(100, 100), 8);
    EXPECT_EQ(d.BoundingRectangle(), CRect(0, 0, 99, 99));
    d.SetZoneTravail(CRect(50, 40, -10, 500));
    EXPECT_EQ(d.BoundingRectangle(), CRect(0, 40, 50, 99));
}

TEST(DibCore, PointInSelectionIgnoresTheZone)
{
    CDibRoot d(CSize(10, 5), 24);
    d.SetZoneTravail(CRect(5, 2, 6, 3));
    CPoint origin(0, 0), right(10, 0), below(0, 5), last(9, 4), neg(-1, 0);
    EXPECT_TRUE(d.PointInSelection(origin));
    EXPECT_TRUE(d.PointInSelection(last));
    EXPECT_FALSE(d.PointInSelection(right));
    EXPECT_FALSE(d.PointInSelection(below));
    EXPECT_FALSE(d.PointInSelection(neg));
}

TEST(DibCore, AssignmentSharesOneStore)
{
    CDibRoot b(CSize(3, 2), 8);
    {
        CDibRoot a;
        a = b;
        EXPECT_EQ(a.GetBits(), b.GetBits());
        a.GetBits()[0] = 77;
        EXPECT_EQ(b.GetBits()[0], 77);
        CDibRoot c(a); // the plain copy shares too
        EXPECT_EQ(c.GetBits(), b.GetBits());
    }
    // The other handles are gone; b's store is still alive and intact.
    EXPECT_TRUE(b.IsOK());
    EXPECT_EQ(b.GetBits()[0], 77);
    // Re-creating one handle detaches it only.
    CDibRoot a;
    a = b;
    a.Create(CSize(7, 7), 24);
    EXPECT_EQ(b.Width(), 3);
    EXPECT_EQ(a.Width(), 7);
    CDib x(2, 2, 8), y;
    y = x;
    EXPECT_EQ(x.GetBits(), y.GetBits());
}

TEST(DibCore, SwapImageExchangesStores)
{
    CDibRoot a(CSize(4, 3), 8), b(CSize(9, 2), 24);
    a.SetZoneTravail(CRect(1, 1, 2, 2));
    a.SwapImage(b);
    EXPECT_EQ(a.Width(), 9);
    EXPECT_EQ(a.BitCount(), 24);
    EXPECT_EQ(a.BoundingRectangle(), CRect(0, 0, 8, 1));
    EXPECT_EQ(b.Width(), 4);
    EXPECT_EQ(b.BitCount(), 8);
    EXPECT_EQ(b.BoundingRectangle(), CRect(1, 1, 2, 2));
}

TEST(DibCore, CopyAndCopyingConstructors)
{
    CDibRoot src(CSize(5, 3), 16);
    for (long i = 0; i < src.Pitch() * src.Height(); ++i)
        src.GetBits()[i] = static_cast<uint8_t>(i * 7);
    src.SetZoneTravail(CRect(1, 1, 3, 2));
    src.SetXPelsPerMeter(1000);
    src.SetYPelsPerMeter(2000);

    CDibRoot dst(CSize(1, 1), 24);
    ASSERT_TRUE(dst.Copy(src, true, true, true));
    EXPECT_EQ(dst.BitCount(), 16);
    EXPECT_EQ(dst.Width(), 5);
    EXPECT_EQ(0, std::memcmp(dst.GetBits(), src.GetBits(), 36));
    EXPECT_NE(dst.GetBits(), src.GetBits());
    EXPECT_EQ(dst.BoundingRectangle(), CRect(1, 1, 3, 2));
    EXPECT_EQ(dst.GetXPelsPerMeter(), 1000u);
    EXPECT_EQ(dst.GetYPelsPerMeter(), 2000u);

    CDibRoot noPixels(src, false, false, false);
    EXPECT_EQ(noPixels.Width(), 5);
    EXPECT_EQ(noPixels.BitCount(), 16);
    EXPECT_TRUE(noPixels.IsGrayScale());

    CDib cd(5, 3, 24);
    cd.GetBits()[4] = 9;
    CDib deep(cd);
    EXPECT_NE(deep.GetBits(), cd.GetBits());
    EXPECT_EQ(deep.GetBits()[4], 9);
    CDib deepFromPtr(&cd);
    EXPECT_EQ(deepFromPtr.GetBits()[4], 9);
}

TEST(DibCore, SixteenBitCopyBuildsTheGreyView)
{
    DibProbe src(CSize(3, 2), 16);
    uint8_t * bits = src.GetBits();
    bits[0] = 0x34;
    bits[1] = 0x12;
    bits[2] = 0xFF;
    bits[3] = 0xAB;
    DibProbe dst(CSize(1, 1), 8);
    ASSERT_TRUE(dst.Copy(src, true, false, false));
    const uint8_t * view = dst.store()->grey_view();
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(view[0], 0x12);
    EXPECT_EQ(view[1], 0xAB);
    dst.ReleaseBits();
    EXPECT_EQ(dst.store()->grey_view(), nullptr);
}

TEST(DibCore, ResolutionSettersTouchHeaderOnly)
{
    DibProbe d(CSize(2, 2), 8);
    d.SetXPelsPerMeter(3937);
    EXPECT_EQ(d.GetXPelsPerMeter(), 3937u);
    EXPECT_EQ(d.store()->x_dpi(), 72);
    EXPECT_EQ(detail::dpi_to_pels(72), 2835);
    EXPECT_EQ(detail::dpi_to_pels(300), 11811);
    EXPECT_EQ(detail::pels_to_dpi(2835), 72);
}

TEST(DibCore, CreateFailsCleanly)
{
    CDibRoot d(CSize(2, 2), 8);
    {
        kevra_test::FailAllocations fail(64); // the block, not the store object
        EXPECT_FALSE(d.Create(CSize(100, 100), 8));
    }
    EXPECT_FALSE(d.IsOK());
    EXPECT_EQ(d.GetBits(), nullptr);
    {
        kevra_test::FailAllocations fail;
        EXPECT_FALSE(d.Create(CSize(10, 10), 8));
    }
    EXPECT_EQ(d.BitCount(), 0);
    // Sizes that cannot be represented are refused, not wrapped.
    EXPECT_FALSE(d.Create(CSize(0, 10), 8));
    EXPECT_FALSE(d.Create(CSize(-5, 10), 8));
    EXPECT_FALSE(d.Create(CSize(0x7FFFFFFF, 0x7FFFFFFF), 24));
    EXPECT_FALSE(d.IsOK());
}
