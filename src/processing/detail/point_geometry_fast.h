// Fast paths of the negative, the mirrors and the turns. Each moves exactly the samples its
// plain kernel moves (point_geometry.h, and the table walk for the negative), only more of them
// at a time, so the bytes are the same by construction; the differential tests compare both on
// random buffers.
//
// Written in portable C++: fixed-length inner loops that GCC and Clang turn into vector code
// (SSE2 on x86-64, NEON on ARM), 64-bit words for byte reversals and transposes. The one
// exception is the reversal of grey rows (left-right mirror, half turn), which reverses 16
// bytes at a time with SSE2 where the compiler targets it (x86-64 always does) and with 64-bit
// words everywhere else; both move the same samples.
#ifndef KEVRA_PROCESSING_DETAIL_POINT_GEOMETRY_FAST_H
#define KEVRA_PROCESSING_DETAIL_POINT_GEOMETRY_FAST_H

#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "core/fast_path.h"
#include "core/pixel.h"

namespace kevra {
namespace detail {

// ---- 64-bit words -------------------------------------------------------------------------------
// Loads and stores through memcpy: any alignment, no aliasing question. Byte k of a word is the
// byte at address + k (the library runs on little-endian machines only, see View).

inline uint64_t load_word(const void *p)
{
    uint64_t w;
    std::memcpy(&w, p, 8);
    return w;
}

inline void store_word(void *p, uint64_t w) { std::memcpy(p, &w, 8); }

// A 24-bit pixel and the byte after it.
inline uint32_t load_pixel4(const uint8_t *p)
{
    uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
}

// The 8 bytes of a word in reverse order.
inline uint64_t reverse_bytes(uint64_t w)
{
    w = (w >> 32) | (w << 32);
    w = ((w >> 16) & 0x0000FFFF0000FFFFull) | ((w & 0x0000FFFF0000FFFFull) << 16);
    return ((w >> 8) & 0x00FF00FF00FF00FFull) | ((w & 0x00FF00FF00FF00FFull) << 8);
}

// The 4 16-bit samples of a word in reverse order.
inline uint64_t reverse_shorts(uint64_t w)
{
    w = (w >> 32) | (w << 32);
    return ((w >> 16) & 0x0000FFFF0000FFFFull) | ((w & 0x0000FFFF0000FFFFull) << 16);
}

// Exchanges the `bits`-wide fields of a selected by `mask` << bits with those of b selected by
// mask: one step of a block transpose.
inline void exchange_fields(uint64_t &a, uint64_t &b, int bits, uint64_t mask)
{
    const uint64_t t = ((a >> bits) ^ b) & mask;
    b ^= t;
    a ^= t << bits;
}

// w[i] holds row i of an 8 x 8 block of bytes (byte j = column j); afterwards w[j] holds
// column j (byte i = row i). Swaps 4 x 4 blocks, then 2 x 2, then single bytes.
inline void transpose_bytes_8x8(uint64_t w[8])
{
    for (int i = 0; i < 4; ++i)
        exchange_fields(w[i], w[i + 4], 32, 0x00000000FFFFFFFFull);
    for (int i : {0, 1, 4, 5})
        exchange_fields(w[i], w[i + 2], 16, 0x0000FFFF0000FFFFull);
    for (int i : {0, 2, 4, 6})
        exchange_fields(w[i], w[i + 1], 8, 0x00FF00FF00FF00FFull);
}

// The same for a 4 x 4 block of 16-bit samples.
inline void transpose_shorts_4x4(uint64_t w[4])
{
    for (int i = 0; i < 2; ++i)
        exchange_fields(w[i], w[i + 2], 32, 0x00000000FFFFFFFFull);
    for (int i : {0, 2})
        exchange_fields(w[i], w[i + 1], 16, 0x0000FFFF0000FFFFull);
}

// ---- negative -----------------------------------------------------------------------------------
// 255 - v for a byte and 65535 - v for a 16-bit sample are the complement of every bit: the
// table of the grey negative and palette 12 of the colour negative are exactly that, so the
// samples of the span are complemented in place. `bytes` bytes from p.

struct ComplementBytes {
    static KEVRA_KERNEL_INLINE void run(uint8_t *p, std::size_t bytes)
    {
        constexpr std::size_t kBlock = 32;
        std::size_t i = 0;
        for (; i + kBlock <= bytes; i += kBlock)
            for (std::size_t k = 0; k < kBlock; ++k)
                p[i + k] = static_cast<uint8_t>(~p[i + k]);
        for (; i < bytes; ++i)
            p[i] = static_cast<uint8_t>(~p[i]);
    }
};

// Every sample of columns x0 .. x1 of buffer rows r0 .. r1 (the table walk's span).
template <class Px>
void complement_span(const View<Px> &v, const Span &s)
{
    if (s.empty())
        return;
    const std::size_t bytes =
        static_cast<std::size_t>(s.x1 - s.x0 + 1) * Px::channels * sizeof(typename Px::sample);
    for (int32_t r = s.r0; r <= s.r1; ++r)
        run_at_vector_level<ComplementBytes>(reinterpret_cast<uint8_t *>(v.pixel(s.x0, r)), bytes);
}

// ---- left-right mirror --------------------------------------------------------------------------
// The plain kernel's exchanges (pixel left + k with right - k, k < pairs, on the same rows), 8
// bytes from each end at a time while the two words do not meet, then pixel by pixel.

#if defined(__SSE2__)
inline __m128i reverse_shorts_sse2(__m128i v)
{
    v = _mm_shuffle_epi32(v, _MM_SHUFFLE(1, 0, 3, 2));
    v = _mm_shufflelo_epi16(v, _MM_SHUFFLE(0, 1, 2, 3));
    return _mm_shufflehi_epi16(v, _MM_SHUFFLE(0, 1, 2, 3));
}

inline __m128i reverse_bytes_sse2(__m128i v)
{
    v = reverse_shorts_sse2(v);
    return _mm_or_si128(_mm_slli_epi16(v, 8), _mm_srli_epi16(v, 8));
}
#endif

// One row: a points at pixel `left`, b at pixel `right`.
inline void mirror_row_bytes(uint8_t *a, uint8_t *b, int64_t pairs)
{
    int64_t k = 0;
#if defined(__SSE2__)
    for (; k + 16 <= pairs; k += 16) {
        const __m128i front = _mm_loadu_si128(reinterpret_cast<const __m128i *>(a + k));
        const __m128i back = _mm_loadu_si128(reinterpret_cast<const __m128i *>(b - k - 15));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(a + k), reverse_bytes_sse2(back));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(b - k - 15), reverse_bytes_sse2(front));
    }
#endif
    for (; k + 8 <= pairs; k += 8) {
        const uint64_t front = load_word(a + k);
        const uint64_t back = load_word(b - k - 7);
        store_word(a + k, reverse_bytes(back));
        store_word(b - k - 7, reverse_bytes(front));
    }
    for (; k < pairs; ++k) {
        const uint8_t t = a[k];
        a[k] = b[-k];
        b[-k] = t;
    }
}

inline void mirror_row_shorts(uint16_t *a, uint16_t *b, int64_t pairs)
{
    int64_t k = 0;
#if defined(__SSE2__)
    for (; k + 8 <= pairs; k += 8) {
        const __m128i front = _mm_loadu_si128(reinterpret_cast<const __m128i *>(a + k));
        const __m128i back = _mm_loadu_si128(reinterpret_cast<const __m128i *>(b - k - 7));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(a + k), reverse_shorts_sse2(back));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(b - k - 7), reverse_shorts_sse2(front));
    }
#endif
    for (; k + 4 <= pairs; k += 4) {
        const uint64_t front = load_word(a + k);
        const uint64_t back = load_word(b - k - 3);
        store_word(a + k, reverse_shorts(back));
        store_word(b - k - 3, reverse_shorts(front));
    }
    for (; k < pairs; ++k) {
        const uint16_t t = a[k];
        a[k] = b[-k];
        b[-k] = t;
    }
}

// 24 bits: one pixel from each end moved as a 4-byte word whose fourth byte belongs to the next
// pixel up; the writes of a group go in increasing address order, so each stray byte is
// overwritten by the following write, and the last write of a group moves 3 bytes. Back pixels
// are read with the byte BEFORE them (shifted out), so that no read overlaps the group written
// just before, which would stall the loads. The first pair goes alone: only its back pixel may
// end the buffer.
inline void swap_triples(uint8_t *p, uint8_t *q)
{
    for (int c = 0; c < 3; ++c) {
        const uint8_t t = p[c];
        p[c] = q[c];
        q[c] = t;
    }
}

inline void mirror_row_triples(uint8_t *a, uint8_t *b, int64_t pairs)
{
    swap_triples(a, b);
    int64_t k = 1;
    for (; k + 4 <= pairs; k += 4) {
        uint8_t *front = a + 3 * k;      // pixels left + k .. left + k + 3
        uint8_t *back = b - 3 * (k + 3); // pixels right - k - 3 .. right - k
        uint32_t f[4], g[4];
        for (int i = 0; i < 4; ++i) {
            f[i] = load_pixel4(front + 3 * i);
            g[i] = load_pixel4(back + 3 * i - 1) >> 8;
        }
        for (int i = 0; i < 3; ++i) {
            std::memcpy(front + 3 * i, &g[3 - i], 4);
            std::memcpy(back + 3 * i, &f[3 - i], 4);
        }
        std::memcpy(front + 9, &g[0], 3);
        std::memcpy(back + 9, &f[0], 3);
    }
    for (; k < pairs; ++k)
        swap_triples(a + 3 * k, b - 3 * k);
}

// With AVX2, grey rows go in blocks of 32 bytes from each end, each reversed as a whole vector
// (one byte shuffle and one lane exchange), then the rest as above. Only that level takes it:
// without a byte shuffle, compilers lower such a reversal to a sample-by-sample one.
#if KEVRA_VECTOR_AVX2
template <class Sample>
struct MirrorGreyRow {
    static constexpr int kCount = 32 / int(sizeof(Sample));
    typedef Sample Block __attribute__((vector_size(32)));
    static KEVRA_KERNEL_INLINE void reverse(Block &v) // by reference: no vector passed by value
    {
        if constexpr (sizeof(Sample) == 1)
            v = __builtin_shufflevector(v, v, 31, 30, 29, 28, 27, 26, 25, 24, 23, 22, 21, 20, 19, 18, 17, 16, 15,
                                           14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0);
        else
            v = __builtin_shufflevector(v, v, 15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0);
    }
    static KEVRA_KERNEL_INLINE void run(Sample *a, Sample *b, int64_t pairs)
    {
        int64_t k = 0;
        for (; k + kCount <= pairs; k += kCount) {
            Block front, back;
            std::memcpy(&front, a + k, 32);
            std::memcpy(&back, b - k - (kCount - 1), 32);
            reverse(front);
            reverse(back);
            std::memcpy(a + k, &back, 32);
            std::memcpy(b - k - (kCount - 1), &front, 32);
        }
        if constexpr (sizeof(Sample) == 1)
            mirror_row_bytes(a + k, b - k, pairs - k);
        else
            mirror_row_shorts(a + k, b - k, pairs - k);
    }
};
#endif

// Rows and pairs exactly as mirror_h_rows: buffer rows height - bottom .. height - top - 1 (the
// bottom image row left out), (right - left) / 2 pairs. rc is cut to the image.
template <class Px>
void mirror_h_rows_fast(const View<Px> &v, const CRect &rc)
{
    const int64_t pairs = (static_cast<int64_t>(rc.right) - rc.left) / 2;
    if (pairs <= 0)
        return;
    const int64_t r0 = static_cast<int64_t>(v.height) - rc.bottom;
    const int64_t r1 = static_cast<int64_t>(v.height) - rc.top - 1;
    for (int64_t r = r0; r <= r1; ++r) {
        typename Px::sample *a = v.pixel(rc.left, static_cast<int32_t>(r));
        typename Px::sample *b = v.pixel(rc.right, static_cast<int32_t>(r));
        if constexpr (Px::channels == 3)
            mirror_row_triples(a, b, pairs);
#if KEVRA_VECTOR_AVX2
        else if (vector_level() == VectorLevel::avx2)
            run_on_avx2<MirrorGreyRow<typename Px::sample>>(a, b, pairs);
#endif
        else if constexpr (sizeof(typename Px::sample) == 2)
            mirror_row_shorts(a, b, pairs);
        else
            mirror_row_bytes(a, b, pairs);
    }
}

// ---- top-bottom mirror --------------------------------------------------------------------------
// The plain kernel's exchanges of row segments (buffer rows height - bottom + k and
// height - top - 1 - k, columns left .. right, k < pairs), done in place 32 bytes at a time
// instead of three copies through a scratch segment. rc is cut to the image.

inline void swap_bytes(uint8_t *a, uint8_t *b, std::size_t bytes)
{
    constexpr std::size_t kBlock = 32;
    std::size_t i = 0;
    for (; i + kBlock <= bytes; i += kBlock)
        for (std::size_t k = 0; k < kBlock; ++k) {
            const uint8_t t = a[i + k];
            a[i + k] = b[i + k];
            b[i + k] = t;
        }
    for (; i < bytes; ++i) {
        const uint8_t t = a[i];
        a[i] = b[i];
        b[i] = t;
    }
}

template <class Px>
void mirror_v_rows_fast(const View<Px> &v, const CRect &rc)
{
    const int64_t span = static_cast<int64_t>(rc.right) - rc.left + 1;
    if (span <= 0)
        return;
    const std::size_t bytes = static_cast<std::size_t>(span) * Px::channels * sizeof(typename Px::sample);
    const int64_t pairs = (static_cast<int64_t>(rc.bottom) - rc.top) / 2;
    for (int32_t k = 0; k < pairs; ++k)
        swap_bytes(reinterpret_cast<uint8_t *>(v.pixel(rc.left, v.height - rc.bottom + k)),
                   reinterpret_cast<uint8_t *>(v.pixel(rc.left, v.height - rc.top - 1 - k)), bytes);
}

// ---- quarter turns ------------------------------------------------------------------------------
// Source pixel (x, r) goes to (r, W - 1 - x) for angle 0 and to (H - 1 - r, x) for angle 2 (the
// plain kernel's mapping). Grey samples move as blocks: 8 x 8 bytes or 4 x 4 16-bit samples
// are read as one word per source row, transposed in registers, and written as one word per
// destination row (reversed for angle 2, whose destination columns run the other way). The
// source is walked in bands of block rows across the whole width, so the destination rows being
// filled stay in cache. What the blocks do not cover (the last columns and rows when a size is
// not a multiple of the block) goes pixel by pixel.

template <class Px>
inline void copy_turned(const View<Px> &src, const View<Px> &dst, int angle, int32_t x, int32_t r)
{
    const typename Px::sample *from = src.pixel(x, r);
    typename Px::sample *to = angle == 0 ? dst.pixel(r, src.width - 1 - x) : dst.pixel(src.height - 1 - r, x);
    for (int c = 0; c < Px::channels; ++c)
        to[c] = from[c];
}

// Pixels of columns wb .. W - 1 (all rows) and of rows hb .. H - 1 (columns below wb).
template <class Px>
void quarter_turn_edges(const View<Px> &src, const View<Px> &dst, int angle, int32_t wb, int32_t hb)
{
    for (int32_t r = 0; r < src.height; ++r)
        for (int32_t x = wb; x < src.width; ++x)
            copy_turned(src, dst, angle, x, r);
    for (int32_t r = hb; r < src.height; ++r)
        for (int32_t x = 0; x < wb; ++x)
            copy_turned(src, dst, angle, x, r);
}

// One block: source rows r0 .. r0 + 7, columns x0 .. x0 + 7.
inline void turn_block8(const View<Grey8> &src, const View<Grey8> &dst, int angle, int32_t x0, int32_t r0)
{
    uint64_t blk[8];
    for (int i = 0; i < 8; ++i)
        blk[i] = load_word(src.pixel(x0, r0 + i));
    transpose_bytes_8x8(blk);
    // blk[j]: source column x0 + j, byte i from source row r0 + i.
    for (int j = 0; j < 8; ++j) {
        if (angle == 0)
            store_word(dst.pixel(r0, src.width - 1 - (x0 + j)), blk[j]);
        else
            store_word(dst.pixel(src.height - 8 - r0, x0 + j), reverse_bytes(blk[j]));
    }
}

// 8 x 8 16-bit samples as four 4 x 4 quarters, each transposed in two words a row; the two
// quarters of a source column pair go out as 16 contiguous bytes of one destination row.
inline void turn_block16(const View<Grey16> &src, const View<Grey16> &dst, int angle, int32_t x0, int32_t r0)
{
    uint64_t lo[8], hi[8]; // lo: columns x0 .. x0 + 3, hi: x0 + 4 .. x0 + 7, one word a row
    for (int i = 0; i < 8; ++i) {
        const uint16_t *p = src.pixel(x0, r0 + i);
        lo[i] = load_word(p);
        hi[i] = load_word(p + 4);
    }
    transpose_shorts_4x4(lo);
    transpose_shorts_4x4(lo + 4);
    transpose_shorts_4x4(hi);
    transpose_shorts_4x4(hi + 4);
    // Column x0 + j: rows r0 .. r0 + 3 in (j < 4 ? lo : hi)[j % 4], rows r0 + 4 .. in [4 + j % 4].
    for (int j = 0; j < 8; ++j) {
        const uint64_t *q = j < 4 ? lo : hi;
        const uint64_t first = q[j % 4], second = q[4 + j % 4];
        if (angle == 0) {
            uint16_t *to = dst.pixel(r0, src.width - 1 - (x0 + j));
            store_word(to, first);
            store_word(to + 4, second);
        } else {
            uint16_t *to = dst.pixel(src.height - 8 - r0, x0 + j);
            store_word(to, reverse_shorts(second));
            store_word(to + 4, reverse_shorts(first));
        }
    }
}

// 24 bits: an 8 x 8 block copied destination row by destination row. Pixels move as 4-byte
// words (load_pixel4) whose fourth byte is the next pixel's first, written in increasing address order so that
// the next write puts the right byte there; the last pixel of a destination run moves 3 bytes,
// and so does a source pixel that may be the last of the buffer.
inline void turn_block24(const View<Bgr24> &src, const View<Bgr24> &dst, int angle, int32_t x0, int32_t r0)
{
    const std::ptrdiff_t sp = src.pitch;
    for (int j = 0; j < 8; ++j) {
        const uint8_t *from = src.pixel(x0 + j, r0);
        uint32_t px[8];
        if (x0 + j + 1 < src.width) {
            for (int i = 0; i < 8; ++i)
                px[i] = load_pixel4(from + sp * i);
        } else {
            for (int i = 0; i < 8; ++i) {
                px[i] = 0;
                std::memcpy(&px[i], from + sp * i, 3);
            }
        }
        if (angle == 0) {
            uint8_t *to = dst.pixel(r0, src.width - 1 - (x0 + j));
            for (int i = 0; i < 7; ++i)
                std::memcpy(to + 3 * i, &px[i], 4);
            std::memcpy(to + 21, &px[7], 3);
        } else {
            uint8_t *to = dst.pixel(src.height - 8 - r0, x0 + j); // source row r0 + 7 goes here
            for (int i = 7; i > 0; --i)
                std::memcpy(to + 3 * (7 - i), &px[i], 4);
            std::memcpy(to + 21, &px[0], 3);
        }
    }
}

// Blocks of B x B samples, walked in tiles of T x T so that the destination rows a tile writes
// fill whole cache lines while they are in cache.
template <class Px, int B, int T, class Block>
void turn_tiles(const View<Px> &src, const View<Px> &dst, int angle, Block block)
{
    const int32_t wb = src.width & ~(B - 1), hb = src.height & ~(B - 1);
    for (int32_t tr = 0; tr < hb; tr += T)
        for (int32_t tx = 0; tx < wb; tx += T) {
            const int32_t r_end = hb - tr > T ? tr + T : hb;
            const int32_t x_end = wb - tx > T ? tx + T : wb;
            for (int32_t r0 = tr; r0 < r_end; r0 += B)
                for (int32_t x0 = tx; x0 < x_end; x0 += B)
                    block(src, dst, angle, x0, r0);
        }
    quarter_turn_edges(src, dst, angle, wb, hb);
}

inline void quarter_turn_grey8(const View<Grey8> &src, const View<Grey8> &dst, int angle)
{
    turn_tiles<Grey8, 8, 16>(src, dst, angle, turn_block8);
}

inline void quarter_turn_grey16(const View<Grey16> &src, const View<Grey16> &dst, int angle)
{
    turn_tiles<Grey16, 8, 32>(src, dst, angle, turn_block16);
}

inline void quarter_turn_bgr24(const View<Bgr24> &src, const View<Bgr24> &dst, int angle)
{
    turn_tiles<Bgr24, 8, 8>(src, dst, angle, turn_block24);
}

// ---- half turn ----------------------------------------------------------------------------------
// Source pixel (x, r) goes to (W - 1 - x, H - 1 - r): each source row is copied reversed into
// the opposite destination row, 16 or 8 bytes at a time for grey samples; 24-bit pixels move as
// 4-byte words written in increasing address order (see turn_block24), the last one as 3 bytes.

inline void reverse_copy_bytes(const uint8_t *s, uint8_t *d, int32_t w)
{
    int32_t x = 0;
#if defined(__SSE2__)
    for (; x + 16 <= w; x += 16)
        _mm_storeu_si128(reinterpret_cast<__m128i *>(d + w - 16 - x),
                         reverse_bytes_sse2(_mm_loadu_si128(reinterpret_cast<const __m128i *>(s + x))));
#endif
    for (; x + 8 <= w; x += 8)
        store_word(d + w - 8 - x, reverse_bytes(load_word(s + x)));
    for (; x < w; ++x)
        d[w - 1 - x] = s[x];
}

inline void reverse_copy_shorts(const uint16_t *s, uint16_t *d, int32_t w)
{
    int32_t x = 0;
#if defined(__SSE2__)
    for (; x + 8 <= w; x += 8)
        _mm_storeu_si128(reinterpret_cast<__m128i *>(d + w - 8 - x),
                         reverse_shorts_sse2(_mm_loadu_si128(reinterpret_cast<const __m128i *>(s + x))));
#endif
    for (; x + 4 <= w; x += 4)
        store_word(d + w - 4 - x, reverse_shorts(load_word(s + x)));
    for (; x < w; ++x)
        d[w - 1 - x] = s[x];
}

// Destination pixel j is source pixel w - 1 - j; only the source's last pixel (j = 0) is read
// as 3 bytes, since the byte after it may end the buffer.
inline void reverse_copy_triples(const uint8_t *s, uint8_t *d, int32_t w)
{
    for (int32_t j = 0; j < w; ++j) {
        const uint8_t *from = s + 3 * static_cast<std::ptrdiff_t>(w - 1 - j);
        uint32_t px = 0;
        if (j == 0)
            std::memcpy(&px, from, 3);
        else
            px = load_pixel4(from);
        uint8_t *to = d + 3 * static_cast<std::ptrdiff_t>(j);
        if (j + 1 < w)
            std::memcpy(to, &px, 4);
        else
            std::memcpy(to, &px, 3);
    }
}

template <class Px>
void half_turn_fast(const View<Px> &src, const View<Px> &dst)
{
    for (int32_t r = 0; r < src.height; ++r) {
        const typename Px::sample *s = src.row(r);
        typename Px::sample *d = dst.row(src.height - 1 - r);
        if constexpr (Px::channels == 3)
            reverse_copy_triples(s, d, src.width);
        else if constexpr (sizeof(typename Px::sample) == 2)
            reverse_copy_shorts(s, d, src.width);
        else
            reverse_copy_bytes(s, d, src.width);
    }
}

// Angle 0 or 2, sizes already checked (dst is H wide and W high).
template <class Px>
void quarter_turn_fast(const View<Px> &src, const View<Px> &dst, int angle)
{
    if constexpr (Px::channels == 3)
        quarter_turn_bgr24(src, dst, angle);
    else if constexpr (sizeof(typename Px::sample) == 2)
        quarter_turn_grey16(src, dst, angle);
    else
        quarter_turn_grey8(src, dst, angle);
}

} // namespace detail
} // namespace kevra

#endif
