#include "core/row_threads.h"

#include <atomic>
#include <system_error>
#include <thread>
#include <vector>

#include "kevra/platform.h"

namespace kevra::detail {

unsigned strip_count(int64_t first, int64_t last)
{
    const int64_t rows = last - first + 1;
    if (rows <= 1)
        return 1;
    const unsigned wanted = platform::thread_count();
    return rows < int64_t(wanted) ? static_cast<unsigned>(rows) : (wanted == 0 ? 1 : wanted);
}

RowStrip strip_of(int64_t first, int64_t last, unsigned count, unsigned i)
{
    const int64_t rows = last - first + 1;
    const int64_t base = rows / count, extra = rows % count;
    RowStrip s;
    s.first = first + base * i + (int64_t(i) < extra ? i : extra);
    s.last = s.first + base + (int64_t(i) < extra ? 1 : 0) - 1;
    return s;
}

namespace {
std::atomic<bool> g_last_first{false};
} // namespace

void set_strips_last_first(bool on) { g_last_first.store(on, std::memory_order_relaxed); }

void run_strips(unsigned count, const std::function<void(unsigned)> & task)
{
    if (g_last_first.load(std::memory_order_relaxed)) {
        for (unsigned i = count; i-- > 0;)
            task(i);
        return;
    }
    std::vector<std::thread> threads;
    std::vector<unsigned> left; // tasks no thread could be started for
    for (unsigned i = 1; i < count; ++i) {
        try {
            threads.emplace_back(task, i);
        } catch (const std::system_error &) {
            left.push_back(i);
        }
    }
    if (count > 0)
        task(0);
    for (unsigned i : left)
        task(i);
    for (std::thread & t : threads)
        t.join();
}

} // namespace kevra::detail
