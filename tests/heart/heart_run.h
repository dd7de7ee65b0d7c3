// Test helpers for the cardiac analyser: the shared generator's ECG at 200 samples/s in raw
// counts on a 512 baseline (packet peak-to-peak stays under 950 for R up to 350 counts),
// disturbed packets, and analysers in zeroed storage (as a value-initialised device record
// provides it; a few words are written by no routine and must start at 0): reset for direct
// calls, or started with mode 1 and fed consecutively numbered packets.
#pragma once

#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "rtmonitor/CBeatMeasure.h"
#include "synth/vitals.h"

namespace heart_run {

using Packet = std::vector<int>;

// Value-initialising the holder zero-fills the analyser before its constructor runs.
struct BeatHolder {
    CBeatMeasure beat;
};

inline std::unique_ptr<BeatHolder> makeAnalyser() {
    auto holder = std::make_unique<BeatHolder>();
    holder->beat.EcgAnalysisInit(0);
    return holder;
}

// One freshly initialised analyser per test, reachable as `b`.
class BeatTest : public ::testing::Test {
protected:
    std::unique_ptr<BeatHolder> h = makeAnalyser();
    CBeatMeasure& b = h->beat;
};

// The shared generator's ECG as a metronome: fixed RR interval and R height, no noise.
struct Ecg {
    explicit Ecg(double ratePerMinute, double rCounts = 250.0) : synth(1, ratePerMinute, rCounts) {
        synth.setVariability(0.0, 0.0);
    }
    Packet packet() {
        Packet p(200);
        for (int& v : p) v = static_cast<int>(std::lround(synth.cleanSample()));
        return p;
    }
    rtm_synth::EcgSynth synth;
};

// A flat line at `level` with a spike of `height` every 40 samples (peak-to-peak = height).
inline Packet spiky(int height, int level = 512) {
    Packet p(200, level);
    for (size_t i = 0; i < p.size(); i += 40) p[i] = level + height;
    return p;
}

struct Output {
    int rate = -1, reserved = -1, quality = -1, wave[200] = {};
};

class Feeder {
public:
    Feeder() : holder_(std::make_unique<BeatHolder>()) { send(0, 1, Packet(200, 512)); }
    CBeatMeasure& beat() { return holder_->beat; }
    Output send(int seq, int mode, Packet p) {
        Output o;
        beat().ProcessingHeart(1, seq, mode, p.data(), 200, o.wave, &o.rate, &o.reserved, &o.quality);
        return o;
    }
    Output feed(const Packet& p) { return send(++seq, 0, p); }
    std::vector<int> run(Ecg& ecg, int packets) {
        std::vector<int> rates;
        while (packets-- > 0) rates.push_back(feed(ecg.packet()).rate);
        return rates;
    }
    int seq = 0;

private:
    std::unique_ptr<BeatHolder> holder_;
};

}  // namespace heart_run
