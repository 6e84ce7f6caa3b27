// Memory of one operation, counted through the library's allocation hook: every work buffer it
// asks for goes through the one allocation helper, which reports the byte count first. Frees are
// not seen, so the sum of one call's requests is an upper bound of its peak extra memory.
#ifndef KEVRA_BENCH_ALLOC_METER_H
#define KEVRA_BENCH_ALLOC_METER_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include <benchmark/benchmark.h>

#include "kevra/platform.h"

class AllocMeter {
public:
    AllocMeter()
        : previous_(kevra::platform::set_allocation_hook([this](std::size_t bytes) {
              if (counting_)
                  bytes_ += bytes;
              return false;
          }))
    {
    }
    ~AllocMeter() { kevra::platform::set_allocation_hook(previous_); }
    AllocMeter(const AllocMeter &) = delete;
    AllocMeter &operator=(const AllocMeter &) = delete;

    // Allocations outside the timed operation (fresh images) are left out.
    void pause() { counting_ = false; }
    void resume() { counting_ = true; }

    // Bytes requested per iteration, in MB, and as a multiple of the image's own bytes.
    void report(benchmark::State &state, double image_bytes) const
    {
        const double per_call = static_cast<double>(bytes_.load()) / static_cast<double>(state.iterations());
        state.counters["alloc_MB"] = per_call / 1e6;
        state.counters["alloc_per_image"] = per_call / image_bytes;
    }

private:
    std::atomic<uint64_t> bytes_{0};
    std::atomic<bool> counting_{true};
    kevra::platform::allocation_hook previous_;
};

#endif
