// The integer fast paths (negative, mirrors, quarter turns, histograms, stretch, look-up tables)
// against the plain paths: random buffers of every depth, odd widths, single pixels, rows and columns, sizes
// around the block and tile sizes, rectangles inside, on and over every edge, and empty ones.
// Whole buffers are compared, padding and guard zones included, and so are the results.
#include <cstring>

#include "kevra/lut.h"
#include "processing/processing_test.h"

namespace {

using kevra::CRect;
using kevra::CTraitementImgBase;
using namespace proc_test;

// What one case runs: an operation of the depth's class on `buf` (and `out` for the turns),
// with histogram counts, if any, appended to `counts`.
struct Op {
    const char *name;
    bool (*run)(int bpp, Buf &buf, Buf &out, const CRect &rc, std::vector<long> &counts, uint32_t seed);
};

// The negative (0) and the mirrors (1 left-right, 2 top-bottom), in place.
template <int Which>
bool in_place(int bpp, Buf &b, Buf &, const CRect &rc, std::vector<long> &, uint32_t)
{
    CRect r = rc;
    return on_depth(bpp, [&](auto &t) {
        return Which == 0   ? t.Negatif(b.w, b.h, b.bits(), r)
               : Which == 1 ? t.Mirroir_Horizontal(b.w, b.h, b.bits(), r)
                            : t.Mirroir_Vertical(b.w, b.h, b.bits(), r);
    });
}

bool turn(int bpp, Buf &b, Buf &out, const CRect &rc, std::vector<long> &, uint32_t seed)
{
    CRect r = rc;
    const auto angle = static_cast<CTraitementImgBase::e_angle>(seed % 3);
    if (angle == CTraitementImgBase::e_Angle180)
        out = Buf(b.w, b.h, bpp, 3);
    return on_depth(bpp,
                    [&](auto &t) { return t.QuickRotate(angle, b.w, b.h, b.bits(), r, out.w, out.h, out.bits()); });
}

bool histogram(int bpp, Buf &b, Buf &, const CRect &rc, std::vector<long> &counts, uint32_t)
{
    CRect r = rc;
    counts.assign(bpp == 16 ? 65536 : 3 * 256, -1);
    if (bpp == 8)
        return kevra::CTraitementImg_8_Bpp().Donne_Histogramme(counts.data(), b.w, b.h, b.bits(), r);
    if (bpp == 16)
        return kevra::CTraitementImg_16_Bpp().Donne_Histogramme(counts.data(), b.w, b.h, b.bits(), r);
    return kevra::CTraitementImg_24_Bpp().Donne_Histogrammes(&counts[0], &counts[256], &counts[512], b.w, b.h,
                                                             b.bits(), r);
}

// A table of random entries (three at 24 bits).
bool table(int bpp, Buf &b, Buf &, const CRect &rc, std::vector<long> &, uint32_t seed)
{
    CRect r = rc;
    std::mt19937 rng(seed);
    if (bpp != 16) {
        kevra::CLUT_8_Bpp lut[3];
        for (auto &l : lut)
            for (int i = 0; i < 256; ++i)
                l.Donne_Table()[i] = static_cast<uint8_t>(rng());
        kevra::CLUT_24_Bpp colour(&lut[0], &lut[1], &lut[2]);
        return bpp == 8 ? lut[0].FiltrerBuffer(b.w, b.h, b.bits(), r) : colour.FiltrerBuffer(b.w, b.h, b.bits(), r);
    }
    kevra::CLUT_16_Bpp lut;
    for (int i = 0; i < 65536; ++i)
        lut.Donne_Table()[i] = static_cast<uint16_t>(rng());
    return lut.FiltrerBuffer(b.w, b.h, b.bits(), r);
}

// Shares from 0 to 0.3 and high points from 0.7 to 1, and now and then a share beyond them.
bool stretch(int bpp, Buf &b, Buf &, const CRect &rc, std::vector<long> &, uint32_t seed)
{
    CRect r = rc;
    const float p = seed % 7 == 0 ? 0.6f : static_cast<float>(seed % 31) * 0.01f;
    const float q = seed % 11 == 0 ? 0.2f : 1.0f - static_cast<float>(seed % 29) * 0.01f;
    return on_depth(bpp, [&](auto &t) { return t.EgalisationHistogramme(p, q, b.w, b.h, b.bits(), r); });
}

const Op kOps[] = {{"Negatif", in_place<0>},          {"Mirroir_Horizontal", in_place<1>},
                   {"Mirroir_Vertical", in_place<2>}, {"QuickRotate", turn},
                   {"Donne_Histogramme", histogram},  {"EgalisationHistogramme", stretch},
                   {"CLUT FiltrerBuffer", table}};

// A random rectangle: each edge inside, on or a little beyond the image; now and then the
// whole image or an empty one.
CRect random_rect(std::mt19937 &rng, long w, long h)
{
    auto edge = [&](long n) { return static_cast<int>(static_cast<long>(rng() % (n + 6)) - 3); };
    switch (rng() % 8) {
    case 0:
        return CRect(0, 0, static_cast<int>(w - 1), static_cast<int>(h - 1));
    case 1:
        return CRect(static_cast<int>(w / 2), 0, static_cast<int>(w / 2) - 1, static_cast<int>(h - 1));
    default:
        return CRect(edge(w), edge(h), edge(w), edge(h));
    }
}

// Random pixels, some cases narrowed to a few levels so that the stretch meets its short ramps
// and its limits that cross.
Buf random_buf(std::mt19937 &rng, long w, long h, int bpp)
{
    Buf b(w, h, bpp, rng());
    const int narrow = static_cast<int>(rng() % 4);
    if (narrow != 0)
        for (long r = 0; r < h; ++r)
            for (long x = 0; x < w; ++x)
                for (int c = 0; c < b.channels(); ++c)
                    b.set(x, r, 100 + b.get(x, r, c) % (narrow == 1 ? 2 : narrow == 2 ? 5 : 40), c);
    return b;
}

TEST(FastPaths, GiveThePlainBytesOnRandomCases)
{
    const long sizes[] = {1, 2, 3, 5, 7, 8, 9, 15, 16, 17, 31, 33, 40, 65, 70, 131};
    std::mt19937 rng(2024);
    for (int i = 0; i < 300; ++i) {
        const int bpp = i % 3 == 0 ? 8 : i % 3 == 1 ? 16 : 24;
        const long w = sizes[rng() % 16], h = sizes[rng() % 16];
        const Buf source = random_buf(rng, w, h, bpp);
        const CRect rc = random_rect(rng, w, h);
        const uint32_t seed = rng();
        for (const Op &op : kOps) {
            Buf plain = source, fast = source, plain_out(h, w, bpp, 3), fast_out = plain_out;
            std::vector<long> plain_counts, fast_counts;
            const auto [plain_ok, fast_ok] = plain_and_fast([&](bool f) {
                return f ? op.run(bpp, fast, fast_out, rc, fast_counts, seed)
                         : op.run(bpp, plain, plain_out, rc, plain_counts, seed);
            });
            SCOPED_TRACE(testing::Message() << op.name << " " << w << "x" << h << " at " << bpp
                         << " bits, rectangle " << rc.left << "," << rc.top << "," << rc.right
                         << "," << rc.bottom << ", seed " << seed);
            ASSERT_EQ(fast_ok, plain_ok);
            ASSERT_EQ(first_difference(fast, plain), "");
            ASSERT_EQ(first_difference(fast_out, plain_out), "");
            ASSERT_EQ(fast_counts, plain_counts);
            ASSERT_TRUE(fast.intact() && fast_out.intact());
        }
    }
}

} // namespace

// Grey rows wide enough for the whole-vector reversal of the left-right mirror (32 bytes from
// each end), a full rectangle and a ragged one, each case four times so that every vector
// level meets it.
TEST(FastPaths, MirrorOfWideGreyRows)
{
    std::mt19937 rng(31);
    for (const int bpp : {8, 16})
        for (const long w : {64L, 65L, 97L, 131L, 200L})
            for (int k = 0; k < 8; ++k) {
                const Buf source(w, 3, bpp, rng());
                Buf plain = source, fast = source, unused = source;
                std::vector<long> counts;
                const CRect rc = k % 2 ? CRect(3, 0, static_cast<int>(w - 2), 2) : CRect(0, 0, static_cast<int>(w - 1), 2);
                plain_and_fast([&](bool f) { return in_place<1>(bpp, f ? fast : plain, unused, rc, counts, 0); });
                ASSERT_EQ(first_difference(fast, plain), "") << bpp << " bits, width " << w << ", case " << k;
            }
}
