// Every float-to-integer conversion of the library.
//
// C++ leaves a float outside the target type's range undefined, and targets differ there (one
// saturates, another returns the "integer indefinite" value). Results must be identical on
// every device, so no kernel converts with a bare cast: each conversion is one of the rules
// below, each with its out-of-range behaviour stated and fixed. All of them truncate toward
// zero (no rounding) unless the name says otherwise.
#ifndef KEVRA_CORE_FLOAT_STORE_H
#define KEVRA_CORE_FLOAT_STORE_H

#include <cmath>
#include <cstdint>

namespace kevra {
namespace detail {

// ---- Sample stores: truncation, then the low 8 or 16 bits ---------------------------------
//
// 300.7 -> 300 -> 44 in 8 bits; -1.5 -> -1 -> 0xFF (two's-complement wrap of the truncated
// value). No clamping here: callers clamp first when it matters. A value outside the 64-bit
// range, or NaN, stores 0.

inline uint64_t truncate_to_bits(double d)
{
    // 2^63 is exactly representable; d < 2^63 and d >= -2^63 make the cast defined.
    if (d < 9223372036854775808.0 && d >= -9223372036854775808.0)
        return static_cast<uint64_t>(static_cast<int64_t>(d));
    return 0; // NaN and out of range
}
// A float widens to double exactly, so one rule serves both.
inline uint64_t truncate_to_bits(float f) { return truncate_to_bits(static_cast<double>(f)); }

inline uint8_t store_u8(float f) { return static_cast<uint8_t>(truncate_to_bits(f)); }
inline uint16_t store_u16(float f) { return static_cast<uint16_t>(truncate_to_bits(f)); }
inline uint8_t store_u8(double d) { return static_cast<uint8_t>(truncate_to_bits(d)); }
inline uint16_t store_u16(double d) { return static_cast<uint16_t>(truncate_to_bits(d)); }

// Store into a sample of either width.
template <class Sample>
inline Sample store_sample(float f)
{
    return static_cast<Sample>(truncate_to_bits(f));
}

// A value known to lie in [0, 2^31) (clipped into the sample range, or a blend of samples), or
// NaN: the same store as store_sample (NaN gives 0), through a 32-bit truncation that runs
// across pixels in vector registers.
template <class Sample>
inline Sample store_clipped_sample(float f)
{
    const float v = f == f ? f : 0.0f;
    return static_cast<Sample>(static_cast<int32_t>(v));
}

// ---- Signed 32-bit values: truncation, saturating ------------------------------------------
//
// Coordinates, sizes, indices and fixed-point factors: truncation toward zero; values beyond
// the int32_t range stop at its ends and NaN gives 0. In-range values (all that valid inputs
// produce) are the plain truncation. Takes float arguments too (exact widening).
inline int32_t truncate_i32(double d)
{
    if (!(d == d))
        return 0;
    if (d >= 2147483648.0)
        return INT32_MAX;
    if (d <= -2147483648.0)
        return INT32_MIN;
    return static_cast<int32_t>(d);
}

// Rounding half up: floor(d + 0.5) in double, then the rule above.
inline int32_t round_half_up_i32(double d) { return truncate_i32(std::floor(d + 0.5)); }

// ---- Unsigned 16-bit counts ----------------------------------------------------------------
//
// A filter half-width or a radius: truncation toward zero into an unsigned 32-bit value, where
// negatives and NaN give 0 and values from 2^32 up saturate, then the low 16 bits.
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
