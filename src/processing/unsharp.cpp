// Unsharp masking of the 8-, 16- and 24-bit classes (steps in detail/unsharp.h). The depths
// differ in the median pre-filter (each class's own FiltreMedian, per channel at 24 bits), in
// the clip of the result (the sample range) and in the plane layout, which is the processing
// base's for the object's depth.
#include "kevra/traitement.h"

#include "core/image_form.h"
#include "kevra/dib.h"
#include "processing/detail/unsharp.h"

namespace kevra {

namespace {

// The image form of the disc form: the usual refusals, then the whole image (its working zone
// plays no part).
template <class DiscForm>
bool unsharp_disc_image(unsigned depth, CDibRoot *image, DiscForm &&disc_form)
{
    if (image == nullptr || image->BitCount() != depth || !image->IsOK())
        return false;
    void *bits = image->GetBits();
    const long height = image->Height();
    const long width = image->Width();
    const bool ok = disc_form(width, height, bits);
    image->ReleaseBits();
    return ok;
}

} // namespace

// ---- 8 bits -------------------------------------------------------------------------------

bool CTraitementImg_8_Bpp::UnsharpMasking(long width, long height, void *bits, CRect &rect,
                                          float rayon, float gainP, float gainN, float SeuilP,
                                          float SeuilN)
{
    return detail::unsharp_rect(m_bpp, width, height, bits, rect, {rayon, gainP, gainN, SeuilP, SeuilN},
                                255.0f, [this](long w, long h, void *b, CRect &rc, double t, unsigned short n) {
                                    return FiltreMedian(w, h, b, rc, t, n);
                                },
                                [this](long w, long h, void *b, void *o, CRect &rc, double t, unsigned short n) {
                                    return FiltreMedianSimple(w, h, b, o, rc, t, n);
                                });
}

bool CTraitementImg_8_Bpp::UnsharpMasking(CDibRoot *image, float rayon, float gainP, float gainN,
                                          float SeuilP, float SeuilN)
{
    return detail::run_image_form(m_bpp, image, [&](long w, long h, void *b, CRect &rc) {
        return UnsharpMasking(w, h, b, rc, rayon, gainP, gainN, SeuilP, SeuilN);
    });
}

bool CTraitementImg_8_Bpp::UnsharpMasking(long width, long height, void *bits, CPoint &centre,
                                          long radius, float rayon, float gainP, float gainN,
                                          float SeuilP, float SeuilN)
{
    return detail::unsharp_disc(m_bpp, width, height, bits, centre, radius,
                                [&](long w, long h, void *b, CRect &rc) {
                                    return UnsharpMasking(w, h, b, rc, rayon, gainP, gainN, SeuilP, SeuilN);
                                });
}

bool CTraitementImg_8_Bpp::UnsharpMasking(CDibRoot *image, CPoint &centre, long radius, float rayon,
                                          float gainP, float gainN, float SeuilP, float SeuilN)
{
    return unsharp_disc_image(m_bpp, image, [&](long w, long h, void *b) {
        return UnsharpMasking(w, h, b, centre, radius, rayon, gainP, gainN, SeuilP, SeuilN);
    });
}

// ---- 16 bits ------------------------------------------------------------------------------

// The result is clipped to the 16-bit range.
bool CTraitementImg_16_Bpp::UnsharpMasking(long width, long height, void *bits, CRect &rect,
                                           float rayon, float gainP, float gainN, float SeuilP,
                                           float SeuilN)
{
    return detail::unsharp_rect(m_bpp, width, height, bits, rect, {rayon, gainP, gainN, SeuilP, SeuilN},
                                65535.0f, [this](long w, long h, void *b, CRect &rc, double t, unsigned short n) {
                                    return FiltreMedian(w, h, b, rc, t, n);
                                },
                                [this](long w, long h, void *b, void *o, CRect &rc, double t, unsigned short n) {
                                    return FiltreMedianSimple(w, h, b, o, rc, t, n);
                                });
}

bool CTraitementImg_16_Bpp::UnsharpMasking(CDibRoot *image, float rayon, float gainP, float gainN,
                                           float SeuilP, float SeuilN)
{
    return detail::run_image_form(m_bpp, image, [&](long w, long h, void *b, CRect &rc) {
        return UnsharpMasking(w, h, b, rc, rayon, gainP, gainN, SeuilP, SeuilN);
    });
}

bool CTraitementImg_16_Bpp::UnsharpMasking(long width, long height, void *bits, CPoint &centre,
                                           long radius, float rayon, float gainP, float gainN,
                                           float SeuilP, float SeuilN)
{
    return detail::unsharp_disc(m_bpp, width, height, bits, centre, radius,
                                [&](long w, long h, void *b, CRect &rc) {
                                    return UnsharpMasking(w, h, b, rc, rayon, gainP, gainN, SeuilP, SeuilN);
                                });
}

bool CTraitementImg_16_Bpp::UnsharpMasking(CDibRoot *image, CPoint &centre, long radius, float rayon,
                                           float gainP, float gainN, float SeuilP, float SeuilN)
{
    return unsharp_disc_image(m_bpp, image, [&](long w, long h, void *b) {
        return UnsharpMasking(w, h, b, centre, radius, rayon, gainP, gainN, SeuilP, SeuilN);
    });
}

// ---- 24 bits ------------------------------------------------------------------------------

// Three planes' worth of samples a pixel; the detail rule applies to each of them.
bool CTraitementImg_24_Bpp::UnsharpMasking(long width, long height, void *bits, CRect &rect,
                                           float rayon, float gainP, float gainN, float SeuilP,
                                           float SeuilN)
{
    return detail::unsharp_rect(m_bpp, width, height, bits, rect, {rayon, gainP, gainN, SeuilP, SeuilN},
                                255.0f, [this](long w, long h, void *b, CRect &rc, double t, unsigned short n) {
                                    return FiltreMedian(w, h, b, rc, t, n);
                                },
                                [this](long w, long h, void *b, void *o, CRect &rc, double t, unsigned short n) {
                                    return FiltreMedianSimple(w, h, b, o, rc, t, n);
                                });
}

bool CTraitementImg_24_Bpp::UnsharpMasking(CDibRoot *image, float rayon, float gainP, float gainN,
                                           float SeuilP, float SeuilN)
{
    return detail::run_image_form(m_bpp, image, [&](long w, long h, void *b, CRect &rc) {
        return UnsharpMasking(w, h, b, rc, rayon, gainP, gainN, SeuilP, SeuilN);
    });
}

bool CTraitementImg_24_Bpp::UnsharpMasking(long width, long height, void *bits, CPoint &centre,
                                           long radius, float rayon, float gainP, float gainN,
                                           float SeuilP, float SeuilN)
{
    return detail::unsharp_disc(m_bpp, width, height, bits, centre, radius,
                                [&](long w, long h, void *b, CRect &rc) {
                                    return UnsharpMasking(w, h, b, rc, rayon, gainP, gainN, SeuilP, SeuilN);
                                });
}

bool CTraitementImg_24_Bpp::UnsharpMasking(CDibRoot *image, CPoint &centre, long radius, float rayon,
                                           float gainP, float gainN, float SeuilP, float SeuilN)
{
    return unsharp_disc_image(m_bpp, image, [&](long w, long h, void *b) {
        return UnsharpMasking(w, h, b, centre, radius, rayon, gainP, gainN, SeuilP, SeuilN);
    });
}

} // namespace kevra
