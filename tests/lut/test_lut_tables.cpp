// Look-up tables: construction, the brightness/contrast/gamma formula, composition, palettes,
// channel levels, application to pixels.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <vector>

#include "kevra/dib.h"
#include "kevra/lut.h"
#include "support/kevra_test.h"

using namespace kevra;

namespace {

using Rgb = std::array<int, 3>;

uint32_t crc32(const void *data, std::size_t n)
{
    uint32_t crc = 0xFFFFFFFFu;
    for (std::size_t i = 0; i < n; ++i) {
        crc ^= static_cast<const uint8_t *>(data)[i];
        for (int k = 0; k < 8; ++k)
            crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    return ~crc;
}
uint32_t crc_of(const CLUT_8_Bpp &lut) { return crc32(lut.Donne_Table(), 256); }
uint32_t crc_of(const CLUT_16_Bpp &lut) { return crc32(lut.Donne_Table(), 65536 * 2); }

Rgb entry(const CLUT_24_Bpp &lut, int i) { return {lut.Donne_Rouge()[i], lut.Donne_Vert()[i], lut.Donne_Bleu()[i]}; }

// The palettes as the catalogue lists them, k = 0..63 within each quarter (so the steps between
// quarters, such as green 252 then 255 at entries 127 and 128 of palette 21, are checked too).
Rgb palette(int code, int i)
{
    const int k = i % 64, q = i / 64;
    const Rgb p21[4] = {Rgb{0, 0, 4 * k}, Rgb{0, 4 * k, 255 - 4 * k}, Rgb{2 * k, 255 - 4 * k, 0}, Rgb{2 * k + 128, 0, 0}};
    const Rgb p22[4] = {Rgb{4 * k, k, k}, Rgb{255 - 2 * k, 4 * k, 64}, Rgb{127 - 2 * k, 255 - 2 * k, 4 * k}, Rgb{4 * k, 127 + 2 * k, 255}};
    switch (code) {
    case 11: return {i, i, i};
    case 12: return {255 - i, 255 - i, 255 - i};
    case 21: return p21[q];
    case 22: return p22[q];
    default: return i <= 32 ? Rgb{0, 0, i} : Rgb{i - 32, i - 32, i};
    }
}

} // namespace

TEST(Lut, GreyConstructionFromArraysAndCopies)
{
    unsigned char src8[256];
    std::vector<unsigned short> src16(65536);
    for (int i = 0; i < 65536; ++i) {
        src8[i & 255] = static_cast<unsigned char>((i & 255) * 7 + 3);
        src16[i] = static_cast<unsigned short>(65535 - i);
    }
    const CLUT_8_Bpp from8(src8), copy8(from8), id8;
    const CLUT_16_Bpp from16(src16.data()), copy16(from16), id16(nullptr);
    for (int i = 0; i < 65536; ++i) {
        const int j = i & 255;
        ASSERT_EQ(from8[j], src8[j]);
        ASSERT_EQ(copy8[j], src8[j]);
        ASSERT_EQ(id8[j], j);
        // 65536 bytes are copied from the array: its first 32768 entries only.
        ASSERT_EQ(from16[i], i < 32768 ? 65535 - i : 0) << i;
        ASSERT_EQ(copy16[i], from16[i]);
        ASSERT_EQ(id16[i], i);
    }
}

// Expected tables computed independently (float32 emulation of the formula) and kept as CRC-32
// of the entries, so that every one of the 256 / 65536 entries is checked.
TEST(Lut, ToneFormulaExhaustive)
{
    const std::vector<uint8_t> zeros(65536 * 2, 0);
    const uint32_t black8 = crc32(zeros.data(), 256), black16 = crc32(zeros.data(), zeros.size());
    struct Case { float l, c, g; uint32_t crc8, crc16; };
    const Case cases[] = {
        {0.5f, 1.0f, 1.0f, 0x4336d641u, 0xb504b774u}, // 8 bits: 127 (127.5 truncated), ..., 254, then 255 from 128 on
        {0.0f, 2.0f, 1.0f, 0x31862b9eu, 0x06d6a842u},
        {0.0f, 1.0f, 0.5f, 0xdbd09e01u, 0x8e462bf5u},
        {0.0f, 1.0f, 2.2f, 0xc3381a61u, 0x2713a056u},
        {0.1f, 1.5f, 0.8f, 0xb6385f8fu, 0x8ca1f1c5u},
        {-0.2f, 1.3f, 1.7f, 0xb2279248u, 0x740f6058u},
        {0.0f, 0.0f, 1.0f, black8, black16}, // zero or negative contrast: black
        {0.0f, -1.0f, 1.0f, black8, black16},
        {0.0f, -0.01f, 1.0f, black8, black16},
    };
    for (const Case &k : cases) {
        SCOPED_TRACE(testing::Message() << k.l << " " << k.c << " " << k.g);
        CLUT_8_Bpp l8;
        CLUT_16_Bpp l16;
        CLUT_24_Bpp l24(e_Palette21); // the blue table is rebuilt, red and green become copies
        EXPECT_TRUE(l8.SetLuminositeConstrateGamma(k.l, k.c, k.g));
        EXPECT_TRUE(l16.SetLuminositeConstrateGamma(k.l, k.c, k.g));
        EXPECT_TRUE(l24.SetLuminositeConstrateGamma(k.l, k.c, k.g));
        EXPECT_EQ(crc_of(l8), k.crc8);
        EXPECT_EQ(crc_of(l16), k.crc16);
        for (const CLUT_8_Bpp *channel : {&l24.Donne_Rouge(), &l24.Donne_Vert(), &l24.Donne_Bleu()})
            EXPECT_EQ(crc_of(*channel), k.crc8);
    }
    // A level that is not a number clamps to 0 (gamma -1 makes x = 0 infinite, times a zero
    // contrast), an infinite one to full scale.
    CLUT_8_Bpp l8;
    l8.SetLuminositeConstrateGamma(0.25f, 0.0f, -1.0f);
    EXPECT_TRUE(l8[0] == 0 && l8[1] == 63);
    l8.SetLuminositeConstrateGamma(0.0f, 1.0f, -1.0f);
    EXPECT_TRUE(l8[0] == 255 && l8[255] == 255);
    // Unit settings give the identity here; IsLinear45 looks at every entry.
    CLUT_16_Bpp l16;
    l8.SetLuminositeConstrateGamma(0.0f, 1.0f, 1.0f);
    l16.SetLuminositeConstrateGamma(0.0f, 1.0f, 1.0f);
    EXPECT_TRUE(l8.IsLinear45() && l16.IsLinear45());
    l16.Donne_Table()[65535] = 0;
    EXPECT_TRUE(l8.SetContraste(2.0f)); // through the virtual slot
    EXPECT_FALSE(l8.IsLinear45() || l16.IsLinear45());
    EXPECT_EQ(l8[100], 200);
}

// Copier and Combiner act only on a table of their own class (the tables' run-time record names
// the root object, not the processing base, as their base); Combiner applies this table first,
// the other on its result, channel by channel for a colour table.
TEST(Lut, CopierAndCombinerTakeOnlyTheSameClass)
{
    CLUT_8_Bpp a, b;
    CLUT_16_Bpp c, d;
    CLUT_24_Bpp e(e_Palette21), f(e_Palette22);
    a.SetContraste(2.0f);
    b.SetLuminositeConstrateGamma(0.5f, 1.0f, 1.0f);
    c.SetContraste(2.0f);
    d.SetLuminositeConstrateGamma(0.25f, 1.0f, 1.0f);
    const CLUT_8_Bpp a0(a);
    const CLUT_16_Bpp c0(c);
    CLUT *const mine[] = {&a, &c, &e}, *const others[] = {&b, &d, &f, nullptr};
    for (CLUT *x : mine) {
        EXPECT_TRUE(x->IsKindOf(KEVRA_RUNTIME_CLASS(CLUT)));
        EXPECT_FALSE(x->IsKindOf(KEVRA_RUNTIME_CLASS(CTraitementImgBase)));
        for (CLUT *y : others)
            if (y == nullptr || y->GetRuntimeClass() != x->GetRuntimeClass()) {
                x->Copier(y);
                x->Combiner(y);
            }
    }
    a.Combiner(&b); // the results below also show that nothing above changed a, c or e
    c.Combiner(&d);
    e.Combiner(&f);
    for (int i = 0; i < 65536; ++i) {
        const int j = i & 255;
        const Rgb p = palette(21, j), q{f.Donne_Rouge()[p[0]], f.Donne_Vert()[p[1]], f.Donne_Bleu()[p[2]]};
        ASSERT_EQ(a[j], b[a0[j]]) << j;
        ASSERT_EQ(c[i], d[c0[i]]) << i;
        ASSERT_EQ(entry(e, j), q) << j;
    }
    a.Copier(&b);
    c.Copier(&d);
    e.Copier(&f);
    EXPECT_EQ(crc_of(a), crc_of(b));
    EXPECT_EQ(crc_of(c), crc_of(d));
    for (int i = 0; i < 256; ++i)
        ASSERT_EQ(entry(e, i), palette(22, i)) << i;
    // Combined with itself, a table reads its entries as they were: reversed twice is the identity.
    for (int i = 0; i < 256; ++i)
        a.Donne_Table()[i] = static_cast<unsigned char>(255 - i);
    a.Combiner(&a);
    EXPECT_TRUE(a.IsLinear45());
}

// Every entry of every palette, read through Donne_RGBQUAD.
TEST(Lut, PalettesThroughDonneRGBQUAD)
{
    kevra_test::CaptureMessageBoxes quiet;
    for (int code : {11, 12, 21, 22, 23}) {
        CLUT_24_Bpp lut(e_Palette22);
        ASSERT_TRUE(lut.SetPalette(static_cast<e_Palette>(code)));
        std::vector<tagRGBQUAD> out(256, tagRGBQUAD{9, 9, 9, 9});
        ASSERT_TRUE(lut.Donne_RGBQUAD(out.data(), 256));
        for (int i = 0; i < 256; ++i) {
            ASSERT_EQ((Rgb{out[i].rgbRed, out[i].rgbGreen, out[i].rgbBlue}), palette(code, i)) << code << " entry " << i;
            ASSERT_EQ(out[i].rgbReserved, 0);
        }
    }
    EXPECT_TRUE(quiet.texts.empty());
    std::vector<tagRGBQUAD> out(300, tagRGBQUAD{9, 9, 9, 9});
    CLUT_24_Bpp lut(e_Palette23);
    EXPECT_FALSE(lut.Donne_RGBQUAD(out.data(), 255) || lut.Donne_RGBQUAD(out.data(), 257));
    EXPECT_EQ(out[0].rgbBlue, 9);
    EXPECT_FALSE(lut.Donne_RGBQUAD(nullptr, 256));
}

TEST(Lut, UnknownPaletteShowsMessageAndKeepsTables)
{
    for (int code : {0, 10, 13, 20, 24, -1}) {
        kevra_test::CaptureMessageBoxes capture;
        CLUT_24_Bpp lut(e_Palette22);
        EXPECT_FALSE(lut.SetPalette(static_cast<e_Palette>(code))) << code;
        EXPECT_EQ(capture.texts, std::vector<std::string>{"CLUT_24_Bpp::SetPalette Unknow parameter!"}) << code;
        for (int i = 0; i < 256; ++i)
            ASSERT_EQ(entry(lut, i), palette(22, i)) << code;
    }
    kevra_test::CaptureMessageBoxes capture;
    CLUT_24_Bpp constructed(static_cast<e_Palette>(15)); // result ignored, tables identity
    EXPECT_EQ(capture.texts.size(), 1u);
    for (int i = 0; i < 256; ++i)
        ASSERT_EQ(entry(constructed, i), palette(11, i));
}

TEST(Lut, ColourConstructors)
{
    std::vector<tagRGBQUAD> q(256);
    for (int i = 0; i < 256; ++i)
        q[i] = tagRGBQUAD{static_cast<uint8_t>(i / 2), static_cast<uint8_t>(255 - i), static_cast<uint8_t>(i ^ 0x55), 7};
    const CLUT_24_Bpp fromQuads(q.data(), 256), wrongCount(q.data(), 255);
    CLUT_8_Bpp r, g;
    r.SetContraste(2.0f);
    g.SetContraste(0.0f);
    const CLUT_24_Bpp fromChannels(&r, &g, nullptr), copy(fromQuads);
    CLUT_24_Bpp assigned;
    assigned = fromQuads;
    for (int i = 0; i < 256; ++i) {
        const Rgb want{i ^ 0x55, 255 - i, i / 2};
        ASSERT_EQ(entry(fromQuads, i), want) << i;
        ASSERT_EQ(entry(copy, i), want) << i;
        ASSERT_EQ(entry(assigned, i), want) << i;
        ASSERT_EQ(entry(wrongCount, i), (Rgb{i, i, i})) << i;
        ASSERT_EQ(entry(fromChannels, i), (Rgb{r[i], 0, i})) << i;
    }
}

// Each level is its channel's contrast (x + 100) * 0.01 in single precision; the other
// channels stay as they were.
TEST(Lut, ChannelLevels)
{
    CLUT_8_Bpp c0, c05, c1, c15, c2;
    c0.SetContraste(0.0f);
    c05.SetContraste(0.5f);
    c15.SetContraste(1.5f);
    c2.SetContraste(2.0f);
    CLUT_24_Bpp lut(e_Palette12);
    EXPECT_TRUE(lut.ReglageRouge(-50));
    EXPECT_TRUE(lut.ReglageBleu(100));
    for (int i = 0; i < 256; ++i)
        ASSERT_EQ(entry(lut, i), (Rgb{c05[i], 255 - i, c2[i]})) << i;
    EXPECT_TRUE(lut.ReglageRougeVertBleu(0, 50, -100));
    for (int i = 0; i < 256; ++i)
        ASSERT_EQ(entry(lut, i), (Rgb{c1[i], c15[i], c0[i]})) << i;
}

// Each depth replaces the rectangle's samples only: inclusive edges, picture row 0 = last buffer
// row, parts outside the buffer left out, a top below the bottom does nothing. The image lies
// between two spare rows of a guarded buffer: they, the row padding and the guard stay untouched.
TEST(Lut, FiltrerBufferChangesTheInclusiveRectangleOnly)
{
    CLUT_8_Bpp neg8;
    CLUT_16_Bpp lin16;
    CLUT_24_Bpp shift; // blue + 1, green + 2, red + 3: shows which table meets which byte
    for (int i = 0; i < 65536; ++i) {
        lin16.Donne_Table()[i] = static_cast<unsigned short>(3 * i + 1);
        neg8.Donne_Table()[i & 255] = static_cast<unsigned char>(255 - (i & 255));
        shift.Donne_Bleu().Donne_Table()[i & 255] = static_cast<unsigned char>(i + 1);
        shift.Donne_Vert().Donne_Table()[i & 255] = static_cast<unsigned char>(i + 2);
        shift.Donne_Rouge().Donne_Table()[i & 255] = static_cast<unsigned char>(i + 3);
    }
    const struct { CLUT *lut; int bpp; int (*want)(int c, int v); } tables[] = {
        {&neg8, 8, [](int, int v) { return 255 - v; }},
        {&lin16, 16, [](int, int v) { return (3 * v + 1) & 0xFFFF; }},
        {&shift, 24, [](int c, int v) { return (v + 1 + c) & 0xFF; }},
    };
    const CRect rects[] = {CRect(2, 1, 4, 3), CRect(1, 0, 1, 0), CRect(-100, -100, 100, 100), CRect(0, 3, 6, 1)};
    const long w = 7, h = 5;
    for (const auto &t : tables)
        for (const CRect &rc : rects) {
            SCOPED_TRACE(testing::Message() << t.bpp << " bits, rect " << rc.left << "," << rc.top << "," << rc.right << "," << rc.bottom);
            kevra_test::GuardedBuffer buf(w, h + 2, t.bpp, static_cast<uint32_t>(t.bpp + rc.left));
            const std::vector<uint8_t> before = buf.bytes();
            CRect arg = rc;
            ASSERT_TRUE(t.lut->FiltrerBuffer(w, h, buf.bits() + buf.pitch(), arg));
            const std::vector<uint8_t> &after = buf.bytes();
            for (long r = -1; r <= h; ++r)
                for (long x = 0; x < w; ++x)
                    for (int c = 0; c < (t.bpp == 24 ? 3 : 1); ++c) {
                        const long y = h - 1 - r;
                        const bool in = x >= rc.left && x <= rc.right && y >= rc.top && y <= rc.bottom && y >= 0 && y < h;
                        const std::size_t at = static_cast<std::size_t>(buf.pitch() * (r + 1) + x * t.bpp / 8 + c);
                        const int was = t.bpp == 16 ? before[at] | before[at + 1] << 8 : before[at];
                        const int now = t.bpp == 16 ? after[at] | after[at + 1] << 8 : after[at];
                        ASSERT_EQ(now, in ? t.want(c, was) : was) << x << "," << r << " sample " << c;
                    }
            EXPECT_TRUE(buf.intact());
        }
    CRect rc(0, 0, 1, 1);
    EXPECT_FALSE(neg8.FiltrerBuffer(w, h, nullptr, rc));
}

TEST(Lut, FiltreWorksOnTheWorkingZoneOfAnImageOfItsDepth)
{
    CLUT_8_Bpp black;
    black.SetContraste(0.0f);
    CLUT_24_Bpp colour(e_Palette12);
    CDibRoot empty, grey16(CSize(4, 3), 16), grey8(CSize(4, 3), 8);
    std::memset(grey16.GetBits(), 9, static_cast<std::size_t>(grey16.Pitch()) * 3);
    std::memset(grey8.GetBits(), 9, static_cast<std::size_t>(grey8.Pitch()) * 3);
    EXPECT_FALSE(black.Filtre(nullptr));
    EXPECT_FALSE(black.Filtre(&empty));
    EXPECT_FALSE(black.Filtre(&grey16));
    EXPECT_FALSE(colour.Filtre(&grey16));
    for (long i = 0; i < grey16.Pitch() * 3; ++i)
        ASSERT_EQ(grey16.GetBits()[i], 9);
    grey8.SetZoneTravail(CRect(1, 0, 2, 1)); // picture rows 0..1 = memory rows 2..1
    EXPECT_TRUE(black.Filtre(&grey8));
    for (int r = 0; r < 3; ++r)
        for (int x = 0; x < 4; ++x)
            EXPECT_EQ(grey8.GetBits()[r * grey8.Pitch() + x], (x >= 1 && x <= 2 && r >= 1) ? 0 : 9) << x << "," << r;
}
