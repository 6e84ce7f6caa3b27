// Convolution filters on 2048 x 2048 pictures through the image entry
// (conversion to float, filter, clipping, conversion back), at 8, 16 and 24
// bits: Gaussian of size 5 and 15, Laplacian and gradient 3x3 kernels, each
// with the fast (streamed) path on 1 and 2 threads and with the plain path,
// and the bytes each call asks for ("alloc_MB", "alloc_per_image": multiples
// of the image's own bytes). Before any timing the program filters one
// picture of each depth both ways and stops unless the bytes are identical.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "core/fast_path.h"
#include "filters/detail/convolution.h"
#include "kevra/dib.h"
#include "kevra/filtre.h"
#include "kevra/platform.h"

#include "alloc_meter.h"

using kevra::CDib;
using kevra::CFiltre;

namespace {

constexpr int kSize = 2048;

// A smooth picture with noise, the same for every run of a depth.
const std::vector<uint8_t> & picture(int bpp)
{
    static std::vector<uint8_t> pictures[3];
    std::vector<uint8_t> & p = pictures[bpp / 8 - 1];
    if (p.empty()) {
        const std::size_t pitch = static_cast<std::size_t>(((kSize * bpp + 31) & ~31) / 8);
        p.resize(pitch * kSize);
        std::mt19937 rng(static_cast<uint32_t>(bpp));
        for (int r = 0; r < kSize; ++r)
            for (std::size_t i = 0; i < pitch; ++i)
                p[r * pitch + i] = static_cast<uint8_t>((i / 7 + static_cast<std::size_t>(r) / 5 + rng() % 9) & 0xFF);
    }
    return p;
}

std::unique_ptr<CDib> fresh_image(int bpp)
{
    auto dib = std::make_unique<CDib>(kSize, kSize, bpp);
    const std::vector<uint8_t> & p = picture(bpp);
    std::memcpy(dib->GetBits(), p.data(), p.size());
    return dib;
}

std::unique_ptr<CFiltre> make_filter(int which)
{
    switch (which) {
    case 0:
        return std::make_unique<CFiltre>(CFiltre::Filtre_Gaussien, 5, 1.25f);
    case 1:
        return std::make_unique<CFiltre>(CFiltre::Filtre_Gaussien, 15, 3.75f);
    case 2:
        return std::make_unique<CFiltre>(CFiltre::Filtre_Laplacien, 3, 0.0f);
    default:
        return std::make_unique<CFiltre>(CFiltre::Filtre_GradientX, 3, 0.0f);
    }
}

const char * const kNames[] = {"Gaussian5", "Gaussian15", "Laplacian3x3", "GradientX3x3"};

// state.range(0): filter, range(1): bit depth, range(2): 1 = fast path, range(3): threads.
void BM_Filtrer(benchmark::State & state)
{
    const int which = static_cast<int>(state.range(0));
    const int bpp = static_cast<int>(state.range(1));
    kevra::detail::FastPathScope fast(state.range(2) != 0);
    kevra::platform::set_thread_count(static_cast<unsigned>(state.range(3)));
    std::unique_ptr<CFiltre> f = make_filter(which);
    AllocMeter meter;
    for (auto _ : state) {
        state.PauseTiming();
        meter.pause();
        std::unique_ptr<CDib> dib = fresh_image(bpp);
        meter.resume();
        state.ResumeTiming();
        if (!f->FiltrerAvecOffsetFacteur(dib.get(), which >= 2 ? 128.0f : 0.0f, 1.0f))
            state.SkipWithError("Filtrer failed");
        benchmark::DoNotOptimize(dib->GetBits());
    }
    kevra::platform::set_thread_count(1);
    meter.report(state, static_cast<double>(picture(bpp).size()));
    state.SetItemsProcessed(state.iterations() * int64_t(kSize) * kSize);
    state.SetLabel(std::string(kNames[which]) + (state.range(2) ? " fast" : " plain") + " " +
                   std::to_string(bpp) + " bits, " + std::to_string(state.range(3)) + " thread(s)");
}

bool fast_matches_plain()
{
    for (int which = 0; which < 4; ++which)
        for (int bpp : {8, 16, 24}) {
            std::unique_ptr<CFiltre> f = make_filter(which);
            std::unique_ptr<CDib> a = fresh_image(bpp), b = fresh_image(bpp);
            a->SetZoneTravail(kevra::CRect(0, 3, kSize - 2, kSize - 1));
            b->SetZoneTravail(kevra::CRect(0, 3, kSize - 2, kSize - 1));
            kevra::detail::set_fast_paths_enabled(false);
            const bool ok_a = f->FiltrerAvecOffsetFacteur(a.get(), 128.0f, 1.0f);
            kevra::detail::set_fast_paths_enabled(true);
            const bool ok_b = f->FiltrerAvecOffsetFacteur(b.get(), 128.0f, 1.0f);
            if (!ok_a || !ok_b || std::memcmp(a->GetBits(), b->GetBits(), a->SizeImage()) != 0) {
                std::fprintf(stderr, "%s at %d bits: the fast path differs from the plain path\n", kNames[which], bpp);
                return false;
            }
        }
    return true;
}

} // namespace

// The fast path on 1 and 2 threads, the plain path (one thread only) beside it.
void filter_args(benchmark::internal::Benchmark * b)
{
    for (int which = 0; which < 4; ++which)
        for (int bpp : {8, 16, 24})
            for (auto fast_threads : {std::pair<int, int>{1, 1}, {1, 2}, {0, 1}})
                b->Args({which, bpp, fast_threads.first, fast_threads.second});
}

BENCHMARK(BM_Filtrer)
    ->Apply(filter_args)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

int main(int argc, char ** argv)
{
    if (!fast_matches_plain())
        return EXIT_FAILURE;
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return EXIT_FAILURE;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return EXIT_SUCCESS;
}
