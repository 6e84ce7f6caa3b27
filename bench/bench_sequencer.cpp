// Whole chains through CSequenceur::Filtrer on 2048 x 2048 pictures:
//  - a typical dental chain on a 16-bit radiograph: median, unsharp masking,
//    brightness/contrast/gamma, histogram stretch;
//  - a colour chain on a 24-bit photograph: saturation, hue, whitening,
//    red/green/blue levels, brightness/contrast/gamma.
// The trace file is left alone (no "./Sequenceur.txt" is made here). Each
// iteration starts from a fresh copy of the picture (the copy is not timed).
// BM_DentalChain16VersusSteps times the dental chain both through the sequencer
// and as the same operations called one by one, checks that both give the same
// bytes, and reports the ratio (the sequencer should cost at most 1.1 times the
// steps alone).
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <random>

#include "kevra/dib.h"
#include "kevra/lut.h"
#include "kevra/sequenceur.h"
#include "kevra/traitement.h"

using kevra::CDibRoot;
using kevra::CRect;
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

// The dental chain's operations called one by one, as the sequencer runs them: the look-up
// table is applied after the other steps.
void dental_steps(CDibRoot &image)
{
    kevra::CTraitementImg_16_Bpp proc;
    CRect rc = image.BoundingRectangle();
    const long w = image.Width(), h = image.Height();
    void *bits = image.GetBits();
    proc.FiltreMedian(w, h, bits, rc, 0.2, 3);
    proc.UnsharpMasking(w, h, bits, rc, 3.0f, 1.0f, 0.5f, 200.0f, 200.0f);
    proc.EgalisationHistogramme(0.01f, 0.99f, w, h, bits, rc);
    kevra::CLUT_16_Bpp lut;
    lut.SetLuminositeConstrateGamma(0.02f, 1.2f, 0.9f);
    lut.FiltrerBuffer(w, h, bits, rc);
    image.ReleaseBits();
}

void BM_DentalChain16VersusSteps(benchmark::State &state)
{
    using clock = std::chrono::steady_clock;
    CSequenceur seq;
    dental_chain(seq);
    CDibRoot &source = const_cast<CDibRoot &>(picture(16));
    double chain_s = 0.0, steps_s = 0.0;
    for (auto _ : state) {
        CDibRoot chained(&source, true, false, false), stepped(&source, true, false, false);
        const auto t0 = clock::now();
        const bool ok = seq.Filtrer(&chained);
        const auto t1 = clock::now();
        dental_steps(stepped);
        const auto t2 = clock::now();
        chain_s += std::chrono::duration<double>(t1 - t0).count();
        steps_s += std::chrono::duration<double>(t2 - t1).count();
        state.SetIterationTime(std::chrono::duration<double>(t1 - t0).count());
        const std::size_t bytes = static_cast<std::size_t>(chained.Pitch()) * kSize;
        if (!ok || std::memcmp(chained.GetBits(), stepped.GetBits(), bytes) != 0) {
            state.SkipWithError("the chain and its steps differ");
            break;
        }
    }
    const double n = static_cast<double>(state.iterations());
    state.counters["chain_ms"] = chain_s / n * 1e3;
    state.counters["steps_ms"] = steps_s / n * 1e3;
    state.counters["chain_over_steps"] = steps_s > 0.0 ? chain_s / steps_s : 0.0;
}
void BM_ColourChain24(benchmark::State &state) { run(state, 24, colour_chain); }

} // namespace

BENCHMARK(BM_DentalChain16)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DentalChain16VersusSteps)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ColourChain24)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
