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
using kevra::CPoint;
using kevra::CRect;
using kevra::CSequenceur;
using kevra::CSize;

namespace {

CRect whole(CDibRoot &image)
{
    return CRect(0, 0, static_cast<int>(image.Width()) - 1, static_cast<int>(image.Height()) - 1);
}

// Runs the sequencer's buffer form on a copy of the image's pixels.
std::vector<uint8_t> run(CSequenceur &seq, CDibRoot &image, long widthOut, long heightOut,
                         CRect &rect, bool expected = true)
{
    const int bpp = image.BitCount();
    std::vector<uint8_t> out(buffer_size(widthOut, heightOut, bpp) + 16, 0xA5);
    const std::vector<uint8_t> before = pixels(image);
    const bool ok = seq.FiltrerBuffer(image.Width(), image.Height(), image.GetBits(), widthOut,
                                      heightOut, out.data(), rect, static_cast<unsigned short>(bpp));
    EXPECT_EQ(ok, expected);
    EXPECT_EQ(pixels(image), before) << "the input is only read";
    for (std::size_t i = out.size() - 16; i < out.size(); ++i)
        EXPECT_EQ(out[i], 0xA5) << "written past the output";
    out.resize(out.size() - 16);
    return out;
}

// Compares pixels only, not the row padding: the operations leave padding to
// chance and the sequencer copies whole rows.
void expect_same_pixels(const std::vector<uint8_t> &actual, CDibRoot &expected)
{
    const int pitch = expected.Pitch();
    const int used = static_cast<int>((expected.Width() * expected.BitCount() + 7) / 8);
    const std::vector<uint8_t> want = pixels(expected);
    ASSERT_EQ(actual.size(), want.size());
    for (long r = 0; r < expected.Height(); ++r)
        for (int i = 0; i < used; ++i) {
            const std::size_t at = static_cast<std::size_t>(r) * pitch + i;
            ASSERT_EQ(actual[at], want[at]) << "row " << r << " byte " << i;
        }
}

struct GreyImage {
    CDibRoot image;
    GreyImage(int w, int h, int bpp, uint32_t seed) : image(CSize(w, h), static_cast<unsigned short>(bpp))
    {
        randomise(image, seed);
    }
};

} // namespace

TEST(SequencerChains, EightBitChainMatchesTheOperationsOneByOne)
{
    TraceFile trace;
    GreyImage source(23, 17, 8, 11);
    kevra::CLUT_8_Bpp tone_table;
    tone_table.SetLuminositeConstrateGamma(0.1f, 1.2f, 0.8f);

    // Added out of order on purpose.
    CSequenceur seq;
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_Negatif, params()));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_LUT_LuminositeContrasteGamma, tone(0.1f, 1.2f, 0.8f)));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_EgalisationHistogramme, stretch(0.05f, 0.95f)));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_Filtre, filter(CFiltre::Filtre_Gaussien, 5, 1.2f)));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_FiltreMedian, median(0.3, 3)));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_UnsharpMasking, unsharp(2.0f, 0.5f, 0.5f, 2.0f, 2.0f)));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_QuickRotate, rotate(2)));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_Mirroir_Horizontal, params()));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_Mirroir_Vertical, params()));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_Resample, resample(30, 20, 1)));

    CRect rect = whole(source.image);
    const std::vector<uint8_t> result = run(seq, source.image, 30, 20, rect);
    // Turned by 270 degrees, then scaled: 16 * 30 / 17 and 22 * 20 / 23, truncated.
    EXPECT_EQ(rect, CRect(0, 0, 28, 19));

    CDibRoot expected(&source.image, true, true, true);
    kevra::CTraitementImg_8_Bpp op;
    ASSERT_TRUE(op.Mirroir_Vertical(&expected));
    ASSERT_TRUE(op.Mirroir_Horizontal(&expected));
    ASSERT_TRUE(op.QuickRotate(kevra::CTraitementImgBase::e_Angle270, &expected));
    expected.SetZoneTravail(CRect(0, 0, 16, 22));
    ASSERT_TRUE(op.FiltreMedian(&expected, 0.3, 3));
    CFiltre gauss(CFiltre::Filtre_Gaussien, 5, 1.2f);
    ASSERT_TRUE(gauss.Filtrer(&expected));
    ASSERT_TRUE(op.UnsharpMasking(&expected, 2.0f, 0.5f, 0.5f, 2.0f, 2.0f));
    CDibRoot resized(CSize(30, 20), 8);
    ASSERT_TRUE(op.Resample(&expected, &resized, 1));
    resized.SetZoneTravail(CRect(0, 0, 28, 19));
    ASSERT_TRUE(op.Negatif(&resized));
    ASSERT_TRUE(op.EgalisationHistogramme(0.05f, 0.95f, &resized));
    ASSERT_TRUE(tone_table.Filtre(&resized));
    expect_same_pixels(result, resized);
}

TEST(SequencerChains, SixteenBitChainMatchesTheOperationsOneByOne)
{
    TraceFile trace;
    GreyImage source(19, 13, 16, 12);
    std::vector<unsigned short> entries(65536);
    for (std::size_t i = 0; i < entries.size(); ++i)
        entries[i] = static_cast<unsigned short>((i * 7919u) & 0xFFFF);
    kevra::CLUT_16_Bpp custom(entries.data());
    kevra::CLUT_16_Bpp tone_table;
    tone_table.SetLuminositeConstrateGamma(0.0f, 1.5f, 1.1f);

    CSequenceur seq;
    Params circle = unsharp(1.5f, 0.75f, 0.25f, 100.0f, 50.0f);
    circle.X = 9;
    circle.Y = 5;
    circle.Radius = 4;
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_LUT_LuminositeContrasteGamma, tone(0.0f, 1.5f, 1.1f)));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_EgalisationHistogramme, stretch(0.01f, 0.99f)));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_LUT, palette(&custom, 0)));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_Negatif, params()));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_UnsharpMaskingCircle, circle));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_Filtre, filter(CFiltre::Filtre_GradientDiagonal, 3, 0.0f)));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_Mirroir_Vertical, params()));
    // Skipped at 16 bits without failing the run.
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_LUT_RougeVertBleu, levels(-50, 20, 3)));

    CRect rect = whole(source.image);
    const std::vector<uint8_t> result = run(seq, source.image, 19, 13, rect);

    CDibRoot expected(&source.image, true, true, true);
    kevra::CTraitementImg_16_Bpp op;
    ASSERT_TRUE(op.Mirroir_Vertical(&expected));
    CFiltre gradient(CFiltre::Filtre_GradientDiagonal, 3, 0.0f);
    ASSERT_TRUE(gradient.FiltrerAvecOffsetFacteur(&expected, 32768.5f, 1.0f));
    CPoint centre(9, 5);
    ASSERT_TRUE(op.UnsharpMasking(&expected, centre, 4, 1.5f, 0.75f, 0.25f, 100.0f, 50.0f));
    ASSERT_TRUE(op.Negatif(&expected));
    ASSERT_TRUE(op.EgalisationHistogramme(0.01f, 0.99f, &expected));
    ASSERT_TRUE(custom.Filtre(&expected));
    ASSERT_TRUE(tone_table.Filtre(&expected));
    expect_same_pixels(result, expected);
}

TEST(SequencerChains, ColourChainMatchesTheOperationsOneByOne)
{
    TraceFile trace;
    GreyImage source(21, 14, 24, 13);
    CSequenceur seq;
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_EgalisationHistogramme, stretch(0.02f, 0.98f)));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_LUT_RougeVertBleu, levels(10, -20, 5)));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_LUT_LuminositeContrasteGamma, tone(0.05f, 1.1f, 0.9f)));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_LUT, palette(nullptr, 21)));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_Blanchiment, level(5)));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_Teinte, percent(15)));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_Saturation, percent(130)));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_Negatif, params()));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_Filtre, filter(CFiltre::Filtre_GradientX, 3, 0.0f)));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_FiltreMedian, median(0.2, 5)));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_QuickRotate, rotate(1)));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_Mirroir_Horizontal, params()));

    CRect rect = whole(source.image);
    const std::vector<uint8_t> result = run(seq, source.image, 21, 14, rect);

    CDibRoot expected(&source.image, true, true, true);
    kevra::CTraitementImg_24_Bpp op;
    ASSERT_TRUE(op.Mirroir_Horizontal(&expected));
    ASSERT_TRUE(op.QuickRotate(kevra::CTraitementImgBase::e_Angle180, &expected));
    expected.SetZoneTravail(CRect(0, 0, 20, 13));
    ASSERT_TRUE(op.FiltreMedian(&expected, 0.2, 5));
    CFiltre gradient(CFiltre::Filtre_GradientX, 3, 0.0f);
    ASSERT_TRUE(gradient.Filtrer(&expected));
    ASSERT_TRUE(op.Negatif(&expected));
    ASSERT_TRUE(op.ReglageSaturation(130, &expected));
    ASSERT_TRUE(op.ReglageTeinte(15, &expected));
    ASSERT_TRUE(op.BlanchimentDents(5, &expected));
    ASSERT_TRUE(op.EgalisationHistogramme(0.02f, 0.98f, &expected));
    kevra::CLUT_24_Bpp false_colour(kevra::e_Palette21);
    kevra::CLUT_24_Bpp tone_table;
    tone_table.SetLuminositeConstrateGamma(0.05f, 1.1f, 0.9f);
    kevra::CLUT_24_Bpp level_table;
    level_table.ReglageRougeVertBleu(10, -20, 5);
    ASSERT_TRUE(false_colour.Filtre(&expected));
    ASSERT_TRUE(tone_table.Filtre(&expected));
    ASSERT_TRUE(level_table.Filtre(&expected));
    expect_same_pixels(result, expected);
}

// Black-and-white's own result is ignored at 24 bits; at 8 and 16 bits it
// fails the run like every colour step.
TEST(SequencerChains, BlackAndWhiteOnlyForColour)
{
    TraceFile trace;
    GreyImage colour(9, 7, 24, 21);
    CSequenceur seq;
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_NoirEtBlanc, params()));
    CRect rect(1, 1, 7, 5);
    const std::vector<uint8_t> result = run(seq, colour.image, 9, 7, rect);
    CDibRoot expected(&colour.image, true, true, true);
    expected.SetZoneTravail(CRect(1, 1, 7, 5));
    kevra::CTraitementImg_24_Bpp op;
    op.NoirEtBlanc(&expected);
    expect_same_pixels(result, expected);

    for (int bpp : {8, 16}) {
        GreyImage grey(9, 7, bpp, 22);
        for (auto code : {CSequenceur::e_NoirEtBlanc, CSequenceur::e_Saturation,
                          CSequenceur::e_Teinte, CSequenceur::e_Blanchiment}) {
            CSequenceur one;
            ASSERT_TRUE(one.AddTraitement(code, code == CSequenceur::e_Blanchiment ? level(3)
                                                                                   : percent(3)));
            CRect r(0, 0, 8, 6);
            const std::vector<uint8_t> out = run(one, grey.image, 9, 7, r, false);
            EXPECT_EQ(out, std::vector<uint8_t>(out.size(), 0xA5)) << "output untouched";
        }
    }
}

// The composed table lands after histogram equalization, although the
// look-up steps come before it in the order.
TEST(SequencerChains, LookUpTableIsAppliedAfterEqualization)
{
    TraceFile trace;
    GreyImage source(16, 16, 8, 31);
    CSequenceur seq;
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_LUT_LuminositeContrasteGamma, tone(0.0f, 0.5f, 1.0f)));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_EgalisationHistogramme, stretch(0.1f, 0.9f)));
    CRect rect = whole(source.image);
    const std::vector<uint8_t> result = run(seq, source.image, 16, 16, rect);

    kevra::CTraitementImg_8_Bpp op;
    kevra::CLUT_8_Bpp half;
    half.SetLuminositeConstrateGamma(0.0f, 0.5f, 1.0f);
    CDibRoot later(&source.image, true, true, true);
    ASSERT_TRUE(op.EgalisationHistogramme(0.1f, 0.9f, &later));
    ASSERT_TRUE(half.Filtre(&later));
    expect_same_pixels(result, later);

    CDibRoot earlier(&source.image, true, true, true);
    ASSERT_TRUE(half.Filtre(&earlier));
    ASSERT_TRUE(op.EgalisationHistogramme(0.1f, 0.9f, &earlier));
    EXPECT_NE(pixels(earlier), pixels(later)) << "the two orders must be told apart";
}

// Tables of another depth, palettes and levels at 8 and 16 bits: ignored
// without failing, and nothing is applied.
TEST(SequencerChains, LookUpStepsThatDoNotFitTheDepthAreIgnored)
{
    TraceFile trace;
    FakeTicks ticks;
    kevra::CLUT_16_Bpp wide;
    wide.SetContraste(0.25f);
    kevra::CLUT_24_Bpp colour(kevra::e_Palette12);
    for (int bpp : {8, 16}) {
        GreyImage grey(10, 6, bpp, 41);
        CSequenceur seq;
        if (bpp == 8)
            ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_LUT, palette(&wide, 0)));
        else
            ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_LUT, palette(&colour, 0)));
        ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_LUT_RougeVertBleu, levels(-100, -100, -100)));
        CRect rect(0, 0, 9, 5);
        trace.clear();
        const std::vector<uint8_t> out = run(seq, grey.image, 10, 6, rect);
        EXPECT_EQ(out, pixels(grey.image));
        EXPECT_EQ(trace.text().find("Execution"), std::string::npos) << "no table was applied";

        CSequenceur pal;
        ASSERT_TRUE(pal.AddTraitement(CSequenceur::e_LUT, palette(nullptr, 12)));
        EXPECT_EQ(run(pal, grey.image, 10, 6, rect), pixels(grey.image));
    }
}

// The diagonal gradient is lifted by (N + 1) / 2: a flat zone becomes 128 or
// 32768 (128.5 and 32768.5 truncated).
TEST(SequencerChains, DiagonalGradientIsCentredOnMidGrey)
{
    TraceFile trace;
    for (int bpp : {8, 16, 24}) {
        CDibRoot flat(CSize(7, 6), static_cast<unsigned short>(bpp));
        unsigned char *bits = flat.GetBits();
        std::memset(bits, bpp == 16 ? 0x11 : 0x40, static_cast<std::size_t>(flat.Pitch()) * 6);
        CSequenceur seq;
        ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_Filtre, filter(CFiltre::Filtre_GradientDiagonal, 3, 0.0f)));
        CRect rect(1, 1, 5, 4);
        const std::vector<uint8_t> out = run(seq, flat, 7, 6, rect);
        const int pitch = flat.Pitch();
        for (int r = 0; r < 6; ++r)
            for (int x = 0; x < 7; ++x) {
                const bool inside = x >= 1 && x <= 5 && r >= 6 - 1 - 4 && r <= 6 - 1 - 1;
                const std::size_t at = static_cast<std::size_t>(r) * pitch;
                if (bpp == 16) {
                    const unsigned v = out[at + 2 * x] | (out[at + 2 * x + 1] << 8);
                    EXPECT_EQ(v, inside ? 32768u : 0x1111u) << x << "," << r;
                } else {
                    const int n = bpp / 8;
                    for (int c = 0; c < n; ++c)
                        EXPECT_EQ(out[at + n * x + c], inside ? 128 : 0x40) << x << "," << r;
                }
            }
    }
}

TEST(SequencerChains, TurnsMapTheZone)
{
    TraceFile trace;
    GreyImage image(6, 5, 8, 61);
    const struct {
        int angle;
        long w, h;
        CRect expected;
    } cases[] = {
        {0, 5, 6, CRect(1, 1, 2, 4)}, // (H-1-bottom, left, H-1-top, right)
        {1, 6, 5, CRect(1, 1, 4, 2)}, // (W-1-right, H-1-bottom, W-1-left, H-1-top)
        {2, 5, 6, CRect(2, 1, 3, 4)}, // (top, W-1-right, bottom, W-1-left)
    };
    for (const auto &c : cases) {
        CSequenceur seq;
        ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_QuickRotate, rotate(c.angle)));
        CRect rect(1, 2, 4, 3);
        const std::vector<uint8_t> out = run(seq, image.image, c.w, c.h, rect);
        EXPECT_EQ(rect, c.expected) << c.angle;

        CDibRoot expected(&image.image, true, true, true);
        kevra::CTraitementImg_8_Bpp op;
        ASSERT_TRUE(op.QuickRotate(static_cast<kevra::CTraitementImgBase::e_angle>(c.angle), &expected));
        expect_same_pixels(out, expected);
    }
}

TEST(SequencerChains, WrongOutputSizeFailsAfterAllStepsRan)
{
    TraceFile trace;
    GreyImage image(64, 48, 8, 81);
    CSequenceur seq;
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_QuickRotate, rotate(0)));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_Negatif, params()));
    CRect rect = whole(image.image);
    std::vector<uint8_t> out = run(seq, image.image, 64, 48, rect, false);
    EXPECT_EQ(out, std::vector<uint8_t>(out.size(), 0xA5));
    EXPECT_NE(trace.text().find("Traitement=e_Negatif"), std::string::npos) << "every step ran";
    EXPECT_EQ(rect, CRect(0, 0, 47, 63)) << "the zone keeps the turn";

    CRect again = whole(image.image);
    run(seq, image.image, 48, 64, again, true);
}

TEST(SequencerChains, InvalidSizesAndZonesAreRefused)
{
    TraceFile trace;
    GreyImage image(8, 6, 8, 91);
    CSequenceur seq;
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_Negatif, params()));
    std::vector<uint8_t> out(buffer_size(8, 6, 8), 0x5A);
    const std::vector<uint8_t> untouched = out;
    struct Case {
        long w, h, wo, ho;
        CRect rect;
        unsigned short bpp;
        bool null_input;
    } cases[] = {
        {0, 6, 8, 6, CRect(0, 0, 1, 1), 8, false},   {8, 0, 8, 6, CRect(0, 0, 1, 1), 8, false},
        {8, 6, 0, 6, CRect(0, 0, 1, 1), 8, false},   {8, 6, 8, -1, CRect(0, 0, 1, 1), 8, false},
        {8, 6, 8, 6, CRect(-1, 0, 3, 3), 8, false},  {8, 6, 8, 6, CRect(0, 0, 8, 3), 8, false},
        {8, 6, 8, 6, CRect(0, 3, 7, 3), 8, false},   {8, 6, 8, 6, CRect(0, 0, 7, 6), 8, false},
        {8, 6, 8, 6, CRect(5, 0, 4, 3), 8, false},   {8, 6, 8, 6, CRect(0, 0, 7, 5), 12, false},
        {8, 6, 8, 6, CRect(0, 0, 7, 5), 32, false},  {8, 6, 8, 6, CRect(0, 0, 7, 5), 8, true},
    };
    for (const Case &c : cases) {
        trace.clear();
        CRect rect = c.rect;
        EXPECT_FALSE(seq.FiltrerBuffer(c.w, c.h, c.null_input ? nullptr : image.image.GetBits(), c.wo,
                                       c.ho, out.data(), rect, c.bpp));
        EXPECT_EQ(out, untouched);
        EXPECT_EQ(rect, c.rect);
        const std::vector<std::string> lines = trace.lines();
        ASSERT_EQ(lines.size(), 6u);
        EXPECT_EQ(lines[3], "ERROR : FiltrerBuffer : Les parametres dimensionnels sont invalides!");
        EXPECT_EQ(lines[4], "### Fin de FiltrerBuffer");
    }
}

// The relief kernel is a placeholder: the step always fails the run.
TEST(SequencerChains, PseudoReliefFailsTheRun)
{
    TraceFile trace;
    for (int bpp : {8, 16, 24}) {
        GreyImage image(5, 4, bpp, 101);
        CSequenceur seq;
        ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_Pseudo3D, params()));
        CRect rect(0, 0, 4, 3);
        const std::vector<uint8_t> out = run(seq, image.image, 5, 4, rect, false);
        EXPECT_EQ(out, std::vector<uint8_t>(out.size(), 0xA5));
    }
}

TEST(SequencerChains, FiltrerSwapsTheResultIntoTheImage)
{
    TraceFile trace;
    GreyImage image(9, 8, 24, 121);
    image.image.SetZoneTravail(CRect(1, 1, 6, 5));
    CSequenceur seq;
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_Negatif, params()));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_QuickRotate, rotate(0)));

    CDibRoot expected(&image.image, true, true, true);
    CRect rect = image.image.BoundingRectangle();
    CSequenceur twin;
    ASSERT_TRUE(twin.AddTraitement(CSequenceur::e_Negatif, params()));
    ASSERT_TRUE(twin.AddTraitement(CSequenceur::e_QuickRotate, rotate(0)));
    const std::vector<uint8_t> buffer = run(twin, expected, 8, 9, rect);

    ASSERT_TRUE(seq.Filtrer(&image.image));
    EXPECT_EQ(image.image.Width(), 8);
    EXPECT_EQ(image.image.Height(), 9);
    EXPECT_EQ(image.image.BitCount(), 24);
    EXPECT_EQ(image.image.BoundingRectangle(), CRect(0, 0, 7, 8)) << "a new image's zone";
    expect_same_pixels(buffer, image.image);

    EXPECT_FALSE(seq.Filtrer(nullptr));
    CDibRoot empty;
    EXPECT_FALSE(seq.Filtrer(&empty));
}

// A failed run leaves the image holding the new image as created, with the
// predicted size: the unordered prediction of a resample added before a turn
// is the swapped size, the run yields the resample size, and the run fails.
TEST(SequencerChains, FiltrerLeavesTheNewImageOnFailure)
{
    TraceFile trace;
    GreyImage image(12, 10, 16, 131);
    CSequenceur seq;
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_Resample, resample(6, 4, 1)));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_QuickRotate, rotate(0)));
    long w = 0, h = 0;
    ASSERT_TRUE(seq.DonneTailleFinale(12, 10, w, h));
    EXPECT_EQ(w, 4);
    EXPECT_EQ(h, 6);
    EXPECT_FALSE(seq.Filtrer(&image.image));
    EXPECT_TRUE(image.image.IsOK());
    EXPECT_EQ(image.image.Width(), 4);
    EXPECT_EQ(image.image.Height(), 6);
    EXPECT_EQ(image.image.BitCount(), 16);

    // An unknown angle cannot be added, and an empty list fails before any change.
    CSequenceur none;
    GreyImage other(3, 3, 8, 132);
    EXPECT_FALSE(none.Filtrer(&other.image));
    EXPECT_EQ(other.image.Width(), 3);
}

TEST(SequencerChains, AllocationFailuresFailTheRunCleanly)
{
    TraceFile trace;
    GreyImage image(40, 30, 8, 141);
    CSequenceur seq;
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_Filtre, filter(0, 3, 1.0f)));
    ASSERT_TRUE(seq.AddTraitement(CSequenceur::e_QuickRotate, rotate(0)));
    {
        kevra_test::FailAllocations fail(1000);
        CRect rect = whole(image.image);
        const std::vector<uint8_t> out = run(seq, image.image, 30, 40, rect, false);
        EXPECT_EQ(out, std::vector<uint8_t>(out.size(), 0xA5));
    }
    {
        kevra_test::FailAllocations fail(40 * 30 * 4); // only the float plane
        CRect rect = whole(image.image);
        run(seq, image.image, 30, 40, rect, false);
    }
}
