// Class records, tone adjustments through CTraitementImg and the placeholder pseudo-relief.
#include <gtest/gtest.h>

#include <vector>

#include "kevra/dib.h"
#include "kevra/lut.h"
#include "kevra/platform.h"
#include "kevra/traitement.h"
#include "processing_test.h"

using namespace kevra;
using proc_test::Buf;
using proc_test::image_bytes;

TEST(ProcessingClasses, RuntimeRecords)
{
    CTraitementImg_8_Bpp p8;
    CTraitementImg_16_Bpp p16;
    CTraitementImgBase base(8);
    EXPECT_STREQ(base.GetRuntimeClass()->m_lpszClassName, "CTraitementImgBase");
    EXPECT_TRUE(base.IsKindOf(KEVRA_RUNTIME_CLASS(CObject)));
    EXPECT_FALSE(CObject::classCObject.IsDerivedFrom(KEVRA_RUNTIME_CLASS(CTraitementImgBase)));
    EXPECT_STREQ(CTraitementImg::classCTraitementImg.m_lpszClassName, "CTraitementImg");
    EXPECT_EQ(CTraitementImg::classCTraitementImg.m_pBaseClass, KEVRA_RUNTIME_CLASS(CTraitementImgBase));
    EXPECT_STREQ(p8.GetRuntimeClass()->m_lpszClassName, "CTraitementImg_8_Bpp");
    EXPECT_STREQ(p16.GetRuntimeClass()->m_lpszClassName, "CTraitementImg_16_Bpp");
    EXPECT_STREQ(CTraitementImg_24_Bpp::classCTraitementImg_24_Bpp.m_lpszClassName, "CTraitementImg_24_Bpp");
    EXPECT_TRUE(p8.IsKindOf(KEVRA_RUNTIME_CLASS(CTraitementImg)));
    EXPECT_FALSE(p8.IsKindOf(KEVRA_RUNTIME_CLASS(CTraitementImg_16_Bpp)));
}

// Every level of each depth through each adjustment, against the table built with its triple.
TEST(Tone, EachAdjustmentUsesItsTriple)
{
    struct Case { int which; float v, l, c, g; };
    const Case cases[] = {{0, 0.25f, 0.25f, 1, 1}, {1, 1.7f, 0, 1.7f, 1}, {2, 0.6f, 0, 1, 0.6f}, {3, 0, 0.1f, 1.3f, 0.8f}};
    for (int bpp : {8, 16})
        for (const Case &k : cases) {
            SCOPED_TRACE(testing::Message() << bpp << " bits, case " << k.which);
            const long n = bpp == 8 ? 256 : 65536;
            Buf buf(256, n / 256, bpp);
            for (long i = 0; i < n; ++i)
                buf.set(i % 256, i / 256, static_cast<int>(i));
            const Buf before = buf;
            CRect rc(0, 0, 255, 255);
            ASSERT_TRUE(proc_test::on_depth(bpp, [&](CTraitementImg &p) {
                return k.which == 0 ? p.ReglageLuminosite(k.v, buf.w, buf.h, buf.bits(), rc)
                     : k.which == 1 ? p.ReglageContraste(k.v, buf.w, buf.h, buf.bits(), rc)
                     : k.which == 2 ? p.ReglageGamma(k.v, buf.w, buf.h, buf.bits(), rc)
                                    : p.ReglageLuminositeContrasteGamma(k.l, k.c, k.g, buf.w, buf.h, buf.bits(), rc);
            }));
            CLUT_8_Bpp t8;
            CLUT_16_Bpp t16;
            t8.SetLuminositeConstrateGamma(k.l, k.c, k.g);
            t16.SetLuminositeConstrateGamma(k.l, k.c, k.g);
            proc_test::expect_in_rect(before, buf, rc, [&](int v, long, long, int) {
                return bpp == 8 ? static_cast<int>(t8[v]) : static_cast<int>(t16[v]);
            });
        }
}

TEST(Tone, ColourAdjustmentTouchesAllThreeBytes)
{
    CTraitementImg_24_Bpp p;
    Buf buf(3, 2, 24, 6);
    const Buf before = buf;
    CRect rc(0, 0, 2, 1);
    EXPECT_TRUE(p.ReglageContraste(0.5f, 3, 2, buf.bits(), rc));
    CLUT_8_Bpp half;
    half.SetContraste(0.5f);
    proc_test::expect_in_rect(before, buf, rc, [&](int v, long, long, int) { return half[v]; });
}

TEST(Tone, ImageFormWorksOnTheZoneAndRefuses)
{
    CTraitementImg_16_Bpp p;
    CDibRoot image(CSize(4, 3), 16), colour(CSize(3, 3), 24), empty;
    proc_test::fill_random(image, 4);
    image.SetZoneTravail(CRect(0, 0, 1, 0)); // picture row 0 = buffer row 2, columns 0..1
    const auto before = image_bytes(image);
    EXPECT_TRUE(p.ReglageLuminositeContrasteGamma(0.5f, 1.0f, 1.0f, &image));
    const auto after = image_bytes(image);
    for (std::size_t i = 0; i < after.size(); i += 2) {
        const unsigned was = before[i] | before[i + 1] << 8, now = after[i] | after[i + 1] << 8;
        const bool inside = i >= 16 && i < 20; // brightness 0.5: 32767 + v, saturating
        EXPECT_EQ(now, inside ? (was + 32767u > 65535u ? 65535u : was + 32767u) : was) << i;
    }
    proc_test::fill_random(colour, 8);
    const auto colour0 = image_bytes(colour);
    CTraitementImg_8_Bpp p8;
    EXPECT_FALSE(p8.ReglageContraste(2.0f, &colour));
    EXPECT_FALSE(p8.ReglageGamma(2.0f, nullptr));
    EXPECT_FALSE(p8.ReglageLuminosite(0.1f, &empty));
    // Without a working table (its allocation failed) the adjustments fail and touch nothing.
    auto previous = platform::set_allocation_hook([](std::size_t n) { return n == sizeof(CLUT_24_Bpp); });
    CTraitementImg_24_Bpp noTable;
    platform::set_allocation_hook(previous);
    EXPECT_FALSE(noTable.ReglageLuminositeContrasteGamma(0.1f, 2.0f, 1.0f, &colour));
    EXPECT_EQ(image_bytes(colour), colour0);
}

TEST(Pseudo3D, AlwaysFalseAndTargetUntouched)
{
    CTraitementImg_8_Bpp p;
    CDibRoot a(CSize(5, 5), 8), b(CSize(5, 5), 8), c(CSize(5, 5), 24), d(CSize(5, 5), 16), empty;
    proc_test::fill_random(b, 2);
    const auto target = image_bytes(b);
    EXPECT_FALSE(p.Pseudo3D(&a, &b));
    EXPECT_EQ(image_bytes(b), target);
    EXPECT_FALSE(p.Pseudo3D(&a, &d));
    EXPECT_FALSE(p.Pseudo3D(&c, &c));
    EXPECT_FALSE(p.Pseudo3D(nullptr, &b));
    EXPECT_FALSE(p.Pseudo3D(a.GetInfo(), a.GetBits(), b.GetInfo(), nullptr));
    EXPECT_FALSE(p.Pseudo3D(a.GetInfo(), a.GetBits(), b.GetInfo(), b.GetBits()));
    EXPECT_FALSE(p.Pseudo3D(&empty, &empty));
}
