// Histograms of the three depths and the percentile stretch. Each expected stretch value is
// derived in single precision in the comment beside it.
#include <gtest/gtest.h>

#include <cstring>

#include "processing_test.h"

using namespace kevra;
using namespace proc_test;

namespace {

std::vector<long> counts(std::initializer_list<int> levels, std::size_t bins = 256)
{
    std::vector<long> h(bins, 0);
    for (int v : levels)
        ++h[v];
    return h;
}

// 100 x 100 16-bit buffer: 99 samples at 0, 1 at 5, 99 at 65535, the rest at 30000.
Buf stretch_case16()
{
    Buf buf(100, 100, 16);
    for (int n = 0; n < 10000; ++n)
        buf.set(n % 100, n / 100, n < 99 ? 0 : n == 99 ? 5 : n < 199 ? 65535 : 30000);
    return buf;
}

} // namespace

// The inclusive rectangle (picture rows top..bottom), arrays cleared to their depth's size:
// all 65536 counts at 16 bits, no more than 256 at 8.
TEST(Histogram, GreyCountsOverTheInclusiveRectangle)
{
    struct Case { CRect rc; std::initializer_list<int> levels; };
    const Case cases[] = {{CRect(1, 1, 3, 2), {11, 12, 13, 21, 22, 23}}, {CRect(4, 3, 4, 3), {4}}, {CRect(0, 3, 4, 0), {}}};
    for (int bpp : {8, 16})
        for (const Case &k : cases) {
            Buf buf(5, 4, bpp);
            for (long i = 0; i < 20; ++i)
                buf.set(i % 5, i / 5, static_cast<int>(10 * (i / 5) + i % 5));
            const std::size_t bins = bpp == 8 ? 256 : 65536;
            std::vector<long> h(65537, 77);
            CRect rc = k.rc;
            ASSERT_TRUE(bpp == 8 ? CTraitementImg_8_Bpp().Donne_Histogramme(h.data(), 5, 4, buf.bits(), rc)
                                 : CTraitementImg_16_Bpp().Donne_Histogramme(h.data(), 5, 4, buf.bits(), rc));
            EXPECT_EQ(std::vector<long>(h.begin(), h.begin() + bins), counts(k.levels, bins)) << bpp;
            EXPECT_EQ(h[bins], 77) << bpp;
        }
}

// The first byte counts as red. Luminance is 0.587 g + 0.299 r + 0.114 b in double, truncated:
// 18.15, 44.283, 253.99999999999997, 255, and 0.99999... for grey 1.
TEST(Histogram, ColourChannelsAndLuminance)
{
    CTraitementImg_24_Bpp p;
    Buf buf(5, 1, 24);
    const uint8_t px[15] = {10, 20, 30, 10, 21, 254, 254, 254, 254, 255, 255, 255, 1, 1, 1};
    std::memcpy(buf.bits(), px, 15);
    CRect rc(0, 0, 4, 0);
    std::vector<long> r(256, 9), g(256, 9), b(256, 9), lum(256, 9), r3(256), g3(256), b3(256);
    EXPECT_TRUE(p.Donne_HistogrammeRouge(r.data(), 5, 1, buf.bits(), rc));
    EXPECT_TRUE(p.Donne_HistogrammeVert(g.data(), 5, 1, buf.bits(), rc));
    EXPECT_TRUE(p.Donne_HistogrammeBleu(b.data(), 5, 1, buf.bits(), rc));
    EXPECT_TRUE(p.Donne_HistogrammeLuminance(lum.data(), 5, 1, buf.bits(), rc));
    EXPECT_TRUE(p.Donne_Histogrammes(r3.data(), g3.data(), b3.data(), 5, 1, buf.bits(), rc));
    EXPECT_EQ(r, counts({10, 10, 254, 255, 1}));
    EXPECT_EQ(g, counts({20, 21, 254, 255, 1}));
    EXPECT_EQ(b, counts({30, 254, 254, 255, 1}));
    EXPECT_EQ(lum, counts({18, 44, 253, 255, 0}));
    EXPECT_TRUE(r3 == r && g3 == g && b3 == b);
    // The image forms count the working zone.
    CDibRoot image(CSize(4, 4), 24);
    image_bytes(image, 9);
    image.SetZoneTravail(CRect(1, 1, 1, 1));
    const uint8_t *zone = image.GetPixelPtr(1, 2);
    EXPECT_TRUE(p.Donne_HistogrammeRouge(r.data(), &image) && p.Donne_Histogrammes(r3.data(), g3.data(), b3.data(), &image));
    EXPECT_TRUE(r == counts({zone[0]}) && b3 == counts({zone[2]}));
}

// 16 bits, p = 0.01, q = 0.99 on stretch_case16 in the left 100 x 100 of a buffer 100 or 200
// wide. 100 wide: a = 655, T1 = 100, b = 64880, T2 = 99 (1 - 0.99f is just below 0.01). The low
// cut reaches its 100 samples at level 5; the high cut stops after the 99 samples at 65535
// (with a high count of 100 it would go on down to 64880 and 30000 would move much further):
// 30000 -> trunc(29995 * (65535 / 65530)) = 29997, 5 -> 0. 200 wide: the counts T1 and T2
// double (200, 199) while the histogram still holds the rectangle only, so both cuts go
// further: low = a = 655, high = b = 64880, 30000 -> trunc(29345 * 65535 / 64225) = 29943.
// Outside the rectangle nothing changes.
TEST(EgalisationHistogramme, SixteenBitCutsAreSinglePrecisionOverTheWholeBuffersCount)
{
    for (long width : {100, 200}) {
        Buf small = stretch_case16(), buf(width, 100, 16);
        for (long r = 0; r < 100; ++r)
            std::memcpy(buf.bits() + r * buf.pitch, small.bits() + r * small.pitch, 200);
        const Buf before = buf;
        CRect rc(0, 0, 99, 99);
        EXPECT_TRUE(CTraitementImg_16_Bpp().EgalisationHistogramme(0.01f, 0.99f, width, 100, buf.bits(), rc));
        EXPECT_EQ(buf.get(50, 50), width == 100 ? 29997 : 29943);
        EXPECT_EQ(buf.get(99, 0), 0); // was 5: the low limit, or below it
        EXPECT_EQ(buf.get(0, 1), 65535);
        expect_in_rect(before, buf, rc, [&](int, long x, long r, int) { return buf.get(x, r); });
        EXPECT_TRUE(buf.intact());
    }
}

// 3920 pixels at 100, 6080 at 101. p = 0.392: a = 100, T1 = 3920 -> low 100. q = 0.3945:
// b = 100, T2 = 6055 -> high 101. 100 goes to 0 and 101 to 255, no ramp between.
TEST(EgalisationHistogramme, AdjacentLimitsWriteNoRamp)
{
    Buf buf(100, 100, 8);
    for (int n = 0; n < 10000; ++n)
        buf.set(n % 100, n / 100, n < 3920 ? 100 : 101);
    CRect all(0, 0, 99, 99);
    EXPECT_TRUE(CTraitementImg_8_Bpp().EgalisationHistogramme(0.392f, 0.3945f, 100, 100, buf.bits(), all));
    EXPECT_EQ(buf.get(0, 0), 0);
    EXPECT_EQ(buf.get(99, 99), 255);
}

// No cut is the identity at every depth; an allocation failure leaves the pixels.
TEST(EgalisationHistogramme, NoCutIsIdentityAndAllocationFailureLeavesThePixels)
{
    for (int bpp : {8, 16, 24}) {
        Buf buf(7, 3, bpp, 5);
        const auto before = buf.rows();
        CRect all(0, 0, 6, 2);
        EXPECT_TRUE(on_depth(bpp, [&](auto &t) { return t.EgalisationHistogramme(0, 1, 7, 3, buf.bits(), all); }));
        EXPECT_EQ(buf.rows(), before) << bpp;
    }
    Buf buf = stretch_case16();
    const auto before = buf.rows();
    CRect all(0, 0, 99, 99);
    FailAllocations fail(65536);
    EXPECT_FALSE(CTraitementImg_16_Bpp().EgalisationHistogramme(0.01f, 0.99f, 100, 100, buf.bits(), all));
    EXPECT_EQ(buf.rows(), before);
}

// 10 x 10: first byte 50 + i, second i, third 100 + i. With p = 0.05, q = 0.95 the channels'
// limits are (12, 243), (4, 243), (12, 243): one table from 4 to 243 for all three bytes.
TEST(EgalisationHistogramme, ColourUsesOneTableFromTheWidestLimits)
{
    Buf buf(10, 10, 24);
    for (int i = 0; i < 100; ++i)
        for (int c = 0; c < 3; ++c)
            buf.set(i % 10, i / 10, (c == 0 ? 50 : c == 1 ? 0 : 100) + i, c);
    const Buf before = buf;
    CRect all(0, 0, 9, 9);
    EXPECT_TRUE(CTraitementImg_24_Bpp().EgalisationHistogramme(0.05f, 0.95f, 10, 10, buf.bits(), all));
    expect_in_rect(before, buf, all, [](int v, long, long, int) {
        return v <= 4 ? 0 : v >= 243 ? 255 : static_cast<int>(static_cast<float>(v - 4) * (255.0f / 239.0f));
    });
    EXPECT_EQ(buf.get(5, 0, 1), 1); // second byte 5: the first level above the low limit
}
