// The image entry: conversion, working zone, clipping per depth.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "kevra/dib.h"
#include "kevra/filtre.h"

#include "support/kevra_test.h"

namespace kevra {
namespace {

using kevra_test::image_bytes;

CDib random_image(int w, int h, int bpp, uint32_t seed)
{
    CDib dib(w, h, bpp);
    image_bytes(dib, seed);
    return dib;
}

uint16_t &grey16(CDib &dib, int x, int row) { return reinterpret_cast<uint16_t *>(dib.GetBits() + row * dib.Pitch())[x]; }

// Results are clipped to the depth's range: 0..255, but 0..65535 at 16 bits. The filter takes
// the image's depth.
TEST(FiltreImage, LaplacianIsClippedToTheDepth)
{
    CDib grey(5, 5, 8), deep(5, 5, 16), flat(9, 5, 8);
    for (int r = 0; r < 5; ++r)
        for (int x = 0; x < 5; ++x) {
            grey.GetBits()[r * grey.Pitch() + x] = x == 2 && r == 2 ? 40 : 20;
            grey16(deep, x, r) = x == 2 && r == 2 ? 1100 : 1000;
        }
    CFiltre lap(CFiltre::Filtre_Laplacien, 3, 0.0f);
    ASSERT_TRUE(lap.Filtrer(&grey));
    EXPECT_EQ(grey.GetBits()[2 * grey.Pitch() + 2], 160); // 8 * 20
    EXPECT_EQ(grey.GetBits()[2 * grey.Pitch() + 1], 0);   // -20 clipped
    EXPECT_EQ(grey.GetBits()[0], 0);
    ASSERT_TRUE(lap.Filtrer(&deep));
    EXPECT_EQ(grey16(deep, 2, 2), 800); // above 255, kept at 16 bits
    EXPECT_EQ(grey16(deep, 2, 1), 0);
    EXPECT_EQ(lap.GetBpp(), 16);
    // A flat region with offset 128 and factor 1 becomes 128.
    std::memset(flat.GetBits(), 77, flat.SizeImage());
    ASSERT_TRUE(lap.FiltrerAvecOffsetFacteur(&flat, 128.0f, 1.0f));
    for (long r = 0; r < 5; ++r)
        for (int x = 0; x < 9; ++x)
            ASSERT_EQ(flat.GetBits()[r * flat.Pitch() + x], 128) << x << "," << r;
    EXPECT_EQ(lap.GetBpp(), 8);
}

// The separable engines ignore offset and factor.
TEST(FiltreImage, GaussianIgnoresOffsetAndFactor)
{
    for (int bpp : {8, 16, 24}) {
        CDib a = random_image(13, 8, bpp, 5), b = random_image(13, 8, bpp, 5);
        a.SetZoneTravail(CRect(2, 1, 11, 6));
        b.SetZoneTravail(CRect(2, 1, 11, 6));
        CFiltre f(CFiltre::Filtre_Gaussien, 5, 1.0f), g(CFiltre::Filtre_Gaussien, 5, 1.0f);
        ASSERT_TRUE(f.Filtrer(&a));
        ASSERT_TRUE(g.FiltrerAvecOffsetFacteur(&b, 50.0f, 2.0f));
        EXPECT_EQ(image_bytes(a), image_bytes(b)) << bpp;
    }
}

// The zone's pixels read their real neighbours beyond the zone (but for the top rule below);
// only the zone changes, each value truncated.
TEST(FiltreImage, OnlyTheWorkingZoneChanges)
{
    CDib dib = random_image(10, 9, 24, 6);
    const std::vector<uint8_t> before = image_bytes(dib);
    dib.SetZoneTravail(CRect(3, 1, 6, 5)); // buffer rows 3..7
    CFiltre f(CFiltre::Filtre_Moyenne, 3, 0.0f);
    ASSERT_TRUE(f.Filtrer(&dib));
    const float k = f.Donne_TabFiltreX()[0];
    auto src = [&](int x, int r, int c) { return static_cast<float>(before[r * dib.Pitch() + 3 * x + c]); };
    for (int r = 0; r < 9; ++r)
        for (int x = 0; x < 10; ++x)
            for (int c = 0; c < 3; ++c) {
                auto across = [&](int row) { return k * src(x, row, c) + k * (src(x - 1, row, c) + src(x + 1, row, c)); };
                // The zone's top lies nY rows below the image's top: its top row mirrors the row
                // above although it exists.
                const bool inside = x >= 3 && x <= 6 && r >= 3 && r <= 7;
                const int above = r == 7 ? 7 : r + 1;
                const int want = inside ? static_cast<uint8_t>(k * across(r) + k * (across(r - 1) + across(above))) : before[r * dib.Pitch() + 3 * x + c];
                ASSERT_EQ(dib.GetBits()[r * dib.Pitch() + 3 * x + c], want) << x << "," << r << "," << c;
            }
}

TEST(FiltreImage, RefusalsLeaveTheImageUnchanged)
{
    CFiltre f(CFiltre::Filtre_Gaussien, 3, 1.0f), invalid;
    CDib empty, dib = random_image(6, 4, 16, 7);
    const std::vector<uint8_t> before = image_bytes(dib);
    EXPECT_FALSE(f.Filtrer(nullptr) || f.Filtrer(&empty) || invalid.Filtrer(&dib));
    {
        kevra_test::FailAllocations fail;
        EXPECT_FALSE(f.Filtrer(&dib));
    }
    EXPECT_EQ(image_bytes(dib), before);
}

} // namespace
} // namespace kevra
