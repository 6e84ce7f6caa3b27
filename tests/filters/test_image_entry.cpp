// The image entry: conversion, working zone, clipping per depth.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "kevra/dib.h"
#include "kevra/filtre.h"

#include "support/kevra_test.h"

namespace kevra {
namespace {

void fill_random(CDib & dib, uint32_t seed)
{
    std::mt19937 rng(seed);
    const int used = static_cast<int>((dib.Width() * dib.BitCount() + 7) / 8);
    for (long r = 0; r < dib.Height(); ++r)
        for (int i = 0; i < used; ++i)
            dib.GetBits()[r * dib.Pitch() + i] = static_cast<uint8_t>(rng());
}

std::vector<uint8_t> pixels(CDib & dib)
{
    return std::vector<uint8_t>(dib.GetBits(), dib.GetBits() + dib.SizeImage());
}

uint16_t & grey16(CDib & dib, int x, int row)
{
    return reinterpret_cast<uint16_t *>(dib.GetBits() + row * dib.Pitch())[x];
}

TEST(FiltreImage, LaplacianWithOffset128MakesAFlatImage128)
{
    CDib dib(9, 5, 8);
    std::memset(dib.GetBits(), 77, dib.SizeImage());
    CFiltre lap(CFiltre::Filtre_Laplacien, 3, 0.0f);
    ASSERT_TRUE(lap.FiltrerAvecOffsetFacteur(&dib, 128.0f, 1.0f));
    for (long r = 0; r < 5; ++r)
        for (int x = 0; x < 9; ++x)
            ASSERT_EQ(dib.GetBits()[r * dib.Pitch() + x], 128) << x << "," << r;
    EXPECT_EQ(lap.GetBpp(), 8);
}

TEST(FiltreImage, GaussianIgnoresOffsetAndFactor)
{
    for (int bpp : {8, 16, 24}) {
        CDib a(13, 8, bpp), b(13, 8, bpp);
        fill_random(a, 5);
        fill_random(b, 5);
        a.SetZoneTravail(CRect(2, 1, 11, 6));
        b.SetZoneTravail(CRect(2, 1, 11, 6));
        CFiltre f(CFiltre::Filtre_Gaussien, 5, 1.0f), g(CFiltre::Filtre_Gaussien, 5, 1.0f);
        ASSERT_TRUE(f.Filtrer(&a));
        ASSERT_TRUE(g.FiltrerAvecOffsetFacteur(&b, 50.0f, 2.0f));
        EXPECT_EQ(pixels(a), pixels(b)) << bpp;
    }
}

// Results are clipped to the depth's range: 0..255, but 0..65535 at 16 bits.
TEST(FiltreImage, ClippingFollowsTheDepth)
{
    CDib grey(5, 5, 8);
    std::memset(grey.GetBits(), 20, grey.SizeImage());
    grey.GetBits()[2 * grey.Pitch() + 2] = 40;
    CFiltre lap(CFiltre::Filtre_Laplacien, 3, 0.0f);
    ASSERT_TRUE(lap.Filtrer(&grey));
    EXPECT_EQ(grey.GetBits()[2 * grey.Pitch() + 2], 160); // 8 * 20
    EXPECT_EQ(grey.GetBits()[2 * grey.Pitch() + 1], 0);   // -20 clipped
    EXPECT_EQ(grey.GetBits()[0], 0);

    CDib deep(5, 5, 16);
    for (int r = 0; r < 5; ++r)
        for (int x = 0; x < 5; ++x)
            grey16(deep, x, r) = 1000;
    grey16(deep, 2, 2) = 1100;
    ASSERT_TRUE(lap.Filtrer(&deep));
    EXPECT_EQ(grey16(deep, 2, 2), 800); // above 255, kept at 16 bits
    EXPECT_EQ(grey16(deep, 2, 1), 0);
    EXPECT_EQ(lap.GetBpp(), 16);
}

// The zone's pixels read their real neighbours beyond the zone; only the
// zone changes.
TEST(FiltreImage, OnlyTheWorkingZoneChanges)
{
    CDib dib(10, 9, 24);
    fill_random(dib, 6);
    const std::vector<uint8_t> before = pixels(dib);
    dib.SetZoneTravail(CRect(3, 2, 6, 5)); // buffer rows 3..6
    CFiltre f(CFiltre::Filtre_Moyenne, 3, 0.0f);
    ASSERT_TRUE(f.Filtrer(&dib));
    const float k = f.Donne_TabFiltreX()[0];
    auto src = [&](int x, int r, int c) { return static_cast<float>(before[r * dib.Pitch() + 3 * x + c]); };
    for (int r = 0; r < 9; ++r)
        for (int x = 0; x < 10; ++x)
            for (int c = 0; c < 3; ++c) {
                const uint8_t got = dib.GetBits()[r * dib.Pitch() + 3 * x + c];
                if (x < 3 || x > 6 || r < 3 || r > 6) {
                    ASSERT_EQ(got, before[r * dib.Pitch() + 3 * x + c]);
                    continue;
                }
                auto across = [&](int row) { return k * src(x, row, c) + k * (src(x - 1, row, c) + src(x + 1, row, c)); };
                const float v = k * across(r) + k * (across(r - 1) + across(r + 1));
                ASSERT_EQ(got, static_cast<uint8_t>(v)) << x << "," << r << "," << c;
            }
}

TEST(FiltreImage, RefusalsLeaveTheImageUnchanged)
{
    CFiltre f(CFiltre::Filtre_Gaussien, 3, 1.0f);
    EXPECT_FALSE(f.Filtrer(nullptr));
    CDib empty;
    EXPECT_FALSE(f.Filtrer(&empty));

    CDib dib(6, 4, 16);
    fill_random(dib, 7);
    const std::vector<uint8_t> before = pixels(dib);
    {
        kevra_test::FailAllocations fail;
        EXPECT_FALSE(f.Filtrer(&dib));
    }
    CFiltre invalid;
    EXPECT_FALSE(invalid.Filtrer(&dib));
    EXPECT_EQ(pixels(dib), before);
}

} // namespace
} // namespace kevra
