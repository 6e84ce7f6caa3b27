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

namespace kevra {

namespace {

using detail::Bgr24;
using detail::Grey16;
using detail::Grey8;

// Every window pixel but the centre, in gathering order; the sum in single precision.
template <class S>
float gather_full_window(const S *centre, std::ptrdiff_t pitch, int channels, int32_t n, S *out)
{
    float sum = 0.0f;
    int64_t k = 0;
    for (int32_t dy = -n; dy <= n; ++dy) {
        const S *row = centre + dy * pitch;
        for (int32_t dx = -n; dx <= n; ++dx) {
            if (dy == 0 && dx == 0)
                continue;
            const S v = row[dx * channels];
            out[k++] = v;
            sum += static_cast<float>(v);
        }
    }
    return sum;
}

// 8-bit interior: double precision, mean = sum x (1 / N) with 1 / N taken once in double,
// inclusive tests against mean x (1 +- tolerance).
struct InteriorReciprocalDouble {
    static constexpr bool half_window = false;
    double inverse;
    double tolerance;
    InteriorReciprocalDouble(int64_t N, double tol) : inverse(1.0 / static_cast<double>(N)), tolerance(tol) {}

    float gather(const uint8_t *centre, std::ptrdiff_t pitch, int32_t n, uint8_t *out) const
    {
        return gather_full_window(centre, pitch, 1, n, out);
    }
    double mean(float sum) const { return static_cast<double>(sum) * inverse; }
    bool screen(float &up, float &down) const { return detail::median_screen_factors(inverse, tolerance, up, down); }
    bool above(uint32_t centre, float sum) const { return double(centre) >= mean(sum) * (1.0 + tolerance); }
    bool below(uint32_t centre, float sum) const { return double(centre) <= mean(sum) * (1.0 - tolerance); }
    bool replaces(uint32_t centre, float sum) const
    {
        const bool up = above(centre, sum), down = below(centre, sum);
        return up || down;
    }
};

// 16-bit interior: single precision throughout (a deliberate difference from the 8-bit class,
// part of the 16-bit results), mean = sum x (1 / N) with 1 / N in single precision,
// deviation = tolerance x mean, and strict tests: a centre exactly at mean +- deviation stays,
// where the 8-bit class would replace it.
struct InteriorSingleStrict {
    static constexpr bool half_window = false;
    float inverse;
    float tolerance;
    InteriorSingleStrict(int64_t N, double tol)
        : inverse(1.0f / static_cast<float>(N)), tolerance(static_cast<float>(tol))
    {
    }

    float gather(const uint16_t *centre, std::ptrdiff_t pitch, int32_t n, uint16_t *out) const
    {
        return gather_full_window(centre, pitch, 1, n, out);
    }
    bool screen(float &, float &) const { return false; } // the test is single precision already
    bool replaces(uint32_t centre, float sum) const
    {
        const float mean = sum * inverse;
        const float deviation = tolerance * mean;
        const float c = static_cast<float>(centre);
        return (c > mean + deviation) | (c < mean - deviation);
    }
};

// 24-bit interior, one channel at a time: only the neighbours at a positive byte offset from
// the centre (dy x pitch + dx x 3 > 0: the rows above the centre and the right half of its
// own row) are gathered, into the first N / 2 slots. The mean still divides by the full N
// (in double, as a quotient) and the sort takes all N slots, the other half keeping what
// earlier sorts left there. This half window is the 24-bit rule, kept so that 24-bit results
// stay reproducible.
//
// With radius 1, N = 8: a quotient by a power of two is exactly the product by its reciprocal
// (the exact value is representable and both operations round correctly), so that rule
// multiplies, which runs across pixels far faster than a division, with the same bytes.
template <bool PowerOfTwoCount>
struct InteriorHalfWindowQuotient {
    static constexpr bool half_window = true;
    double full;
    double reciprocal;
    double tolerance;
    InteriorHalfWindowQuotient(int64_t N, double tol)
        : full(static_cast<double>(N)), reciprocal(1.0 / static_cast<double>(N)), tolerance(tol)
    {
    }

    float gather(const uint8_t *centre, std::ptrdiff_t pitch, int32_t n, uint8_t *out) const
    {
        float sum = 0.0f;
        int64_t k = 0;
        for (int32_t dy = -n; dy <= n; ++dy)
            for (int32_t dx = -n; dx <= n; ++dx) {
                const std::ptrdiff_t offset = dy * pitch + dx * 3;
                if (offset > 0) {
                    const uint8_t v = centre[offset];
                    out[k++] = v;
                    sum += static_cast<float>(v);
                }
            }
        return sum;
    }
    bool screen(float &up, float &down) const
    {
        return detail::median_screen_factors(reciprocal, tolerance, up, down);
    }
    double mean(float sum) const
    {
        if constexpr (PowerOfTwoCount)
            return static_cast<double>(sum) * reciprocal;
        else
            return static_cast<double>(sum) / full;
    }
    bool above(uint32_t centre, float sum) const { return double(centre) >= mean(sum) * (1.0 + tolerance); }
    bool below(uint32_t centre, float sum) const { return double(centre) <= mean(sum) * (1.0 - tolerance); }
    bool replaces(uint32_t centre, float sum) const
    {
        const bool up = above(centre, sum), down = below(centre, sum);
        return up || down;
    }
};

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
