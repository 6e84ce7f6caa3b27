// Rectangle walks of the 24-bit colour operations, and the memoised path of the hue and
// lightness gains.
#ifndef KEVRA_PROCESSING_DETAIL_COLOUR_WALK_H
#define KEVRA_PROCESSING_DETAIL_COLOUR_WALK_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/fast_path.h"
#include "core/pixel.h"
#include "kevra/platform.h"
#include "kevra/types.h"
#include "processing/detail/colour_model.h"

namespace kevra::detail {

// Columns x0 .. x0 + count - 1 of buffer rows r0 .. r1 (both inclusive).
struct PixelRuns {
    int64_t x0 = 0;
    int64_t count = 0;
    int64_t r0 = 0;
    int64_t r1 = -1;

    // Saturates instead of overflowing on absurd rectangles.
    int64_t pixels() const
    {
        if (count <= 0 || r1 < r0)
            return 0;
        const int64_t rows = r1 - r0 + 1;
        return count > INT64_MAX / rows ? INT64_MAX : count * rows;
    }
};

// Right and bottom exclusive: columns left .. right - 1,
// buffer rows height - bottom .. height - 1 - top.
inline PixelRuns half_open_runs(long height, const CRect &rc)
{
    PixelRuns runs;
    runs.x0 = rc.left;
    runs.count = static_cast<int64_t>(rc.right) - rc.left;
    runs.r0 = static_cast<int64_t>(height) - rc.bottom;
    runs.r1 = static_cast<int64_t>(height) - 1 - rc.top;
    return runs;
}

// All edges inclusive: columns left .. right, buffer rows height - 1 - bottom .. height - 1 - top.
inline PixelRuns inclusive_runs(long height, const CRect &rc)
{
    PixelRuns runs;
    runs.x0 = rc.left;
    runs.count = static_cast<int64_t>(rc.right) - rc.left + 1;
    runs.r0 = static_cast<int64_t>(height) - 1 - rc.bottom;
    runs.r1 = static_cast<int64_t>(height) - 1 - rc.top;
    return runs;
}

inline uint8_t *run_start(const View<Bgr24> &v, const PixelRuns &runs, int64_t r)
{
    return v.bits + static_cast<std::ptrdiff_t>(r) * v.pitch
           + static_cast<std::ptrdiff_t>(runs.x0) * 3;
}

// Calls pixel(p) with the three bytes p of every pixel of the runs.
template <class PixelFn>
void for_each_pixel(const View<Bgr24> &v, const PixelRuns &runs, PixelFn &&pixel)
{
    for (int64_t r = runs.r0; r <= runs.r1; ++r) {
        uint8_t *p = run_start(v, runs, r);
        for (int64_t x = 0; x < runs.count; ++x, p += 3)
            pixel(p);
    }
}

// model(c1, c2, c3, factor) -> Rgb8, e.g. scale_hue or scale_lightness.
using ModelFn = Rgb8 (*)(uint8_t, uint8_t, uint8_t, double);

// The plain path: every pixel through the double-precision model.
inline void apply_model_plain(const View<Bgr24> &v, const PixelRuns &runs, double factor,
                              ModelFn model)
{
    for_each_pixel(v, runs, [&](uint8_t *p) {
        const Rgb8 out = model(p[0], p[1], p[2], factor);
        p[0] = out.c1;
        p[1] = out.c2;
        p[2] = out.c3;
    });
}

// ---- The model four pixels at a time (AVX2) ------------------------------------------------
//
// The same double-precision model with every branch turned into a choice between values that
// are all computed: each pixel still gets the one value its own branch computes, by the same
// operations in the same order, so the bytes are the plain model's. Numerator and denominator
// are chosen before each division, so a pixel pays for one hue quotient and one saturation
// quotient, as on the plain path; a grey pixel divides by zero, harmlessly, its quotients
// being chosen away. With four doubles a vector this beats the branches of the plain model,
// which colours that change from pixel to pixel keep mispredicting; with two it does not, so
// only the AVX2 copy exists. Written with the compilers' vector extensions (GCC and Clang).
enum class ModelGain { hue, lightness };

template <ModelGain Gain>
constexpr ModelFn model_of() { return Gain == ModelGain::hue ? scale_hue : scale_lightness; }

#if KEVRA_VECTOR_AVX2
#define KEVRA_MODEL_LANES 1

typedef double Lanes4 __attribute__((vector_size(32)));
typedef int64_t Mask4 __attribute__((vector_size(32)));

// Everything on these vectors is compiled for AVX2 only (its callers run on AVX2 processors).
#define KEVRA_LANES_INLINE KEVRA_TARGET_AVX2 KEVRA_KERNEL_INLINE

KEVRA_LANES_INLINE Lanes4 splat4(double v) { return Lanes4{v, v, v, v}; }

// a where the mask is set, b elsewhere (bitwise, exact).
KEVRA_LANES_INLINE Lanes4 pick(Mask4 m, Lanes4 a, Lanes4 b)
{
    return reinterpret_cast<Lanes4>((reinterpret_cast<Mask4>(a) & m) | (reinterpret_cast<Mask4>(b) & ~m));
}

// clamp_between on four lanes.
KEVRA_LANES_INLINE Lanes4 clamp4(Lanes4 v, double lo, double hi)
{
    v = pick(v < splat4(lo), splat4(lo), v);
    return pick(v > splat4(hi), splat4(hi), v);
}

// hue_to_rgb on four lanes.
KEVRA_LANES_INLINE Lanes4 hue_to_rgb4(Lanes4 m1, Lanes4 m2, Lanes4 t)
{
    const Lanes4 one = splat4(1.0);
    t = pick(t < splat4(0.0), t + one, t);
    t = pick(t > one, t - one, t);
    const Lanes4 rise = m1 + ((m2 - m1) * t) * splat4(6.0);
    const Lanes4 fall = m1 + ((m2 - m1) * (splat4(0.6666666666666666) - t)) * splat4(6.0);
    return pick(splat4(6.0) * t < one, rise,
                pick(splat4(2.0) * t < one, m2, pick(splat4(3.0) * t < splat4(2.0), fall, m1)));
}

// Four pixels whose bytes, times 1/255, are x1, x2, x3; y gets the three values the plain model
// truncates into bytes (its components times 255).
template <ModelGain Gain>
KEVRA_LANES_INLINE void model4(Lanes4 x1, Lanes4 x2, Lanes4 x3, double factor, Lanes4 y[3])
{
    const Lanes4 zero = splat4(0.0), one = splat4(1.0), two = splat4(2.0), half = splat4(0.5);
    Lanes4 max = pick(x2 > x1, x2, x1);
    max = pick(x3 > max, x3, max);
    Lanes4 min = pick(x2 < x1, x2, x1);
    min = pick(x3 < min, x3, min);
    Lanes4 l = (max + min) * half;
    const Lanes4 d = max - min;
    Lanes4 s = d / pick(l < half, max + min, two - max - min);
    // The first component wins a tie for the maximum, then the second.
    const Mask4 first = x1 == max;
    const Mask4 second = ~first & (x2 == max);
    const Lanes4 q = pick(first, x2 - x3, pick(second, x3 - x1, x1 - x2)) / d;
    Lanes4 h = pick(first, q, q + pick(second, two, splat4(4.0))) * splat4(0.16666666666666666);
    h = pick(h < zero, h + one, h);
    const Mask4 grey = max == min;
    h = clamp4(pick(grey, zero, h), 0.0, 360.0);
    s = clamp4(pick(grey, zero, s), 0.0, 1.0);
    l = clamp4(l, 0.0, 1.0);
    if (Gain == ModelGain::hue)
        h = splat4(factor) * h;
    else
        l = splat4(factor) * l;
    h = clamp4(h, 0.0, 360.0);
    s = clamp4(s, 0.0, 1.0);
    l = clamp4(l, 0.0, 1.0);

    const Lanes4 m2 = pick(l <= half, l * (one + s), (l + s) - l * s);
    const Lanes4 m1 = two * l - m2;
    const Lanes4 third = splat4(0.3333333333333333);
    const Mask4 flat = s == zero;
    y[0] = pick(flat, l, clamp4(hue_to_rgb4(m1, m2, h + third), 0.0, 255.0)) * splat4(255.0);
    y[1] = pick(flat, l, clamp4(hue_to_rgb4(m1, m2, h), 0.0, 255.0)) * splat4(255.0);
    y[2] = pick(flat, l, clamp4(hue_to_rgb4(m1, m2, h - third), 0.0, 255.0)) * splat4(255.0);
}

// One run of n pixels in place. A last group of fewer than four repeats its last pixel.
template <ModelGain Gain>
struct ModelRow {
    static KEVRA_LANES_INLINE void run(uint8_t *p, int64_t n, double factor)
    {
        constexpr double k = 0.00392156862745098;
        for (int64_t i = 0; i < n; i += 4) {
            uint8_t *px[4];
            for (int j = 0; j < 4; ++j)
                px[j] = p + 3 * (i + j < n ? i + j : n - 1);
            Lanes4 x[3];
            for (int c = 0; c < 3; ++c)
                x[c] = Lanes4{px[0][c] * k, px[1][c] * k, px[2][c] * k, px[3][c] * k};
            Lanes4 y[3];
            model4<Gain>(x[0], x[1], x[2], factor, y);
            // Each value lies in [0, 255 * 255]: the int32 truncation is the plain store's.
            for (int j = 0; j < 4; ++j)
                for (int c = 0; c < 3; ++c)
                    px[j][c] = static_cast<uint8_t>(static_cast<int32_t>(y[c][j]) & 0xFF);
        }
    }
};

template <ModelGain Gain>
void apply_model_lanes(const View<Bgr24> &v, const PixelRuns &runs, double factor)
{
    for (int64_t r = runs.r0; r <= runs.r1; ++r)
        run_on_avx2<ModelRow<Gain>>(run_start(v, runs, r), runs.count, factor);
}
#endif

// The memoised path. Both gains are a function of the pixel's three bytes alone (the factor
// is fixed for a call), and real pictures repeat colours a lot, so results are kept in a
// direct-mapped table of 2^16 slots keyed by the 24-bit colour. A slot holds the colour in
// bits 24..47 and the result in bits 0..23; every result in it was computed by the plain
// model for that very colour, so the bytes are the plain path's by construction.
// When, after a fair sample, nearly every pixel misses (noise-like pictures), the remaining
// rows are better computed directly.
// The rows left then go to rest(runs_left); `give_up` is the share of misses, in eighths,
// beyond which rest is faster. False (nothing done) when the table cannot be allocated.
template <class Rest>
bool apply_model_memo(const View<Bgr24> &v, const PixelRuns &runs, double factor, ModelFn model,
                      Rest &&rest, int give_up = 7)
{
    constexpr uint32_t kSlotBits = 16;
    constexpr int64_t kSample = 65536;
    uint64_t *slots = try_new_array<uint64_t>(std::size_t(1) << kSlotBits);
    if (slots == nullptr)
        return false;
    // All ones: key bits above 2^24, which no colour has.
    std::memset(slots, 0xFF, sizeof(uint64_t) << kSlotBits);

    int64_t seen = 0, misses = 0;
    int64_t r = runs.r0;
    for (; r <= runs.r1; ++r) {
        if (seen >= kSample && misses * 8 > seen * give_up)
            break;
        uint8_t *p = run_start(v, runs, r);
        for (int64_t x = 0; x < runs.count; ++x, p += 3) {
            const uint32_t colour =
                uint32_t(p[0]) | (uint32_t(p[1]) << 8) | (uint32_t(p[2]) << 16);
            const uint32_t slot = (colour * 0x9E3779B1u) >> (32 - kSlotBits);
            uint64_t entry = slots[slot];
            if ((entry >> 24) != colour) { // an empty slot never matches
                const Rgb8 out = model(p[0], p[1], p[2], factor);
                const uint32_t packed =
                    uint32_t(out.c1) | (uint32_t(out.c2) << 8) | (uint32_t(out.c3) << 16);
                entry = (uint64_t(colour) << 24) | packed;
                slots[slot] = entry;
                ++misses;
            }
            p[0] = static_cast<uint8_t>(entry);
            p[1] = static_cast<uint8_t>(entry >> 8);
            p[2] = static_cast<uint8_t>(entry >> 16);
        }
        seen += runs.count;
    }
    delete[] slots;
    if (r <= runs.r1) {
        PixelRuns left = runs;
        left.r0 = r;
        rest(left);
    }
    return true;
}

} // namespace kevra::detail

#endif
