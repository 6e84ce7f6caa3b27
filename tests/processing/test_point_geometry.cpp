// Per-depth classes: construction, negative, fill, mirrors, quarter turns, addition entry point.
#include <gtest/gtest.h>

#include <algorithm>

#include "kevra/lut.h"
#include "processing/detail/point_geometry.h"
#include "processing_test.h"

using namespace kevra;
using namespace proc_test;

namespace {

template <class Base>
struct Open : Base {
    using Base::m_NbThreads;
    using Base::m_phThreads;
    void set_depth(unsigned char bpp) { this->m_bpp = bpp; }
};

auto fails_size(std::size_t bytes)
{
    return [bytes](std::size_t n) { return n == bytes; };
}

bool turn(int bpp, int angle, Buf &src, Buf &dst)
{
    CRect ignored(100, 100, -100, -100);
    const auto a = static_cast<CTraitementImgBase::e_angle>(angle);
    return on_depth(bpp, [&](auto &t) { return t.QuickRotate(a, src.w, src.h, src.bits(), ignored, dst.w, dst.h, dst.bits()); });
}

} // namespace

// Worker count: the processor count, but 2 below 3; handles all empty. A working table that
// cannot be allocated leaves the object usable without it: the tone adjustments fail and change
// nothing (so does the grey negative, whose own table fails too).
TEST(PerDepthClasses, WorkerSlotsAndMissingTable)
{
    const unsigned counts[][2] = {{1, 2}, {2, 2}, {3, 3}, {8, 8}};
    for (const auto &c : counts) {
        auto prev = platform::set_processor_count_handler([&] { return c[0]; });
        Open<CTraitementImg_16_Bpp> p;
        platform::set_processor_count_handler(prev);
        ASSERT_EQ(p.m_NbThreads, static_cast<int>(c[1])) << c[0];
        EXPECT_EQ(std::count(p.m_phThreads, p.m_phThreads + p.m_NbThreads, nullptr), p.m_NbThreads);
    }
    for (int bpp : {8, 16, 24}) {
        Buf buf(3, 3, bpp);
        const auto before = buf.rows();
        CRect rc(0, 0, 2, 2);
        FailAllocations fail(fails_size(bpp == 8 ? sizeof(CLUT_8_Bpp) : bpp == 16 ? sizeof(CLUT_16_Bpp) : sizeof(CLUT_24_Bpp)));
        EXPECT_TRUE(on_depth(bpp, [&](auto &t) {
            return !t.ReglageContraste(0.0f, 3, 3, buf.bits(), rc) && (bpp == 24 || !t.Negatif(3, 3, buf.bits(), rc));
        })) << bpp;
        EXPECT_EQ(buf.rows(), before) << bpp;
    }
}

// Every level of each grey depth, and a rectangle of a padded colour buffer.
TEST(Negatif, EveryLevelInsideTheRectangle)
{
    for (int bpp : {8, 16, 24}) {
        const int levels = bpp == 16 ? 65536 : 256;
        Buf buf(257, bpp == 24 ? 3 : levels / 256, bpp, 9); // odd width: padded rows
        for (int i = 0; i < levels && bpp != 24; ++i)
            buf.set(i % 256, i / 256, i);
        const Buf before = buf;
        CRect rc(0, bpp == 24 ? 1 : 0, 255, 255);
        ASSERT_TRUE(on_depth(bpp, [&](auto &t) { return t.Negatif(buf.w, buf.h, buf.bits(), rc); }));
        expect_in_rect(before, buf, rc, [&](int v, long, long, int) { return levels - 1 - v; });
    }
}

TEST(Fill, InclusiveRectangleAndByteOrder)
{
    unsigned long value = 0xAB112233ul; // 24 bits: bytes 0x33, 0x22, 0x11; the top byte is ignored
    for (int bpp : {8, 16, 24})
        for (CRect rc : {CRect(1, 2, 2, 2), CRect(0, 0, 2, 1), CRect(-5, -5, 50, 50), CRect(0, 2, 2, 0)}) {
            Buf buf(4, 4, bpp, 5);
            const Buf before = buf;
            ASSERT_TRUE(on_depth(bpp, [&](auto &t) { return t.Fill(value, buf.w, buf.h, buf.bits(), rc); }));
            expect_in_rect(before, buf, rc, [&](int, long, long, int c) {
                return bpp == 8 ? 0x33 : bpp == 16 ? 0x2233 : static_cast<int>(value >> (8 * c) & 0xFF);
            });
        }
}

// Left-right: n = (right - left) / 2 pairs, so an even span keeps its centre pair; the
// rectangle's bottom row (buffer row 0 here) is deliberately not processed. Top-bottom:
// n = (bottom - top) / 2 pairs of picture rows, so the bottom row of an even span stays; a
// one-row rectangle changes nothing. `from` gives the source column, or picture row, of each.
TEST(Mirrors, PairsAndSkippedBottomRow)
{
    struct Case { bool vertical; long w, h; CRect rc; int from[6]; };
    const Case cases[] = {{false, 6, 3, CRect(0, 0, 3, 2), {3, 1, 2, 0, 4, 5}},
                          {false, 6, 3, CRect(0, 0, 4, 2), {4, 3, 2, 1, 0, 5}},
                          {true, 3, 5, CRect(1, 0, 2, 3), {2, 1, 0, 3, 4}},
                          {true, 4, 6, CRect(1, 1, 2, 5), {0, 4, 3, 2, 1, 5}},
                          {true, 3, 5, CRect(0, 2, 2, 2), {0, 1, 2, 3, 4}}};
    for (int bpp : {8, 16, 24})
        for (const Case &k : cases) {
            Buf buf(k.w, k.h, bpp, k.vertical ? 12 : 3);
            const Buf before = buf;
            CRect rc = k.rc;
            ASSERT_TRUE(on_depth(bpp, [&](auto &t) {
                return k.vertical ? t.Mirroir_Vertical(k.w, k.h, buf.bits(), rc) : t.Mirroir_Horizontal(k.w, k.h, buf.bits(), rc);
            }));
            expect_in_rect(before, buf, rc, [&](int old, long x, long r, int c) {
                if (k.vertical)
                    return before.get(x, k.h - 1 - k.from[k.h - 1 - r], c);
                return r == 0 ? old : before.get(k.from[x], r, c);
            });
        }
}

// The colour class exchanges through an allocated pixel (horizontal) or row segment (vertical):
// when that fails nothing changes; the grey classes need no allocation.
TEST(Mirrors, ColourAllocationFailureChangesNothing)
{
    Buf buf(5, 6, 24, 8), grey(5, 6, 8);
    const auto before = buf.rows();
    CRect rc(0, 0, 4, 5), two(1, 1, 2, 5);
    {
        FailAllocations fail(fails_size(3));
        EXPECT_FALSE(CTraitementImg_24_Bpp().Mirroir_Horizontal(5, 6, buf.bits(), rc));
        EXPECT_TRUE(CTraitementImg_8_Bpp().Mirroir_Horizontal(5, 6, grey.bits(), rc));
    }
    {
        FailAllocations fail(fails_size(6)); // the 2-pixel segment
        EXPECT_FALSE(CTraitementImg_24_Bpp().Mirroir_Vertical(5, 6, buf.bits(), two));
    }
    EXPECT_EQ(buf.rows(), before);
}

// The colour class moves 3 bytes per pixel only when its depth is 24, but Fill always writes 3.
TEST(ColourClassDepthField, OtherDepthMovesSingleBytesButFillWritesThree)
{
    Open<CTraitementImg_24_Bpp> p;
    p.set_depth(8);
    Buf buf(5, 2, 8), out(2, 5, 8), colour(4, 1, 24);
    buf.set_row(1, {0, 1, 2, 3, 4});
    CRect rc(0, 0, 4, 1), two(1, 0, 2, 0);
    EXPECT_TRUE(p.Mirroir_Horizontal(5, 2, buf.bits(), rc));
    EXPECT_EQ(std::vector<uint8_t>(buf.bits() + buf.pitch, buf.bits() + buf.pitch + 5), (std::vector<uint8_t>{4, 3, 2, 1, 0}));
    EXPECT_TRUE(p.QuickRotate(CTraitementImgBase::e_Angle90, 5, 2, buf.bits(), rc, 2, 5, out.bits()));
    EXPECT_EQ(out.get(1, 4), 4); // source (0, 1) -> (1, 4)
    EXPECT_TRUE(out.intact());
    EXPECT_TRUE(p.Fill(0x332211ul, 4, 1, colour.bits(), two));
    const std::vector<uint8_t> two_pixels = {0x11, 0x22, 0x33, 0x11, 0x22, 0x33};
    EXPECT_EQ(std::vector<uint8_t>(colour.bits() + 3, colour.bits() + 9), two_pixels);
}

// Source (x, r) goes to (r, W-1-x), (W-1-x, H-1-r), (H-1-r, x); bad angles and sizes write nothing.
TEST(QuickRotate, MappingsAtEachDepthAndRefusals)
{
    for (int bpp : {8, 16, 24}) {
        Buf src(3, 2, bpp, 4), d0(2, 3, bpp), d1(3, 2, bpp), d2(2, 3, bpp);
        ASSERT_TRUE(turn(bpp, 0, src, d0) && turn(bpp, 1, src, d1) && turn(bpp, 2, src, d2));
        for (long r = 0; r < 2; ++r)
            for (long x = 0; x < 3; ++x)
                for (int c = 0; c < src.channels(); ++c) {
                    EXPECT_EQ(d0.get(r, 2 - x, c), src.get(x, r, c)) << bpp;
                    EXPECT_EQ(d1.get(2 - x, 1 - r, c), src.get(x, r, c)) << bpp;
                    EXPECT_EQ(d2.get(1 - r, x, c), src.get(x, r, c)) << bpp;
                }
        EXPECT_TRUE(d0.intact() && d1.intact() && d2.intact());
    }
    Buf src(3, 2, 8), dst(3, 3, 8, 2);
    const auto before = dst.rows();
    EXPECT_FALSE(turn(8, 3, src, dst) || turn(8, 0, src, dst) || turn(8, 1, src, dst));
    EXPECT_EQ(dst.rows(), before);
    CRect rc;
    EXPECT_TRUE(CTraitementImg_8_Bpp().QuickRotate(CTraitementImgBase::e_Angle180, 3, 0, nullptr, rc, 3, 0, nullptr));
}

TEST(QuickRotate, ImageFormSwapsInTheTurnedPictureAndDoesNotCompareDepths)
{
    CTraitementImg_8_Bpp p;
    CDibRoot image(CSize(100, 50), 8), empty;
    image_bytes(image, 3);
    CDibRoot copy(image, true, false, false);
    EXPECT_TRUE(p.QuickRotate(CTraitementImgBase::e_Angle90, &image));
    EXPECT_TRUE(image.Width() == 50 && image.Height() == 100 && image.BitCount() == 8);
    // Picture (x, y) of the W x H source is picture (H - 1 - y, x) of the result.
    for (int y = 0; y < 50; y += 7)
        for (int x = 0; x < 100; x += 11)
            EXPECT_EQ(*image.GetPixelPtr(49 - y, 99 - x), *copy.GetPixelPtr(x, 49 - y)) << x << "," << y;
    EXPECT_EQ(image.BoundingRectangle(), CRect(0, 0, 49, 99));
    EXPECT_FALSE(p.QuickRotate(static_cast<CTraitementImgBase::e_angle>(3), &image));
    EXPECT_EQ(image.Width(), 50);
    EXPECT_FALSE(p.QuickRotate(CTraitementImgBase::e_Angle90, nullptr) || p.QuickRotate(CTraitementImgBase::e_Angle180, &empty));

    // Unlike the other image forms, the quarter turn does not compare depths: an 8-bit processor
    // turns a 24-bit image as rows of 8-bit pixels. A deeper processor would walk past the rows:
    // refused, image unchanged.
    CDibRoot colour(CSize(6, 4), 24), grey(CSize(6, 4), 8);
    image_bytes(colour, 5);
    EXPECT_TRUE(CTraitementImg_8_Bpp().QuickRotate(CTraitementImgBase::e_Angle90, &colour));
    EXPECT_TRUE(colour.Width() == 4 && colour.Height() == 6 && colour.BitCount() == 24);
    const auto before = image_bytes(grey, 6);
    EXPECT_FALSE(CTraitementImg_24_Bpp().QuickRotate(CTraitementImgBase::e_Angle90, &grey));
    EXPECT_EQ(grey.Width(), 6);
    EXPECT_EQ(image_bytes(grey), before);
}

TEST(AdditionSoustraction, NoOpThatStillValidates)
{
    CTraitementImg_16_Bpp p;
    CDibRoot a(CSize(4, 3), 16), b(CSize(4, 3), 16), c(CSize(4, 2), 16), d(CSize(4, 3), 8), empty;
    const auto a0 = image_bytes(a, 1), b0 = image_bytes(b, 2);
    EXPECT_TRUE(p.AdditionSoustraction(0.5f, &a, &b));
    EXPECT_TRUE(image_bytes(a) == a0 && image_bytes(b) == b0);
    EXPECT_FALSE(p.AdditionSoustraction(0.5f, &a, &c) || p.AdditionSoustraction(0.5f, &a, &d));
    EXPECT_FALSE(p.AdditionSoustraction(0.5f, nullptr, &b) || p.AdditionSoustraction(0.5f, &a, &empty));
    CRect rc;
    EXPECT_TRUE(CTraitementImg_8_Bpp().AdditionSoustraction(1.0f, 4, 3, nullptr, nullptr, rc));
}

// Every ordinary image form of each class refuses a null, empty, invalid (pixel block not
// allocated) or other-depth image, leaving it untouched, and accepts an image of its own depth.
TEST(ImageForms, RefuseNullEmptyInvalidAndOtherDepths)
{
    std::vector<long> h(3 * 65536);
    CPoint centre(2, 2);
    auto forms = [&](auto &t, CDibRoot *i) {
        return std::vector<bool>{t.Negatif(i), t.Fill(0, i), t.Mirroir_Horizontal(i), t.Mirroir_Vertical(i),
                                 t.EgalisationHistogramme(0.1f, 0.9f, i), t.FiltreMedian(i, 0.1, 1), t.ReglageContraste(1.5f, i),
                                 t.UnsharpMasking(i, 2, 1, 1, 0, 0), t.UnsharpMasking(i, centre, 2, 2, 1, 1, 0, 0)};
    };
    for (int bpp : {8, 16, 24}) {
        SCOPED_TRACE(bpp);
        CDibRoot empty, invalid, own(CSize(6, 5), static_cast<unsigned short>(bpp)), other(CSize(6, 5), bpp == 8 ? 16 : 8);
        {
            FailAllocations fail(3000);
            EXPECT_FALSE(invalid.Create(CSize(100, 100), static_cast<unsigned short>(bpp)));
        }
        const auto other0 = image_bytes(other, 3);
        EXPECT_TRUE(on_depth(bpp, [&](auto &t) {
            for (CDibRoot *i : {static_cast<CDibRoot *>(nullptr), &empty, &invalid, &other})
                EXPECT_EQ(forms(t, i), std::vector<bool>(9, false));
            EXPECT_EQ(forms(t, &own), std::vector<bool>(9, true));
            return true;
        }));
        EXPECT_EQ(image_bytes(other), other0);
        CDibRoot *refused[] = {nullptr, &empty, &invalid, &other};
        for (CDibRoot *i : refused)
            EXPECT_FALSE(bpp == 8    ? CTraitementImg_8_Bpp().Donne_Histogrammes(h.data(), i)
                         : bpp == 16 ? CTraitementImg_16_Bpp().Donne_Histogrammes(h.data(), i)
                                     : CTraitementImg_24_Bpp().Donne_Histogrammes(h.data(), &h[256], &h[512], i)
                                           || CTraitementImg_24_Bpp().Donne_HistogrammeLuminance(h.data(), i));
    }
}
