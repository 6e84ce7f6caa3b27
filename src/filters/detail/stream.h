// The streaming schedule of the filtering engine: the same per-pixel formulas as the plain
// path (convolution.h), walked row by row through rings of a few rows instead of whole
// intermediate planes.
//
// - A separable stage runs the across pass of input row r into slot r mod (2nY+1) of a ring
//   and the down pass of output row y from the ring as soon as rows up to y+nY are there.
// - A full-kernel stage keeps the input rows themselves in the ring (pointers into the caller's
//   plane when it stays untouched, copies when it is being overwritten).
// Every row that output row y of a separable filter reads lies within y-nY .. y+nY: the direct
// taps, the mirrored ones (they fold back towards y) and the doubly folded ones of images
// smaller than the kernel (they land in the rectangle, which then lies wholly within the
// window). The shifted run of the full kernels' low border reaches further up, to y+2nY-2 at
// most, so their ring spans y-nY .. y+2nY. A slot is reused only once its row can no longer be
// read.
//
// In place (the sink writes the rows a source reads): input row r is last read when the ring
// takes it in, which happens before output row r is written, so one strip needs nothing more.
// With several strips, a strip's neighbours overwrite the rows next to it; the nY input rows on
// each side of an inner strip edge are therefore taken in first, by every strip, before any
// strip writes (the halo).
//
// Interiors are computed a row at a time, one tap at a time across the row: each pixel still
// receives exactly the plain sequence of single-precision operations (vectorised across pixels,
// never across the terms of one sum); border pixels take the per-pixel formula.
#ifndef KEVRA_FILTERS_DETAIL_STREAM_H
#define KEVRA_FILTERS_DETAIL_STREAM_H

#include <cassert>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "core/fast_path.h"
#include "core/row_ring.h"
#include "core/row_threads.h"
#include "filters/detail/convolution.h"
#include "kevra/platform.h"

namespace kevra::detail {

// The input rows of a strip of output rows y0..y1, and its halo (see above).
struct StripRows {
    int64_t y0 = 0, y1 = -1;
    int64_t first = 0, last = -1;          // input rows read: max(lo, y0-below) .. min(hi, y1+above)
    int64_t halo_lo0 = 0, halo_lo1 = -1;   // rows of the region below the strip, taken in first
    int64_t halo_hi0 = 0, halo_hi1 = -1;   // rows of the region above the strip, taken in first

    StripRows() = default;
    // Output row y reads input rows y-below .. y+above at most; lo..hi: the input rows the pass
    // may read at all; B..T: the rows written in place.
    StripRows(RowStrip s, int64_t below, int64_t above, int64_t lo, int64_t hi, int64_t B, int64_t T, bool halo)
        : y0(s.first), y1(s.last)
    {
        first = y0 - below > lo ? y0 - below : lo;
        last = y1 + above < hi ? y1 + above : hi;
        if (halo) {
            halo_lo0 = y0 - below > B ? y0 - below : B;
            halo_lo1 = y0 - 1;
            halo_hi0 = y1 + 1;
            halo_hi1 = y1 + above < T ? y1 + above : T;
        }
    }
    int64_t halo_rows() const { return (halo_lo1 - halo_lo0 + 1) + (halo_hi1 - halo_hi0 + 1); }
    // Index in the halo store of row r, -1 when r is not a halo row.
    int64_t halo_index(int64_t r) const
    {
        if (r >= halo_lo0 && r <= halo_lo1)
            return r - halo_lo0;
        if (r >= halo_hi0 && r <= halo_hi1)
            return (halo_lo1 - halo_lo0 + 1) + r - halo_hi0;
        return -1;
    }
};

// ---------------------------------------------------------------------------
// Row kernels. Their interior loops run in the copy of the current vector level.

// Across pass over the interior samples f0..f1: a tap at a time.
template <int C>
struct AcrossInterior {
    static KEVRA_KERNEL_INLINE void run(const float * __restrict s, float * __restrict m, int64_t f0, int64_t f1,
                                        const float * kx, int64_t n)
    {
        const float k0 = kx[0];
        for (int64_t f = f0; f < f1; ++f)
            m[f] = k0 * s[f];
        for (int64_t i = 1; i <= n; ++i) {
            const float ki = kx[i];
            const int64_t a = i * C;
            for (int64_t f = f0; f < f1; ++f)
                m[f] = m[f] + ki * (s[f - a] + s[f + a]);
        }
    }
};

// Down pass of output row y, samples f0..f1, from the ring: a tap at a time.
struct DownInterior {
    static KEVRA_KERNEL_INLINE void run(const RowRing * ring, float * __restrict o, int64_t y, int64_t f0, int64_t f1,
                                        const float * ky, int64_t n)
    {
        const float * __restrict centre = ring->row(y);
        const float k0 = ky[0];
        for (int64_t f = f0; f < f1; ++f)
            o[f] = k0 * centre[f];
        for (int64_t j = 1; j <= n; ++j) {
            const float kj = ky[j];
            const float * __restrict below = ring->row(y - j);
            const float * __restrict above = ring->row(y + j);
            for (int64_t f = f0; f < f1; ++f)
                o[f] = o[f] + kj * (below[f] + above[f]);
        }
    }
};

// The same two passes for a radius known when compiling: each sample's sum stays in a register
// through its taps, added in the same order, so the row is read and written once.
template <int C, int N>
struct AcrossInteriorFixed {
    static KEVRA_KERNEL_INLINE void run(const float * __restrict s, float * __restrict m, int64_t f0, int64_t f1,
                                        const float * kx)
    {
        float k[N + 1];
        for (int i = 0; i <= N; ++i)
            k[i] = kx[i];
        for (int64_t f = f0; f < f1; ++f) {
            float v = k[0] * s[f];
            for (int i = 1; i <= N; ++i)
                v = v + k[i] * (s[f - i * C] + s[f + i * C]);
            m[f] = v;
        }
    }
};

template <int N>
struct DownInteriorFixed {
    static KEVRA_KERNEL_INLINE void run(const RowRing * ring, float * __restrict o, int64_t y, int64_t f0, int64_t f1,
                                        const float * ky)
    {
        const float * centre = ring->row(y);
        const float * below[N];
        const float * above[N];
        float k[N + 1];
        k[0] = ky[0];
        for (int j = 1; j <= N; ++j) {
            below[j - 1] = ring->row(y - j);
            above[j - 1] = ring->row(y + j);
            k[j] = ky[j];
        }
        for (int64_t f = f0; f < f1; ++f) {
            float v = k[0] * centre[f];
            for (int j = 1; j <= N; ++j)
                v = v + k[j] * (below[j - 1][f] + above[j - 1][f]);
            o[f] = v;
        }
    }
};

// Across pass of one row, columns L..R of the axis: interior a tap at a time, borders per pixel.
template <int C>
void across_row(const float * srow, float * mrow, const FilterAxis & ax, const float * kx)
{
    if (ax.inner_lo > ax.inner_hi) {
        for (int64_t x = ax.lo; x <= ax.hi; ++x)
            across_pixel_plain<C>(srow, mrow, ax, x, kx);
        return;
    }
    for (int64_t x = ax.lo; x < ax.inner_lo; ++x)
        across_pixel_plain<C>(srow, mrow, ax, x, kx);
    const int64_t f0 = ax.inner_lo * C, f1 = ax.inner_hi * C + C;
    switch (ax.n) {
    case 1: run_at_vector_level<AcrossInteriorFixed<C, 1>>(srow, mrow, f0, f1, kx); break;
    case 2: run_at_vector_level<AcrossInteriorFixed<C, 2>>(srow, mrow, f0, f1, kx); break;
    case 3: run_at_vector_level<AcrossInteriorFixed<C, 3>>(srow, mrow, f0, f1, kx); break;
    case 7: run_at_vector_level<AcrossInteriorFixed<C, 7>>(srow, mrow, f0, f1, kx); break;
    default: run_at_vector_level<AcrossInterior<C>>(srow, mrow, f0, f1, kx, ax.n); break;
    }
    for (int64_t x = ax.inner_hi + 1; x <= ax.hi; ++x)
        across_pixel_plain<C>(srow, mrow, ax, x, kx);
}

// Down pass of output row y, columns L..R, from the ring.
template <int C>
void down_row(const RowRing & ring, float * out, const FilterAxis & ax, const FilterAxis & ay, int64_t y,
              const float * ky)
{
    const int64_t f0 = ax.lo * C, f1 = ax.hi * C + C;
    if (!ay.interior(y)) {
        for (int64_t f = f0; f < f1; ++f)
            out[f] = symmetric_sum(ky, ay.n, [&](int64_t d) { return ring.row(ay.source(y, y + d))[f]; });
        return;
    }
    switch (ay.n) {
    case 1: run_at_vector_level<DownInteriorFixed<1>>(&ring, out, y, f0, f1, ky); break;
    case 2: run_at_vector_level<DownInteriorFixed<2>>(&ring, out, y, f0, f1, ky); break;
    case 3: run_at_vector_level<DownInteriorFixed<3>>(&ring, out, y, f0, f1, ky); break;
    case 7: run_at_vector_level<DownInteriorFixed<7>>(&ring, out, y, f0, f1, ky); break;
    default: run_at_vector_level<DownInterior>(&ring, out, y, f0, f1, ky, ay.n); break;
    }
}

// The interior samples f0..f1 of a full kernel of radius N (3 x 3 for N = 1) known when
// compiling: each sample's sum kept in a register through all its taps, in the same order
// (kernel rows, then columns, from 0), so that the loop over the samples runs across pixels.
template <int C, int N>
struct FullInteriorFixed {
    static KEVRA_KERNEL_INLINE void run(const RowRing * ring, float * __restrict o, int64_t y, int64_t f0, int64_t f1,
                                        const float * K, float offset, float factor)
    {
        constexpr int kw = 2 * N + 1;
        const float * s[kw];
        float k[kw * kw];
        for (int j = 0; j < kw; ++j)
            s[j] = ring->row(y - N + j);
        for (int t = 0; t < kw * kw; ++t)
            k[t] = K[t];
        for (int64_t f = f0; f < f1; ++f) {
            float v = 0.0f;
            for (int j = 0; j < kw; ++j)
                for (int i = 0; i < kw; ++i)
                    v = v + k[j * kw + i] * s[j][f + (i - N) * C];
            o[f] = rescale(v, factor, offset);
        }
    }
};

// Any other full kernel: the sums in the output row, a tap at a time, then the rescale.
template <int C>
struct FullInterior {
    static KEVRA_KERNEL_INLINE void run(const RowRing * ring, float * __restrict o, int64_t y, int64_t f0, int64_t f1,
                                        const float * K, int64_t nx, int64_t ny, float offset, float factor)
    {
        const int64_t kw = 2 * nx + 1;
        for (int64_t f = f0; f < f1; ++f)
            o[f] = 0.0f;
        for (int64_t j = 0; j <= 2 * ny; ++j) {
            const float * __restrict s = ring->row(y - ny + j);
            for (int64_t i = 0; i < kw; ++i) {
                const float k = K[j * kw + i];
                const int64_t a = (i - nx) * C;
                for (int64_t f = f0; f < f1; ++f)
                    o[f] = o[f] + k * s[f + a];
            }
        }
        for (int64_t f = f0; f < f1; ++f)
            o[f] = rescale(o[f], factor, offset);
    }
};

// Full kernel, output row y, columns L..R, from the ring of input rows.
template <int C>
void full_row(const RowRing & ring, float * out, const FilterAxis & ax, const FilterAxis & ay, int64_t y,
              const float * K, float offset, float factor)
{
    // Border pixels: every tap through the border rules (the identity for real samples).
    auto pixel = [&](int64_t x) {
        for (int c = 0; c < C; ++c) {
            const float v = correlation_sum(K, ax.n, ay.n, [&](int64_t i, int64_t j) {
                return ring.row(ay.source(y, y - ay.n + j))[ax.source(x, x - ax.n + i) * C + c];
            });
            out[x * C + c] = rescale(v, factor, offset);
        }
    };
    if (ax.inner_lo > ax.inner_hi || !ay.interior(y)) {
        for (int64_t x = ax.lo; x <= ax.hi; ++x)
            pixel(x);
        return;
    }
    for (int64_t x = ax.lo; x < ax.inner_lo; ++x)
        pixel(x);
    const int64_t f0 = ax.inner_lo * C, f1 = ax.inner_hi * C + C;
    if (ax.n == 1 && ay.n == 1)
        run_at_vector_level<FullInteriorFixed<C, 1>>(&ring, out, y, f0, f1, K, offset, factor);
    else
        run_at_vector_level<FullInterior<C>>(&ring, out, y, f0, f1, K, ax.n, ay.n, offset, factor);
    for (int64_t x = ax.inner_hi + 1; x <= ax.hi; ++x)
        pixel(x);
}

// ---------------------------------------------------------------------------
// Stages. A source gives input rows in increasing order: `const float *row(r, scratch)`
// returns row r whole (width * C floats), written into scratch or pointing elsewhere; the
// pointer need only stay valid until the next call, unless the source is `persistent`.

struct KernelShape {
    FilterAxis ax, ay;
    int64_t stride; // floats a row: width * C
};

// The axes of a separable filter over region g: the column test on the right edge is strict,
// the row test on the top edge admits equality (convolution.h).
inline KernelShape separable_shape(int64_t width, int64_t height, const FilterRegion & g, int channels,
                                   int64_t nX, int64_t nY)
{
    return {FilterAxis(width, g.L, g.R, nX, false, LowBorder::mirror),
            FilterAxis(height, g.B, g.T, nY, true, LowBorder::mirror), width * channels};
}

// Separable filter over one strip of output rows.
template <int C>
class SeparableStage {
public:
    SeparableStage(const KernelShape & k, const float * kx, const float * ky) : k_(k), kx_(kx), ky_(ky) {}

    // rows: output rows y0..y1 of the strip; halo: take in the rows next to inner strip edges first.
    bool allocate(RowStrip rows, bool halo)
    {
        const FilterAxis & ay = k_.ay;
        const int64_t lo = ay.lo - ay.n < 0 ? 0 : ay.lo - ay.n;
        const int64_t hi = ay.hi + ay.n > ay.size - 1 ? ay.size - 1 : ay.hi + ay.n;
        r_ = StripRows(rows, ay.n, ay.n, lo, hi, ay.lo, ay.hi, halo);
        next_ = r_.first;
        return ring_.allocate(2 * ay.n + 1, k_.stride, true) && halo_.allocate(r_.halo_rows(), k_.stride) &&
               scratch_.allocate(1, k_.stride);
    }

    template <class Source>
    void take_halo(const Source & src)
    {
        for (int64_t r = r_.first; r <= r_.last; ++r)
            if (r_.halo_index(r) >= 0)
                across_row<C>(src.row(r, scratch_.row(0)), halo_.row(r_.halo_index(r)), k_.ax, kx_);
    }

    // Output row y (the strip's rows in increasing order) into columns L..R of out.
    template <class Source>
    void produce(int64_t y, const Source & src, float * out)
    {
        const int64_t need = y + k_.ay.n < r_.last ? y + k_.ay.n : r_.last;
        for (; next_ <= need; ++next_) {
            const int64_t h = r_.halo_index(next_);
            if (h >= 0) {
                ring_.set(next_, halo_.row(h));
                continue;
            }
            float * m = ring_.storage(next_);
            across_row<C>(src.row(next_, scratch_.row(0)), m, k_.ax, kx_);
            ring_.set(next_, m);
        }
        down_row<C>(ring_, out, k_.ax, k_.ay, y, ky_);
    }

private:
    KernelShape k_;
    const float *kx_, *ky_;
    StripRows r_;
    int64_t next_ = 0;
    RowRing ring_;
    RowStore halo_, scratch_;
};

// Full kernel over one strip of output rows. copy_rows: the input rows are copied into the
// ring (the source's rows do not stay as they are, or are not persistent).
template <int C>
class FullStage {
public:
    FullStage(const KernelShape & k, const float * K, float offset, float factor, bool copy_rows)
        : k_(k), K_(K), offset_(offset), factor_(factor), copy_(copy_rows)
    {
    }

    bool allocate(RowStrip rows, bool halo)
    {
        const FilterAxis & ay = k_.ay;
        const int64_t lo = ay.lo - ay.n < 0 ? 0 : ay.lo - ay.n;
        const int64_t hi = ay.hi + 2 * ay.n > ay.size - 1 ? ay.size - 1 : ay.hi + 2 * ay.n;
        r_ = StripRows(rows, ay.n, 2 * ay.n, lo, hi, ay.lo, ay.hi, halo);
        next_ = r_.first;
        return ring_.allocate(3 * ay.n + 1, k_.stride, copy_) && halo_.allocate(r_.halo_rows(), k_.stride);
    }

    template <class Source>
    void take_halo(const Source & src)
    {
        for (int64_t r = r_.first; r <= r_.last; ++r)
            if (r_.halo_index(r) >= 0)
                take(src, r, halo_.row(r_.halo_index(r)));
    }

    template <class Source>
    void produce(int64_t y, const Source & src, float * out)
    {
        const int64_t need = y + 2 * k_.ay.n < r_.last ? y + 2 * k_.ay.n : r_.last;
        for (; next_ <= need; ++next_) {
            const int64_t h = r_.halo_index(next_);
            if (h >= 0)
                ring_.set(next_, halo_.row(h));
            else if (copy_)
                ring_.set(next_, take(src, next_, ring_.storage(next_)));
            else
                ring_.set(next_, src.row(next_, nullptr));
        }
        full_row<C>(ring_, out, k_.ax, k_.ay, y, K_, offset_, factor_);
    }

private:
    template <class Source>
    const float * take(const Source & src, int64_t r, float * into)
    {
        const float * p = src.row(r, into);
        if (p != into)
            std::memcpy(into, p, static_cast<std::size_t>(k_.stride) * sizeof(float));
        return into;
    }

    KernelShape k_;
    const float * K_;
    float offset_, factor_;
    bool copy_;
    StripRows r_;
    int64_t next_ = 0;
    RowRing ring_;
    RowStore halo_;
};

// ---------------------------------------------------------------------------
// Sources and sinks of the buffer forms.

struct PlaneSource {
    const float * base;
    int64_t stride;
    const float * row(int64_t r, float *) const { return base + r * stride; }
};

// Writes straight into the plane's row.
struct PlaneSink {
    float * base;
    int64_t stride;
    float * begin(int64_t y, float *) const { return base + y * stride; }
    void end(int64_t, const float *) const {}
};

// Runs `make(strip)` stages over output rows first..last, one strip a thread; in_place: the
// sink writes rows the source reads, so inner strip edges take their halo first. False when a
// stage's rows cannot be allocated (then nothing has been written).
template <class Stage, class Make, class Source, class Sink>
bool run_stages(int64_t first, int64_t last, bool in_place, int64_t stride, Make && make, const Source & src,
                const Sink & sink)
{
    if (first > last)
        return true;
    const unsigned count = strip_count(first, last);
    std::vector<Stage> stages;
    std::vector<RowStore> outs(count);
    stages.reserve(count);
    for (unsigned i = 0; i < count; ++i) {
        stages.push_back(make());
        if (!stages.back().allocate(strip_of(first, last, count, i), in_place && count > 1) ||
            !outs[i].allocate(1, stride))
            return false;
    }
    if (in_place && count > 1)
        run_strips(count, [&](unsigned i) { stages[i].take_halo(src); });
    run_strips(count, [&](unsigned i) {
        const RowStrip s = strip_of(first, last, count, i);
        for (int64_t y = s.first; y <= s.last; ++y) {
            float * out = sink.begin(y, outs[i].row(0));
            stages[i].produce(y, src, out);
            sink.end(y, out);
        }
    });
    return true;
}

} // namespace kevra::detail

#endif
