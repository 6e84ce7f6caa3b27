// Selective median: exact replacements, the per-depth interior rules, the band geometry and
// the buffer safety of every depth.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "processing/detail/median.h"
#include "processing_test.h"

using namespace kevra;
using proc_test::Buf;
using proc_test::on_depth;

namespace {

bool median(Buf &b, CRect rc, double tol, unsigned short n)
{
    return on_depth(b.bpp, [&](auto &t) { return t.FiltreMedian(b.w, b.h, b.bits(), rc, tol, n); });
}

// An 11 x 5 image of 100s whose buffer rows 1..3 hold two outliers (columns 2 and 6 of row 2)
// among neighbours all distinct enough to tell the picks apart.
Buf two_outliers(int bpp)
{
    Buf b(11, 5, bpp);
    b.fill(100);
    b.set_row(1, {100, 90, 110, 95, 105, 100, 92, 108, 100});
    b.set_row(2, {100, 103, 200, 99, 100, 97, 200, 100, 100});
    b.set_row(3, {100, 104, 96, 102, 98, 100, 106, 94, 100});
    return b;
}

} // namespace

// Interior row 2 only (picture row 2), columns 1..9: no band exists. The first outlier is
// replaced by the 4th smallest of its 8 neighbours (sorted: 90 95 96 99 102 103 104 110);
// the sort flag is set once per call, so the second finds it clear and takes the left
// neighbour (97), not the median (100). FiltreMedianSimple reads the tested centres from `out`
// and writes only the replaced ones: a centre that `out` holds one above the image's value
// (not an outlier there) keeps it, and everything else keeps its marker.
TEST(Median, FirstOutlierSortedSecondTakesLeftNeighbour)
{
    for (int bpp : {8, 16}) {
        Buf b = two_outliers(bpp), expected = b;
        expected.set(2, 2, 99);
        expected.set(6, 2, 97);
        ASSERT_TRUE(median(b, CRect(1, 2, 9, 2), 0.2, 1));
        EXPECT_EQ(b.rows(), expected.rows()) << bpp;
    }
    Buf b = two_outliers(8), out(11, 5, 8);
    out.fill(0xEE);
    for (long x = 1; x <= 9; ++x)
        out.set(x, 2, b.get(x, 2) + (x == 2 || x == 6 ? 0 : 1));
    Buf expected = out;
    expected.set(2, 2, 99);
    expected.set(6, 2, 97);
    CRect rc(1, 2, 9, 2);
    ASSERT_TRUE(CTraitementImg_8_Bpp().FiltreMedianSimple(11, 5, b.bits(), out.bits(), rc, 0.2, 1));
    EXPECT_EQ(out.rows(), expected.rows());
}

// Centre 100 with neighbours 90/110 alternating: mean exactly 100, tolerance 0. The 8-bit
// interior test is inclusive (replaced by the 4th smallest, 90); the 16-bit one is strict.
TEST(Median, ToleranceZeroInclusive8StrictInterior16)
{
    for (int bpp : {8, 16}) {
        Buf b(3, 4, bpp);
        b.set_row(0, {90, 110, 90});
        b.set_row(1, {110, 100, 90});
        b.set_row(2, {110, 90, 110});
        ASSERT_TRUE(median(b, CRect(1, 2, 1, 2), 0.0, 1)); // the one interior pixel, no band
        EXPECT_EQ(b.get(1, 1), bpp == 8 ? 90 : 100);
    }
}

// The 24-bit interior gathers only the neighbours at a positive byte offset (right of the
// centre in its row, and the row above) into 4 of the 8 slots, divides by 8, and sorts all 8
// slots, the other 4 starting at zero. Channel 0 is the call's first replacement: sorted
// {40 60 20 80 0 0 0 0} gives 0. Channel 1 (mean 20, centre 20) stays. Channel 2 is
// replaced from the unsorted slots {5 15 25 35 | 20 40 60 80}: element 3 = 35.
TEST(Median, HalfWindowInterior24)
{
    Buf b(3, 4, 24);
    b.fill(255); // the lower half and the left neighbour: never gathered
    const int upper[3][4] = {{40, 60, 20, 80}, {10, 30, 50, 70}, {5, 15, 25, 35}};
    for (int c = 0; c < 3; ++c) {
        b.set_row(1, {c == 1 ? 20 : 100, upper[c][0]}, 1, c); // centre, then its right neighbour
        b.set_row(2, {upper[c][1], upper[c][2], upper[c][3]}, 0, c);
    }
    ASSERT_TRUE(median(b, CRect(1, 2, 1, 2), 0.2, 1));
    EXPECT_EQ(b.get(1, 1, 0), 0);
    EXPECT_EQ(b.get(1, 1, 1), 20);
    EXPECT_EQ(b.get(1, 1, 2), 35);
}

// Full rectangle, radius 2, tolerance 0 on noise (almost everything is replaced somewhere):
// the left and right bands both start at the interior's first column, so the two columns at
// each side edge (corner blocks included) are never written, while bands do change pixels in
// the bottom rows.
TEST(Median, EdgeColumnsAndCornerBlocksNeverChange)
{
    Buf b(8, 8, 8, 7);
    const Buf before = b;
    ASSERT_TRUE(median(b, CRect(0, 0, 7, 7), 0.0, 2));
    int band_changes = 0;
    for (long r = 0; r < 8; ++r)
        for (long x = 0; x < 8; ++x) {
            const bool changed = b.get(x, r) != before.get(x, r);
            EXPECT_FALSE(changed && (x < 2 || x > 5)) << x << "," << r;
            band_changes += changed && r < 2;
        }
    EXPECT_GT(band_changes, 0);
}

// Band and interior bounds on 8-bit images: each case fills the image, writes rows of levels
// (buffer row, first column, levels), runs the filter and checks the listed pixels.
//  - x0 + n: a rectangle starting at column 1 with radius 2 has its interior from column 3, not
//    from column 2: an outlier at column 2 is never examined, one at column 3 is replaced.
//  - Right band: its window's right limit is min(n, rB - r), taken from the row. At the
//    rectangle's top row (re = rB here) the window keeps only columns 0..1 around column 1:
//    five 100s, so 120 is replaced (inclusive test, 120 >= 100 x 1.2), whereas its full window
//    (mean 115, with the 140s of column 2) keeps it, in the interior and the left band alike.
//  - Lower band at the image's bottom row: the window is cut at row rA (5 samples, odd: the
//    middle one). The first replacement sorts ({10 30 | 20 40 50} -> 30); later ones in the same
//    call take gathering element 2 unsorted: at column 5, its upper-left neighbour (25).
//  - Deliberate asymmetry of the interior bounds: a row end exactly n rows below the last row is
//    pulled in (re = rB - n, so buffer row 3 is upper band, its window cut at rB: five 100s, and
//    120 is replaced), a column end exactly n columns from the last column is not (column 3
//    stays interior, with the 200s of column 4 in its window: 60 is replaced by 100).
//  - A lower band window at the bottom row with radius 2 holds 3 x 5 - 1 = 14 samples, an even
//    count: the lower of the two middle values is written (sorted 91 .. 104: 97, not 98).
TEST(Median, BandAndInteriorBounds)
{
    struct Change { long x, r; int v; };
    const struct {
        long w, h;
        int fill;
        std::vector<std::vector<int>> rows; // buffer row, first column, levels
        CRect rc;
        double tol;
        unsigned short n;
        std::vector<Change> checks;
    } cases[] = {
        {10, 9, 50, {{4, 2, 250}, {3, 3, 250}}, CRect(1, 0, 9, 8), 0.2, 2, {{2, 4, 250}, {3, 3, 50}}},
        {6, 6, 100, {{0, 2, 140, 140, 140, 140}, {1, 2, 140, 140, 140, 140}, {2, 2, 140, 140, 140, 140},
                     {3, 1, 120, 140, 140, 140, 140}, {4, 2, 140, 140, 140, 140}, {5, 2, 140, 140, 140, 140}},
         CRect(0, 2, 5, 5), 0.2, 1, {{1, 3, 100}}},
        {7, 4, 30, {{0, 0, 10, 200, 30, 30, 30, 200, 30}, {1, 0, 20, 40, 50, 30, 25, 35, 45}}, CRect(0, 3, 6, 3), 0.2, 1,
         {{1, 0, 30}, {5, 0, 25}}},
        {5, 5, 100, {{4, 0, 200, 200, 200, 200, 200}, {3, 2, 120}}, CRect(0, 1, 4, 4), 0.2, 1, {{2, 3, 100}}},
        {5, 5, 100, {{0, 4, 200}, {1, 4, 200}, {2, 3, 60, 200}, {3, 4, 200}, {4, 4, 200}}, CRect(0, 0, 3, 4), 0.2, 1,
         {{3, 2, 100}}},
        {7, 6, 100, {{0, 1, 91, 92, 250, 93, 94}, {1, 1, 95, 96, 97, 98, 99}, {2, 1, 100, 101, 102, 103, 104}},
         CRect(0, 0, 6, 5), 0.5, 2, {{3, 0, 97}}},
    };
    for (const auto &c : cases) {
        Buf b(c.w, c.h, 8);
        b.fill(c.fill);
        for (const auto &row : c.rows)
            for (std::size_t i = 2; i < row.size(); ++i)
                b.set(row[1] + static_cast<long>(i) - 2, row[0], row[i]);
        ASSERT_TRUE(median(b, c.rc, c.tol, c.n));
        for (const Change &k : c.checks)
            EXPECT_EQ(b.get(k.x, k.r), k.v) << "case " << &c - cases << " at " << k.x << "," << k.r;
    }
}

TEST(Median, TriBulleOptimiseSorts)
{
    unsigned char a[] = {5, 1, 4, 1, 255, 0}, c[] = {3, 2, 1};
    unsigned short s[] = {65535, 2, 300, 2};
    CTraitementImg_8_Bpp().TriBulleOptimise(a, 6);
    CTraitementImg_16_Bpp().TriBulleOptimise(s, 4);
    CTraitementImg_24_Bpp t24;
    t24.TriBulleOptimise(c, 0); // nothing to do
    EXPECT_EQ(std::vector<int>(c, c + 3), (std::vector<int>{3, 2, 1}));
    t24.TriBulleOptimise(c, 3);
    EXPECT_EQ(std::vector<int>(a, a + 6), (std::vector<int>{0, 1, 1, 4, 5, 255}));
    EXPECT_EQ(std::vector<int>(s, s + 4), (std::vector<int>{2, 2, 300, 65535}));
    EXPECT_EQ(std::vector<int>(c, c + 3), (std::vector<int>{1, 2, 3}));
}

TEST(Median, AllocationFailureLeavesTheImage)
{
    for (int bpp : {8, 16, 24}) {
        Buf b(9, 9, bpp, 3);
        const auto before = b.rows();
        proc_test::FailAllocations fail;
        EXPECT_FALSE(median(b, CRect(0, 0, 8, 8), 0.0, 1)) << bpp;
        EXPECT_EQ(b.rows(), before) << bpp;
    }
}

// The fast interior (running integer sums, only the call's first replacement gathered and
// sorted, rows in strips on one thread or three, every vector level) against the plain one, at
// zero tolerance on the bytes: random images with smooth and noisy parts, every depth (the 24-bit half window
// included), odd widths, 1-pixel images, radii up to the limit of exact sums at 16 bits,
// rectangles touching each edge, partly or wholly outside, inverted, and FiltreMedianSimple
// in place (`out` = `bits`) every fifth case. Whole buffers compared, padding included;
// neither path writes past the pixels of a row or the buffer.
TEST(Median, FastInteriorMatchesPlain)
{
    std::mt19937 rng(777);
    auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
    for (int iter = 0; iter < 600; ++iter) {
        const int bpp = 8 * (1 + iter % 3);
        const int w = iter < 9 ? 1 + iter % 3 : pick(1, 41), h = iter < 9 ? 1 + iter / 3 : pick(1, 29);
        const unsigned short n = static_cast<unsigned short>(pick(0, bpp == 16 ? 7 : 5));
        const double tol = pick(0, 4) * 0.03;
        CRect rc(0, 0, w - 1, h - 1);
        if (iter % 4 == 1)
            rc = CRect(pick(-5, 2), pick(-5, 2), pick(w - 3, w + 5), pick(h - 3, h + 5));
        else if (iter % 4 >= 2)
            rc = CRect(pick(-3, w), pick(-3, h), pick(-3, w + 3), pick(-3, h + 3));
        Buf a(w, h, bpp, static_cast<uint32_t>(iter));
        // Smooth rows in half the images, so that few centres are replaced there; flat ones with
        // rare outliers in a sixth, so that some calls replace nothing in the interior and their
        // first replacement falls in a band.
        const int rare = iter % 6 == 4 ? 60 : 20;
        for (int r = 0; r < h && (iter % 2 || iter % 6 == 4); ++r)
            for (int i = 0; i < w * bpp / 8; ++i)
                a.bits()[r * a.pitch + i] =
                    static_cast<uint8_t>(100 + (rare == 20 ? (i + r) % 7 : 0) + (pick(0, rare) == 0 ? 90 : 0));
        Buf b = a;
        auto filter = [&](Buf &x) {
            if (iter % 5 != 4)
                return median(x, rc, tol, n);
            return on_depth(x.bpp, [&](auto &t) { return t.FiltreMedianSimple(x.w, x.h, x.bits(), x.bits(), rc, tol, n); });
        };
        const auto [ok_plain, ok_fast] =
            proc_test::plain_and_fast([&](bool fast) { return filter(fast ? b : a); }, iter % 2 ? 3 : 1);
        ASSERT_TRUE(ok_plain && ok_fast);
        ASSERT_TRUE(a.intact() && b.intact()) << iter;
        ASSERT_EQ(proc_test::first_difference(a, b), "")
            << "iter " << iter << " (" << bpp << " bits, " << w << "x" << h << ", n " << n << ")";
    }
}

// The 8-bit interiors decide most centres in single precision and leave to the rule's own
// double-precision test only those within a hair of a threshold. Every window sum of radius 1
// and 2 (8 bits) and of the 24-bit half window, each with the centres around both of its
// thresholds, one window a block of the image, on tolerances whose thresholds fall exactly
// on whole values (0, 0.2, 0.25, 0.5), near them (0.015, 1/3), negative, at the end of the
// screened range (7) and past it (7.5): the fast path gives the plain path's bytes, with
// every vector level (the float screen and the 16-bit fixed-point one).
TEST(Median, ScreenedDecisionsMatchTheRuleAtEveryThreshold)
{
    struct Form {
        int bpp, n;
    };
    for (const Form f : {Form{8, 1}, Form{8, 2}, Form{24, 1}}) {
        const bool half = f.bpp == 24;
        const int side = 2 * f.n + 1;
        const int count = half ? 4 : side * side - 1; // neighbours summed
        const int divisor = half ? 8 : count;         // the full window's count divides
        for (const double tol : {0.0, 0.2, 0.25, 0.5, 0.015, 1.0 / 3.0, -0.3, 7.0, 7.5}) {
            // (centre, sum) pairs: every sum, each centre within 1.5 of either threshold.
            std::vector<std::pair<int, int>> cases;
            for (int s = 0; s <= count * 255; ++s)
                for (int c = 0; c <= 255; ++c) {
                    const double mean = static_cast<double>(s) / divisor;
                    if (std::fabs(c - mean * (1 + tol)) <= 1.5 || std::fabs(c - mean * (1 - tol)) <= 1.5)
                        cases.emplace_back(c, s);
                }
            const long blocks = static_cast<long>(cases.size() + 2) / 3; // three channels a pixel at 24 bits
            const long per_block = half ? blocks : static_cast<long>(cases.size());
            Buf a(side * per_block, side, f.bpp);
            a.fill(0);
            for (std::size_t i = 0; i < cases.size(); ++i) {
                const auto [c, s] = cases[i];
                const long x0 = side * static_cast<long>(half ? i / 3 : i);
                const int ch = half ? static_cast<int>(i % 3) : 0;
                a.set(x0 + f.n, f.n, c, ch);
                int left = s;
                for (int k = 0; k < count; ++k) { // the sum spread over the window's neighbours
                    const int v = std::min(255, left);
                    left -= v;
                    if (half) // the row above the centre, then its right neighbour
                        a.set(k < 3 ? x0 + k : x0 + 2, k < 3 ? 2 : 1, v, ch);
                    else {
                        const int cell = k < count / 2 ? k : k + 1; // the centre's cell skipped
                        a.set(x0 + cell % side, cell / side, v, ch);
                    }
                }
            }
            // Into separate outputs, so that every window reads the samples set above; three
            // calls, so that each vector level takes every case.
            for (int call = 0; call < 3; ++call) {
                Buf plain = a, fast = a;
                CRect rc(0, 0, a.w - 1, a.h - 1);
                const auto [ok_plain, ok_fast] = proc_test::plain_and_fast([&](bool is_fast) {
                    Buf &out = is_fast ? fast : plain;
                    return on_depth(a.bpp, [&](auto &t) {
                        return t.FiltreMedianSimple(a.w, a.h, a.bits(), out.bits(), rc, tol, static_cast<unsigned short>(f.n));
                    });
                });
                ASSERT_TRUE(ok_plain && ok_fast);
                ASSERT_EQ(proc_test::first_difference(plain, fast), "") << f.bpp << " bits, n " << f.n << ", tolerance " << tol;
            }
        }
    }
}
