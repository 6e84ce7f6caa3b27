// The filtering engine over float planes, shared by the 1- and 3-colour forms.
//
// A plane holds width pixels a row, C floats a pixel (C = 1 grey, C = 3 blue,
// green, red), bottom row first. The 3-colour engines are the 1-colour ones
// with a stride of C floats across and C*width floats down: each component
// only ever meets the same component of its neighbours.
//
// Two paths compute the same bytes:
// - the plain path (…_plain) walks pixel by pixel through whole planes and
//   states each sum exactly as the kernel defines it; it is the definition;
// - the fast path (stream.h) walks the same formulas through rings of rows.
#ifndef KEVRA_FILTERS_DETAIL_CONVOLUTION_H
#define KEVRA_FILTERS_DETAIL_CONVOLUTION_H

#include <cstddef>
#include <cstdint>

#include "core/clamp.h"
#include "core/fast_path.h"
#include "core/pixel.h"
#include "kevra/types.h"

namespace kevra::detail {

// The working rectangle turned into plane bounds: columns L..R, buffer rows
// B..T (B the lowest), all inclusive. Each bound is clamped into the image on
// its own, so a rectangle lying wholly outside still meets the nearest edge.
struct FilterRegion {
    int64_t L = 0, R = -1, B = 0, T = -1;
    bool empty() const { return L > R || B > T; }
};


inline FilterRegion filter_region(int64_t width, int64_t height, const CRect & rc)
{
    FilterRegion g;
    if (width <= 0 || height <= 0)
        return g;
    g.L = clamp_to(rc.left, 0, width - 1);
    g.R = clamp_to(rc.right, 0, width - 1);
    g.B = clamp_to(height - 1 - int64_t(rc.bottom), 0, height - 1);
    g.T = clamp_to(height - 1 - int64_t(rc.top), 0, height - 1);
    return g;
}

// Border rule of the low side (left, bottom) for taps that fall outside the
// rectangle. The separable engines mirror about the edge, the edge sample
// repeated. The full-kernel engines read a shifted run instead: with m taps of
// a kernel row (or m kernel rows) outside, a tap at p reads p + 2m - 1. For a
// 3x3 kernel the two agree; for wider user kernels they do not, and the
// shifted run is the full kernels' rule, kept so that their results stay
// reproducible.
enum class LowBorder { mirror, shifted_run };

// One axis of the working rectangle (the columns L..R of a row `size` pixels
// long, or the buffer rows B..T of a plane `size` rows high) and the kernel's
// half size n along it.
//
// A border zone exists only where the rectangle lies within n of the image's
// edge: pixels below inner_lo (low zone) or above inner_hi (high zone) read
// their outside taps through the border rules, the others read real samples,
// also beyond the rectangle. The high test on the row axis (the picture's top)
// admits equality while the column test does not: a rectangle whose top lies
// exactly n rows below the image's top mirrors its last n rows although the
// real rows exist. That asymmetry is kept on purpose.
//
// Narrow rectangles. Each pixel is computed once, by the rules above, tap by
// tap: a pixel may lie in both zones (a rectangle narrower than the kernel near
// an edge), and then its low taps follow the low rule and its high taps the
// high rule, real samples beyond the rectangle being read where the image has
// them. The only taps those rules cannot serve are the ones whose mirrored (or
// shifted) position falls outside the image, as with a one-pixel image and a
// wide kernel; such a tap is folded back into the rectangle by mirroring about
// both of its edges, as often as needed. Direct reads never leave the image.
struct FilterAxis {
    int64_t size = 0;
    int64_t lo = 0, hi = -1;
    int64_t n = 0;
    int64_t inner_lo = 0, inner_hi = -1; // interior bounds, not clamped
    LowBorder low_rule = LowBorder::mirror;

    FilterAxis(int64_t size_, int64_t lo_, int64_t hi_, int64_t n_, bool high_test_admits_equality,
               LowBorder low_rule_)
        : size(size_), lo(lo_), hi(hi_), n(n_), low_rule(low_rule_)
    {
        inner_lo = lo - n < 0 ? lo + n : lo;
        const bool high_border = high_test_admits_equality ? hi + n >= size - 1 : hi + n > size - 1;
        inner_hi = high_border ? hi - n : hi;
    }

    bool interior(int64_t x) const { return x >= inner_lo && x <= inner_hi; }

    // Position actually read by pixel x for its tap at position p.
    int64_t source(int64_t x, int64_t p) const
    {
        int64_t q = p;
        if (p < lo && x < inner_lo) {
            const int64_t m = lo - (x - n); // taps of this kernel row outside
            q = low_rule == LowBorder::mirror ? 2 * lo - 1 - p : p + 2 * m - 1;
        } else if (p > hi && x > inner_hi) {
            q = 2 * hi + 1 - p;
        }
        return q >= 0 && q < size ? q : fold(p);
    }

    // Mirror about lo and hi (edge samples repeated) until p lies in lo..hi:
    // the even extension of period 2 * (hi - lo + 1).
    int64_t fold(int64_t p) const
    {
        const int64_t period = 2 * (hi - lo + 1);
        int64_t q = (p - lo) % period;
        if (q < 0)
            q += period;
        if (q >= period / 2)
            q = period - 1 - q;
        return lo + q;
    }
};

// ---------------------------------------------------------------------------
// The per-pixel formulas.

// Separable pass: k0*s(0) + k1*(s(-1) + s(1)) + k2*(s(-2) + s(2)) + ...,
// single precision, centre term first, then the pairs by increasing distance.
template <class Sample>
inline float symmetric_sum(const float * k, int64_t n, Sample s)
{
    float v = k[0] * s(0);
    for (int64_t i = 1; i <= n; ++i)
        v = v + k[i] * (s(-i) + s(i));
    return v;
}

// Full kernel: sum of K[j(2nX+1) + i] * s(i, j) from 0.0, kernel row j = 0
// (the lowest buffer row) first, each row left to right; not flipped.
template <class Sample>
inline float correlation_sum(const float * K, int64_t nX, int64_t nY, Sample s)
{
    const int64_t kw = 2 * nX + 1;
    float v = 0.0f;
    for (int64_t j = 0; j <= 2 * nY; ++j)
        for (int64_t i = 0; i < kw; ++i)
            v = v + K[j * kw + i] * s(i, j);
    return v;
}

// Linear rescaling of full-kernel results: multiplication first.
inline float rescale(float v, float factor, float offset) { return v * factor + offset; }

// ---------------------------------------------------------------------------
// Separable engine. mid is an intermediate plane of the same size.

struct PlaneGeometry {
    int64_t width = 0, height = 0;
};

// Rows of the across pass: the rectangle's rows and the n rows beyond each
// end that the down pass reads where the image extends that far.
inline int64_t across_first_row(const FilterRegion & g, int64_t nY) { return g.B - nY < 0 ? 0 : g.B - nY; }
inline int64_t across_last_row(const FilterRegion & g, int64_t nY, int64_t height)
{
    return g.T + nY > height - 1 ? height - 1 : g.T + nY;
}

template <int C>
void across_pixel_plain(const float * srow, float * mrow, const FilterAxis & ax, int64_t x, const float * kx)
{
    for (int c = 0; c < C; ++c) {
        if (ax.interior(x))
            mrow[x * C + c] = symmetric_sum(kx, ax.n, [&](int64_t d) { return srow[(x + d) * C + c]; });
        else
            mrow[x * C + c] =
                symmetric_sum(kx, ax.n, [&](int64_t d) { return srow[ax.source(x, x + d) * C + c]; });
    }
}

template <int C>
void down_pixel_plain(const float * mid, float * dst, int64_t width, const FilterAxis & ay, int64_t x, int64_t y,
                      const float * ky)
{
    const int64_t stride = width * C;
    for (int c = 0; c < C; ++c) {
        const int64_t col = x * C + c;
        if (ay.interior(y))
            dst[y * stride + col] = symmetric_sum(ky, ay.n, [&](int64_t d) { return mid[(y + d) * stride + col]; });
        else
            dst[y * stride + col] =
                symmetric_sum(ky, ay.n, [&](int64_t d) { return mid[ay.source(y, y + d) * stride + col]; });
    }
}

template <int C>
void separable_plain(PlaneGeometry pg, const float * src, float * mid, float * dst, const FilterRegion & g,
                     const FilterAxis & ax, const FilterAxis & ay, const float * kx, const float * ky)
{
    const int64_t stride = pg.width * C;
    const int64_t r1 = across_last_row(g, ay.n, pg.height);
    for (int64_t r = across_first_row(g, ay.n); r <= r1; ++r)
        for (int64_t x = g.L; x <= g.R; ++x)
            across_pixel_plain<C>(src + r * stride, mid + r * stride, ax, x, kx);
    for (int64_t y = g.B; y <= g.T; ++y)
        for (int64_t x = g.L; x <= g.R; ++x)
            down_pixel_plain<C>(mid, dst, pg.width, ay, x, y, ky);
}

// ---------------------------------------------------------------------------
// Full-kernel engine.

template <int C>
void full_pixel_plain(PlaneGeometry pg, const float * src, float * dst, const FilterAxis & ax,
                      const FilterAxis & ay, int64_t x, int64_t y, const float * K, float offset, float factor)
{
    const int64_t stride = pg.width * C;
    const bool inside = ax.interior(x) && ay.interior(y);
    for (int c = 0; c < C; ++c) {
        float v;
        if (inside)
            v = correlation_sum(K, ax.n, ay.n, [&](int64_t i, int64_t j) {
                return src[(y - ay.n + j) * stride + (x - ax.n + i) * C + c];
            });
        else
            v = correlation_sum(K, ax.n, ay.n, [&](int64_t i, int64_t j) {
                return src[ay.source(y, y - ay.n + j) * stride + ax.source(x, x - ax.n + i) * C + c];
            });
        dst[y * stride + x * C + c] = rescale(v, factor, offset);
    }
}

template <int C>
void full_plain(PlaneGeometry pg, const float * src, float * dst, const FilterRegion & g, const FilterAxis & ax,
                const FilterAxis & ay, const float * K, float offset, float factor)
{
    for (int64_t y = g.B; y <= g.T; ++y)
        for (int64_t x = g.L; x <= g.R; ++x)
            full_pixel_plain<C>(pg, src, dst, ax, ay, x, y, K, offset, factor);
}

} // namespace kevra::detail

#endif
