// Display tables composed from look-up steps and from display settings.
#include <gtest/gtest.h>

#include "kevra/lut.h"
#include "kevra/sequenceur.h"
#include "seq_support.h"

using namespace seq_test;
using kevra::CLUT_24_Bpp;
using kevra::CSequenceur;

namespace {

std::vector<uint32_t> entries(CLUT_24_Bpp &table)
{
    kevra::tagRGBQUAD quads[256];
    table.Donne_RGBQUAD(quads, 256);
    std::vector<uint32_t> out;
    for (const auto &q : quads)
        out.push_back(q.rgbRed << 16 | q.rgbGreen << 8 | q.rgbBlue);
    return out;
}

// The table that applies a, then b, then c... (each on the previous result).
CLUT_24_Bpp chain(std::initializer_list<CLUT_24_Bpp *> tables)
{
    CLUT_24_Bpp out;
    bool first = true;
    for (CLUT_24_Bpp *t : tables) {
        if (first)
            out.Copier(t);
        else
            out.Combiner(t);
        first = false;
    }
    return out;
}

CLUT_24_Bpp tone_table(float l, float c, float g)
{
    CLUT_24_Bpp t;
    t.SetLuminositeConstrateGamma(l, c, g);
    return t;
}

CLUT_24_Bpp level_table(int r, int g, int b)
{
    CLUT_24_Bpp t;
    t.ReglageRougeVertBleu(r, g, b);
    return t;
}

} // namespace

TEST(DisplayLut, NullTableIsRefused)
{
    TraceFile trace;
    CSequenceur seq;
    EXPECT_FALSE(seq.Donne_LUT_Affichage(nullptr));
    EXPECT_EQ(trace.lines(), std::vector<std::string>{"ERROR : Donne_LUT_Affichage paramètre invalide"});
}

TEST(DisplayLut, NoLookUpStepLeavesTheTableAlone)
{
    TraceFile trace;
    CLUT_24_Bpp table(kevra::e_Palette22);
    const std::vector<uint32_t> before = entries(table);
    CSequenceur empty;
    EXPECT_TRUE(empty.Donne_LUT_Affichage(&table));
    CSequenceur seq;
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_Negatif, params()));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_QuickRotate, rotate(1)));
    EXPECT_TRUE(seq.Donne_LUT_Affichage(&table));
    EXPECT_EQ(entries(table), before);
}

// The list is walked as added: no ordering, no deduplication.
TEST(DisplayLut, StepsComposeInListOrderWithRepetitions)
{
    TraceFile trace;
    kevra::CLUT_8_Bpp grey;
    grey.SetContraste(3.0f);
    CSequenceur seq;
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_LUT_RougeVertBleu, levels(20, -30, 0)));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_LUT, palette(nullptr, 21)));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_Negatif, params()));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_LUT_LuminositeContrasteGamma, tone(0.1f, 0.8f, 1.3f)));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_LUT, palette(&grey, 0))); // not a colour table
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_LUT_LuminositeContrasteGamma, tone(0.0f, 1.5f, 1.0f)));

    CLUT_24_Bpp table;
    ASSERT_TRUE(seq.Donne_LUT_Affichage(&table));

    CLUT_24_Bpp levels_t = level_table(20, -30, 0);
    CLUT_24_Bpp false_colour(kevra::e_Palette21);
    CLUT_24_Bpp tone1 = tone_table(0.1f, 0.8f, 1.3f);
    CLUT_24_Bpp tone2 = tone_table(0.0f, 1.5f, 1.0f);
    CLUT_24_Bpp expected = chain({&levels_t, &false_colour, &tone1, &tone2});
    EXPECT_EQ(entries(table), entries(expected));
    EXPECT_EQ(trace.text(), "");
}

TEST(DisplayLut, NeutralSettingsGiveTheToneAndLevelTables)
{
    TraceFile trace;
    CLUT_24_Bpp table(kevra::e_Palette23);
    ASSERT_TRUE(CSequenceur::ComputeDisplayPalette(&table, 0.0f, 1.0f, 1.0f, kevra::e_PaletteNone, 0,
                                                   0, 0, false, nullptr));
    CLUT_24_Bpp tone = tone_table(0.0f, 1.0f, 1.0f);
    CLUT_24_Bpp levels_t = level_table(0, 0, 0);
    CLUT_24_Bpp expected = chain({&tone, &levels_t});
    EXPECT_EQ(entries(table), entries(expected));
    EXPECT_EQ(trace.text(), "");
}

// Tone, levels, negative, additional table, predefined palette: in that order.
TEST(DisplayLut, SettingsApplyInTheirFixedOrder)
{
    TraceFile trace;
    CLUT_24_Bpp extra(kevra::e_Palette22);
    CLUT_24_Bpp table;
    ASSERT_TRUE(CSequenceur::ComputeDisplayPalette(&table, 0.05f, 1.2f, 0.7f, kevra::e_Palette21, 15,
                                                   -10, 40, true, &extra));
    CLUT_24_Bpp tone = tone_table(0.05f, 1.2f, 0.7f);
    CLUT_24_Bpp levels_t = level_table(15, -10, 40);
    CLUT_24_Bpp negative(kevra::e_Palette12);
    CLUT_24_Bpp false_colour(kevra::e_Palette21);
    CLUT_24_Bpp expected = chain({&tone, &levels_t, &negative, &extra, &false_colour});
    EXPECT_EQ(entries(table), entries(expected));
}

TEST(DisplayLut, NegativeWithInvertedPaletteAppliesItTwice)
{
    TraceFile trace;
    CLUT_24_Bpp table;
    ASSERT_TRUE(CSequenceur::ComputeDisplayPalette(&table, 0.0f, 1.0f, 1.0f, kevra::e_Palette12, 0,
                                                   0, 0, true, nullptr));
    CLUT_24_Bpp tone = tone_table(0.0f, 1.0f, 1.0f);
    CLUT_24_Bpp levels_t = level_table(0, 0, 0);
    CLUT_24_Bpp negative(kevra::e_Palette12);
    CLUT_24_Bpp expected = chain({&tone, &levels_t, &negative, &negative});
    EXPECT_EQ(entries(table), entries(expected));
    CLUT_24_Bpp once = chain({&tone, &levels_t});
    EXPECT_EQ(entries(table), entries(once));
}

TEST(DisplayLut, ErrorsAreTracedAndDoNotStopTheComposition)
{
    TraceFile trace;
    EXPECT_FALSE(CSequenceur::ComputeDisplayPalette(nullptr, 0.0f, 1.0f, 1.0f, kevra::e_Palette21,
                                                    0, 0, 0, false, nullptr));
    EXPECT_EQ(trace.lines(), std::vector<std::string>{
                                 "ERROR : ComputeDisplayPalette, le parammètre pLUT_Affichage doit "
                                 "être non null !"});

    trace.clear();
    CLUT_24_Bpp table;
    EXPECT_TRUE(CSequenceur::ComputeDisplayPalette(&table, 0.2f, 1.0f, 1.0f,
                                                   static_cast<kevra::e_Palette>(13), 0, 0, 0, false,
                                                   nullptr));
    const std::vector<std::string> expected_lines = {
        "ERROR : ComputeDisplayPalette, le parammètre Palette (13) est invalide !",
        "ERROR : Traitement e_LUT, params Palette (13) est invalide !",
    };
    EXPECT_EQ(trace.lines(), expected_lines);
    CLUT_24_Bpp tone = tone_table(0.2f, 1.0f, 1.0f);
    CLUT_24_Bpp levels_t = level_table(0, 0, 0);
    CLUT_24_Bpp expected = chain({&tone, &levels_t});
    EXPECT_EQ(entries(table), entries(expected));
}
