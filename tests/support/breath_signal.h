// Synthetic respiration for the breath tests and benchmark: 30000 + amplitude * sin(2 pi f t)
// raw counts at 25 samples/s, plus uniform noise of +-noise counts from a fixed-seed generator,
// so every run sees the same samples. The true rate (breaths per minute) is the generator's.
#pragma once

#include <cmath>
#include <cstdint>

#include "rtmonitor/CBreathPro.h"

namespace rtm_test {

constexpr int kBreathBlock = 25;  // samples per frame at 25 samples/s

class BreathSignal {
public:
    explicit BreathSignal(double breathsPerMinute, int amplitude = 1500, int noise = 20,
                          uint32_t seed = 12345)
        : bpm_(breathsPerMinute), amplitude_(amplitude), noise_(noise), state_(seed) {}

    int next() {
        const double kPi = 3.14159265358979323846;
        const double t = static_cast<double>(sample_++) / kBreathBlock;
        state_ = state_ * 1664525u + 1013904223u;  // LCG: portable and fixed across platforms
        const int jitter = noise_ > 0 ? static_cast<int>((state_ >> 16) % (2u * noise_ + 1u)) - noise_ : 0;
        return static_cast<int>(std::lround(30000.0 + amplitude_ * std::sin(2.0 * kPi * bpm_ / 60.0 * t))) + jitter;
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

// What one 25-sample call of the analyser returns.
struct BreathBlockOut {
    int display0[kBreathBlock];
    int display1[kBreathBlock];
    int rate;
    int status;
};

// A freshly reset analyser, as the device registry prepares one.
void resetBreath(CBreathPro& a);

// One call with the same samples on both channels (chan0 == nullptr) or two channels.
BreathBlockOut feedBreathBlock(CBreathPro& a, const int* chan1, const int* chan0 = nullptr);

}  // namespace rtm_test
