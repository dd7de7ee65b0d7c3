// Breath tests and benchmark: the shared generator's sine breathing (rtm_synth::SineBreath) in
// blocks of one frame, and an analyser reset as the registry does it and fed one frame per call.
#pragma once

#include <cmath>
#include <cstdint>

#include "rtmonitor/CBreathPro.h"
#include "synth/vitals.h"

namespace rtm_test {

constexpr int kBreathBlock = 25;  // samples per frame

class BreathSignal {
public:
    explicit BreathSignal(double bpm) : sine_(bpm) {}
    int next() { return sine_.next(); }
    void nextBlock(int* out) {
        for (int i = 0; i < kBreathBlock; ++i) out[i] = sine_.next();
    }

private:
    rtm_synth::SineBreath sine_;
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
