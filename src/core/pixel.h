// Storage traits, the pitch rule, the buffer view and the shared rectangle clipping: the pixel
// vocabulary of the image store, the codec, the processing kernels, the tables, the filters and
// the sequencer.
#ifndef KEVRA_CORE_PIXEL_H
#define KEVRA_CORE_PIXEL_H

#include <cstddef>
#include <cstdint>

#include "core/clamp.h"
#include "core/fast_path.h"
#include "kevra/types.h"

namespace kevra {
namespace detail {

// Storage only: sample type, samples (channels) per pixel and bit depth.
// Traits never carry behaviour.
struct Grey8 {
    using sample = uint8_t;
    static constexpr int channels = 1;
    static constexpr int bpp = 8;
};
struct Grey16 {
    using sample = uint16_t;
    static constexpr int channels = 1;
    static constexpr int bpp = 16;
};
struct Bgr24 {
    using sample = uint8_t;
    static constexpr int channels = 3; // blue, green, red
    static constexpr int bpp = 24;
};

// The one entry-count rule of every table, including the local tables of the processing
// operations: 65536 entries at depth 16, else 256.
inline int32_t lut_entries(unsigned bpp) { return bpp == 16 ? 65536 : 256; }

// Row pitch: every row padded to 4 bytes. Computed in 64 bits so that hostile
// sizes cannot wrap; callers that store it in 32 bits check the range.

inline int64_t row_pitch(int64_t width, int bpp)
{
    return ((width * bpp + 31) & ~int64_t(31)) / 8;
}

// A bottom-up pixel buffer of one storage kind. row(r) is buffer row r
// (row 0 = bottom of the picture); pixel(x, r) the first sample of pixel x.
// 16-bit samples are read and written as host uint16_t: the library targets
// little-endian machines, where that is the file and memory order.
template <class Px>
struct View {
    using sample = typename Px::sample;

    int32_t width = 0;
    int32_t height = 0;
    std::ptrdiff_t pitch = 0;
    uint8_t * bits = nullptr;

    sample * row(int32_t r) const { return reinterpret_cast<sample *>(bits + pitch * r); }
    sample * pixel(int32_t x, int32_t r) const { return row(r) + static_cast<std::ptrdiff_t>(x) * Px::channels; }
};

// The untyped bits of a buffer form as bytes.
inline unsigned char * as_bytes(void * bits) { return static_cast<unsigned char *>(bits); }

template <class Px>
inline View<Px> view(long width, long height, unsigned char * bits)
{
    View<Px> v;
    v.width = static_cast<int32_t>(width);
    v.height = static_cast<int32_t>(height);
    v.pitch = static_cast<std::ptrdiff_t>(row_pitch(v.width, Px::bpp));
    v.bits = bits;
    return v;
}

// An inclusive range of columns and of buffer rows.
struct Span {
    int32_t x0, x1; // columns, inclusive
    int32_t r0, r1; // buffer rows, inclusive (r0 is nearer the bottom of the picture)
    bool empty() const { return x0 > x1 || r0 > r1; }
};

// The clipping shared by all rectangle operations: the rectangle is in picture
// coordinates (y downwards, inclusive edges); picture row y is buffer row
// height - 1 - y. Columns max(left, 0) .. min(right, width - 1); buffer rows
// max(height - bottom - 1, 0) .. min(height - 1, height - top - 1).
// Computed in 64 bits so that extreme rectangles cannot overflow.
inline Span clip_rect(int64_t width, int64_t height, const CRect & rc)
{
    auto lo = [](int64_t a, int64_t b) { return a < b ? a : b; };
    auto hi = [](int64_t a, int64_t b) { return a > b ? a : b; };
    Span s;
    s.x0 = static_cast<int32_t>(hi(rc.left, 0));
    s.x1 = static_cast<int32_t>(hi(lo(rc.right, width - 1), -1));
    s.r0 = static_cast<int32_t>(hi(height - rc.bottom - 1, 0));
    s.r1 = static_cast<int32_t>(hi(lo(height - 1, height - rc.top - 1), -1));
    if (s.x0 > width)
        s.x0 = static_cast<int32_t>(width);
    if (s.r0 > height)
        s.r0 = static_cast<int32_t>(height);
    return s;
}

// Samples to floats, `count` of them: exact for every sample type of the library, across the
// run in vector registers (the copy of the current vector level).
template <class Sample>
struct SamplesToFloats {
    static KEVRA_KERNEL_INLINE void run(const Sample *s, float *into, int64_t count)
    {
        for (int64_t i = 0; i < count; ++i)
            into[i] = static_cast<float>(s[i]);
    }
};

template <class Sample>
inline void samples_to_floats(const Sample *s, float *into, int64_t count)
{
    run_at_vector_level<SamplesToFloats<Sample>>(s, into, count);
}

} // namespace detail
} // namespace kevra

#endif
