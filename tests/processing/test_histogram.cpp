// Histograms of the three depths and the percentile stretch. Expected stretch tables were
// computed separately with single-precision emulation.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "kevra/dib.h"
#include "kevra/platform.h"
#include "kevra/traitement.h"
#include "lut/buffer_fixture.h"

using namespace kevra;
using lut_test::GuardedBuffer;

TEST(Histogram, GreyCountsOverTheInclusiveRectangle)
{
    CTraitementImg_8_Bpp p;
    GuardedBuffer buf(5, 4, 8);
    for (long r = 0; r < 4; ++r)
        for (long x = 0; x < 5; ++x)
            *buf.at(x, r) = static_cast<uint8_t>(10 * r + x);
    std::vector<long> h(256, 77);
    CRect rc(1, 1, 3, 2); // picture rows 1..2 = memory rows 2..1
    EXPECT_TRUE(p.Donne_Histogramme(h.data(), 5, 4, buf.bits(), rc));
    long total = 0;
    for (int i = 0; i < 256; ++i) {
        const bool counted = (i >= 11 && i <= 13) || (i >= 21 && i <= 23);
        EXPECT_EQ(h[i], counted ? 1 : 0) << i;
        total += h[i];
    }
    EXPECT_EQ(total, 6);
    CRect one(4, 3, 4, 3);
    EXPECT_TRUE(p.Donne_Histogramme(h.data(), 5, 4, buf.bits(), one));
    EXPECT_EQ(h[4], 1); // picture row 3 = memory row 0
    CRect upside(0, 3, 4, 0);
    EXPECT_TRUE(p.Donne_Histogramme(h.data(), 5, 4, buf.bits(), upside));
    for (int i = 0; i < 256; ++i)
        ASSERT_EQ(h[i], 0);
    EXPECT_FALSE(p.Donne_Histogramme(nullptr, 5, 4, buf.bits(), rc));
}

TEST(Histogram, SixteenBitsClearsAll65536Counts)
{
    CTraitementImg_16_Bpp p;
    CDibRoot image(CSize(3, 2), 12); // a "12-bit" image is stored with 16 bits
    ASSERT_EQ(image.BitCount(), 16);
    const uint16_t values[6] = {0, 4095, 4095, 17, 65535, 4095};
    std::memcpy(image.GetBits(), values, 6);
    std::memcpy(image.GetBits() + image.Pitch(), values + 3, 6);
    std::vector<long> h(65536, -5);
    EXPECT_TRUE(p.Donne_Histogrammes(h.data(), &image));
    long total = 0;
    for (int i = 0; i < 65536; ++i)
        total += h[i];
    EXPECT_EQ(total, 6);
    EXPECT_EQ(h[4095], 3);
    EXPECT_EQ(h[65535], 1);
    EXPECT_EQ(h[17], 1);
    CDibRoot grey8(CSize(3, 2), 8);
    EXPECT_FALSE(p.Donne_Histogrammes(h.data(), &grey8));
    EXPECT_FALSE(p.Donne_Histogrammes(h.data(), nullptr));
}

TEST(Histogram, ColourChannelsCountFirstByteAsRed)
{
    CTraitementImg_24_Bpp p;
    GuardedBuffer buf(2, 1, 24);
    const uint8_t px[6] = {10, 20, 30, 10, 21, 254};
    std::memcpy(buf.bits(), px, 6);
    CRect rc(0, 0, 1, 0);
    std::vector<long> r(256), g(256), b(256), lum(256), r3(256), g3(256), b3(256);
    EXPECT_TRUE(p.Donne_HistogrammeRouge(r.data(), 2, 1, buf.bits(), rc));
    EXPECT_TRUE(p.Donne_HistogrammeVert(g.data(), 2, 1, buf.bits(), rc));
    EXPECT_TRUE(p.Donne_HistogrammeBleu(b.data(), 2, 1, buf.bits(), rc));
    EXPECT_EQ(r[10], 2);
    EXPECT_EQ(g[20], 1);
    EXPECT_EQ(g[21], 1);
    EXPECT_EQ(b[30], 1);
    EXPECT_EQ(b[254], 1);
    EXPECT_TRUE(p.Donne_Histogrammes(r3.data(), g3.data(), b3.data(), 2, 1, buf.bits(), rc));
    EXPECT_EQ(r3, r);
    EXPECT_EQ(g3, g);
    EXPECT_EQ(b3, b);
    EXPECT_TRUE(p.Donne_HistogrammeLuminance(lum.data(), 2, 1, buf.bits(), rc));
    // 0.587 * 20 + 0.299 * 10 + 0.114 * 30 = 18.15; 0.587 * 21 + 2.99 + 0.114 * 254 = 44.283
    EXPECT_EQ(lum[18], 1);
    EXPECT_EQ(lum[44], 1);
}

TEST(Histogram, LuminanceTruncatesBelowGreyLevels)
{
    CTraitementImg_24_Bpp p;
    GuardedBuffer buf(3, 1, 24);
    const uint8_t px[9] = {254, 254, 254, 255, 255, 255, 1, 1, 1};
    std::memcpy(buf.bits(), px, 9);
    CRect rc(0, 0, 2, 0);
    std::vector<long> lum(256);
    EXPECT_TRUE(p.Donne_HistogrammeLuminance(lum.data(), 3, 1, buf.bits(), rc));
    EXPECT_EQ(lum[253], 1); // 253.99999999999997
    EXPECT_EQ(lum[255], 1);
    EXPECT_EQ(lum[0], 1); // grey 1 gives 0.99999...
}

TEST(Histogram, ColourImageForms)
{
    CTraitementImg_24_Bpp p;
    CDibRoot image(CSize(4, 4), 24);
    lut_test::fill_random(image, 9);
    image.SetZoneTravail(CRect(1, 1, 1, 1));
    std::vector<long> r(256, 3), g(256), b(256);
    EXPECT_TRUE(p.Donne_HistogrammeRouge(r.data(), &image));
    long total = 0;
    for (long v : r)
        total += v;
    EXPECT_EQ(total, 1);
    EXPECT_EQ(r[image.GetPixelPtr(1, 2)[0]], 1);
    EXPECT_TRUE(p.Donne_Histogrammes(r.data(), g.data(), b.data(), &image));
    EXPECT_EQ(b[image.GetPixelPtr(1, 2)[2]], 1);
    CDibRoot grey(CSize(4, 4), 8);
    EXPECT_FALSE(p.Donne_HistogrammeLuminance(r.data(), &grey));
    EXPECT_FALSE(p.Donne_Histogrammes(r.data(), g.data(), b.data(), nullptr));
}

namespace {

// 100 x 100 16-bit buffer: 99 samples at 0, 1 at 5, 99 at 65535, the rest at 30000.
GuardedBuffer stretch_case16()
{
    GuardedBuffer buf(100, 100, 16);
    int n = 0;
    for (long r = 0; r < 100; ++r)
        for (long x = 0; x < 100; ++x, ++n)
            buf.set_u16(x, r, n < 99 ? 0 : n == 99 ? 5 : n < 199 ? 65535 : 30000);
    return buf;
}

} // namespace

TEST(EgalisationHistogramme, SixteenBitCutsAreSinglePrecision)
{
    // a = 655, T1 = 100, b = 64880, T2 = 99 (1 - 0.99f is just below 0.01). The low cut reaches
    // its 100 samples at level 5; the high cut stops after the 99 samples at 65535. With a high
    // count of 100 it would go on down to 64880 and 30000 would move much further.
    CTraitementImg_16_Bpp p;
    GuardedBuffer buf = stretch_case16();
    CRect all(0, 0, 99, 99);
    EXPECT_TRUE(p.EgalisationHistogramme(0.01f, 0.99f, 100, 100, buf.bits(), all));
    EXPECT_EQ(buf.u16(0, 0), 0);
    EXPECT_EQ(buf.u16(99, 0), 0);      // was 5 = low
    EXPECT_EQ(buf.u16(0, 1), 65535);
    EXPECT_EQ(buf.u16(50, 50), 29997); // trunc(29995 * (65535 / 65530))
    EXPECT_TRUE(buf.padding_intact());
    EXPECT_TRUE(buf.guards_intact());
}

TEST(EgalisationHistogramme, PixelCountIsTheWholeBuffer)
{
    // Same samples in the top-left 100 x 100 of a 200 x 100 buffer: the counts T1 and T2 double
    // (200, 199) while the histogram still holds the rectangle only, so both cuts go further.
    CTraitementImg_16_Bpp p;
    GuardedBuffer small = stretch_case16();
    GuardedBuffer buf(200, 100, 16);
    for (long r = 0; r < 100; ++r)
        std::memcpy(buf.at(0, r), small.at(0, r), 200);
    const auto before = buf.rows();
    CRect rc(0, 0, 99, 99);
    EXPECT_TRUE(p.EgalisationHistogramme(0.01f, 0.99f, 200, 100, buf.bits(), rc));
    // low = a = 655, high = b = 64880: 30000 -> trunc(29345 * 65535 / 64225)
    EXPECT_EQ(buf.u16(50, 50), 29943);
    for (long r = 0; r < 100; ++r) // right half: outside the rectangle
        EXPECT_EQ(std::memcmp(buf.at(100, r), &before[buf.pitch() * r + 200], 200), 0);
}

TEST(EgalisationHistogramme, NoCutStretchIsIdentity)
{
    CTraitementImg_8_Bpp p8;
    GuardedBuffer b8(7, 3, 8, 5);
    const auto before = b8.rows();
    CRect all(0, 0, 6, 2);
    EXPECT_TRUE(p8.EgalisationHistogramme(0.0f, 1.0f, 7, 3, b8.bits(), all));
    EXPECT_EQ(b8.rows(), before);
}

TEST(EgalisationHistogramme, AdjacentLimitsWriteNoRamp)
{
    // 100 x 100 8-bit: 3920 pixels at 100, 6080 at 101. p = 0.392: a = 100, T1 = 3920 -> low
    // 100. q = 0.3945: b = 100, T2 = 6055 -> high 101. 100 goes to 0 and 101 to 255.
    CTraitementImg_8_Bpp p;
    GuardedBuffer buf(100, 100, 8);
    int n = 0;
    for (long r = 0; r < 100; ++r)
        for (long x = 0; x < 100; ++x, ++n)
            *buf.at(x, r) = n < 3920 ? 100 : 101;
    CRect all(0, 0, 99, 99);
    EXPECT_TRUE(p.EgalisationHistogramme(0.392f, 0.3945f, 100, 100, buf.bits(), all));
    EXPECT_EQ(*buf.at(0, 0), 0);
    EXPECT_EQ(*buf.at(99, 99), 255);
}

TEST(EgalisationHistogramme, AllocationFailureLeavesTheBuffer)
{
    CTraitementImg_16_Bpp p;
    GuardedBuffer buf = stretch_case16();
    const auto before = buf.rows();
    CRect all(0, 0, 99, 99);
    auto previous = platform::set_allocation_hook([](std::size_t n) { return n >= 65536; });
    EXPECT_FALSE(p.EgalisationHistogramme(0.01f, 0.99f, 100, 100, buf.bits(), all));
    platform::set_allocation_hook(previous);
    EXPECT_EQ(buf.rows(), before);
}

TEST(EgalisationHistogramme, ColourUsesOneTableFromTheWidestLimits)
{
    // 10 x 10: first byte 50 + i, second i, third 100 + i. With p = 0.05, q = 0.95 the channels'
    // limits are (12, 243), (4, 243), (12, 243): one table from 4 to 243 for all three bytes.
    CTraitementImg_24_Bpp p;
    GuardedBuffer buf(10, 10, 24);
    for (int i = 0; i < 100; ++i) {
        uint8_t *px = buf.at(i % 10, i / 10);
        px[0] = static_cast<uint8_t>(50 + i);
        px[1] = static_cast<uint8_t>(i);
        px[2] = static_cast<uint8_t>(100 + i);
    }
    CRect all(0, 0, 9, 9);
    EXPECT_TRUE(p.EgalisationHistogramme(0.05f, 0.95f, 10, 10, buf.bits(), all));
    auto table = [](int v) { return v <= 4 ? 0 : v >= 243 ? 255 : static_cast<int>(static_cast<float>(v - 4) * (255.0f / 239.0f)); };
    for (int i = 0; i < 100; ++i) {
        const uint8_t *px = buf.at(i % 10, i / 10);
        ASSERT_EQ(px[0], table(50 + i)) << i;
        ASSERT_EQ(px[1], table(i)) << i;
        ASSERT_EQ(px[2], table(100 + i)) << i;
    }
    EXPECT_EQ(buf.at(5, 0)[1], 1); // second byte 5: the first level above the low limit
    EXPECT_TRUE(buf.padding_intact());
}

TEST(EgalisationHistogramme, GreyColourImageStaysGreyAndMatchesTheGreyClass)
{
    GuardedBuffer grey(9, 7, 8, 21);
    GuardedBuffer colour(9, 7, 24);
    for (long r = 0; r < 7; ++r)
        for (long x = 0; x < 9; ++x)
            std::memset(colour.at(x, r), *grey.at(x, r), 3);
    CRect rc(1, 1, 7, 5);
    CTraitementImg_8_Bpp p8;
    CTraitementImg_24_Bpp p24;
    EXPECT_TRUE(p8.EgalisationHistogramme(0.1f, 0.9f, 9, 7, grey.bits(), rc));
    EXPECT_TRUE(p24.EgalisationHistogramme(0.1f, 0.9f, 9, 7, colour.bits(), rc));
    for (long r = 0; r < 7; ++r)
        for (long x = 0; x < 9; ++x)
            for (int c = 0; c < 3; ++c)
                ASSERT_EQ(colour.at(x, r)[c], *grey.at(x, r)) << x << "," << r;
}

TEST(EgalisationHistogramme, ImageFormsRefuse)
{
    CTraitementImg_8_Bpp p8;
    CTraitementImg_24_Bpp p24;
    CDibRoot colour(CSize(3, 3), 24), empty;
    lut_test::fill_random(colour, 2);
    const auto before = lut_test::image_bytes(colour);
    EXPECT_FALSE(p8.EgalisationHistogramme(0.1f, 0.9f, &colour));
    EXPECT_FALSE(p8.EgalisationHistogramme(0.1f, 0.9f, nullptr));
    EXPECT_FALSE(p24.EgalisationHistogramme(0.1f, 0.9f, &empty));
    EXPECT_EQ(lut_test::image_bytes(colour), before);
    EXPECT_TRUE(p24.EgalisationHistogramme(0.1f, 0.9f, &colour));
}
