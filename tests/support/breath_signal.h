// Synthetic respiration for the breath tests and benchmark: 30000 + 1500 * sin(2 pi f t) raw
// counts at 25 samples/s plus uniform noise of +-20 counts from the shared generator's Rng, so every run
// sees the same samples; f is the true rate in breaths per minute / 60.
#pragma once

#include <cmath>
#include <cstdint>

#include "rtmonitor/CBreathPro.h"
#include "synth/random.h"

namespace rtm_test {

constexpr int kBreathBlock = 25;  // samples per frame

class BreathSignal {
public:
    explicit BreathSignal(double bpm) : bpm_(bpm) {}
    int next() {
        const double t = static_cast<double>(sample_++) / kBreathBlock;
        return static_cast<int>(std::lround(30000.0 + 1500.0 * std::sin(2.0 * M_PI * bpm_ / 60.0 * t))) +
               static_cast<int>(rng_.next() % 41u) - 20;
    }
    void nextBlock(int* out) {
        for (int i = 0; i < kBreathBlock; ++i) out[i] = next();
    }

private:
    double bpm_;
    rtm_synth::Rng rng_{12345};
    long sample_ = 0;
};

struct BreathBlockOut {
    int display0[kBreathBlock], display1[kBreathBlock], rate = -1, status = -1;
};

// An analyser reset as the device registry does it and fed one frame of `bpm` breathing per
// call, after `seconds` such frames. Channel 0 always breathes; channel 1 too unless given.
struct BreathRun {
    CBreathPro a;
    BreathSignal sig;
    explicit BreathRun(double bpm, int seconds = 0) : sig(bpm) {
        a.BreathProInit();
        a.BreathnoProInit();
        for (int s = 0; s < seconds; ++s) next();
    }
    BreathBlockOut next(int* chan1 = nullptr) {
        int block[kBreathBlock];
        BreathBlockOut o;
        sig.nextBlock(block);
        a.ProcessingBreath(1, block, chan1 ? chan1 : block, kBreathBlock, o.display0, o.display1, &o.rate, &o.status);
        return o;
    }
};

}  // namespace rtm_test
