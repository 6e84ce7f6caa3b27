// Histogram and percentile-stretch kernels. Instantiated in src/processing/histogram.cpp.
#ifndef KEVRA_PROCESSING_DETAIL_HISTOGRAM_H
#define KEVRA_PROCESSING_DETAIL_HISTOGRAM_H

#include <cstdint>

#include "core/float_store.h"
#include "core/pixel.h"

namespace kevra {
namespace detail {

// Every histogram member walks image rows top .. bottom and columns left .. right, inclusive
// (buffer rows height - bottom - 1 .. height - top - 1), cut to the buffer.

// Adds one to bins[level(pixel)] for every pixel of the span; the bins are cleared first.
template <class Px, class Level>
void count_levels(const View<Px> &v, const Span &s, long *bins, int32_t nbins, Level level)
{
    for (int32_t i = 0; i < nbins; ++i)
        bins[i] = 0;
    if (s.empty())
        return;
    for (int32_t r = s.r0; r <= s.r1; ++r) {
        const typename Px::sample *p = v.pixel(s.x0, r);
        for (int32_t x = s.x0; x <= s.x1; ++x, p += Px::channels)
            ++bins[level(p)];
    }
}

// The three bytes of each 24-bit pixel in one pass: the first byte into `first`, and so on.
// Each array has 256 bins and is cleared first.
inline void count_channels(const View<Bgr24> &v, const Span &s, long *first, long *second, long *third)
{
    for (int32_t i = 0; i < 256; ++i)
        first[i] = second[i] = third[i] = 0;
    if (s.empty())
        return;
    for (int32_t r = s.r0; r <= s.r1; ++r) {
        const uint8_t *p = v.pixel(s.x0, r);
        for (int32_t x = s.x0; x <= s.x1; ++x, p += 3) {
            ++first[p[0]];
            ++second[p[1]];
            ++third[p[2]];
        }
    }
}

// Luminance level of a 24-bit pixel: the weights go to the second, first and third bytes in
// that order of addition, in double precision, truncated. A grey pixel of level i can fall to
// i - 1 (254 gives 253): that is the level.
inline int32_t luminance_level(const uint8_t *p)
{
    return truncate_i32(0.587 * p[1] + 0.299 * p[0] + 0.114 * p[2]);
}

struct StretchLimits {
    int32_t low;
    int32_t high;
};

// Percentile limits of the stretch, for a histogram of `levels` bins (M = levels - 1), a low
// share p and a high point q. `pixels` is the pixel count of the WHOLE buffer, not of the
// rectangle. All products are single precision, truncated: with q = 0.99 and 10000 pixels the
// high count is 99, not 100, because 1 - 0.99f is slightly below 0.01.
inline StretchLimits stretch_limits(const long *bins, int32_t levels, float p, float q, float pixels)
{
    const int32_t m = levels - 1;
    const int32_t a = truncate_i32(static_cast<float>(levels) * p);
    const int32_t t1 = truncate_i32(pixels * p);
    const int32_t b = truncate_i32(static_cast<float>(levels) * q);
    const int32_t t2 = truncate_i32((1.0f - q) * pixels);

    // Low cut: walk 0 .. a, adding bins while the running count is below T1; low follows the
    // last bin added. Indexes beyond the histogram (a share above 1) are not read.
    StretchLimits lim = {0, m};
    double s = 0.0;
    const int32_t a_end = a < m ? a : m;
    for (int32_t i = 0; i <= a_end; ++i) {
        if (s < t1) {
            s += static_cast<double>(bins[i]);
            lim.low = i;
        }
    }
    // High cut: walk M down to b, stopping as soon as the running count reaches T2.
    s = 0.0;
    const int32_t b_end = b > 0 ? b : 0;
    for (int32_t i = m; i >= b_end; --i) {
        if (s >= t2)
            break;
        s += static_cast<double>(bins[i]);
        lim.high = i;
    }
    return lim;
}

// The stretch table: 0 .. low give 0, high .. M give M, and low + k for k = 1 .. high - low - 1
// gives truncate(k * scale) with scale = M / (high - low) in single precision. In that order:
// when high <= low the second range overwrites the first and no ramp is written.
template <class T>
void stretch_table(T *table, int32_t levels, const StretchLimits &lim)
{
    const int32_t m = levels - 1;
    for (int32_t i = 0; i <= lim.low; ++i)
        table[i] = 0;
    for (int32_t i = lim.high; i <= m; ++i)
        table[i] = static_cast<T>(m);
    if (lim.high - lim.low <= 1)
        return; // no entry between the two
    const float scale = static_cast<float>(m) / static_cast<float>(lim.high - lim.low);
    for (int32_t k = 1; k <= lim.high - lim.low - 1; ++k)
        table[lim.low + k] = static_cast<T>(truncate_i32(static_cast<float>(k) * scale));
}

extern template void stretch_table<uint8_t>(uint8_t *, int32_t, const StretchLimits &);
extern template void stretch_table<uint16_t>(uint16_t *, int32_t, const StretchLimits &);

} // namespace detail
} // namespace kevra

#endif
