// Processing base: addressing, clipping, the float plane round trip and the float-plane helpers.
#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "kevra/dib.h"
#include "kevra/traitement_base.h"
#include "processing/detail/float_store.h"
#include "processing/detail/pixel.h"
#include "processing_test.h"

using namespace kevra;
using proc_test::Buf;

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

TEST(ProcessingBase, AddressingAndClipping)
{
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

TEST(ProcessingBase, FloatStoreTruncatesAndKeepsLowBits)
{
    EXPECT_EQ(detail::store_u8(300.7f), 44);
    EXPECT_EQ(detail::store_u8(255.9f), 255);
    EXPECT_EQ(detail::store_u8(0.99f), 0);
    EXPECT_EQ(detail::store_u16(65536.5f), 0);
    EXPECT_EQ(detail::store_u16(70000.0f), 70000 - 65536);
    // Deterministic out-of-range rule: truncate, then two's-complement wrap.
    EXPECT_EQ(detail::store_u8(-1.5f), 0xFF);
    EXPECT_EQ(detail::store_u16(-2.0f), 0xFFFE);
    EXPECT_EQ(detail::store_u8(std::numeric_limits<float>::quiet_NaN()), 0);
    EXPECT_EQ(detail::store_u8(1e30f), 0);
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
        for (int r = 0; r < h; ++r)
            for (int x = 0; x < w; ++x)
                for (int c = 0; c < ch; ++c) {
                    const bool inside = x >= 1 && x <= 3 && r >= 1 && r <= 2;
                    ASSERT_EQ(plane[(x + r * w) * ch + c], inside ? buf.get(x, r, c) : kUntouched);
                }
        for (float &v : plane)
            v += 0.75f;
        plane[(1 + w) * ch] = bpp == 16 ? 65537.9f : 300.7f;
        ASSERT_TRUE(b.ConvertToBits(w, h, buf.bits(), plane.data(), rc));
        proc_test::expect_in_rect(before, buf, rc, [&](int old, long x, long r, int c) {
            return x == 1 && r == 1 && c == 0 ? (bpp == 16 ? 1 : 44) : old;
        });
    }
}

TEST(ProcessingBase, NullArgumentsAndOtherDepths)
{
    Base b(8), odd(4);
    float plane[4] = {};
    unsigned char px[4] = {};
    CRect rc(0, 0, 0, 0);
    EXPECT_FALSE(b.ConvertToFloat(1, 1, nullptr, plane, rc));
    EXPECT_FALSE(b.ConvertToFloat(1, 1, px, nullptr, rc));
    EXPECT_FALSE(b.ConvertToBits(1, 1, nullptr, plane, rc));
    EXPECT_FALSE(b.TronqueValeurs(1, 1, nullptr, rc, 0, 1));
    EXPECT_FALSE(b.AdditionSoustractionFloat(1, 1, 1, plane, nullptr, rc));
    EXPECT_TRUE(b.ConvertToFloat(1, 1, px, plane, CRect(0, 2, 0, 1))); // top > bottom: nothing
    plane[0] = 5;
    EXPECT_TRUE(odd.ConvertToFloat(1, 1, px, plane, rc));
    EXPECT_TRUE(odd.TronqueValeurs(1, 1, plane, rc, 0, 1));
    EXPECT_EQ(plane[0], 5);
}

TEST(ProcessingBase, TronqueValeursAndAdditionOverTheRectangle)
{
    Base b8(8), b24(24);
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
}

TEST(ProcessingBase, ImageFormsCheckDepthAndValidity)
{
    Base b(16);
    CDibRoot img(CSize(3, 2), 16), wrong(CSize(3, 2), 8), empty;
    img.SetZoneTravail(CRect(1, 0, 1, 0)); // picture row 0 = buffer row 1
    uint8_t *p = img.GetPixelPtr(1, 1);
    p[0] = 0x34;
    p[1] = 0x12;
    std::vector<float> plane(6, kUntouched);
    EXPECT_FALSE(b.ConvertToFloat(nullptr, plane.data()));
    EXPECT_FALSE(b.ConvertToFloat(&img, nullptr));
    EXPECT_FALSE(b.ConvertToFloat(&wrong, plane.data()));
    EXPECT_FALSE(b.ConvertToFloat(&empty, plane.data()));
    EXPECT_FALSE(b.IsOK(&wrong));
    EXPECT_TRUE(b.IsOK(&img));
    ASSERT_TRUE(b.ConvertToFloat(&img, plane.data()));
    EXPECT_EQ(plane[4], 0x1234);
    EXPECT_EQ(plane[0], kUntouched);
    plane[4] = 7;
    ASSERT_TRUE(b.ConvertToBits(&img, plane.data()));
    EXPECT_EQ(img.GetPixelPtr(1, 1)[0], 7);
    EXPECT_FALSE(b.ConvertToBits(&wrong, plane.data()));
}
