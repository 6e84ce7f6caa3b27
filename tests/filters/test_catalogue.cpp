// Filter catalogue: kernels, creation rules, validity.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "kevra/filtre.h"
#include "kevra/platform.h"

#include "filters/filtre_probe.h"
#include "filters/plane.h"

namespace kevra {
namespace {

using test::FiltreProbe;

std::vector<float> half_table(float * t, int n)
{
    return std::vector<float>(t, t + n + 1);
}

TEST(FiltreCatalogue, RunTimeClassIsNamedCFiltreAndDerivesFromProcessingBase)
{
    CFiltre f;
    EXPECT_STREQ(f.GetRuntimeClass()->m_lpszClassName, "CFiltre");
    EXPECT_TRUE(f.IsKindOf(KEVRA_RUNTIME_CLASS(CTraitementImgBase)));
    EXPECT_EQ(f.GetBpp(), 24);
}

TEST(FiltreCatalogue, DefaultFilterIsInvalidWithNeutralOffsetAndFactor)
{
    FiltreProbe f;
    EXPECT_FALSE(f.IsOK());
    EXPECT_EQ(f.offset(), 0.0f);
    EXPECT_EQ(f.factor(), 1.0f);
    EXPECT_EQ(f.worker_table(), nullptr);
    EXPECT_EQ(f.Donne_TabFiltreX(), nullptr);
}

TEST(FiltreCatalogue, WorkerCountIsAtLeastTwo)
{
    auto old = platform::set_processor_count_handler([] { return 1u; });
    FiltreProbe one(CFiltre::Filtre_Moyenne, 3, 0.0f);
    platform::set_processor_count_handler([] { return 6u; });
    FiltreProbe six(CFiltre::Filtre_Moyenne, 3, 0.0f);
    platform::set_processor_count_handler(old);
    EXPECT_EQ(one.worker_count(), 2u);
    EXPECT_EQ(six.worker_count(), 6u);
    ASSERT_NE(six.worker_table(), nullptr);
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(six.worker_table()[i], nullptr);
}

TEST(FiltreCatalogue, MoyenneRampeAndParaboleOfSize5)
{
    const float sixth = 1.0f / 6.0f; // Rampe: raw 0, 1, 2, total 2*3 - 0 = 6
    const struct {
        CFiltre::e_Filtre kind;
        std::vector<float> table;
    } cases[] = {
        {CFiltre::Filtre_Moyenne, {0.2f, 0.2f, 0.2f}},
        {CFiltre::Filtre_Rampe, {0.0f, 1.0f * sixth, 2.0f * sixth}},
        {CFiltre::Filtre_Parabole, {0.0f, 0.0f, 0.5f}}, // only the outer taps weigh
    };
    for (const auto & c : cases) {
        FiltreProbe f(c.kind, 5, 0.0f);
        ASSERT_TRUE(f.IsOK()) << c.kind;
        EXPECT_TRUE(f.separable());
        EXPECT_EQ(f.nX(), 2);
        EXPECT_EQ(f.nY(), 2);
        EXPECT_EQ(half_table(f.Donne_TabFiltreX(), 2), c.table) << c.kind;
        EXPECT_EQ(half_table(f.Donne_TabFiltreY(), 2), c.table) << c.kind;
    }
}

TEST(FiltreCatalogue, GaussianOfSize3WithParameter1)
{
    FiltreProbe f(CFiltre::Filtre_Gaussien, 3, 1.0f);
    ASSERT_TRUE(f.IsOK());
    const float e = static_cast<float>(std::exp(-0.5));
    const float inv = 1.0f / (2 * (1.0f + e) - 1.0f);
    EXPECT_EQ(f.Donne_TabFiltreX()[0], 1.0f * inv);
    EXPECT_EQ(f.Donne_TabFiltreX()[1], e * inv);
    EXPECT_NEAR(f.Donne_TabFiltreX()[0], 0.4519f, 1e-4);
    EXPECT_NEAR(f.Donne_TabFiltreX()[1], 0.2741f, 1e-4);
}

TEST(FiltreCatalogue, SinusAndSinusCardinalOfSize5)
{
    FiltreProbe s(CFiltre::Filtre_Sinus, 5, 0.0f);
    ASSERT_TRUE(s.IsOK());
    // raw 0, sin(pi/4), 1: the centre weighs nothing.
    const float w1 = static_cast<float>(std::sin(3.141592653589793 / 4));
    const float inv = 1.0f / (2 * ((0.0f + w1) + 1.0f) - 0.0f);
    EXPECT_EQ(half_table(s.Donne_TabFiltreX(), 2), (std::vector<float>{0.0f, w1 * inv, 1.0f * inv}));

    FiltreProbe c(CFiltre::Filtre_SinusCardinal, 5, 2.0f);
    ASSERT_TRUE(c.IsOK());
    const double x1 = 3.141592653589793 / 2, x2 = 2 * 3.141592653589793 / 2;
    const float c1 = static_cast<float>(std::sin(x1) / x1), c2 = static_cast<float>(std::sin(x2) / x2);
    const float cinv = 1.0f / (2 * ((1.0f + c1) + c2) - 1.0f);
    EXPECT_EQ(half_table(c.Donne_TabFiltreX(), 2), (std::vector<float>{cinv, c1 * cinv, c2 * cinv}));
}

TEST(FiltreCatalogue, SizeOneKernels)
{
    for (auto kind : {CFiltre::Filtre_Moyenne, CFiltre::Filtre_Gaussien, CFiltre::Filtre_SinusCardinal}) {
        FiltreProbe f(kind, 1, 1.0f);
        ASSERT_TRUE(f.IsOK()) << kind;
        EXPECT_EQ(f.Donne_TabFiltreX()[0], 1.0f) << kind;
    }
    EXPECT_FALSE(CFiltre(CFiltre::Filtre_Rampe, 1, 1.0f).IsOK()); // total 0
    EXPECT_FALSE(CFiltre(CFiltre::Filtre_Parabole, 1, 1.0f).IsOK()); // refused, not divided by 0
    FiltreProbe sinus(CFiltre::Filtre_Sinus, 1, 1.0f); // 0/0: not a number, yet valid
    ASSERT_TRUE(sinus.IsOK());
    EXPECT_TRUE(std::isnan(sinus.Donne_TabFiltreX()[0]));
}

TEST(FiltreCatalogue, TwoSeparableKindsMayDiffer)
{
    FiltreProbe f(CFiltre::Filtre_Gaussien, 3, CFiltre::Filtre_Moyenne, 5, 1.0f, 0.0f);
    ASSERT_TRUE(f.IsOK());
    EXPECT_EQ(f.nX(), 1);
    EXPECT_EQ(f.nY(), 2);
    EXPECT_NEAR(f.Donne_TabFiltreX()[0], 0.4519f, 1e-4);
    EXPECT_EQ(half_table(f.Donne_TabFiltreY(), 2), (std::vector<float>{0.2f, 0.2f, 0.2f}));
}

TEST(FiltreCatalogue, FullKernelKindsAreAlways3x3)
{
    const struct {
        CFiltre::e_Filtre kind;
        std::vector<float> rows;
    } cases[] = {
        {CFiltre::Filtre_Laplacien, {-1, -1, -1, -1, 8, -1, -1, -1, -1}},
        {CFiltre::Filtre_GradientX, {-1, 0, 1, -1, 0, 1, -1, 0, 1}},
        {CFiltre::Filtre_GradientY, {-1, -1, -1, 0, 0, 0, 1, 1, 1}},
        {CFiltre::Filtre_GradientDiagonal, {-1, -1, 0, -1, 0, 1, 0, 1, 1}},
    };
    for (const auto & c : cases) {
        FiltreProbe f(c.kind, 7, 0.0f); // size 7 is replaced by 3
        ASSERT_TRUE(f.IsOK()) << c.kind;
        EXPECT_FALSE(f.separable());
        EXPECT_EQ(f.nX(), 1);
        EXPECT_EQ(f.nY(), 1);
        EXPECT_EQ(std::vector<float>(f.full_table(), f.full_table() + 9), c.rows) << c.kind;
        EXPECT_EQ(f.Donne_TabFiltreX(), nullptr);
        EXPECT_EQ(f.Donne_TabFiltreY(), nullptr);
    }
}

TEST(FiltreCatalogue, InvalidCombinations)
{
    EXPECT_FALSE(CFiltre(CFiltre::Filtre_Laplacien, 3, CFiltre::Filtre_GradientX, 3, 0, 0).IsOK());
    EXPECT_FALSE(CFiltre(CFiltre::Filtre_Gaussien, 3, CFiltre::Filtre_Laplacien, 3, 1, 0).IsOK());
    EXPECT_FALSE(CFiltre(CFiltre::Filtre_Moyenne, 4, 0.0f).IsOK());
    EXPECT_FALSE(CFiltre(CFiltre::Filtre_Moyenne, 0, 0.0f).IsOK());
    EXPECT_FALSE(CFiltre(CFiltre::Filtre_Moyenne, 3, CFiltre::Filtre_Moyenne, 2, 0, 0).IsOK());
    EXPECT_FALSE(CFiltre(static_cast<CFiltre::e_Filtre>(10), 3, 0.0f).IsOK());
    EXPECT_FALSE(CFiltre(static_cast<CFiltre::e_Filtre>(-1), 3, 0.0f).IsOK());
}

TEST(FiltreCatalogue, UnknownKindWritesTheDebugText)
{
    FiltreProbe f(CFiltre::Filtre_Moyenne, 3, 0.0f);
    float table[2] = {7.0f, 7.0f};
    test::CaptureDebugOutput capture;
    EXPECT_FALSE(f.RemplirFiltreConvolutif(table, static_cast<CFiltre::e_Filtre>(6), 1, 0.0f));
    EXPECT_EQ(capture.text, L"\nCFiltre::CFiltre erreur m_NomFiltre");
    EXPECT_EQ(table[0], 7.0f);
    capture.text.clear();
    FiltreProbe full(CFiltre::Filtre_Laplacien, 3, 0.0f);
    EXPECT_FALSE(full.RemplirFiltreNonConvolutif(CFiltre::Filtre_Gaussien));
    EXPECT_EQ(capture.text, L"\nCFiltre::CFiltre erreur m_NomFiltre");
    capture.text.clear();
    // Bad sizes and mismatched kinds are silent.
    CFiltre a(CFiltre::Filtre_Moyenne, 4, 0.0f);
    CFiltre b(CFiltre::Filtre_Laplacien, 3, CFiltre::Filtre_GradientY, 3, 0, 0);
    EXPECT_TRUE(capture.text.empty());
}

TEST(FiltreCatalogue, ZeroTotalLeavesTheRawWeights)
{
    FiltreProbe f(CFiltre::Filtre_Moyenne, 3, 0.0f);
    float table[1] = {5.0f};
    EXPECT_FALSE(f.RemplirFiltreConvolutif(table, CFiltre::Filtre_Rampe, 0, 0.0f));
    EXPECT_EQ(table[0], 0.0f);
    CFiltre invalid;
    table[0] = 5.0f;
    EXPECT_FALSE(invalid.RemplirFiltreConvolutif(table, CFiltre::Filtre_Moyenne, 0, 0.0f));
    EXPECT_EQ(table[0], 5.0f);
}

TEST(FiltreCatalogue, UserCoefficients)
{
    float k[15];
    for (int i = 0; i < 15; ++i)
        k[i] = static_cast<float>(i) - 3.5f;
    FiltreProbe f(k, 3, 5);
    ASSERT_TRUE(f.IsOK());
    EXPECT_FALSE(f.separable());
    EXPECT_EQ(f.nX(), 1);
    EXPECT_EQ(f.nY(), 2);
    EXPECT_EQ(std::vector<float>(f.full_table(), f.full_table() + 15), std::vector<float>(k, k + 15));
    EXPECT_EQ(f.Donne_TabFiltreX(), nullptr);

    // Width 4 fails and leaves no table at all.
    FiltreProbe g(CFiltre::Filtre_Gaussien, 3, 1.0f);
    EXPECT_FALSE(g.DefinirCoefficientsFiltre(k, 4, 3));
    EXPECT_EQ(g.Donne_TabFiltreX(), nullptr);
    EXPECT_EQ(g.full_table(), nullptr);
    EXPECT_FALSE(g.DefinirCoefficientsFiltre(nullptr, 3, 3));
    EXPECT_FALSE(g.DefinirCoefficientsFiltre(k, 0, 3));
    EXPECT_TRUE(g.DefinirCoefficientsFiltre(k, 1, 1));
    EXPECT_EQ(g.full_table()[0], k[0]);
}

TEST(FiltreCatalogue, FailedAllocationMakesAnInvalidFilter)
{
    auto old = platform::set_allocation_hook([](std::size_t bytes) { return bytes == 3 * sizeof(float); });
    CFiltre f(CFiltre::Filtre_Moyenne, 5, 0.0f);
    platform::set_allocation_hook(old);
    EXPECT_FALSE(f.IsOK());
    EXPECT_EQ(f.Donne_TabFiltreX(), nullptr);
    EXPECT_EQ(f.Donne_TabFiltreY(), nullptr);
}

} // namespace
} // namespace kevra
