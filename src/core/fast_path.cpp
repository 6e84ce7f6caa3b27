#include "core/fast_path.h"

#include <atomic>

namespace kevra::detail {

#if defined(KEVRA_PLAIN_ONLY) && KEVRA_PLAIN_ONLY
void set_fast_paths_enabled(bool) {}
#else
namespace {
std::atomic<bool> g_fast_paths{true};
} // namespace

bool fast_paths_enabled() { return g_fast_paths.load(std::memory_order_relaxed); }
void set_fast_paths_enabled(bool enabled) { g_fast_paths.store(enabled, std::memory_order_relaxed); }
#endif

namespace {
std::atomic<int> g_vector_cap{static_cast<int>(VectorLevel::avx2)};
} // namespace

VectorLevel widest_vector_level()
{
#if KEVRA_VECTOR_AVX2
    // Also checks that the system saves the wide registers.
    static const bool avx2 = __builtin_cpu_supports("avx2");
    if (avx2)
        return VectorLevel::avx2;
#endif
    return VectorLevel::baseline;
}

VectorLevel vector_level()
{
    const int cap = g_vector_cap.load(std::memory_order_relaxed);
    const int widest = static_cast<int>(widest_vector_level());
    return static_cast<VectorLevel>(cap < widest ? cap : widest);
}

void set_vector_level_cap(VectorLevel cap) { g_vector_cap.store(static_cast<int>(cap), std::memory_order_relaxed); }

VectorLevelScope::VectorLevelScope(VectorLevel cap)
    : previous_(static_cast<VectorLevel>(g_vector_cap.load(std::memory_order_relaxed)))
{
    set_vector_level_cap(cap);
}

VectorLevelScope::~VectorLevelScope() { set_vector_level_cap(previous_); }

} // namespace kevra::detail
