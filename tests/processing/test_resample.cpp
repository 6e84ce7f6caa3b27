// Resampling: bilinear values with truncation, the windowed-sinc reduction (kernel, clip,
// outer band), refusals, and buffer safety.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "kevra/dib.h"
#include "kevra/traitement.h"
#include "support/kevra_test.h"

using namespace kevra;
using kevra_test::FailAllocations;
using kevra_test::GuardedBuffer;

namespace {

std::vector<uint8_t> row_pixels(GuardedBuffer &b, int r, int count)
{
    return std::vector<uint8_t>(b.bits() + r * b.pitch(), b.bits() + r * b.pitch() + count);
}

} // namespace

TEST(Resample, EqualSizeCopiesEveryByte)
{
    for (unsigned char mode : {0, 1, 3}) {
        GuardedBuffer src(5, 3, 24, 11), dst(5, 3, 24, 12);
        CTraitementImg_24_Bpp t;
        ASSERT_TRUE(t.Resample(5, 3, src.bits(), 5, 3, dst.bits(), mode));
        EXPECT_EQ(src.bytes(), dst.bytes()); // row padding included
    }
}

// 2 x 2 -> 4 x 4 is bilinear whatever the mode. Source rows (bottom first) {10, 20} and
// {30, 41}; column 1 samples x = 0.5, column 3 samples x = 1.5 with x1 clamped to 1; values
// are truncated (25.25 -> 25, 30.5 -> 30, 35.5 -> 35).
TEST(Resample, BilinearTwoByTwoToFourByFour)
{
    const std::vector<std::vector<int>> expected = {
        {10, 15, 20, 20}, {20, 25, 30, 30}, {30, 35, 41, 41}, {30, 35, 41, 41}};
    for (unsigned char mode : {0, 2}) {
        GuardedBuffer src(2, 2, 8), dst(4, 4, 8);
        src.bits()[0] = 10;
        src.bits()[1] = 20;
        src.bits()[src.pitch()] = 30;
        src.bits()[src.pitch() + 1] = 41;
        CTraitementImg_8_Bpp t;
        ASSERT_TRUE(t.ResampleSimple(2, 2, src.bits(), 4, 4, dst.bits(), mode));
        for (int r = 0; r < 4; ++r)
            for (int x = 0; x < 4; ++x)
                EXPECT_EQ(dst.bits()[r * dst.pitch() + x], expected[r][x]) << x << "," << r;
        EXPECT_TRUE(dst.intact());
    }
}

TEST(Resample, BilinearTruncatesMidpoint)
{
    GuardedBuffer s8(2, 1, 8), d8(4, 1, 8), s16(2, 1, 16), d16(4, 1, 16), s24(2, 1, 24), d24(4, 1, 24);
    s8.bits()[0] = 10;
    s8.bits()[1] = 11;
    reinterpret_cast<uint16_t *>(s16.bits())[0] = 1000;
    reinterpret_cast<uint16_t *>(s16.bits())[1] = 1001;
    const uint8_t px[6] = {10, 0, 200, 11, 255, 100};
    std::copy(px, px + 6, s24.bits());
    CTraitementImg_8_Bpp t8;
    CTraitementImg_16_Bpp t16;
    CTraitementImg_24_Bpp t24;
    ASSERT_TRUE(t8.Resample(2, 1, s8.bits(), 4, 1, d8.bits(), 1));
    ASSERT_TRUE(t16.Resample(2, 1, s16.bits(), 4, 1, d16.bits(), 1));
    ASSERT_TRUE(t24.Resample(2, 1, s24.bits(), 4, 1, d24.bits(), 1));
    EXPECT_EQ(row_pixels(d8, 0, 4), (std::vector<uint8_t>{10, 10, 11, 11}));
    EXPECT_EQ(reinterpret_cast<uint16_t *>(d16.bits())[1], 1000);
    // Each byte of a 24-bit pixel on its own: midpoints 10.5, 127.5, 150.
    EXPECT_EQ(row_pixels(d24, 0, 6), (std::vector<uint8_t>{10, 0, 200, 10, 127, 150}));
}

// A reduction across with an enlargement down is bilinear even with a mode.
TEST(Resample, MixedScalesAreBilinear)
{
    GuardedBuffer src(9, 2, 8, 5), a(4, 5, 8), b(4, 5, 8);
    CTraitementImg_8_Bpp t;
    ASSERT_TRUE(t.ResampleSimple(9, 2, src.bits(), 4, 5, a.bits(), 0));
    ASSERT_TRUE(t.ResampleSimple(9, 2, src.bits(), 4, 5, b.bits(), 3));
    EXPECT_EQ(a.bytes(), b.bytes());
}

// Halving a 100-pixel row with mode 1: sx = 2, kx = 2, a 5-tap sinc kernel with
// h0 = 1 / (1 + 4/pi) = 0.43990, h1 = (2/pi) h0 = 0.28005, h2 = sin(pi)/pi h0 ~ 0, and
// bx = 2. The one row is filtered down by an identity (ky = 1, sinc of parameter 1).
TEST(Resample, HalvingARowWithTheSincKernel)
{
    GuardedBuffer src(100, 1, 8), dst(50, 1, 8);
    std::fill(src.bits(), src.bits() + 100, 0);
    src.bits()[0] = 200;  // the left edge: the outer band repeats the edge sample
    src.bits()[50] = 200; // centre of output 25
    src.bits()[71] = 200; // between the centres of outputs 35 and 36
    CTraitementImg_8_Bpp t;
    ASSERT_TRUE(t.Resample(100, 1, src.bits(), 50, 1, dst.bits(), 1));
    std::vector<uint8_t> expected(50, 0);
    expected[0] = 143;  // 200 (h0 + h1): the tap left of column 0 reads column 0
    expected[25] = 87;  // 200 h0 = 87.98
    expected[35] = 56;  // 200 h1 = 56.01
    expected[36] = 56;
    EXPECT_EQ(row_pixels(dst, 0, 50), expected);
    EXPECT_TRUE(dst.intact());
}

// Mode 2 on a step 0 | 255 has negative lobes: overshoots are clipped to the sample range
// before the truncating store (284.3 -> 255, -29.3 -> 0) rather than wrapped.
TEST(Resample, SincResultsAreClipped)
{
    GuardedBuffer src(16, 1, 8), dst(8, 1, 8);
    for (int x = 0; x < 16; ++x)
        src.bits()[x] = x < 8 ? 0 : 255;
    CTraitementImg_8_Bpp t;
    ASSERT_TRUE(t.Resample(16, 1, src.bits(), 8, 1, dst.bits(), 2));
    EXPECT_EQ(dst.bits()[3], 0);
    EXPECT_EQ(dst.bits()[4], 196); // 255 (h0 + h1 + h3) = 196.5
    EXPECT_EQ(dst.bits()[5], 255);

    GuardedBuffer s16(16, 1, 16), d16(8, 1, 16);
    uint16_t *p = reinterpret_cast<uint16_t *>(s16.bits());
    for (int x = 0; x < 16; ++x)
        p[x] = x < 8 ? 0 : 65535;
    CTraitementImg_16_Bpp t16;
    ASSERT_TRUE(t16.Resample(16, 1, s16.bits(), 8, 1, d16.bits(), 2));
    const uint16_t *q = reinterpret_cast<const uint16_t *>(d16.bits());
    EXPECT_EQ(q[3], 0);
    EXPECT_EQ(q[5], 65535);
}

TEST(Resample, Refusals)
{
    GuardedBuffer src(4, 4, 8), dst(2, 2, 8);
    CTraitementImg_8_Bpp t;
    EXPECT_FALSE(t.Resample(4, 4, nullptr, 2, 2, dst.bits(), 0));
    EXPECT_FALSE(t.Resample(4, 4, src.bits(), 2, 2, nullptr, 0));
    EXPECT_FALSE(t.Resample(0, 4, src.bits(), 2, 2, dst.bits(), 0));
    EXPECT_FALSE(t.Resample(4, 4, src.bits(), 2, 0, dst.bits(), 0));
    EXPECT_FALSE(t.ResampleSimple(4, 4, src.bits(), 0, 2, dst.bits(), 0));
    EXPECT_TRUE(dst.intact());

    EXPECT_FALSE(t.Resample(nullptr, nullptr, 0));
    CDibRoot a(CSize(8, 8), 8), b(CSize(4, 4), 8), empty;
    EXPECT_FALSE(t.Resample(&a, nullptr, 0));
    EXPECT_TRUE(t.Resample(&a, &b, 1));
    EXPECT_FALSE(t.Resample(&a, &empty, 1));
}

// An image of another depth than the object's is resampled as bytes of the object's depth.
TEST(Resample, ImageOfAnotherDepthIsNotRefused)
{
    CDibRoot a(CSize(4, 2), 24), b(CSize(8, 2), 24);
    CTraitementImg_8_Bpp t;
    EXPECT_TRUE(t.Resample(&a, &b, 0));
}

TEST(Resample, SincAllocationFailure)
{
    GuardedBuffer src(40, 30, 16, 2), dst(20, 15, 16, 3);
    CTraitementImg_16_Bpp t;
    FailAllocations fail;
    EXPECT_FALSE(t.Resample(40, 30, src.bits(), 20, 15, dst.bits(), 1));
    EXPECT_TRUE(dst.intact());
}

// Random sizes (1 pixel, odd widths, strong reductions and enlargements) at every depth and
// mode: the destination's padding and guard zone stay intact, the source is not touched.
TEST(Resample, RandomSizesStayInsideTheBuffers)
{
    std::mt19937 rng(99);
    auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
    CTraitementImg_8_Bpp t8;
    CTraitementImg_16_Bpp t16;
    CTraitementImg_24_Bpp t24;
    for (int iter = 0; iter < 300; ++iter) {
        const int bpp = iter % 3 == 0 ? 8 : (iter % 3 == 1 ? 16 : 24);
        const int w = pick(1, 40), h = pick(1, 30), w2 = pick(1, 40), h2 = pick(1, 30);
        const unsigned char mode = static_cast<unsigned char>(pick(0, 4));
        GuardedBuffer src(w, h, bpp, static_cast<uint32_t>(iter)), dst(w2, h2, bpp, 7);
        const std::vector<uint8_t> before = src.bytes();
        bool ok = false;
        if (bpp == 8)
            ok = t8.Resample(w, h, src.bits(), w2, h2, dst.bits(), mode);
        else if (bpp == 16)
            ok = t16.Resample(w, h, src.bits(), w2, h2, dst.bits(), mode);
        else
            ok = t24.Resample(w, h, src.bits(), w2, h2, dst.bits(), mode);
        ASSERT_TRUE(ok) << iter;
        ASSERT_TRUE(dst.intact()) << iter;
        ASSERT_EQ(src.bytes(), before) << iter;
    }
}
