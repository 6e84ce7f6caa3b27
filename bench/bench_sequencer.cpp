// Whole chains through CSequenceur::Filtrer on 2048 x 2048 pictures:
//  - a typical dental chain on a 16-bit radiograph: median, unsharp masking,
//    brightness/contrast/gamma, histogram stretch;
//  - a colour chain on a 24-bit photograph: saturation, hue, whitening,
//    red/green/blue levels, brightness/contrast/gamma.
// The trace file is left alone (no "./Sequenceur.txt" is made here). Each
// iteration starts from a fresh copy of the picture (the copy is not timed).
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <random>

#include "kevra/dib.h"
#include "kevra/sequenceur.h"

using kevra::CDibRoot;
using kevra::CSequenceur;
using kevra::CSize;

namespace {

constexpr int kSize = 2048;

// Smooth content with a little noise: gradients like an X-ray or a photograph.
void fill(CDibRoot &image)
{
    std::mt19937 rng(2048);
    unsigned char *bits = image.GetBits();
    const int pitch = image.Pitch();
    for (int r = 0; r < kSize; ++r) {
        unsigned char *row = bits + static_cast<std::size_t>(r) * pitch;
        for (int x = 0; x < kSize; ++x) {
            const int noise = static_cast<int>(rng() % 9);
            if (image.BitCount() == 16) {
                const unsigned v = static_cast<unsigned>((x * 11 + r * 5) % 52000 + 4000 + noise * 40);
                row[2 * x] = static_cast<unsigned char>(v);
                row[2 * x + 1] = static_cast<unsigned char>(v >> 8);
            } else {
                row[3 * x] = static_cast<unsigned char>((x / 8 + noise) & 0xFF);
                row[3 * x + 1] = static_cast<unsigned char>((r / 8 + noise) & 0xFF);
                row[3 * x + 2] = static_cast<unsigned char>(((x + r) / 16 + 40) & 0xFF);
            }
        }
    }
    image.ReleaseBits();
}

const CDibRoot &picture(unsigned short bpp)
{
    static CDibRoot grey(CSize(kSize, kSize), 16);
    static CDibRoot colour(CSize(kSize, kSize), 24);
    static const bool ready = [] {
        fill(grey);
        fill(colour);
        return true;
    }();
    (void)ready;
    return bpp == 16 ? grey : colour;
}

void dental_chain(CSequenceur &seq)
{
    CSequenceur::Params_Struct p{};
    p.Ecart = 0.2;
    p.TailleFiltre = 3;
    seq.AddTraitement(CSequenceur::e_FiltreMedian, p);
    p = CSequenceur::Params_Struct{};
    p.rayon = 3.0f;
    p.gainP = 1.0f;
    p.gainN = 0.5f;
    p.SeuilP = 200.0f;
    p.SeuilN = 200.0f;
    seq.AddTraitement(CSequenceur::e_UnsharpMasking, p);
    p = CSequenceur::Params_Struct{};
    p.luminosite = 0.02f;
    p.contraste = 1.2f;
    p.gamma = 0.9f;
    seq.AddTraitement(CSequenceur::e_LUT_LuminositeContrasteGamma, p);
    p = CSequenceur::Params_Struct{};
    p.min = 0.01f;
    p.max = 0.99f;
    seq.AddTraitement(CSequenceur::e_EgalisationHistogramme, p);
}

void colour_chain(CSequenceur &seq)
{
    CSequenceur::Params_Struct p{};
    p.pourcentage = 120;
    seq.AddTraitement(CSequenceur::e_Saturation, p);
    p.pourcentage = 10;
    seq.AddTraitement(CSequenceur::e_Teinte, p);
    p = CSequenceur::Params_Struct{};
    p.niveau = 8;
    seq.AddTraitement(CSequenceur::e_Blanchiment, p);
    p = CSequenceur::Params_Struct{};
    p.rouge = 5;
    p.vert = -5;
    p.bleu = 10;
    seq.AddTraitement(CSequenceur::e_LUT_RougeVertBleu, p);
    p = CSequenceur::Params_Struct{};
    p.luminosite = 0.0f;
    p.contraste = 1.1f;
    p.gamma = 1.0f;
    seq.AddTraitement(CSequenceur::e_LUT_LuminositeContrasteGamma, p);
}

void run(benchmark::State &state, unsigned short bpp, void (*chain)(CSequenceur &))
{
    CSequenceur seq;
    chain(seq);
    CDibRoot &source = const_cast<CDibRoot &>(picture(bpp));
    for (auto _ : state) {
        state.PauseTiming();
        CDibRoot image(&source, true, false, false);
        state.ResumeTiming();
        if (!seq.Filtrer(&image)) {
            state.SkipWithError("the chain failed");
            break;
        }
        benchmark::DoNotOptimize(image.GetBits());
    }
    state.SetItemsProcessed(state.iterations() * kSize * kSize);
}

void BM_DentalChain16(benchmark::State &state) { run(state, 16, dental_chain); }
void BM_ColourChain24(benchmark::State &state) { run(state, 24, colour_chain); }

} // namespace

BENCHMARK(BM_DentalChain16)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ColourChain24)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
