// Colour adjustments of the 24-bit class on a 2048 x 2048 picture.
//
// Two pictures: "smooth" (gradients with a little noise, like a photograph: colours repeat, the
// hue/lightness memo pays) and "noise" (every byte random: the memo's worst case). The hue and
// lightness gains run with the memo on and off; before any timing, the program checks that
// both give the same bytes and stops if they do not.
#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "core/fast_path.h"
#include "kevra/traitement.h"
#include "processing/detail/colour_walk.h"

using kevra::CRect;
using kevra::CTraitementImg_24_Bpp;

namespace {

constexpr long kSize = 2048;
constexpr size_t kPitch = static_cast<size_t>(((kSize * 24 + 31) & ~31) / 8);

const std::vector<uint8_t> &picture(bool smooth)
{
    static const std::array<std::vector<uint8_t>, 2> pictures = [] {
        std::vector<uint8_t> noise(kPitch * kSize), grad(kPitch * kSize);
        std::mt19937 rng(2048);
        for (auto &b : noise)
            b = static_cast<uint8_t>(rng());
        for (long r = 0; r < kSize; ++r)
            for (long x = 0; x < kSize; ++x) {
                uint8_t *p = grad.data() + r * kPitch + x * 3;
                const int n = static_cast<int>(rng() % 5);
                p[0] = static_cast<uint8_t>((x / 8 + n) & 0xFF);
                p[1] = static_cast<uint8_t>((r / 8 + n) & 0xFF);
                p[2] = static_cast<uint8_t>(((x + r) / 16 + 40) & 0xFF);
            }
        return std::array<std::vector<uint8_t>, 2>{noise, grad};
    }();
    return pictures[smooth ? 1 : 0];
}

using Op = bool (*)(CTraitementImg_24_Bpp &, std::vector<uint8_t> &, CRect &);

// Each iteration works on a fresh copy of the picture (the copy is not timed).
void run(benchmark::State &state, Op op, bool smooth, bool memo)
{
    kevra::detail::set_fast_paths_enabled(memo);
    CTraitementImg_24_Bpp t;
    CRect rect(0, 0, kSize - 1, kSize - 1);
    std::vector<uint8_t> work;
    for (auto _ : state) {
        state.PauseTiming();
        work = picture(smooth);
        state.ResumeTiming();
        benchmark::DoNotOptimize(op(t, work, rect));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kSize * kSize);
    kevra::detail::set_fast_paths_enabled(true);
}

bool saturation(CTraitementImg_24_Bpp &t, std::vector<uint8_t> &b, CRect &rc)
{
    return t.ReglageSaturation(150, kSize, kSize, b.data(), rc);
}
bool teinte(CTraitementImg_24_Bpp &t, std::vector<uint8_t> &b, CRect &rc)
{
    return t.ReglageTeinte(120, kSize, kSize, b.data(), rc);
}
bool luminance(CTraitementImg_24_Bpp &t, std::vector<uint8_t> &b, CRect &rc)
{
    return t.ReglageLuminance(120, kSize, kSize, b.data(), rc);
}
bool blanchiment(CTraitementImg_24_Bpp &t, std::vector<uint8_t> &b, CRect &rc)
{
    return t.BlanchimentDents(130, kSize, kSize, b.data(), rc);
}
bool rouge(CTraitementImg_24_Bpp &t, std::vector<uint8_t> &b, CRect &rc)
{
    return t.ReglageRouge(20, kSize, kSize, b.data(), rc);
}
bool vert(CTraitementImg_24_Bpp &t, std::vector<uint8_t> &b, CRect &rc)
{
    return t.ReglageVert(-20, kSize, kSize, b.data(), rc);
}
bool bleu(CTraitementImg_24_Bpp &t, std::vector<uint8_t> &b, CRect &rc)
{
    return t.ReglageBleu(35, kSize, kSize, b.data(), rc);
}
bool rouge_vert_bleu(CTraitementImg_24_Bpp &t, std::vector<uint8_t> &b, CRect &rc)
{
    return t.ReglageRougeVertBleu(20, -20, 35, kSize, kSize, b.data(), rc);
}
bool noir_et_blanc(CTraitementImg_24_Bpp &t, std::vector<uint8_t> &b, CRect &rc)
{
    return t.NoirEtBlanc(kSize, kSize, b.data(), rc);
}

// The memo must not change a byte: checked on both pictures before anything is timed.
bool memo_matches_plain()
{
    const Op ops[] = {teinte, luminance, blanchiment};
    for (bool smooth : {false, true})
        for (Op op : ops) {
            CTraitementImg_24_Bpp t;
            CRect rect(0, 0, kSize - 1, kSize - 1);
            std::vector<uint8_t> plain = picture(smooth), memo = picture(smooth);
            kevra::detail::set_fast_paths_enabled(false);
            op(t, plain, rect);
            kevra::detail::set_fast_paths_enabled(true);
            op(t, memo, rect);
            if (plain != memo)
                return false;
        }
    return true;
}

void register_all()
{
    struct Entry {
        const char *name;
        Op op;
        bool has_memo;
    };
    const Entry entries[] = {
        {"ReglageSaturation", saturation, false},   {"ReglageTeinte", teinte, true},
        {"ReglageLuminance", luminance, true},      {"BlanchimentDents", blanchiment, true},
        {"ReglageRouge", rouge, false},             {"ReglageVert", vert, false},
        {"ReglageBleu", bleu, false},               {"ReglageRougeVertBleu", rouge_vert_bleu, false},
        {"NoirEtBlanc", noir_et_blanc, false},
    };
    for (const Entry &e : entries)
        for (bool smooth : {true, false}) {
            const std::string base = std::string(e.name) + (smooth ? "/smooth" : "/noise");
            if (!e.has_memo) {
                benchmark::RegisterBenchmark(base.c_str(), run, e.op, smooth, true)
                    ->Unit(benchmark::kMillisecond);
                continue;
            }
            benchmark::RegisterBenchmark((base + "/plain").c_str(), run, e.op, smooth, false)
                ->Unit(benchmark::kMillisecond);
            benchmark::RegisterBenchmark((base + "/memo").c_str(), run, e.op, smooth, true)
                ->Unit(benchmark::kMillisecond);
        }
}

} // namespace

int main(int argc, char **argv)
{
    if (!memo_matches_plain()) {
        std::fprintf(stderr, "memoised hue/lightness path differs from the plain path\n");
        return EXIT_FAILURE;
    }
    register_all();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return EXIT_FAILURE;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return EXIT_SUCCESS;
}
