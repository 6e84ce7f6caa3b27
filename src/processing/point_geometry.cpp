// Negative, fill, mirrors, quarter turns and the addition/subtraction entry point, for the three
// depths side by side. Kernels: processing/detail/point_geometry.h.
#include "kevra/traitement.h"

#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "core/image_form.h"
#include "core/pixel.h"
#include "kevra/dib.h"
#include "kevra/lut.h"
#include "kevra/palette.h"
#include "kevra/platform.h"
#include "processing/detail/point_geometry.h"
#include "processing/detail/point_geometry_fast.h"

namespace kevra {

namespace detail {

template void fill_rows<Grey8>(const View<Grey8> &, const Span &, const PixelValue<Grey8> &);
template void fill_rows<Grey16>(const View<Grey16> &, const Span &, const PixelValue<Grey16> &);
template void fill_rows<Bgr24>(const View<Bgr24> &, const Span &, const PixelValue<Bgr24> &);
template void mirror_h_rows<Grey8>(const View<Grey8> &, const CRect &, uint8_t *);
template void mirror_h_rows<Grey16>(const View<Grey16> &, const CRect &, uint16_t *);
template void mirror_h_rows<Bgr24>(const View<Bgr24> &, const CRect &, uint8_t *);
template void mirror_v_rows<Grey8>(const View<Grey8> &, const CRect &, uint8_t *);
template void mirror_v_rows<Grey16>(const View<Grey16> &, const CRect &, uint8_t *);
template void mirror_v_rows<Bgr24>(const View<Bgr24> &, const CRect &, uint8_t *);
template void quick_rotate<Grey8>(const View<Grey8> &, const View<Grey8> &, int);
template void quick_rotate<Grey16>(const View<Grey16> &, const View<Grey16> &, int);
template void quick_rotate<Bgr24>(const View<Bgr24> &, const View<Bgr24> &, int);

namespace {

// Grey negative: a local table of the class's kind, M - i for every entry (65535 - i when the
// depth is 16, else 255 - i), applied with the table's own walk. The 16-bit table is too large
// for a stack, so both live on the heap; false when it cannot be had. When the table is the
// complement of every sample (M is the class's own maximum), the fast path complements the
// table walk's span directly; it still takes the table first, so that both paths fail alike.
template <class Lut, class Px>
bool negative_grey(unsigned bpp, long width, long height, void *bits, CRect &rect)
{
    Lut *lut = try_new<Lut>(nullptr);
    if (lut == nullptr)
        return false;
    const int32_t n = lut_entries(bpp);
    bool result;
    if (fast_paths_enabled() && bits != nullptr && n - 1 == static_cast<int32_t>(typename Px::sample(~0u))) {
        complement_span<Px>(view<Px>(width, height, as_bytes(bits)), clip_rect(width, height, rect));
        result = true;
    } else {
        auto *table = lut->Donne_Table();
        for (int32_t i = 0; i < n; ++i)
            table[i] = static_cast<std::remove_pointer_t<decltype(table)>>(n - 1 - i);
        result = lut->FiltrerBuffer(width, height, bits, rect);
    }
    delete lut;
    return result;
}

template <class Px>
bool fill(long width, long height, void *bits, const CRect &rect, const PixelValue<Px> &value)
{
    if (bits == nullptr)
        return false;
    const Span s = clip_rect(width, height, rect);
    if (s.empty())
        return true;
    fill_rows<Px>(view<Px>(width, height, as_bytes(bits)), s, value);
    return true;
}

template <class Px>
bool mirror_h(long width, long height, void *bits, const CRect &rect, typename Px::sample *scratch)
{
    if (bits == nullptr)
        return false;
    const View<Px> v = view<Px>(width, height, as_bytes(bits));
    const CRect rc = cut_to_image(width, height, rect);
    if (fast_paths_enabled())
        mirror_h_rows_fast<Px>(v, rc);
    else
        mirror_h_rows<Px>(v, rc, scratch);
    return true;
}

// Every depth exchanges rows through one heap segment: false, nothing changed, without it.
template <class Px>
bool mirror_v(long width, long height, void *bits, const CRect &rect)
{
    if (bits == nullptr)
        return false;
    const CRect rc = cut_to_image(width, height, rect);
    const int64_t span = static_cast<int64_t>(rc.right) - rc.left + 1;
    const std::size_t bytes =
        span > 0 ? static_cast<std::size_t>(span) * Px::channels * sizeof(typename Px::sample) : 1;
    uint8_t *scratch = static_cast<uint8_t *>(try_alloc(bytes));
    if (scratch == nullptr)
        return false;
    const View<Px> v = view<Px>(width, height, as_bytes(bits));
    if (fast_paths_enabled()) // exchanges in place; the segment is still taken so that both paths fail alike
        mirror_v_rows_fast<Px>(v, rc);
    else
        mirror_v_rows<Px>(v, rc, scratch);
    std::free(scratch);
    return true;
}

template <class Px>
bool rotate(int angle, long width, long height, void *bits, long widthOut, long heightOut, void *bitsOut)
{
    if (angle == CTraitementImgBase::e_Angle90 || angle == CTraitementImgBase::e_Angle270) {
        if (widthOut != height || heightOut != width)
            return false;
    } else if (angle == CTraitementImgBase::e_Angle180) {
        if (widthOut != width || heightOut != height)
            return false;
    } else {
        return false;
    }
    if (height < 1)
        return true;
    if (bits == nullptr || bitsOut == nullptr)
        return false;
    if (width < 1)
        return true;
    quick_rotate<Px>(view<Px>(width, height, as_bytes(bits)), view<Px>(widthOut, heightOut, as_bytes(bitsOut)), angle);
    return true;
}

// The image form of the quarter turn: a new image of the turned size and of the IMAGE's depth,
// the buffer form of the processor, then the stores are exchanged, whatever the buffer form
// said. Unlike every other image form it does not compare the image's depth with the
// processor's. An image of a smaller depth is still refused: its rows are shorter than those
// the processor would walk.
template <class Proc>
bool rotate_image(Proc &proc, unsigned bpp, CTraitementImgBase::e_angle angle, CDibRoot *image)
{
    if (image == nullptr)
        return false;
    CSize size;
    if (angle == CTraitementImgBase::e_Angle180)
        size = CSize(static_cast<int>(image->Width()), static_cast<int>(image->Height()));
    else if (angle == CTraitementImgBase::e_Angle90 || angle == CTraitementImgBase::e_Angle270)
        size = CSize(static_cast<int>(image->Height()), static_cast<int>(image->Width()));
    else
        return false;
    if (image->BitCount() < bpp)
        return false;
    CDibRoot *turned = try_new<CDibRoot>(size, image->BitCount());
    if (turned == nullptr)
        return false;
    bool result = false;
    if (turned->IsOK() && image->IsOK()) {
        // Clear first: the turn writes pixels only, and the new rows' padding should not be
        // whatever the allocator left there.
        std::memset(turned->GetBits(), 0, static_cast<std::size_t>(turned->Pitch()) * static_cast<std::size_t>(turned->Height()));
        CRect rect = image->BoundingRectangle();
        result = proc.QuickRotate(angle, image->Width(), image->Height(), image->GetBits(), rect,
                                  turned->Width(), turned->Height(), turned->GetBits());
        image->ReleaseBits();
        turned->ReleaseBits();
        image->SwapImage(*turned);
    }
    delete turned;
    return result;
}

// The image form of the addition/subtraction entry point: it validates both images like any
// image form, then runs the buffer form, which changes nothing in this version.
template <class Proc>
bool addition_image(Proc &proc, unsigned bpp, float poids, CDibRoot *image, CDibRoot *image2)
{
    if (image == nullptr || image2 == nullptr)
        return false;
    if (image->BitCount() != bpp || image2->BitCount() != bpp)
        return false;
    if (image->Width() != image2->Width() || image->Height() != image2->Height())
        return false;
    if (!image->IsOK() || !image2->IsOK())
        return false;
    CRect rect = image->BoundingRectangle();
    void *bits = image->GetBits();
    void *bits2 = image2->GetBits();
    const bool result = proc.AdditionSoustraction(poids, image->Width(), image->Height(), bits, bits2, rect);
    image->ReleaseBits();
    image2->ReleaseBits();
    return result;
}

// The 24-bit class moves three bytes a pixel only while its depth field says 24 (its
// constructor sets it, and only a derived class could change it); at any other depth it moves
// single bytes, addressed as 8-bit pixels. Fill is the exception: it always writes three bytes.
bool moves_whole_pixels(unsigned bpp) { return bpp == 24; }

} // namespace
} // namespace detail

using detail::Bgr24;
using detail::Grey16;
using detail::Grey8;

// ---- Negatif ---------------------------------------------------------------------------------------

bool CTraitementImg_8_Bpp::Negatif(long width, long height, void *bits, CRect &rect)
{
    return detail::negative_grey<CLUT_8_Bpp, Grey8>(m_bpp, width, height, bits, rect);
}

bool CTraitementImg_16_Bpp::Negatif(long width, long height, void *bits, CRect &rect)
{
    return detail::negative_grey<CLUT_16_Bpp, Grey16>(m_bpp, width, height, bits, rect);
}

bool CTraitementImg_24_Bpp::Negatif(long width, long height, void *bits, CRect &rect)
{
    // Colour: the inverted grey palette on all three channels, that is 255 - v on every byte of
    // the table walk's span, which the fast path does directly.
    if (detail::fast_paths_enabled() && bits != nullptr) {
        detail::complement_span(detail::view<Bgr24>(width, height, static_cast<unsigned char *>(bits)),
                                detail::clip_rect(width, height, rect));
        return true;
    }
    CLUT_24_Bpp lut(e_Palette12);
    return lut.FiltrerBuffer(width, height, bits, rect);
}

bool CTraitementImg_8_Bpp::Negatif(CDibRoot *image)
{
    return detail::run_image_form(m_bpp, image, [&](long w, long h, void *b, CRect &rc) { return Negatif(w, h, b, rc); });
}

bool CTraitementImg_16_Bpp::Negatif(CDibRoot *image)
{
    return detail::run_image_form(m_bpp, image, [&](long w, long h, void *b, CRect &rc) { return Negatif(w, h, b, rc); });
}

bool CTraitementImg_24_Bpp::Negatif(CDibRoot *image)
{
    return detail::run_image_form(m_bpp, image, [&](long w, long h, void *b, CRect &rc) { return Negatif(w, h, b, rc); });
}

// ---- Fill ------------------------------------------------------------------------------------------

bool CTraitementImg_8_Bpp::Fill(unsigned char value, long width, long height, void *bits, CRect &rect)
{
    return detail::fill<Grey8>(width, height, bits, rect, {{value}});
}

bool CTraitementImg_16_Bpp::Fill(unsigned short value, long width, long height, void *bits, CRect &rect)
{
    return detail::fill<Grey16>(width, height, bits, rect, {{value}});
}

bool CTraitementImg_24_Bpp::Fill(unsigned long value, long width, long height, void *bits, CRect &rect)
{
    // Bits 0-7, 8-15, 16-23 in memory order; the top byte is ignored. Three bytes a pixel
    // whatever the depth field says.
    const detail::PixelValue<Bgr24> pixel = {{static_cast<uint8_t>(value & 0xFF),
                                              static_cast<uint8_t>((value >> 8) & 0xFF),
                                              static_cast<uint8_t>((value >> 16) & 0xFF)}};
    return detail::fill<Bgr24>(width, height, bits, rect, pixel);
}

bool CTraitementImg_8_Bpp::Fill(unsigned char value, CDibRoot *image)
{
    return detail::run_image_form(m_bpp, image, [&](long w, long h, void *b, CRect &rc) { return Fill(value, w, h, b, rc); });
}

bool CTraitementImg_16_Bpp::Fill(unsigned short value, CDibRoot *image)
{
    return detail::run_image_form(m_bpp, image, [&](long w, long h, void *b, CRect &rc) { return Fill(value, w, h, b, rc); });
}

bool CTraitementImg_24_Bpp::Fill(unsigned long value, CDibRoot *image)
{
    return detail::run_image_form(m_bpp, image, [&](long w, long h, void *b, CRect &rc) { return Fill(value, w, h, b, rc); });
}

// ---- Mirroir_Horizontal ------------------------------------------------------------------------

bool CTraitementImg_8_Bpp::Mirroir_Horizontal(long width, long height, void *bits, CRect &rect)
{
    uint8_t scratch;
    return detail::mirror_h<Grey8>(width, height, bits, rect, &scratch);
}

bool CTraitementImg_16_Bpp::Mirroir_Horizontal(long width, long height, void *bits, CRect &rect)
{
    uint16_t scratch;
    return detail::mirror_h<Grey16>(width, height, bits, rect, &scratch);
}

bool CTraitementImg_24_Bpp::Mirroir_Horizontal(long width, long height, void *bits, CRect &rect)
{
    // The 24-bit exchange goes through a pixel taken from the heap: without it nothing is done
    // and the result is false. The grey classes need no allocation and cannot fail here.
    const bool whole = detail::moves_whole_pixels(m_bpp);
    uint8_t *scratch = static_cast<uint8_t *>(detail::try_alloc(whole ? 3 : 1));
    if (scratch == nullptr)
        return false;
    const bool result = whole ? detail::mirror_h<Bgr24>(width, height, bits, rect, scratch)
                              : detail::mirror_h<Grey8>(width, height, bits, rect, scratch);
    std::free(scratch);
    return result;
}

bool CTraitementImg_8_Bpp::Mirroir_Horizontal(CDibRoot *image)
{
    return detail::run_image_form(m_bpp, image, [&](long w, long h, void *b, CRect &rc) { return Mirroir_Horizontal(w, h, b, rc); });
}

bool CTraitementImg_16_Bpp::Mirroir_Horizontal(CDibRoot *image)
{
    return detail::run_image_form(m_bpp, image, [&](long w, long h, void *b, CRect &rc) { return Mirroir_Horizontal(w, h, b, rc); });
}

bool CTraitementImg_24_Bpp::Mirroir_Horizontal(CDibRoot *image)
{
    return detail::run_image_form(m_bpp, image, [&](long w, long h, void *b, CRect &rc) { return Mirroir_Horizontal(w, h, b, rc); });
}

// ---- Mirroir_Vertical --------------------------------------------------------------------------

bool CTraitementImg_8_Bpp::Mirroir_Vertical(long width, long height, void *bits, CRect &rect)
{
    return detail::mirror_v<Grey8>(width, height, bits, rect);
}

bool CTraitementImg_16_Bpp::Mirroir_Vertical(long width, long height, void *bits, CRect &rect)
{
    return detail::mirror_v<Grey16>(width, height, bits, rect);
}

bool CTraitementImg_24_Bpp::Mirroir_Vertical(long width, long height, void *bits, CRect &rect)
{
    return detail::moves_whole_pixels(m_bpp) ? detail::mirror_v<Bgr24>(width, height, bits, rect)
                                             : detail::mirror_v<Grey8>(width, height, bits, rect);
}

bool CTraitementImg_8_Bpp::Mirroir_Vertical(CDibRoot *image)
{
    return detail::run_image_form(m_bpp, image, [&](long w, long h, void *b, CRect &rc) { return Mirroir_Vertical(w, h, b, rc); });
}

bool CTraitementImg_16_Bpp::Mirroir_Vertical(CDibRoot *image)
{
    return detail::run_image_form(m_bpp, image, [&](long w, long h, void *b, CRect &rc) { return Mirroir_Vertical(w, h, b, rc); });
}

bool CTraitementImg_24_Bpp::Mirroir_Vertical(CDibRoot *image)
{
    return detail::run_image_form(m_bpp, image, [&](long w, long h, void *b, CRect &rc) { return Mirroir_Vertical(w, h, b, rc); });
}

// ---- QuickRotate -------------------------------------------------------------------------------
// The rectangle is ignored: the whole buffer turns.

bool CTraitementImg_8_Bpp::QuickRotate(e_angle angle, long width, long height, void *bits, CRect &,
                                       long widthOut, long heightOut, void *bitsOut)
{
    return detail::rotate<Grey8>(angle, width, height, bits, widthOut, heightOut, bitsOut);
}

bool CTraitementImg_16_Bpp::QuickRotate(e_angle angle, long width, long height, void *bits, CRect &,
                                        long widthOut, long heightOut, void *bitsOut)
{
    return detail::rotate<Grey16>(angle, width, height, bits, widthOut, heightOut, bitsOut);
}

bool CTraitementImg_24_Bpp::QuickRotate(e_angle angle, long width, long height, void *bits, CRect &,
                                        long widthOut, long heightOut, void *bitsOut)
{
    return detail::moves_whole_pixels(m_bpp)
               ? detail::rotate<Bgr24>(angle, width, height, bits, widthOut, heightOut, bitsOut)
               : detail::rotate<Grey8>(angle, width, height, bits, widthOut, heightOut, bitsOut);
}

bool CTraitementImg_8_Bpp::QuickRotate(e_angle angle, CDibRoot *image)
{
    return detail::rotate_image(*this, m_bpp, angle, image);
}

bool CTraitementImg_16_Bpp::QuickRotate(e_angle angle, CDibRoot *image)
{
    return detail::rotate_image(*this, m_bpp, angle, image);
}

bool CTraitementImg_24_Bpp::QuickRotate(e_angle angle, CDibRoot *image)
{
    return detail::rotate_image(*this, m_bpp, angle, image);
}

// ---- AdditionSoustraction (grey classes only) ----------------------------------------------------
// A no-op in this version: float-image arithmetic is CTraitementImgBase::AdditionSoustractionFloat.

bool CTraitementImg_8_Bpp::AdditionSoustraction(float, long, long, void *, void *, CRect &)
{
    return true;
}

bool CTraitementImg_16_Bpp::AdditionSoustraction(float, long, long, void *, void *, CRect &)
{
    return true;
}

bool CTraitementImg_8_Bpp::AdditionSoustraction(float poids, CDibRoot *image, CDibRoot *image2)
{
    return detail::addition_image(*this, m_bpp, poids, image, image2);
}

bool CTraitementImg_16_Bpp::AdditionSoustraction(float poids, CDibRoot *image, CDibRoot *image2)
{
    return detail::addition_image(*this, m_bpp, poids, image, image2);
}

} // namespace kevra
