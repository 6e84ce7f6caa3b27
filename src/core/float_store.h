// The one float-to-integer store of the library.
//
// A float goes to an integer sample by truncation toward zero, keeping the low
// 8 or 16 bits (300.7 -> 300 -> 44 in 8 bits). No rounding, no clamping here.
//
// Out-of-range values (negative, huge, NaN) have no defined conversion in C++;
// here they are made deterministic on every target: the value is
// truncated to a 64-bit integer when it fits (so -1.5 -> -1 -> 0xFF/0xFFFF,
// i.e. two's-complement wrap of the truncated value), and anything outside the
// 64-bit range, or NaN, stores 0. Callers clamp first when it matters.
#ifndef KEVRA_CORE_FLOAT_STORE_H
#define KEVRA_CORE_FLOAT_STORE_H

#include <cstdint>

namespace kevra {
namespace detail {

inline uint64_t truncate_to_bits(float f)
{
    // 2^63 is exactly representable; f < 2^63 and f >= -2^63 guarantees the cast is defined.
    if (f < 9223372036854775808.0f && f >= -9223372036854775808.0f)
        return static_cast<uint64_t>(static_cast<int64_t>(f));
    return 0; // NaN and out-of-range
}

inline uint8_t store_u8(float f) { return static_cast<uint8_t>(truncate_to_bits(f)); }
inline uint16_t store_u16(float f) { return static_cast<uint16_t>(truncate_to_bits(f)); }

// Same rule for double intermediates.
inline uint64_t truncate_to_bits(double d)
{
    if (d < 9223372036854775808.0 && d >= -9223372036854775808.0)
        return static_cast<uint64_t>(static_cast<int64_t>(d));
    return 0;
}
inline uint8_t store_u8(double d) { return static_cast<uint8_t>(truncate_to_bits(d)); }
inline uint16_t store_u16(double d) { return static_cast<uint16_t>(truncate_to_bits(d)); }

// Store into a sample of either width.
template <class Sample>
inline Sample store_sample(float f)
{
    return static_cast<Sample>(truncate_to_bits(f));
}

// A float made an unsigned 16-bit count (a filter half-width, a radius): truncation toward zero
// into an unsigned 32-bit value, where negatives and NaN give 0 and values from 2^32 up
// saturate, then the low 16 bits. Fixed this way so that every target computes the same count.
inline uint16_t count_u16(float f)
{
    if (!(f >= 1.0f))
        return 0;
    if (f >= 4294967296.0f)
        return 0xFFFF;
    return static_cast<uint16_t>(static_cast<uint32_t>(f));
}

} // namespace detail
} // namespace kevra

#endif
