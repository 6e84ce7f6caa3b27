// Per-depth classes: construction, negative, fill, mirrors, quarter turns, addition entry point.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "kevra/dib.h"
#include "kevra/lut.h"
#include "kevra/platform.h"
#include "kevra/traitement.h"
#include "processing/detail/point_geometry.h"
#include "processing_test.h"

using namespace kevra;
using proc_test::Buf;
using proc_test::FailIf;
using proc_test::image_bytes;
using proc_test::on_depth;

namespace {

template <class Base>
struct Open : Base {
    using Base::m_NbThreads;
    using Base::m_phThreads;
    using Base::m_pLUT;
    void set_depth(unsigned char bpp) { this->m_bpp = bpp; }
};

auto fails_size(std::size_t bytes)
{
    return [bytes](std::size_t n) { return n == bytes; };
}

bool turn(int bpp, int angle, Buf &src, Buf &dst)
{
    CRect ignored(100, 100, -100, -100);
    return on_depth(bpp, [&](auto &t) {
        return t.QuickRotate(static_cast<CTraitementImgBase::e_angle>(angle), src.w, src.h, src.bits(), ignored,
                             dst.w, dst.h, dst.bits());
    });
}

} // namespace

TEST(PerDepthClasses, TablesAndWorkerSlots)
{
    Open<CTraitementImg_8_Bpp> p8;
    Open<CTraitementImg_16_Bpp> p16;
    Open<CTraitementImg_24_Bpp> p24;
    EXPECT_EQ(p8.GetBpp() + p16.GetBpp() + p24.GetBpp(), 8 + 16 + 24);
    ASSERT_TRUE(p8.m_pLUT && p16.m_pLUT && p24.m_pLUT);
    EXPECT_TRUE(p8.m_pLUT->IsKindOf(KEVRA_RUNTIME_CLASS(CLUT_8_Bpp)));
    EXPECT_TRUE(p16.m_pLUT->IsKindOf(KEVRA_RUNTIME_CLASS(CLUT_16_Bpp)));
    EXPECT_TRUE(p24.m_pLUT->IsKindOf(KEVRA_RUNTIME_CLASS(CLUT_24_Bpp)));
    EXPECT_TRUE(static_cast<CLUT_16_Bpp *>(p16.m_pLUT)->IsLinear45());
    // Worker count: the processor count, but 2 below 3; handles all empty.
    const unsigned counts[][2] = {{1, 2}, {2, 2}, {3, 3}, {8, 8}};
    for (const auto &c : counts) {
        auto prev = platform::set_processor_count_handler([&] { return c[0]; });
        Open<CTraitementImg_16_Bpp> p;
        platform::set_processor_count_handler(prev);
        EXPECT_EQ(p.m_NbThreads, static_cast<int>(c[1])) << c[0];
        ASSERT_NE(p.m_phThreads, nullptr);
        for (int i = 0; i < p.m_NbThreads; ++i)
            EXPECT_EQ(p.m_phThreads[i], nullptr);
    }
    // A table that cannot be allocated leaves the object usable without it.
    FailIf fail(fails_size(sizeof(CLUT_16_Bpp)));
    Open<CTraitementImg_16_Bpp> p;
    EXPECT_EQ(p.m_pLUT, nullptr);
    Buf buf(3, 3, 16);
    const auto before = buf.rows();
    CRect rc(0, 0, 2, 2);
    EXPECT_FALSE(p.ReglageContraste(0.0f, 3, 3, buf.bits(), rc));
    EXPECT_FALSE(p.Negatif(3, 3, buf.bits(), rc)); // its local grey table fails too
    EXPECT_EQ(buf.rows(), before);
    EXPECT_TRUE(p.Fill(static_cast<unsigned short>(7), 3, 3, buf.bits(), rc));
}

// Every level of each grey depth, and a rectangle of a padded colour buffer.
TEST(Negatif, EveryLevelInsideTheRectangle)
{
    for (int bpp : {8, 16, 24}) {
        SCOPED_TRACE(bpp);
        const long levels = bpp == 16 ? 65536 : 256;
        Buf buf(257, bpp == 24 ? 3 : levels / 256, bpp, 9); // odd width: padded rows
        for (long i = 0; i < levels && bpp != 24; ++i)
            buf.set(i % 256, i / 256, static_cast<int>(i));
        const Buf before = buf;
        CRect rc(0, bpp == 24 ? 1 : 0, 255, 255);
        ASSERT_TRUE(on_depth(bpp, [&](auto &t) { return t.Negatif(buf.w, buf.h, buf.bits(), rc); }));
        proc_test::expect_in_rect(before, buf, rc, [&](int v, long, long, int) { return static_cast<int>(levels - 1 - v); });
    }
}

TEST(Fill, InclusiveRectangleAndByteOrder)
{
    unsigned long value = 0xAB112233ul; // 24 bits: bytes 0x33, 0x22, 0x11; top byte ignored
    for (int bpp : {8, 16, 24}) {
        SCOPED_TRACE(bpp);
        for (CRect rc : {CRect(1, 2, 2, 2), CRect(0, 0, 2, 1), CRect(-5, -5, 50, 50), CRect(0, 2, 2, 0)}) {
            Buf buf(4, 4, bpp, 5);
            const Buf before = buf;
            ASSERT_TRUE(on_depth(bpp, [&](auto &t) { return t.Fill(value, buf.w, buf.h, buf.bits(), rc); }));
            proc_test::expect_in_rect(before, buf, rc, [&](int, long, long, int c) {
                return bpp == 8 ? 0x33 : bpp == 16 ? 0x2233 : static_cast<int>(value >> (8 * c) & 0xFF);
            });
        }
    }
}

// Left-right: n = (right - left) / 2 pairs, so an even span keeps its centre pair; the
// rectangle's bottom row (buffer row 0 here) is deliberately not processed.
TEST(Mirrors, HorizontalPairsAndSkippedBottomRow)
{
    struct Case { CRect rc; int from[6]; };
    const Case cases[] = {{CRect(0, 0, 3, 2), {3, 1, 2, 0, 4, 5}}, {CRect(0, 0, 4, 2), {4, 3, 2, 1, 0, 5}}};
    for (int bpp : {8, 16, 24})
        for (const Case &k : cases) {
            SCOPED_TRACE(testing::Message() << bpp << " bits, right " << k.rc.right);
            Buf buf(6, 3, bpp, 3), before = buf;
            CRect rc = k.rc;
            ASSERT_TRUE(on_depth(bpp, [&](auto &t) { return t.Mirroir_Horizontal(6, 3, buf.bits(), rc); }));
            proc_test::expect_in_rect(before, buf, rc, [&](int old, long x, long r, int c) {
                return r == 0 ? old : before.get(k.from[x], r, c);
            });
        }
}

// Top-bottom: n = (bottom - top) / 2 pairs of picture rows, so the bottom row of an even
// span stays; a one-row rectangle changes nothing.
TEST(Mirrors, VerticalPairsAndSkippedBottomRow)
{
    struct Case { long w, h; CRect rc; int from[6]; };
    const Case cases[] = {{3, 5, CRect(1, 0, 2, 3), {2, 1, 0, 3, 4}},
                          {4, 6, CRect(1, 1, 2, 5), {0, 4, 3, 2, 1, 5}},
                          {3, 5, CRect(0, 2, 2, 2), {0, 1, 2, 3, 4}}};
    for (int bpp : {8, 16, 24})
        for (const Case &k : cases) {
            SCOPED_TRACE(testing::Message() << bpp << " bits, " << k.w << "x" << k.h);
            Buf buf(k.w, k.h, bpp, 12), before = buf;
            CRect rc = k.rc;
            ASSERT_TRUE(on_depth(bpp, [&](auto &t) { return t.Mirroir_Vertical(k.w, k.h, buf.bits(), rc); }));
            proc_test::expect_in_rect(before, buf, rc, [&](int, long x, long r, int c) {
                return before.get(x, k.h - 1 - k.from[k.h - 1 - r], c);
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
    CTraitementImg_24_Bpp p24;
    CTraitementImg_8_Bpp p8;
    {
        FailIf fail(fails_size(3));
        EXPECT_FALSE(p24.Mirroir_Horizontal(5, 6, buf.bits(), rc));
        EXPECT_TRUE(p8.Mirroir_Horizontal(5, 6, grey.bits(), rc));
    }
    {
        FailIf fail(fails_size(6)); // the 2-pixel segment
        EXPECT_FALSE(p24.Mirroir_Vertical(5, 6, buf.bits(), two));
    }
    EXPECT_EQ(buf.rows(), before);
}

TEST(Mirrors, TwiceRestoresAndOutsideRectanglesStayInside)
{
    for (int bpp : {8, 16, 24}) {
        Buf buf(7, 9, bpp, 40 + bpp);
        const auto before = buf.rows();
        CRect rc(-3, -2, 40, 30);
        for (int i = 0; i < 2; ++i)
            EXPECT_TRUE(on_depth(bpp, [&](auto &t) {
                return t.Mirroir_Horizontal(7, 9, buf.bits(), rc) && t.Mirroir_Vertical(7, 9, buf.bits(), rc);
            }));
        EXPECT_EQ(buf.rows(), before) << bpp;
        EXPECT_TRUE(buf.intact()) << bpp;
    }
}

// The colour class moves 3 bytes per pixel only when its depth is 24, but Fill always writes 3.
TEST(ColourClassDepthField, OtherDepthMovesSingleBytesButFillWritesThree)
{
    Open<CTraitementImg_24_Bpp> p;
    p.set_depth(8);
    Buf buf(5, 2, 8);
    for (long x = 0; x < 5; ++x)
        buf.set(x, 1, static_cast<int>(x));
    CRect rc(0, 0, 4, 1);
    EXPECT_TRUE(p.Mirroir_Horizontal(5, 2, buf.bits(), rc));
    for (long x = 0; x < 5; ++x)
        EXPECT_EQ(buf.get(x, 1), 4 - x);
    Buf out(2, 5, 8);
    EXPECT_TRUE(p.QuickRotate(CTraitementImgBase::e_Angle90, 5, 2, buf.bits(), rc, 2, 5, out.bits()));
    EXPECT_EQ(out.get(1, 4), 4); // source (0, 1) -> (1, 4)
    EXPECT_TRUE(out.intact());
    Buf colour(4, 1, 24);
    CRect two(1, 0, 2, 0);
    EXPECT_TRUE(p.Fill(0x332211ul, 4, 1, colour.bits(), two));
    const uint8_t expect[6] = {0x11, 0x22, 0x33, 0x11, 0x22, 0x33};
    EXPECT_EQ(std::memcmp(colour.at(1, 0), expect, 6), 0);
}

TEST(QuickRotate, MappingsAtEachDepth)
{
    for (int bpp : {8, 16, 24}) {
        Buf src(3, 2, bpp, 4), d0(2, 3, bpp), d1(3, 2, bpp), d2(2, 3, bpp);
        ASSERT_TRUE(turn(bpp, 0, src, d0) && turn(bpp, 1, src, d1) && turn(bpp, 2, src, d2));
        for (long r = 0; r < 2; ++r)
            for (long x = 0; x < 3; ++x)
                for (int c = 0; c < src.channels(); ++c) {
                    const int v = src.get(x, r, c);
                    EXPECT_EQ(d0.get(r, 2 - x, c), v) << bpp;
                    EXPECT_EQ(d1.get(2 - x, 1 - r, c), v) << bpp;
                    EXPECT_EQ(d2.get(1 - r, x, c), v) << bpp;
                }
        EXPECT_TRUE(d0.intact() && d1.intact() && d2.intact());
    }
}

TEST(QuickRotate, RefusalsWriteNothing)
{
    CTraitementImg_8_Bpp p;
    Buf src(3, 2, 8), dst(3, 3, 8, 2);
    const auto before = dst.rows();
    CRect rc;
    EXPECT_FALSE(p.QuickRotate(static_cast<CTraitementImgBase::e_angle>(3), 3, 2, src.bits(), rc, 2, 3, dst.bits()));
    EXPECT_FALSE(p.QuickRotate(CTraitementImgBase::e_Angle90, 3, 2, src.bits(), rc, 3, 3, dst.bits()));
    EXPECT_FALSE(p.QuickRotate(CTraitementImgBase::e_Angle180, 3, 2, src.bits(), rc, 2, 3, dst.bits()));
    EXPECT_EQ(dst.rows(), before);
    EXPECT_TRUE(p.QuickRotate(CTraitementImgBase::e_Angle180, 3, 0, nullptr, rc, 3, 0, nullptr));
}

TEST(QuickRotate, ImageFormSwapsInTheTurnedPicture)
{
    CTraitementImg_8_Bpp p;
    CDibRoot image(CSize(100, 50), 8), empty;
    proc_test::fill_random(image, 3);
    CDibRoot copy(image, true, false, false);
    EXPECT_TRUE(p.QuickRotate(CTraitementImgBase::e_Angle90, &image));
    EXPECT_EQ(image.Width(), 50);
    EXPECT_EQ(image.Height(), 100);
    EXPECT_EQ(image.BitCount(), 8);
    // Picture (x, y) of the W x H source is picture (H - 1 - y, x) of the result.
    for (int y = 0; y < 50; y += 7)
        for (int x = 0; x < 100; x += 11)
            EXPECT_EQ(*image.GetPixelPtr(49 - y, 99 - x), *copy.GetPixelPtr(x, 49 - y)) << x << "," << y;
    EXPECT_EQ(image.BoundingRectangle(), CRect(0, 0, 49, 99));
    EXPECT_FALSE(p.QuickRotate(static_cast<CTraitementImgBase::e_angle>(3), &image));
    EXPECT_EQ(image.Width(), 50);
    EXPECT_FALSE(p.QuickRotate(CTraitementImgBase::e_Angle90, nullptr));
    EXPECT_FALSE(p.QuickRotate(CTraitementImgBase::e_Angle180, &empty));
}

// Unlike the other image forms, the quarter turn does not compare depths: an 8-bit processor
// turns a 24-bit image as rows of 8-bit pixels. A deeper processor would walk past the rows:
// refused, image unchanged.
TEST(QuickRotate, ImageFormDoesNotCompareDepths)
{
    CTraitementImg_8_Bpp p8;
    CDibRoot colour(CSize(6, 4), 24), grey(CSize(6, 4), 8);
    proc_test::fill_random(colour, 5);
    EXPECT_TRUE(p8.QuickRotate(CTraitementImgBase::e_Angle90, &colour));
    EXPECT_EQ(colour.Width(), 4);
    EXPECT_EQ(colour.Height(), 6);
    EXPECT_EQ(colour.BitCount(), 24);
    CTraitementImg_24_Bpp p24;
    proc_test::fill_random(grey, 6);
    const auto before = image_bytes(grey);
    EXPECT_FALSE(p24.QuickRotate(CTraitementImgBase::e_Angle90, &grey));
    EXPECT_EQ(grey.Width(), 6);
    EXPECT_EQ(image_bytes(grey), before);
}

TEST(AdditionSoustraction, NoOpThatStillValidates)
{
    CTraitementImg_16_Bpp p;
    CDibRoot a(CSize(4, 3), 16), b(CSize(4, 3), 16), c(CSize(4, 2), 16), d(CSize(4, 3), 8), empty;
    proc_test::fill_random(a, 1);
    proc_test::fill_random(b, 2);
    const auto a0 = image_bytes(a), b0 = image_bytes(b);
    EXPECT_TRUE(p.AdditionSoustraction(0.5f, &a, &b));
    EXPECT_EQ(image_bytes(a), a0);
    EXPECT_EQ(image_bytes(b), b0);
    EXPECT_FALSE(p.AdditionSoustraction(0.5f, &a, &c));
    EXPECT_FALSE(p.AdditionSoustraction(0.5f, &a, &d));
    EXPECT_FALSE(p.AdditionSoustraction(0.5f, nullptr, &b));
    EXPECT_FALSE(p.AdditionSoustraction(0.5f, &a, &empty));
    CRect rc;
    EXPECT_TRUE(CTraitementImg_8_Bpp().AdditionSoustraction(1.0f, 4, 3, nullptr, nullptr, rc));
}

TEST(ImageForms, RefuseNullWrongDepthAndInvalidImagesThenUseTheZone)
{
    CDibRoot empty, i16(CSize(3, 3), 16);
    proc_test::fill_random(i16, 8);
    const auto before = image_bytes(i16);
    for (int bpp : {8, 24})
        for (CDibRoot *img : {static_cast<CDibRoot *>(nullptr), &empty, &i16})
            EXPECT_FALSE(on_depth(bpp, [&](auto &t) {
                return t.Negatif(img) || t.Fill(0, img) || t.Mirroir_Horizontal(img) || t.Mirroir_Vertical(img);
            }));
    EXPECT_EQ(image_bytes(i16), before);
    CTraitementImg_16_Bpp p16;
    EXPECT_FALSE(p16.Negatif(&empty));
    i16.SetZoneTravail(CRect(1, 1, 1, 1));
    EXPECT_TRUE(p16.Fill(static_cast<unsigned short>(0x1234), &i16));
    auto expected = before;
    expected[8 + 2] = 0x34; // buffer row 1, pixel 1
    expected[8 + 3] = 0x12;
    EXPECT_EQ(image_bytes(i16), expected);
}

// The tiled quarter turn against the plain walk: random pictures, odd widths, single pixels,
// single rows and columns, sizes around the tile; whole buffers compared, padding included.
TEST(QuickRotate, TiledWalkGivesThePlainBytes)
{
    const long sizes[][2] = {{1, 1}, {1, 7}, {9, 1}, {31, 33}, {32, 32}, {33, 65}, {70, 3}, {101, 47}};
    uint32_t seed = 100;
    for (const auto &sz : sizes)
        for (int bpp : {8, 16, 24})
            for (int angle = 0; angle < 3; ++angle) {
                const long w = sz[0], h = sz[1];
                Buf src(w, h, bpp, ++seed);
                Buf fast(angle == 1 ? w : h, angle == 1 ? h : w, bpp, 1), plain = fast;
                detail::set_rotate_fast_enabled(false);
                ASSERT_TRUE(turn(bpp, angle, src, plain));
                detail::set_rotate_fast_enabled(true);
                ASSERT_TRUE(turn(bpp, angle, src, fast));
                EXPECT_EQ(proc_test::first_difference(fast.rows(), plain.rows(), fast.pitch), "")
                    << w << "x" << h << " bpp " << bpp << " angle " << angle;
                EXPECT_TRUE(fast.intact());
            }
}
