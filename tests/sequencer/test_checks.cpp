// Step codes, parameter checks and their trace lines, additions, ordering and
// the predicted final size.
#include <gtest/gtest.h>

#include "kevra/lut.h"
#include "kevra/sequenceur.h"
#include "seq_support.h"

using namespace seq_test;
using kevra::CRect;
using S = kevra::CSequenceur;
using WH = std::pair<long, long>;

namespace {

// Exposes the protected members for the tests.
struct Probe : CSequenceur {
    using CSequenceur::IsOK;
    using CSequenceur::OrderTraitements;
};

// The step count as the run's header line gives it.
int traced_count(CSequenceur &seq, TraceFile &trace)
{
    trace.clear();
    std::vector<uint8_t> in(buffer_size(4, 4, 8), 7), out(in.size());
    CRect rect(0, 0, 3, 3);
    seq.FiltrerBuffer(4, 4, in.data(), 4, 4, out.data(), rect, 8);
    return std::stoi(trace.lines().at(0).substr(std::string("### FiltrerBuffer : ").size()));
}

} // namespace

class SequencerChecks : public TracedTest {};

TEST_F(SequencerChecks, OnlyTheCatalogueExists)
{
    CSequenceur seq;
    for (int c = -300; c <= 300; ++c) {
        const bool known = (c >= 0 && c <= 2) || (c >= 50 && c <= 59) || (c >= 100 && c <= 104);
        EXPECT_EQ(seq.CheckTraitement(static_cast<Code>(c)), known) << c;
    }
    EXPECT_EQ(trace.text(), "") << "CheckTraitement writes nothing";
    std::vector<std::string> expected;
    for (int c : {3, 49, 60, 99, 105, -1, 1000}) {
        EXPECT_FALSE(seq.CheckParams(static_cast<Code>(c), params()));
        expected.push_back("ERROR : le traitement " + std::to_string(c) + " n'existe pas!");
    }
    EXPECT_EQ(trace.lines(), expected);
}

TEST_F(SequencerChecks, ParameterChecksAndTheirExactLines)
{
    CSequenceur seq;
    kevra::CLUT_8_Bpp table;
    Params garbage;
    for (auto &w : garbage.Mots)
        w = 0xDEADBEEF;
    // line: nullptr when the step passes, "" when it is refused without a line.
    const struct { Code code; Params params; const char *line; } cases[] = {
        // Steps without checks take anything.
        {S::e_Mirroir_Vertical, garbage, nullptr}, {S::e_Mirroir_Horizontal, garbage, nullptr},
        {S::e_LUT_LuminositeContrasteGamma, garbage, nullptr}, {S::e_LUT_RougeVertBleu, garbage, nullptr},
        {S::e_Pseudo3D, garbage, nullptr}, {S::e_Negatif, garbage, nullptr}, {S::e_NoirEtBlanc, garbage, nullptr},
        {S::e_UnsharpMasking, garbage, nullptr}, {S::e_UnsharpMaskingCircle, garbage, nullptr},
        {S::e_QuickRotate, rotate(0), nullptr}, {S::e_QuickRotate, rotate(2), nullptr},
        {S::e_QuickRotate, rotate(3), "Traitement e_QuickRotate, params angle(3) est invalide !"},
        {S::e_QuickRotate, rotate(-1), "Traitement e_QuickRotate, params angle(-1) est invalide !"},
        {S::e_LUT, palette(&table, 0), nullptr}, {S::e_LUT, palette(nullptr, 11), nullptr},
        {S::e_LUT, palette(nullptr, 12), nullptr}, {S::e_LUT, palette(nullptr, 21), nullptr},
        {S::e_LUT, palette(nullptr, 22), nullptr}, {S::e_LUT, palette(nullptr, 23), nullptr},
        {S::e_LUT, palette(nullptr, 0), "Traitement e_LUT, un des parametres Palette ou pLUT doit être initialisee!"},
        {S::e_LUT, palette(&table, 12),
         "Traitement e_LUT, seulement un des parametres Palette ou pLUT peut être non NULL!"},
        {S::e_LUT, palette(nullptr, 13), "Traitement e_LUT, params Palette (13) est invalide !"},
        {S::e_EgalisationHistogramme, stretch(0.0f, 1.0f), nullptr},
        {S::e_EgalisationHistogramme, stretch(0.5f, 0.5f),
         "Traitement e_EgalisationHistogramme, les parametres Min (0.500000), Max (0.500000) sont invalides!"},
        {S::e_EgalisationHistogramme, stretch(-0.25f, 0.5f),
         "Traitement e_EgalisationHistogramme, les parametres Min (-0.250000), Max (0.500000) sont invalides!"},
        {S::e_EgalisationHistogramme, stretch(0.0f, 1.5f),
         "Traitement e_EgalisationHistogramme, les parametres Min (0.000000), Max (1.500000) sont invalides!"},
        {S::e_Blanchiment, level(-3), nullptr},
        {S::e_Blanchiment, level(0), "Traitement e_Blanchiment, le paramètre 'niveau' doit être initialisé!"},
        {S::e_Saturation, percent(0), nullptr},
        {S::e_Saturation, percent(-1), "Traitement e_Saturation, le parametre pourcentage (-1) est invalide!"},
        {S::e_Teinte, percent(400), nullptr},
        {S::e_Teinte, percent(-5), "Traitement e_Teinte, le parametre pourcentage (-5) est invalide!"},
        {S::e_FiltreMedian, median(0.01, 3), nullptr}, {S::e_FiltreMedian, median(0.99, 65535), nullptr},
        {S::e_FiltreMedian, median(0.5, 2),
         "Traitement e_FiltreMedian, les parametres Ecart (0.500000), TailleFiltre (2) sont invalides!"},
        {S::e_FiltreMedian, median(0.995, 5),
         "Traitement e_FiltreMedian, les parametres Ecart (0.995000), TailleFiltre (5) sont invalides!"},
        {S::e_Filtre, filter(0, 3, 1.0f), nullptr}, {S::e_Filtre, filter(9, 3, 0.0f), nullptr},
        {S::e_Filtre, filter(10, 5, 1.0f), "Traitement e_Filtre, le parametres NomFiltre (10) est invalide!"},
        {S::e_Filtre, filter(-1, 5, 1.0f), "Traitement e_Filtre, le parametres NomFiltre (-1) est invalide!"},
        {S::e_Filtre, filter(1, 2, 1.0f), ""}, {S::e_Filtre, filter(0, 0, 1.0f), ""}, // unlike every other refusal
        {S::e_Resample, resample(1, 1, 0), nullptr},
        {S::e_Resample, resample(0, 10, 1),
         "Traitement e_Resample, les parametres WidthNew (0), HeighNew (10) sont invalides!"},
        {S::e_Resample, resample(10, -2, 1),
         "Traitement e_Resample, les parametres WidthNew (10), HeighNew (-2) sont invalides!"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(::testing::Message() << "code " << c.code << ", line " << (c.line ? c.line : "none"));
        trace.clear();
        EXPECT_EQ(seq.CheckParams(c.code, c.params), c.line == nullptr);
        EXPECT_EQ(trace.text(), c.line && *c.line ? std::string("ERROR : ") + c.line + "\n" : "");
    }
}

TEST_F(SequencerChecks, RefusedStepsAndAllocationFailuresLeaveTheListUnchanged)
{
    Probe seq;
    EXPECT_FALSE(seq.IsOK());
    EXPECT_FALSE(seq.AddTraitement(S::e_Resample, resample(0, 0, 0)));
    EXPECT_FALSE(seq.IsOK());
    EXPECT_TRUE(seq.AddTraitement(S::e_Negatif, params()));
    EXPECT_FALSE(seq.AddTraitement(S::e_QuickRotate, rotate(7)) ||
                 seq.AddTraitement(static_cast<Code>(77), params()));
    {
        FailAllocations fail;
        EXPECT_FALSE(seq.AddTraitement(S::e_Mirroir_Vertical, params()));
    }
    EXPECT_TRUE(seq.IsOK());
    EXPECT_EQ(traced_count(seq, trace), 1);
}

// Every code, added in reverse order with duplicates whose parameters differ,
// runs once in the fixed order with its first parameters (a 24-bit run, so
// that the colour steps run; the pseudo-relief, last, fails it).
TEST_F(SequencerChecks, OrderingKeepsTheFirstOfEachCodeInTheFixedOrder)
{
    CSequenceur seq;
    ASSERT_TRUE(add_steps(seq, {{S::e_Pseudo3D, params()}, {S::e_EgalisationHistogramme, stretch(0.1f, 0.9f)},
                                {S::e_LUT_RougeVertBleu, levels(1, 2, 3)},
                                {S::e_LUT_LuminositeContrasteGamma, tone(0.5f, 1, 1)}, {S::e_LUT, palette(nullptr, 12)},
                                {S::e_Blanchiment, level(2)}, {S::e_Teinte, percent(10)},
                                {S::e_Saturation, percent(20)}, {S::e_Negatif, params()}, {S::e_NoirEtBlanc, params()},
                                {S::e_Resample, resample(8, 6, 0)},
                                {S::e_UnsharpMaskingCircle, unsharp(1, 1, 1, 1, 1, 1, 2, 3)},
                                {S::e_UnsharpMasking, unsharp(1.5f, 1, 1, 1, 1)}, {S::e_Filtre, filter(0, 3, 1.0f)},
                                {S::e_FiltreMedian, median(0.5, 3)}, {S::e_QuickRotate, rotate(0)},
                                {S::e_Resample, resample(20, 30, 0)}, {S::e_QuickRotate, rotate(1)},
                                {S::e_Mirroir_Horizontal, params()}, {S::e_Mirroir_Vertical, params()},
                                {S::e_Negatif, params()}}));
    RandomImage image(12, 10, 24, 5);
    std::vector<uint8_t> out(buffer_size(8, 6, 24));
    CRect rect(0, 0, 11, 9);
    EXPECT_FALSE(seq.FiltrerBuffer(12, 10, image.image.GetBits(), 8, 6, out.data(), rect, 24));
    std::vector<std::string> steps;
    for (const std::string &line : trace.lines())
        if (line.rfind("Traitement=", 0) == 0)
            steps.push_back(line);
    const std::vector<std::string> expected = {
        "Traitement=e_Mirroir_Vertical", "Traitement=e_Mirroir_Horizontal",
        "Traitement=e_QuickRotate, angle=0 (voir e_angle)", "Traitement=e_FiltreMedian, Ecart=0.500000, TailleFiltre=3",
        "Traitement=e_Filtre, filtre=0, taille=3, param=1.000000",
        "Traitement=e_UnsharpMasking, rayon=1.500000, gainP=1.000000, gainN=1.000000, SeuilP=1.000000, "
        "SeuilN=1.000000",
        "Traitement=e_UnsharpMaskingCircle, rayon=1.000000, gainP=1.000000, gainN=1.000000, SeuilP=1.000000, "
        "SeuilN=1.000000, X=1, Y=2, Radius = 3",
        "Traitement=e_Resample, width=8, height=6, facteur=0", "Traitement=e_NoirEtBlanc", "Traitement=e_Negatif",
        "Traitement=e_Saturation", "Traitement=e_Teinte", "Traitement=e_Blanchiment",
        "Traitement=e_LUT, pLUT=0h, Palette=12",
        "Traitement=e_LUT_LuminositeContrasteGamma, luminosite=0.500000, constraste=1.000000, gamma=1.000000",
        "Traitement=e_LUT_RougeVertBleu, rouge=1, vert=2, bleu=3",
        "Traitement=e_EgalisationHistogramme, min=0.100000, max=0.900000", "Traitement=e_Pseudo3D",
    };
    EXPECT_EQ(steps, expected);
    EXPECT_EQ(trace.lines().at(0),
              "### FiltrerBuffer : 21 traitements demandés sur une image 24 bits de 12 x 10 pixels.");
    EXPECT_EQ(traced_count(seq, trace), 18) << "a run leaves the list ordered and deduplicated";
}

// The list is walked as it stands: every code but the turn and the resampling
// keeps the size; the turn by 90 or 270 degrees swaps it, by 180 keeps it. (An
// empty list: see the wrapped count below.)
TEST_F(SequencerChecks, FinalSizeWalksTheList)
{
    long w = -1, h = -1;
    CSequenceur seq;
    kevra::CLUT_8_Bpp table;
    ASSERT_TRUE(add_steps(seq, {{S::e_Mirroir_Horizontal, params()}, {S::e_LUT, palette(&table, 0)},
                                {S::e_Teinte, percent(3)}, {S::e_FiltreMedian, median(0.2, 3)},
                                {S::e_Filtre, filter(1, 3, 1.0f)}, {S::e_UnsharpMasking, params()},
                                {S::e_UnsharpMaskingCircle, params()}, {S::e_QuickRotate, rotate(0)}}));
    EXPECT_TRUE(seq.DonneTailleFinale(640, 480, w, h));
    EXPECT_EQ(WH(w, h), WH(480, 640));
    ASSERT_TRUE(add_steps(seq, {{S::e_QuickRotate, rotate(1)}, {S::e_QuickRotate, rotate(2)}}));
    EXPECT_TRUE(seq.DonneTailleFinale(640, 480, w, h));
    EXPECT_EQ(WH(w, h), WH(640, 480));
    EXPECT_EQ(trace.text(), "");
}

// The count of steps is 8 bits wide: 255 steps are kept, the 256th wraps the
// count to 0 and the list is then empty; the next addition starts afresh.
TEST_F(SequencerChecks, TheTwoHundredFiftySixthStepWrapsTheCount)
{
    Probe seq;
    for (int i = 0; i < 255; ++i)
        ASSERT_TRUE(seq.AddTraitement(i % 2 == 0 ? S::e_Negatif : S::e_Mirroir_Vertical, params()));
    long w = 0, h = 0;
    EXPECT_TRUE(seq.DonneTailleFinale(5, 4, w, h));

    EXPECT_TRUE(seq.AddTraitement(S::e_QuickRotate, rotate(0)));
    EXPECT_TRUE(seq.IsOK()) << "the arrays exist, with no entry";
    EXPECT_FALSE(seq.DonneTailleFinale(5, 4, w, h));
    EXPECT_EQ(WH(w, h), WH(5, 4));
    EXPECT_FALSE(seq.OrderTraitements());
    EXPECT_EQ(traced_count(seq, trace), 0);

    EXPECT_TRUE(seq.AddTraitement(S::e_QuickRotate, rotate(0)));
    EXPECT_TRUE(seq.DonneTailleFinale(5, 4, w, h));
    EXPECT_EQ(WH(w, h), WH(4, 5));
    EXPECT_EQ(traced_count(seq, trace), 1);
}
