// Float planes with guard zones for the filter tests.
#ifndef KEVRA_TESTS_FILTERS_PLANE_H
#define KEVRA_TESTS_FILTERS_PLANE_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

namespace kevra::test {

// width x height pixels of `channels` floats, bottom row first, between two guard zones holding
// a sentinel. A non-zero seed fills the pixels with values 0.00 .. 255.99 in steps of 1/100.
class GuardedPlane {
public:
    static constexpr std::size_t kGuard = 48;
    static constexpr float kSentinel = -7777.25f;

    GuardedPlane(int width, int height, int channels = 1, uint32_t seed = 0)
        : w(width), h(height), c(channels), m(std::size_t(width) * height * channels + 2 * kGuard, kSentinel)
    {
        std::mt19937 rng(seed);
        for (std::size_t i = 0; seed != 0 && i < count(); ++i)
            data()[i] = static_cast<float>(rng() % 25600) / 100.0f;
    }

    float *data() { return m.data() + kGuard; }
    std::size_t count() const { return m.size() - 2 * kGuard; }
    float at(int x, int row, int ch = 0) const { return m[kGuard + (std::size_t(row) * w + x) * c + ch]; }
    float &at(int x, int row, int ch = 0) { return data()[(std::size_t(row) * w + x) * c + ch]; }

    bool guards_intact() const
    {
        for (std::size_t i = 0; i < kGuard; ++i)
            if (std::memcmp(&m[i], &kSentinel, sizeof(float)) != 0 || std::memcmp(&m[m.size() - 1 - i], &kSentinel, sizeof(float)) != 0)
                return false;
        return true;
    }
    bool same_bytes(const GuardedPlane &o) const
    {
        return m.size() == o.m.size() && std::memcmp(m.data(), o.m.data(), m.size() * sizeof(float)) == 0;
    }

    int w, h, c;
    std::vector<float> m;
};

} // namespace kevra::test

#endif
