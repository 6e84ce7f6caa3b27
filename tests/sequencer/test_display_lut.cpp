// Display tables composed from look-up steps and from display settings.
#include <gtest/gtest.h>

#include "kevra/lut.h"
#include "kevra/sequenceur.h"
#include "seq_support.h"

using namespace seq_test;
using kevra::CLUT_24_Bpp;
using S = kevra::CSequenceur;

namespace {

// The entries of the table that applies each of these on the previous result.
std::vector<uint32_t> chain(std::vector<CLUT_24_Bpp> tables)
{
    for (std::size_t i = 1; i < tables.size(); ++i)
        tables[0].Combiner(&tables[i]);
    return lut_entries(tables[0]);
}

CLUT_24_Bpp tone_lut(float l, float c, float g)
{
    CLUT_24_Bpp t;
    t.SetLuminositeConstrateGamma(l, c, g);
    return t;
}

CLUT_24_Bpp levels_lut(int r, int g, int b)
{
    CLUT_24_Bpp t;
    t.ReglageRougeVertBleu(r, g, b);
    return t;
}

} // namespace

class DisplayLut : public TracedTest {};

TEST_F(DisplayLut, NullTableIsRefusedAndNoLookUpStepLeavesTheTableAlone)
{
    CSequenceur seq;
    EXPECT_FALSE(seq.Donne_LUT_Affichage(nullptr));
    EXPECT_EQ(trace.lines(), std::vector<std::string>{"ERROR : Donne_LUT_Affichage paramètre invalide"});

    CLUT_24_Bpp table(kevra::e_Palette22);
    const std::vector<uint32_t> before = lut_entries(table);
    EXPECT_TRUE(seq.Donne_LUT_Affichage(&table)) << "empty list";
    ASSERT_TRUE(add_steps(seq, {{S::e_Negatif, params()}, {S::e_QuickRotate, rotate(1)}}));
    EXPECT_TRUE(seq.Donne_LUT_Affichage(&table));
    EXPECT_EQ(lut_entries(table), before);
}

// The list is walked as added: no ordering, no deduplication.
TEST_F(DisplayLut, StepsComposeInListOrderWithRepetitions)
{
    kevra::CLUT_8_Bpp grey;
    grey.SetContraste(3.0f);
    CSequenceur seq;
    ASSERT_TRUE(add_steps(seq, {{S::e_LUT_RougeVertBleu, levels(20, -30, 0)}, {S::e_LUT, palette(nullptr, 21)},
                                {S::e_Negatif, params()}, {S::e_LUT_LuminositeContrasteGamma, tone(0.1f, 0.8f, 1.3f)},
                                {S::e_LUT, palette(&grey, 0)}, // not a colour table: passed over
                                {S::e_LUT_LuminositeContrasteGamma, tone(0.0f, 1.5f, 1.0f)}}));
    CLUT_24_Bpp table;
    ASSERT_TRUE(seq.Donne_LUT_Affichage(&table));
    EXPECT_EQ(lut_entries(table), chain({levels_lut(20, -30, 0), CLUT_24_Bpp(kevra::e_Palette21),
                                         tone_lut(0.1f, 0.8f, 1.3f), tone_lut(0.0f, 1.5f, 1.0f)}));
    EXPECT_EQ(trace.text(), "");
}

// Tone, levels, negative, additional table, predefined palette: in that order.
TEST_F(DisplayLut, SettingsApplyInTheirFixedOrder)
{
    CLUT_24_Bpp extra(kevra::e_Palette22), negative(kevra::e_Palette12), false_colour(kevra::e_Palette21);
    CLUT_24_Bpp table(kevra::e_Palette23); // replaced whatever it held
    ASSERT_TRUE(S::ComputeDisplayPalette(&table, 0.0f, 1.0f, 1.0f, kevra::e_PaletteNone, 0, 0, 0, false, nullptr));
    EXPECT_EQ(lut_entries(table), chain({tone_lut(0.0f, 1.0f, 1.0f), levels_lut(0, 0, 0)}));

    ASSERT_TRUE(S::ComputeDisplayPalette(&table, 0.05f, 1.2f, 0.7f, kevra::e_Palette21, 15, -10, 40, true, &extra));
    EXPECT_EQ(lut_entries(table),
              chain({tone_lut(0.05f, 1.2f, 0.7f), levels_lut(15, -10, 40), negative, extra, false_colour}));
    EXPECT_EQ(trace.text(), "");
}

TEST_F(DisplayLut, ErrorsAreTracedAndDoNotStopTheComposition)
{
    EXPECT_FALSE(S::ComputeDisplayPalette(nullptr, 0.0f, 1.0f, 1.0f, kevra::e_Palette21, 0, 0, 0, false, nullptr));
    const std::vector<std::string> null_table = {
        "ERROR : ComputeDisplayPalette, le parammètre pLUT_Affichage doit être non null !"};
    EXPECT_EQ(trace.lines(), null_table);

    trace.clear();
    CLUT_24_Bpp table;
    EXPECT_TRUE(S::ComputeDisplayPalette(&table, 0.2f, 1.0f, 1.0f, static_cast<kevra::e_Palette>(13), 0, 0, 0, false,
                                         nullptr));
    const std::vector<std::string> expected_lines = {
        "ERROR : ComputeDisplayPalette, le parammètre Palette (13) est invalide !",
        "ERROR : Traitement e_LUT, params Palette (13) est invalide !",
    };
    EXPECT_EQ(trace.lines(), expected_lines);
    EXPECT_EQ(lut_entries(table), chain({tone_lut(0.2f, 1.0f, 1.0f), levels_lut(0, 0, 0)}));
}
