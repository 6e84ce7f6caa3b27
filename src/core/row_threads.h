// Opt-in threads for the heavy operations: rows split into strips.
//
// A strip is a run of whole rows; every row is computed exactly as it would be
// on one thread, so the bytes never depend on the thread count. The count is
// the platform setting (platform::thread_count(), 1 by default: the caller's
// thread only).
#ifndef KEVRA_CORE_ROW_THREADS_H
#define KEVRA_CORE_ROW_THREADS_H

#include <cstdint>
#include <functional>

namespace kevra::detail {

struct RowStrip {
    int64_t first = 0, last = -1; // inclusive
};

// Number of strips for rows first..last: the thread setting, at most one
// strip a row, at least 1.
unsigned strip_count(int64_t first, int64_t last);

// Strip i of `count` over rows first..last: contiguous, in order, heights
// differing by at most one row.
RowStrip strip_of(int64_t first, int64_t last, unsigned count, unsigned i);

// Runs task(0) .. task(count - 1), task 0 on the calling thread and the others
// on threads of their own, and returns when all have finished. A thread that
// cannot be started leaves its task to the calling thread.
void run_strips(unsigned count, const std::function<void(unsigned)> & task);

// Private, for tests: the strips run one after another on the calling thread, the last first.
// Strips that wrongly depend on their neighbours' progress then fail every time instead of
// now and then. Process-wide; set while no operation is running.
void set_strips_last_first(bool on);

} // namespace kevra::detail

#endif
