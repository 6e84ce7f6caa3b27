// Raw pixel buffers for table and point-operation tests: random pixels, row padding filled with
// a sentinel, and a guard zone before and after the rows, so that writes outside the rectangle,
// into the padding or outside the buffer show up.
#ifndef KEVRA_TESTS_LUT_BUFFER_FIXTURE_H
#define KEVRA_TESTS_LUT_BUFFER_FIXTURE_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "kevra/dib.h"
#include "kevra/types.h"

namespace lut_test {

constexpr uint8_t kPaddingByte = 0xA5;
constexpr uint8_t kGuardByte = 0x5A;
constexpr std::size_t kGuard = 64;

inline std::size_t pitch_of(long width, int bpp)
{
    return static_cast<std::size_t>(((width * bpp + 31) & ~31L) / 8);
}

class GuardedBuffer {
public:
    GuardedBuffer(long width, long height, int bpp, uint32_t seed = 1)
        : m_width(width), m_height(height), m_bpp(bpp), m_pitch(pitch_of(width, bpp)),
          m_storage(2 * kGuard + m_pitch * static_cast<std::size_t>(height), kGuardByte)
    {
        std::mt19937 rng(seed);
        for (long r = 0; r < height; ++r) {
            uint8_t *row = bits() + m_pitch * static_cast<std::size_t>(r);
            const std::size_t used = row_bytes();
            for (std::size_t i = 0; i < m_pitch; ++i)
                row[i] = i < used ? static_cast<uint8_t>(rng()) : kPaddingByte;
        }
    }

    long width() const { return m_width; }
    long height() const { return m_height; }
    std::size_t pitch() const { return m_pitch; }
    std::size_t row_bytes() const { return static_cast<std::size_t>(m_width * m_bpp / 8); }
    uint8_t *bits() { return m_storage.data() + kGuard; }
    const uint8_t *bits() const { return m_storage.data() + kGuard; }
    // Pixel x of memory row r (row 0 = bottom of the picture).
    uint8_t *at(long x, long r) { return bits() + m_pitch * static_cast<std::size_t>(r) + static_cast<std::size_t>(x * m_bpp / 8); }
    const uint8_t *at(long x, long r) const { return bits() + m_pitch * static_cast<std::size_t>(r) + static_cast<std::size_t>(x * m_bpp / 8); }
    // Pixel x of picture row y (0 = top).
    uint8_t *pic(long x, long y) { return at(x, m_height - 1 - y); }
    uint16_t u16(long x, long r) const { uint16_t v; std::memcpy(&v, at(x, r), 2); return v; }
    void set_u16(long x, long r, uint16_t v) { std::memcpy(at(x, r), &v, 2); }

    std::vector<uint8_t> rows() const { return std::vector<uint8_t>(bits(), bits() + m_pitch * static_cast<std::size_t>(m_height)); }

    bool guards_intact() const
    {
        for (std::size_t i = 0; i < kGuard; ++i)
            if (m_storage[i] != kGuardByte || m_storage[m_storage.size() - 1 - i] != kGuardByte)
                return false;
        return true;
    }
    bool padding_intact() const
    {
        for (long r = 0; r < m_height; ++r)
            for (std::size_t i = row_bytes(); i < m_pitch; ++i)
                if (bits()[m_pitch * static_cast<std::size_t>(r) + i] != kPaddingByte)
                    return false;
        return true;
    }

private:
    long m_width, m_height;
    int m_bpp;
    std::size_t m_pitch;
    std::vector<uint8_t> m_storage;
};

// An image of the given size and depth with random pixel bytes (padding included).
inline void fill_random(kevra::CDibRoot &image, uint32_t seed)
{
    std::mt19937 rng(seed);
    uint8_t *bits = image.GetBits();
    const std::size_t n = static_cast<std::size_t>(image.Pitch()) * static_cast<std::size_t>(image.Height());
    for (std::size_t i = 0; i < n; ++i)
        bits[i] = static_cast<uint8_t>(rng());
}

inline std::vector<uint8_t> image_bytes(kevra::CDibRoot &image)
{
    const uint8_t *bits = image.GetBits();
    if (bits == nullptr)
        return {};
    return std::vector<uint8_t>(bits, bits + static_cast<std::size_t>(image.Pitch()) * static_cast<std::size_t>(image.Height()));
}

inline uint32_t crc32(const void *data, std::size_t n)
{
    uint32_t crc = 0xFFFFFFFFu;
    const uint8_t *p = static_cast<const uint8_t *>(data);
    for (std::size_t i = 0; i < n; ++i) {
        crc ^= p[i];
        for (int k = 0; k < 8; ++k)
            crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    return ~crc;
}

} // namespace lut_test

#endif
