// Unsharp masking: the steps shared by the 8-, 16- and 24-bit classes.
//
// The detail signal is the difference between a Gaussian blur of a lightly median-filtered
// copy of the image (plane A) and a ramp-weighted filtering of that blur (plane B); it is
// weighted by separate gains above +SeuilP and below -SeuilN and added back to the image.
// Every float plane goes through the processing base's conversions (ConvertToFloat,
// AdditionSoustractionFloat, TronqueValeurs, ConvertToBits) at the object's depth, so the
// planes have the base's layout: one float a pixel, three at 24 bits.
#ifndef KEVRA_PROCESSING_DETAIL_UNSHARP_H
#define KEVRA_PROCESSING_DETAIL_UNSHARP_H

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "core/clamp.h"
#include "core/float_store.h"
#include "core/pixel.h"
#include "kevra/filtre.h"
#include "kevra/platform.h"
#include "kevra/traitement_base.h"
#include "kevra/types.h"

namespace kevra::detail {

struct UnsharpParams {
    float rayon, gainP, gainN, SeuilP, SeuilN;
};

// The filter radius: rayon truncated toward zero as an unsigned count, 16 bits kept.
inline uint16_t unsharp_radius(float rayon) { return count_u16(rayon); }

// The parameter check. Written as positive tests so that a NaN anywhere fails.
inline bool unsharp_params_ok(const UnsharpParams &p)
{
    return unsharp_radius(p.rayon) != 0 && p.gainP >= 0.0f && p.gainN >= 0.0f &&
           p.gainP + p.gainN > 0.0f && p.SeuilP >= 0.0f && p.SeuilN >= 0.0f;
}

// The added detail for one sample: d = A - B, gain by threshold, and half a step away from
// zero. The +-0.5 is added also where the gain is 0, deliberately: detail below the thresholds
// still moves the result by half a step (which truncation then keeps or drops).
inline float unsharp_detail(float a, float b, const UnsharpParams &p)
{
    const float d = a - b;
    float gain = 0.0f;
    if (d > p.SeuilP)
        gain = p.gainP;
    else if (d < -p.SeuilN)
        gain = p.gainN;
    return d > 0.0f ? gain * d + 0.5f : gain * d - 0.5f;
}

// The processing base's float-plane conversions for a given depth. They are protected members
// of the base; this local object of the caller's depth exposes the very same members.
class FloatPlaneOps : public CTraitementImgBase {
public:
    explicit FloatPlaneOps(unsigned char bpp) : CTraitementImgBase(bpp) {}
    using CTraitementImgBase::AdditionSoustractionFloat;
    using CTraitementImgBase::ConvertToBits;
    using CTraitementImgBase::ConvertToFloat;
    using CTraitementImgBase::TronqueValeurs;
};

// Owns the work buffers of one call; frees them on every path.
struct UnsharpBuffers {
    unsigned char *copy = nullptr;
    float *a = nullptr;
    float *b = nullptr;
    ~UnsharpBuffers()
    {
        std::free(copy);
        delete[] a;
        delete[] b;
    }
    void free_copy()
    {
        std::free(copy);
        copy = nullptr;
    }
};

// The rectangle form. `median(width, height, bits, rect, tolerance, radius)` is the class's
// FiltreMedian (buffer form). max_value is the clip of the result: the sample range.
template <class Median>
bool unsharp_rect(unsigned char bpp, long width, long height, void *bits, const CRect &rect,
                  const UnsharpParams &p, float max_value, Median &&median)
{
    if (!unsharp_params_ok(p))
        return false;
    const uint16_t r = unsharp_radius(p.rayon);
    const int32_t w = static_cast<int32_t>(width), h = static_cast<int32_t>(height);
    if (w < 1 || h < 1) // no pixel to filter: refused rather than run the filters on nothing
        return false;

    CRect widened(clamp_i32(int64_t(rect.left) - r, 0, w - 1), clamp_i32(int64_t(rect.top) - r, 0, h - 1),
                  clamp_i32(int64_t(rect.right) + r, 0, w - 1), clamp_i32(int64_t(rect.bottom) + r, 0, h - 1));

    const int channels = bpp == 24 ? 3 : 1;
    const uint64_t pitch = static_cast<uint64_t>(row_pitch(w, bpp));
    const uint64_t bytes = pitch * static_cast<uint64_t>(h);
    const uint64_t samples = uint64_t(w) * uint64_t(h) * uint64_t(channels);
    if (bytes > SIZE_MAX || samples > SIZE_MAX / sizeof(float))
        return false;

    UnsharpBuffers buf;
    buf.copy = static_cast<unsigned char *>(try_alloc(static_cast<std::size_t>(bytes)));
    buf.a = try_new_array<float>(static_cast<std::size_t>(samples));
    buf.b = try_new_array<float>(static_cast<std::size_t>(samples));
    if (buf.copy == nullptr || buf.a == nullptr || buf.b == nullptr)
        return false;
    // Outside the rectangles they are given, the planes are never meant to be read; they start
    // at zero so that nothing depends on what the allocator left there.
    std::fill(buf.a, buf.a + samples, 0.0f);
    std::fill(buf.b, buf.b + samples, 0.0f);

    FloatPlaneOps ops(bpp);
    unsigned char *image = static_cast<unsigned char *>(bits);

    // A: the median-filtered copy over the widened rectangle, then its Gaussian blur.
    std::memcpy(buf.copy, image, static_cast<std::size_t>(bytes));
    bool ok = median(width, height, buf.copy, widened, 0.015, static_cast<unsigned short>(1));
    if (ok)
        ok = ops.ConvertToFloat(width, height, buf.copy, buf.a, widened);
    buf.free_copy();
    if (!ok)
        return false;

    // Size 2r + 1 is a 16-bit count.
    const unsigned short size = static_cast<unsigned short>(2 * r + 1);
    CRect rc = rect;
    {
        CFiltre gauss(CFiltre::Filtre_Gaussien, size, static_cast<float>(r) * 0.25f);
        if (!gauss.IsOK() || !gauss.FiltrerBuffer(width, height, buf.a, rc, bpp))
            return false;
    }
    // B: the ramp filtering of the blur.
    std::memcpy(buf.b, buf.a, static_cast<std::size_t>(samples) * sizeof(float));
    {
        CFiltre ramp(CFiltre::Filtre_Rampe, size, 0.0f);
        if (!ramp.IsOK() || !ramp.FiltrerBuffer(width, height, buf.b, rc, bpp))
            return false;
    }

    // B becomes the detail to add, over every sample of the rectangle's clipped rows and columns.
    const Span s = clip_rect(w, h, rect);
    for (int32_t row = s.r0; row <= s.r1; ++row) {
        const int64_t first = (int64_t(row) * w + s.x0) * channels;
        const int64_t last = (int64_t(row) * w + s.x1) * channels + channels - 1;
        for (int64_t i = first; i <= last; ++i)
            buf.b[i] = unsharp_detail(buf.a[i], buf.b[i], p);
    }

    // The image plus the detail, clipped to the sample range, truncated back.
    ok = ops.ConvertToFloat(width, height, image, buf.a, rect);
    if (ok)
        ok = ops.AdditionSoustractionFloat(1.0f, width, height, buf.a, buf.b, rect);
    if (ok)
        ok = ops.TronqueValeurs(width, height, buf.a, rect, 0.0f, max_value);
    if (ok)
        ok = ops.ConvertToBits(width, height, image, buf.a, rect);
    return ok;
}

// floor(sqrt(q)) for q >= 0, exact for every 64-bit q.
inline int64_t isqrt64(int64_t q)
{
    int64_t s = static_cast<int64_t>(std::sqrt(static_cast<double>(q)));
    while (s > 0 && s * s > q)
        --s;
    while ((s + 1) * (s + 1) <= q)
        ++s;
    return s;
}

// The disc form: the rectangle form on a copy over the disc's square, then only the disc is
// copied back. `rect_form(width, height, bits, rect)` is the class's rectangle form.
template <class RectForm>
bool unsharp_disc(unsigned char bpp, long width, long height, void *bits, const CPoint &centre,
                  long radius, RectForm &&rect_form)
{
    const int32_t w = static_cast<int32_t>(width), h = static_cast<int32_t>(height);
    if (w < 1 || h < 1)
        return false;
    const int64_t R = static_cast<int32_t>(radius);
    const int64_t cx = centre.x, cy = centre.y;
    CRect square(clamp_i32(cx - R, 0, w - 1), clamp_i32(cy - R, 0, h - 1), clamp_i32(cx + R, 0, w - 1),
                 clamp_i32(cy + R, 0, h - 1));

    const int64_t pitch = row_pitch(w, bpp);
    const uint64_t bytes = static_cast<uint64_t>(pitch) * static_cast<uint64_t>(h);
    if (bytes > SIZE_MAX)
        return false;
    unsigned char *temp = static_cast<unsigned char *>(try_alloc(static_cast<std::size_t>(bytes)));
    if (temp == nullptr)
        return false;
    unsigned char *image = static_cast<unsigned char *>(bits);
    std::memcpy(temp, image, static_cast<std::size_t>(bytes));

    const bool ok = rect_form(width, height, temp, square);
    if (ok) {
        // The centre's buffer row is taken as height - centre.y, deliberately not
        // height - 1 - centre.y, and each row's half-width comes from (row - centre.y) with the
        // buffer row and the picture row subtracted as they stand: the disc lands one row lower
        // than the centre and is shaped by that mixed difference. Both are kept.
        const int64_t mc = clamp_i32(int64_t(h) - cy, 0, h - 1);
        const int64_t bytes_per_pixel = bpp / 8;
        const int32_t row_lo = clamp_i32(mc - R, 0, h - 1), row_hi = clamp_i32(mc + R, 0, h - 1);
        for (int32_t row = row_lo; row <= row_hi; ++row) {
            const int64_t d = row - cy;
            const int64_t q = R * R - d * d;
            const int64_t half = q < 0 ? 0 : isqrt64(q);
            // Columns outside the image are left out: the copy equals the image there anyway.
            const int64_t x_lo = std::max<int64_t>(cx - half, 0);
            const int64_t x_hi = std::min<int64_t>(cx + half, w - 1);
            if (x_lo > x_hi)
                continue;
            const int64_t offset = int64_t(row) * pitch + x_lo * bytes_per_pixel;
            std::memcpy(image + offset, temp + offset,
                        static_cast<std::size_t>((x_hi - x_lo + 1) * bytes_per_pixel));
        }
    }
    std::free(temp);
    return ok;
}

} // namespace kevra::detail

#endif
