// Per-depth classes: construction, negative, fill, mirrors, quarter turns, addition entry point.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "kevra/dib.h"
#include "kevra/lut.h"
#include "kevra/platform.h"
#include "kevra/traitement.h"
#include "lut/buffer_fixture.h"
#include "processing/detail/point_geometry.h"

using namespace kevra;
using lut_test::GuardedBuffer;

namespace {

template <class Base>
struct Open : Base {
    using Base::m_NbThreads;
    using Base::m_phThreads;
    using Base::m_pLUT;
    void set_depth(unsigned char bpp) { this->m_bpp = bpp; }
};

class ProcessorCount {
public:
    explicit ProcessorCount(unsigned n) { m_prev = platform::set_processor_count_handler([n] { return n; }); }
    ~ProcessorCount() { platform::set_processor_count_handler(m_prev); }

private:
    platform::processor_count_handler m_prev;
};

// Makes every allocation of exactly `bytes` bytes fail while alive.
class FailAllocation {
public:
    explicit FailAllocation(std::size_t bytes)
    {
        m_prev = platform::set_allocation_hook([bytes](std::size_t n) { return n == bytes; });
    }
    ~FailAllocation() { platform::set_allocation_hook(m_prev); }

private:
    platform::allocation_hook m_prev;
};

CRect whole(long w, long h) { return CRect(0, 0, static_cast<int>(w - 1), static_cast<int>(h - 1)); }

// One processor of each depth, chosen by bit count.
struct AnyDepth {
    CTraitementImg_8_Bpp p8;
    CTraitementImg_16_Bpp p16;
    CTraitementImg_24_Bpp p24;

    bool mirror_h(int bpp, GuardedBuffer &b, CRect rc)
    {
        return bpp == 8 ? p8.Mirroir_Horizontal(b.width(), b.height(), b.bits(), rc)
             : bpp == 16 ? p16.Mirroir_Horizontal(b.width(), b.height(), b.bits(), rc)
                         : p24.Mirroir_Horizontal(b.width(), b.height(), b.bits(), rc);
    }
    bool mirror_v(int bpp, GuardedBuffer &b, CRect rc)
    {
        return bpp == 8 ? p8.Mirroir_Vertical(b.width(), b.height(), b.bits(), rc)
             : bpp == 16 ? p16.Mirroir_Vertical(b.width(), b.height(), b.bits(), rc)
                         : p24.Mirroir_Vertical(b.width(), b.height(), b.bits(), rc);
    }
    bool turn(int bpp, int angle, GuardedBuffer &src, GuardedBuffer &dst)
    {
        const auto a = static_cast<CTraitementImgBase::e_angle>(angle);
        CRect ignored(100, 100, -100, -100);
        const long w = src.width(), h = src.height(), wo = dst.width(), ho = dst.height();
        return bpp == 8 ? p8.QuickRotate(a, w, h, src.bits(), ignored, wo, ho, dst.bits())
             : bpp == 16 ? p16.QuickRotate(a, w, h, src.bits(), ignored, wo, ho, dst.bits())
                         : p24.QuickRotate(a, w, h, src.bits(), ignored, wo, ho, dst.bits());
    }
};

} // namespace

TEST(PerDepthClasses, RecordsTablesAndWorkerSlots)
{
    Open<CTraitementImg_8_Bpp> p8;
    Open<CTraitementImg_16_Bpp> p16;
    Open<CTraitementImg_24_Bpp> p24;
    EXPECT_EQ(p8.GetBpp(), 8);
    EXPECT_EQ(p16.GetBpp(), 16);
    EXPECT_EQ(p24.GetBpp(), 24);
    EXPECT_STREQ(p16.GetRuntimeClass()->m_lpszClassName, "CTraitementImg_16_Bpp");
    EXPECT_TRUE(p24.IsKindOf(KEVRA_RUNTIME_CLASS(CTraitementImg)));
    EXPECT_TRUE(p24.IsKindOf(KEVRA_RUNTIME_CLASS(CTraitementImgBase)));
    EXPECT_FALSE(p8.IsKindOf(KEVRA_RUNTIME_CLASS(CTraitementImg_16_Bpp)));
    ASSERT_NE(p8.m_pLUT, nullptr);
    EXPECT_TRUE(p8.m_pLUT->IsKindOf(KEVRA_RUNTIME_CLASS(CLUT_8_Bpp)));
    EXPECT_TRUE(p16.m_pLUT->IsKindOf(KEVRA_RUNTIME_CLASS(CLUT_16_Bpp)));
    EXPECT_TRUE(p24.m_pLUT->IsKindOf(KEVRA_RUNTIME_CLASS(CLUT_24_Bpp)));
    EXPECT_TRUE(static_cast<CLUT_16_Bpp *>(p16.m_pLUT)->IsLinear45());
}

TEST(PerDepthClasses, WorkerCountIsProcessorCountButAtLeastTwo)
{
    const unsigned counts[][2] = {{1, 2}, {2, 2}, {3, 3}, {8, 8}};
    for (const auto &c : counts) {
        ProcessorCount pc(c[0]);
        Open<CTraitementImg_16_Bpp> p;
        EXPECT_EQ(p.m_NbThreads, static_cast<int>(c[1])) << c[0];
        ASSERT_NE(p.m_phThreads, nullptr);
        for (int i = 0; i < p.m_NbThreads; ++i)
            EXPECT_EQ(p.m_phThreads[i], nullptr);
    }
}

TEST(PerDepthClasses, TableAllocationFailureStillConstructs)
{
    FailAllocation fail(sizeof(CLUT_16_Bpp));
    Open<CTraitementImg_16_Bpp> p;
    EXPECT_EQ(p.m_pLUT, nullptr);
    GuardedBuffer buf(3, 3, 16);
    CRect rc = whole(3, 3);
    EXPECT_FALSE(p.ReglageContraste(0.0f, 3, 3, buf.bits(), rc));
    EXPECT_TRUE(p.Fill(static_cast<unsigned short>(7), 3, 3, buf.bits(), rc));
}

TEST(Negatif, EveryLevelOfEachDepth)
{
    CTraitementImg_8_Bpp p8;
    GuardedBuffer b8(256, 1, 8);
    for (int i = 0; i < 256; ++i)
        *b8.at(i, 0) = static_cast<uint8_t>(i);
    CRect r8 = whole(256, 1);
    EXPECT_TRUE(p8.Negatif(256, 1, b8.bits(), r8));
    for (int i = 0; i < 256; ++i)
        ASSERT_EQ(*b8.at(i, 0), 255 - i);

    CTraitementImg_16_Bpp p16;
    GuardedBuffer b16(257, 256, 16); // odd width: padded rows
    for (int i = 0; i < 65536; ++i)
        b16.set_u16(i % 256, i / 256, static_cast<uint16_t>(i));
    CRect r16(0, 0, 255, 255);
    EXPECT_TRUE(p16.Negatif(257, 256, b16.bits(), r16));
    for (int i = 0; i < 65536; ++i)
        ASSERT_EQ(b16.u16(i % 256, i / 256), 65535 - i);
    for (int r = 0; r < 256; ++r)
        ASSERT_EQ(b16.u16(256, r), b16.u16(256, r)); // column 256 outside the rectangle: see below
    EXPECT_TRUE(b16.padding_intact());
    EXPECT_TRUE(b16.guards_intact());

    CTraitementImg_24_Bpp p24;
    GuardedBuffer b24(5, 3, 24, 9);
    const auto before = b24.rows();
    CRect r24(1, 0, 3, 1); // memory rows 1..2
    EXPECT_TRUE(p24.Negatif(5, 3, b24.bits(), r24));
    for (long r = 0; r < 3; ++r)
        for (long x = 0; x < 5; ++x)
            for (int c = 0; c < 3; ++c) {
                const uint8_t was = before[b24.pitch() * r + 3 * x + c];
                const bool inside = x >= 1 && x <= 3 && r >= 1;
                ASSERT_EQ(b24.at(x, r)[c], inside ? 255 - was : was);
            }
    EXPECT_TRUE(b24.padding_intact());
}

TEST(Negatif, GreyTableAllocationFailureChangesNothing)
{
    CTraitementImg_16_Bpp p;
    GuardedBuffer buf(4, 4, 16, 3);
    const auto before = buf.rows();
    CRect rc = whole(4, 4);
    FailAllocation fail(sizeof(CLUT_16_Bpp));
    EXPECT_FALSE(p.Negatif(4, 4, buf.bits(), rc));
    EXPECT_EQ(buf.rows(), before);
}

TEST(Fill, InclusiveRectangleAndByteOrder)
{
    CTraitementImg_24_Bpp p24;
    GuardedBuffer b24(4, 4, 24, 5);
    const auto before = b24.rows();
    CRect row(1, 2, 2, 2); // exactly picture row 2 = memory row 1
    EXPECT_TRUE(p24.Fill(0xAB112233ul, 4, 4, b24.bits(), row));
    for (long r = 0; r < 4; ++r)
        for (long x = 0; x < 4; ++x) {
            const bool inside = r == 1 && (x == 1 || x == 2);
            const uint8_t *px = b24.at(x, r);
            const uint8_t *was = &before[b24.pitch() * r + 3 * x];
            if (inside) {
                EXPECT_EQ(px[0], 0x33);
                EXPECT_EQ(px[1], 0x22);
                EXPECT_EQ(px[2], 0x11);
            } else {
                EXPECT_EQ(std::memcmp(px, was, 3), 0) << x << "," << r;
            }
        }
    EXPECT_TRUE(b24.padding_intact());

    CTraitementImg_16_Bpp p16;
    GuardedBuffer b16(3, 3, 16, 6);
    CRect rc16(0, 0, 2, 1);
    EXPECT_TRUE(p16.Fill(static_cast<unsigned short>(0xBEEF), 3, 3, b16.bits(), rc16));
    EXPECT_EQ(b16.u16(2, 2), 0xBEEF);
    EXPECT_EQ(b16.u16(0, 1), 0xBEEF);
    EXPECT_NE(b16.u16(0, 0), 0xBEEF);

    CTraitementImg_8_Bpp p8;
    GuardedBuffer b8(3, 3, 8, 7);
    const auto b8before = b8.rows();
    CRect upside(0, 2, 2, 0);
    EXPECT_TRUE(p8.Fill(static_cast<unsigned char>(1), 3, 3, b8.bits(), upside));
    EXPECT_EQ(b8.rows(), b8before);
    CRect huge(-5, -5, 50, 50);
    EXPECT_TRUE(p8.Fill(static_cast<unsigned char>(9), 3, 3, b8.bits(), huge));
    for (long r = 0; r < 3; ++r)
        for (long x = 0; x < 3; ++x)
            EXPECT_EQ(*b8.at(x, r), 9);
    EXPECT_TRUE(b8.padding_intact());
    EXPECT_TRUE(b8.guards_intact());
}

TEST(MirroirHorizontal, EvenSpanLeavesCentrePairAndBottomRow)
{
    CTraitementImg_8_Bpp p;
    GuardedBuffer buf(6, 3, 8);
    for (long r = 0; r < 3; ++r)
        for (long x = 0; x < 6; ++x)
            *buf.at(x, r) = static_cast<uint8_t>(10 * r + x);
    CRect four(0, 0, 3, 2); // 4 pixels wide: only 0 <-> 3
    EXPECT_TRUE(p.Mirroir_Horizontal(6, 3, buf.bits(), four));
    // Picture rows 0..1 = memory rows 2..1 are mirrored; picture row 2 (memory row 0) is not.
    const uint8_t expect_row[] = {3, 1, 2, 0, 4, 5};
    for (long r = 1; r < 3; ++r)
        for (long x = 0; x < 6; ++x)
            EXPECT_EQ(*buf.at(x, r), 10 * r + expect_row[x]) << x << "," << r;
    for (long x = 0; x < 6; ++x)
        EXPECT_EQ(*buf.at(x, 0), x);
}

TEST(MirroirHorizontal, OddSpanExchangesAllPairsAtEachDepth)
{
    CTraitementImg_16_Bpp p16;
    GuardedBuffer b16(5, 2, 16);
    for (long x = 0; x < 5; ++x)
        b16.set_u16(x, 1, static_cast<uint16_t>(1000 + x));
    CRect rc(0, 0, 4, 1);
    EXPECT_TRUE(p16.Mirroir_Horizontal(5, 2, b16.bits(), rc));
    for (long x = 0; x < 5; ++x)
        EXPECT_EQ(b16.u16(x, 1), 1004 - x);

    CTraitementImg_24_Bpp p24;
    GuardedBuffer b24(5, 2, 24, 3);
    const auto before = b24.rows();
    EXPECT_TRUE(p24.Mirroir_Horizontal(5, 2, b24.bits(), rc));
    for (long x = 0; x < 5; ++x)
        EXPECT_EQ(std::memcmp(b24.at(x, 1), &before[b24.pitch() + 3 * (4 - x)], 3), 0) << x;
    EXPECT_EQ(std::memcmp(b24.at(0, 0), &before[0], 15), 0); // bottom row untouched
    EXPECT_TRUE(b24.padding_intact());
}

TEST(MirroirHorizontal, ColourPixelAllocationFailureChangesNothing)
{
    GuardedBuffer buf(5, 3, 24, 8);
    const auto before = buf.rows();
    CRect rc = whole(5, 3);
    CTraitementImg_24_Bpp p24;
    {
        FailAllocation fail(3);
        EXPECT_FALSE(p24.Mirroir_Horizontal(5, 3, buf.bits(), rc));
        EXPECT_EQ(buf.rows(), before);
        // The grey classes need no allocation.
        GuardedBuffer grey(5, 3, 8, 8);
        CTraitementImg_8_Bpp p8;
        EXPECT_TRUE(p8.Mirroir_Horizontal(5, 3, grey.bits(), rc));
    }
    EXPECT_TRUE(p24.Mirroir_Horizontal(5, 3, buf.bits(), rc));
    EXPECT_NE(buf.rows(), before);
}

TEST(MirroirVertical, ExchangesRowsAboveTheBottomRowOnly)
{
    CTraitementImg_8_Bpp p;
    GuardedBuffer buf(3, 5, 8);
    for (long r = 0; r < 5; ++r)
        for (long x = 0; x < 3; ++x)
            *buf.pic(x, r) = static_cast<uint8_t>(10 * r + x);
    CRect rc(1, 0, 2, 3); // picture rows 0..3: pairs (3 - 0) / 2 = 1: rows 0 <-> 2
    EXPECT_TRUE(p.Mirroir_Vertical(3, 5, buf.bits(), rc));
    const int expect_rows[] = {2, 1, 0, 3, 4};
    for (long y = 0; y < 5; ++y)
        for (long x = 0; x < 3; ++x) {
            const int src = x >= 1 ? expect_rows[y] : static_cast<int>(y);
            EXPECT_EQ(*buf.pic(x, y), 10 * src + x) << x << "," << y;
        }
    // One row: nothing, and true.
    const auto before = buf.rows();
    CRect one(0, 2, 2, 2);
    EXPECT_TRUE(p.Mirroir_Vertical(3, 5, buf.bits(), one));
    EXPECT_EQ(buf.rows(), before);
}

TEST(MirroirVertical, ColourSegmentsAndAllocationFailure)
{
    CTraitementImg_24_Bpp p;
    GuardedBuffer buf(4, 6, 24, 12);
    const auto before = buf.rows();
    CRect rc(1, 1, 2, 5); // pairs 2: picture rows 1<->4, 2<->3; row 5 untouched
    {
        FailAllocation fail(6); // the 2-pixel segment
        EXPECT_FALSE(p.Mirroir_Vertical(4, 6, buf.bits(), rc));
        EXPECT_EQ(buf.rows(), before);
    }
    EXPECT_TRUE(p.Mirroir_Vertical(4, 6, buf.bits(), rc));
    const int src_row[] = {0, 4, 3, 2, 1, 5};
    for (long y = 0; y < 6; ++y)
        for (long x = 0; x < 4; ++x) {
            const long from = (x >= 1 && x <= 2) ? src_row[y] : y;
            EXPECT_EQ(std::memcmp(buf.pic(x, y), &before[buf.pitch() * (5 - from) + 3 * x], 3), 0) << x << "," << y;
        }
    EXPECT_TRUE(buf.padding_intact());
}

TEST(Mirrors, TwiceRestoresAndOutsideRectanglesStayInside)
{
    AnyDepth p;
    for (int bpp : {8, 16, 24}) {
        GuardedBuffer buf(7, 9, bpp, 40 + bpp);
        const auto before = buf.rows();
        const CRect rc(-3, -2, 40, 30);
        for (int i = 0; i < 2; ++i)
            EXPECT_TRUE(p.mirror_h(bpp, buf, rc) && p.mirror_v(bpp, buf, rc));
        EXPECT_EQ(buf.rows(), before) << bpp;
        EXPECT_TRUE(buf.guards_intact()) << bpp;
    }
}

TEST(ColourClassDepthField, OtherDepthMovesSingleBytes)
{
    Open<CTraitementImg_24_Bpp> p;
    p.set_depth(8);
    GuardedBuffer buf(5, 2, 8);
    for (long x = 0; x < 5; ++x)
        *buf.at(x, 1) = static_cast<uint8_t>(x);
    CRect rc(0, 0, 4, 1);
    EXPECT_TRUE(p.Mirroir_Horizontal(5, 2, buf.bits(), rc));
    for (long x = 0; x < 5; ++x)
        EXPECT_EQ(*buf.at(x, 1), 4 - x);
    GuardedBuffer out(2, 5, 8);
    EXPECT_TRUE(p.QuickRotate(CTraitementImgBase::e_Angle90, 5, 2, buf.bits(), rc, 2, 5, out.bits()));
    EXPECT_EQ(*out.at(1, 4), 4); // source (0, 1) -> (1, 4)
    EXPECT_TRUE(out.padding_intact());
}

TEST(ColourClassDepthField, FillWritesThreeBytesWhateverTheDepth)
{
    Open<CTraitementImg_24_Bpp> p;
    p.set_depth(8);
    GuardedBuffer buf(4, 1, 24);
    CRect rc(1, 0, 2, 0);
    EXPECT_TRUE(p.Fill(0x332211ul, 4, 1, buf.bits(), rc));
    const uint8_t expect[6] = {0x11, 0x22, 0x33, 0x11, 0x22, 0x33};
    EXPECT_EQ(std::memcmp(buf.at(1, 0), expect, 6), 0);
}

TEST(QuickRotate, MappingsAtEachDepth)
{
    // Source 3 x 2, pixel (x, r) holds 1 + x + 3r (times 1000 at 16 bits; +50 per byte at 24).
    AnyDepth p;
    for (int bpp : {8, 16, 24}) {
        GuardedBuffer src(3, 2, bpp);
        for (long r = 0; r < 2; ++r)
            for (long x = 0; x < 3; ++x) {
                const int v = static_cast<int>(1 + x + 3 * r);
                if (bpp == 16)
                    src.set_u16(x, r, static_cast<uint16_t>(v * 1000));
                else
                    for (int c = 0; c < bpp / 8; ++c)
                        src.at(x, r)[c] = static_cast<uint8_t>(v + 50 * c);
            }
        auto get = [&](const GuardedBuffer &b, long x, long r) { return bpp == 16 ? b.u16(x, r) / 1000 : b.at(x, r)[0]; };
        GuardedBuffer d0(2, 3, bpp), d1(3, 2, bpp), d2(2, 3, bpp);
        ASSERT_TRUE(p.turn(bpp, 0, src, d0) && p.turn(bpp, 1, src, d1) && p.turn(bpp, 2, src, d2));
        for (long r = 0; r < 2; ++r)
            for (long x = 0; x < 3; ++x) {
                const int v = static_cast<int>(1 + x + 3 * r);
                EXPECT_EQ(get(d0, r, 2 - x), v) << bpp;
                EXPECT_EQ(get(d1, 2 - x, 1 - r), v) << bpp;
                EXPECT_EQ(get(d2, 1 - r, x), v) << bpp;
            }
        if (bpp == 24) {
            EXPECT_EQ(d0.at(0, 2)[2], 101); // all three bytes travel: (0, 0) -> (0, 2)
        }
        EXPECT_TRUE(d0.padding_intact() && d1.padding_intact() && d2.padding_intact());
        EXPECT_TRUE(d0.guards_intact() && d1.guards_intact() && d2.guards_intact());
    }
}

TEST(QuickRotate, RefusalsWriteNothing)
{
    CTraitementImg_8_Bpp p;
    GuardedBuffer src(3, 2, 8), dst(3, 3, 8, 2);
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
    CDibRoot image(CSize(100, 50), 8);
    lut_test::fill_random(image, 3);
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
    CDibRoot empty;
    EXPECT_FALSE(p.QuickRotate(CTraitementImgBase::e_Angle180, &empty));
}

TEST(QuickRotate, ImageFormDoesNotCompareDepths)
{
    // An 8-bit processor turns a 24-bit image as if its rows held 8-bit pixels: the result is
    // true and the image changes size, keeping its depth.
    CTraitementImg_8_Bpp p8;
    CDibRoot colour(CSize(6, 4), 24);
    lut_test::fill_random(colour, 5);
    EXPECT_TRUE(p8.QuickRotate(CTraitementImgBase::e_Angle90, &colour));
    EXPECT_EQ(colour.Width(), 4);
    EXPECT_EQ(colour.Height(), 6);
    EXPECT_EQ(colour.BitCount(), 24);

    // A processor deeper than the image would walk past its rows: refused, image unchanged.
    CTraitementImg_24_Bpp p24;
    CDibRoot grey(CSize(6, 4), 8);
    lut_test::fill_random(grey, 6);
    const auto before = lut_test::image_bytes(grey);
    EXPECT_FALSE(p24.QuickRotate(CTraitementImgBase::e_Angle90, &grey));
    EXPECT_EQ(grey.Width(), 6);
    EXPECT_EQ(lut_test::image_bytes(grey), before);
}

TEST(AdditionSoustraction, NoOpThatStillValidates)
{
    CTraitementImg_16_Bpp p;
    CDibRoot a(CSize(4, 3), 16), b(CSize(4, 3), 16), c(CSize(4, 2), 16), d(CSize(4, 3), 8);
    lut_test::fill_random(a, 1);
    lut_test::fill_random(b, 2);
    const auto a0 = lut_test::image_bytes(a), b0 = lut_test::image_bytes(b);
    EXPECT_TRUE(p.AdditionSoustraction(0.5f, &a, &b));
    EXPECT_EQ(lut_test::image_bytes(a), a0);
    EXPECT_EQ(lut_test::image_bytes(b), b0);
    EXPECT_FALSE(p.AdditionSoustraction(0.5f, &a, &c));
    EXPECT_FALSE(p.AdditionSoustraction(0.5f, &a, &d));
    EXPECT_FALSE(p.AdditionSoustraction(0.5f, nullptr, &b));
    CDibRoot empty;
    EXPECT_FALSE(p.AdditionSoustraction(0.5f, &a, &empty));
    CRect rc;
    CTraitementImg_8_Bpp p8;
    EXPECT_TRUE(p8.AdditionSoustraction(1.0f, 4, 3, nullptr, nullptr, rc));
}

TEST(ImageForms, RefuseNullWrongDepthAndInvalidImages)
{
    CTraitementImg_8_Bpp p8;
    CTraitementImg_16_Bpp p16;
    CTraitementImg_24_Bpp p24;
    CDibRoot empty;
    CDibRoot i16(CSize(3, 3), 16);
    lut_test::fill_random(i16, 8);
    const auto before = lut_test::image_bytes(i16);
    for (CDibRoot *img : {static_cast<CDibRoot *>(nullptr), &empty, &i16}) {
        EXPECT_FALSE(p8.Negatif(img));
        EXPECT_FALSE(p8.Fill(static_cast<unsigned char>(0), img));
        EXPECT_FALSE(p8.Mirroir_Horizontal(img));
        EXPECT_FALSE(p8.Mirroir_Vertical(img));
        EXPECT_FALSE(p24.Negatif(img));
        EXPECT_FALSE(p24.Fill(0ul, img));
        EXPECT_FALSE(p24.Mirroir_Horizontal(img));
        EXPECT_FALSE(p24.Mirroir_Vertical(img));
    }
    EXPECT_EQ(lut_test::image_bytes(i16), before);
    EXPECT_FALSE(p16.Negatif(&empty));
    // The working zone is what the image forms touch.
    i16.SetZoneTravail(CRect(1, 1, 1, 1));
    EXPECT_TRUE(p16.Fill(static_cast<unsigned short>(0x1234), &i16));
    const auto after = lut_test::image_bytes(i16);
    for (std::size_t i = 0; i < after.size(); ++i) {
        const bool centre = i == 8 + 2 || i == 8 + 3; // memory row 1, pixel 1
        EXPECT_EQ(after[i], centre ? (i == 10 ? 0x34 : 0x12) : before[i]) << i;
    }
}

// The tiled quarter turn against the plain walk: random pictures, odd widths, single pixels,
// single rows and columns, sizes around the tile; whole buffers compared, padding included.
TEST(QuickRotate, TiledWalkGivesThePlainBytes)
{
    const long sizes[][2] = {{1, 1}, {1, 7}, {9, 1}, {31, 33}, {32, 32}, {33, 65}, {70, 3}, {101, 47}};
    AnyDepth p;
    uint32_t seed = 100;
    for (const auto &sz : sizes)
        for (int bpp : {8, 16, 24})
            for (int angle = 0; angle < 3; ++angle) {
                const long w = sz[0], h = sz[1];
                GuardedBuffer src(w, h, bpp, ++seed);
                GuardedBuffer fast(angle == 1 ? w : h, angle == 1 ? h : w, bpp, 1);
                GuardedBuffer plain(angle == 1 ? w : h, angle == 1 ? h : w, bpp, 1);
                detail::set_rotate_fast_enabled(true);
                ASSERT_TRUE(p.turn(bpp, angle, src, fast));
                detail::set_rotate_fast_enabled(false);
                ASSERT_TRUE(p.turn(bpp, angle, src, plain));
                detail::set_rotate_fast_enabled(true);
                const auto a = fast.rows(), b = plain.rows();
                std::size_t first = 0;
                while (first < a.size() && a[first] == b[first])
                    ++first;
                EXPECT_EQ(first, a.size()) << w << "x" << h << " bpp " << bpp << " angle " << angle
                                           << ": first differing byte " << first;
                EXPECT_TRUE(fast.guards_intact() && fast.padding_intact());
            }
}
