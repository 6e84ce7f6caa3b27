// Whole chains on images of each depth, checked against the individual
// operations run one by one, through their image forms, in the documented
// order: mirrors, turn, median, convolution, unsharp masking, resampling,
// colour steps, histogram equalization, and the look-up tables last.
#include <gtest/gtest.h>

#include "kevra/filtre.h"
#include "kevra/lut.h"
#include "kevra/sequenceur.h"
#include "kevra/traitement.h"
#include "seq_support.h"

using namespace seq_test;
using kevra::CDibRoot;
using kevra::CFiltre;
using kevra::CRect;
using kevra::CSize;
using S = kevra::CSequenceur;
using Angle = kevra::CTraitementImgBase::e_angle;

namespace {

constexpr uint8_t kGuard = 0xA5;

CRect whole(CDibRoot &image) { return CRect(0, 0, image.Width() - 1, image.Height() - 1); }

// Runs the sequencer's buffer form on the image's pixels into a guarded
// output; checks the input is only read and nothing is written past the
// output, and on failure that the output is untouched.
std::vector<uint8_t> run(CSequenceur &seq, CDibRoot &image, long widthOut, long heightOut, CRect &rect,
                         bool expected = true)
{
    const int bpp = image.BitCount();
    std::vector<uint8_t> out(buffer_size(widthOut, heightOut, bpp) + 16, kGuard);
    const std::vector<uint8_t> before = pixels(image);
    EXPECT_EQ(seq.FiltrerBuffer(image.Width(), image.Height(), image.GetBits(), widthOut, heightOut, out.data(),
                                rect, static_cast<unsigned short>(bpp)),
              expected);
    image.ReleaseBits();
    EXPECT_EQ(pixels(image), before) << "the input is only read";
    const std::size_t used = expected ? out.size() - 16 : 0;
    EXPECT_EQ(std::vector<uint8_t>(out.begin() + used, out.end()), std::vector<uint8_t>(out.size() - used, kGuard))
        << (expected ? "written past the output" : "output written by a failed run");
    out.resize(out.size() - 16);
    return out;
}

// Compares pixels only, not the row padding: the operations leave padding to
// chance and the sequencer copies whole rows.
void expect_same_pixels(const std::vector<uint8_t> &actual, CDibRoot &expected)
{
    const std::size_t pitch = expected.Pitch(), used = (expected.Width() * expected.BitCount() + 7) / 8;
    const std::vector<uint8_t> want = pixels(expected);
    ASSERT_EQ(actual.size(), want.size());
    for (std::size_t at = 0; at < want.size(); ++at)
        if (at % pitch < used) {
            ASSERT_EQ(actual[at], want[at]) << "row " << at / pitch << " byte " << at % pitch;
        }
}

} // namespace

class SequencerChains : public TracedTest {};

TEST_F(SequencerChains, EightBitChainMatchesTheOperationsOneByOne)
{
    RandomImage source(23, 17, 8, 11);
    CSequenceur seq; // steps added out of order on purpose
    ASSERT_TRUE(add_steps(seq, {{S::e_Negatif, params()}, {S::e_LUT_LuminositeContrasteGamma, tone(0.1f, 1.2f, 0.8f)},
                                {S::e_EgalisationHistogramme, stretch(0.05f, 0.95f)},
                                {S::e_Filtre, filter(CFiltre::Filtre_Gaussien, 5, 1.2f)},
                                {S::e_FiltreMedian, median(0.3, 3)},
                                {S::e_UnsharpMasking, unsharp(2.0f, 0.5f, 0.5f, 2.0f, 2.0f)},
                                {S::e_QuickRotate, rotate(2)}, {S::e_Mirroir_Horizontal, params()},
                                {S::e_Mirroir_Vertical, params()}, {S::e_Resample, resample(30, 20, 1)}}));
    CRect rect = whole(source.image);
    const std::vector<uint8_t> result = run(seq, source.image, 30, 20, rect);
    // Turned by 270 degrees, then scaled: 16 * 30 / 17 and 22 * 20 / 23, truncated.
    EXPECT_EQ(rect, CRect(0, 0, 28, 19));

    CDibRoot expected(&source.image, true, true, true);
    kevra::CTraitementImg_8_Bpp op;
    ASSERT_TRUE(op.Mirroir_Vertical(&expected) && op.Mirroir_Horizontal(&expected));
    ASSERT_TRUE(op.QuickRotate(kevra::CTraitementImgBase::e_Angle270, &expected));
    expected.SetZoneTravail(CRect(0, 0, 16, 22));
    ASSERT_TRUE(op.FiltreMedian(&expected, 0.3, 3));
    ASSERT_TRUE(CFiltre(CFiltre::Filtre_Gaussien, 5, 1.2f).Filtrer(&expected));
    ASSERT_TRUE(op.UnsharpMasking(&expected, 2.0f, 0.5f, 0.5f, 2.0f, 2.0f));
    CDibRoot resized(CSize(30, 20), 8);
    ASSERT_TRUE(op.Resample(&expected, &resized, 1));
    resized.SetZoneTravail(CRect(0, 0, 28, 19));
    ASSERT_TRUE(op.Negatif(&resized));
    // The composed table lands after histogram equalization, deliberately,
    // although the look-up steps come before it in the order.
    CDibRoot table_first(&resized, true, true, true);
    ASSERT_TRUE(op.EgalisationHistogramme(0.05f, 0.95f, &resized));
    kevra::CLUT_8_Bpp tone_table;
    tone_table.SetLuminositeConstrateGamma(0.1f, 1.2f, 0.8f);
    ASSERT_TRUE(tone_table.Filtre(&resized));
    expect_same_pixels(result, resized);
    ASSERT_TRUE(tone_table.Filtre(&table_first) && op.EgalisationHistogramme(0.05f, 0.95f, &table_first));
    EXPECT_NE(pixels(table_first), pixels(resized)) << "the two orders must be told apart";
}

TEST_F(SequencerChains, SixteenBitChainMatchesTheOperationsOneByOne)
{
    RandomImage source(19, 13, 16, 12);
    std::vector<unsigned short> entries(65536);
    for (std::size_t i = 0; i < entries.size(); ++i)
        entries[i] = static_cast<unsigned short>((i * 7919u) & 0xFFFF);
    kevra::CLUT_16_Bpp custom(entries.data());
    CSequenceur seq; // the levels step is skipped at 16 bits without failing the run
    ASSERT_TRUE(add_steps(seq, {{S::e_LUT_LuminositeContrasteGamma, tone(0.0f, 1.5f, 1.1f)},
                                {S::e_EgalisationHistogramme, stretch(0.01f, 0.99f)}, {S::e_LUT, palette(&custom, 0)},
                                {S::e_Negatif, params()},
                                {S::e_UnsharpMaskingCircle, unsharp(1.5f, 0.75f, 0.25f, 100.0f, 50.0f, 9, 5, 4)},
                                {S::e_Filtre, filter(CFiltre::Filtre_GradientDiagonal, 3, 0.0f)},
                                {S::e_Mirroir_Vertical, params()}, {S::e_LUT_RougeVertBleu, levels(-50, 20, 3)}}));
    CRect rect = whole(source.image);
    const std::vector<uint8_t> result = run(seq, source.image, 19, 13, rect);

    CDibRoot expected(&source.image, true, true, true);
    kevra::CTraitementImg_16_Bpp op;
    ASSERT_TRUE(op.Mirroir_Vertical(&expected));
    // The diagonal gradient is lifted by (N + 1) / 2: 32768.5 here, 128.5 at 8 and 24 bits (the
    // Python module's gradient rows check those against the command line's sequencer).
    ASSERT_TRUE(CFiltre(CFiltre::Filtre_GradientDiagonal, 3, 0.0f).FiltrerAvecOffsetFacteur(&expected, 32768.5f, 1.0f));
    kevra::CPoint centre(9, 5);
    ASSERT_TRUE(op.UnsharpMasking(&expected, centre, 4, 1.5f, 0.75f, 0.25f, 100.0f, 50.0f));
    ASSERT_TRUE(op.Negatif(&expected) && op.EgalisationHistogramme(0.01f, 0.99f, &expected));
    kevra::CLUT_16_Bpp tone_table;
    tone_table.SetLuminositeConstrateGamma(0.0f, 1.5f, 1.1f);
    ASSERT_TRUE(custom.Filtre(&expected) && tone_table.Filtre(&expected));
    expect_same_pixels(result, expected);
}

TEST_F(SequencerChains, ColourChainMatchesTheOperationsOneByOne)
{
    RandomImage source(21, 14, 24, 13);
    CSequenceur seq;
    ASSERT_TRUE(add_steps(seq, {{S::e_EgalisationHistogramme, stretch(0.02f, 0.98f)},
                                {S::e_LUT_RougeVertBleu, levels(10, -20, 5)},
                                {S::e_LUT_LuminositeContrasteGamma, tone(0.05f, 1.1f, 0.9f)},
                                {S::e_LUT, palette(nullptr, 21)}, {S::e_Blanchiment, level(5)},
                                {S::e_Teinte, percent(15)}, {S::e_Saturation, percent(130)}, {S::e_Negatif, params()},
                                {S::e_Filtre, filter(CFiltre::Filtre_GradientX, 3, 0.0f)},
                                {S::e_FiltreMedian, median(0.2, 5)}, {S::e_QuickRotate, rotate(1)},
                                {S::e_Mirroir_Horizontal, params()}}));
    CRect rect = whole(source.image);
    const std::vector<uint8_t> result = run(seq, source.image, 21, 14, rect);

    CDibRoot expected(&source.image, true, true, true);
    kevra::CTraitementImg_24_Bpp op;
    ASSERT_TRUE(op.Mirroir_Horizontal(&expected));
    ASSERT_TRUE(op.QuickRotate(kevra::CTraitementImgBase::e_Angle180, &expected));
    expected.SetZoneTravail(CRect(0, 0, 20, 13));
    ASSERT_TRUE(op.FiltreMedian(&expected, 0.2, 5));
    ASSERT_TRUE(CFiltre(CFiltre::Filtre_GradientX, 3, 0.0f).Filtrer(&expected));
    ASSERT_TRUE(op.Negatif(&expected) && op.ReglageSaturation(130, &expected));
    ASSERT_TRUE(op.ReglageTeinte(15, &expected) && op.BlanchimentDents(5, &expected));
    ASSERT_TRUE(op.EgalisationHistogramme(0.02f, 0.98f, &expected));
    kevra::CLUT_24_Bpp false_colour(kevra::e_Palette21), tone_table, level_table;
    tone_table.SetLuminositeConstrateGamma(0.05f, 1.1f, 0.9f);
    level_table.ReglageRougeVertBleu(10, -20, 5);
    ASSERT_TRUE(false_colour.Filtre(&expected) && tone_table.Filtre(&expected) &&
                level_table.Filtre(&expected));
    expect_same_pixels(result, expected);
}

// At 8 and 16 bits the colour steps fail the run (output untouched) while the
// look-up steps that do not fit the depth (palettes, levels, a table of
// another depth) are skipped without failing it (nothing applied). The
// pseudo-relief, a placeholder, fails at every depth. Black-and-white's own
// result is ignored at 24 bits; its pixels are checked here on a zone.
TEST_F(SequencerChains, StepsThatDoNotFitTheDepthFailOrAreSkipped)
{
    RandomImage colour(9, 7, 24, 21);
    CSequenceur seq;
    ASSERT_TRUE(seq.AddTraitement(S::e_NoirEtBlanc, params()));
    CRect rect(1, 1, 7, 5);
    const std::vector<uint8_t> result = run(seq, colour.image, 9, 7, rect);
    CDibRoot expected(&colour.image, true, true, true);
    expected.SetZoneTravail(CRect(1, 1, 7, 5));
    kevra::CTraitementImg_24_Bpp().NoirEtBlanc(&expected);
    expect_same_pixels(result, expected);

    kevra::CLUT_16_Bpp wide;
    wide.SetContraste(0.25f);
    kevra::CLUT_24_Bpp inverted(kevra::e_Palette12);
    for (int bpp : {8, 16, 24}) {
        RandomImage image(9, 7, bpp, 22);
        kevra::CLUT *other_depth = bpp == 8 ? static_cast<kevra::CLUT *>(&wide) : &inverted;
        std::vector<std::pair<Step, bool>> cases = {{{S::e_Pseudo3D, params()}, false}};
        if (bpp != 24)
            cases.insert(cases.end(), {{{S::e_NoirEtBlanc, params()}, false}, {{S::e_Saturation, percent(3)}, false},
                                       {{S::e_Teinte, percent(3)}, false}, {{S::e_Blanchiment, level(3)}, false},
                                       {{S::e_LUT, palette(nullptr, 12)}, true},
                                       {{S::e_LUT_RougeVertBleu, levels(-100, -100, -100)}, true},
                                       {{S::e_LUT, palette(other_depth, 0)}, true}});
        for (const auto &[step, skipped] : cases) {
            SCOPED_TRACE(::testing::Message() << bpp << " bits, step " << step.code);
            CSequenceur one;
            ASSERT_TRUE(one.AddTraitement(step.code, step.params));
            CRect r(0, 0, 8, 6);
            trace.clear();
            const std::vector<uint8_t> out = run(one, image.image, 9, 7, r, skipped);
            if (skipped) {
                EXPECT_EQ(out, pixels(image.image));
                EXPECT_EQ(trace.text().find("Execution"), std::string::npos) << "no table was applied";
            }
        }
    }
}

// The zone follows each turn. With any other output size (the unturned one,
// smaller or larger both ways) the run fails after every step ran, the
// caller's zone already turned.
TEST_F(SequencerChains, TurnsMapTheZoneAndAWrongOutputSizeFailsAfterAllSteps)
{
    RandomImage image(6, 5, 8, 61);
    const struct { int angle; long w, h, wrong_w, wrong_h; CRect expected; } cases[] = {
        {0, 5, 6, 6, 5, CRect(1, 1, 2, 4)}, // (H-1-bottom, left, H-1-top, right)
        {1, 6, 5, 5, 4, CRect(1, 1, 4, 2)}, // (W-1-right, H-1-bottom, W-1-left, H-1-top)
        {2, 5, 6, 6, 7, CRect(2, 1, 3, 4)}, // (top, W-1-right, bottom, W-1-left)
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.angle);
        CSequenceur seq;
        ASSERT_TRUE(add_steps(seq, {{S::e_Negatif, params()}, {S::e_QuickRotate, rotate(c.angle)}}));
        CRect rect(1, 2, 4, 3), wrong = rect;
        trace.clear();
        run(seq, image.image, c.wrong_w, c.wrong_h, wrong, false);
        EXPECT_NE(trace.text().find("Traitement=e_Negatif"), std::string::npos) << "every step ran";
        EXPECT_EQ(wrong, c.expected);

        const std::vector<uint8_t> out = run(seq, image.image, c.w, c.h, rect);
        EXPECT_EQ(rect, c.expected);
        CDibRoot expected(&image.image, true, true, true);
        kevra::CTraitementImg_8_Bpp op;
        ASSERT_TRUE(op.QuickRotate(static_cast<Angle>(c.angle), &expected));
        expected.SetZoneTravail(c.expected);
        ASSERT_TRUE(op.Negatif(&expected));
        expect_same_pixels(out, expected);
    }
}

// Filtrer swaps the result into the image. A failed run leaves the image
// holding the new image as created, with the predicted size: the unordered
// prediction of a resample added before a turn is the swapped size, the run
// yields the resample size itself, and fails.
TEST_F(SequencerChains, FiltrerSwapsTheResultInAndKeepsTheNewImageOnFailure)
{
    RandomImage colour(9, 8, 24, 121);
    colour.image.SetZoneTravail(CRect(1, 1, 6, 5));
    CSequenceur seq;
    ASSERT_TRUE(add_steps(seq, {{S::e_Negatif, params()}, {S::e_QuickRotate, rotate(0)}}));
    CDibRoot expected(&colour.image, true, true, true);
    kevra::CTraitementImg_24_Bpp op;
    ASSERT_TRUE(op.QuickRotate(kevra::CTraitementImgBase::e_Angle90, &expected));
    expected.SetZoneTravail(CRect(2, 1, 6, 6)); // the zone turned: (H-1-bottom, left, H-1-top, right)
    ASSERT_TRUE(op.Negatif(&expected));
    ASSERT_TRUE(seq.Filtrer(&colour.image));
    EXPECT_EQ(colour.image.Size(), CSize(8, 9));
    EXPECT_EQ(colour.image.BitCount(), 24);
    EXPECT_EQ(colour.image.BoundingRectangle(), CRect(0, 0, 7, 8)) << "a new image's zone";
    expect_same_pixels(pixels(expected), colour.image);

    RandomImage grey(12, 10, 16, 131);
    CSequenceur failing;
    ASSERT_TRUE(add_steps(failing, {{S::e_Resample, resample(6, 4, 1)}, {S::e_QuickRotate, rotate(0)}}));
    long w = 0, h = 0;
    ASSERT_TRUE(failing.DonneTailleFinale(12, 10, w, h));
    EXPECT_EQ(std::make_pair(w, h), std::make_pair(4L, 6L));
    EXPECT_FALSE(failing.Filtrer(&grey.image));
    EXPECT_TRUE(grey.image.IsOK());
    EXPECT_EQ(grey.image.Size(), CSize(4, 6));
    EXPECT_EQ(grey.image.BitCount(), 16);

    // No image, an empty one, an empty list: refused before any change.
    CDibRoot empty;
    CSequenceur none;
    EXPECT_FALSE(seq.Filtrer(nullptr) || seq.Filtrer(&empty) || none.Filtrer(&grey.image));
    EXPECT_EQ(grey.image.Size(), CSize(4, 6));
}

// A run that keeps the size works in the image's own rows and hands them to the new image:
// the result is FiltrerBuffer's, the palette is the new image's (the source's inverted one is
// gone), a handle sharing the store keeps the pixels it had, and a failed run leaves the new
// image's zeros.
TEST_F(SequencerChains, FiltrerOfTheSameSizeMatchesTheBufferFormAndSparesSharers)
{
    RandomImage grey(9, 7, 8, 141);
    grey.image.SetDisplayPalette(kevra::e_Palette12);
    kevra::tagRGBQUAD palette[256];
    ASSERT_EQ(grey.image.GetCurrentDisplayPalette(palette, 256), 1);
    ASSERT_EQ(palette[1].rgbBlue, 254); // inverted
    const std::vector<uint8_t> before = pixels(grey.image);
    CSequenceur seq;
    ASSERT_TRUE(add_steps(seq, {{S::e_Negatif, params()}, {S::e_FiltreMedian, median(0.1, 3)}}));
    std::vector<uint8_t> expected(before.size());
    CRect rc = grey.image.BoundingRectangle();
    ASSERT_TRUE(seq.FiltrerBuffer(9, 7, grey.image.GetBits(), 9, 7, expected.data(), rc, 8));
    grey.image.ReleaseBits();

    CDibRoot sharer(grey.image); // the same store
    ASSERT_TRUE(seq.Filtrer(&grey.image));
    EXPECT_EQ(pixels(grey.image), expected);
    EXPECT_EQ(pixels(sharer), before);
    ASSERT_EQ(grey.image.GetCurrentDisplayPalette(palette, 256), 1);
    EXPECT_EQ(palette[1].rgbBlue, 1);
    EXPECT_EQ(palette[254].rgbRed, 254);

    CSequenceur failing; // pseudo-relief always fails
    ASSERT_TRUE(add_steps(failing, {{S::e_Negatif, params()}, {S::e_Pseudo3D, params()}}));
    EXPECT_FALSE(failing.Filtrer(&grey.image));
    EXPECT_EQ(pixels(grey.image), std::vector<uint8_t>(before.size(), 0));
}

TEST_F(SequencerChains, AllocationFailuresFailTheRunCleanly)
{
    RandomImage image(40, 30, 8, 141);
    CSequenceur seq;
    ASSERT_TRUE(add_steps(seq, {{S::e_Filtre, filter(0, 3, 1.0f)}, {S::e_QuickRotate, rotate(0)}}));
    for (std::size_t budget : {std::size_t(1000), std::size_t(40 * 30 * 4)}) { // the second: only the float plane
        FailAllocations fail(budget);
        CRect rect = whole(image.image);
        run(seq, image.image, 30, 40, rect, false);
    }
}
