// The interior rules of the selective median, one a depth (see median.h for what a rule
// supplies). Each difference between them is deliberate and named here: the precision of the
// mean, strict or inclusive tests, and which neighbours the 24-bit class gathers. Results at
// the three depths therefore round differently; that is part of the behaviour.
#ifndef KEVRA_PROCESSING_DETAIL_MEDIAN_RULES_H
#define KEVRA_PROCESSING_DETAIL_MEDIAN_RULES_H

#include <cstddef>
#include <cstdint>

#include "core/pixel.h"
#include "processing/detail/median.h"

namespace kevra::detail {

// Every window pixel but the centre, in gathering order; the sum in single precision.
template <class S>
float gather_full_window(const S *centre, std::ptrdiff_t pitch, int channels, int32_t n, S *out)
{
    float sum = 0.0f;
    int64_t k = 0;
    for (int32_t dy = -n; dy <= n; ++dy) {
        const S *row = centre + dy * pitch;
        for (int32_t dx = -n; dx <= n; ++dx) {
            if (dy == 0 && dx == 0)
                continue;
            const S v = row[dx * channels];
            out[k++] = v;
            sum += static_cast<float>(v);
        }
    }
    return sum;
}

// 8-bit interior: double precision, mean = sum x (1 / N) with 1 / N taken once in double,
// inclusive tests against mean x (1 +- tolerance).
struct InteriorReciprocalDouble {
    static constexpr bool half_window = false;
    double inverse;
    double tolerance;
    InteriorReciprocalDouble(int64_t N, double tol) : inverse(1.0 / static_cast<double>(N)), tolerance(tol) {}

    float gather(const uint8_t *centre, std::ptrdiff_t pitch, int32_t n, uint8_t *out) const
    {
        return gather_full_window(centre, pitch, 1, n, out);
    }
    double mean(float sum) const { return static_cast<double>(sum) * inverse; }
    bool screen(double &up, double &down) const { return median_screen_factors(inverse, tolerance, up, down); }
    bool above(uint32_t centre, float sum) const { return double(centre) >= mean(sum) * (1.0 + tolerance); }
    bool below(uint32_t centre, float sum) const { return double(centre) <= mean(sum) * (1.0 - tolerance); }
    bool replaces(uint32_t centre, float sum) const
    {
        const bool up = above(centre, sum), down = below(centre, sum);
        return up || down;
    }
};

// 16-bit interior: single precision throughout (a deliberate difference from the 8-bit class,
// part of the 16-bit results), mean = sum x (1 / N) with 1 / N in single precision,
// deviation = tolerance x mean, and strict tests: a centre exactly at mean +- deviation stays,
// where the 8-bit class would replace it.
struct InteriorSingleStrict {
    static constexpr bool half_window = false;
    float inverse;
    float tolerance;
    InteriorSingleStrict(int64_t N, double tol)
        : inverse(1.0f / static_cast<float>(N)), tolerance(static_cast<float>(tol))
    {
    }

    float gather(const uint16_t *centre, std::ptrdiff_t pitch, int32_t n, uint16_t *out) const
    {
        return gather_full_window(centre, pitch, 1, n, out);
    }
    bool screen(double &, double &) const { return false; } // the test is single precision already
    bool replaces(uint32_t centre, float sum) const
    {
        const float mean = sum * inverse;
        const float deviation = tolerance * mean;
        const float c = static_cast<float>(centre);
        return (c > mean + deviation) | (c < mean - deviation);
    }
};

// 24-bit interior, one channel at a time: only the neighbours at a positive byte offset from
// the centre (dy x pitch + dx x 3 > 0: the rows above the centre and the right half of its
// own row) are gathered, into the first N / 2 slots. The mean still divides by the full N
// (in double, as a quotient) and the sort takes all N slots, the other half keeping what
// earlier sorts left there. This half window is the 24-bit rule, kept so that 24-bit results
// stay reproducible.
//
// With radius 1, N = 8: a quotient by a power of two is exactly the product by its reciprocal
// (the exact value is representable and both operations round correctly), so that rule
// multiplies, which runs across pixels far faster than a division, with the same bytes.
template <bool PowerOfTwoCount>
struct InteriorHalfWindowQuotient {
    static constexpr bool half_window = true;
    double full;
    double reciprocal;
    double tolerance;
    InteriorHalfWindowQuotient(int64_t N, double tol)
        : full(static_cast<double>(N)), reciprocal(1.0 / static_cast<double>(N)), tolerance(tol)
    {
    }

    float gather(const uint8_t *centre, std::ptrdiff_t pitch, int32_t n, uint8_t *out) const
    {
        float sum = 0.0f;
        int64_t k = 0;
        for (int32_t dy = -n; dy <= n; ++dy)
            for (int32_t dx = -n; dx <= n; ++dx) {
                const std::ptrdiff_t offset = dy * pitch + dx * 3;
                if (offset > 0) {
                    const uint8_t v = centre[offset];
                    out[k++] = v;
                    sum += static_cast<float>(v);
                }
            }
        return sum;
    }
    bool screen(double &up, double &down) const
    {
        return median_screen_factors(reciprocal, tolerance, up, down);
    }
    double mean(float sum) const
    {
        if constexpr (PowerOfTwoCount)
            return static_cast<double>(sum) * reciprocal;
        else
            return static_cast<double>(sum) / full;
    }
    bool above(uint32_t centre, float sum) const { return double(centre) >= mean(sum) * (1.0 + tolerance); }
    bool below(uint32_t centre, float sum) const { return double(centre) <= mean(sum) * (1.0 - tolerance); }
    bool replaces(uint32_t centre, float sum) const
    {
        const bool up = above(centre, sum), down = below(centre, sum);
        return up || down;
    }
};

// The rule of each class: 8 and 16 bits one each, 24 bits its half window, whose quotient by
// N = 8 (radius 1) is a product.
template <class Px, bool RadiusOne>
struct MedianRule;
template <bool RadiusOne>
struct MedianRule<Grey8, RadiusOne> {
    using type = InteriorReciprocalDouble;
};
template <bool RadiusOne>
struct MedianRule<Grey16, RadiusOne> {
    using type = InteriorSingleStrict;
};
template <bool RadiusOne>
struct MedianRule<Bgr24, RadiusOne> {
    using type = InteriorHalfWindowQuotient<RadiusOne>;
};

} // namespace kevra::detail

#endif
