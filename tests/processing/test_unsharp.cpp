// Unsharp masking: parameter checks, the +-0.5 rule, the disc copy-back rows, failures, and the
// streamed schedule against the plain one.
#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>

#include "processing_test.h"

using namespace kevra;
using namespace proc_test;

namespace {

struct Params {
    float rayon, gainP, gainN, SeuilP, SeuilN;
};

bool unsharp(Buf &b, CRect rc, Params p)
{
    return on_depth(b.bpp, [&](auto &t) {
        return t.UnsharpMasking(b.w, b.h, b.bits(), rc, p.rayon, p.gainP, p.gainN, p.SeuilP, p.SeuilN);
    });
}

bool unsharp_disc(Buf &b, CPoint centre, long R, Params p)
{
    return on_depth(b.bpp, [&](auto &t) {
        return t.UnsharpMasking(b.w, b.h, b.bits(), centre, R, p.rayon, p.gainP, p.gainN, p.SeuilP, p.SeuilN);
    });
}

} // namespace

TEST(Unsharp, RefusalsAndAllocationFailureLeaveTheImage)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const Params bad[] = {
        {0.9f, 1, 1, 0, 0},  // truncates to 0
        {-2.0f, 1, 1, 0, 0}, // not a count
        {2, 0, 0, 0, 0},     // no gain at all
        {2, -1, 2, 0, 0},   {2, 2, -1, 0, 0}, {2, 1, 1, -1, 0},
        {2, 1, 0, 0, -1},    // negative SeuilN even with gainN 0
        {nan, 1, 1, 0, 0},  {2, nan, 1, 0, 0}, {2, 1, nan, 0, 0}, {2, 1, 1, nan, 0}, {2, 1, 1, 0, nan},
    };
    Buf b(9, 9, 16, 4);
    const auto before = b.rows();
    for (const Params &p : bad)
        EXPECT_FALSE(unsharp(b, CRect(0, 0, 8, 8), p) || unsharp_disc(b, CPoint(4, 4), 3, p));
    EXPECT_EQ(b.rows(), before);
    // Good parameters, but no memory.
    Buf colour(12, 10, 24, 8);
    const auto colour0 = colour.rows();
    FailAllocations fail;
    EXPECT_FALSE(unsharp(colour, CRect(0, 0, 11, 9), {2.0f, 1.0f, 1.0f, 0.0f, 0.0f}));
    EXPECT_FALSE(unsharp_disc(colour, CPoint(5, 5), 4, {2.0f, 1.0f, 1.0f, 0.0f, 0.0f}));
    EXPECT_EQ(colour.rows(), colour0);
}

// Radius 1 on a flat image over the whole image: the Gaussian keeps it flat, the ramp (weights
// 0, 1/2) gives back exactly the same plane, so the detail is exactly 0 and becomes -0.5:
// every pixel loses one grey level after truncation, whatever the gains and thresholds; 0
// stays 0 through the clip.
TEST(Unsharp, ZeroDetailStillMovesHalfAStep)
{
    struct Case { int bpp; float rayon; int level; };
    const Case cases[] = {{8, 1.5f, 100}, {8, 1.0f, 0}, {16, 1.0f, 1000}, {24, 1.0f, 100}};
    for (float seuil : {0.0f, 1e30f})
        for (const Case &k : cases) {
            Buf b(7, 6, k.bpp);
            b.fill(k.level);
            const Buf before = b;
            ASSERT_TRUE(unsharp(b, CRect(0, 0, 6, 5), {k.rayon, 3.0f, 2.0f, seuil, seuil}));
            expect_in_rect(before, b, CRect(0, 0, 6, 5), [](int v, long, long, int) { return v ? v - 1 : 0; });
        }
}

// With thresholds no detail reaches, the gains never apply: each rectangle sample is its own
// value + 0.5 (kept after truncation) or - 0.5 (one level lower, 0 clipped at 0). Pixels
// outside the rectangle never change. Low thresholds with a large gain do change the image.
TEST(Unsharp, HugeThresholdsLeaveOnlyTheHalfStep)
{
    for (int bpp : {8, 24}) {
        Buf b(23, 17, bpp, 21), low = b;
        const Buf before = b;
        const CRect rc(3, 2, 15, 11);
        ASSERT_TRUE(unsharp(b, rc, {3.0f, 50.0f, 50.0f, 1e30f, 1e30f}));
        int lowered = 0;
        expect_in_rect(before, b, rc, [&](int v, long x, long r, int c) {
            const int now = b.get(x, r, c);
            lowered += now != v;
            return now == v - 1 ? now : v;
        });
        EXPECT_GT(lowered, 0);
        ASSERT_TRUE(unsharp(low, rc, {3.0f, 50.0f, 50.0f, 0.0f, 0.0f}));
        int big = 0;
        for (long i = 0; i < low.pitch * low.h; ++i)
            big += std::abs(low.bits()[i] - before.bits()[i]) > 1;
        EXPECT_GT(big, 0);
    }
}

// 5 x 5 flat image, disc of radius 2 centred on (2, 2): the whole image is the square, so the
// rectangle form lowers every pixel of the copy by one (zero detail, radius 1). The copy-back
// takes the centre's buffer row as height - centre.y = 3, not 2: buffer rows 1..4, half-widths
// from (row - 2) = -1, 0, 1, 2 -> 1, 2, 1, 0. Buffer row 0, which a disc on the true centre
// row would reach, keeps its pixel.
TEST(Unsharp, DiscCopyBackRowsAreOneRowOff)
{
    Buf b(5, 5, 8), expected(5, 5, 8);
    b.fill(100);
    expected.set_row(0, {100, 100, 100, 100, 100});
    expected.set_row(1, {100, 99, 99, 99, 100});
    expected.set_row(2, {99, 99, 99, 99, 99});
    expected.set_row(3, {100, 99, 99, 99, 100});
    expected.set_row(4, {100, 100, 99, 100, 100});
    ASSERT_TRUE(unsharp_disc(b, CPoint(2, 2), 2, {1.0f, 1.0f, 1.0f, 0.0f, 0.0f}));
    EXPECT_EQ(b.rows(), expected.rows());
}

// The streamed schedule (no planes, rows in rings, strips on threads) against the plain steps at
// zero tolerance: every depth, 1-pixel images, odd widths, rectangles over each edge, discs
// around and off the image, radii wider than the image, one thread and three. Nothing outside
// the rectangle (or the disc's square, each bound clamped into the image) changes, padding and
// guard zone stay intact.
TEST(Unsharp, StreamedGivesThePlainBytesAndChangesOnlyItsArea)
{
    std::mt19937 rng(909);
    auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
    auto clamp = [](long v, long hi) { return static_cast<int>(v < 0 ? 0 : (v > hi ? hi : v)); };
    for (int iter = 0; iter < 300; ++iter) {
        const int bpp = 8 * (1 + iter % 3);
        const int w = iter < 6 ? 1 : pick(1, 40), h = iter < 6 ? 1 : pick(1, 30);
        const Params p = {static_cast<float>(pick(1, iter % 10 == 0 ? 40 : 6)) + 0.25f, pick(0, 30) * 0.1f,
                          pick(1, 30) * 0.1f, static_cast<float>(pick(0, 20)), static_cast<float>(pick(0, 20))};
        CRect rc(pick(-3, w + 1), pick(-3, h + 1), pick(-3, w + 3), pick(-3, h + 3));
        const CPoint centre(pick(-2, w + 1), pick(-2, h + 1));
        const long R = pick(0, 5);
        const bool disc = iter % 4 == 3;
        if (disc)
            rc = CRect(clamp(centre.x - R, w - 1), clamp(centre.y - R, h - 1), clamp(centre.x + R, w - 1),
                       clamp(centre.y + R, h - 1));
        const Buf before(w, h, bpp, static_cast<uint32_t>(iter + 1));
        Buf plain = before, fast = before;
        auto run = [&](Buf &b) { return disc ? unsharp_disc(b, centre, R, p) : unsharp(b, rc, p); };
        const auto [ok_plain, ok_fast] = plain_and_fast([&](bool f) { return run(f ? fast : plain); }, iter % 2 ? 3 : 1);
        ASSERT_TRUE(ok_plain && ok_fast) << iter;
        ASSERT_EQ(first_difference(plain, fast), "") << "iteration " << iter << ": " << w << "x" << h << "x" << bpp;
        SCOPED_TRACE(iter);
        expect_in_rect(before, plain, rc, [&](int, long x, long r, int c) { return plain.get(x, r, c); });
        ASSERT_TRUE(fast.intact());
    }
}
