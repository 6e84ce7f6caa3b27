// Colour table: palettes, channel operations, application to 24-bit pixels, messages.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kevra/dib.h"
#include "kevra/lut.h"
#include "kevra/platform.h"
#include "lut/buffer_fixture.h"

using namespace kevra;
using lut_test::GuardedBuffer;

namespace {

struct Rgb { int r, g, b; };

Rgb entry(const CLUT_24_Bpp &lut, int i)
{
    return {lut.Donne_Rouge()[i], lut.Donne_Vert()[i], lut.Donne_Bleu()[i]};
}

// Captures message-box texts for the life of the object.
class MessageCapture {
public:
    MessageCapture()
    {
        m_previous = platform::set_message_box_handler([this](const char *t) { texts.push_back(t); });
    }
    ~MessageCapture() { platform::set_message_box_handler(m_previous); }
    std::vector<std::string> texts;

private:
    platform::message_box_handler m_previous;
};

} // namespace

TEST(LutColour, RecordAndDefaults)
{
    CLUT_24_Bpp lut;
    EXPECT_TRUE(lut.IsKindOf(KEVRA_RUNTIME_CLASS(CLUT)));
    EXPECT_FALSE(lut.IsKindOf(KEVRA_RUNTIME_CLASS(CTraitementImgBase)));
    EXPECT_FALSE(lut.IsKindOf(KEVRA_RUNTIME_CLASS(CLUT_8_Bpp)));
    EXPECT_EQ(lut.GetBpp(), 24);
    EXPECT_EQ(lut.Donne_NbEntrees(), 256);
    EXPECT_TRUE(lut.Donne_Rouge().IsLinear45());
    EXPECT_TRUE(lut.Donne_Vert().IsLinear45());
    EXPECT_TRUE(lut.Donne_Bleu().IsLinear45());
}

TEST(LutColour, PalettesExact)
{
    MessageCapture quiet;
    CLUT_24_Bpp p11(e_Palette11), p12(e_Palette12), p21(e_Palette21), p22(e_Palette22), p23(e_Palette23);
    for (int i = 0; i < 256; ++i) {
        const Rgb a = entry(p11, i), b = entry(p12, i);
        EXPECT_TRUE(a.r == i && a.g == i && a.b == i) << i;
        EXPECT_TRUE(b.r == 255 - i && b.g == 255 - i && b.b == 255 - i) << i;
        const Rgb e = entry(p23, i);
        if (i <= 32)
            EXPECT_TRUE(e.r == 0 && e.g == 0 && e.b == i) << i;
        else
            EXPECT_TRUE(e.r == i - 32 && e.g == i - 32 && e.b == i) << i;
    }
    for (int k = 0; k < 64; ++k) {
        Rgb e = entry(p21, k);
        EXPECT_TRUE(e.r == 0 && e.g == 0 && e.b == 4 * k) << k;
        e = entry(p21, 64 + k);
        EXPECT_TRUE(e.r == 0 && e.g == 4 * k && e.b == 255 - 4 * k) << k;
        e = entry(p21, 128 + k);
        EXPECT_TRUE(e.r == 2 * k && e.g == 255 - 4 * k && e.b == 0) << k;
        e = entry(p21, 192 + k);
        EXPECT_TRUE(e.r == 2 * k + 128 && e.g == 0 && e.b == 0) << k;
        e = entry(p22, k);
        EXPECT_TRUE(e.r == 4 * k && e.g == k && e.b == k) << k;
        e = entry(p22, 64 + k);
        EXPECT_TRUE(e.r == 255 - 2 * k && e.g == 4 * k && e.b == 64) << k;
        e = entry(p22, 128 + k);
        EXPECT_TRUE(e.r == 127 - 2 * k && e.g == 255 - 2 * k && e.b == 4 * k) << k;
        e = entry(p22, 192 + k);
        EXPECT_TRUE(e.r == 4 * k && e.g == 127 + 2 * k && e.b == 255) << k;
    }
    // The steps between quarters of palette 21 stay as they are.
    EXPECT_EQ(entry(p21, 127).g, 252);
    EXPECT_EQ(entry(p21, 128).g, 255);
    EXPECT_EQ(entry(p21, 191).r, 126);
    EXPECT_EQ(entry(p21, 192).r, 128);
    EXPECT_TRUE(quiet.texts.empty());
}

TEST(LutColour, UnknownPaletteShowsMessageAndKeepsTables)
{
    for (int code : {0, 10, 13, 20, 24, -1}) {
        MessageCapture capture;
        CLUT_24_Bpp lut(e_Palette22);
        const CLUT_24_Bpp before(lut);
        EXPECT_FALSE(lut.SetPalette(static_cast<e_Palette>(code))) << code;
        ASSERT_EQ(capture.texts.size(), 1u) << code;
        EXPECT_EQ(capture.texts[0], "CLUT_24_Bpp::SetPalette Unknow parameter!");
        for (int i = 0; i < 256; ++i) {
            ASSERT_EQ(lut.Donne_Rouge()[i], before.Donne_Rouge()[i]);
            ASSERT_EQ(lut.Donne_Bleu()[i], before.Donne_Bleu()[i]);
        }
    }
    MessageCapture capture;
    CLUT_24_Bpp constructed(static_cast<e_Palette>(15)); // result ignored, tables identity
    EXPECT_EQ(capture.texts.size(), 1u);
    EXPECT_TRUE(constructed.Donne_Vert().IsLinear45());
}

TEST(LutColour, DonneRGBQUAD)
{
    CLUT_24_Bpp lut(e_Palette23);
    std::vector<tagRGBQUAD> out(256, tagRGBQUAD{9, 9, 9, 9});
    EXPECT_FALSE(lut.Donne_RGBQUAD(out.data(), 255));
    EXPECT_EQ(out[0].rgbBlue, 9);
    EXPECT_FALSE(lut.Donne_RGBQUAD(nullptr, 256));
    ASSERT_TRUE(lut.Donne_RGBQUAD(out.data(), 256));
    EXPECT_EQ(out[32].rgbRed, 0);
    EXPECT_EQ(out[32].rgbGreen, 0);
    EXPECT_EQ(out[32].rgbBlue, 32);
    EXPECT_EQ(out[33].rgbRed, 1);
    EXPECT_EQ(out[33].rgbGreen, 1);
    EXPECT_EQ(out[33].rgbBlue, 33);
    EXPECT_EQ(out[200].rgbReserved, 0);
}

TEST(LutColour, Constructors)
{
    std::vector<tagRGBQUAD> q(256);
    for (int i = 0; i < 256; ++i)
        q[i] = tagRGBQUAD{static_cast<uint8_t>(i / 2), static_cast<uint8_t>(255 - i), static_cast<uint8_t>(i ^ 0x55), 7};
    CLUT_24_Bpp fromQuads(q.data(), 256);
    for (int i = 0; i < 256; ++i) {
        const Rgb e = entry(fromQuads, i);
        ASSERT_TRUE(e.r == (i ^ 0x55) && e.g == 255 - i && e.b == i / 2) << i;
    }
    CLUT_24_Bpp wrongCount(q.data(), 255);
    EXPECT_TRUE(wrongCount.Donne_Rouge().IsLinear45());
    EXPECT_TRUE(wrongCount.Donne_Bleu().IsLinear45());

    CLUT_8_Bpp r, g;
    r.SetContraste(2.0f);
    g.SetContraste(0.0f);
    CLUT_24_Bpp fromChannels(&r, &g, nullptr);
    EXPECT_EQ(fromChannels.Donne_Rouge()[100], 200);
    EXPECT_EQ(fromChannels.Donne_Vert()[100], 0);
    EXPECT_TRUE(fromChannels.Donne_Bleu().IsLinear45());

    CLUT_24_Bpp copy(fromQuads);
    CLUT_24_Bpp assigned;
    assigned = fromQuads;
    for (int i = 0; i < 256; ++i) {
        ASSERT_EQ(copy.Donne_Rouge()[i], fromQuads.Donne_Rouge()[i]);
        ASSERT_EQ(assigned.Donne_Bleu()[i], fromQuads.Donne_Bleu()[i]);
    }
}

TEST(LutColour, ChannelLevels)
{
    CLUT_24_Bpp lut(e_Palette12);
    EXPECT_TRUE(lut.ReglageRouge(0)); // contrast 1: the identity here
    EXPECT_TRUE(lut.Donne_Rouge().IsLinear45());
    EXPECT_EQ(lut.Donne_Vert()[0], 255); // other channels untouched
    EXPECT_TRUE(lut.ReglageVert(-100));
    for (int i = 0; i < 256; ++i)
        ASSERT_EQ(lut.Donne_Vert()[i], 0);
    EXPECT_TRUE(lut.ReglageBleu(100)); // contrast 2
    EXPECT_EQ(lut.Donne_Bleu()[100], 200);
    EXPECT_TRUE(lut.ReglageRougeVertBleu(-50, 0, 50));
    CLUT_8_Bpp half, one, oneHalf;
    half.SetContraste(0.5f);
    oneHalf.SetContraste(1.5f);
    for (int i = 0; i < 256; ++i) {
        ASSERT_EQ(lut.Donne_Rouge()[i], half[i]);
        ASSERT_EQ(lut.Donne_Vert()[i], one[i]);
        ASSERT_EQ(lut.Donne_Bleu()[i], oneHalf[i]);
    }
}

TEST(LutColour, ToneSetterLeavesThreeEqualTables)
{
    CLUT_24_Bpp lut(e_Palette21);
    EXPECT_TRUE(lut.SetLuminositeConstrateGamma(0.1f, 1.5f, 0.8f));
    CLUT_8_Bpp grey;
    grey.SetLuminositeConstrateGamma(0.1f, 1.5f, 0.8f);
    for (int i = 0; i < 256; ++i) {
        ASSERT_EQ(lut.Donne_Rouge()[i], grey[i]);
        ASSERT_EQ(lut.Donne_Vert()[i], grey[i]);
        ASSERT_EQ(lut.Donne_Bleu()[i], grey[i]);
    }
    EXPECT_TRUE(lut.SetContraste(1.0f)); // through the virtual slot
    EXPECT_TRUE(lut.Donne_Rouge().IsLinear45());
}

TEST(LutColour, CopierCombinerKindTests)
{
    CLUT_24_Bpp a(e_Palette21), b(e_Palette12);
    const CLUT_24_Bpp a0(a);
    CLUT_8_Bpp grey;
    grey.SetContraste(0.0f);
    a.Copier(&grey);
    a.Combiner(&grey);
    a.Copier(nullptr);
    for (int i = 0; i < 256; ++i)
        ASSERT_EQ(a.Donne_Vert()[i], a0.Donne_Vert()[i]);
    a.Combiner(&b); // palette 21, then inverted
    for (int i = 0; i < 256; ++i) {
        ASSERT_EQ(a.Donne_Rouge()[i], 255 - a0.Donne_Rouge()[i]);
        ASSERT_EQ(a.Donne_Bleu()[i], 255 - a0.Donne_Bleu()[i]);
    }
    a.Copier(&b);
    for (int i = 0; i < 256; ++i)
        ASSERT_EQ(a.Donne_Vert()[i], 255 - i);
}

TEST(LutColour, FiltrerBufferMapsBlueGreenRedBytes)
{
    CLUT_24_Bpp lut;
    for (int i = 0; i < 256; ++i) {
        lut.Donne_Bleu().Donne_Table()[i] = static_cast<unsigned char>(i + 1);
        lut.Donne_Vert().Donne_Table()[i] = static_cast<unsigned char>(i + 2);
        lut.Donne_Rouge().Donne_Table()[i] = static_cast<unsigned char>(i + 3);
    }
    GuardedBuffer buf(5, 4, 24, 21);
    const std::vector<uint8_t> before = buf.rows();
    CRect rc(1, 1, 3, 2); // memory rows 1..2
    EXPECT_TRUE(lut.FiltrerBuffer(5, 4, buf.bits(), rc));
    for (long r = 0; r < 4; ++r)
        for (long x = 0; x < 5; ++x)
            for (int c = 0; c < 3; ++c) {
                const uint8_t was = before[buf.pitch() * r + 3 * x + c];
                const bool inside = x >= 1 && x <= 3 && r >= 1 && r <= 2;
                EXPECT_EQ(buf.at(x, r)[c], inside ? static_cast<uint8_t>(was + 1 + c) : was);
            }
    EXPECT_TRUE(buf.padding_intact());
    EXPECT_TRUE(buf.guards_intact());
}
