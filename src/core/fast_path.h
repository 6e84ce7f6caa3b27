// The one switch between the plain paths and the fast paths.
//
// Every kernel with a fast path chooses with `if (fast_paths_enabled() && fits) fast; else plain;`.
// The plain path defines the result and the fast path gives the same bytes, so the switch never
// changes an output; tests compare the two paths on random inputs and benchmarks time both.
//
// A library built with KEVRA_PLAIN_ONLY (CMake option of that name) has only the plain paths:
// fast_paths_enabled() is then the constant false and the fast code is dead. At run time the
// switch is private to the library, its tests and its benchmarks; it is one process-wide
// setting, so set it while no operation is running.
#ifndef KEVRA_CORE_FAST_PATH_H
#define KEVRA_CORE_FAST_PATH_H

namespace kevra::detail {

#if defined(KEVRA_PLAIN_ONLY) && KEVRA_PLAIN_ONLY
constexpr bool fast_paths_enabled() { return false; }
#else
bool fast_paths_enabled();
#endif

// Selects the fast paths (true) or the plain ones (false). Without effect in a plain-only build.
void set_fast_paths_enabled(bool enabled);

// Sets the switch for the life of the scope and restores the previous value on exit.
class FastPathScope {
public:
    explicit FastPathScope(bool enabled) : previous_(fast_paths_enabled()) { set_fast_paths_enabled(enabled); }
    ~FastPathScope() { set_fast_paths_enabled(previous_); }
    FastPathScope(const FastPathScope &) = delete;
    FastPathScope &operator=(const FastPathScope &) = delete;

private:
    bool previous_;
};

// ---- Vector units beyond the baseline ----------------------------------------------------------
//
// The kernels are portable C++ built for the baseline of the target (SSE2 on x86-64). A kernel
// may also be compiled a second time for a wider unit (AVX2) and chosen at run time when the
// processor has it. Both copies are the same source: the same single-precision operations on
// each pixel, multiplications and additions kept apart (no fused multiply-add), so every level
// gives the same bytes; only the number of pixels an instruction handles changes.
enum class VectorLevel : int { baseline = 0, avx2 = 1 };

#if (defined(__x86_64__) || defined(__i386__)) && defined(__GNUC__) \
    && !(defined(KEVRA_PLAIN_ONLY) && KEVRA_PLAIN_ONLY)
#define KEVRA_VECTOR_AVX2 1
#define KEVRA_TARGET_AVX2 __attribute__((target("avx2")))
#else
#define KEVRA_VECTOR_AVX2 0
#endif

// Makes a kernel body part of each copy that calls it, compiled for that copy's unit.
#if defined(__GNUC__)
#define KEVRA_KERNEL_INLINE inline __attribute__((always_inline))
#else
#define KEVRA_KERNEL_INLINE inline
#endif

// The widest level the processor offers (baseline where the build has no wider copy).
VectorLevel widest_vector_level();
// The level the kernels use: the widest present, unless capped below.
VectorLevel vector_level();
// Caps the level (tests and benchmarks compare every level present); private, process-wide,
// set while no operation is running.
void set_vector_level_cap(VectorLevel cap);

class VectorLevelScope {
public:
    explicit VectorLevelScope(VectorLevel cap);
    ~VectorLevelScope();
    VectorLevelScope(const VectorLevelScope &) = delete;
    VectorLevelScope &operator=(const VectorLevelScope &) = delete;

private:
    VectorLevel previous_;
};

// Runs Kernel::run(args...) in the copy compiled for the current level. Kernel::run is declared
// KEVRA_KERNEL_INLINE so that each copy holds the whole loop; whatever it calls without being
// inlined stays the baseline function, which every processor of the target runs.
#if KEVRA_VECTOR_AVX2
template <class Kernel, class... Args>
KEVRA_TARGET_AVX2 void run_on_avx2(Args... args)
{
    Kernel::run(args...);
}
#endif

template <class Kernel, class... Args>
void run_at_vector_level(Args... args)
{
#if KEVRA_VECTOR_AVX2
    if (vector_level() == VectorLevel::avx2) {
        run_on_avx2<Kernel>(args...);
        return;
    }
#endif
    Kernel::run(args...);
}

} // namespace kevra::detail

#endif
