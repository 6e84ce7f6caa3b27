// Resampling of a whole buffer into another of the same depth: the kernels shared by the 8-,
// 16- and 24-bit classes (the 24-bit class runs them on each of its three bytes).
//
// Enlargement (and any call with mode 0) is bilinear with truncation; a reduction in both
// directions with mode k > 0 is low-pass filtered with a separable windowed sinc sampled at the
// reduced positions, half-widths k x scale. All arithmetic is single precision, in the order
// written in each formula below.
#ifndef KEVRA_PROCESSING_DETAIL_RESAMPLE_H
#define KEVRA_PROCESSING_DETAIL_RESAMPLE_H

#include <cstdint>
#include <cstring>

#include "core/float_store.h"
#include "core/pixel.h"
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
    t.i0 = static_cast<int32_t>(p);
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
inline int32_t clamp_index(int64_t p, int32_t size)
{
    return static_cast<int32_t>(p < 0 ? 0 : (p > size - 1 ? size - 1 : p));
}

// T = S[c] x h0 + sum for m = 1..k of (S[c - m] + S[c + m]) x hm, centre term first.
template <class Get>
float sinc_sum(Get get, int32_t centre, int32_t size, const float *h, int32_t k)
{
    float acc = get(clamp_index(centre, size)) * h[0];
    for (int32_t m = 1; m <= k; ++m)
        acc = acc + (get(clamp_index(int64_t(centre) - m, size)) + get(clamp_index(int64_t(centre) + m, size))) * h[m];
    return acc;
}

// The filtered reduction. False when the kernels or the intermediate array cannot be had, or
// when a half-width does not fit the kernel's 16-bit size (2k + 1 > 65535).
template <class Px>
bool resample_sinc(View<Px> src, View<Px> dst, unsigned char mode, float sx, float sy,
                   float max_value)
{
    using sample = typename Px::sample;
    constexpr int C = Px::channels;

    const uint16_t kx = count_u16(static_cast<float>(mode) * sx);
    const uint16_t ky = count_u16(static_cast<float>(mode) * sy);
    if (kx > 32767 || ky > 32767)
        return false;
    CFiltre filter(CFiltre::Filtre_SinusCardinal, static_cast<unsigned short>(2 * kx + 1),
                   CFiltre::Filtre_SinusCardinal, static_cast<unsigned short>(2 * ky + 1), sx, sy);
    const float *h = filter.Donne_TabFiltreX();
    const float *g = filter.Donne_TabFiltreY();
    if (h == nullptr || g == nullptr)
        return false;

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
                const int32_t centre = static_cast<int32_t>(static_cast<float>(i) * sx);
                t[i] = sinc_sum(get, centre, src.width, h, kx);
            }
        }
        // Down: rr = truncate(j x sy), clipped to [0, max_value], truncated.
        for (int32_t j = 0; j < dst.height; ++j) {
            const int32_t centre = static_cast<int32_t>(static_cast<float>(j) * sy);
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
    if (mode != 0 && src.width >= dst.width && src.height >= dst.height)
        return resample_sinc(src, dst, mode, sx, sy, max_value);
    resample_bilinear(src, dst, sx, sy);
    return true;
}

} // namespace kevra::detail

#endif
