// Selective median of the 8-, 16- and 24-bit classes.
//
// The window walk, the bands and the once-per-call sort flag are shared (detail/median.h).
// The interiors differ between depths on purpose, and each difference is one named rule
// below: the precision of the mean, strict or inclusive tests, and which neighbours the
// 24-bit class gathers. Results at the three depths therefore round differently; that is
// part of the behaviour, not something to unify.
#include "kevra/traitement.h"

#include "core/image_form.h"
#include "kevra/dib.h"
#include "processing/detail/median.h"
#include "processing/detail/median_rules.h"

namespace kevra {

namespace {

using detail::Bgr24;
using detail::Grey16;
using detail::Grey8;
using detail::InteriorHalfWindowQuotient;
using detail::InteriorReciprocalDouble;
using detail::InteriorSingleStrict;

// The plain bubble sort with its own flag: the filter does not call it (it keeps its flag for
// the whole call instead).
template <class T>
void tri_bulle(T *values, int count)
{
    bool swapped = true;
    detail::bubble_sort_flagged(values, static_cast<int64_t>(count), swapped);
}

} // namespace

// ---- 8 bits -------------------------------------------------------------------------------

bool CTraitementImg_8_Bpp::FiltreMedianSimple(long width, long height, void *bits, void *out,
                                              CRect &rect, double tolerance, unsigned short rayon)
{
    return detail::median_simple<Grey8, InteriorReciprocalDouble>(width, height, bits, out, rect,
                                                                  tolerance, rayon);
}

bool CTraitementImg_8_Bpp::FiltreMedian(long width, long height, void *bits, CRect &rect,
                                        double tolerance, unsigned short rayon)
{
    return detail::median_in_place<Grey8, InteriorReciprocalDouble>(width, height, bits, rect,
                                                                     tolerance, rayon);
}

bool CTraitementImg_8_Bpp::FiltreMedian(CDibRoot *image, double tolerance, unsigned short rayon)
{
    return detail::run_image_form(m_bpp, image, [&](long w, long h, void *bits, CRect &rc) {
        return FiltreMedian(w, h, bits, rc, tolerance, rayon);
    });
}

void CTraitementImg_8_Bpp::TriBulleOptimise(unsigned char *valeurs, int nombre)
{
    tri_bulle(valeurs, nombre);
}

// ---- 16 bits ------------------------------------------------------------------------------

bool CTraitementImg_16_Bpp::FiltreMedianSimple(long width, long height, void *bits, void *out,
                                               CRect &rect, double tolerance, unsigned short rayon)
{
    return detail::median_simple<Grey16, InteriorSingleStrict>(width, height, bits, out, rect,
                                                               tolerance, rayon);
}

bool CTraitementImg_16_Bpp::FiltreMedian(long width, long height, void *bits, CRect &rect,
                                         double tolerance, unsigned short rayon)
{
    return detail::median_in_place<Grey16, InteriorSingleStrict>(width, height, bits, rect,
                                                                  tolerance, rayon);
}

bool CTraitementImg_16_Bpp::FiltreMedian(CDibRoot *image, double tolerance, unsigned short rayon)
{
    return detail::run_image_form(m_bpp, image, [&](long w, long h, void *bits, CRect &rc) {
        return FiltreMedian(w, h, bits, rc, tolerance, rayon);
    });
}

void CTraitementImg_16_Bpp::TriBulleOptimise(unsigned short *valeurs, int nombre)
{
    tri_bulle(valeurs, nombre);
}

// ---- 24 bits ------------------------------------------------------------------------------

bool CTraitementImg_24_Bpp::FiltreMedianSimple(long width, long height, void *bits, void *out,
                                               CRect &rect, double tolerance, unsigned short rayon)
{
    if (rayon == 1)
        return detail::median_simple<Bgr24, InteriorHalfWindowQuotient<true>>(width, height, bits, out,
                                                                               rect, tolerance, rayon);
    return detail::median_simple<Bgr24, InteriorHalfWindowQuotient<false>>(width, height, bits, out,
                                                                            rect, tolerance, rayon);
}

bool CTraitementImg_24_Bpp::FiltreMedian(long width, long height, void *bits, CRect &rect,
                                         double tolerance, unsigned short rayon)
{
    if (rayon == 1)
        return detail::median_in_place<Bgr24, InteriorHalfWindowQuotient<true>>(width, height, bits, rect,
                                                                                tolerance, rayon);
    return detail::median_in_place<Bgr24, InteriorHalfWindowQuotient<false>>(width, height, bits, rect,
                                                                             tolerance, rayon);
}

bool CTraitementImg_24_Bpp::FiltreMedian(CDibRoot *image, double tolerance, unsigned short rayon)
{
    return detail::run_image_form(m_bpp, image, [&](long w, long h, void *bits, CRect &rc) {
        return FiltreMedian(w, h, bits, rc, tolerance, rayon);
    });
}

void CTraitementImg_24_Bpp::TriBulleOptimise(unsigned char *valeurs, int nombre)
{
    tri_bulle(valeurs, nombre);
}

} // namespace kevra
