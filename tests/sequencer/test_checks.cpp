// Step codes, parameter checks and their trace lines, additions, ordering and
// the predicted final size.
#include <gtest/gtest.h>

#include "kevra/lut.h"
#include "kevra/sequenceur.h"
#include "seq_support.h"

using namespace seq_test;
using kevra::CRect;
using kevra::CSequenceur;
using Code = CSequenceur::e_Traitements;

namespace {

Code code(int c) { return static_cast<Code>(c); }

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
    const std::string first = trace.lines().at(0);
    return std::stoi(first.substr(std::string("### FiltrerBuffer : ").size()));
}

} // namespace

TEST(SequencerChecks, CheckTraitementAcceptsExactlyTheCatalogue)
{
    TraceFile trace;
    CSequenceur seq;
    for (int c = -300; c <= 300; ++c) {
        const bool known = (c >= 0 && c <= 2) || (c >= 50 && c <= 59) || (c >= 100 && c <= 104);
        EXPECT_EQ(seq.CheckTraitement(code(c)), known) << c;
    }
    EXPECT_EQ(trace.text(), "");
}

TEST(SequencerChecks, UnknownCodesAreRefusedWithTheirLine)
{
    TraceFile trace;
    CSequenceur seq;
    for (int c : {3, 49, 60, 99, 105, -1, 1000}) {
        EXPECT_FALSE(seq.CheckTraitement(code(c)));
        EXPECT_FALSE(seq.CheckParams(code(c), params()));
    }
    const std::vector<std::string> expected = {
        "ERROR : le traitement 3 n'existe pas!",   "ERROR : le traitement 49 n'existe pas!",
        "ERROR : le traitement 60 n'existe pas!",  "ERROR : le traitement 99 n'existe pas!",
        "ERROR : le traitement 105 n'existe pas!", "ERROR : le traitement -1 n'existe pas!",
        "ERROR : le traitement 1000 n'existe pas!",
    };
    EXPECT_EQ(trace.lines(), expected);
}

TEST(SequencerChecks, StepsWithoutChecksAlwaysPass)
{
    TraceFile trace;
    CSequenceur seq;
    Params garbage;
    for (auto &w : garbage.Mots)
        w = 0xDEADBEEF;
    for (Code c : {CSequenceur::e_Mirroir_Vertical, CSequenceur::e_Mirroir_Horizontal,
                   CSequenceur::e_LUT_LuminositeContrasteGamma, CSequenceur::e_LUT_RougeVertBleu,
                   CSequenceur::e_Pseudo3D, CSequenceur::e_Negatif, CSequenceur::e_NoirEtBlanc,
                   CSequenceur::e_UnsharpMasking, CSequenceur::e_UnsharpMaskingCircle})
        EXPECT_TRUE(seq.CheckParams(c, garbage)) << c;
    EXPECT_EQ(trace.text(), "");
}

TEST(SequencerChecks, ParameterRefusalsWriteTheirExactLines)
{
    TraceFile trace;
    CSequenceur seq;
    kevra::CLUT_8_Bpp table;

    EXPECT_TRUE(seq.CheckParams(CSequenceur::e_QuickRotate, rotate(0)));
    EXPECT_TRUE(seq.CheckParams(CSequenceur::e_QuickRotate, rotate(2)));
    EXPECT_FALSE(seq.CheckParams(CSequenceur::e_QuickRotate, rotate(3)));
    EXPECT_FALSE(seq.CheckParams(CSequenceur::e_QuickRotate, rotate(-1)));

    EXPECT_TRUE(seq.CheckParams(CSequenceur::e_LUT, palette(&table, 0)));
    for (int v : {11, 12, 21, 22, 23})
        EXPECT_TRUE(seq.CheckParams(CSequenceur::e_LUT, palette(nullptr, v))) << v;
    EXPECT_FALSE(seq.CheckParams(CSequenceur::e_LUT, palette(nullptr, 0)));
    EXPECT_FALSE(seq.CheckParams(CSequenceur::e_LUT, palette(&table, 12)));
    EXPECT_FALSE(seq.CheckParams(CSequenceur::e_LUT, palette(nullptr, 13)));
    EXPECT_FALSE(seq.CheckParams(CSequenceur::e_LUT, palette(nullptr, 20)));

    EXPECT_TRUE(seq.CheckParams(CSequenceur::e_EgalisationHistogramme, stretch(0.0f, 1.0f)));
    EXPECT_FALSE(seq.CheckParams(CSequenceur::e_EgalisationHistogramme, stretch(0.5f, 0.5f)));
    EXPECT_FALSE(seq.CheckParams(CSequenceur::e_EgalisationHistogramme, stretch(-0.25f, 0.5f)));
    EXPECT_FALSE(seq.CheckParams(CSequenceur::e_EgalisationHistogramme, stretch(0.0f, 1.5f)));

    EXPECT_TRUE(seq.CheckParams(CSequenceur::e_Blanchiment, level(-3)));
    EXPECT_FALSE(seq.CheckParams(CSequenceur::e_Blanchiment, level(0)));

    EXPECT_TRUE(seq.CheckParams(CSequenceur::e_Saturation, percent(0)));
    EXPECT_FALSE(seq.CheckParams(CSequenceur::e_Saturation, percent(-1)));
    EXPECT_TRUE(seq.CheckParams(CSequenceur::e_Teinte, percent(400)));
    EXPECT_FALSE(seq.CheckParams(CSequenceur::e_Teinte, percent(-5)));

    EXPECT_TRUE(seq.CheckParams(CSequenceur::e_FiltreMedian, median(0.01, 3)));
    EXPECT_TRUE(seq.CheckParams(CSequenceur::e_FiltreMedian, median(0.99, 65535)));
    EXPECT_FALSE(seq.CheckParams(CSequenceur::e_FiltreMedian, median(0.5, 2)));
    EXPECT_FALSE(seq.CheckParams(CSequenceur::e_FiltreMedian, median(0.995, 5)));

    EXPECT_TRUE(seq.CheckParams(CSequenceur::e_Filtre, filter(0, 3, 1.0f)));
    EXPECT_TRUE(seq.CheckParams(CSequenceur::e_Filtre, filter(9, 3, 0.0f)));
    EXPECT_FALSE(seq.CheckParams(CSequenceur::e_Filtre, filter(10, 5, 1.0f)));
    EXPECT_FALSE(seq.CheckParams(CSequenceur::e_Filtre, filter(-1, 5, 1.0f)));

    EXPECT_TRUE(seq.CheckParams(CSequenceur::e_Resample, resample(1, 1, 0)));
    EXPECT_FALSE(seq.CheckParams(CSequenceur::e_Resample, resample(0, 10, 1)));
    EXPECT_FALSE(seq.CheckParams(CSequenceur::e_Resample, resample(10, -2, 1)));

    const std::vector<std::string> expected = {
        "ERROR : Traitement e_QuickRotate, params angle(3) est invalide !",
        "ERROR : Traitement e_QuickRotate, params angle(-1) est invalide !",
        "ERROR : Traitement e_LUT, un des parametres Palette ou pLUT doit être initialisee!",
        "ERROR : Traitement e_LUT, seulement un des parametres Palette ou pLUT peut être non NULL!",
        "ERROR : Traitement e_LUT, params Palette (13) est invalide !",
        "ERROR : Traitement e_LUT, params Palette (20) est invalide !",
        "ERROR : Traitement e_EgalisationHistogramme, les parametres Min (0.500000), Max (0.500000) "
        "sont invalides!",
        "ERROR : Traitement e_EgalisationHistogramme, les parametres Min (-0.250000), Max "
        "(0.500000) sont invalides!",
        "ERROR : Traitement e_EgalisationHistogramme, les parametres Min (0.000000), Max (1.500000) "
        "sont invalides!",
        "ERROR : Traitement e_Blanchiment, le paramètre 'niveau' doit être initialisé!",
        "ERROR : Traitement e_Saturation, le parametre pourcentage (-1) est invalide!",
        "ERROR : Traitement e_Teinte, le parametre pourcentage (-5) est invalide!",
        "ERROR : Traitement e_FiltreMedian, les parametres Ecart (0.500000), TailleFiltre (2) sont "
        "invalides!",
        "ERROR : Traitement e_FiltreMedian, les parametres Ecart (0.995000), TailleFiltre (5) sont "
        "invalides!",
        "ERROR : Traitement e_Filtre, le parametres NomFiltre (10) est invalide!",
        "ERROR : Traitement e_Filtre, le parametres NomFiltre (-1) est invalide!",
        "ERROR : Traitement e_Resample, les parametres WidthNew (0), HeighNew (10) sont invalides!",
        "ERROR : Traitement e_Resample, les parametres WidthNew (10), HeighNew (-2) sont invalides!",
    };
    EXPECT_EQ(trace.lines(), expected);
}

// Unlike every other refusal, a kernel below 3 taps is refused silently.
TEST(SequencerChecks, FilterBelowThreeTapsIsRefusedWithoutALine)
{
    TraceFile trace;
    CSequenceur seq;
    EXPECT_FALSE(seq.CheckParams(CSequenceur::e_Filtre, filter(1, 2, 1.0f)));
    EXPECT_FALSE(seq.CheckParams(CSequenceur::e_Filtre, filter(0, 0, 1.0f)));
    EXPECT_EQ(trace.text(), "");
}

TEST(SequencerChecks, RefusedStepsLeaveTheListUnchanged)
{
    TraceFile trace;
    Probe seq;
    EXPECT_FALSE(seq.IsOK());
    EXPECT_FALSE(seq.AddTraitement(CSequenceur::e_Resample, resample(0, 0, 0)));
    EXPECT_FALSE(seq.IsOK());
    EXPECT_TRUE(seq.AddTraitement(CSequenceur::e_Negatif, params()));
    EXPECT_FALSE(seq.AddTraitement(CSequenceur::e_QuickRotate, rotate(7)));
    EXPECT_FALSE(seq.AddTraitement(code(77), params()));
    EXPECT_TRUE(seq.IsOK());
    EXPECT_EQ(traced_count(seq, trace), 1);
}

TEST(SequencerChecks, AllocationFailureLeavesTheListUnchanged)
{
    TraceFile trace;
    CSequenceur seq;
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_Negatif, params()));
    {
        kevra_test::FailAllocations fail;
        EXPECT_FALSE(seq.AddTraitement(CSequenceur::e_Mirroir_Vertical, params()));
    }
    EXPECT_EQ(traced_count(seq, trace), 1);
}

TEST(SequencerChecks, OrderingKeepsTheFirstOfEachCodeInTheFixedOrder)
{
    TraceFile trace;
    Probe seq;
    EXPECT_FALSE(seq.OrderTraitements()); // nothing to order
    // Added in reverse order, with duplicates whose parameters differ.
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_Resample, resample(8, 6, 0)));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_Negatif, params()));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_QuickRotate, rotate(0)));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_Resample, resample(20, 30, 0)));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_QuickRotate, rotate(1)));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_Mirroir_Vertical, params()));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_Negatif, params()));

    long w = 0, h = 0;
    // Unordered walk: resample to 8x6, turn (6x8), resample 20x30, 180 (20x30).
    ASSERT_TRUE(seq.DonneTailleFinale(4, 3, w, h));
    EXPECT_EQ(w, 20);
    EXPECT_EQ(h, 30);

    ASSERT_TRUE(seq.OrderTraitements());
    // Ordered and deduplicated: mirror, turn by 90 (3x4), resample to 8x6, negative.
    ASSERT_TRUE(seq.DonneTailleFinale(4, 3, w, h));
    EXPECT_EQ(w, 8);
    EXPECT_EQ(h, 6);

    trace.clear();
    std::vector<uint8_t> in(buffer_size(4, 3, 8), 9), out(buffer_size(8, 6, 8), 0);
    CRect rect(0, 0, 3, 2);
    EXPECT_TRUE(seq.FiltrerBuffer(4, 3, in.data(), 8, 6, out.data(), rect, 8));
    std::vector<std::string> steps;
    for (const std::string &line : trace.lines())
        if (line.rfind("Traitement=", 0) == 0)
            steps.push_back(line);
    const std::vector<std::string> expected = {
        "Traitement=e_Mirroir_Vertical",
        "Traitement=e_QuickRotate, angle=0 (voir e_angle)",
        "Traitement=e_Resample, width=8, height=6, facteur=0",
        "Traitement=e_Negatif",
    };
    EXPECT_EQ(steps, expected);
    EXPECT_EQ(trace.lines().at(0), "### FiltrerBuffer : 4 traitements demandés sur une image 8 bits "
                                   "de 4 x 3 pixels.");
}

TEST(SequencerChecks, FinalSizeEdgeCases)
{
    TraceFile trace;
    long w = -1, h = -1;
    {
        CSequenceur empty;
        EXPECT_FALSE(empty.DonneTailleFinale(640, 480, w, h));
        EXPECT_EQ(w, 640);
        EXPECT_EQ(h, 480);
    }
    {
        CSequenceur seq;
        seq.AddTraitement(CSequenceur::e_QuickRotate, rotate(0));
        EXPECT_TRUE(seq.DonneTailleFinale(640, 480, w, h));
        EXPECT_EQ(w, 480);
        EXPECT_EQ(h, 640);
        seq.AddTraitement(CSequenceur::e_QuickRotate, rotate(2));
        seq.AddTraitement(CSequenceur::e_QuickRotate, rotate(1));
        EXPECT_TRUE(seq.DonneTailleFinale(640, 480, w, h));
        EXPECT_EQ(w, 640);
        EXPECT_EQ(h, 480);
    }
    {
        // Every code but the turn and the resampling keeps the size.
        CSequenceur seq;
        kevra::CLUT_8_Bpp table;
        seq.AddTraitement(CSequenceur::e_Mirroir_Horizontal, params());
        seq.AddTraitement(CSequenceur::e_LUT, palette(&table, 0));
        seq.AddTraitement(CSequenceur::e_Teinte, percent(3));
        seq.AddTraitement(CSequenceur::e_FiltreMedian, median(0.2, 3));
        seq.AddTraitement(CSequenceur::e_Filtre, filter(1, 3, 1.0f));
        seq.AddTraitement(CSequenceur::e_UnsharpMasking, params());
        seq.AddTraitement(CSequenceur::e_UnsharpMaskingCircle, params());
        EXPECT_TRUE(seq.DonneTailleFinale(33, 17, w, h));
        EXPECT_EQ(w, 33);
        EXPECT_EQ(h, 17);
    }
    EXPECT_EQ(trace.text(), "");
}

// The count of steps is 8 bits wide: 255 steps are kept, the 256th wraps the
// count to 0 and the list is then empty; the next addition starts afresh.
TEST(SequencerChecks, TheTwoHundredFiftySixthStepWrapsTheCount)
{
    TraceFile trace;
    Probe seq;
    for (int i = 0; i < 255; ++i)
        ASSERT_TRUE(seq.AddTraitement(i % 2 == 0 ? CSequenceur::e_Negatif
                                                 : CSequenceur::e_Mirroir_Vertical,
                                      params()));
    long w = 0, h = 0;
    EXPECT_TRUE(seq.DonneTailleFinale(5, 4, w, h));

    EXPECT_TRUE(seq.AddTraitement(CSequenceur::e_QuickRotate, rotate(0)));
    EXPECT_TRUE(seq.IsOK()); // the arrays exist, with no entry
    EXPECT_FALSE(seq.DonneTailleFinale(5, 4, w, h));
    EXPECT_EQ(w, 5);
    EXPECT_EQ(h, 4);
    EXPECT_FALSE(seq.OrderTraitements());
    EXPECT_EQ(traced_count(seq, trace), 0);

    EXPECT_TRUE(seq.AddTraitement(CSequenceur::e_QuickRotate, rotate(0)));
    EXPECT_TRUE(seq.DonneTailleFinale(5, 4, w, h));
    EXPECT_EQ(w, 4);
    EXPECT_EQ(h, 5);
    EXPECT_EQ(traced_count(seq, trace), 1);
}

TEST(SequencerChecks, ALongChainRunsOnceEachCode)
{
    TraceFile trace;
    CSequenceur seq;
    for (int i = 0; i < 255; ++i)
        ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_Negatif, params()));
    EXPECT_EQ(traced_count(seq, trace), 255);
    // The run deduplicated the list: one negative, so the image came out negated once.
    EXPECT_EQ(traced_count(seq, trace), 1);
}
