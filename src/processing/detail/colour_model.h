// Per-pixel formulas of the 24-bit colour operations: the RGB/HSL model in double precision
// and the fixed-point saturation of one pixel.
//
// Everything here gives the same bytes on every device and with every compiler, so the order
// of operations, the constants (multiplications by 1/255 and 1/6 written out as decimal
// constants, not divisions) and the truncation points are fixed and deliberate. In particular a
// grey level sent through the model and back comes out one lower for 24 of the 256 levels,
// because the final store truncates instead of rounding.
#ifndef KEVRA_PROCESSING_DETAIL_COLOUR_MODEL_H
#define KEVRA_PROCESSING_DETAIL_COLOUR_MODEL_H

#include <cstdint>

#include "core/float_store.h"

namespace kevra::detail {

// Hue in turns (0..1 as produced), saturation and lightness in 0..1.
struct Hsl {
    double h = 0.0;
    double s = 0.0;
    double l = 0.0;
};

// Three bytes in buffer order. The model calls them red, green, blue, but a pixel's first
// byte is blue in a bitmap: the hue origin is the first byte's primary on purpose.
struct Rgb8 {
    uint8_t c1 = 0;
    uint8_t c2 = 0;
    uint8_t c3 = 0;
};

inline double clamp_between(double v, double lo, double hi)
{
    if (v < lo)
        v = lo;
    if (v > hi)
        v = hi;
    return v;
}

inline Hsl rgb_to_hsl(uint8_t c1, uint8_t c2, uint8_t c3)
{
    // Multiplication by the constant, not a division by 255: the two differ in the last bit.
    const double x1 = c1 * 0.00392156862745098;
    const double x2 = c2 * 0.00392156862745098;
    const double x3 = c3 * 0.00392156862745098;

    double max = x1;
    if (x2 > max)
        max = x2;
    if (x3 > max)
        max = x3;
    double min = x1;
    if (x2 < min)
        min = x2;
    if (x3 < min)
        min = x3;

    Hsl out;
    out.l = (max + min) * 0.5;
    if (max != min) {
        const double d = max - min;
        if (out.l < 0.5)
            out.s = d / (max + min);
        else
            out.s = d / (2.0 - max - min);
        // The first component wins a tie for the maximum, then the second.
        if (x1 == max)
            out.h = (x2 - x3) / d;
        else if (x2 == max)
            out.h = (x3 - x1) / d + 2.0;
        else
            out.h = (x1 - x2) / d + 4.0;
        out.h = out.h * 0.16666666666666666;
        if (out.h < 0)
            out.h = out.h + 1.0;
    }
    // The hue's bound of 360 never acts on a hue in turns; it is there so that both
    // directions of the model clamp alike.
    out.h = clamp_between(out.h, 0.0, 360.0);
    out.s = clamp_between(out.s, 0.0, 1.0);
    out.l = clamp_between(out.l, 0.0, 1.0);
    return out;
}

// One correction each way only: a hue beyond 2 turns is not brought back into one turn.
inline double hue_to_rgb(double m1, double m2, double h)
{
    if (h < 0)
        h = h + 1.0;
    if (h > 1.0)
        h = h - 1.0;
    if (6.0 * h < 1.0)
        return m1 + ((m2 - m1) * h) * 6.0;
    if (2.0 * h < 1.0)
        return m2;
    if (3.0 * h < 2.0)
        return m1 + ((m2 - m1) * (0.6666666666666666 - h)) * 6.0;
    return m1;
}

inline Rgb8 hsl_to_rgb(double h, double s, double l)
{
    h = clamp_between(h, 0.0, 360.0);
    s = clamp_between(s, 0.0, 1.0);
    l = clamp_between(l, 0.0, 1.0);

    double y1, y2, y3;
    if (s == 0) {
        y1 = y2 = y3 = l;
    } else {
        const double m2 = l <= 0.5 ? l * (1.0 + s) : (l + s) - l * s;
        const double m1 = 2.0 * l - m2;
        y1 = hue_to_rgb(m1, m2, h + 0.3333333333333333);
        y2 = hue_to_rgb(m1, m2, h);
        y3 = hue_to_rgb(m1, m2, h - 0.3333333333333333);
        // 255 rather than 1: kept as it is, it never acts on these values.
        y1 = clamp_between(y1, 0.0, 255.0);
        y2 = clamp_between(y2, 0.0, 255.0);
        y3 = clamp_between(y3, 0.0, 255.0);
    }
    // Truncation, not rounding: this is where some components come back one lower.
    Rgb8 out;
    out.c1 = store_u8(y1 * 255.0);
    out.c2 = store_u8(y2 * 255.0);
    out.c3 = store_u8(y3 * 255.0);
    return out;
}

// The two per-pixel model adjustments. The factor is level * 0.01 computed from the level
// as a single-precision float widened to double.
inline double model_factor(int level)
{
    return static_cast<double>(static_cast<float>(level)) * 0.01;
}

// The hue is scaled, not rotated, and measured from the first byte's primary.
inline Rgb8 scale_hue(uint8_t c1, uint8_t c2, uint8_t c3, double factor)
{
    Hsl m = rgb_to_hsl(c1, c2, c3);
    m.h = factor * m.h;
    return hsl_to_rgb(m.h, m.s, m.l);
}

// hsl_to_rgb clamps the scaled lightness to 1 (white).
inline Rgb8 scale_lightness(uint8_t c1, uint8_t c2, uint8_t c3, double factor)
{
    Hsl m = rgb_to_hsl(c1, c2, c3);
    m.l = factor * m.l;
    return hsl_to_rgb(m.h, m.s, m.l);
}

// ---- Saturation, 10-bit fixed point ---------------------------------------------------------
//
// The arithmetic is 32-bit signed int that wraps on overflow (only levels above roughly
// 1000 % get there). The sums below are computed in 64 bits and wrapped to 32 explicitly, so
// the wrapped result is defined and the same on every compiler and every device.

inline int32_t wrap_int32(int64_t v)
{
    const uint32_t u = static_cast<uint32_t>(v); // modulo 2^32, well defined
    return u >= 0x80000000u ? static_cast<int32_t>(static_cast<int64_t>(u) - 0x100000000LL)
                            : static_cast<int32_t>(u);
}

// Arithmetic shift right by 20, i.e. floor(v / 2^20), written out: shifting a negative value
// right is implementation-defined before C++20.
inline int32_t floor_shift20(int32_t v)
{
    if (v >= 0)
        return v >> 20;
    const int64_t magnitude = -static_cast<int64_t>(v);
    return static_cast<int32_t>(-((magnitude + 0xFFFFF) >> 20));
}

// level * 0.01 * 1024 truncated toward zero; a factor out of the int range saturates (only
// absurd levels reach it).
inline int32_t saturation_fixed_factor(double factor) { return truncate_i32(factor * 1024.0); }

// The grey mean (C0 + C1 + C2) / 3 as the high word of the 64-bit product with 0x55555556;
// exact for every sum of three bytes scaled by 1024.
inline int32_t mean_by_multiply_high(int32_t sum)
{
    const int64_t product = static_cast<int64_t>(sum) * 0x55555556LL; // sum >= 0
    return static_cast<int32_t>(product >> 32);
}

// Scales one pixel's deviation from its grey mean by s0 / 1024. A pixel that would leave
// 0..255 is saturated only as far as its most extreme component allows: s is lowered for
// this pixel alone. Components equal to the mean keep their byte.
inline void saturate_pixel(const uint8_t *src, uint8_t *dst, int32_t s0)
{
    int32_t c[3], d[3], e[3];
    for (int k = 0; k < 3; ++k)
        c[k] = src[k];
    const int32_t sum = c[0] * 1024 + c[1] * 1024 + c[2] * 1024;
    const int32_t mean = mean_by_multiply_high(sum);
    const int32_t base = mean * 1024;
    for (int k = 0; k < 3; ++k)
        d[k] = c[k] * 1024 - mean;

    auto compute = [&](int32_t s) {
        bool out_of_range = false;
        for (int k = 0; k < 3; ++k) {
            if (d[k] == 0) {
                e[k] = c[k];
                continue;
            }
            const int32_t product = wrap_int32(static_cast<int64_t>(d[k]) * s);
            e[k] = floor_shift20(wrap_int32(static_cast<int64_t>(base) + product));
            if (e[k] < 0 || e[k] > 255)
                out_of_range = true;
        }
        return out_of_range;
    };

    if (compute(s0)) {
        // 255 * 2^20 - base: the room above the mean; base is the room below it.
        const int32_t top = 0xff00000 - base;
        int32_t s = s0;
        for (int k = 0; k < 3; ++k) {
            if (d[k] == 0)
                continue;
            const int32_t limit = d[k] > 0 ? top / d[k] : -(base / d[k]);
            if (limit < s)
                s = limit;
        }
        compute(s);
    }
    // Only the low 8 bits are stored (reached with negative levels only).
    for (int k = 0; k < 3; ++k)
        dst[k] = static_cast<uint8_t>(static_cast<uint32_t>(e[k]) & 0xFFu);
}

} // namespace kevra::detail

#endif
