// Resampling of a whole buffer into another of the same depth: the kernels shared by the 8-,
// 16- and 24-bit classes (the 24-bit class runs them on each of its three bytes).
//
// Enlargement (and any call with mode 0) is bilinear with truncation; a reduction in both
// directions with mode k > 0 is low-pass filtered with a separable windowed sinc sampled at the
// reduced positions, half-widths k x scale. All arithmetic is single precision, in the order
// written in each formula below.
#ifndef KEVRA_PROCESSING_DETAIL_RESAMPLE_H
#define KEVRA_PROCESSING_DETAIL_RESAMPLE_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "core/clamp.h"
#include "core/fast_path.h"
#include "core/float_store.h"
#include "core/pixel.h"
#include "core/row_ring.h"
#include "core/row_threads.h"
#include "kevra/filtre.h"
#include "kevra/platform.h"

namespace kevra::detail {

// ---- bilinear -------------------------------------------------------------------------------

// One bilinear sample: s00 = S[y0][x0], s10 = S[y1][x0], s01 = S[y0][x1], s11 = S[y1][x1].
inline float bilinear_value(float s00, float s10, float s01, float s11, float fx, float fy)
{
    return (s10 * fy + s00 * (1.0f - fy)) * (1.0f - fx) + (s11 * fy + s01 * (1.0f - fy)) * fx;
}

// Position of destination index i in the source: the whole part and the following index, kept
// inside the source, and the fraction.
struct BilinearTap {
    int32_t i0, i1;
    float f;
};

inline BilinearTap bilinear_tap(int32_t i, float scale, int32_t source_size)
{
    const float p = static_cast<float>(i) * scale;
    BilinearTap t;
    t.i0 = truncate_i32(p);
    if (t.i0 > source_size - 1) // only a rounding of p could get here; keep it in the source
        t.i0 = source_size - 1;
    t.i1 = t.i0 + 1 > source_size - 1 ? source_size - 1 : t.i0 + 1;
    t.f = p - static_cast<float>(t.i0);
    return t;
}

template <class Px>
void resample_bilinear(View<Px> src, View<Px> dst, float sx, float sy)
{
    using sample = typename Px::sample;
    constexpr int C = Px::channels;
    for (int32_t j = 0; j < dst.height; ++j) {
        const BilinearTap ty = bilinear_tap(j, sy, src.height);
        const sample *row0 = src.row(ty.i0);
        const sample *row1 = src.row(ty.i1);
        sample *out = dst.row(j);
        for (int32_t i = 0; i < dst.width; ++i) {
            const BilinearTap tx = bilinear_tap(i, sx, src.width);
            for (int c = 0; c < C; ++c) {
                const float v = bilinear_value(row0[tx.i0 * C + c], row1[tx.i0 * C + c],
                                               row0[tx.i1 * C + c], row1[tx.i1 * C + c], tx.f, ty.f);
                out[i * C + c] = store_sample<sample>(v); // truncation, no rounding
            }
        }
    }
}

// ---- windowed sinc ----------------------------------------------------------------------------

// Index m taps away from centre, kept inside [0, size - 1]. Inside the inner region (columns
// bx .. W' - bx - 1 and rows by .. H' - by - 1, with bx = truncate(kx / sx) + 1 and
// by = truncate(ky / sy) + 1) every tap already lies in the source and this is the identity.
// The outer band, whose windows would reach past the source's edge, uses the same kernels with
// each tap clamped to the nearest edge sample (the edge sample repeated). With that rule the
// inner region and the band are one and the same loop.
inline int32_t clamp_index(int64_t p, int32_t size) { return clamp_i32(p, 0, int64_t(size) - 1); }

// T = S[c] x h0 + sum for m = 1..k of (S[c - m] + S[c + m]) x hm, centre term first.
template <class Get>
float sinc_sum(Get get, int32_t centre, int32_t size, const float *h, int32_t k)
{
    float acc = get(clamp_index(centre, size)) * h[0];
    for (int32_t m = 1; m <= k; ++m)
        acc = acc + (get(clamp_index(int64_t(centre) - m, size)) + get(clamp_index(int64_t(centre) + m, size))) * h[m];
    return acc;
}

// The two kernels of the filtered reduction, half-widths kx = truncate(mode x sx) and
// ky = truncate(mode x sy). Not OK when a half-width does not fit the kernel's 16-bit size
// (2k + 1 > 65535) or a table is missing.
struct SincKernels {
    uint16_t kx = 0, ky = 0;
    std::unique_ptr<CFiltre> filter;
    const float *h = nullptr, *g = nullptr;

    SincKernels(unsigned char mode, float sx, float sy)
        : kx(count_u16(static_cast<float>(mode) * sx)), ky(count_u16(static_cast<float>(mode) * sy))
    {
        if (kx > 32767 || ky > 32767)
            return;
        filter.reset(try_new<CFiltre>(CFiltre::Filtre_SinusCardinal, static_cast<unsigned short>(2 * kx + 1),
                                      CFiltre::Filtre_SinusCardinal, static_cast<unsigned short>(2 * ky + 1), sx, sy));
        if (filter != nullptr) {
            h = filter->Donne_TabFiltreX();
            g = filter->Donne_TabFiltreY();
        }
    }
    bool ok() const { return h != nullptr && g != nullptr; }
};

// The filtered reduction, plain walk: an intermediate array of W' x H values, one channel at a
// time. False when the kernels or the intermediate array cannot be had.
template <class Px>
bool resample_sinc(View<Px> src, View<Px> dst, const SincKernels &k, float sx, float sy, float max_value)
{
    using sample = typename Px::sample;
    constexpr int C = Px::channels;
    const float *h = k.h, *g = k.g;
    const uint16_t kx = k.kx, ky = k.ky;

    const int32_t W2 = dst.width;
    const int64_t cells = int64_t(W2) * src.height;
    float *T = try_new_array<float>(static_cast<std::size_t>(cells));
    if (T == nullptr)
        return false;

    for (int c = 0; c < C; ++c) {
        // Across: every source row, every destination column, c = truncate(i x sx).
        for (int32_t r = 0; r < src.height; ++r) {
            const sample *row = src.row(r);
            float *t = T + int64_t(r) * W2;
            auto get = [&](int32_t x) { return static_cast<float>(row[x * C + c]); };
            for (int32_t i = 0; i < W2; ++i) {
                const int32_t centre = truncate_i32(static_cast<float>(i) * sx);
                t[i] = sinc_sum(get, centre, src.width, h, kx);
            }
        }
        // Down: rr = truncate(j x sy), clipped to [0, max_value], truncated.
        for (int32_t j = 0; j < dst.height; ++j) {
            const int32_t centre = truncate_i32(static_cast<float>(j) * sy);
            sample *out = dst.row(j);
            for (int32_t i = 0; i < W2; ++i) {
                auto get = [&](int32_t rr) { return T[int64_t(rr) * W2 + i]; };
                float v = sinc_sum(get, centre, src.height, g, ky);
                if (v < 0.0f)
                    v = 0.0f;
                if (v > max_value)
                    v = max_value;
                out[i * C + c] = store_sample<sample>(v);
            }
        }
    }
    delete[] T;
    return true;
}

// The down sums of destination row j (centre source row rr) from the ring of across values,
// a tap at a time across the row, then the clip and the store.
template <class Sample>
struct SincDownRow {
    static KEVRA_KERNEL_INLINE void run(const RowRing *ring, int32_t rr, int32_t H, const float *g, int32_t ky,
                                        float *acc, int64_t stride, float max_value, Sample *out)
    {
        const float *centre_row = ring->row(clamp_index(rr, H));
        for (int64_t f = 0; f < stride; ++f)
            acc[f] = centre_row[f] * g[0];
        for (int32_t m = 1; m <= ky; ++m) {
            const float *below = ring->row(clamp_index(int64_t(rr) - m, H));
            const float *above = ring->row(clamp_index(int64_t(rr) + m, H));
            const float gm = g[m];
            for (int64_t f = 0; f < stride; ++f)
                acc[f] = acc[f] + (below[f] + above[f]) * gm;
        }
        for (int64_t f = 0; f < stride; ++f) {
            float v = acc[f];
            if (v < 0.0f)
                v = 0.0f;
            if (v > max_value)
                v = max_value;
            out[f] = store_sample<Sample>(v);
        }
    }
};

// The filtered reduction streamed: the across values of a source row (all channels, one float
// per destination sample) go to a ring of 2ky + 1 rows, made when the first destination row
// that reads them comes; each destination row then takes its down sums a tap at a time across
// the row. The values and their order of operations are those of the plain walk (the clamp of
// an index is the identity inside the source, so the inner columns skip it). Destination rows
// split into strips, one a thread. False when the kernels or the rows cannot be had.
template <class Px>
bool resample_sinc_fast(View<Px> src, View<Px> dst, const SincKernels &k, float sx, float sy, float max_value)
{
    using sample = typename Px::sample;
    constexpr int C = Px::channels;
    const float *h = k.h, *g = k.g;
    const int32_t kx = k.kx, ky = k.ky;
    const int32_t W = src.width, H = src.height, W2 = dst.width;
    const int64_t stride = int64_t(W2) * C;

    std::unique_ptr<int32_t[]> centre(try_new_array<int32_t>(static_cast<std::size_t>(W2)));
    if (centre == nullptr)
        return false;
    for (int32_t i = 0; i < W2; ++i)
        centre[i] = truncate_i32(static_cast<float>(i) * sx);

    struct Strip {
        RowRing ring;
        RowStore source, sums;
    };
    const int64_t slots = 2 * int64_t(ky) + 1 < H ? 2 * int64_t(ky) + 1 : H;
    const unsigned count = strip_count(0, dst.height - 1);
    std::vector<Strip> strips(count);
    for (Strip &st : strips)
        if (!st.ring.allocate(slots, stride, true) || !st.source.allocate(1, int64_t(W) * C) ||
            !st.sums.allocate(1, stride))
            return false;

    auto across = [&](const float *s, float *t) {
        for (int32_t i = 0; i < W2; ++i) {
            const int32_t c = centre[i];
            if (c - kx >= 0 && c + kx <= W - 1) {
                for (int ch = 0; ch < C; ++ch) {
                    const float *p = s + int64_t(c) * C + ch;
                    float acc = p[0] * h[0];
                    for (int32_t m = 1; m <= kx; ++m)
                        acc = acc + (p[-int64_t(m) * C] + p[int64_t(m) * C]) * h[m];
                    t[int64_t(i) * C + ch] = acc;
                }
            } else {
                for (int ch = 0; ch < C; ++ch)
                    t[int64_t(i) * C + ch] =
                        sinc_sum([&](int32_t x) { return s[int64_t(x) * C + ch]; }, c, W, h, kx);
            }
        }
    };

    run_strips(count, [&](unsigned n) {
        Strip &st = strips[n];
        const RowStrip rows = strip_of(0, dst.height - 1, count, n);
        float *s = st.source.row(0);
        float *acc = st.sums.row(0);
        int64_t next = 0;
        for (int64_t j = rows.first; j <= rows.last; ++j) {
            const int32_t rr = truncate_i32(static_cast<float>(j) * sy);
            const int64_t lo = clamp_index(int64_t(rr) - ky, H), hi = clamp_index(int64_t(rr) + ky, H);
            if (next < lo)
                next = lo; // rows no later destination row reads
            for (; next <= hi; ++next) {
                samples_to_floats(src.row(static_cast<int32_t>(next)), s, int64_t(W) * C);
                float *t = st.ring.storage(next);
                across(s, t);
                st.ring.set(next, t);
            }
            run_at_vector_level<SincDownRow<sample>>(&st.ring, rr, H, g, ky, acc, stride, max_value,
                                                     dst.row(static_cast<int32_t>(j)));
        }
    });
    return true;
}

// ---- bilinear, fast schedule ----------------------------------------------------------------
//
// Each source row a destination row reads is first spread out to the destination's columns:
// e0[i] = S[y][x0(i)] and e1[i] = S[y][x1(i)] (as floats, exact), once per source row, kept
// while destination rows read it. A destination sample is then
//   (e0[y1] x fy + e0[y0] x (1 - fy)) x (1 - fx) + (e1[y1] x fy + e1[y0] x (1 - fy)) x fx,
// the plain formula's values in its order, computed straight across the row without looking
// anything up, so that it runs in vector registers.

// The row converted to floats first (across the row, in vector registers), then spread. When
// the width doubles exactly (`doubled`: x0(i) = i / 2, x1(i) = x0(i) + 1 but at the last
// sample), e0 is each sample twice and e1 the same row one sample on: copies, no look-up.
template <class Px>
void bilinear_spread(const typename Px::sample *row, int32_t W, float *values, const BilinearTap *tap, int32_t W2,
                     bool doubled, float *e0, float *e1)
{
    constexpr int C = Px::channels;
    samples_to_floats(row, values, int64_t(W) * C);
    if (doubled) {
        for (int64_t k = 0; k < W; ++k)
            for (int c = 0; c < C; ++c) {
                e0[2 * k * C + c] = values[k * C + c];
                e0[(2 * k + 1) * C + c] = values[k * C + c];
            }
        std::memcpy(e1, e0 + 2 * C, static_cast<std::size_t>(int64_t(W2 - 2) * C) * sizeof(float));
        std::memcpy(e1 + int64_t(W2 - 2) * C, e0 + int64_t(W2 - 2) * C, 2 * C * sizeof(float));
        return;
    }
    for (int32_t i = 0; i < W2; ++i)
        for (int c = 0; c < C; ++c) {
            e0[int64_t(i) * C + c] = values[int64_t(tap[i].i0) * C + c];
            e1[int64_t(i) * C + c] = values[int64_t(tap[i].i1) * C + c];
        }
}

// One destination row from the spread rows of source rows y0 (a0, a1) and y1 (b0, b1); fx and
// gx = 1 - fx for each destination sample.
template <class Sample>
struct BilinearBlendRow {
    static KEVRA_KERNEL_INLINE void run(const float *a0, const float *a1, const float *b0, const float *b1,
                                        float fy, const float *fx, const float *gx, int64_t count, Sample *out)
    {
        const float gy = 1.0f - fy;
        for (int64_t f = 0; f < count; ++f) {
            const float v = (b0[f] * fy + a0[f] * gy) * gx[f] + (b1[f] * fy + a1[f] * gy) * fx[f];
            // A blend of samples lies in the sample range (up to a rounding), so its store
            // needs no range check.
            out[f] = store_clipped_sample<Sample>(v);
        }
    }
};

// The spread rows of one strip: two source rows at a time (those of the destination row).
class SpreadRows {
public:
    bool allocate(int64_t samples, int64_t source_samples)
    {
        return store_.allocate(4, samples) && values_.allocate(1, source_samples);
    }
    float *values() { return values_.row(0); }
    // The slot holding source row y, spreading it into the slot not holding `keep` if needed.
    template <class Spread>
    int slot(int32_t y, int32_t keep, Spread &&spread)
    {
        for (int k = 0; k < 2; ++k)
            if (held_[k] == y)
                return k;
        const int k = held_[0] == keep ? 1 : 0;
        spread(y, store_.row(2 * k), store_.row(2 * k + 1));
        held_[k] = y;
        return k;
    }
    const float *e0(int k) { return store_.row(2 * k); }
    const float *e1(int k) { return store_.row(2 * k + 1); }

private:
    RowStore store_, values_;
    int32_t held_[2] = {-1, -1};
};

// False (nothing written) when the tables or rows cannot be had.
template <class Px>
bool resample_bilinear_fast(View<Px> src, View<Px> dst, float sx, float sy)
{
    using sample = typename Px::sample;
    constexpr int C = Px::channels;
    const int32_t W = src.width, W2 = dst.width;
    const int64_t samples_out = int64_t(W2) * C;
    std::unique_ptr<BilinearTap[]> taps(try_new_array<BilinearTap>(static_cast<std::size_t>(W2)));
    RowStore fractions;
    if (taps == nullptr || !fractions.allocate(2, samples_out))
        return false;
    float *fx = fractions.row(0), *gx = fractions.row(1);
    bool doubled = W2 == 2 * int64_t(W);
    for (int32_t i = 0; i < W2; ++i) {
        taps[i] = bilinear_tap(i, sx, W);
        doubled = doubled && taps[i].i0 == i / 2 && taps[i].i1 == std::min(i / 2 + 1, W - 1);
        for (int c = 0; c < C; ++c) {
            fx[int64_t(i) * C + c] = taps[i].f;
            gx[int64_t(i) * C + c] = 1.0f - taps[i].f;
        }
    }
    const unsigned count = strip_count(0, dst.height - 1);
    std::vector<SpreadRows> spread(count);
    for (SpreadRows &rows : spread)
        if (!rows.allocate(samples_out, int64_t(W) * C))
            return false;
    const BilinearTap *tap = taps.get();
    run_strips(count, [&](unsigned n) {
        const RowStrip rows = strip_of(0, dst.height - 1, count, n);
        SpreadRows &sp = spread[n];
        auto make = [&](int32_t y, float *e0, float *e1) {
            bilinear_spread<Px>(src.row(y), W, sp.values(), tap, W2, doubled, e0, e1);
        };
        for (int64_t j = rows.first; j <= rows.last; ++j) {
            const BilinearTap ty = bilinear_tap(static_cast<int32_t>(j), sy, src.height);
            const int k0 = sp.slot(ty.i0, ty.i1, make);
            const int k1 = sp.slot(ty.i1, ty.i0, make);
            run_at_vector_level<BilinearBlendRow<sample>>(sp.e0(k0), sp.e1(k0), sp.e0(k1), sp.e1(k1), ty.f, fx, gx,
                                                          samples_out, dst.row(static_cast<int32_t>(j)));
        }
    });
    return true;
}

// ResampleSimple for one depth.
template <class Px>
bool resample_simple(long width, long height, void *bits, long width_out, long height_out,
                     void *bits_out, unsigned char mode, float max_value)
{
    if (width_out < 1 || height_out < 1)
        return false;
    // Nothing to sample from: refused rather than read from an empty buffer.
    if (width < 1 || height < 1)
        return false;
    const View<Px> src = view<Px>(width, height, static_cast<unsigned char *>(bits));
    const View<Px> dst = view<Px>(width_out, height_out, static_cast<unsigned char *>(bits_out));
    if (width_out == width && height_out == height) {
        std::memcpy(bits_out, bits, static_cast<std::size_t>(src.pitch) * static_cast<std::size_t>(src.height));
        return true;
    }
    const float sx = static_cast<float>(src.width) / static_cast<float>(dst.width);
    const float sy = static_cast<float>(src.height) / static_cast<float>(dst.height);
    if (mode != 0 && src.width >= dst.width && src.height >= dst.height) {
        const SincKernels k(mode, sx, sy);
        if (!k.ok())
            return false;
        if (fast_paths_enabled())
            return resample_sinc_fast(src, dst, k, sx, sy, max_value);
        return resample_sinc(src, dst, k, sx, sy, max_value);
    }
    if (fast_paths_enabled() && resample_bilinear_fast(src, dst, sx, sy))
        return true;
    resample_bilinear(src, dst, sx, sy);
    return true;
}

} // namespace kevra::detail

#endif
