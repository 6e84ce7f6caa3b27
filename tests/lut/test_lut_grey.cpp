// Grey tables: construction, the brightness/contrast/gamma formula, composition, application.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "kevra/dib.h"
#include "kevra/lut.h"
#include "lut/buffer_fixture.h"

using namespace kevra;
using lut_test::GuardedBuffer;

namespace {

uint32_t crc_of(const CLUT_8_Bpp &lut) { return lut_test::crc32(lut.Donne_Table(), 256); }
uint32_t crc_of(const CLUT_16_Bpp &lut) { return lut_test::crc32(lut.Donne_Table(), 65536 * 2); }

} // namespace

TEST(LutGrey, RunTimeRecordsNameObjectAsBaseOfTables)
{
    CLUT_8_Bpp l8;
    CLUT_16_Bpp l16;
    EXPECT_TRUE(l8.IsKindOf(KEVRA_RUNTIME_CLASS(CLUT)));
    EXPECT_TRUE(l8.IsKindOf(KEVRA_RUNTIME_CLASS(CObject)));
    EXPECT_FALSE(l8.IsKindOf(KEVRA_RUNTIME_CLASS(CTraitementImgBase)));
    EXPECT_FALSE(l16.IsKindOf(KEVRA_RUNTIME_CLASS(CLUT_8_Bpp)));
    EXPECT_STREQ(l16.GetRuntimeClass()->m_lpszClassName, "CLUT_16_Bpp");
    EXPECT_EQ(l8.GetBpp(), 8);
    EXPECT_EQ(l16.GetBpp(), 16);
    EXPECT_EQ(l8.Donne_NbEntrees(), 256);
    EXPECT_EQ(l16.Donne_NbEntrees(), 65536);
}

TEST(LutGrey, ConstructionFromNullIsIdentityAndFromArrayCopies)
{
    CLUT_8_Bpp id8;
    CLUT_16_Bpp id16(nullptr);
    for (int i = 0; i < 65536; ++i)
        ASSERT_EQ(id16[i], i);
    EXPECT_TRUE(id8.IsLinear45());
    EXPECT_TRUE(id16.IsLinear45());

    unsigned char src[256];
    for (int i = 0; i < 256; ++i)
        src[i] = static_cast<unsigned char>(i * 7 + 3);
    CLUT_8_Bpp from(src);
    CLUT_8_Bpp copy(from);
    for (int i = 0; i < 256; ++i) {
        EXPECT_EQ(from[i], src[i]);
        EXPECT_EQ(copy[i], src[i]);
    }
}

TEST(LutGrey, Table16FromArrayTakesOnlyTheLowerHalf)
{
    std::vector<unsigned short> src(65536);
    for (int i = 0; i < 65536; ++i)
        src[i] = static_cast<unsigned short>(65535 - i);
    CLUT_16_Bpp lut(src.data());
    for (int i = 0; i < 32768; ++i)
        ASSERT_EQ(lut[i], 65535 - i);
    for (int i = 32768; i < 65536; ++i)
        ASSERT_EQ(lut[i], 0) << i;
    CLUT_16_Bpp copy(lut);
    EXPECT_EQ(crc_of(copy), crc_of(lut));
}

// Expected tables computed independently (float32 emulation of the formula) and kept as CRC-32
// of the entries, so that every one of the 256 / 65536 entries is checked.
TEST(LutGrey, ToneFormulaExhaustive)
{
    struct Case { float l, c, g; uint32_t crc8, crc16; };
    const Case cases[] = {
        {0.5f, 1.0f, 1.0f, 0x4336d641u, 0xb504b774u},
        {0.0f, 2.0f, 1.0f, 0x31862b9eu, 0x06d6a842u},
        {0.0f, 1.0f, 0.5f, 0xdbd09e01u, 0x8e462bf5u},
        {0.0f, 1.0f, 2.2f, 0xc3381a61u, 0x2713a056u},
        {0.1f, 1.5f, 0.8f, 0xb6385f8fu, 0x8ca1f1c5u},
        {-0.2f, 1.3f, 1.7f, 0xb2279248u, 0x740f6058u},
    };
    for (const Case &k : cases) {
        CLUT_8_Bpp l8;
        CLUT_16_Bpp l16;
        EXPECT_TRUE(l8.SetLuminositeConstrateGamma(k.l, k.c, k.g));
        EXPECT_TRUE(l16.SetLuminositeConstrateGamma(k.l, k.c, k.g));
        EXPECT_EQ(crc_of(l8), k.crc8) << k.l << " " << k.c << " " << k.g;
        EXPECT_EQ(crc_of(l16), k.crc16) << k.l << " " << k.c << " " << k.g;
    }
    // A few entries in clear, to read the CRCs by.
    CLUT_16_Bpp l16;
    l16.SetLuminositeConstrateGamma(0.0f, 1.0f, 0.5f);
    EXPECT_EQ(l16[1], 255);
    EXPECT_EQ(l16[2], 362);
    EXPECT_EQ(l16[32768], 46340);
    EXPECT_EQ(l16[65534], 65534);
    EXPECT_EQ(l16[65535], 65535);
}

TEST(LutGrey, BrightnessHalfStartsAt127AndSaturates)
{
    CLUT_8_Bpp lut;
    lut.SetLuminositeConstrateGamma(0.5f, 1.0f, 1.0f);
    EXPECT_EQ(lut[0], 127); // 0.5 * 255 = 127.5, truncated
    EXPECT_EQ(lut[1], 128);
    EXPECT_EQ(lut[127], 254);
    for (int i = 128; i < 256; ++i)
        EXPECT_EQ(lut[i], 255) << i;
}

TEST(LutGrey, ZeroOrNegativeContrastGivesBlack)
{
    for (float c : {0.0f, -1.0f, -0.01f}) {
        CLUT_8_Bpp l8;
        CLUT_16_Bpp l16;
        l8.SetLuminositeConstrateGamma(0.0f, c, 1.0f);
        l16.SetLuminositeConstrateGamma(0.0f, c, 1.0f);
        for (int i = 0; i < 256; ++i)
            ASSERT_EQ(l8[i], 0);
        for (int i = 0; i < 65536; ++i)
            ASSERT_EQ(l16[i], 0);
    }
}

TEST(LutGrey, NotANumberLevelIsBlack)
{
    // Gamma -1 makes x = 0 infinite; times a zero contrast that is not a number: entry 0.
    // Every other entry is finite and 0 * p + 0.25 gives a quarter of full scale.
    CLUT_8_Bpp lut;
    lut.SetLuminositeConstrateGamma(0.25f, 0.0f, -1.0f);
    EXPECT_EQ(lut[0], 0);
    EXPECT_EQ(lut[1], 63);
    // With a positive contrast the infinite entry saturates instead.
    lut.SetLuminositeConstrateGamma(0.0f, 1.0f, -1.0f);
    EXPECT_EQ(lut[0], 255);
    EXPECT_EQ(lut[255], 255);
}

TEST(LutGrey, UnitSettingsGiveIdentityAndContrastTwoDoesNot)
{
    CLUT_8_Bpp l8;
    CLUT_16_Bpp l16;
    l8.SetLuminositeConstrateGamma(0.0f, 1.0f, 1.0f);
    l16.SetLuminositeConstrateGamma(0.0f, 1.0f, 1.0f);
    EXPECT_TRUE(l8.IsLinear45());
    EXPECT_TRUE(l16.IsLinear45());
    EXPECT_TRUE(l8.SetContraste(2.0f));
    EXPECT_FALSE(l8.IsLinear45());
    EXPECT_EQ(l8[100], 200);
    EXPECT_EQ(l8[128], 255);
}

TEST(LutGrey, CopierAndCombinerTakeOnlyTheSameClass)
{
    CLUT_8_Bpp a, b;
    a.SetContraste(2.0f);
    b.SetLuminositeConstrateGamma(0.5f, 1.0f, 1.0f);
    const CLUT_8_Bpp before(a);

    CLUT_16_Bpp other;
    other.SetContraste(0.0f);
    a.Copier(&other);
    a.Combiner(&other);
    a.Copier(nullptr);
    a.Combiner(nullptr);
    EXPECT_EQ(crc_of(a), crc_of(before));

    // this first, then b on its result
    a.Combiner(&b);
    for (int i = 0; i < 256; ++i)
        EXPECT_EQ(a[i], b[before[i]]) << i;
    a.Copier(&b);
    EXPECT_EQ(crc_of(a), crc_of(b));

    CLUT_16_Bpp c, d;
    c.SetContraste(2.0f);
    d.SetLuminositeConstrateGamma(0.25f, 1.0f, 1.0f);
    const CLUT_16_Bpp c0(c);
    c.Combiner(&a); // 8-bit table: nothing
    EXPECT_EQ(crc_of(c), crc_of(c0));
    c.Combiner(&d);
    for (int i = 0; i < 65536; i += 97)
        EXPECT_EQ(c[i], d[c0[i]]) << i;
}

TEST(LutGrey, CombinerWithItselfAppliesTheTableTwice)
{
    CLUT_8_Bpp lut;
    lut.SetContraste(1.5f);
    const CLUT_8_Bpp once(lut);
    lut.Combiner(&lut);
    for (int i = 0; i < 256; ++i)
        EXPECT_EQ(lut[i], once[once[i]]);
}

TEST(LutGrey, FiltrerBufferCoversTheInclusiveRectangleOnly)
{
    // 8-bit, odd width so rows carry padding.
    GuardedBuffer buf(7, 5, 8, 11);
    const std::vector<uint8_t> before = buf.rows();
    CLUT_8_Bpp neg;
    for (int i = 0; i < 256; ++i)
        neg.Donne_Table()[i] = static_cast<unsigned char>(255 - i);
    CRect rc(2, 1, 4, 3); // columns 2..4, picture rows 1..3 = memory rows 1..3
    EXPECT_TRUE(neg.FiltrerBuffer(7, 5, buf.bits(), rc));
    for (long r = 0; r < 5; ++r)
        for (long x = 0; x < 7; ++x) {
            const uint8_t was = before[buf.pitch() * r + x];
            const bool inside = x >= 2 && x <= 4 && r >= 1 && r <= 3;
            EXPECT_EQ(*buf.at(x, r), inside ? 255 - was : was) << x << "," << r;
        }
    EXPECT_TRUE(buf.padding_intact());
    EXPECT_TRUE(buf.guards_intact());

    // Picture row 0 is the last memory row.
    GuardedBuffer top(3, 4, 16, 12);
    const uint16_t v = top.u16(1, 3);
    CLUT_16_Bpp neg16;
    for (int i = 0; i < 65536; ++i)
        neg16.Donne_Table()[i] = static_cast<unsigned short>(65535 - i);
    CRect row0(1, 0, 1, 0);
    neg16.FiltrerBuffer(3, 4, top.bits(), row0);
    EXPECT_EQ(top.u16(1, 3), 65535 - v);

    // top below bottom: nothing
    GuardedBuffer none(4, 4, 8, 13);
    const std::vector<uint8_t> n0 = none.rows();
    CRect upside(0, 3, 3, 1);
    EXPECT_TRUE(neg.FiltrerBuffer(4, 4, none.bits(), upside));
    EXPECT_EQ(none.rows(), n0);
}

TEST(LutGrey, FiltrerBufferCutsRectanglesReachingOutside)
{
    GuardedBuffer buf(5, 3, 16, 14);
    CLUT_16_Bpp lut;
    lut.SetContraste(0.0f);
    CRect huge(-100, -100, 100, 100);
    EXPECT_TRUE(lut.FiltrerBuffer(5, 3, buf.bits(), huge));
    for (long r = 0; r < 3; ++r)
        for (long x = 0; x < 5; ++x)
            EXPECT_EQ(buf.u16(x, r), 0);
    EXPECT_TRUE(buf.padding_intact());
    EXPECT_TRUE(buf.guards_intact());
    EXPECT_FALSE(lut.FiltrerBuffer(5, 3, nullptr, huge));
}

TEST(LutGrey, FiltreRefusesNullWrongDepthAndInvalidImages)
{
    CLUT_8_Bpp lut;
    lut.SetContraste(0.0f);
    EXPECT_FALSE(lut.Filtre(nullptr));
    CDibRoot empty;
    EXPECT_FALSE(lut.Filtre(&empty));
    CDibRoot grey16(CSize(4, 3), 16);
    lut_test::fill_random(grey16, 3);
    const auto b16 = lut_test::image_bytes(grey16);
    EXPECT_FALSE(lut.Filtre(&grey16));
    EXPECT_EQ(lut_test::image_bytes(grey16), b16);

    CLUT_24_Bpp colour(e_Palette12);
    EXPECT_FALSE(colour.Filtre(&grey16));
    EXPECT_EQ(lut_test::image_bytes(grey16), b16);

    CDibRoot grey8(CSize(4, 3), 8);
    lut_test::fill_random(grey8, 4);
    grey8.SetZoneTravail(CRect(1, 0, 2, 1)); // picture rows 0..1 = memory rows 2..1
    const auto b8 = lut_test::image_bytes(grey8);
    EXPECT_TRUE(lut.Filtre(&grey8));
    const auto a8 = lut_test::image_bytes(grey8);
    for (int r = 0; r < 3; ++r)
        for (int x = 0; x < 4; ++x) {
            const bool inside = x >= 1 && x <= 2 && r >= 1;
            EXPECT_EQ(a8[r * 4 + x], inside ? 0 : b8[r * 4 + x]);
        }
}
