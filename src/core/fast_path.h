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

} // namespace kevra::detail

#endif
