// Helpers for the processing tests: a guarded pixel buffer of any depth, one processor per
// depth behind a generic call, whole-buffer comparisons and allocation failures. Brings in
// GoogleTest, the image and processing headers, <vector> and <random>.
#ifndef KEVRA_TESTS_PROCESSING_PROCESSING_TEST_H
#define KEVRA_TESTS_PROCESSING_PROCESSING_TEST_H

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "kevra/dib.h"
#include "kevra/platform.h"
#include "kevra/traitement.h"
#include "support/kevra_test.h"

namespace proc_test {

using kevra::CRect;

// A bottom-up buffer of the 4-byte row rule: random pixel bytes; row padding and a guard zone
// on each side hold a sentinel, so writes outside the pixels show up in intact().
class Buf {
public:
    static constexpr uint8_t kSentinel = 0xA5;
    static constexpr long kGuard = 64;

    Buf(long width, long height, int depth, uint32_t seed = 1)
        : w(width), h(height), bpp(depth), pitch(((width * depth + 31) & ~31L) / 8),
          m_store(static_cast<std::size_t>(2 * kGuard + pitch * height), kSentinel)
    {
        std::mt19937 rng(seed);
        for (long r = 0; r < h; ++r)
            for (long i = 0; i < w * bpp / 8; ++i)
                bits()[r * pitch + i] = static_cast<uint8_t>(rng());
    }
    long w, h;
    int bpp;
    long pitch;

    uint8_t *bits() { return m_store.data() + kGuard; }
    const uint8_t *bits() const { return m_store.data() + kGuard; }
    int channels() const { return bpp == 24 ? 3 : 1; }
    // Sample c of pixel (x, buffer row r): the 16-bit word at 16 bits, else byte c.
    int get(long x, long r, int c = 0) const
    {
        const uint8_t *p = bits() + r * pitch + x * bpp / 8;
        return bpp == 16 ? p[0] | p[1] << 8 : p[c];
    }
    void set(long x, long r, int v, int c = 0)
    {
        uint8_t *p = bits() + r * pitch + x * bpp / 8;
        if (bpp == 16)
            p[1] = static_cast<uint8_t>(v >> 8);
        p[bpp == 16 ? 0 : c] = static_cast<uint8_t>(v);
    }
    // Samples x0, x0 + 1, ... of buffer row r (channel c).
    void set_row(long r, std::initializer_list<int> values, long x0 = 0, int c = 0)
    {
        for (int v : values)
            set(x0++, r, v, c);
    }
    void fill(int v)
    {
        for (long i = 0; i < w * h * channels(); ++i)
            set(i / channels() % w, i / channels() / w, v, static_cast<int>(i % channels()));
    }
    std::vector<uint8_t> rows() const { return std::vector<uint8_t>(bits(), bits() + pitch * h); }
    bool intact() const
    {
        for (long i = 0; i < kGuard; ++i)
            if (m_store[i] != kSentinel || m_store[m_store.size() - 1 - i] != kSentinel)
                return false;
        for (long r = 0; r < h; ++r)
            for (long i = w * bpp / 8; i < pitch; ++i)
                if (bits()[r * pitch + i] != kSentinel)
                    return false;
        return true;
    }

private:
    std::vector<uint8_t> m_store;
};

// Runs f on a fresh processor of class T.
template <class T, class F>
bool on_fresh(F &&f)
{
    T t;
    return f(t);
}

// Runs f on a fresh processor of the given depth (only that one is made).
template <class F>
bool on_depth(int bpp, F &&f)
{
    return bpp == 8 ? on_fresh<kevra::CTraitementImg_8_Bpp>(f)
         : bpp == 16 ? on_fresh<kevra::CTraitementImg_16_Bpp>(f)
                     : on_fresh<kevra::CTraitementImg_24_Bpp>(f);
}

// Every sample of `after` against `before`: inside the inclusive picture rectangle it must be
// want(old sample, x, buffer row, channel), outside it must be unchanged; padding and guards
// must still hold their sentinel.
template <class F>
void expect_in_rect(const Buf &before, const Buf &after, CRect rc, F want)
{
    for (long r = 0; r < after.h; ++r)
        for (long x = 0; x < after.w; ++x)
            for (int c = 0; c < after.channels(); ++c) {
                const long y = after.h - 1 - r;
                const bool in = x >= rc.left && x <= rc.right && y >= rc.top && y <= rc.bottom;
                ASSERT_EQ(after.get(x, r, c), in ? want(before.get(x, r, c), x, r, c) : before.get(x, r, c))
                    << "pixel " << x << ", buffer row " << r << ", channel " << c;
            }
    EXPECT_TRUE(after.intact());
}

// "" when equal, else where the first byte differs (for differential tests).
inline std::string first_difference(const Buf &a, const Buf &b)
{
    const std::vector<uint8_t> x = a.rows(), y = b.rows();
    std::size_t i = 0;
    while (i < x.size() && x[i] == y[i])
        ++i;
    std::ostringstream s;
    if (i < x.size())
        s << "byte " << i << " (row " << i / a.pitch << "): " << int(x[i]) << " vs " << int(y[i]);
    return s.str();
}

using kevra_test::FailAllocations;
using kevra_test::image_bytes;
using kevra_test::plain_and_fast;

} // namespace proc_test

#endif
