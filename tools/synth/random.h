// The one pseudo-random generator of the synthetic signals: splitmix64 with uniform and Gaussian
// draws. Small, fast and identical on every platform, so a seed names the same signal everywhere.
#pragma once

#include <cmath>
#include <cstdint>

namespace rtm_synth {

constexpr double kTwoPi = 6.283185307179586;

// splitmix64: small, fast and identical everywhere.
class Rng {
public:
    explicit Rng(uint64_t seed = 1) : s_(seed) {}
    uint64_t next() {
        uint64_t z = (s_ += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    // Uniform in [0, 1).
    double uniform() { return static_cast<double>(next() >> 11) * (1.0 / 9007199254740992.0); }
    double uniform(double lo, double hi) { return lo + (hi - lo) * uniform(); }
    // Standard normal (Box-Muller, one value per call).
    double gauss() {
        double u = uniform();
        if (u < 1e-300) u = 1e-300;
        return std::sqrt(-2.0 * std::log(u)) * std::cos(kTwoPi * uniform());
    }

private:
    uint64_t s_;
};

}  // namespace rtm_synth
