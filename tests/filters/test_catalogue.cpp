// Filter catalogue: kernels, creation rules, validity.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "kevra/filtre.h"
#include "kevra/platform.h"
#include "support/kevra_test.h"

namespace kevra {
namespace {

// Test access to a filter's fields.
class FiltreProbe : public CFiltre {
public:
    using CFiltre::CFiltre;
    bool separable() const { return m_bConvolutif != 0; }
    int nX() const { return m_nX; }
    int nY() const { return m_nY; }
    std::vector<float> full() const { return m_pTabFiltre ? std::vector<float>(m_pTabFiltre, m_pTabFiltre + (2 * m_nX + 1) * (2 * m_nY + 1)) : std::vector<float>(); }
    std::vector<float> x() { return std::vector<float>(Donne_TabFiltreX(), Donne_TabFiltreX() + m_nX + 1); }
    std::vector<float> y() { return std::vector<float>(Donne_TabFiltreY(), Donne_TabFiltreY() + m_nY + 1); }
};

const double kPi = 3.141592653589793;

// Separable kernels: half tables after normalisation by 1 / (2 S - w0), S the raw sum. Full
// kernels: the 3x3 rows as listed, lowest buffer row first, whatever size was asked.
TEST(FiltreCatalogue, Kernels)
{
    const float e = static_cast<float>(std::exp(-0.5)), g = 1.0f / (2 * (1.0f + e) - 1.0f);
    const float s1 = static_cast<float>(std::sin(kPi / 4)), s = 1.0f / (2 * ((0.0f + s1) + 1.0f) - 0.0f);
    const float c1 = static_cast<float>(std::sin(kPi / 2) / (kPi / 2)), c2 = static_cast<float>(std::sin(kPi) / kPi);
    const float c = 1.0f / (2 * ((1.0f + c1) + c2) - 1.0f), sixth = 1.0f / 6.0f;
    using F = CFiltre;
    const struct { F::e_Filtre kx; unsigned short sx; F::e_Filtre ky; unsigned short sy; float px, py; std::vector<float> x, y, full; } cases[] = {
        {F::Filtre_Moyenne, 5, F::Filtre_Moyenne, 5, 0, 0, {0.2f, 0.2f, 0.2f}, {0.2f, 0.2f, 0.2f}, {}},
        // raw 0, 1, 2, total 2*3 - 0 = 6
        {F::Filtre_Rampe, 5, F::Filtre_Rampe, 5, 0, 0, {0, sixth, 2 * sixth}, {0, sixth, 2 * sixth}, {}},
        // the integer quotient i/n weighs only the outer taps
        {F::Filtre_Parabole, 5, F::Filtre_Parabole, 5, 0, 0, {0, 0, 0.5f}, {0, 0, 0.5f}, {}},
        // raw 1, e^-0.5: about 0.4519, 0.2741; two separable kinds may differ
        {F::Filtre_Gaussien, 3, F::Filtre_Moyenne, 5, 1, 0, {g, e * g}, {0.2f, 0.2f, 0.2f}, {}},
        // raw 0, sin(pi/4), 1: the centre weighs nothing
        {F::Filtre_Sinus, 5, F::Filtre_SinusCardinal, 5, 0, 2, {0, s1 * s, s}, {c, c1 * c, c2 * c}, {}},
        // size 1: the identity
        {F::Filtre_Gaussien, 1, F::Filtre_SinusCardinal, 1, 1, 1, {1}, {1}, {}},
        {F::Filtre_Moyenne, 1, F::Filtre_Moyenne, 1, 1, 1, {1}, {1}, {}},
        {F::Filtre_Laplacien, 7, F::Filtre_Laplacien, 7, 0, 0, {}, {}, {-1, -1, -1, -1, 8, -1, -1, -1, -1}},
        {F::Filtre_GradientX, 5, F::Filtre_GradientX, 1, 0, 0, {}, {}, {-1, 0, 1, -1, 0, 1, -1, 0, 1}},
        {F::Filtre_GradientY, 3, F::Filtre_GradientY, 3, 0, 0, {}, {}, {-1, -1, -1, 0, 0, 0, 1, 1, 1}},
        {F::Filtre_GradientDiagonal, 3, F::Filtre_GradientDiagonal, 3, 0, 0, {}, {}, {-1, -1, 0, -1, 0, 1, 0, 1, 1}},
    };
    for (const auto &k : cases) {
        SCOPED_TRACE(testing::Message() << k.kx << "/" << k.sx << " " << k.ky << "/" << k.sy);
        FiltreProbe f(k.kx, k.sx, k.ky, k.sy, k.px, k.py);
        ASSERT_TRUE(f.IsOK());
        EXPECT_EQ(f.separable(), k.full.empty());
        EXPECT_EQ(f.full(), k.full);
        if (f.separable()) {
            EXPECT_EQ(f.x(), k.x);
            EXPECT_EQ(f.y(), k.y);
        } else {
            EXPECT_TRUE(f.Donne_TabFiltreX() == nullptr && f.Donne_TabFiltreY() == nullptr);
        }
    }
    FiltreProbe sinus(CFiltre::Filtre_Sinus, 1, 1.0f); // 0/0: not a number, yet valid
    ASSERT_TRUE(sinus.IsOK());
    EXPECT_TRUE(std::isnan(sinus.x()[0]));
}

// Bad sizes, mismatched kinds, zero totals and failed allocations make an invalid filter without
// a word; an unknown kind also writes the debug text.
TEST(FiltreCatalogue, InvalidFiltersAndTheDebugText)
{
    std::wstring text;
    auto previous = platform::set_debug_output_handler([&](const wchar_t *t) { text += t; });
    CFiltre empty; // valid only once coefficients are given
    EXPECT_FALSE(empty.IsOK());
    EXPECT_STREQ(empty.GetRuntimeClass()->m_lpszClassName, "CFiltre");
    EXPECT_TRUE(empty.IsKindOf(KEVRA_RUNTIME_CLASS(CTraitementImgBase)));
    EXPECT_FALSE(CFiltre(CFiltre::Filtre_Laplacien, 3, CFiltre::Filtre_GradientX, 3, 0, 0).IsOK());
    EXPECT_FALSE(CFiltre(CFiltre::Filtre_Gaussien, 3, CFiltre::Filtre_Laplacien, 3, 1, 0).IsOK());
    EXPECT_FALSE(CFiltre(CFiltre::Filtre_Moyenne, 4, 0.0f).IsOK());
    EXPECT_FALSE(CFiltre(CFiltre::Filtre_Moyenne, 0, 0.0f).IsOK());
    EXPECT_FALSE(CFiltre(CFiltre::Filtre_Moyenne, 3, CFiltre::Filtre_Moyenne, 2, 0, 0).IsOK());
    EXPECT_FALSE(CFiltre(CFiltre::Filtre_Rampe, 1, 1.0f).IsOK());    // total 0
    EXPECT_FALSE(CFiltre(CFiltre::Filtre_Parabole, 1, 1.0f).IsOK()); // refused, not divided by 0
    EXPECT_TRUE(text.empty());
    EXPECT_FALSE(CFiltre(static_cast<CFiltre::e_Filtre>(10), 3, 0.0f).IsOK() ||
                 CFiltre(static_cast<CFiltre::e_Filtre>(-1), 3, 0.0f).IsOK());

    FiltreProbe f(CFiltre::Filtre_Moyenne, 3, 0.0f), full(CFiltre::Filtre_Laplacien, 3, 0.0f);
    float table[2] = {7.0f, 7.0f};
    text.clear();
    EXPECT_FALSE(f.RemplirFiltreConvolutif(table, static_cast<CFiltre::e_Filtre>(6), 1, 0.0f));
    EXPECT_EQ(text, L"\nCFiltre::CFiltre erreur m_NomFiltre");
    EXPECT_EQ(table[0], 7.0f);
    text.clear();
    EXPECT_FALSE(full.RemplirFiltreNonConvolutif(CFiltre::Filtre_Gaussien));
    EXPECT_EQ(text, L"\nCFiltre::CFiltre erreur m_NomFiltre");
    platform::set_debug_output_handler(previous);

    // A zero total leaves the raw weights; a filter without tables touches nothing.
    EXPECT_FALSE(f.RemplirFiltreConvolutif(table, CFiltre::Filtre_Rampe, 0, 0.0f));
    EXPECT_EQ(table[0], 0.0f);
    table[0] = 5.0f;
    EXPECT_FALSE(empty.RemplirFiltreConvolutif(table, CFiltre::Filtre_Moyenne, 0, 0.0f));
    EXPECT_EQ(table[0], 5.0f);

    // A failed allocation leaves its table null: the filter is invalid.
    kevra_test::FailAllocations fail([](std::size_t bytes) { return bytes == 3 * sizeof(float); });
    CFiltre starved(CFiltre::Filtre_Moyenne, 5, 0.0f);
    EXPECT_FALSE(starved.IsOK());
    EXPECT_TRUE(starved.Donne_TabFiltreX() == nullptr && starved.Donne_TabFiltreY() == nullptr);
}

// User coefficients are copied unchanged into a full kernel; even or zero sizes and null
// coefficients leave no table at all.
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
    EXPECT_EQ(f.full(), std::vector<float>(k, k + 15));
    EXPECT_EQ(f.Donne_TabFiltreX(), nullptr);

    FiltreProbe g(CFiltre::Filtre_Gaussien, 3, 1.0f);
    EXPECT_FALSE(g.DefinirCoefficientsFiltre(k, 4, 3));
    EXPECT_EQ(g.Donne_TabFiltreX(), nullptr);
    EXPECT_TRUE(g.full().empty());
    EXPECT_FALSE(g.DefinirCoefficientsFiltre(nullptr, 3, 3) ||
                 g.DefinirCoefficientsFiltre(k, 0, 3));
    EXPECT_TRUE(g.DefinirCoefficientsFiltre(k, 1, 1));
    EXPECT_EQ(g.full(), std::vector<float>{k[0]});
}

} // namespace
} // namespace kevra
