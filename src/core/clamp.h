// The integer clamps of the private helpers, defined once.
//
// Every helper that brings a coordinate or a value into a range uses these. A second inline
// function of the same name and arguments but another body or result type would break the
// one-definition rule silently (the linker keeps one of them); the KEVRA_ODR_CHECK build
// reports such a clash.
#ifndef KEVRA_CORE_CLAMP_H
#define KEVRA_CORE_CLAMP_H

#include <cstdint>

namespace kevra::detail {

// v brought into lo .. hi (lo <= hi), in 64 bits.
inline int64_t clamp_to(int64_t v, int64_t lo, int64_t hi) { return v < lo ? lo : (v > hi ? hi : v); }

// The same clamp for a result that is an int32_t coordinate (lo and hi within int32_t).
inline int32_t clamp_i32(int64_t v, int64_t lo, int64_t hi) { return static_cast<int32_t>(clamp_to(v, lo, hi)); }

} // namespace kevra::detail

#endif
