// Unsharp masking: parameter checks, the +-0.5 rule, the disc copy-back rows, failures and
// buffer safety.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "kevra/dib.h"
#include "kevra/traitement.h"
#include "support/kevra_test.h"

using namespace kevra;
using kevra_test::FailAllocations;
using kevra_test::GuardedBuffer;

namespace {

void fill8(GuardedBuffer &b, int w, int h, uint8_t v)
{
    for (int r = 0; r < h; ++r)
        for (int x = 0; x < w; ++x)
            b.bits()[r * b.pitch() + x] = v;
}

} // namespace

TEST(Unsharp, ParameterRefusals)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    struct P {
        float rayon, gainP, gainN, SeuilP, SeuilN;
    };
    const P bad[] = {
        {0.9f, 1, 1, 0, 0},  // truncates to 0
        {-2.0f, 1, 1, 0, 0}, // not a count
        {2, 0, 0, 0, 0},     // no gain at all
        {2, -1, 2, 0, 0},   {2, 2, -1, 0, 0}, {2, 1, 1, -1, 0},
        {2, 1, 0, 0, -1},    // negative SeuilN even with gainN 0
        {nan, 1, 1, 0, 0},  {2, nan, 1, 0, 0}, {2, 1, nan, 0, 0}, {2, 1, 1, nan, 0},
        {2, 1, 1, 0, nan},
    };
    GuardedBuffer b(9, 9, 16, 4);
    const std::vector<uint8_t> before = b.bytes();
    CTraitementImg_16_Bpp t;
    CRect rc(0, 0, 8, 8);
    CPoint centre(4, 4);
    for (const P &p : bad) {
        EXPECT_FALSE(t.UnsharpMasking(9, 9, b.bits(), rc, p.rayon, p.gainP, p.gainN, p.SeuilP, p.SeuilN));
        EXPECT_FALSE(t.UnsharpMasking(9, 9, b.bits(), centre, 3, p.rayon, p.gainP, p.gainN, p.SeuilP,
                                      p.SeuilN));
    }
    EXPECT_EQ(b.bytes(), before);
}

// Radius 1 on a flat image over the whole image: the Gaussian keeps it flat, the ramp (weights
// 0, 1/2) gives back exactly the same plane, so the detail is exactly 0 and becomes -0.5:
// every pixel loses one grey level after truncation, whatever the gains and thresholds; 0
// stays 0 through the clip.
TEST(Unsharp, ZeroDetailStillMovesHalfAStep)
{
    for (float seuil : {0.0f, 1e30f}) {
        GuardedBuffer b8(7, 6, 8), z8(7, 6, 8), b16(7, 6, 16);
        fill8(b8, 7, 6, 100);
        fill8(z8, 7, 6, 0);
        for (int r = 0; r < 6; ++r)
            for (int x = 0; x < 7; ++x)
                reinterpret_cast<uint16_t *>(b16.bits() + r * b16.pitch())[x] = 1000;
        CRect rc(0, 0, 6, 5);
        CTraitementImg_8_Bpp t8;
        CTraitementImg_16_Bpp t16;
        ASSERT_TRUE(t8.UnsharpMasking(7, 6, b8.bits(), rc, 1.5f, 3.0f, 2.0f, seuil, seuil));
        ASSERT_TRUE(t8.UnsharpMasking(7, 6, z8.bits(), rc, 1.0f, 3.0f, 2.0f, seuil, seuil));
        ASSERT_TRUE(t16.UnsharpMasking(7, 6, b16.bits(), rc, 1.0f, 3.0f, 2.0f, seuil, seuil));
        for (int r = 0; r < 6; ++r)
            for (int x = 0; x < 7; ++x) {
                EXPECT_EQ(b8.bits()[r * b8.pitch() + x], 99);
                EXPECT_EQ(z8.bits()[r * z8.pitch() + x], 0);
                EXPECT_EQ(reinterpret_cast<uint16_t *>(b16.bits() + r * b16.pitch())[x], 999);
            }
        EXPECT_TRUE(b8.intact() && z8.intact() && b16.intact());
    }
}

// With thresholds no detail reaches, the gains never apply: each rectangle sample is its own
// value + 0.5 (kept after truncation) or - 0.5 (one level lower, 0 clipped at 0). Pixels
// outside the rectangle never change. Low thresholds with a large gain do change the image.
TEST(Unsharp, HugeThresholdsLeaveOnlyTheHalfStep)
{
    for (int bpp : {8, 24}) {
        GuardedBuffer b(23, 17, bpp, 21);
        const std::vector<uint8_t> before = b.bytes();
        CRect rc(3, 2, 15, 11);
        bool ok;
        if (bpp == 8) {
            CTraitementImg_8_Bpp t;
            ok = t.UnsharpMasking(23, 17, b.bits(), rc, 3.0f, 50.0f, 50.0f, 1e30f, 1e30f);
        } else {
            CTraitementImg_24_Bpp t;
            ok = t.UnsharpMasking(23, 17, b.bits(), rc, 3.0f, 50.0f, 50.0f, 1e30f, 1e30f);
        }
        ASSERT_TRUE(ok);
        const int bytes_per_pixel = bpp / 8;
        int lowered = 0;
        for (int r = 0; r < 17; ++r)
            for (int i = 0; i < 23 * bytes_per_pixel; ++i) {
                const int x = i / bytes_per_pixel;
                const bool inside = x >= 3 && x <= 15 && r >= 17 - 1 - 11 && r <= 17 - 1 - 2;
                const int v0 = before[r * b.pitch() + i], v1 = b.bits()[r * b.pitch() + i];
                if (!inside)
                    EXPECT_EQ(v1, v0);
                else if (v0 == 0)
                    EXPECT_EQ(v1, 0);
                else
                    EXPECT_TRUE(v1 == v0 || v1 == v0 - 1) << x << "," << r;
                lowered += v1 != v0;
            }
        EXPECT_GT(lowered, 0);
        EXPECT_TRUE(b.intact());
    }

    GuardedBuffer b(23, 17, 8, 21);
    const std::vector<uint8_t> before = b.bytes();
    CTraitementImg_8_Bpp t;
    CRect rc(3, 2, 15, 11);
    ASSERT_TRUE(t.UnsharpMasking(23, 17, b.bits(), rc, 3.0f, 50.0f, 50.0f, 0.0f, 0.0f));
    int big = 0;
    for (std::size_t i = 0; i < before.size(); ++i)
        big += std::abs(int(b.bytes()[i]) - int(before[i])) > 1;
    EXPECT_GT(big, 0);
}

// 5 x 5 flat image, disc of radius 2 centred on (2, 2): the whole image is the square, so the
// rectangle form lowers every pixel of the copy by one (zero detail, radius 1). The copy-back
// takes the centre's buffer row as height - centre.y = 3, not 2: buffer rows 1..4, half-widths
// from (row - 2) = -1, 0, 1, 2 -> 1, 2, 1, 0. Buffer row 0, which a disc on the true centre
// row would reach, keeps its pixel.
TEST(Unsharp, DiscCopyBackRowsAreOneRowOff)
{
    GuardedBuffer b(5, 5, 8);
    fill8(b, 5, 5, 100);
    CTraitementImg_8_Bpp t;
    CPoint centre(2, 2);
    ASSERT_TRUE(t.UnsharpMasking(5, 5, b.bits(), centre, 2, 1.0f, 1.0f, 1.0f, 0.0f, 0.0f));
    const std::vector<std::vector<int>> expected = {
        {100, 100, 100, 100, 100}, // buffer row 0
        {100, 99, 99, 99, 100},    {99, 99, 99, 99, 99}, {100, 99, 99, 99, 100},
        {100, 100, 99, 100, 100},  // buffer row 4 (picture row 0)
    };
    for (int r = 0; r < 5; ++r)
        for (int x = 0; x < 5; ++x)
            EXPECT_EQ(b.bits()[r * b.pitch() + x], expected[r][x]) << x << "," << r;
    EXPECT_TRUE(b.intact());
}

TEST(Unsharp, AllocationFailureLeavesImage)
{
    GuardedBuffer b(12, 10, 24, 8);
    const std::vector<uint8_t> before = b.bytes();
    CTraitementImg_24_Bpp t;
    CRect rc(0, 0, 11, 9);
    CPoint centre(5, 5);
    FailAllocations fail;
    EXPECT_FALSE(t.UnsharpMasking(12, 10, b.bits(), rc, 2.0f, 1.0f, 1.0f, 0.0f, 0.0f));
    EXPECT_FALSE(t.UnsharpMasking(12, 10, b.bits(), centre, 4, 2.0f, 1.0f, 1.0f, 0.0f, 0.0f));
    EXPECT_EQ(b.bytes(), before);
}

TEST(Unsharp, ImageForms)
{
    CTraitementImg_16_Bpp t;
    CPoint centre(3, 3);
    EXPECT_FALSE(t.UnsharpMasking(nullptr, 2.0f, 1.0f, 1.0f, 0.0f, 0.0f));
    EXPECT_FALSE(t.UnsharpMasking(nullptr, centre, 2, 2.0f, 1.0f, 1.0f, 0.0f, 0.0f));
    CDibRoot grey8(CSize(8, 8), 8), grey16(CSize(8, 8), 16);
    EXPECT_FALSE(t.UnsharpMasking(&grey8, 2.0f, 1.0f, 1.0f, 0.0f, 0.0f));
    EXPECT_FALSE(t.UnsharpMasking(&grey8, centre, 2, 2.0f, 1.0f, 1.0f, 0.0f, 0.0f));
    EXPECT_TRUE(t.UnsharpMasking(&grey16, 2.0f, 1.0f, 1.0f, 0.0f, 0.0f));
    EXPECT_TRUE(t.UnsharpMasking(&grey16, centre, 2, 2.0f, 1.0f, 1.0f, 0.0f, 0.0f));
}

// Random images of every depth, 1-pixel images, odd widths, rectangles partly outside or
// touching the edges, discs around and off the image: nothing outside the rectangle (or the
// disc's square) changes, padding and guard zone stay intact.
TEST(Unsharp, RandomGeometriesChangeOnlyTheirArea)
{
    std::mt19937 rng(2024);
    auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
    CTraitementImg_8_Bpp t8;
    CTraitementImg_16_Bpp t16;
    CTraitementImg_24_Bpp t24;
    for (int iter = 0; iter < 150; ++iter) {
        const int bpp = iter % 3 == 0 ? 8 : (iter % 3 == 1 ? 16 : 24);
        const int w = iter < 6 ? 1 : pick(1, 17), h = iter < 6 ? 1 : pick(1, 13);
        const float rayon = static_cast<float>(pick(1, 4)) + 0.5f;
        const bool disc = iter % 4 == 3;
        CRect rc(pick(-3, w + 1), pick(-3, h + 1), pick(-3, w + 3), pick(-3, h + 3));
        CPoint centre(pick(-2, w + 1), pick(-2, h + 1));
        const long R = pick(0, 5);
        if (disc) { // the square, each bound clamped into the image
            auto cl = [](long v, long hi) { return static_cast<int>(v < 0 ? 0 : (v > hi ? hi : v)); };
            rc = CRect(cl(centre.x - R, w - 1), cl(centre.y - R, h - 1), cl(centre.x + R, w - 1),
                       cl(centre.y + R, h - 1));
        }
        GuardedBuffer b(w, h, bpp, static_cast<uint32_t>(iter));
        const std::vector<uint8_t> before = b.bytes();
        bool ok = false;
        auto run = [&](auto &t) {
            return disc ? t.UnsharpMasking(w, h, b.bits(), centre, R, rayon, 1.5f, 0.5f, 2.0f, 1.0f)
                        : t.UnsharpMasking(w, h, b.bits(), rc, rayon, 1.5f, 0.5f, 2.0f, 1.0f);
        };
        ok = bpp == 8 ? run(t8) : (bpp == 16 ? run(t16) : run(t24));
        ASSERT_TRUE(ok) << iter;
        ASSERT_TRUE(b.intact()) << iter;
        const int bytes_per_pixel = bpp / 8;
        for (int r = 0; r < h; ++r)
            for (int i = 0; i < w * bytes_per_pixel; ++i) {
                const int x = i / bytes_per_pixel, y = h - 1 - r;
                const bool inside = x >= rc.left && x <= rc.right && y >= rc.top && y <= rc.bottom;
                if (!inside) {
                    ASSERT_EQ(b.bits()[r * b.pitch() + i], before[r * b.pitch() + i])
                        << "iter " << iter << " at " << x << "," << r;
                }
            }
    }
}
