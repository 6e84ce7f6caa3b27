// The trace file: the once-per-process decision, the line format, and the
// exact file of whole runs with a deterministic clock.
#include <gtest/gtest.h>

#include <cstdio>
#include <iomanip>
#include <sstream>

#include "kevra/lut.h"
#include "kevra/sequenceur.h"
#include "seq_support.h"

using namespace seq_test;
using kevra::CRect;
using S = kevra::CSequenceur;

class SequencerTrace : public TracedTest {};

TEST_F(SequencerTrace, NoFileAtTheFirstLineMeansNoTraceForTheProcess)
{
    TraceFile missing(false); // in place of the suite's file
    CSequenceur::TraceAppels(L"premier", false, false);
    write_file(missing.path(), {});
    CSequenceur::TraceAppels(L"second", false, true);
    CSequenceur seq;
    seq.CheckParams(static_cast<Code>(3), params());
    EXPECT_EQ(missing.text(), "");
}

// Once on, the trace stays on: a removed file is made again by the next line.
TEST_F(SequencerTrace, LinesAreUtf8WithTheErrorPrefixAndTheDecisionStays)
{
    CSequenceur::TraceAppels(L"Zone traitée", false, false);
    CSequenceur::TraceAppels(L"paramètre invalide", true, true);
    CSequenceur::TraceAppels(nullptr, true, false);
    EXPECT_EQ(trace.text(), "Zone trait\xC3\xA9" "e\nERROR : param\xC3\xA8tre invalide\n\n");
    std::remove(trace.path().c_str());
    CSequenceur::TraceAppels(L"deux", false, false);
    EXPECT_EQ(trace.text(), "deux\n");
}

// A whole run: ordered steps, a timed line after each pixel step, plain lines
// for the look-up steps (the levels are skipped at 8 bits but still traced),
// the composed table's timing after the loop. The clock wraps during the run:
// the differences stay 9.
TEST_F(SequencerTrace, ExactFileOfARun)
{
    FakeTicks ticks(0xFFFFFFF0u, 9);
    kevra::CLUT_8_Bpp table;
    CSequenceur seq;
    ASSERT_TRUE(add_steps(seq, {{S::e_LUT_LuminositeContrasteGamma, tone(0.5f, 1.0f, 1.0f)}, {S::e_Negatif, params()},
                                {S::e_Resample, resample(5, 3, 1)}, {S::e_LUT, palette(&table, 0)},
                                {S::e_LUT_RougeVertBleu, levels(10, 20, 30)},
                                {S::e_EgalisationHistogramme, stretch(0.1f, 0.9f)}}));
    RandomImage image(8, 6, 8, 4);
    std::vector<uint8_t> out(buffer_size(5, 3, 8));
    CRect rect(1, 1, 6, 4);
    ASSERT_TRUE(seq.FiltrerBuffer(8, 6, image.image.GetBits(), 5, 3, out.data(), rect, 8));
    std::ostringstream pointer;
    pointer << std::hex << std::uppercase << reinterpret_cast<uintptr_t>(&table);
    EXPECT_EQ(trace.text(), "### FiltrerBuffer : 6 traitements demandés sur une image 8 bits de 8 x 6 pixels.\n"
                            "Zone traitée t=1,b=4 - l=1,r=6\n"
                            "Image de sortie de 5 x 3 pixels.\n"
                            "Traitement=e_Resample, width=5, height=3, facteur=1\n"
                            "---------> Execution en 9 ms\n"
                            "Traitement=e_Negatif\n"
                            "---------> Execution en 9 ms\n"
                            "Traitement=e_LUT, pLUT=" + pointer.str() + "h, Palette=0\n"
                            "Traitement=e_LUT_LuminositeContrasteGamma, luminosite=0.500000, constraste=1.000000, "
                            "gamma=1.000000\n"
                            "Traitement=e_LUT_RougeVertBleu, rouge=10, vert=20, bleu=30\n"
                            "Traitement=e_EgalisationHistogramme, min=0.100000, max=0.900000\n"
                            "---------> Execution en 9 ms\n"
                            "---------> Execution en 9 ms\n"
                            "### Fin de FiltrerBuffer\n"
                            "\n");
    EXPECT_EQ(ticks.readings(), 8u) << "two readings per timed step: three steps and the table";
    // The zone was scaled with the picture, truncated: 1*5/8, 6*5/8, 1*3/6, 4*3/6.
    EXPECT_EQ(rect, CRect(0, 0, 3, 2));
    EXPECT_EQ(seq.GetBpp(), 8) << "a run sets the sequencer's depth";
}

// Each refused size, zone, depth or input: the run's whole file, the output
// and the caller's zone untouched. A zone one pixel wide or high is refused.
TEST_F(SequencerTrace, ExactFileOfRefusedSizesAndZones)
{
    RandomImage image(8, 6, 8, 91);
    CSequenceur seq;
    ASSERT_TRUE(seq.AddTraitement(S::e_Negatif, params()));
    std::vector<uint8_t> out(buffer_size(8, 6, 8), 0x5A);
    const std::vector<uint8_t> untouched = out;
    const struct { long w, h, wo, ho; CRect rect; unsigned short bpp; bool null_input; } cases[] = {
        {0, 6, 8, 6, CRect(0, 0, 1, 1), 8, false}, {8, 0, 8, 6, CRect(0, 0, 1, 1), 8, false},
        {8, 6, 0, 6, CRect(0, 0, 1, 1), 8, false}, {8, 6, 8, -1, CRect(0, 0, 1, 1), 8, false},
        {8, 6, 8, 6, CRect(-1, 0, 3, 3), 8, false}, {8, 6, 8, 6, CRect(0, 0, 8, 3), 8, false},
        {8, 6, 8, 6, CRect(2, 0, 2, 5), 8, false}, {8, 6, 8, 6, CRect(0, 3, 7, 3), 8, false},
        {8, 6, 8, 6, CRect(0, 0, 7, 6), 8, false}, {8, 6, 8, 6, CRect(5, 0, 4, 3), 8, false},
        {8, 6, 8, 6, CRect(0, 0, 7, 5), 12, false}, {8, 6, 8, 6, CRect(0, 0, 7, 5), 32, false},
        {8, 6, 8, 6, CRect(0, 0, 7, 5), 8, true}};
    for (const auto &c : cases) {
        char header[256];
        std::snprintf(header, sizeof header,
                      "### FiltrerBuffer : 1 traitements demandés sur une image %d bits de %ld x %ld pixels.\n"
                      "Zone traitée t=%d,b=%d - l=%d,r=%d\nImage de sortie de %ld x %ld pixels.\n",
                      c.bpp, c.w, c.h, c.rect.top, c.rect.bottom, c.rect.left, c.rect.right, c.wo, c.ho);
        SCOPED_TRACE(header);
        trace.clear();
        CRect rect = c.rect;
        EXPECT_FALSE(seq.FiltrerBuffer(c.w, c.h, c.null_input ? nullptr : image.image.GetBits(), c.wo, c.ho,
                                       out.data(), rect, c.bpp));
        EXPECT_EQ(out, untouched);
        EXPECT_EQ(rect, c.rect);
        EXPECT_EQ(trace.text(), std::string(header) + "ERROR : FiltrerBuffer : Les parametres dimensionnels sont "
                                                      "invalides!\n### Fin de FiltrerBuffer\n\n");
    }
}

TEST_F(SequencerTrace, FailedStepEndsTheRunAndTheTableIsNotApplied)
{
    FakeTicks ticks(0, 1);
    CSequenceur seq;
    ASSERT_TRUE(add_steps(seq, {{S::e_Saturation, percent(10)}, {S::e_Negatif, params()},
                                {S::e_LUT_LuminositeContrasteGamma, tone(0, 2, 1)}}));
    std::vector<uint8_t> in(buffer_size(5, 5, 8), 1), out(in.size(), 0x5A);
    CRect rect(0, 0, 4, 4);
    EXPECT_FALSE(seq.FiltrerBuffer(5, 5, in.data(), 5, 5, out.data(), rect, 8));
    EXPECT_EQ(out, std::vector<uint8_t>(in.size(), 0x5A));
    EXPECT_EQ(trace.text(),
              "### FiltrerBuffer : 3 traitements demandés sur une image 8 bits de 5 x 5 pixels.\n"
              "Zone traitée t=0,b=4 - l=0,r=4\n"
              "Image de sortie de 5 x 5 pixels.\n"
              "Traitement=e_Negatif\n"
              "---------> Execution en 1 ms\n"
              "Traitement=e_Saturation\n"
              "---------> Execution en 1 ms\n"
              "### Fin de FiltrerBuffer\n"
              "\n");
}
