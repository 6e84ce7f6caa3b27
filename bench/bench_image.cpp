// BMP encode/decode and float-plane conversion on 2048 x 2048 images.
//   build/bench/kevra_bench_image --benchmark_min_time=0.2
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <vector>

#include "image/byte_source.h"
#include "image/ximage.h"
#include "kevra/dib.h"
#include "kevra/traitement_base.h"

using namespace kevra;

namespace {

constexpr int kSide = 2048;

void fill(CDibRoot & d)
{
    unsigned char * bits = d.GetBits();
    for (unsigned long i = 0; i < d.SizeImage(); ++i)
        bits[i] = static_cast<unsigned char>(i * 2654435761u >> 24);
}

class Planes : public CTraitementImgBase {
public:
    using CTraitementImgBase::CTraitementImgBase;
    using CTraitementImgBase::ConvertToBits;
    using CTraitementImgBase::ConvertToFloat;
};

// Exposes the store so that decoding can run from memory, without the disk.
class Probe : public CDibRoot {
public:
    using CDibRoot::CDibRoot;
    CxImage * store() { return Donne_pCxImage(); }
};

std::vector<uint8_t> encoded(int bpp)
{
    Probe d(CSize(kSide, kSide), static_cast<unsigned short>(bpp));
    fill(d);
    std::FILE * f = std::tmpfile();
    d.store()->encode(f, 0);
    std::vector<uint8_t> bytes(static_cast<std::size_t>(std::ftell(f)));
    std::rewind(f);
    if (std::fread(bytes.data(), 1, bytes.size(), f) != bytes.size())
        bytes.clear();
    std::fclose(f);
    return bytes;
}

void BM_Encode(benchmark::State & state)
{
    Probe d(CSize(kSide, kSide), static_cast<unsigned short>(state.range(0)));
    fill(d);
    std::FILE * f = std::tmpfile();
    for (auto _ : state) {
        std::rewind(f);
        benchmark::DoNotOptimize(d.store()->encode(f, 0));
    }
    std::fclose(f);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * d.SizeImage());
}

void BM_Decode(benchmark::State & state)
{
    const std::vector<uint8_t> bytes = encoded(static_cast<int>(state.range(0)));
    Probe d(CSize(1, 1), 8);
    for (auto _ : state) {
        detail::MemorySource src(bytes.data(), bytes.size());
        if (!d.store()->decode(src, 0))
            state.SkipWithError("decode failed");
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes.size()));
}

void BM_FloatRoundTrip(benchmark::State & state)
{
    const int bpp = static_cast<int>(state.range(0));
    CDibRoot d(CSize(kSide, kSide), static_cast<unsigned short>(bpp));
    fill(d);
    std::vector<float> plane(static_cast<std::size_t>(kSide) * kSide * (bpp == 24 ? 3 : 1));
    Planes p(static_cast<unsigned char>(bpp));
    const CRect all(0, 0, kSide - 1, kSide - 1);
    for (auto _ : state) {
        p.ConvertToFloat(kSide, kSide, d.GetBits(), plane.data(), all);
        p.ConvertToBits(kSide, kSide, d.GetBits(), plane.data(), all);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kSide * kSide);
}

} // namespace

BENCHMARK(BM_Encode)->Arg(8)->Arg(16)->Arg(24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Decode)->Arg(8)->Arg(16)->Arg(24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FloatRoundTrip)->Arg(8)->Arg(16)->Arg(24)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
