// The abstract table and the two grey tables. Both grey classes forward to the kernels of
// lut/detail/table_kernels.h with their entry type.
#include "kevra/lut.h"

#include <cstdint>
#include <cstring>

#include "core/fast_path.h"
#include "core/float_store.h"
#include "core/image_form.h"
#include "kevra/dib.h"
#include "kevra/drawing.h"
#include "kevra/platform.h"
#include "lut/detail/table_kernels.h"

namespace kevra {

namespace detail {

template void build_tone_table<uint8_t>(uint8_t *, int32_t, float, float, float);
template void build_tone_table<uint16_t>(uint16_t *, int32_t, float, float, float);
template void apply_table<Grey8>(const View<Grey8> &, const Span &, const uint8_t *);
template void apply_table<Grey16>(const View<Grey16> &, const Span &, const uint16_t *);

namespace {

template <class T>
void draw_curve(CDC *dc, const CRect &rect, const T *table, int32_t n, unsigned long couleur)
{
    const int previous_mode = dc->SetBkMode(CDC::e_Transparent);
    CPen pen(CPen::e_Solid, 1, couleur);
    CPen *previous_pen = dc->SelectObject(&pen);
    // Scales divide by N, not N - 1: the curve stops short of the top and right edges.
    const float sx = static_cast<float>(static_cast<int64_t>(rect.right) - rect.left) / static_cast<float>(n);
    const float sy = static_cast<float>(static_cast<int64_t>(rect.bottom) - rect.top) / static_cast<float>(n);
    const float left = static_cast<float>(rect.left);
    const float bottom = static_cast<float>(rect.bottom);
    for (int32_t i = 0; i < n; ++i) {
        const int x = detail::truncate_i32(static_cast<float>(i) * sx + left);
        const int y = detail::truncate_i32(bottom - static_cast<float>(table[i]) * sy);
        if (i == 0)
            dc->MoveTo(x, y);
        else
            dc->LineTo(x, y);
    }
    dc->SelectObject(previous_pen);
    dc->SetBkMode(previous_mode);
}

} // namespace
} // namespace detail

// ---- CLUT -----------------------------------------------------------------------------------

// The record names CObject as the base on purpose: a kind test of a table against
// CTraitementImgBase is false, and callers rely on tables not passing for processing objects.
KEVRA_IMPLEMENT_DYNAMIC(CLUT, CObject)

CLUT::CLUT(unsigned char bpp) : CTraitementImgBase(bpp) {}

CLUT::~CLUT() = default;

bool CLUT::SetContraste(float contraste)
{
    return SetLuminositeConstrateGamma(0.0f, contraste, 1.0f);
}

bool CLUT::Filtre(CDibRoot *image)
{
    return detail::run_image_form(m_bpp, image, [&](long w, long h, void *bits, CRect &rc) {
        return FiltrerBuffer(w, h, bits, rc);
    });
}

void CLUT::Display(CDC *pDC, CRect rect, unsigned long couleur)
{
    if (pDC == nullptr)
        return;
    if (IsKindOf(KEVRA_RUNTIME_CLASS(CLUT_8_Bpp))) {
        const CLUT_8_Bpp *lut = static_cast<const CLUT_8_Bpp *>(this);
        detail::draw_curve(pDC, rect, lut->Donne_Table(), Donne_NbEntrees(), couleur);
    } else if (IsKindOf(KEVRA_RUNTIME_CLASS(CLUT_16_Bpp))) {
        const CLUT_16_Bpp *lut = static_cast<const CLUT_16_Bpp *>(this);
        detail::draw_curve(pDC, rect, lut->Donne_Table(), Donne_NbEntrees(), couleur);
    }
}

int CLUT::Donne_NbEntrees() const
{
    return detail::lut_entries(m_bpp);
}

// ---- CLUT_8_Bpp -----------------------------------------------------------------------------

KEVRA_IMPLEMENT_DYNAMIC(CLUT_8_Bpp, CLUT)

CLUT_8_Bpp::CLUT_8_Bpp(const unsigned char *pLUT) : CLUT(8)
{
    if (pLUT == nullptr)
        detail::identity_table(m_LUT, Donne_NbEntrees());
    else
        std::memcpy(m_LUT, pLUT, sizeof m_LUT);
}

CLUT_8_Bpp::CLUT_8_Bpp(const CLUT_8_Bpp &other) : CLUT(other)
{
    std::memcpy(m_LUT, other.m_LUT, sizeof m_LUT);
}

CLUT_8_Bpp &CLUT_8_Bpp::operator=(const CLUT_8_Bpp &other)
{
    CLUT::operator=(other);
    std::memmove(m_LUT, other.m_LUT, sizeof m_LUT);
    return *this;
}

CLUT_8_Bpp::~CLUT_8_Bpp() = default;

void CLUT_8_Bpp::Copier(CLUT *pLUT)
{
    if (pLUT == nullptr || !pLUT->IsKindOf(KEVRA_RUNTIME_CLASS(CLUT_8_Bpp)))
        return;
    std::memmove(m_LUT, static_cast<CLUT_8_Bpp *>(pLUT)->m_LUT, sizeof m_LUT);
}

void CLUT_8_Bpp::Combiner(CLUT *pLUT)
{
    if (pLUT == nullptr || !pLUT->IsKindOf(KEVRA_RUNTIME_CLASS(CLUT_8_Bpp)))
        return;
    if (pLUT == this) {
        // Composing a table with itself must read the entries as they were.
        const CLUT_8_Bpp before(*this);
        detail::compose_tables(m_LUT, before.m_LUT, Donne_NbEntrees());
        return;
    }
    detail::compose_tables(m_LUT, static_cast<CLUT_8_Bpp *>(pLUT)->m_LUT, Donne_NbEntrees());
}

bool CLUT_8_Bpp::FiltrerBuffer(long width, long height, void *bits, CRect &rect)
{
    if (bits == nullptr)
        return false;
    const auto v = detail::view<detail::Grey8>(width, height, static_cast<unsigned char *>(bits));
    if (detail::fast_paths_enabled())
        detail::apply_table_fast(v, detail::table_span(width, height, rect), m_LUT);
    else
        detail::apply_table(v, detail::table_span(width, height, rect), m_LUT);
    return true;
}

bool CLUT_8_Bpp::SetLuminositeConstrateGamma(float luminosite, float contraste, float gamma)
{
    detail::build_tone_table(m_LUT, Donne_NbEntrees(), luminosite, contraste, gamma);
    return true;
}

bool CLUT_8_Bpp::IsLinear45()
{
    return detail::is_identity(m_LUT, Donne_NbEntrees());
}

// ---- CLUT_16_Bpp ----------------------------------------------------------------------------

KEVRA_IMPLEMENT_DYNAMIC(CLUT_16_Bpp, CLUT)

CLUT_16_Bpp::CLUT_16_Bpp(const unsigned short *pLUT) : CLUT(16)
{
    if (pLUT == nullptr) {
        detail::identity_table(m_LUT, Donne_NbEntrees());
    } else {
        // 65536 bytes, not entries: only the lower half of the table comes from the array.
        // Callers rely on exactly this; the upper half is left at zero.
        std::memset(m_LUT, 0, sizeof m_LUT);
        std::memcpy(m_LUT, pLUT, 65536);
    }
}

CLUT_16_Bpp::CLUT_16_Bpp(const CLUT_16_Bpp &other) : CLUT(other)
{
    std::memcpy(m_LUT, other.m_LUT, sizeof m_LUT);
}

CLUT_16_Bpp &CLUT_16_Bpp::operator=(const CLUT_16_Bpp &other)
{
    CLUT::operator=(other);
    std::memmove(m_LUT, other.m_LUT, sizeof m_LUT);
    return *this;
}

CLUT_16_Bpp::~CLUT_16_Bpp() = default;

void CLUT_16_Bpp::Copier(CLUT *pLUT)
{
    if (pLUT == nullptr || !pLUT->IsKindOf(KEVRA_RUNTIME_CLASS(CLUT_16_Bpp)))
        return;
    std::memmove(m_LUT, static_cast<CLUT_16_Bpp *>(pLUT)->m_LUT, sizeof m_LUT);
}

void CLUT_16_Bpp::Combiner(CLUT *pLUT)
{
    if (pLUT == nullptr || !pLUT->IsKindOf(KEVRA_RUNTIME_CLASS(CLUT_16_Bpp)))
        return;
    if (pLUT == this) {
        unsigned short *before = detail::try_new_array<unsigned short>(65536);
        if (before == nullptr)
            return;
        std::memcpy(before, m_LUT, sizeof m_LUT);
        detail::compose_tables(m_LUT, before, Donne_NbEntrees());
        delete[] before;
        return;
    }
    detail::compose_tables(m_LUT, static_cast<CLUT_16_Bpp *>(pLUT)->m_LUT, Donne_NbEntrees());
}

bool CLUT_16_Bpp::FiltrerBuffer(long width, long height, void *bits, CRect &rect)
{
    if (bits == nullptr)
        return false;
    const auto v = detail::view<detail::Grey16>(width, height, static_cast<unsigned char *>(bits));
    if (detail::fast_paths_enabled())
        detail::apply_table_fast(v, detail::table_span(width, height, rect), m_LUT);
    else
        detail::apply_table(v, detail::table_span(width, height, rect), m_LUT);
    return true;
}

bool CLUT_16_Bpp::SetLuminositeConstrateGamma(float luminosite, float contraste, float gamma)
{
    detail::build_tone_table(m_LUT, Donne_NbEntrees(), luminosite, contraste, gamma);
    return true;
}

bool CLUT_16_Bpp::IsLinear45()
{
    return detail::is_identity(m_LUT, Donne_NbEntrees());
}

} // namespace kevra
