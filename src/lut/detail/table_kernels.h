// Table kernels of the grey and colour look-up tables, instantiated in src/lut/lut.cpp for
// uint8_t and uint16_t entries. The entry-count rule, which the operations building a local
// table share, is in core/pixel.h.
#ifndef KEVRA_LUT_DETAIL_TABLE_KERNELS_H
#define KEVRA_LUT_DETAIL_TABLE_KERNELS_H

#include <cmath>
#include <cstdint>
#include <cstring>

#include "core/float_store.h"
#include "core/pixel.h"

namespace kevra {
namespace detail {

// One entry of the brightness/contrast/gamma table. The precision of each step is part of the
// result: x in single precision, the power in double rounded back to single, then
// (p * c + l) * S in single precision in exactly that order. With l = 0, c = 1, g = 1 the
// truncation gives i - 1 for some i; that is the table, not an error.
inline float tone_level(int32_t i, float d, float s, float luminosite, float contraste,
                        float gamma)
{
    const float x = static_cast<float>(i) / d;
    const float p = static_cast<float>(std::pow(static_cast<double>(x), static_cast<double>(gamma)));
    float v = p * contraste;
    v = v + luminosite;
    v = v * s;
    // Clamp: when the smaller of v and S is not above 0 the entry is 0. Written so that a
    // not-a-number v (0 * infinity from a negative gamma at x = 0) takes this branch too.
    const float smaller = (s < v) ? s : v;
    if (!(smaller > 0.0f))
        v = 0.0f;
    else if (!(v < s))
        v = s;
    return v;
}

template <class T>
void build_tone_table(T *table, int32_t n, float luminosite, float contraste, float gamma)
{
    // D = (float)N - 1 and S = (float)M: equal values, both computed once.
    const float d = static_cast<float>(n) - 1.0f;
    const float s = static_cast<float>(n - 1);
    for (int32_t i = 0; i < n; ++i)
        table[i] = store_sample<T>(tone_level(i, d, s, luminosite, contraste, gamma));
}

template <class T>
void identity_table(T *table, int32_t n)
{
    for (int32_t i = 0; i < n; ++i)
        table[i] = static_cast<T>(i);
}

template <class T>
bool is_identity(const T *table, int32_t n)
{
    for (int32_t i = 0; i < n; ++i)
        if (table[i] != static_cast<T>(i))
            return false;
    return true;
}

// table first, then other on its result. Entries of a table of n entries are below n.
template <class T>
void compose_tables(T *table, const T *other, int32_t n)
{
    for (int32_t i = 0; i < n; ++i)
        table[i] = other[table[i]];
}

// Inclusive rectangle of a table application, cut to the buffer. The walk is
// rows height - 1 - bottom .. height - 1 - top, columns left .. right.
inline Span table_span(long width, long height, const CRect &rect)
{
    return clip_rect(width, height, rect);
}

// Every sample of the span through its table.
template <class Px>
void apply_table(const View<Px> &v, const Span &s, const typename Px::sample *table)
{
    for (int32_t r = s.r0; r <= s.r1; ++r) {
        typename Px::sample *p = v.pixel(s.x0, r);
        for (int32_t x = s.x0; x <= s.x1; ++x, ++p)
            *p = table[*p];
    }
}

// The same lookups, eight samples at a time: all eight entries are read before any sample is
// written back, so the compiler need not fear that a store changes the table (byte stores may
// alias anything) and the reads overlap. Each sample still gets table[sample].
template <class Px>
void apply_table_fast(const View<Px> &v, const Span &s, const typename Px::sample *table)
{
    using T = typename Px::sample;
    constexpr int kBlock = 8;
    const int64_t n = static_cast<int64_t>(s.x1) - s.x0 + 1;
    for (int32_t r = s.r0; r <= s.r1; ++r) {
        T *p = v.pixel(s.x0, r);
        int64_t x = 0;
        for (; x + kBlock <= n; x += kBlock) {
            T out[kBlock];
            for (int k = 0; k < kBlock; ++k)
                out[k] = table[p[x + k]];
            std::memcpy(p + x, out, sizeof out);
        }
        for (; x < n; ++x)
            p[x] = table[p[x]];
    }
}

// 24 bits: the pixel's first byte through the first table, the second through the second, the
// third through the third (blue, green, red for a standard bitmap).
inline void apply_tables_bgr(const View<Bgr24> &v, const Span &s, const uint8_t *first,
                             const uint8_t *second, const uint8_t *third)
{
    for (int32_t r = s.r0; r <= s.r1; ++r) {
        uint8_t *p = v.pixel(s.x0, r);
        for (int32_t x = s.x0; x <= s.x1; ++x, p += 3) {
            p[0] = first[p[0]];
            p[1] = second[p[1]];
            p[2] = third[p[2]];
        }
    }
}

// The same, four pixels at a time, all twelve entries read before the bytes are written back.
inline void apply_tables_bgr_fast(const View<Bgr24> &v, const Span &s, const uint8_t *first,
                                  const uint8_t *second, const uint8_t *third)
{
    constexpr int kPixels = 4;
    const int64_t n = static_cast<int64_t>(s.x1) - s.x0 + 1;
    for (int32_t r = s.r0; r <= s.r1; ++r) {
        uint8_t *p = v.pixel(s.x0, r);
        int64_t x = 0;
        for (; x + kPixels <= n; x += kPixels, p += 3 * kPixels) {
            uint8_t out[3 * kPixels];
            for (int k = 0; k < kPixels; ++k) {
                out[3 * k] = first[p[3 * k]];
                out[3 * k + 1] = second[p[3 * k + 1]];
                out[3 * k + 2] = third[p[3 * k + 2]];
            }
            std::memcpy(p, out, sizeof out);
        }
        for (; x < n; ++x, p += 3) {
            p[0] = first[p[0]];
            p[1] = second[p[1]];
            p[2] = third[p[2]];
        }
    }
}

extern template void build_tone_table<uint8_t>(uint8_t *, int32_t, float, float, float);
extern template void build_tone_table<uint16_t>(uint16_t *, int32_t, float, float, float);
extern template void apply_table<Grey8>(const View<Grey8> &, const Span &, const uint8_t *);
extern template void apply_table<Grey16>(const View<Grey16> &, const Span &, const uint16_t *);

} // namespace detail
} // namespace kevra

#endif
