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

} // namespace kevra::detail
