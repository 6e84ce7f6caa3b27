// Rectangle walks of the 24-bit colour operations, and the memoised path of the hue and
// lightness gains.
#ifndef KEVRA_PROCESSING_DETAIL_COLOUR_WALK_H
#define KEVRA_PROCESSING_DETAIL_COLOUR_WALK_H

#include <cstddef>
#include <cstdint>
#include <cstring>

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

// The memoised path. Both gains are a function of the pixel's three bytes alone (the factor
// is fixed for a call), and real pictures repeat colours a lot, so results are kept in a
// direct-mapped table of 2^16 slots keyed by the 24-bit colour. A slot holds the colour in
// bits 24..47 and the result in bits 0..23; every result in it was computed by the plain
// model for that very colour, so the bytes are the plain path's by construction.
// When, after a fair sample, nearly every pixel misses (noise-like pictures), the remaining
// rows go through the plain path, which is then faster.
// False (nothing done) when the table cannot be allocated.
inline bool apply_model_memo(const View<Bgr24> &v, const PixelRuns &runs, double factor,
                             ModelFn model)
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
        if (seen >= kSample && misses * 8 > seen * 7)
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
        PixelRuns rest = runs;
        rest.r0 = r;
        apply_model_plain(v, rest, factor, model);
    }
    return true;
}

} // namespace kevra::detail

#endif
