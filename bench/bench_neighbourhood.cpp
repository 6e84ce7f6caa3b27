// Neighbourhood operations on 2048 x 2048 images at each depth: selective median (radius 1
// and 3), unsharp masking (radius 2 and 8), resampling to half and to double size; the fast
// paths on 1 and 2 threads beside the plain ones, with the bytes each call asks for.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <utility>
#include <vector>

#include "core/fast_path.h"
#include "kevra/platform.h"
#include "kevra/traitement.h"
#include "kevra/types.h"
#include "processing/detail/median.h"

#include "alloc_meter.h"

namespace {

constexpr long kSide = 2048;

long pitch_of(long width, int bpp) { return ((width * bpp + 31) & ~31L) / 8; }

// A smooth gradient with noise, so the median's test goes both ways and the unsharp detail
// meets both thresholds.
std::vector<uint8_t> make_image(long w, long h, int bpp)
{
    std::vector<uint8_t> bytes(static_cast<std::size_t>(pitch_of(w, bpp) * h));
    std::mt19937 rng(7);
    const long pitch = pitch_of(w, bpp);
    for (long r = 0; r < h; ++r)
        for (long x = 0; x < w; ++x) {
            const int noise = static_cast<int>(rng() % 41) - 20;
            const int base = static_cast<int>((x + r) * 200 / (w + h)) + 20;
            const int v = std::max(0, std::min(255, base + noise));
            uint8_t *p = bytes.data() + r * pitch + x * bpp / 8;
            if (bpp == 8)
                p[0] = static_cast<uint8_t>(v);
            else if (bpp == 16)
                *reinterpret_cast<uint16_t *>(p) = static_cast<uint16_t>(v * 257);
            else
            {
                p[0] = static_cast<uint8_t>(v);
                p[1] = static_cast<uint8_t>(255 - v);
                p[2] = static_cast<uint8_t>(v / 2 + 60);
            }
        }
    return bytes;
}

template <class T>
struct Depth;
template <>
struct Depth<kevra::CTraitementImg_8_Bpp> {
    static constexpr int bpp = 8;
};
template <>
struct Depth<kevra::CTraitementImg_16_Bpp> {
    static constexpr int bpp = 16;
};
template <>
struct Depth<kevra::CTraitementImg_24_Bpp> {
    static constexpr int bpp = 24;
};

// range(0): radius; range(1): 1 = fast interior, 0 = plain. The two must give the same bytes
// before anything is timed.
template <class T>
void BM_Median(benchmark::State &state)
{
    const auto radius = static_cast<unsigned short>(state.range(0));
    const bool fast = state.range(1) != 0;
    const std::vector<uint8_t> original = make_image(kSide, kSide, Depth<T>::bpp);
    std::vector<uint8_t> work = original;
    T t;
    kevra::CRect rc(0, 0, kSide - 1, kSide - 1);
    {
        std::vector<uint8_t> plain = original;
        kevra::detail::set_fast_paths_enabled(false);
        t.FiltreMedian(kSide, kSide, plain.data(), rc, 0.1, radius);
        kevra::detail::set_fast_paths_enabled(true);
        t.FiltreMedian(kSide, kSide, work.data(), rc, 0.1, radius);
        if (plain != work) {
            state.SkipWithError("fast and plain median differ");
            return;
        }
    }
    kevra::detail::set_fast_paths_enabled(fast);
    for (auto _ : state) {
        state.PauseTiming();
        work = original;
        state.ResumeTiming();
        benchmark::DoNotOptimize(t.FiltreMedian(kSide, kSide, work.data(), rc, 0.1, radius));
    }
    kevra::detail::set_fast_paths_enabled(true);
    state.SetItemsProcessed(state.iterations() * kSide * kSide);
}

// range(0): rayon; range(1): 1 = fast (streamed), 0 = plain; range(2): threads. The fast and
// plain results must be equal before anything is timed.
template <class T>
void BM_Unsharp(benchmark::State &state)
{
    const float rayon = static_cast<float>(state.range(0));
    const std::vector<uint8_t> original = make_image(kSide, kSide, Depth<T>::bpp);
    std::vector<uint8_t> work = original;
    T t;
    kevra::CRect rc(0, 0, kSide - 1, kSide - 1);
    {
        std::vector<uint8_t> plain = original;
        kevra::detail::set_fast_paths_enabled(false);
        t.UnsharpMasking(kSide, kSide, plain.data(), rc, rayon, 1.5f, 1.0f, 2.0f, 2.0f);
        kevra::detail::set_fast_paths_enabled(true);
        t.UnsharpMasking(kSide, kSide, work.data(), rc, rayon, 1.5f, 1.0f, 2.0f, 2.0f);
        if (plain != work) {
            state.SkipWithError("fast and plain unsharp masking differ");
            return;
        }
    }
    kevra::detail::FastPathScope fast(state.range(1) != 0);
    kevra::platform::set_thread_count(static_cast<unsigned>(state.range(2)));
    AllocMeter meter;
    for (auto _ : state) {
        state.PauseTiming();
        work = original;
        state.ResumeTiming();
        benchmark::DoNotOptimize(
            t.UnsharpMasking(kSide, kSide, work.data(), rc, rayon, 1.5f, 1.0f, 2.0f, 2.0f));
    }
    kevra::platform::set_thread_count(1);
    meter.report(state, static_cast<double>(original.size()));
    state.SetItemsProcessed(state.iterations() * kSide * kSide);
}

// range(0): 0 = halving (windowed sinc, mode 1), 1 = doubling (bilinear); range(1): fast;
// range(2): threads.
template <class T>
void BM_Resample(benchmark::State &state)
{
    const bool doubling = state.range(0) == 1;
    const long out = doubling ? kSide * 2 : kSide / 2;
    const std::vector<uint8_t> source = make_image(kSide, kSide, Depth<T>::bpp);
    std::vector<uint8_t> destination(static_cast<std::size_t>(pitch_of(out, Depth<T>::bpp) * out));
    T t;
    {
        std::vector<uint8_t> plain = destination;
        kevra::detail::set_fast_paths_enabled(false);
        t.Resample(kSide, kSide, const_cast<uint8_t *>(source.data()), out, out, plain.data(), 1);
        kevra::detail::set_fast_paths_enabled(true);
        t.Resample(kSide, kSide, const_cast<uint8_t *>(source.data()), out, out, destination.data(), 1);
        if (plain != destination) {
            state.SkipWithError("fast and plain resampling differ");
            return;
        }
    }
    kevra::detail::FastPathScope fast(state.range(1) != 0);
    kevra::platform::set_thread_count(static_cast<unsigned>(state.range(2)));
    AllocMeter meter;
    for (auto _ : state)
        benchmark::DoNotOptimize(t.Resample(kSide, kSide, const_cast<uint8_t *>(source.data()), out,
                                            out, destination.data(), 1));
    kevra::platform::set_thread_count(1);
    meter.report(state, static_cast<double>(source.size()));
    state.SetItemsProcessed(state.iterations() * out * out);
}

// Fast on 1 and 2 threads, plain on one.
void unsharp_args(benchmark::internal::Benchmark *b)
{
    for (int rayon : {2, 8})
        for (auto ft : {std::pair<int, int>{1, 1}, {1, 2}, {0, 1}})
            b->Args({rayon, ft.first, ft.second});
}
void resample_args(benchmark::internal::Benchmark *b)
{
    for (int which : {0, 1})
        for (auto ft : {std::pair<int, int>{1, 1}, {1, 2}, {0, 1}})
            b->Args({which, ft.first, ft.second});
}

using kevra::CTraitementImg_16_Bpp;
using kevra::CTraitementImg_24_Bpp;
using kevra::CTraitementImg_8_Bpp;

BENCHMARK_TEMPLATE(BM_Median, CTraitementImg_8_Bpp)
    ->ArgsProduct({{1, 3}, {0, 1}})
    ->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Median, CTraitementImg_16_Bpp)
    ->ArgsProduct({{1, 3}, {0, 1}})
    ->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Median, CTraitementImg_24_Bpp)
    ->ArgsProduct({{1, 3}, {0, 1}})
    ->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Unsharp, CTraitementImg_8_Bpp)->Apply(unsharp_args)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Unsharp, CTraitementImg_16_Bpp)->Apply(unsharp_args)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Unsharp, CTraitementImg_24_Bpp)->Apply(unsharp_args)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Resample, CTraitementImg_8_Bpp)->Apply(resample_args)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Resample, CTraitementImg_16_Bpp)->Apply(resample_args)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Resample, CTraitementImg_24_Bpp)->Apply(resample_args)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
