// Synthetic respiration for the breath tests and benchmark: 30000 + amplitude * sin(2 pi f t)
// raw counts at 25 samples/s plus uniform noise of +-noise counts from a fixed-seed LCG, so every
// run sees the same samples; f is the true rate in breaths per minute / 60.
#pragma once

#include <cmath>
#include <cstdint>

#include "rtmonitor/CBreathPro.h"

namespace rtm_test {

constexpr int kBreathBlock = 25;  // samples per frame

class BreathSignal {
public:
    explicit BreathSignal(double bpm, int amplitude = 1500, int noise = 20, uint32_t seed = 12345)
        : bpm_(bpm), amplitude_(amplitude), noise_(noise), state_(seed) {}
    int next() {
        const double t = static_cast<double>(sample_++) / kBreathBlock;
        state_ = state_ * 1664525u + 1013904223u;
        const int jitter = static_cast<int>((state_ >> 16) % (2u * noise_ + 1u)) - noise_;
        return static_cast<int>(std::lround(
                   30000.0 + amplitude_ * std::sin(2.0 * 3.14159265358979323846 * bpm_ / 60.0 * t))) +
               jitter;
    }
    void nextBlock(int* out) {
        for (int i = 0; i < kBreathBlock; ++i) out[i] = next();
    }

private:
    double bpm_;
    int amplitude_;
    int noise_;
    uint32_t state_;
    long sample_ = 0;
};

struct BreathBlockOut {
    int display0[kBreathBlock];
    int display1[kBreathBlock];
    int rate;
    int status;
};

// Reset as the device registry does it.
void resetBreath(CBreathPro& a);
// One call; channel 0 gets chan1's samples unless given.
BreathBlockOut feedBreathBlock(CBreathPro& a, const int* chan1, const int* chan0 = nullptr);

}  // namespace rtm_test
