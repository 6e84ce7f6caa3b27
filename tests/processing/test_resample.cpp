// Resampling: bilinear values with truncation, the windowed-sinc reduction (kernel, clip,
// outer band), refusals, and the fast schedules against the plain ones.
#include <gtest/gtest.h>

#include "processing_test.h"

using namespace kevra;
using namespace proc_test;

namespace {

bool resample(Buf &src, Buf &dst, unsigned char mode, bool simple = false)
{
    return on_depth(src.bpp, [&](auto &t) {
        return simple ? t.ResampleSimple(src.w, src.h, src.bits(), dst.w, dst.h, dst.bits(), mode)
                      : t.Resample(src.w, src.h, src.bits(), dst.w, dst.h, dst.bits(), mode);
    });
}

std::vector<int> row(const Buf &b, long r)
{
    std::vector<int> v;
    for (long x = 0; x < b.w; ++x)
        for (int c = 0; c < b.channels(); ++c)
            v.push_back(b.get(x, r, c));
    return v;
}

} // namespace

TEST(Resample, EqualSizeCopiesEveryByte)
{
    for (unsigned char mode : {0, 1, 3}) {
        Buf src(5, 3, 24, 11), dst(5, 3, 24, 12);
        ASSERT_TRUE(resample(src, dst, mode));
        EXPECT_EQ(src.rows(), dst.rows()); // row padding included
    }
}

// Enlargements are bilinear whatever the mode, values truncated. 2 x 2 -> 4 x 4: source rows
// (bottom first) {10, 20} and {30, 41}; column 1 samples x = 0.5, column 3 samples x = 1.5 with
// x1 clamped to 1 (25.25 -> 25, 30.5 -> 30, 35.5 -> 35). Midpoints, each byte of a 24-bit pixel
// on its own: 10.5 -> 10, and at 24 bits 10.5, 127.5, 150 -> 10, 127, 150 (the shared kernel
// gives the 16-bit samples the same truncation).
TEST(Resample, EnlargementsAndMixedScalesAreBilinear)
{
    struct Case { int bpp; long w, h, w2, h2; std::vector<int> in, out; };
    const Case cases[] = {
        {8, 2, 2, 4, 4, {10, 20, 30, 41}, {10, 15, 20, 20, 20, 25, 30, 30, 30, 35, 41, 41, 30, 35, 41, 41}},
        {8, 2, 1, 4, 1, {10, 11}, {10, 10, 11, 11}},
        {24, 2, 1, 4, 1, {10, 0, 200, 11, 255, 100}, {10, 0, 200, 10, 127, 150, 11, 255, 100, 11, 255, 100}},
    };
    for (const Case &k : cases)
        for (unsigned char mode : {0, 1, 2})
            for (bool simple : {false, true}) {
                Buf src(k.w, k.h, k.bpp), dst(k.w2, k.h2, k.bpp);
                const int n = src.channels();
                for (std::size_t i = 0; i < k.in.size(); ++i)
                    src.set(static_cast<long>(i / n % k.w), static_cast<long>(i / n / k.w), k.in[i], static_cast<int>(i % n));
                ASSERT_TRUE(resample(src, dst, mode, simple));
                std::vector<int> got;
                for (long r = 0; r < k.h2; ++r)
                    for (int v : row(dst, r))
                        got.push_back(v);
                EXPECT_EQ(got, k.out) << k.bpp << " bits, mode " << int(mode) << (simple ? ", simple" : "");
                EXPECT_TRUE(dst.intact());
            }
    // A reduction across with an enlargement down is bilinear even with a mode.
    Buf src(9, 2, 8, 5), a(4, 5, 8), b(4, 5, 8);
    ASSERT_TRUE(resample(src, a, 0, true) && resample(src, b, 3, true));
    EXPECT_EQ(a.rows(), b.rows());
}

// Halving a 100-pixel row with mode 1: sx = 2, kx = 2, a 5-tap sinc kernel with
// h0 = 1 / (1 + 4/pi) = 0.43990, h1 = (2/pi) h0 = 0.28005, h2 = sin(pi)/pi h0 ~ 0, and
// bx = 2. The one row is filtered down by an identity (ky = 1, sinc of parameter 1).
TEST(Resample, HalvingARowWithTheSincKernel)
{
    Buf src(100, 1, 8), dst(50, 1, 8);
    src.fill(0);
    src.set(0, 0, 200);  // the left edge: the outer band repeats the edge sample
    src.set(50, 0, 200); // centre of output 25
    src.set(71, 0, 200); // between the centres of outputs 35 and 36
    ASSERT_TRUE(resample(src, dst, 1));
    std::vector<int> expected(50, 0);
    expected[0] = 143;  // 200 (h0 + h1): the tap left of column 0 reads column 0
    expected[25] = 87;  // 200 h0 = 87.98
    expected[35] = 56;  // 200 h1 = 56.01
    expected[36] = 56;
    EXPECT_EQ(row(dst, 0), expected);
    EXPECT_TRUE(dst.intact());
}

// Mode 2 on a step 0 | max has negative lobes: overshoots are clipped to the sample range
// before the truncating store (284.3 -> 255, -29.3 -> 0) rather than wrapped.
TEST(Resample, SincResultsAreClipped)
{
    for (int bpp : {8, 16}) {
        const int top = bpp == 8 ? 255 : 65535;
        Buf src(16, 1, bpp), dst(8, 1, bpp);
        for (long x = 0; x < 16; ++x)
            src.set(x, 0, x < 8 ? 0 : top);
        ASSERT_TRUE(resample(src, dst, 2));
        EXPECT_EQ(dst.get(3, 0), 0);
        EXPECT_EQ(dst.get(5, 0), top);
        if (bpp == 8) {
            EXPECT_EQ(dst.get(4, 0), 196); // 255 (h0 + h1 + h3) = 196.5
        }
    }
}

// Refusals; an image of another depth than the object's is deliberately not refused (it is
// resampled as bytes of the object's depth); the sinc path fails when it cannot allocate.
TEST(Resample, RefusalsAndAllocationFailure)
{
    Buf src(4, 4, 8), dst(2, 2, 8);
    CTraitementImg_8_Bpp t;
    EXPECT_FALSE(t.Resample(4, 4, nullptr, 2, 2, dst.bits(), 0) ||
                 t.Resample(4, 4, src.bits(), 2, 2, nullptr, 0) ||
                 t.Resample(0, 4, src.bits(), 2, 2, dst.bits(), 0) ||
                 t.Resample(4, 4, src.bits(), 2, 0, dst.bits(), 0) ||
                 t.ResampleSimple(4, 4, src.bits(), 0, 2, dst.bits(), 0));
    EXPECT_TRUE(dst.intact());
    CDibRoot a(CSize(8, 8), 8), b(CSize(4, 4), 8), empty, c24(CSize(4, 2), 24), d24(CSize(8, 2), 24);
    EXPECT_FALSE(t.Resample(nullptr, nullptr, 0) || t.Resample(&a, nullptr, 0) ||
                 t.Resample(&a, &empty, 1));
    EXPECT_TRUE(t.Resample(&a, &b, 1));
    EXPECT_TRUE(t.Resample(&c24, &d24, 0));

    Buf s16(40, 30, 16, 2), d16(20, 15, 16, 3);
    FailAllocations fail;
    EXPECT_FALSE(resample(s16, d16, 1));
    EXPECT_TRUE(d16.intact());
}

// The fast schedules (sinc rows in a ring, bilinear spread source rows, strips on threads, every vector level) against the
// plain walks at zero tolerance: every depth, 1-pixel sources and destinations, odd widths,
// reductions, enlargements and mixed scales, modes 0 to 4, one thread and three. Neither path
// writes past the destination's pixels or touches the source.
TEST(Resample, FastGivesThePlainBytes)
{
    std::mt19937 rng(5150);
    auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
    for (int iter = 0; iter < 400; ++iter) {
        const int bpp = 8 * (1 + iter % 3);
        const long w = iter < 6 ? 1 : pick(1, 50), h = iter < 9 ? 1 : pick(1, 40);
        // Every fifth case doubles the width exactly (the enlargement's copying spread).
        const long w2 = iter % 5 == 0 ? 2 * w : pick(1, iter % 2 ? 60 : static_cast<int>(w));
        const long h2 = pick(1, iter % 3 ? 50 : static_cast<int>(h));
        const auto mode = static_cast<unsigned char>(pick(0, 4));
        Buf src(w, h, bpp, static_cast<uint32_t>(iter + 3)), plain(w2, h2, bpp, 9), fast(w2, h2, bpp, 9);
        const auto source = src.rows();
        const auto [ok_plain, ok_fast] =
            plain_and_fast([&](bool f) { return resample(src, f ? fast : plain, mode); }, iter % 2 ? 3 : 1);
        ASSERT_EQ(ok_plain, ok_fast) << iter;
        ASSERT_EQ(first_difference(plain, fast), "")
            << "iteration " << iter << ": " << w << "x" << h << " to " << w2 << "x" << h2 << " mode " << int(mode) << " at " << bpp;
        ASSERT_TRUE(fast.intact() && plain.intact() && src.intact() && src.rows() == source) << iter;
    }
}
