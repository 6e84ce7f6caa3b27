// Look-up tables and the point, geometric and histogram operations of the per-depth classes,
// on a 2048 x 2048 picture of each depth. The operations are integer and table-driven, with a
// single (plain) path each, so there is nothing to compare before timing; in-place operations
// run repeatedly on the same buffer, whose content does not change their cost.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#include "kevra/lut.h"
#include "kevra/traitement.h"

using namespace kevra;

namespace {

constexpr long kSize = 2048;

std::vector<uint8_t> picture(int bpp)
{
    const std::size_t pitch = static_cast<std::size_t>(((kSize * bpp + 31) & ~31) / 8);
    std::vector<uint8_t> bytes(pitch * kSize);
    std::mt19937 rng(static_cast<uint32_t>(bpp));
    for (auto &b : bytes)
        b = static_cast<uint8_t>(rng());
    return bytes;
}

CRect whole() { return CRect(0, 0, kSize - 1, kSize - 1); }

void set_bytes(benchmark::State &state, int bpp)
{
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kSize * kSize * (bpp / 8));
}

// ---- tables -------------------------------------------------------------------------------------

void BM_TableApply8(benchmark::State &state)
{
    auto bits = picture(8);
    CLUT_8_Bpp lut;
    lut.SetLuminositeConstrateGamma(0.1f, 1.2f, 0.9f);
    CRect rc = whole();
    for (auto _ : state)
        benchmark::DoNotOptimize(lut.FiltrerBuffer(kSize, kSize, bits.data(), rc));
    set_bytes(state, 8);
}

void BM_TableApply16(benchmark::State &state)
{
    auto bits = picture(16);
    CLUT_16_Bpp lut;
    lut.SetLuminositeConstrateGamma(0.1f, 1.2f, 0.9f);
    CRect rc = whole();
    for (auto _ : state)
        benchmark::DoNotOptimize(lut.FiltrerBuffer(kSize, kSize, bits.data(), rc));
    set_bytes(state, 16);
}

void BM_TableApply24(benchmark::State &state)
{
    auto bits = picture(24);
    CLUT_24_Bpp lut(e_Palette22);
    CRect rc = whole();
    for (auto _ : state)
        benchmark::DoNotOptimize(lut.FiltrerBuffer(kSize, kSize, bits.data(), rc));
    set_bytes(state, 24);
}

void BM_TableBuild16(benchmark::State &state)
{
    CLUT_16_Bpp lut;
    for (auto _ : state)
        benchmark::DoNotOptimize(lut.SetLuminositeConstrateGamma(0.1f, 1.2f, 0.9f));
}

// ---- per-depth operations, one template for the three classes --------------------------------------

template <class Proc, int Bpp>
void BM_Negatif(benchmark::State &state)
{
    auto bits = picture(Bpp);
    Proc p;
    CRect rc = whole();
    for (auto _ : state)
        benchmark::DoNotOptimize(p.Negatif(kSize, kSize, bits.data(), rc));
    set_bytes(state, Bpp);
}

template <class Proc, int Bpp>
void BM_MirroirHorizontal(benchmark::State &state)
{
    auto bits = picture(Bpp);
    Proc p;
    CRect rc = whole();
    for (auto _ : state)
        benchmark::DoNotOptimize(p.Mirroir_Horizontal(kSize, kSize, bits.data(), rc));
    set_bytes(state, Bpp);
}

template <class Proc, int Bpp>
void BM_MirroirVertical(benchmark::State &state)
{
    auto bits = picture(Bpp);
    Proc p;
    CRect rc = whole();
    for (auto _ : state)
        benchmark::DoNotOptimize(p.Mirroir_Vertical(kSize, kSize, bits.data(), rc));
    set_bytes(state, Bpp);
}

template <class Proc, int Bpp>
void BM_QuarterTurn(benchmark::State &state)
{
    auto bits = picture(Bpp);
    std::vector<uint8_t> out(bits.size());
    Proc p;
    CRect rc = whole();
    for (auto _ : state)
        benchmark::DoNotOptimize(p.QuickRotate(CTraitementImgBase::e_Angle90, kSize, kSize, bits.data(), rc,
                                               kSize, kSize, out.data()));
    set_bytes(state, Bpp);
}

template <class Proc, int Bpp>
void BM_Stretch(benchmark::State &state)
{
    auto bits = picture(Bpp);
    Proc p;
    CRect rc = whole();
    for (auto _ : state)
        benchmark::DoNotOptimize(p.EgalisationHistogramme(0.01f, 0.99f, kSize, kSize, bits.data(), rc));
    set_bytes(state, Bpp);
}

void BM_Histogram8(benchmark::State &state)
{
    auto bits = picture(8);
    CTraitementImg_8_Bpp p;
    std::vector<long> h(256);
    CRect rc = whole();
    for (auto _ : state)
        benchmark::DoNotOptimize(p.Donne_Histogramme(h.data(), kSize, kSize, bits.data(), rc));
    set_bytes(state, 8);
}

void BM_Histogram16(benchmark::State &state)
{
    auto bits = picture(16);
    CTraitementImg_16_Bpp p;
    std::vector<long> h(65536);
    CRect rc = whole();
    for (auto _ : state)
        benchmark::DoNotOptimize(p.Donne_Histogramme(h.data(), kSize, kSize, bits.data(), rc));
    set_bytes(state, 16);
}

void BM_Histograms24(benchmark::State &state)
{
    auto bits = picture(24);
    CTraitementImg_24_Bpp p;
    std::vector<long> r(256), g(256), b(256);
    CRect rc = whole();
    for (auto _ : state)
        benchmark::DoNotOptimize(p.Donne_Histogrammes(r.data(), g.data(), b.data(), kSize, kSize, bits.data(), rc));
    set_bytes(state, 24);
}

void BM_HistogramLuminance24(benchmark::State &state)
{
    auto bits = picture(24);
    CTraitementImg_24_Bpp p;
    std::vector<long> h(256);
    CRect rc = whole();
    for (auto _ : state)
        benchmark::DoNotOptimize(p.Donne_HistogrammeLuminance(h.data(), kSize, kSize, bits.data(), rc));
    set_bytes(state, 24);
}

} // namespace

BENCHMARK(BM_TableApply8)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TableApply16)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TableApply24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TableBuild16)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Negatif, CTraitementImg_8_Bpp, 8)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Negatif, CTraitementImg_16_Bpp, 16)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Negatif, CTraitementImg_24_Bpp, 24)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_MirroirHorizontal, CTraitementImg_8_Bpp, 8)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_MirroirHorizontal, CTraitementImg_16_Bpp, 16)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_MirroirHorizontal, CTraitementImg_24_Bpp, 24)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_MirroirVertical, CTraitementImg_8_Bpp, 8)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_MirroirVertical, CTraitementImg_16_Bpp, 16)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_MirroirVertical, CTraitementImg_24_Bpp, 24)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_QuarterTurn, CTraitementImg_8_Bpp, 8)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_QuarterTurn, CTraitementImg_16_Bpp, 16)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_QuarterTurn, CTraitementImg_24_Bpp, 24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Histogram8)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Histogram16)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Histograms24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_HistogramLuminance24)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Stretch, CTraitementImg_8_Bpp, 8)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Stretch, CTraitementImg_16_Bpp, 16)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Stretch, CTraitementImg_24_Bpp, 24)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
