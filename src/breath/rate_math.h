// Small arithmetic helpers of the breathing-rate decision: single-precision division with the
// IEEE result for a zero divisor spelled out (0/0 is NaN, x/0 is a signed infinity), so that the
// quotients the rate rules compare keep their hardware values without relying on the compiler.
#pragma once

#include <cmath>
#include <limits>

namespace rtm {
namespace breath {

inline float ieeeDivF(float a, float b) {
    if (b != 0.0f) return a / b;
    if (std::isnan(a) || a == 0.0f) return std::numeric_limits<float>::quiet_NaN();
    const bool negative = std::signbit(a) != std::signbit(b);
    return negative ? -std::numeric_limits<float>::infinity() : std::numeric_limits<float>::infinity();
}

// Samples in one minute at 25 respiration samples per second.
constexpr float kBreathSamplesPerMinute = 1500.0f;

// Peak and trough lists of one 1000-sample window. A peak candidate needs a rise into it, and
// the sample after a peak candidate cannot rise, so candidates of one kind are at least two
// samples apart: over the 998 examined positions at most 499 of each kind exist, whatever the
// spacing and the signal. 500 entries therefore hold every extremum the window can give.
constexpr int kBreathExtremaCapacity = 500;

}  // namespace breath
}  // namespace rtm
