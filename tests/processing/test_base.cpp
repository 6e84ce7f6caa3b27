// Processing base and middle class: class records, addressing, clipping, the float plane and
// its helpers, tone adjustments and the placeholder pseudo-relief.
#include <gtest/gtest.h>


#include "core/pixel.h"
#include "kevra/lut.h"
#include "processing_test.h"

using namespace kevra;
using namespace proc_test;

namespace {

// Opens the protected float-plane members to the tests.
class Base : public CTraitementImgBase {
public:
    using CTraitementImgBase::CTraitementImgBase;
    using CTraitementImgBase::AdditionSoustractionFloat;
    using CTraitementImgBase::ConvertToBits;
    using CTraitementImgBase::ConvertToFloat;
    using CTraitementImgBase::TronqueValeurs;
};

constexpr float kUntouched = -7.0f;

} // namespace

TEST(ProcessingBase, ClassRecordsAddressingAndClipping)
{
    CTraitementImg_16_Bpp p16;
    EXPECT_STREQ(Base(8).GetRuntimeClass()->m_lpszClassName, "CTraitementImgBase");
    EXPECT_STREQ(CTraitementImg::classCTraitementImg.m_lpszClassName, "CTraitementImg");
    EXPECT_EQ(CTraitementImg::classCTraitementImg.m_pBaseClass, KEVRA_RUNTIME_CLASS(CTraitementImgBase));
    EXPECT_STREQ(CTraitementImg_8_Bpp::classCTraitementImg_8_Bpp.m_lpszClassName, "CTraitementImg_8_Bpp");
    EXPECT_STREQ(p16.GetRuntimeClass()->m_lpszClassName, "CTraitementImg_16_Bpp");
    EXPECT_STREQ(CTraitementImg_24_Bpp::classCTraitementImg_24_Bpp.m_lpszClassName, "CTraitementImg_24_Bpp");
    EXPECT_TRUE(p16.IsKindOf(KEVRA_RUNTIME_CLASS(CTraitementImg)) && p16.IsKindOf(KEVRA_RUNTIME_CLASS(CObject)));
    EXPECT_FALSE(p16.IsKindOf(KEVRA_RUNTIME_CLASS(CTraitementImg_8_Bpp)));
    EXPECT_EQ(Base(8).Pitch(1), 4);
    EXPECT_EQ(Base(24).Pitch(3), 12);
    EXPECT_EQ(Base(16).Pitch(2), 4);
    EXPECT_EQ(Base().GetBpp(), 24);
    EXPECT_EQ(Base(24).XOffset(5), 15);
    EXPECT_EQ(Base(16).YOffset(3, 5), 36);
    unsigned char buf[64];
    EXPECT_EQ(Base(24).PixelPtr(2, 1, 3, buf), buf + 12 + 6);
    // Picture row 0 is the last buffer row; rectangles are clipped, not refused.
    detail::Span s = detail::clip_rect(4, 3, CRect(0, 0, 3, 0));
    EXPECT_TRUE(s.r0 == 2 && s.r1 == 2);
    s = detail::clip_rect(4, 3, CRect(-5, -5, 100, 100));
    EXPECT_TRUE(s.x0 == 0 && s.x1 == 3 && s.r0 == 0 && s.r1 == 2);
    EXPECT_TRUE(detail::clip_rect(4, 3, CRect(0, 2, 3, 1)).empty()); // top > bottom
    EXPECT_TRUE(detail::clip_rect(4, 3, CRect(INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN)).empty());
    EXPECT_TRUE(detail::clip_rect(4, 3, CRect(INT32_MAX, INT32_MAX, INT32_MAX, INT32_MAX)).empty());
}

// Round trip of every depth over a rectangle: the plane outside it is untouched, fractions are
// truncated on the way back, and a value out of range keeps its low bits (no clamping).
TEST(ProcessingBase, ConvertRoundTripEveryDepthInsideTheRectangleOnly)
{
    for (int bpp : {8, 16, 24}) {
        SCOPED_TRACE(bpp);
        const int w = 5, h = 4, ch = bpp == 24 ? 3 : 1;
        Buf buf(w, h, bpp, 7);
        const Buf before = buf;
        Base b(static_cast<unsigned char>(bpp));
        std::vector<float> plane(static_cast<std::size_t>(w * h * ch), kUntouched);
        CRect rc(1, 1, 3, 2); // picture rows 1..2 = buffer rows 1..2
        ASSERT_TRUE(b.ConvertToFloat(w, h, buf.bits(), plane.data(), rc));
        for (int i = 0; i < w * h * ch; ++i) {
            const int x = i / ch % w, r = i / ch / w;
            ASSERT_EQ(plane[i], x >= 1 && x <= 3 && r >= 1 && r <= 2 ? buf.get(x, r, i % ch) : kUntouched) << i;
            plane[i] += 0.75f;
        }
        plane[(1 + w) * ch] = bpp == 16 ? 65537.9f : 300.7f;
        ASSERT_TRUE(b.ConvertToBits(w, h, buf.bits(), plane.data(), rc));
        expect_in_rect(before, buf, rc, [&](int old, long x, long r, int c) {
            return x == 1 && r == 1 && c == 0 ? (bpp == 16 ? 1 : 44) : old;
        });
    }
}

TEST(ProcessingBase, TronqueValeursAdditionAndNullArguments)
{
    Base b8(8), b24(24), odd(4);
    std::vector<float> plane = {-5, 10, 300, 7, 8, 9};
    ASSERT_TRUE(b24.TronqueValeurs(2, 1, plane.data(), CRect(0, 0, 0, 0), 0, 255));
    EXPECT_EQ(plane, (std::vector<float>{0, 10, 255, 7, 8, 9}));
    // min is tested first, then max: with min > max every value ends at max.
    ASSERT_TRUE(b24.TronqueValeurs(2, 1, plane.data(), CRect(0, 0, 1, 0), 100, 50));
    EXPECT_EQ(plane, std::vector<float>(6, 50));
    std::vector<float> dst = {1, 2, 3, 4}, src = {10, 20, 30, 40};
    ASSERT_TRUE(b8.AdditionSoustractionFloat(-0.5f, 2, 2, dst.data(), src.data(), CRect(1, 0, 1, 1)));
    EXPECT_EQ(dst, (std::vector<float>{1, 2 - 10.0f, 3, 4 - 20.0f}));
    std::vector<float> d3(6, 1.0f), s3 = {1, 2, 3, 4, 5, 6};
    ASSERT_TRUE(b24.AdditionSoustractionFloat(2.0f, 2, 1, d3.data(), s3.data(), CRect(1, 0, 5, 0)));
    EXPECT_EQ(d3, (std::vector<float>{1, 1, 1, 9, 11, 13}));

    unsigned char px[4] = {};
    CRect rc(0, 0, 0, 0);
    EXPECT_FALSE(b8.ConvertToFloat(1, 1, nullptr, plane.data(), rc) ||
                 b8.ConvertToFloat(1, 1, px, nullptr, rc) ||
                 b8.ConvertToBits(1, 1, nullptr, plane.data(), rc) ||
                 b8.TronqueValeurs(1, 1, nullptr, rc, 0, 1) ||
                 b8.AdditionSoustractionFloat(1, 1, 1, plane.data(), nullptr, rc));
    EXPECT_TRUE(b8.ConvertToFloat(1, 1, px, plane.data(), CRect(0, 2, 0, 1))); // top > bottom: nothing
    // Another depth converts and clamps nothing, and succeeds.
    EXPECT_TRUE(odd.ConvertToFloat(1, 1, px, plane.data(), rc) && odd.TronqueValeurs(1, 1, plane.data(), rc, 0, 1));
    EXPECT_EQ(plane, std::vector<float>(6, 50));
}

TEST(ProcessingBase, ImageFormsCheckDepthAndValidity)
{
    Base b(16);
    CDibRoot img(CSize(3, 2), 16), wrong(CSize(3, 2), 8), empty;
    img.SetZoneTravail(CRect(1, 0, 1, 0)); // picture row 0 = buffer row 1
    img.GetPixelPtr(1, 1)[0] = 0x34;
    img.GetPixelPtr(1, 1)[1] = 0x12;
    std::vector<float> plane(6, kUntouched);
    EXPECT_FALSE(b.ConvertToFloat(nullptr, plane.data()) || b.ConvertToFloat(&img, nullptr));
    EXPECT_FALSE(b.ConvertToFloat(&wrong, plane.data()) || b.ConvertToFloat(&empty, plane.data()));
    EXPECT_FALSE(b.ConvertToBits(&wrong, plane.data()) || b.IsOK(&wrong));
    EXPECT_TRUE(b.IsOK(&img));
    ASSERT_TRUE(b.ConvertToFloat(&img, plane.data()));
    EXPECT_EQ(plane, (std::vector<float>{kUntouched, kUntouched, kUntouched, kUntouched, 0x1234, kUntouched}));
    plane[4] = 7;
    ASSERT_TRUE(b.ConvertToBits(&img, plane.data()));
    EXPECT_EQ(img.GetPixelPtr(1, 1)[0], 7);
}

// Every level of each depth through each adjustment, against the table built with its triple
// (the 24-bit class applies the grey table to each byte).
TEST(Tone, EachAdjustmentUsesItsTriple)
{
    struct Case { int which; float v, l, c, g; };
    const Case cases[] = {{0, 0.25f, 0.25f, 1, 1}, {1, 1.7f, 0, 1.7f, 1}, {2, 0.6f, 0, 1, 0.6f}, {3, 0, 0.1f, 1.3f, 0.8f}};
    for (int bpp : {8, 16, 24})
        for (const Case &k : cases) {
            SCOPED_TRACE(testing::Message() << bpp << " bits, case " << k.which);
            Buf buf(256, bpp == 16 ? 256 : 1, bpp);
            for (long p = 0; p < buf.w * buf.h; ++p)
                for (int c = 0; c < buf.channels(); ++c)
                    buf.set(p % 256, p / 256, static_cast<int>(p), c);
            const Buf before = buf;
            CRect rc(0, 0, 255, 255);
            ASSERT_TRUE(on_depth(bpp, [&](CTraitementImg &p) {
                return k.which == 0 ? p.ReglageLuminosite(k.v, buf.w, buf.h, buf.bits(), rc)
                     : k.which == 1 ? p.ReglageContraste(k.v, buf.w, buf.h, buf.bits(), rc)
                     : k.which == 2 ? p.ReglageGamma(k.v, buf.w, buf.h, buf.bits(), rc)
                                    : p.ReglageLuminositeContrasteGamma(k.l, k.c, k.g, buf.w, buf.h, buf.bits(), rc);
            }));
            CLUT_8_Bpp t8;
            CLUT_16_Bpp t16;
            t8.SetLuminositeConstrateGamma(k.l, k.c, k.g);
            t16.SetLuminositeConstrateGamma(k.l, k.c, k.g);
            expect_in_rect(before, buf, rc, [&](int v, long, long, int) { return bpp == 16 ? t16[v] : t8[v]; });
        }
}

TEST(Pseudo3D, AlwaysFalseAndTargetUntouched)
{
    CTraitementImg_8_Bpp p;
    CDibRoot a(CSize(5, 5), 8), b(CSize(5, 5), 8), c(CSize(5, 5), 24), d(CSize(5, 5), 16), empty;
    const auto target = image_bytes(b, 2);
    EXPECT_FALSE(p.Pseudo3D(&a, &b));
    EXPECT_EQ(image_bytes(b), target);
    EXPECT_FALSE(p.Pseudo3D(&a, &d) || p.Pseudo3D(&c, &c) || p.Pseudo3D(nullptr, &b) || p.Pseudo3D(&empty, &empty));
    EXPECT_FALSE(p.Pseudo3D(a.GetInfo(), a.GetBits(), b.GetInfo(), nullptr));
    EXPECT_FALSE(p.Pseudo3D(a.GetInfo(), a.GetBits(), b.GetInfo(), b.GetBits()));
}
