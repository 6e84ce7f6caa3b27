// Selective median: the kernel shared by the 8-, 16- and 24-bit classes.
//
// A sample is replaced by the median of its (2n + 1) x (2n + 1) neighbourhood only when it
// stands out from the neighbourhood's mean by more than a relative tolerance. The rectangle is
// split into an interior (full windows), a lower and an upper band of rows, and a left and a
// right band of columns; the four corner blocks are never examined.
//
// What the three depths share is here; what differs on purpose (precision, strict or inclusive
// test, which neighbours are gathered) comes in as an Interior rule from median.cpp, where each
// rule is named and says why.
//
// Behaviour every depth keeps:
//  * one sort flag per call: it is set when the call starts and never again, so the first
//    replacement of a call sorts its samples fully and every later one finds the flag clear and
//    takes its value from the samples in gathering order (for a full interior window, the left
//    neighbour of the centre);
//  * gathering order: window rows from the lowest buffer row up, columns left to right, centre
//    skipped;
//  * neighbours are read from `src`, the tested centre from `out`, replacements go to `out`.
#ifndef KEVRA_PROCESSING_DETAIL_MEDIAN_H
#define KEVRA_PROCESSING_DETAIL_MEDIAN_H

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <vector>

#include "core/clamp.h"
#include "core/fast_path.h"
#if KEVRA_VECTOR_AVX2
#include <immintrin.h>
#endif
#include "core/pixel.h"
#include "core/row_threads.h"
#include "kevra/platform.h"
#include "kevra/types.h"

namespace kevra::detail {

// Optimised bubble sort, ascending. `swapped` is the caller's flag: a sort runs passes only
// while it is set, and always leaves it clear (the last pass it makes exchanges nothing).
template <class T>
void bubble_sort_flagged(T *values, int64_t count, bool &swapped)
{
    if (count < 1)
        return;
    for (int64_t pass = 0; pass < count && swapped; ++pass) {
        swapped = false;
        for (int64_t i = 1; i < count - pass; ++i) {
            if (values[i - 1] > values[i]) {
                const T t = values[i - 1];
                values[i - 1] = values[i];
                values[i] = t;
                swapped = true;
            }
        }
    }
}

// The rectangle as clamped buffer bounds (columns, buffer rows, all inclusive) and its interior.
struct MedianBounds {
    int32_t x0, x1; // columns of the rectangle
    int32_t rA, rB; // buffer rows of the rectangle (rA the lowest)
    int32_t xs, xe; // interior columns
    int32_t rs, re; // interior rows
};

// The interior holds the centres whose full window lies inside the image. Columns and rows do
// not follow the same rule at the far end, deliberately: a row end exactly n rows below the
// last row is pulled in by n, a column end exactly n columns before the last column is not.
// And when the rectangle starts within n of the first column (row), the interior starts n past
// the rectangle's start, not at n: a rectangle from column 1 with n = 2 has its interior from
// column 3.
inline MedianBounds median_bounds(int32_t width, int32_t height, const CRect &rc, int32_t n)
{
    MedianBounds b;
    const int64_t w = width, h = height;
    b.x0 = clamp_i32(rc.left, 0, w - 1);
    b.x1 = clamp_i32(rc.right, 0, w - 1);
    b.rA = clamp_i32(h - int64_t(rc.bottom) - 1, 0, h - 1);
    b.rB = clamp_i32(h - int64_t(rc.top) - 1, 0, h - 1);
    const int64_t xs = b.x0 - n < 0 ? int64_t(b.x0) + n : b.x0;
    const int64_t xe = b.x1 + int64_t(n) > w - 1 ? int64_t(b.x1) - n : b.x1;
    const int64_t rs = b.rA - n < 0 ? int64_t(b.rA) + n : b.rA;
    const int64_t re = b.rB + int64_t(n) < h - 1 ? b.rB : int64_t(b.rB) - n;
    b.xs = clamp_i32(xs, 0, w - 1);
    b.xe = clamp_i32(xe, 0, w - 1);
    b.rs = clamp_i32(rs, 0, h - 1);
    b.re = clamp_i32(re, 0, h - 1);
    return b;
}

// Neighbour count of a full window, (2n + 1)^2 - 1.
inline int64_t median_window_count(int32_t n)
{
    const int64_t side = 2 * int64_t(n) + 1;
    return side * side - 1;
}

// The band decision, the same at every depth: double precision, mean = sum / count with the
// single-precision sum widened, inclusive tests against mean x (1 +- tolerance).
inline bool band_replaces(uint32_t centre, float sum, int64_t count, double tolerance)
{
    const double mean = static_cast<double>(sum) / static_cast<double>(count);
    const double c = centre;
    return c >= mean * (1.0 + tolerance) || c <= mean * (1.0 - tolerance);
}

// The factors of a rule's two thresholds for 8-bit samples: up = (1 + tolerance) / N and
// down = (1 - tolerance) / N, as the products of the rule's 1 / N in double. None (false) when
// a factor could exceed 8 / N or is not a number (tolerances beyond -7 .. 7): the screened
// tests (MedianPass::decide_screened, decide_fixed16) rely on thresholds below 255 x 8.
inline bool median_screen_factors(double inverse, double tolerance, double &up, double &down)
{
    const double k_up = 1.0 + tolerance, k_down = 1.0 - tolerance;
    if (!(std::fabs(k_up) <= 8.0 && std::fabs(k_down) <= 8.0))
        return false;
    up = inverse * k_up;
    down = inverse * k_down;
    return true;
}

// The thresholds in 16-bit fixed point, for window sums below 2^16: with S = sum << a (below
// 2^16) and K = floor(factor x 2^(16 - a + b)), q = (S x K) >> 16 is the threshold x 2^b less
// between 0 and 2 (the floor of K loses under S / 2^16 < 1, the shift under 1; the double
// rounding of the rule is below 1e-10 on values under 2^16). So a centre with c x 2^b at
// least q + 3 is above the threshold and one at most q - 1 below it; the three values
// between are left to the rule's own test. Usable with both factors positive and every
// value, c x 2^b and q + 3, within 16 bits; b (the fraction bits) as large as that allows.
struct Fixed16Screen {
    bool usable = false;
    int a = 0, b = 0;
    uint16_t up = 0, down = 0;
};

inline Fixed16Screen median_fixed16_screen(double up, double down, int64_t max_sum)
{
    Fixed16Screen z;
    if (!(up > 0.0 && down > 0.0) || max_sum < 1 || max_sum > 65535)
        return z;
    int bits = 0;
    while ((int64_t(1) << bits) <= max_sum)
        ++bits;
    for (int b = 8; b >= 2; --b) {
        const double scale = std::ldexp(1.0, 16 - (16 - bits) + b);
        const double k_up = std::floor(up * scale), k_down = std::floor(down * scale);
        const double top = static_cast<double>(max_sum) * std::max(up, down) * std::ldexp(1.0, b) + 4.0;
        if (k_up >= 1.0 && k_down >= 1.0 && k_up < 65536.0 && k_down < 65536.0 && (255 << b) < 65536 &&
            top < 65536.0) {
            z.usable = true;
            z.a = 16 - bits;
            z.b = b;
            z.up = static_cast<uint16_t>(k_up);
            z.down = static_cast<uint16_t>(k_down);
            return z;
        }
    }
    return z;
}

// The decisions of Fixed16Screen on 16 samples a vector (AVX2): replaced[j] is 1 where the
// centre is surely above the upper threshold or surely below the lower one, unsure[j] is 1
// where either test is left to the rule.
#if KEVRA_VECTOR_AVX2
// x >= y in each unsigned 16-bit lane.
KEVRA_TARGET_AVX2 inline __m256i at_least_u16(__m256i x, __m256i y)
{
    return _mm256_cmpeq_epi16(_mm256_max_epu16(x, y), x);
}

KEVRA_TARGET_AVX2 inline void median_decide_fixed16_avx2(const uint8_t *c, const uint16_t *total, uint8_t *replaced,
                                                          uint8_t *unsure, int64_t m, const Fixed16Screen &z)
{
    const __m256i k_up = _mm256_set1_epi16(static_cast<short>(z.up)), k_down = _mm256_set1_epi16(static_cast<short>(z.down));
    const __m256i one = _mm256_set1_epi16(1), three = _mm256_set1_epi16(3);
    const __m128i shift_a = _mm_cvtsi32_si128(z.a), shift_b = _mm_cvtsi32_si128(z.b);
    int64_t j = 0;
    for (; j + 16 <= m; j += 16) {
        const __m256i s = _mm256_sll_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(total + j)), shift_a);
        const __m256i cx = _mm256_sll_epi16(
            _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i *>(c + j))), shift_b);
        const __m256i qu = _mm256_mulhi_epu16(s, k_up), qd = _mm256_mulhi_epu16(s, k_down);
        const __m256i cx1 = _mm256_add_epi16(cx, one);
        const __m256i up_yes = at_least_u16(cx, _mm256_add_epi16(qu, three)), up_no = at_least_u16(qu, cx1);
        const __m256i down_yes = at_least_u16(qd, cx1), down_no = at_least_u16(cx, _mm256_add_epi16(qd, three));
        const __m256i yes = _mm256_or_si256(up_yes, down_yes);
        const __m256i known = _mm256_and_si256(_mm256_or_si256(up_yes, up_no), _mm256_or_si256(down_yes, down_no));
        // Bytes: per 128-bit lane, 8 decisions then 8 unknowns; gathered into 16 and 16.
        const __m256i packed = _mm256_permute4x64_epi64(_mm256_packs_epi16(yes, _mm256_andnot_si256(known, _mm256_set1_epi16(-1))),
                                                        _MM_SHUFFLE(3, 1, 2, 0));
        const __m256i bytes = _mm256_and_si256(packed, _mm256_set1_epi8(1));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(replaced + j), _mm256_castsi256_si128(bytes));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(unsure + j), _mm256_extracti128_si256(bytes, 1));
    }
    for (; j < m; ++j) {
        const uint32_t s = static_cast<uint32_t>(total[j]) << z.a, cx = static_cast<uint32_t>(c[j]) << z.b;
        const uint32_t qu = (s * z.up) >> 16, qd = (s * z.down) >> 16;
        const bool up_yes = cx >= qu + 3, up_no = qu >= cx + 1, down_yes = qd >= cx + 1, down_no = cx >= qd + 3;
        replaced[j] = static_cast<uint8_t>(up_yes | down_yes);
        unsure[j] = static_cast<uint8_t>(!((up_yes | up_no) & (down_yes | down_no)));
    }
}
#endif

// Which gathered sample a band writes: the middle one for an odd count, the lower middle one
// for an even count.
inline int64_t band_pick(int64_t count) { return (count & 1) ? count / 2 : count / 2 - 1; }

// One filtering call over one depth. `Interior` supplies the interior's gathering and decision:
//   Interior rule(N, tolerance);
//   rule.gather(const sample *centre, ptrdiff_t pitch_in_samples, int32_t n, sample *out)
//       -> float sum (writes the gathered samples at the front of out, in gathering order);
//   rule.replaces(uint32_t centre, float sum) -> bool;
//   rule.screen(double &up, double &down) -> bool, for 8-bit samples its factors for
//   median_screen_factors (false otherwise);
//   Rule::half_window: true when gather takes only the neighbours at a positive byte offset
//   (the rows above the centre and the right half of its row).
template <class Px, class Interior>
class MedianPass {
public:
    using sample = typename Px::sample;
    static constexpr int channels = Px::channels;

    MedianPass(View<Px> src, View<Px> out, sample *samples, int32_t n, double tolerance)
        : src_(src), out_(out), samples_(samples), n_(n), tolerance_(tolerance),
          full_(median_window_count(n)), rule_(full_, tolerance)
    {
        if constexpr (sizeof(sample) == 1) {
            double up = 0.0, down = 0.0;
            screened_ = rule_.screen(up, down);
            screen_up_ = static_cast<float>(up);
            screen_down_ = static_cast<float>(down);
            const int64_t max_sum = (Interior::half_window ? full_ / 2 : full_) * 255;
            sums16_ = max_sum <= 65535;
            if (screened_ && sums16_)
                fixed16_ = median_fixed16_screen(up, down, max_sum);
        }
    }

    void run(const CRect &rc)
    {
        const MedianBounds b = median_bounds(src_.width, src_.height, rc, n_);
        if (interior_examined(b)) {
            if (!(fast_paths_enabled() && integer_sums_exact() && interior_fast(b)))
                interior_plain(b);
        }
        for (int32_t r = b.rA; r < b.rs; ++r)
            band_row(b, Band::lower, r, [&](const BandCentre &k) { band(k); });
        for (int32_t r = b.re + 1; r <= b.rB; ++r)
            band_row(b, Band::upper, r, [&](const BandCentre &k) { band(k); });
        for (int32_t r = b.rs; r <= b.re; ++r)
            band_row(b, Band::left, r, [&](const BandCentre &k) { band(k); });
        for (int32_t r = b.rs; r <= b.re; ++r)
            band_row(b, Band::right, r, [&](const BandCentre &k) { band(k); });
    }

    // FiltreMedian in place (`src` and `out` both the image) without a second image: the rows
    // are walked bottom to top, each row taking all its passes at once (its lower or upper
    // band, or its interior row then its left and right bands), into a ring of result rows
    // that are written back only once no later window reads the row's original samples (n + 1
    // rows up; the interior's column sums read one more). Each centre gets the decisions of
    // the plain walk, in the same order for the centres that several passes examine, so the
    // bytes are those of the filter into a copy of the image.
    //
    // The plain walk's order still decides which replacement is the call's first, the one that
    // sorts: interior, then lower, upper, left and right bands. Interior decisions read only
    // original samples, so the interior's first is found ahead, by walking interior rows until
    // one replaces (normally the first), and settled at once; its value is written with its
    // row. A band replacement is written as a later one; each band keeps its first with the
    // value it would take as the call's first (its samples fully sorted) and, when no earlier
    // pass replaced anything, that value is written at the end. Only the left band's first has
    // a reader, the right band's decision on the same centre, which is therefore also taken
    // with that value and kept.
    //
    // With threads the rows split into strips, each walked the same way on its own ring. A
    // strip's n lowest and n highest rows are what its neighbours' windows read, so their
    // results wait in the strip's own store until every strip is done. Each band's first is
    // the first of the earliest strip that met one.
    //
    // False (nothing done, the caller takes the path with a copy) when the walk does not fit:
    // rows without an interior (the lower and upper bands could then meet), an interior whose
    // sums would not be exact integers, or memory refused.
    bool run_in_place_streamed(const CRect &rc)
    {
        const MedianBounds b = median_bounds(src_.width, src_.height, rc, n_);
        const bool interior = interior_examined(b) && full_ > 0;
        if (b.rs > b.re || (interior && !integer_sums_exact()))
            return false;
        const unsigned count = strip_count(b.rA, b.rB);
        std::vector<StreamStrip> strips(count);
        for (unsigned i = 0; i < count; ++i)
            if (!allocate_strip(b, strip_of(b.rA, b.rB, count, i), interior, strips[i]))
                return false;

        Hit first; // the interior's first replacement
        sample first_value = 0;
        if (interior) {
            first = interior_first(b, strips[0].scratch.get(), strips[0].ring.get());
            if (first.r >= 0)
                first_value = settled(first.x, first.r, first.c);
        }
        run_strips(count, [&](unsigned i) {
            walk_strip(b, strip_of(b.rA, b.rB, count, i), interior, first, first_value, strips[i]);
        });

        const int64_t row_bytes = int64_t(src_.width) * channels * int64_t(sizeof(sample));
        for (unsigned i = 0; i < count; ++i) {
            const RowStrip rows = strip_of(b.rA, b.rB, count, i);
            for (int64_t r = rows.first; r <= rows.last; ++r)
                if (const sample *kept = strips[i].deferred_row(rows, r, n_))
                    std::memcpy(src_.row(static_cast<int32_t>(r)), kept, static_cast<std::size_t>(row_bytes));
        }
        if (first.r < 0)
            for (int band = Band::lower; band <= Band::right; ++band)
                for (const StreamStrip &st : strips)
                    if (st.firsts[band].met) {
                        const FirstOfBand &f = st.firsts[band];
                        src_.pixel(static_cast<int32_t>(f.x), static_cast<int32_t>(f.r))[f.c] = f.value;
                        return true;
                    }
        return true;
    }

    // The rows of FiltreMedianSimple into a copy of the image (the image unchanged), made one at
    // a time, for a consumer that reads each row once it is made and may then overwrite image
    // rows it made more than n + 1 rows earlier. begin_rows finds the call's first replacement
    // ahead, as the streamed walk does; it refuses (false) where that walk would, and when the
    // first replacement is not in the interior (a band's could only be known at the end).
    // make_row(r, row) then gives row r's result, rows in increasing order.
    bool begin_rows(const CRect &rc)
    {
        const MedianBounds b = median_bounds(src_.width, src_.height, rc, n_);
        if (b.rs > b.re || !interior_examined(b) || full_ == 0 || !integer_sums_exact())
            return false;
        const int64_t row_samples = int64_t(src_.width) * channels;
        walk_.scratch.reset(try_new_array<uint32_t>(static_cast<std::size_t>(scratch_words(b))));
        walk_.gathered.reset(try_new_array<sample>(
            static_cast<std::size_t>(std::min<int64_t>(full_, row_samples * src_.height))));
        std::unique_ptr<sample[]> probe(try_new_array<sample>(static_cast<std::size_t>(row_samples)));
        if (walk_.scratch == nullptr || walk_.gathered == nullptr || probe == nullptr)
            return false;
        walk_.first = interior_first(b, walk_.scratch.get(), probe.get());
        if (walk_.first.r < 0)
            return false;
        walk_.first_value = settled(walk_.first.x, walk_.first.r, walk_.first.c);
        walk_.b = b;
        walk_.last_interior = -1;
        return true;
    }
    void make_row(int32_t r, sample *row)
    {
        const MedianBounds &b = walk_.b;
        std::memcpy(row, src_.row(r), static_cast<std::size_t>(src_.width) * channels * sizeof(sample));
        if (r < b.rA || r > b.rB)
            return;
        // Band centres: decided on the row as it stands, replaced as later replacements.
        auto visit = [&](const BandCentre &k) {
            if (k.x < 0 || k.x >= src_.width) // a centre the band rules put past the image
                return;
            sample &centre = row[k.x * channels + k.c];
            const BandPick pick = band_pick_streamed(k, centre, walk_.gathered.get(), false);
            if (pick.replaced)
                centre = pick.later;
        };
        if (r < b.rs) {
            band_row(b, Band::lower, r, visit);
        } else if (r > b.re) {
            band_row(b, Band::upper, r, visit);
        } else {
            interior_row(b, r, r - 1 != walk_.last_interior, walk_.scratch.get(), row);
            walk_.last_interior = r;
            if (r == walk_.first.r)
                row[int64_t(walk_.first.x) * channels + walk_.first.c] = walk_.first_value;
            band_row(b, Band::left, r, visit);
            band_row(b, Band::right, r, visit);
        }
    }

private:
    // Interior: full windows. Only an image narrower or lower than the window (1 pixel across
    // with n >= 1) gets interior bounds whose windows leave it, through the clamping of xs, xe
    // (rs, re) onto the same column (row); such an interior is not examined, so nothing is read
    // outside the image.
    bool interior_examined(const MedianBounds &b) const
    {
        const int32_t n = n_;
        return int64_t(b.xs) - n >= 0 && int64_t(b.xe) + n <= src_.width - 1 && int64_t(b.rs) - n >= 0 &&
               int64_t(b.re) + n <= src_.height - 1 && b.rs <= b.re && b.xs <= b.xe;
    }

    void interior_plain(const MedianBounds &b)
    {
        for (int32_t r = b.rs; r <= b.re; ++r)
            for (int32_t x = b.xs; x <= b.xe; ++x)
                for (int c = 0; c < channels; ++c)
                    interior(x, r, c);
    }

    // The fast interior needs the single-precision sum of the plain path to be the exact sum,
    // which holds while every partial sum stays below 2^24 (N x the largest sample): radius
    // up to 127 at 8 bits, up to 7 at 16 bits.
    bool integer_sums_exact() const
    {
        return full_ * int64_t(std::numeric_limits<sample>::max()) < (int64_t(1) << 24);
    }

    // The same interior, same decisions, with the window sums kept as running integer sums
    // (column sums slid up the rows, window sums slid along the row).
    //
    // What a replacement writes follows from the call's one sort flag: only the call's first
    // replacement sorts; every later one finds the flag clear and writes the sample at the median
    // index N/2 - 1 of the gathering order. For a full window that is the window position just
    // before the centre, its left neighbour; for the half window (which gathers exactly N/2
    // samples) it is the last one gathered, the far corner (n, n). So the interior writes that
    // sample for every replacement, without gathering, and notes where its first one was; that
    // one is then redone with its gather and full sort. The interior runs first in a call, so the
    // flag is still set there, and the slots a half window never gathers into still hold the
    // zeros they started with, as on the plain path. Its rows may split into strips on threads
    // (each with its own running sums; nothing is read that another strip writes, the image
    // being read from `bits` and written to `out`); the first replacement of the earliest strip
    // that has one is the call's first.
    //
    // In place (`bits` is `out`) a full window reads neighbours the walk has already replaced
    // (below and to the left), which sums taken before those writes cannot see, so the plain
    // path runs; the half window reads only samples still ahead of the walk, so it stays fast
    // (on one thread). Its first replacement, redone after the walk, may then gather samples
    // written since, which changes nothing: that sort holds N/2 untouched zero slots, so the
    // value it writes at N/2 - 1 is 0 whatever was gathered. False (nothing done) when the
    // column sums cannot be allocated.
    struct Hit {
        int32_t x = 0, r = -1;
        int c = 0;
    };

    bool interior_fast(const MedianBounds &b)
    {
        const bool in_place = src_.bits == out_.bits;
        if (in_place && !Interior::half_window)
            return false;
        if (full_ == 0) // no neighbour: the mean is 0/0 and nothing is replaced
            return true;
        const unsigned count = in_place ? 1u : strip_count(b.rs, b.re);
        const int64_t scratch = scratch_words(b);
        uint32_t *words = try_new_array<uint32_t>(static_cast<std::size_t>(scratch * count));
        if (words == nullptr)
            return false;
        std::vector<Hit> hits(count);
        run_strips(count, [&](unsigned i) {
            const RowStrip rows = strip_of(b.rs, b.re, count, i);
            hits[i] = interior_rows(b, static_cast<int32_t>(rows.first), static_cast<int32_t>(rows.last),
                                    words + int64_t(i) * scratch);
        });
        delete[] words;
        for (const Hit &h : hits)
            if (h.r >= 0) {
                settle(h.x, h.r, h.c);
                break;
            }
        return true;
    }

    // The call's first replacement as the plain path makes it: gathered and fully sorted.
    sample settled(int32_t x, int32_t r, int c)
    {
        rule_.gather(src_.pixel(x, r) + c, src_.pitch / std::ptrdiff_t(sizeof(sample)), n_, samples_);
        sort(full_);
        return samples_[full_ / 2 - 1];
    }
    void settle(int32_t x, int32_t r, int c) { out_.pixel(x, r)[c] = settled(x, r, c); }

    // Scratch of one strip, in 32-bit words: the column sums of a row (one per sample of the
    // interior's columns widened by n on each side), then the window sums of the interior's
    // samples, then one decision byte per interior sample, then one byte per sample that the
    // screened test leaves to the rule's own.
    int64_t scratch_words(const MedianBounds &b) const
    {
        const int64_t run = (int64_t(b.xe) - b.xs + 1 + 2 * int64_t(n_)) * channels;
        const int64_t m = (int64_t(b.xe) - b.xs + 1) * channels;
        return run + m + 2 * ((m + 3) / 4);
    }

    // The rule's test on 8-bit samples, answered in single precision wherever that cannot
    // differ from the rule's own double-precision test. A threshold mean x (1 +- tolerance)
    // is below 255 x 8 (mean <= 255, factors capped), and sum x factor approximates it within
    // a relative 1.2e-7, so within 0.00025. c - threshold is exact when under 1/8 (the two
    // are then within a factor of 2 of each other), so a centre more than 1/1024 from both
    // thresholds gets the rule's answer; the few others are marked and take the rule's own
    // test. The single-precision products run eight samples a vector where the doubles ran four.
    template <class Sum>
    KEVRA_KERNEL_INLINE void decide_screened(const sample *out, const Sum *total, uint8_t *replaced,
                                             uint8_t *unsure, int64_t m) const
    {
        constexpr float margin = 1.0f / 1024.0f;
        const float up = screen_up_, down = screen_down_;
        for (int64_t j = 0; j < m; ++j) {
            const float s = static_cast<float>(total[j]), c = static_cast<float>(out[j]);
            const float above = c - s * up, below = c - s * down;
            replaced[j] = static_cast<uint8_t>((above > margin) | (below < -margin));
            const int near_above = std::fabs(above) <= margin, near_below = std::fabs(below) <= margin;
            unsure[j] = static_cast<uint8_t>(near_above | near_below);
        }
        settle_unsure(out, total, replaced, unsure, m);
    }

    // The rule's own test where a screened test left the decision open.
    template <class Sum>
    void settle_unsure(const sample *out, const Sum *total, uint8_t *replaced, const uint8_t *unsure, int64_t m) const
    {
        for (const uint8_t *p = unsure, *end = unsure + m;
             (p = static_cast<const uint8_t *>(std::memchr(p, 1, static_cast<std::size_t>(end - p)))) != nullptr;
             ++p) {
            const int64_t j = p - unsure;
            replaced[j] = rule_.replaces(out[j], static_cast<float>(total[j])) ? 1 : 0;
        }
    }

    // The interior's first replacement, found ahead by walking its rows (through `probe`, a row
    // of scratch) until one replaces: interior decisions read only the image's own samples.
    Hit interior_first(const MedianBounds &b, uint32_t *scratch, sample *probe) const
    {
        for (int32_t r = b.rs; r <= b.re; ++r) {
            std::memcpy(probe, src_.row(r), static_cast<std::size_t>(src_.width) * channels * sizeof(sample));
            const int64_t j = interior_row(b, r, r == b.rs, scratch, probe);
            if (j >= 0)
                return Hit{static_cast<int32_t>(b.xs + j / channels), r, static_cast<int>(j % channels)};
        }
        return Hit{};
    }

    // Interior rows r0..r1 with replacements written as later ones; returns the first replacement.
    Hit interior_rows(const MedianBounds &b, int32_t r0, int32_t r1, uint32_t *scratch) const
    {
        Hit first;
        for (int32_t r = r0; r <= r1; ++r) {
            const int64_t j = interior_row(b, r, r == r0, scratch, out_.row(r));
            if (j >= 0 && first.r < 0)
                first = Hit{static_cast<int32_t>(b.xs + j / channels), r, static_cast<int>(j % channels)};
        }
        return first;
    }

    // One interior row, its replacements written into `out_row` (the row's samples from pixel 0)
    // as later ones; returns the index from xs of its first replaced sample, or -1. `fresh`
    // starts the column sums; otherwise they slide up from row r - 1.
    // A full window is the 2n + 1 column sums of rows r - n .. r + n less the centre; the half
    // window is the column sums of rows r + 1 .. r + n plus its own row's n samples to the right.
    // The row goes in passes over all its samples (column sums, window sums, decisions,
    // writes), each pass the same operation on every sample, so that it runs across pixels in
    // vector registers; the decision is the rule's own test, on the same values.
    int64_t interior_row(const MedianBounds &b, int32_t r, bool fresh, uint32_t *scratch, sample *out_row) const
    {
        int64_t first = -1;
        run_at_vector_level<InteriorRow>(this, &b, r, fresh, scratch, out_row, &first);
        return first;
    }
    struct InteriorRow {
        static KEVRA_KERNEL_INLINE void run(const MedianPass *pass, const MedianBounds *b, int32_t r, bool fresh,
                                            uint32_t *scratch, sample *out_row, int64_t *first)
        {
            *first = pass->interior_row_body(*b, r, fresh, scratch, out_row);
        }
    };
    // The window sums of a radius known when compiling, each kept in a register: the 2n + 1
    // column sums, then less the centre (full window) or plus the n samples to its right
    // (half window). Integer sums: any order gives the same value.
    template <int N, class Sum>
    static KEVRA_KERNEL_INLINE void window_sums_fixed(const Sum *colsum, const sample *in, Sum *total, int64_t m)
    {
        for (int64_t j = 0; j < m; ++j) {
            Sum s = colsum[j];
            for (int k = 1; k <= 2 * N; ++k)
                s = static_cast<Sum>(s + colsum[j + k * channels]);
            if (Interior::half_window) {
                for (int dx = 1; dx <= N; ++dx)
                    s = static_cast<Sum>(s + in[j + dx * channels]);
            } else {
                s = static_cast<Sum>(s - in[j]); // the centre is no neighbour
            }
            total[j] = s;
        }
    }

    // The column sums of row r (started afresh, or slid up from row r - 1) and its window sums,
    // in unsigned words of type Sum. Sums of 8-bit samples take 16-bit words while a window sum
    // cannot pass 65535 (radius up to 7), twice the samples a vector of 32-bit words holds; a
    // partial sum may wrap around, the final ones are exact.
    template <class Sum>
    KEVRA_KERNEL_INLINE void row_sums(const MedianBounds &b, int32_t r, bool fresh, Sum *colsum, Sum *total) const
    {
        constexpr bool half = Interior::half_window;
        const int32_t n = n_;
        const int32_t lo = half ? 1 : -n; // lowest window row summed by the column sums
        const int32_t base = b.xs - n;    // first column with a column sum
        const int64_t run = (int64_t(b.xe) - base + 1 + n) * channels;
        const int64_t m = (int64_t(b.xe) - b.xs + 1) * channels; // interior samples of a row
        if (fresh) {
            for (int64_t k = 0; k < run; ++k)
                colsum[k] = 0;
            for (int32_t dy = lo; dy <= n; ++dy) {
                const sample *row = src_.pixel(base, r + dy);
                for (int64_t k = 0; k < run; ++k)
                    colsum[k] = static_cast<Sum>(colsum[k] + row[k]);
            }
        } else {
            const sample *enters = src_.pixel(base, r + n);
            const sample *leaves = src_.pixel(base, r - 1 + lo);
            for (int64_t k = 0; k < run; ++k)
                colsum[k] = static_cast<Sum>(colsum[k] + enters[k] - leaves[k]);
        }
        // Window sums (below 2^24, so exact in a float too).
        const sample *in = src_.pixel(b.xs, r);
        if (n == 1) {
            window_sums_fixed<1>(colsum, in, total, m);
        } else if (n == 2) {
            window_sums_fixed<2>(colsum, in, total, m);
        } else {
            for (int64_t j = 0; j < m; ++j)
                total[j] = colsum[j];
            for (int32_t k = 1; k <= 2 * n; ++k) {
                const Sum *col = colsum + int64_t(k) * channels;
                for (int64_t j = 0; j < m; ++j)
                    total[j] = static_cast<Sum>(total[j] + col[j]);
            }
            if (half) {
                for (int32_t dx = 1; dx <= n; ++dx) {
                    const sample *right = in + int64_t(dx) * channels;
                    for (int64_t j = 0; j < m; ++j)
                        total[j] = static_cast<Sum>(total[j] + right[j]);
                }
            } else {
                for (int64_t j = 0; j < m; ++j)
                    total[j] = static_cast<Sum>(total[j] - in[j]); // the centre is no neighbour
            }
        }
    }

    // The decisions of a row's m interior samples from their window sums.
    template <class Sum>
    KEVRA_KERNEL_INLINE void decide(const sample *out, const Sum *total, uint8_t *replaced, int64_t m) const
    {
#if KEVRA_VECTOR_AVX2
        if constexpr (sizeof(Sum) == 2 && sizeof(sample) == 1)
            if (fixed16_.usable && vector_level() == VectorLevel::avx2) {
                median_decide_fixed16_avx2(out, total, replaced, replaced + m, m, fixed16_);
                settle_unsure(out, total, replaced, replaced + m, m);
                return;
            }
#endif
        if (screened_) {
            decide_screened(out, total, replaced, replaced + m, m);
        } else {
            for (int64_t j = 0; j < m; ++j)
                replaced[j] = rule_.replaces(out[j], static_cast<float>(total[j])) ? 1 : 0;
        }
    }

    KEVRA_KERNEL_INLINE int64_t interior_row_body(const MedianBounds &b, int32_t r, bool fresh, uint32_t *scratch,
                                                  sample *out_row) const
    {
        const int32_t n = n_;
        const int64_t run = (int64_t(b.xe) - b.xs + 1 + 2 * int64_t(n)) * channels;
        const int64_t m = (int64_t(b.xe) - b.xs + 1) * channels; // interior samples of a row
        uint8_t *replaced = reinterpret_cast<uint8_t *>(scratch + run + m);
        sample *out = out_row + int64_t(b.xs) * channels;
        if (sums16_) {
            uint16_t *colsum = reinterpret_cast<uint16_t *>(scratch), *total = reinterpret_cast<uint16_t *>(scratch + run);
            row_sums(b, r, fresh, colsum, total);
            decide(out, total, replaced, m);
        } else {
            uint32_t *colsum = scratch, *total = scratch + run;
            row_sums(b, r, fresh, colsum, total);
            decide(out, total, replaced, m);
        }
        // Later replacements: the left neighbour, or the half window's far corner (n, n).
        const sample *pick = Interior::half_window ? src_.pixel(b.xs + n, r + n) : src_.pixel(b.xs - 1, r);
        for (int64_t j = 0; j < m; ++j) {
            const sample take = static_cast<sample>(0u - replaced[j]); // all ones where replaced
            out[j] = static_cast<sample>((pick[j] & take) | (out[j] & ~take));
        }
        const void *hit = std::memchr(replaced, 1, static_cast<std::size_t>(m));
        return hit == nullptr ? -1 : static_cast<const uint8_t *>(hit) - replaced;
    }

    // The sort with the call's one flag.
    void sort(int64_t count) { bubble_sort_flagged(samples_, count, swapped_); }

    void interior(int32_t x, int32_t r, int c)
    {
        const sample *centre_src = src_.pixel(x, r) + c;
        const float sum = rule_.gather(centre_src, src_.pitch / std::ptrdiff_t(sizeof(sample)), n_,
                                       samples_);
        sample *centre_out = out_.pixel(x, r) + c;
        // A radius of 0 has no neighbour (N = 0): its mean is 0/0 and no test holds, but the
        // guard keeps the element index from ever being -1.
        if (full_ > 0 && rule_.replaces(*centre_out, sum)) {
            sort(full_);
            // The lower of the two middle values of a full sort.
            *centre_out = samples_[full_ / 2 - 1];
        }
    }

    // ---- bands ----------------------------------------------------------------------------

    enum Band { lower = 0, upper = 1, left = 2, right = 3 };

    // A band centre and the window rows dy_lo..dy_hi and columns dx_lo..dx_hi around it.
    struct BandCentre {
        int64_t x, r;
        int c;
        int64_t dy_lo, dy_hi, dx_lo, dx_hi;
    };

    // The centres of one band on buffer row r, in walking order, with their windows.
    //  * lower band (rows rA .. rs - 1): the window's rows cut at the rectangle's lowest row;
    //  * upper band (rows re + 1 .. rB): cut at its highest row;
    //  * left band (rows rs .. re): xs - x0 centres a row, deliberately counted from the
    //    interior's first column xs and not from x0 (so the left edge itself is never
    //    reached), the window cut at the rectangle's left column (which only bites when xs was
    //    clamped to the image);
    //  * right band (rows rs .. re): x1 - xe centres a row, again counted from xs, and a window
    //    whose right limit is taken from the row position (rB - r), not from the column.
    // These rules are part of the filter's definition, so its bands give the same bytes on
    // every device.
    template <class Visit>
    void band_row(const MedianBounds &b, Band which, int32_t r, Visit &&visit) const
    {
        const int64_t n = n_;
        switch (which) {
        case Band::lower:
        case Band::upper:
            for (int64_t x = b.xs; x <= b.xe; ++x)
                for (int c = 0; c < channels; ++c)
                    visit(which == Band::lower
                              ? BandCentre{x, r, c, std::max<int64_t>(-n, int64_t(b.rA) - r), n, -n, n}
                              : BandCentre{x, r, c, -n, std::min<int64_t>(n, int64_t(b.rB) - r), -n, n});
            break;
        case Band::left:
            for (int64_t x = b.xs; x < int64_t(b.xs) + (int64_t(b.xs) - b.x0); ++x)
                for (int c = 0; c < channels; ++c)
                    visit(BandCentre{x, r, c, -n, n, std::max<int64_t>(-n, int64_t(b.x0) - x), n});
            break;
        case Band::right:
            for (int64_t x = b.xs; x < int64_t(b.xs) + (int64_t(b.x1) - b.xe); ++x)
                for (int c = 0; c < channels; ++c)
                    visit(BandCentre{x, r, c, -n, n, -n, std::min<int64_t>(n, int64_t(b.rB) - r)});
            break;
        }
    }

    // Gathers a band centre's window into `into` (gathering order) and returns how many samples
    // it holds, with their single-precision sum. Where the band rules reach past the image (a
    // centre counted from xs beyond the last column, a row limit beyond the last row, a window
    // wider than a small image), only the samples inside the image are gathered, and a centre
    // outside the image gathers nothing and is not examined: nothing is ever read or written
    // outside the image's pixels.
    int64_t band_gather(const BandCentre &k, sample *into, float &sum) const
    {
        sum = 0.0f;
        if (k.x < 0 || k.x >= src_.width || k.r < 0 || k.r >= src_.height)
            return 0;
        const int64_t dy_lo = std::max<int64_t>(k.dy_lo, -k.r);
        const int64_t dy_hi = std::min<int64_t>(k.dy_hi, int64_t(src_.height) - 1 - k.r);
        const int64_t dx_lo = std::max<int64_t>(k.dx_lo, -k.x);
        const int64_t dx_hi = std::min<int64_t>(k.dx_hi, int64_t(src_.width) - 1 - k.x);
        int64_t count = 0;
        for (int64_t dy = dy_lo; dy <= dy_hi; ++dy) {
            const sample *row = src_.row(static_cast<int32_t>(k.r + dy)) + k.c;
            for (int64_t dx = dx_lo; dx <= dx_hi; ++dx) {
                if (dy == 0 && dx == 0)
                    continue;
                const sample v = row[(k.x + dx) * channels];
                into[count++] = v;
                sum += static_cast<float>(v);
            }
        }
        return count;
    }

    // A band centre on the plain walk: gathered into the call's samples, sorted while the
    // call's flag is set.
    void band(const BandCentre &k)
    {
        float sum;
        const int64_t count = band_gather(k, samples_, sum);
        if (count == 0)
            return;
        sample *centre_out = out_.pixel(static_cast<int32_t>(k.x), static_cast<int32_t>(k.r)) + k.c;
        if (band_replaces(*centre_out, sum, count, tolerance_)) {
            sort(count);
            *centre_out = samples_[band_pick(count)];
        }
    }

    // A band centre on the streamed walk, tested against `centre`: whether it is replaced, the
    // value it takes as a later replacement (gathering order) and, when asked, as the call's
    // first (its samples fully sorted, which is what a sort with the flag set leaves).
    struct BandPick {
        bool replaced = false;
        sample later = 0, first = 0;
    };
    BandPick band_pick_streamed(const BandCentre &k, sample centre, sample *gathered, bool as_first) const
    {
        BandPick p;
        float sum;
        const int64_t count = band_gather(k, gathered, sum);
        if (count == 0 || !band_replaces(centre, sum, count, tolerance_))
            return p;
        p.replaced = true;
        p.later = gathered[band_pick(count)];
        if (as_first) {
            std::sort(gathered, gathered + count);
            p.first = gathered[band_pick(count)];
        }
        return p;
    }

    // A band's first replacement on the streamed walk, with the value it keeps if it turns out
    // to be the call's first.
    struct FirstOfBand {
        bool met = false;
        int64_t x = 0, r = 0;
        int c = 0;
        sample value = 0;
    };

    // One strip of the streamed walk: its ring of result rows, the results its neighbours'
    // windows wait for, and its own scratch.
    struct StreamStrip {
        std::unique_ptr<sample[]> ring, deferred, gathered;
        std::unique_ptr<uint32_t[]> scratch;
        int64_t ring_rows = 0, row_samples = 0;
        FirstOfBand firsts[4];

        // Where row r's result waits, or null when it goes straight to the image.
        sample *deferred_row(const RowStrip &rows, int64_t r, int32_t n) const
        {
            if (r - rows.first < n)
                return deferred.get() + (r - rows.first) * row_samples;
            if (rows.last - r < n)
                return deferred.get() + (int64_t(n) + rows.last - r) * row_samples;
            return nullptr;
        }
    };

    bool allocate_strip(const MedianBounds &b, const RowStrip &rows, bool interior, StreamStrip &st) const
    {
        const int64_t height = rows.last - rows.first + 1;
        st.row_samples = int64_t(src_.width) * channels;
        st.ring_rows = std::min<int64_t>(int64_t(n_) + 2, height);
        const int64_t waiting = std::min<int64_t>(2 * int64_t(n_), height);
        const int64_t capacity = std::min<int64_t>(full_, int64_t(src_.width) * src_.height);
        st.ring.reset(try_new_array<sample>(static_cast<std::size_t>(st.ring_rows * st.row_samples)));
        st.deferred.reset(try_new_array<sample>(static_cast<std::size_t>(std::max<int64_t>(waiting * st.row_samples, 1))));
        st.gathered.reset(try_new_array<sample>(static_cast<std::size_t>(std::max<int64_t>(capacity, 1))));
        if (interior)
            st.scratch.reset(try_new_array<uint32_t>(static_cast<std::size_t>(scratch_words(b))));
        return st.ring != nullptr && st.deferred != nullptr && st.gathered != nullptr &&
               (!interior || st.scratch != nullptr);
    }

    void walk_strip(const MedianBounds &b, const RowStrip &rows, bool interior, const Hit &first, sample first_value,
                    StreamStrip &st) const
    {
        const std::size_t row_bytes = static_cast<std::size_t>(st.row_samples) * sizeof(sample);
        auto ring_row = [&](int64_t r) { return st.ring.get() + ((r - rows.first) % st.ring_rows) * st.row_samples; };
        auto keep = [&](int64_t r) {
            sample *to = st.deferred_row(rows, r, n_);
            std::memcpy(to != nullptr ? to : src_.row(static_cast<int32_t>(r)), ring_row(r), row_bytes);
        };
        FirstOfBand *firsts = st.firsts;
        sample *row = nullptr;
        // One band centre: decided against the ring, replaced as a later replacement; the
        // band's first replacement also keeps its value as the call's first.
        auto visit = [&](Band which, const BandCentre &k) {
            if (k.x < 0 || k.x >= src_.width) // a centre the band rules put past the image
                return;
            sample &centre = row[k.x * channels + k.c];
            const BandPick pick = band_pick_streamed(k, centre, st.gathered.get(), !firsts[which].met);
            FirstOfBand &f = firsts[which];
            if (which == Band::right && firsts[Band::left].met && firsts[Band::left].r == k.r &&
                firsts[Band::left].x == k.x && firsts[Band::left].c == k.c) {
                // The centre whose left-band value may still change: its decision here is
                // also taken with the value it would have then.
                FirstOfBand &l = firsts[Band::left];
                const BandPick as_first = band_pick_streamed(k, l.value, st.gathered.get(), false);
                l.value = as_first.replaced ? as_first.later : l.value;
            }
            if (!pick.replaced)
                return;
            if (!f.met)
                f = FirstOfBand{true, k.x, k.r, k.c, pick.first};
            centre = pick.later;
        };

        const int64_t fresh = std::max<int64_t>(rows.first, b.rs); // the strip's first interior row
        for (int64_t r64 = rows.first; r64 <= rows.last; ++r64) {
            const int32_t r = static_cast<int32_t>(r64);
            row = ring_row(r);
            std::memcpy(row, src_.row(r), row_bytes);
            if (r < b.rs) {
                band_row(b, Band::lower, r, [&](const BandCentre &k) { visit(Band::lower, k); });
            } else if (r > b.re) {
                band_row(b, Band::upper, r, [&](const BandCentre &k) { visit(Band::upper, k); });
            } else {
                if (interior) {
                    interior_row(b, r, r == fresh, st.scratch.get(), row);
                    if (r == first.r)
                        row[int64_t(first.x) * channels + first.c] = first_value;
                }
                band_row(b, Band::left, r, [&](const BandCentre &k) { visit(Band::left, k); });
                band_row(b, Band::right, r, [&](const BandCentre &k) { visit(Band::right, k); });
            }
            if (r64 - (st.ring_rows - 1) >= rows.first)
                keep(r64 - (st.ring_rows - 1));
        }
        for (int64_t r = std::max<int64_t>(rows.first, rows.last - (st.ring_rows - 2)); r <= rows.last; ++r)
            keep(r);
    }

    // State of begin_rows / make_row.
    struct RowWalk {
        MedianBounds b{};
        Hit first;
        sample first_value = 0;
        int32_t last_interior = -1;
        std::unique_ptr<uint32_t[]> scratch;
        std::unique_ptr<sample[]> gathered;
    };

    View<Px> src_;
    View<Px> out_;
    sample *samples_;
    int32_t n_;
    double tolerance_;
    int64_t full_;
    Interior rule_;
    bool swapped_ = true; // set once per call, never again
    bool screened_ = false;           // see decide_screened
    bool sums16_ = false;             // see row_sums
    float screen_up_ = 0.0f, screen_down_ = 0.0f;
    Fixed16Screen fixed16_;           // see median_fixed16_screen
    RowWalk walk_;
};

// Size of the sample array: N values, but never more than the image holds. Only a window
// larger than the image can exceed that, and then no full window exists and a band never
// gathers more than the image's samples, so the cap changes no result; it only keeps an
// absurd radius from asking for gigabytes.
template <class Px>
int64_t median_sample_capacity(int32_t width, int32_t height, int32_t n)
{
    const int64_t image = std::max<int64_t>(int64_t(width) * std::max(height, 0), 1);
    return std::max<int64_t>(std::min(median_window_count(n), image), 1);
}

// FiltreMedianSimple for one depth: false only when the sample array cannot be allocated.
template <class Px, class Interior>
bool median_simple(long width, long height, void *bits, void *out, const CRect &rc,
                   double tolerance, unsigned short radius)
{
    using sample = typename Px::sample;
    const View<Px> src = view<Px>(width, height, static_cast<unsigned char *>(bits));
    const View<Px> dst = view<Px>(width, height, static_cast<unsigned char *>(out));
    const int32_t n = radius;

    const int64_t capacity = median_sample_capacity<Px>(src.width, src.height, n);
    sample *samples = try_new_array<sample>(static_cast<std::size_t>(capacity));
    if (samples == nullptr)
        return false;
    // The half-window interior of the 24-bit class sorts slots it never gathers into; they
    // start at zero so that every call gives the same bytes.
    std::fill(samples, samples + capacity, sample(0));

    if (src.width >= 1 && src.height >= 1) {
        MedianPass<Px, Interior> pass(src, dst, samples, n, tolerance);
        pass.run(rc);
    }
    delete[] samples;
    return true;
}

// FiltreMedian (buffer form) for one depth. The temporary output starts as a copy of the image,
// so pixels that are not replaced keep their value and the result is exactly that of
// FiltreMedianSimple with `out` holding the image; it is then copied whole over the image. The
// streamed walk gives those bytes without the temporary.
template <class Px, class Interior>
bool median_in_place(long width, long height, void *bits, const CRect &rc, double tolerance,
                     unsigned short radius)
{
    const View<Px> v = view<Px>(width, height, static_cast<unsigned char *>(bits));
    // The fast path walks the image in place through rings of result rows, in strips on threads.
    if (fast_paths_enabled() && v.width >= 1 && v.height >= 1) {
        using sample = typename Px::sample;
        const int64_t capacity = median_sample_capacity<Px>(v.width, v.height, radius);
        std::unique_ptr<sample[]> samples(try_new_array<sample>(static_cast<std::size_t>(capacity)));
        if (samples != nullptr) {
            std::fill(samples.get(), samples.get() + capacity, sample(0));
            MedianPass<Px, Interior> pass(v, v, samples.get(), radius, tolerance);
            if (pass.run_in_place_streamed(rc))
                return true;
        }
    }
    const int64_t bytes = v.height > 0 ? int64_t(v.pitch) * v.height : 0;
    if (bytes < 0 || static_cast<uint64_t>(bytes) > SIZE_MAX)
        return false;
    unsigned char *temp =
        static_cast<unsigned char *>(try_alloc(static_cast<std::size_t>(std::max<int64_t>(bytes, 1))));
    if (temp == nullptr)
        return false;
    if (bytes > 0)
        std::memcpy(temp, bits, static_cast<std::size_t>(bytes));
    const bool ok = median_simple<Px, Interior>(width, height, bits, temp, rc, tolerance, radius);
    if (ok && bytes > 0)
        std::memcpy(bits, temp, static_cast<std::size_t>(bytes));
    std::free(temp);
    return ok;
}

} // namespace kevra::detail

#endif
