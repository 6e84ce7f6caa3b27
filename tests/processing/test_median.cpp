// Selective median: exact replacements, the per-depth interior rules, the band geometry and
// the buffer safety of every depth.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "kevra/dib.h"
#include "kevra/traitement.h"
#include "processing/detail/median.h"
#include "support/kevra_test.h"

using namespace kevra;
using kevra_test::FailAllocations;
using kevra_test::GuardedBuffer;

namespace {

// Pixel (x, buffer row r) of a guarded buffer: 8-bit, 16-bit, or one channel at 24 bits.
uint8_t &p8(GuardedBuffer &b, int x, int r) { return b.bits()[r * b.pitch() + x]; }
uint16_t &p16(GuardedBuffer &b, int x, int r)
{
    return *reinterpret_cast<uint16_t *>(b.bits() + r * b.pitch() + 2 * x);
}
uint8_t &p24(GuardedBuffer &b, int x, int r, int c) { return b.bits()[r * b.pitch() + 3 * x + c]; }

// Three buffer rows (1..3) of an 11 x 5 image around a 100 background: two outliers at
// columns 2 and 6 of row 2, neighbours all distinct enough to tell the picks apart.
const int kRowA[9] = {100, 90, 110, 95, 105, 100, 92, 108, 100};
const int kRowB[9] = {100, 103, 200, 99, 100, 97, 200, 100, 100};
const int kRowC[9] = {100, 104, 96, 102, 98, 100, 106, 94, 100};

template <class Set>
void fill_two_outliers(Set set)
{
    for (int r = 0; r < 5; ++r)
        for (int x = 0; x < 11; ++x)
            set(x, r, 100);
    for (int x = 0; x < 9; ++x) {
        set(x, 1, kRowA[x]);
        set(x, 2, kRowB[x]);
        set(x, 3, kRowC[x]);
    }
}

} // namespace

// Interior row 2 only (picture row 2), columns 1..9: no band exists. The first outlier is
// replaced by the 4th smallest of its 8 neighbours (sorted: 90 95 96 99 102 103 104 110);
// the second finds the sort flag clear and takes the left neighbour (97), not the median (100).
TEST(Median, FirstOutlierSortedSecondTakesLeftNeighbour_8)
{
    GuardedBuffer b(11, 5, 8);
    fill_two_outliers([&](int x, int r, int v) { p8(b, x, r) = static_cast<uint8_t>(v); });
    std::vector<uint8_t> expected = b.bytes();
    expected[2 * b.pitch() + 2] = 99;
    expected[2 * b.pitch() + 6] = 97;
    CTraitementImg_8_Bpp t;
    CRect rc(1, 2, 9, 2);
    ASSERT_TRUE(t.FiltreMedian(11, 5, b.bits(), rc, 0.2, 1));
    EXPECT_EQ(b.bytes(), expected);
}

TEST(Median, FirstOutlierSortedSecondTakesLeftNeighbour_16)
{
    GuardedBuffer b(11, 5, 16);
    fill_two_outliers([&](int x, int r, int v) { p16(b, x, r) = static_cast<uint16_t>(v); });
    std::vector<uint8_t> before = b.bytes();
    CTraitementImg_16_Bpp t;
    CRect rc(1, 2, 9, 2);
    ASSERT_TRUE(t.FiltreMedian(11, 5, b.bits(), rc, 0.2, 1));
    EXPECT_EQ(p16(b, 2, 2), 99);
    EXPECT_EQ(p16(b, 6, 2), 97);
    p16(b, 2, 2) = 200;
    p16(b, 6, 2) = 200;
    EXPECT_EQ(b.bytes(), before);
}

// Centre 100 with neighbours 90/110 alternating: mean exactly 100, tolerance 0. The 8-bit
// interior test is inclusive (replaced by the 4th smallest, 90); the 16-bit one is strict.
TEST(Median, ToleranceZeroInclusive8StrictInterior16)
{
    const int vals[3][3] = {{90, 110, 90}, {110, 100, 90}, {110, 90, 110}};
    GuardedBuffer b8(3, 4, 8), b16(3, 4, 16);
    for (int r = 0; r < 3; ++r)
        for (int x = 0; x < 3; ++x) {
            p8(b8, x, r) = static_cast<uint8_t>(vals[r][x]);
            p16(b16, x, r) = static_cast<uint16_t>(vals[r][x]);
        }
    CRect rc(1, 2, 1, 2); // buffer row 1, column 1: the one interior pixel, no band
    CTraitementImg_8_Bpp t8;
    CTraitementImg_16_Bpp t16;
    ASSERT_TRUE(t8.FiltreMedian(3, 4, b8.bits(), rc, 0.0, 1));
    ASSERT_TRUE(t16.FiltreMedian(3, 4, b16.bits(), rc, 0.0, 1));
    EXPECT_EQ(p8(b8, 1, 1), 90);
    EXPECT_EQ(p16(b16, 1, 1), 100);
}

// The 24-bit interior gathers only the neighbours at a positive byte offset (right of the
// centre in its row, and the row above) into 4 of the 8 slots, divides by 8, and sorts all 8
// slots, the other 4 starting at zero. Channel 0 is the call's first replacement: sorted
// {40 60 20 80 0 0 0 0} gives 0. Channel 1 (mean 20, centre 20) stays. Channel 2 is
// replaced from the unsorted slots {5 15 25 35 | 20 40 60 80}: element 3 = 35.
TEST(Median, HalfWindowInterior24)
{
    GuardedBuffer b(3, 4, 24);
    for (int r = 0; r < 4; ++r)
        for (int x = 0; x < 3; ++x)
            for (int c = 0; c < 3; ++c)
                p24(b, x, r, c) = 255; // the lower half and the left neighbour: never gathered
    const int upper[3][4] = {{40, 60, 20, 80}, {10, 30, 50, 70}, {5, 15, 25, 35}};
    const int centre[3] = {100, 20, 100};
    for (int c = 0; c < 3; ++c) {
        p24(b, 2, 1, c) = static_cast<uint8_t>(upper[c][0]);
        p24(b, 0, 2, c) = static_cast<uint8_t>(upper[c][1]);
        p24(b, 1, 2, c) = static_cast<uint8_t>(upper[c][2]);
        p24(b, 2, 2, c) = static_cast<uint8_t>(upper[c][3]);
        p24(b, 1, 1, c) = static_cast<uint8_t>(centre[c]);
    }
    CTraitementImg_24_Bpp t;
    CRect rc(1, 2, 1, 2);
    ASSERT_TRUE(t.FiltreMedian(3, 4, b.bits(), rc, 0.2, 1));
    EXPECT_EQ(p24(b, 1, 1, 0), 0);
    EXPECT_EQ(p24(b, 1, 1, 1), 20);
    EXPECT_EQ(p24(b, 1, 1, 2), 35);
}

// With radius 1 a flat 16-bit image never moves in the interior (strict test), and the
// inclusive bands replace each pixel by a neighbour of the same value: nothing changes.
TEST(Median, FlatImageUnchanged_8_16)
{
    for (double tol : {0.0, 0.015, 0.5}) {
        GuardedBuffer b8(9, 7, 8), b16(9, 7, 16);
        for (int r = 0; r < 7; ++r)
            for (int x = 0; x < 9; ++x) {
                p8(b8, x, r) = 77;
                p16(b16, x, r) = 40000;
            }
        const std::vector<uint8_t> e8 = b8.bytes(), e16 = b16.bytes();
        CRect rc(0, 0, 8, 6);
        CTraitementImg_8_Bpp t8;
        CTraitementImg_16_Bpp t16;
        ASSERT_TRUE(t8.FiltreMedian(9, 7, b8.bits(), rc, tol, 1));
        ASSERT_TRUE(t16.FiltreMedian(9, 7, b16.bits(), rc, tol, 1));
        EXPECT_EQ(b8.bytes(), e8) << tol;
        EXPECT_EQ(b16.bytes(), e16) << tol;
    }
}

// Full rectangle, radius 2, tolerance 0 on noise (almost everything is replaced somewhere):
// the left and right bands both start at the interior's first column, so the two columns at
// each side edge (corner blocks included) are never written, while bands do change pixels in
// the bottom rows.
TEST(Median, EdgeColumnsAndCornerBlocksNeverChange)
{
    GuardedBuffer b(8, 8, 8, 7);
    const std::vector<uint8_t> before = b.bytes();
    CTraitementImg_8_Bpp t;
    CRect rc(0, 0, 7, 7);
    ASSERT_TRUE(t.FiltreMedian(8, 8, b.bits(), rc, 0.0, 2));
    int band_changes = 0;
    for (int r = 0; r < 8; ++r)
        for (int x = 0; x < 8; ++x) {
            const bool changed = b.bytes()[r * 8 + x] != before[r * 8 + x];
            if (x < 2 || x > 5)
                EXPECT_FALSE(changed) << x << "," << r;
            else if (r < 2)
                band_changes += changed;
        }
    EXPECT_GT(band_changes, 0);
}

// A rectangle starting at column 1 with radius 2 has its interior from column 3 (x0 + n),
// not from column 2: an outlier at column 2 is never examined, one at column 3 is replaced.
TEST(Median, InteriorStartsAtX0PlusRadius)
{
    GuardedBuffer b(10, 9, 8);
    for (int r = 0; r < 9; ++r)
        for (int x = 0; x < 10; ++x)
            p8(b, x, r) = 50;
    p8(b, 2, 4) = 250;
    p8(b, 3, 3) = 250;
    CTraitementImg_8_Bpp t;
    CRect rc(1, 0, 9, 8);
    ASSERT_TRUE(t.FiltreMedian(10, 9, b.bits(), rc, 0.2, 2));
    EXPECT_EQ(p8(b, 2, 4), 250);
    EXPECT_EQ(p8(b, 3, 3), 50);
}

// Right band: its window's right limit is min(n, rB - r), taken from the row. At the
// rectangle's top row (re = rB here) the window keeps only columns 0..1 around column 1:
// five 100s, so 120 is replaced (inclusive test, 120 >= 100 x 1.2), whereas its full window
// (mean 115, with the 140s of column 2) keeps it, in the interior and the left band alike.
TEST(Median, RightBandUsesRowBasedLimit)
{
    GuardedBuffer b(6, 6, 8);
    for (int r = 0; r < 6; ++r)
        for (int x = 0; x < 6; ++x)
            p8(b, x, r) = x < 2 ? 100 : 140;
    p8(b, 1, 3) = 120;
    std::vector<uint8_t> expected = b.bytes();
    expected[3 * b.pitch() + 1] = 100;
    CTraitementImg_8_Bpp t;
    CRect rc(0, 2, 5, 5); // buffer rows 0..3; interior rows 1..3, columns 1..4
    ASSERT_TRUE(t.FiltreMedian(6, 6, b.bits(), rc, 0.2, 1));
    EXPECT_EQ(b.bytes(), expected);
}

// Lower band at the image's bottom row: the window is cut at row rA (5 samples, odd: the
// middle one). The first replacement sorts ({10 30 | 20 40 50} -> 30); later ones in the same
// call take gathering element 2 unsorted: at column 5, its upper-left neighbour.
TEST(Median, LowerBandPicksAndSharedFlag)
{
    GuardedBuffer b(7, 4, 8);
    for (int r = 0; r < 4; ++r)
        for (int x = 0; x < 7; ++x)
            p8(b, x, r) = 30;
    // Bottom row: two outliers at columns 1 and 4.
    const int row0[7] = {10, 200, 30, 30, 30, 200, 30};
    const int row1[7] = {20, 40, 50, 30, 25, 35, 45};
    for (int x = 0; x < 7; ++x) {
        p8(b, x, 0) = static_cast<uint8_t>(row0[x]);
        p8(b, x, 1) = static_cast<uint8_t>(row1[x]);
    }
    CTraitementImg_8_Bpp t;
    CRect rc(0, 3, 6, 3); // buffer row 0 only: interior rows start at 1, so row 0 is band
    ASSERT_TRUE(t.FiltreMedian(7, 4, b.bits(), rc, 0.2, 1));
    EXPECT_EQ(p8(b, 1, 0), 30); // sorted {10, 30, 20, 40, 50}: 30
    EXPECT_EQ(p8(b, 5, 0), 25); // unsorted {30, 30, 25, 35, 45}: element 2 = (4, 1)
}

// FiltreMedianSimple reads the tested centres from `out` and writes only the replaced ones:
// a centre that `out` holds one above the image's value (not an outlier) keeps it, and
// everything outside the rectangle's interior keeps its marker.
TEST(Median, SimpleReadsCentresFromOutAndWritesOnlyReplacements)
{
    GuardedBuffer b(11, 5, 8);
    fill_two_outliers([&](int x, int r, int v) { p8(b, x, r) = static_cast<uint8_t>(v); });
    std::vector<uint8_t> out(b.bytes().size(), 0xEE);
    for (int x = 1; x <= 9; ++x)
        out[2 * b.pitch() + x] = static_cast<uint8_t>(p8(b, x, 2) + (x == 2 || x == 6 ? 0 : 1));
    std::vector<uint8_t> expected = out;
    expected[2 * b.pitch() + 2] = 99;
    expected[2 * b.pitch() + 6] = 97;
    CTraitementImg_8_Bpp t;
    CRect rc(1, 2, 9, 2);
    ASSERT_TRUE(t.FiltreMedianSimple(11, 5, b.bits(), out.data(), rc, 0.2, 1));
    EXPECT_EQ(out, expected);
}

TEST(Median, TriBulleOptimiseSorts)
{
    unsigned char a[] = {5, 1, 4, 1, 255, 0};
    unsigned short s[] = {65535, 2, 300, 2};
    CTraitementImg_8_Bpp t8;
    CTraitementImg_16_Bpp t16;
    CTraitementImg_24_Bpp t24;
    t8.TriBulleOptimise(a, 6);
    EXPECT_EQ(std::vector<int>(a, a + 6), (std::vector<int>{0, 1, 1, 4, 5, 255}));
    t16.TriBulleOptimise(s, 4);
    EXPECT_EQ(std::vector<int>(s, s + 4), (std::vector<int>{2, 2, 300, 65535}));
    unsigned char c[] = {3, 2, 1};
    t24.TriBulleOptimise(c, 0); // nothing to do
    t24.TriBulleOptimise(c, 3);
    EXPECT_EQ(std::vector<int>(c, c + 3), (std::vector<int>{1, 2, 3}));
}

TEST(Median, AllocationFailureLeavesImage)
{
    for (int bpp : {8, 16, 24}) {
        GuardedBuffer b(9, 9, bpp, 3);
        const std::vector<uint8_t> before = b.bytes();
        CRect rc(0, 0, 8, 8);
        bool ok = true;
        {
            FailAllocations fail;
            CTraitementImg_8_Bpp t8;
            CTraitementImg_16_Bpp t16;
            CTraitementImg_24_Bpp t24;
            if (bpp == 8)
                ok = t8.FiltreMedian(9, 9, b.bits(), rc, 0.0, 1);
            else if (bpp == 16)
                ok = t16.FiltreMedian(9, 9, b.bits(), rc, 0.0, 1);
            else
                ok = t24.FiltreMedian(9, 9, b.bits(), rc, 0.0, 1);
        }
        EXPECT_FALSE(ok) << bpp;
        EXPECT_EQ(b.bytes(), before) << bpp;
    }
}

TEST(Median, ImageFormRefusals)
{
    CTraitementImg_8_Bpp t8;
    EXPECT_FALSE(t8.FiltreMedian(nullptr, 0.1, 1));
    CDibRoot grey16(CSize(8, 8), 16);
    EXPECT_FALSE(t8.FiltreMedian(&grey16, 0.1, 1));
    CDibRoot empty;
    EXPECT_FALSE(t8.FiltreMedian(&empty, 0.1, 1));
    CDibRoot grey8(CSize(8, 8), 8);
    EXPECT_TRUE(t8.FiltreMedian(&grey8, 0.1, 1));
}

// The fast interior (running integer sums, samples gathered only for replaced centres) against
// the plain one, at zero tolerance on the bytes: random images with smooth and noisy parts,
// every depth, odd widths, 1-pixel images, radii up to the limit of exact sums at 16 bits,
// rectangles touching each edge, partly or wholly outside, inverted. Whole buffers compared,
// padding included; neither path writes past the pixels of a row or the buffer.
TEST(Median, FastInteriorMatchesPlain)
{
    std::mt19937 rng(777);
    auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
    CTraitementImg_8_Bpp t8;
    CTraitementImg_16_Bpp t16;
    CTraitementImg_24_Bpp t24;
    for (int iter = 0; iter < 600; ++iter) {
        const int bpp = iter % 3 == 0 ? 8 : (iter % 3 == 1 ? 16 : 24);
        const int w = iter < 9 ? 1 + iter % 3 : pick(1, 41), h = iter < 9 ? 1 + iter / 3 : pick(1, 29);
        const unsigned short n = static_cast<unsigned short>(pick(0, bpp == 16 ? 7 : 5));
        const double tol = pick(0, 4) * 0.03;
        CRect rc;
        switch (iter % 4) {
        case 0: rc = CRect(0, 0, w - 1, h - 1); break;
        case 1: rc = CRect(pick(-5, 2), pick(-5, 2), pick(w - 3, w + 5), pick(h - 3, h + 5)); break;
        default: rc = CRect(pick(-3, w), pick(-3, h), pick(-3, w + 3), pick(-3, h + 3)); break;
        }
        GuardedBuffer a(w, h, bpp, static_cast<uint32_t>(iter));
        // Smooth rows in half the images, so that few centres are replaced there.
        if (iter % 2)
            for (int r = 0; r < h; ++r)
                for (int i = 0; i < w * bpp / 8; ++i)
                    a.bits()[r * a.pitch() + i] = static_cast<uint8_t>(100 + (i + r) % 7 + (pick(0, 20) == 0 ? 90 : 0));
        GuardedBuffer b = a;
        auto run = [&](GuardedBuffer &g, bool fast) {
            kevra::detail::set_median_fast_enabled(fast);
            bool ok = bpp == 8 ? t8.FiltreMedian(w, h, g.bits(), rc, tol, n)
                               : (bpp == 16 ? t16.FiltreMedian(w, h, g.bits(), rc, tol, n)
                                            : t24.FiltreMedian(w, h, g.bits(), rc, tol, n));
            kevra::detail::set_median_fast_enabled(true);
            return ok;
        };
        ASSERT_TRUE(run(a, false));
        ASSERT_TRUE(run(b, true));
        ASSERT_TRUE(a.intact() && b.intact()) << iter;
        if (a.bytes() != b.bytes()) {
            std::size_t i = 0;
            while (a.bytes()[i] == b.bytes()[i])
                ++i;
            FAIL() << "iter " << iter << " (" << bpp << " bits, " << w << "x" << h << ", n " << n
                   << "): first difference at byte " << i << " (row " << i / a.pitch() << "): plain "
                   << int(a.bytes()[i]) << ", fast " << int(b.bytes()[i]);
        }
    }
}
