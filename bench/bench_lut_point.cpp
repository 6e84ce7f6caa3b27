// Look-up tables and the point, geometric and histogram operations of the per-depth classes,
// on a 2048 x 2048 picture of each depth. In-place operations run repeatedly on the same buffer,
// whose content does not change their cost. The quarter turn runs with its tiled walk and with
// the plain walk; before any timing the program checks that both give the same bytes and stops
// if they do not.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

#include "core/fast_path.h"
#include "kevra/lut.h"
#include "kevra/traitement.h"
#include "processing/detail/point_geometry.h"

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
    kevra::detail::set_fast_paths_enabled(state.range(0) != 0);
    for (auto _ : state)
        benchmark::DoNotOptimize(p.QuickRotate(CTraitementImgBase::e_Angle90, kSize, kSize, bits.data(), rc,
                                               kSize, kSize, out.data()));
    kevra::detail::set_fast_paths_enabled(true);
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

// Tiled and plain quarter turns must agree before anything is timed.
template <class Proc, int Bpp>
bool turns_agree()
{
    auto bits = picture(Bpp);
    std::vector<uint8_t> tiled(bits.size()), plain(bits.size());
    Proc p;
    CRect rc = whole();
    for (int angle = 0; angle < 3; ++angle) {
        const auto a = static_cast<CTraitementImgBase::e_angle>(angle);
        kevra::detail::set_fast_paths_enabled(true);
        p.QuickRotate(a, kSize, kSize, bits.data(), rc, kSize, kSize, tiled.data());
        kevra::detail::set_fast_paths_enabled(false);
        p.QuickRotate(a, kSize, kSize, bits.data(), rc, kSize, kSize, plain.data());
        kevra::detail::set_fast_paths_enabled(true);
        if (tiled != plain) {
            std::fprintf(stderr, "quarter turn %d at %d bits: tiled and plain walks differ\n", angle, Bpp);
            return false;
        }
    }
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    if (!turns_agree<CTraitementImg_8_Bpp, 8>() || !turns_agree<CTraitementImg_16_Bpp, 16>() ||
        !turns_agree<CTraitementImg_24_Bpp, 24>())
        return EXIT_FAILURE;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return EXIT_SUCCESS;
}

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
BENCHMARK_TEMPLATE(BM_QuarterTurn, CTraitementImg_8_Bpp, 8)->ArgName("tiled")->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_QuarterTurn, CTraitementImg_16_Bpp, 16)->ArgName("tiled")->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_QuarterTurn, CTraitementImg_24_Bpp, 24)->ArgName("tiled")->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Histogram8)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Histogram16)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Histograms24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_HistogramLuminance24)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Stretch, CTraitementImg_8_Bpp, 8)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Stretch, CTraitementImg_16_Bpp, 16)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Stretch, CTraitementImg_24_Bpp, 24)->Unit(benchmark::kMillisecond);

