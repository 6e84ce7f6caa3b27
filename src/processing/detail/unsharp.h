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
#include <memory>
#include <new>
#include <vector>

#include "core/clamp.h"
#include "core/fast_path.h"
#include "core/float_store.h"
#include "core/pixel.h"
#include "core/row_threads.h"
#include "filters/detail/convolution.h"
#include "filters/detail/stream.h"
#include "kevra/filtre.h"
#include "kevra/platform.h"
#include "kevra/traitement_base.h"
#include "kevra/types.h"
#include "processing/detail/median.h"
#include "processing/detail/median_rules.h"

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
    const float gain = d > p.SeuilP ? p.gainP : (d < -p.SeuilN ? p.gainN : 0.0f);
    return gain * d + (d > 0.0f ? 0.5f : -0.5f); // adding -0.5 is subtracting 0.5, exactly
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

// ---- the streamed schedule -------------------------------------------------------------------
//
// The same steps walked strip by strip without a plane: plane A's rows are made when the
// Gaussian needs them (the median-filtered copy as floats over the widened rectangle, 0
// elsewhere, as the zero-filled plane holds them), the blurred rows go to a ring of 2n+1 rows
// that the ramp filtering reads, and each output row takes its detail, the image, the clip and
// the store at once. Every sample receives the very operations of the plain steps, in order.

// Rows of plane A before the blur. `copy.row(r)` is row r of the median-filtered copy: a whole
// copy made first, or MedianRowsMade.
template <class Px, class Copy>
struct MedianCopyRows {
    Copy copy;
    Span widened;
    int64_t stride;
    const float *row(int64_t r, float *into) const
    {
        if (r < widened.r0 || r > widened.r1 || widened.x0 > widened.x1) {
            std::fill(into, into + stride, 0.0f);
            return into;
        }
        const int64_t f0 = int64_t(widened.x0) * Px::channels, f1 = (int64_t(widened.x1) + 1) * Px::channels;
        std::fill(into, into + f0, 0.0f);
        samples_to_floats(copy.row(static_cast<int32_t>(r)) + f0, into + f0, f1 - f0);
        std::fill(into + f1, into + stride, 0.0f);
        return into;
    }
};

// The median-filtered rows made on demand, without a copy of the image: row r is made when
// first asked for and kept in a ring of `depth` rows. The blur asks for each row once, its
// rows in increasing order, n + 1 rows at most ahead of the rows the blur ring reads again;
// the image rows the output overwrites lie further behind than the median reads.
template <class Px, class Interior>
class MedianRowsMade {
public:
    using sample = typename Px::sample;
    MedianRowsMade(MedianPass<Px, Interior> &pass, int64_t row_samples, int64_t depth, int64_t first)
        : pass_(&pass), row_samples_(row_samples), depth_(depth), next_(first)
    {
    }
    bool allocate()
    {
        ring_.reset(try_new_array<sample>(static_cast<std::size_t>(row_samples_ * depth_)));
        return ring_ != nullptr;
    }
    const sample *row(int32_t r)
    {
        for (; next_ <= r; ++next_)
            pass_->make_row(static_cast<int32_t>(next_), slot(next_));
        return slot(r);
    }
    // What MedianCopyRows holds.
    struct Rows {
        MedianRowsMade *made;
        const sample *row(int32_t r) const { return made->row(r); }
    };

private:
    sample *slot(int64_t r) const { return ring_.get() + (r % depth_) * row_samples_; }
    MedianPass<Px, Interior> *pass_;
    int64_t row_samples_, depth_, next_;
    std::unique_ptr<sample[]> ring_;
};

// Rows of plane A after the blur (the rectangle blurred, the rest as it was), kept in a ring for
// the ramp filtering and the detail.
template <class Px, class A>
class BlurredRows {
public:
    BlurredRows(const KernelShape &k, const float *gauss, const A &a)
        : k_(k), gauss_(k, gauss, gauss), a_(a)
    {
    }
    bool allocate(RowStrip rows)
    {
        const FilterAxis &ay = k_.ay;
        RowStrip blurred{rows.first - ay.n > ay.lo ? rows.first - ay.n : ay.lo,
                         rows.last + ay.n < ay.hi ? rows.last + ay.n : ay.hi};
        return ring_.allocate(2 * ay.n + 1, k_.stride, true) &&
               (blurred.first > blurred.last || gauss_.allocate(blurred, false));
    }
    const float *row(int64_t r)
    {
        float *into = ring_.storage(r);
        a_.row(r, into);
        if (r >= k_.ay.lo && r <= k_.ay.hi)
            gauss_.produce(r, a_, into);
        ring_.set(r, into);
        return into;
    }
    const float *kept(int64_t r) const { return ring_.row(r); }

    // The source the ramp filtering reads.
    struct Source {
        BlurredRows *p;
        const float *row(int64_t r, float *) const { return p->row(r); }
    };

private:
    KernelShape k_;
    SeparableStage<Px::channels> gauss_;
    A a_;
    RowRing ring_;
};

// Samples f0..f1 of an output row: the image plus 1.0 times the detail, clipped below then
// above, truncated. The values first (into the ramp row b, read no more), then the stores, so
// that each loop runs across pixels.
template <class Sample>
struct UnsharpCombine {
    static KEVRA_KERNEL_INLINE void run(const float *a_row, float *b, Sample *px, int64_t f0, int64_t f1,
                                        UnsharpParams q, float max_value)
    {
        for (int64_t f = f0; f < f1; ++f) {
            float v = static_cast<float>(px[f]) + 1.0f * unsharp_detail(a_row[f], b[f], q);
            v = v < 0.0f ? 0.0f : v;
            b[f] = v > max_value ? max_value : v;
        }
        for (int64_t f = f0; f < f1; ++f)
            px[f] = store_clipped_sample<Sample>(b[f]);
    }
};

// `a[i]` gives plane A's rows (MedianCopyRows) to strip i of `count`, each strip on its own
// thread. When a strip's rows of A read image rows near its neighbours (rows made from the image
// as they are asked for), the first and last `defer` output rows of each strip, at the edges
// between strips, wait in the strip's own store and reach the image once every strip is done.
template <class Px, class A>
bool unsharp_stream(View<Px> image, const std::vector<A> &a, unsigned count, int64_t defer, const KernelShape &k,
                    const Span &s, const float *gauss, const float *ramp, const UnsharpParams &p, float max_value)
{
    constexpr int C = Px::channels;
    using sample = typename Px::sample;
    const int64_t row_samples = int64_t(image.width) * C;
    struct Strip {
        BlurredRows<Px, A> blurred;
        SeparableStage<C> ramp;
        RowStore out;
        std::unique_ptr<sample[]> waiting; // deferred rows: the first `defer`, then the last
    };
    std::vector<Strip> strips;
    strips.reserve(count);
    // Where output row y of strip i goes: its deferred slot, or null for the image.
    auto deferred_slot = [&](Strip &st, unsigned i, const RowStrip &rows, int64_t y) -> sample * {
        if (i > 0 && y - rows.first < defer)
            return st.waiting.get() + (y - rows.first) * row_samples;
        if (i + 1 < count && rows.last - y < defer)
            return st.waiting.get() + (defer + rows.last - y) * row_samples;
        return nullptr;
    };
    for (unsigned i = 0; i < count; ++i) {
        strips.push_back(Strip{BlurredRows<Px, A>(k, gauss, a[i]), SeparableStage<C>(k, ramp, ramp), RowStore(), {}});
        const RowStrip rows = strip_of(s.r0, s.r1, count, i);
        Strip &st = strips.back();
        if (!st.blurred.allocate(rows) || !st.ramp.allocate(rows, false) || !st.out.allocate(1, k.stride))
            return false;
        if (count > 1 && defer > 0) {
            st.waiting.reset(try_new_array<sample>(static_cast<std::size_t>(2 * defer * row_samples)));
            if (st.waiting == nullptr)
                return false;
        }
    }
    run_strips(count, [&](unsigned i) {
        Strip &st = strips[i];
        const RowStrip rows = strip_of(s.r0, s.r1, count, i);
        const typename BlurredRows<Px, A>::Source blurred{&st.blurred};
        float *b = st.out.row(0);
        const UnsharpParams q = p; // passed by value: the stores into the image cannot alias it
        const int64_t f0 = int64_t(s.x0) * C, f1 = (int64_t(s.x1) + 1) * C;
        for (int64_t y = rows.first; y <= rows.last; ++y) {
            st.ramp.produce(y, blurred, b);
            const float *a_row = st.blurred.kept(y);
            sample *px = image.row(static_cast<int32_t>(y));
            if (st.waiting != nullptr)
                if (sample *slot = deferred_slot(st, i, rows, y)) {
                    std::memcpy(slot, px, static_cast<std::size_t>(row_samples) * sizeof(sample));
                    px = slot;
                }
            run_at_vector_level<UnsharpCombine<sample>>(a_row, b, px, f0, f1, q, max_value);
        }
    });
    for (unsigned i = 0; i < count; ++i) {
        const RowStrip rows = strip_of(s.r0, s.r1, count, i);
        if (strips[i].waiting != nullptr)
            for (int64_t y = rows.first; y <= rows.last; ++y)
                if (const sample *slot = deferred_slot(strips[i], i, rows, y))
                    std::memcpy(image.row(static_cast<int32_t>(y)), slot,
                                static_cast<std::size_t>(row_samples) * sizeof(sample));
    }
    return true;
}

// The median's rows are made as the blur asks for them (MedianRowsMade), each strip walking its
// own, unless the median cannot be walked that way; then the median fills a copy of the image
// first. A strip's rows of A read image rows from 2r + 2 rows below its first to 2r + 1 above
// its last: those output rows wait (unsharp_stream).
template <class Px, class MedianSimple>
bool unsharp_rect_streamed(long width, long height, void *bits, const CRect &rect, const CRect &widened,
                           uint16_t r, const UnsharpParams &p, float max_value, MedianSimple &&median_simple)
{
    const View<Px> image = view<Px>(width, height, static_cast<unsigned char *>(bits));
    const unsigned short size = static_cast<unsigned short>(2 * r + 1);
    CFiltre gauss(CFiltre::Filtre_Gaussien, size, static_cast<float>(r) * 0.25f);
    CFiltre ramp(CFiltre::Filtre_Rampe, size, 0.0f);
    if (!gauss.IsOK() || !ramp.IsOK())
        return false;
    const Span s = clip_rect(width, height, rect);
    const Span wide = clip_rect(width, height, widened);
    const KernelShape k = separable_shape(image.width, image.height, filter_region(width, height, rect),
                                          Px::channels, (size - 1) / 2, (size - 1) / 2);
    const unsigned count = strip_count(s.r0, s.r1);
    {
        using Interior = typename MedianRule<Px, true>::type;
        using sample = typename Px::sample;
        using Made = MedianRowsMade<Px, Interior>;
        const int64_t capacity = median_sample_capacity<Px>(image.width, image.height, 1);
        std::vector<std::unique_ptr<sample[]>> samples(count);
        std::vector<std::unique_ptr<MedianPass<Px, Interior>>> passes(count);
        std::vector<std::unique_ptr<Made>> made(count);
        std::vector<MedianCopyRows<Px, typename Made::Rows>> a;
        bool walks = true;
        for (unsigned i = 0; i < count && walks; ++i) {
            samples[i].reset(try_new_array<sample>(static_cast<std::size_t>(capacity)));
            if (samples[i] == nullptr)
                return false;
            std::fill(samples[i].get(), samples[i].get() + capacity, sample(0));
            passes[i].reset(new (std::nothrow) MedianPass<Px, Interior>(image, image, samples[i].get(), 1, 0.015));
            if (passes[i] == nullptr)
                return false;
            walks = passes[i]->begin_rows(widened);
            const int64_t first = std::max<int64_t>(wide.r0, strip_of(s.r0, s.r1, count, i).first - 2 * int64_t(r));
            // The ring holds 2r + 4 rows (the blur reads r + 1 behind the newest), at most the image.
            made[i].reset(new (std::nothrow) Made(*passes[i], int64_t(image.width) * Px::channels,
                                                  std::min<int64_t>(2 * int64_t(r) + 4, image.height), first));
            if (made[i] == nullptr || !made[i]->allocate())
                return false;
            a.push_back(MedianCopyRows<Px, typename Made::Rows>{typename Made::Rows{made[i].get()}, wide, k.stride});
        }
        if (walks)
            return unsharp_stream<Px>(image, a, count, 2 * int64_t(r) + 2, k, s, gauss.Donne_TabFiltreX(),
                                      ramp.Donne_TabFiltreX(), p, max_value);
    }

    const std::size_t bytes = static_cast<std::size_t>(image.pitch) * static_cast<std::size_t>(image.height);
    std::unique_ptr<unsigned char, void (*)(void *)> copy(static_cast<unsigned char *>(try_alloc(bytes)), std::free);
    if (copy == nullptr)
        return false;
    // The median of the copy reads the image itself and writes into the copy: the same bytes as
    // the in-place median of the copy, without its second copy.
    std::memcpy(copy.get(), bits, bytes);
    CRect median_rect = widened;
    if (!median_simple(width, height, bits, copy.get(), median_rect, 0.015, static_cast<unsigned short>(1)))
        return false;
    const std::vector<MedianCopyRows<Px, View<Px>>> a(count, {view<Px>(width, height, copy.get()), wide, k.stride});
    return unsharp_stream<Px>(image, a, count, 0, k, s, gauss.Donne_TabFiltreX(), ramp.Donne_TabFiltreX(), p,
                              max_value);
}

// The rectangle form. `median(width, height, bits, rect, tolerance, radius)` is the class's
// FiltreMedian (buffer form). max_value is the clip of the result: the sample range.
//
// `median_simple(width, height, bits, out, rect, tolerance, radius)` is its FiltreMedianSimple,
// used by the streamed schedule.
template <class Median, class MedianSimple>
bool unsharp_rect(unsigned char bpp, long width, long height, void *bits, const CRect &rect,
                  const UnsharpParams &p, float max_value, Median &&median, MedianSimple &&median_simple)
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

    // Nothing of the image changes when the rectangle misses it; the plain steps say so.
    if (fast_paths_enabled() && !clip_rect(w, h, rect).empty()) {
        if (bpp == 8)
            return unsharp_rect_streamed<Grey8>(width, height, bits, rect, widened, r, p, max_value, median_simple);
        if (bpp == 16)
            return unsharp_rect_streamed<Grey16>(width, height, bits, rect, widened, r, p, max_value, median_simple);
        if (bpp == 24)
            return unsharp_rect_streamed<Bgr24>(width, height, bits, rect, widened, r, p, max_value, median_simple);
    }

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
