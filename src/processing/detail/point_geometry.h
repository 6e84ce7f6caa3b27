// Kernels of the point and geometric operations (fill, mirrors, quarter turns), one template per
// operation on the storage kind. Instantiated in src/processing/point_geometry.cpp.
//
// Rectangles reaching outside the buffer are first cut to it (cut_to_image); inside the buffer
// each kernel keeps its own row and column ranges, which differ on purpose and are spelt out
// above each kernel.
#ifndef KEVRA_PROCESSING_DETAIL_POINT_GEOMETRY_H
#define KEVRA_PROCESSING_DETAIL_POINT_GEOMETRY_H

#include <cstdint>
#include <cstring>

#include "core/fast_path.h"
#include "core/pixel.h"
#include "kevra/types.h"
#include "processing/detail/point_geometry_fast.h"

namespace kevra {
namespace detail {

// The rectangle with each edge moved inside the image: left and top at least 0, right at most
// width - 1, bottom at most height - 1 (inclusive edges). An empty result has left > right or
// top > bottom.
inline CRect cut_to_image(long width, long height, const CRect &rc)
{
    CRect r = rc;
    if (r.left < 0)
        r.left = 0;
    if (r.top < 0)
        r.top = 0;
    if (static_cast<int64_t>(r.right) > static_cast<int64_t>(width) - 1)
        r.right = static_cast<int32_t>(width - 1);
    if (static_cast<int64_t>(r.bottom) > static_cast<int64_t>(height) - 1)
        r.bottom = static_cast<int32_t>(height - 1);
    return r;
}

// One pixel's samples (1 for grey, blue-green-red for 24 bits).
template <class Px>
struct PixelValue {
    typename Px::sample c[Px::channels];
};

template <class Px>
inline void copy_pixel(typename Px::sample *to, const typename Px::sample *from)
{
    for (int k = 0; k < Px::channels; ++k)
        to[k] = from[k];
}

// Fill: image rows top .. bottom and columns left .. right, all inclusive (buffer rows
// height - bottom - 1 .. height - top - 1).
template <class Px>
void fill_rows(const View<Px> &v, const Span &s, const PixelValue<Px> &value)
{
    for (int32_t r = s.r0; r <= s.r1; ++r) {
        typename Px::sample *p = v.pixel(s.x0, r);
        for (int32_t x = s.x0; x <= s.x1; ++x, p += Px::channels)
            copy_pixel<Px>(p, value.c);
    }
}

// Left-right mirror: (right - left) / 2 pairs, left + k with right - k, on buffer rows
// height - bottom .. height - top - 1. So the rectangle's bottom image row is never touched, and
// with an even pixel count the two centre pixels stay where they are: both are part of this
// mirror's definition (results are exchanged between devices and must stay identical). rc is
// cut to the image; `scratch` holds one pixel.
template <class Px>
void mirror_h_rows(const View<Px> &v, const CRect &rc, typename Px::sample *scratch)
{
    const int64_t pairs = (static_cast<int64_t>(rc.right) - rc.left) / 2; // toward zero
    const int64_t r0 = static_cast<int64_t>(v.height) - rc.bottom;
    const int64_t r1 = static_cast<int64_t>(v.height) - rc.top - 1;
    for (int64_t r = r0; r <= r1; ++r) {
        for (int32_t k = 0; k < pairs; ++k) {
            typename Px::sample *a = v.pixel(rc.left + k, static_cast<int32_t>(r));
            typename Px::sample *b = v.pixel(rc.right - k, static_cast<int32_t>(r));
            copy_pixel<Px>(scratch, a);
            copy_pixel<Px>(a, b);
            copy_pixel<Px>(b, scratch);
        }
    }
}

// Top-bottom mirror: (bottom - top) / 2 pairs of row segments (columns left .. right), buffer
// row height - bottom + k with height - top - 1 - k, that is image rows bottom - 1 - k and
// top + k: the bottom image row is left out, as in the left-right mirror. `scratch` holds one
// segment. rc is cut to the image.
template <class Px>
void mirror_v_rows(const View<Px> &v, const CRect &rc, uint8_t *scratch)
{
    const int64_t span = static_cast<int64_t>(rc.right) - rc.left + 1;
    if (span <= 0)
        return;
    const std::size_t bytes = static_cast<std::size_t>(span) * Px::channels * sizeof(typename Px::sample);
    const int64_t pairs = (static_cast<int64_t>(rc.bottom) - rc.top) / 2;
    for (int32_t k = 0; k < pairs; ++k) {
        void *a = v.pixel(rc.left, v.height - rc.bottom + k);
        void *b = v.pixel(rc.left, v.height - rc.top - 1 - k);
        std::memcpy(scratch, a, bytes);
        std::memcpy(a, b, bytes);
        std::memcpy(b, scratch, bytes);
    }
}

// Quarter and half turns of the whole buffer into dst (sizes already checked), in memory
// coordinates: source pixel (x, r) goes to
//   0: (r, W - 1 - x)        clockwise on the displayed picture
//   1: (W - 1 - x, H - 1 - r)
//   2: (H - 1 - r, x)        anticlockwise
template <class Px>
inline typename Px::sample *turned_pixel(const View<Px> &dst, int angle, int32_t w, int32_t h, int32_t x, int32_t r)
{
    if (angle == 0)
        return dst.pixel(r, w - 1 - x);
    if (angle == 1)
        return dst.pixel(w - 1 - x, h - 1 - r);
    return dst.pixel(h - 1 - r, x);
}

// The plain walk, source row by source row: the definition.
template <class Px>
void quick_rotate_ref(const View<Px> &src, const View<Px> &dst, int angle, int32_t r0, int32_t r1, int32_t x0,
                      int32_t x1)
{
    for (int32_t r = r0; r < r1; ++r) {
        const typename Px::sample *p = src.pixel(x0, r);
        for (int32_t x = x0; x < x1; ++x, p += Px::channels)
            copy_pixel<Px>(turned_pixel(dst, angle, src.width, src.height, x, r), p);
    }
}

// The turns. The quarter turns have a fast path (point_geometry_fast.h) that moves the same
// samples in blocks; the half turn maps rows to rows and takes the plain walk.
template <class Px>
void quick_rotate(const View<Px> &src, const View<Px> &dst, int angle)
{
    if (fast_paths_enabled() && angle != 1) {
        quarter_turn_fast<Px>(src, dst, angle);
        return;
    }
    quick_rotate_ref(src, dst, angle, 0, src.height, 0, src.width);
}

extern template void fill_rows<Grey8>(const View<Grey8> &, const Span &, const PixelValue<Grey8> &);
extern template void fill_rows<Grey16>(const View<Grey16> &, const Span &, const PixelValue<Grey16> &);
extern template void fill_rows<Bgr24>(const View<Bgr24> &, const Span &, const PixelValue<Bgr24> &);
extern template void mirror_h_rows<Grey8>(const View<Grey8> &, const CRect &, uint8_t *);
extern template void mirror_h_rows<Grey16>(const View<Grey16> &, const CRect &, uint16_t *);
extern template void mirror_h_rows<Bgr24>(const View<Bgr24> &, const CRect &, uint8_t *);
extern template void mirror_v_rows<Grey8>(const View<Grey8> &, const CRect &, uint8_t *);
extern template void mirror_v_rows<Grey16>(const View<Grey16> &, const CRect &, uint8_t *);
extern template void mirror_v_rows<Bgr24>(const View<Bgr24> &, const CRect &, uint8_t *);
extern template void quick_rotate<Grey8>(const View<Grey8> &, const View<Grey8> &, int);
extern template void quick_rotate<Grey16>(const View<Grey16> &, const View<Grey16> &, int);
extern template void quick_rotate<Bgr24>(const View<Bgr24> &, const View<Bgr24> &, int);

} // namespace detail
} // namespace kevra

#endif
