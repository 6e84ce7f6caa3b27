// Test pictures made from nothing, for the demo and the tests: a 16-bit grey
// picture in the manner of an intraoral X-ray and a 24-bit colour picture in
// the manner of an intraoral camera photograph. Deterministic: a given size
// and seed always give the same bytes on every platform (integer random
// numbers, and only correctly rounded float operations: no exp, sin or pow).
#ifndef KEVRA_CLI_SYNTH_H
#define KEVRA_CLI_SYNTH_H

#include <cstdint>

namespace kevra {
class CDib;
}

namespace kevra_cli {

// Small deterministic generator (SplitMix64).
class Random {
public:
    explicit Random(uint64_t seed) : state_(seed) {}
    uint64_t next();
    // Uniform in [0, 1).
    double uniform();
    // Roughly normal, mean 0, deviation 1 (sum of four uniforms).
    double normal();

private:
    uint64_t state_;
};

// Teeth with enamel, dentin, pulp and roots over a textured bone, one
// metal filling, an exposure gradient, signal-dependent noise and a few dead
// and hot pixels. Samples span about 3000..40000 (a short exposure),
// outliers aside. False when the image
// cannot be created.
bool make_xray(kevra::CDib & image, int width, int height, uint64_t seed);

// Open mouth: lips, gums, two rows of slightly yellow teeth, a dark
// background, mild noise.
bool make_photo(kevra::CDib & image, int width, int height, uint64_t seed);

} // namespace kevra_cli

#endif
