// Fast paths of the histograms and of the percentile stretch. The counts are the plain ones
// (integers, any order of addition gives the same totals) and the stretch gives every pixel the
// entry the plain table gives it, computed with the same single-precision product; the
// differential tests compare both paths on random buffers.
#ifndef KEVRA_PROCESSING_DETAIL_HISTOGRAM_FAST_H
#define KEVRA_PROCESSING_DETAIL_HISTOGRAM_FAST_H

#include <cstdint>
#include <cstring>

#include "processing/detail/histogram.h"
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

// 8 or 16-bit grey levels into `nbins` bins (256 or 65536) through `subs` sub-histograms held in
// `scratch` (subs * nbins counts); the bins are cleared first, as by count_levels.
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

// ---- stretch ------------------------------------------------------------------------------------
// The stretch table of stretch_table as a formula: levels from high on give M, levels up to low
// give 0 (high wins when high <= low, as the table's second range overwrites the first), and
// low + k in between gives truncate(k * scale), the same single-precision product. k is held
// to 0 .. high - low before the product so that no lane of the vector code converts a float out
// of the int range; inside the ramp it is unchanged.
struct StretchFormula {
    int32_t low;
    int32_t high;
    int32_t m;
    float scale;
};

inline StretchFormula stretch_formula(int32_t levels, const StretchLimits &lim)
{
    StretchFormula f;
    f.low = lim.low;
    f.high = lim.high;
    f.m = levels - 1;
    const int32_t span = lim.high - lim.low;
    f.scale = span > 1 ? static_cast<float>(f.m) / static_cast<float>(span) : 0.0f;
    return f;
}

inline int32_t stretch_level(int32_t v, const StretchFormula &f)
{
    const int32_t span = f.high - f.low;
    int32_t k = v - f.low;
    k = k < 0 ? 0 : k;
    k = k > span ? span : k;
    const int32_t ramp = static_cast<int32_t>(static_cast<float>(k) * f.scale);
    // Branch-free choice (masks of all ones or zero), so that the loop stays vector code.
    const int32_t above_low = -static_cast<int32_t>(v > f.low);
    const int32_t at_high = -static_cast<int32_t>(v >= f.high);
    return (ramp & above_low & ~at_high) | (f.m & at_high);
}

// n samples from p, in blocks of 16 that the compiler vectorises.
template <class T>
void stretch_samples(T *p, int64_t n, const StretchFormula &formula)
{
    const StretchFormula f = formula; // a local copy: byte stores could otherwise alias it
    constexpr int kBlock = 16;
    int64_t i = 0;
    for (; i + kBlock <= n; i += kBlock)
        for (int k = 0; k < kBlock; ++k)
            p[i + k] = static_cast<T>(stretch_level(p[i + k], f));
    for (; i < n; ++i)
        p[i] = static_cast<T>(stretch_level(p[i], f));
}

// Every sample of the table walk's span (all three bytes of a 24-bit pixel).
template <class Px>
void stretch_span(const View<Px> &v, const Span &s, const StretchFormula &f)
{
    if (s.empty())
        return;
    const int64_t n = static_cast<int64_t>(s.x1 - s.x0 + 1) * Px::channels;
    for (int32_t r = s.r0; r <= s.r1; ++r)
        stretch_samples(v.pixel(s.x0, r), n, f);
}

} // namespace detail
} // namespace kevra

#endif
