// Fast paths of the histogram counts (also those of the percentile stretch, whose table then
// goes through the tables' own fast path). The counts are the plain ones: integers, which any
// order of addition gives alike. The differential tests compare both paths on random buffers.
#ifndef KEVRA_PROCESSING_DETAIL_HISTOGRAM_FAST_H
#define KEVRA_PROCESSING_DETAIL_HISTOGRAM_FAST_H

#include <cstdint>
#include <cstring>

#include "core/pixel.h"

namespace kevra {
namespace detail {

// ---- counts -------------------------------------------------------------------------------------
// Neighbouring pixels of a picture often share a level; counting them into one array makes each
// increment wait for the previous one. Pixels are dealt in turn to several sub-histograms of
// 32-bit counts, merged at the end. Fits when the span has fewer than 2^32 pixels (no count can
// wrap); the plain walk takes the rest.

inline bool counts_fit(const Span &s)
{
    if (s.empty())
        return true;
    const uint64_t pixels = static_cast<uint64_t>(s.x1 - s.x0 + 1) * static_cast<uint64_t>(s.r1 - s.r0 + 1);
    return pixels < (uint64_t(1) << 32);
}

// Grey levels into `nbins` bins (one a level) through `Subs` sub-histograms held in `scratch`
// (Subs * nbins counts); the bins are cleared first, as by count_levels.
template <class Px, int Subs>
void count_grey_fast(const View<Px> &v, const Span &s, long *bins, int32_t nbins, uint32_t *scratch)
{
    static_assert(Px::channels == 1, "grey levels only");
    std::memset(scratch, 0, sizeof(uint32_t) * static_cast<std::size_t>(nbins) * Subs);
    if (!s.empty()) {
        const int32_t n = s.x1 - s.x0 + 1;
        for (int32_t r = s.r0; r <= s.r1; ++r) {
            const typename Px::sample *p = v.pixel(s.x0, r);
            int32_t x = 0;
            for (; x + Subs <= n; x += Subs)
                for (int k = 0; k < Subs; ++k)
                    ++scratch[k * nbins + p[x + k]];
            for (; x < n; ++x)
                ++scratch[p[x]];
        }
    }
    for (int32_t i = 0; i < nbins; ++i) {
        uint32_t total = 0;
        for (int k = 0; k < Subs; ++k)
            total += scratch[k * nbins + i];
        bins[i] = static_cast<long>(total);
    }
}

// The three bytes of each 24-bit pixel, as count_channels: first byte into `first`, and so on.
// Two sub-histograms per byte (alternate pixels).
inline void count_channels_fast(const View<Bgr24> &v, const Span &s, long *first, long *second, long *third)
{
    uint32_t sub[2][3][256];
    std::memset(sub, 0, sizeof sub);
    if (!s.empty()) {
        const int32_t n = s.x1 - s.x0 + 1;
        for (int32_t r = s.r0; r <= s.r1; ++r) {
            const uint8_t *p = v.pixel(s.x0, r);
            int32_t x = 0;
            for (; x + 2 <= n; x += 2, p += 6) {
                ++sub[0][0][p[0]];
                ++sub[0][1][p[1]];
                ++sub[0][2][p[2]];
                ++sub[1][0][p[3]];
                ++sub[1][1][p[4]];
                ++sub[1][2][p[5]];
            }
            if (x < n) {
                ++sub[0][0][p[0]];
                ++sub[0][1][p[1]];
                ++sub[0][2][p[2]];
            }
        }
    }
    long *out[3] = {first, second, third};
    for (int c = 0; c < 3; ++c)
        for (int i = 0; i < 256; ++i)
            out[c][i] = static_cast<long>(sub[0][c][i] + sub[1][c][i]);
}

} // namespace detail
} // namespace kevra

#endif
