#include "kevra/traitement_base.h"

#include "core/float_store.h"
#include "core/image_form.h"
#include "core/pixel.h"
#include "kevra/dib.h"

namespace kevra {

KEVRA_IMPLEMENT_DYNAMIC(CTraitementImgBase, CObject)

namespace {

using detail::Span;

// Walks the clipped rectangle of a float plane: f(plane_index, channels).
// The plane has width pixels a row, `channels` floats a pixel, no padding.
template <class F>
void for_each_plane_pixel(const Span & s, int64_t width, int channels, F && f)
{
    for (int32_t r = s.r0; r <= s.r1; ++r)
        for (int32_t x = s.x0; x <= s.x1; ++x)
            f((x + r * width) * channels);
}

template <class Px>
void to_float(detail::View<Px> v, const Span & s, float * plane)
{
    for (int32_t r = s.r0; r <= s.r1; ++r) {
        float * dst = plane + (s.x0 + static_cast<int64_t>(r) * v.width) * Px::channels;
        detail::samples_to_floats(v.pixel(s.x0, r), dst, static_cast<int64_t>(s.x1 - s.x0 + 1) * Px::channels);
    }
}

template <class Px>
void to_bits(detail::View<Px> v, const Span & s, const float * plane)
{
    for (int32_t r = s.r0; r <= s.r1; ++r) {
        typename Px::sample * dst = v.pixel(s.x0, r);
        const float * src = plane + (s.x0 + static_cast<int64_t>(r) * v.width) * Px::channels;
        const int64_t n = static_cast<int64_t>(s.x1 - s.x0 + 1) * Px::channels;
        for (int64_t i = 0; i < n; ++i)
            dst[i] = detail::store_sample<typename Px::sample>(src[i]);
    }
}

// Runs f on the buffer seen at depth bpp; any other depth converts nothing.
template <class F>
void on_depth(unsigned bpp, long width, long height, unsigned char * bits, F && f)
{
    switch (bpp) {
    case 8: f(detail::view<detail::Grey8>(width, height, bits)); break;
    case 16: f(detail::view<detail::Grey16>(width, height, bits)); break;
    case 24: f(detail::view<detail::Bgr24>(width, height, bits)); break;
    default: break;
    }
}

} // namespace

CTraitementImgBase::CTraitementImgBase(unsigned char bpp) : m_bpp(bpp) {}

CTraitementImgBase::CTraitementImgBase() : m_bpp(24) {}

CTraitementImgBase::~CTraitementImgBase() = default;

unsigned char CTraitementImgBase::GetBpp() const { return m_bpp; }

bool CTraitementImgBase::IsOK(CDibRoot * pDib)
{
    if (pDib == nullptr)
        return false;
    return pDib->IsOK() && pDib->BitCount() == m_bpp;
}

int CTraitementImgBase::Pitch(long width) const
{
    // 32-bit signed arithmetic whatever the width of long.
    const int32_t w = static_cast<int32_t>(width);
    return ((static_cast<int32_t>(m_bpp) * w + 31) & ~31) / 8;
}

int CTraitementImgBase::XOffset(int x) const
{
    return static_cast<int>((static_cast<uint32_t>(m_bpp) * static_cast<uint32_t>(x)) >> 3);
}

int CTraitementImgBase::YOffset(int y, long width) const { return Pitch(width) * y; }

unsigned char * CTraitementImgBase::PixelPtr(int x, int y, long width, unsigned char * pBits) const
{
    return pBits + static_cast<std::ptrdiff_t>(YOffset(y, width)) + XOffset(x);
}

bool CTraitementImgBase::ConvertToFloat(long width, long height, unsigned char * pBits, float * pFloat,
                                        CRect rect)
{
    if (pBits == nullptr || pFloat == nullptr)
        return false;
    const Span s = detail::clip_rect(static_cast<int32_t>(width), static_cast<int32_t>(height), rect);
    if (s.empty())
        return true;
    on_depth(m_bpp, width, height, pBits, [&](auto v) { to_float(v, s, pFloat); });
    return true;
}

bool CTraitementImgBase::ConvertToBits(long width, long height, unsigned char * pBits, float * pFloat,
                                       CRect rect)
{
    if (pBits == nullptr || pFloat == nullptr)
        return false;
    const Span s = detail::clip_rect(static_cast<int32_t>(width), static_cast<int32_t>(height), rect);
    if (s.empty())
        return true;
    on_depth(m_bpp, width, height, pBits, [&](auto v) { to_bits(v, s, pFloat); });
    return true;
}

// Image forms: the common image-form rules (null, depth, validity, working zone, release).
bool CTraitementImgBase::ConvertToFloat(CDibRoot * pDib, float * pFloat)
{
    return pFloat != nullptr &&
           detail::run_image_form(m_bpp, pDib, [&](long w, long h, void * bits, CRect & rc) {
               return ConvertToFloat(w, h, static_cast<unsigned char *>(bits), pFloat, rc);
           });
}

bool CTraitementImgBase::ConvertToBits(CDibRoot * pDib, float * pFloat)
{
    return pFloat != nullptr &&
           detail::run_image_form(m_bpp, pDib, [&](long w, long h, void * bits, CRect & rc) {
               return ConvertToBits(w, h, static_cast<unsigned char *>(bits), pFloat, rc);
           });
}

bool CTraitementImgBase::TronqueValeurs(long width, long height, float * pFloat, CRect rect, float fMin,
                                        float fMax)
{
    if (pFloat == nullptr)
        return false;
    int channels;
    switch (m_bpp) {
    case 8:
    case 16: channels = 1; break;
    case 24: channels = 3; break;
    default: return true;
    }
    const Span s = detail::clip_rect(static_cast<int32_t>(width), static_cast<int32_t>(height), rect);
    if (s.empty())
        return true;
    for_each_plane_pixel(s, static_cast<int32_t>(width), channels, [&](int64_t i) {
        for (int c = 0; c < channels; ++c) {
            float & v = pFloat[i + c];
            // Both tests on the same value, in this order: with fMin > fMax
            // every value ends at fMax.
            if (v < fMin)
                v = fMin;
            if (v > fMax)
                v = fMax;
        }
    });
    return true;
}

bool CTraitementImgBase::AdditionSoustractionFloat(float fFacteur, long width, long height, float * pDest,
                                                   float * pSrc, CRect rect)
{
    if (pDest == nullptr || pSrc == nullptr)
        return false;
    const int channels = m_bpp == 24 ? 3 : 1;
    const Span s = detail::clip_rect(static_cast<int32_t>(width), static_cast<int32_t>(height), rect);
    if (s.empty())
        return true;
    for_each_plane_pixel(s, static_cast<int32_t>(width), channels, [&](int64_t i) {
        for (int c = 0; c < channels; ++c)
            pDest[i + c] = pDest[i + c] + fFacteur * pSrc[i + c];
    });
    return true;
}

} // namespace kevra
