// CFiltre: the object, the catalogue of kernels and their creation.
#include "kevra/filtre.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "kevra/platform.h"

namespace kevra {

KEVRA_IMPLEMENT_DYNAMIC(CFiltre, CTraitementImgBase)

namespace {

constexpr double kPi = 3.141592653589793;

// The one message of the catalogue, for a kind that does not exist.
constexpr const wchar_t * kUnknownKindText = L"\nCFiltre::CFiltre erreur m_NomFiltre";

// The 3x3 kinds, rows in table order: row 0 meets the lowest buffer row of the
// neighbourhood (buffers are stored bottom row first), columns left to right.
constexpr float kLaplacien[9] = {-1, -1, -1, -1, 8, -1, -1, -1, -1};
constexpr float kGradientX[9] = {-1, 0, 1, -1, 0, 1, -1, 0, 1};
constexpr float kGradientY[9] = {-1, -1, -1, 0, 0, 0, 1, 1, 1};
constexpr float kGradientDiagonal[9] = {-1, -1, 0, -1, 0, 1, 0, 1, 1};

enum class KernelClass { separable, full, invalid };

// Full-kernel kinds are always 3x3: their size is forced to 3.
KernelClass classify(CFiltre::e_Filtre kind, unsigned short & size)
{
    if (kind >= CFiltre::Filtre_Moyenne && kind <= CFiltre::Filtre_SinusCardinal)
        return KernelClass::separable;
    if (kind >= CFiltre::Filtre_Laplacien && kind <= CFiltre::Filtre_GradientDiagonal) {
        size = 3;
        return KernelClass::full;
    }
    return KernelClass::invalid;
}

// (2nX+1)(2nY+1) as an element count, 0 when it does not fit in memory sizes.
std::size_t full_kernel_count(uint16_t nX, uint16_t nY)
{
    const uint64_t count = (2 * uint64_t(nX) + 1) * (2 * uint64_t(nY) + 1);
    if (count > static_cast<uint64_t>(SIZE_MAX) / sizeof(float))
        return 0;
    return static_cast<std::size_t>(count);
}

// Raw (unnormalised) weight of tap i of a separable kind.
float gaussian_weight(uint32_t i, float p)
{
    // The quotient is formed in single precision (i*i as a 32-bit int, then
    // converted), negated, and only the exponential is taken in double.
    const int32_t ii = static_cast<int32_t>(i * i);
    const float q = static_cast<float>(ii) / (2 * p * p);
    return static_cast<float>(std::exp(static_cast<double>(-q)));
}

float parabola_weight(uint32_t i, uint32_t n)
{
    // Integer quotient on purpose: q is 0 for every tap but the outermost, so
    // only the two outer taps weigh.
    const int32_t q = static_cast<int32_t>(i / n);
    return static_cast<float>(1.0 - static_cast<double>((1 - q) * (1 - q)));
}

float sine_weight(uint32_t i, uint32_t n)
{
    // Double precision, rounded to single. n = 0 gives 0/0: not a number,
    // kept (the table is then filled with NaN and the filter stays valid).
    const double x = static_cast<double>(i) * kPi / static_cast<double>(2 * n);
    return static_cast<float>(std::sin(x));
}

float sinc_weight(uint32_t i, float p)
{
    const double x = static_cast<double>(i) * kPi / static_cast<double>(p);
    return static_cast<float>(std::sin(x) / x);
}

} // namespace

CFiltre::CFiltre() : CTraitementImgBase(24) { init_worker_count(); }

CFiltre::CFiltre(float * coefficients, unsigned short width, unsigned short height)
    : CTraitementImgBase(24)
{
    init_worker_count();
    CreerFiltre(coefficients, width, height);
}

CFiltre::CFiltre(CFiltre::e_Filtre kind, unsigned short size, float parameter) : CTraitementImgBase(24)
{
    init_worker_count();
    CreerFiltre(kind, size, kind, size, parameter, parameter);
}

CFiltre::CFiltre(CFiltre::e_Filtre kindX, unsigned short sizeX, CFiltre::e_Filtre kindY,
                 unsigned short sizeY, float parameterX, float parameterY)
    : CTraitementImgBase(24)
{
    init_worker_count();
    CreerFiltre(kindX, sizeX, kindY, sizeY, parameterX, parameterY);
}

CFiltre::~CFiltre()
{
    // No worker is ever started, so every handle is empty and none needs
    // closing: only the table goes.
    delete[] m_phThreads;
    m_phThreads = nullptr;
    release_tables();
}

void CFiltre::init_worker_count()
{
    const unsigned processors = platform::processor_count();
    m_nNbThreads = processors < 3 ? 2u : static_cast<uint32_t>(processors);
}

void CFiltre::release_tables()
{
    delete[] m_pTabFiltre;
    delete[] m_pTabFiltreX;
    delete[] m_pTabFiltreY;
    m_pTabFiltre = nullptr;
    m_pTabFiltreX = nullptr;
    m_pTabFiltreY = nullptr;
}

void CFiltre::renew_worker_table()
{
    delete[] m_phThreads;
    m_phThreads = detail::try_new_array<void *>(m_nNbThreads);
    if (m_phThreads != nullptr)
        for (uint32_t i = 0; i < m_nNbThreads; ++i)
            m_phThreads[i] = nullptr;
}

void CFiltre::CreerFiltre(float * coefficients, unsigned short width, unsigned short height)
{
    release_tables();

    bool ok = width != 0 && height != 0;
    m_bConvolutif = 0;
    m_nX = static_cast<uint16_t>((width - 1) / 2);
    m_nY = static_cast<uint16_t>((height - 1) / 2);
    if (2 * m_nX + 1 != width || 2 * m_nY + 1 != height)
        ok = false;

    // The table is obtained even when the sizes are wrong (it is then
    // released below): only its existence makes the filter valid.
    const std::size_t count = full_kernel_count(m_nX, m_nY);
    if (count != 0)
        m_pTabFiltre = detail::try_new_array<float>(count);
    if (coefficients == nullptr || m_pTabFiltre == nullptr)
        ok = false;
    if (ok)
        std::memcpy(m_pTabFiltre, coefficients, count * sizeof(float));
    else
        release_tables();

    renew_worker_table();
}

void CFiltre::CreerFiltre(CFiltre::e_Filtre kindX, unsigned short sizeX, CFiltre::e_Filtre kindY,
                          unsigned short sizeY, float parameterX, float parameterY)
{
    release_tables();

    const KernelClass classX = classify(kindX, sizeX);
    const KernelClass classY = classify(kindY, sizeY);
    bool ok = classX != KernelClass::invalid && classX == classY;
    // Two separable kinds may differ; a 3x3 kernel cannot mix two kinds.
    if (ok && classX == KernelClass::full && kindX != kindY)
        ok = false;

    if (ok && (sizeX == 0 || sizeY == 0))
        ok = false;
    if (ok) {
        m_nY = static_cast<uint16_t>((sizeY - 1) / 2);
        m_nX = static_cast<uint16_t>((sizeX - 1) / 2);
        m_bConvolutif = classX == KernelClass::separable ? 1 : 0;
        if (2 * m_nX + 1 != sizeX || 2 * m_nY + 1 != sizeY)
            ok = false;
    }

    if (ok) {
        if (m_bConvolutif) {
            m_pTabFiltreX = detail::try_new_array<float>(std::size_t(m_nX) + 1);
            m_pTabFiltreY = detail::try_new_array<float>(std::size_t(m_nY) + 1);
        } else {
            m_pTabFiltre = detail::try_new_array<float>(full_kernel_count(m_nX, m_nY));
        }
        ok = IsOK();
    }

    if (ok) {
        if (m_bConvolutif)
            ok = RemplirFiltreConvolutif(m_pTabFiltreX, kindX, m_nX, parameterX) &&
                 RemplirFiltreConvolutif(m_pTabFiltreY, kindY, m_nY, parameterY);
        else
            ok = RemplirFiltreNonConvolutif(kindX);
    }

    if (!ok)
        release_tables();
    renew_worker_table();
}

bool CFiltre::DefinirCoefficientsFiltre(float * coefficients, unsigned short width, unsigned short height)
{
    CreerFiltre(coefficients, width, height);
    return IsOK();
}

bool CFiltre::RemplirFiltreConvolutif(float * table, CFiltre::e_Filtre kind, unsigned short n, float parameter)
{
    if (!IsOK() || table == nullptr)
        return false;
    // Parabole divides by n: a 1-tap parabola is refused rather than divided by 0.
    if (kind == Filtre_Parabole && n == 0)
        return false;

    float sum = 0.0f; // running sum, single precision, from the centre outwards
    for (uint32_t i = 0; i <= n; ++i) {
        float w;
        switch (kind) {
        case Filtre_Moyenne:
            w = 1.0f;
            break;
        case Filtre_Gaussien:
            w = gaussian_weight(i, parameter);
            break;
        case Filtre_Rampe:
            w = static_cast<float>(i);
            break;
        case Filtre_Parabole:
            w = parabola_weight(i, n);
            break;
        case Filtre_Sinus:
            w = sine_weight(i, n);
            break;
        case Filtre_SinusCardinal:
            w = i == 0 ? 1.0f : sinc_weight(i, parameter);
            break;
        default:
            platform::debug_output(kUnknownKindText);
            return false;
        }
        table[i] = w;
        sum = sum + w;
    }

    // Weight of the whole 2n+1-tap kernel: every side tap counts twice.
    const float total = 2 * sum - table[0];
    if (total == 0.0f)
        return false;
    const float inverse = 1.0f / total;
    for (uint32_t i = 0; i <= n; ++i)
        table[i] = table[i] * inverse;
    return true;
}

bool CFiltre::RemplirFiltreNonConvolutif(CFiltre::e_Filtre kind)
{
    if (!IsOK())
        return false;
    const float * rows = nullptr;
    switch (kind) {
    case Filtre_Laplacien:
        rows = kLaplacien;
        break;
    case Filtre_GradientX:
        rows = kGradientX;
        break;
    case Filtre_GradientY:
        rows = kGradientY;
        break;
    case Filtre_GradientDiagonal:
        rows = kGradientDiagonal;
        break;
    default:
        platform::debug_output(kUnknownKindText);
        return false;
    }
    // A separable filter has no full table to fill, whatever its size.
    if (m_nX != 1 || m_nY != 1 || m_pTabFiltre == nullptr)
        return false;
    std::memcpy(m_pTabFiltre, rows, sizeof(kLaplacien));
    return true;
}

bool CFiltre::IsOK()
{
    if (m_bConvolutif)
        return m_pTabFiltreX != nullptr && m_pTabFiltreY != nullptr;
    return m_pTabFiltre != nullptr;
}

float * CFiltre::Donne_TabFiltreX() { return m_pTabFiltreX; }

float * CFiltre::Donne_TabFiltreY() { return m_pTabFiltreY; }

} // namespace kevra
