// Test helper for the heart driver: an analyser in zeroed storage (as a value-initialised device
// record provides it), started with mode 1, and a feeder that numbers packets like a host does.
#pragma once

#include <memory>
#include <vector>

#include "rtmonitor/CBeatMeasure.h"
#include "support/ecg_signal.h"

namespace heart_run {

struct Holder {
    CBeatMeasure beat;
};

struct Output {
    int rate = -1;
    int reserved = -1;
    int quality = -1;
    int wave[200] = {};
};

class Feeder {
public:
    Feeder() : holder_(std::make_unique<Holder>()) {
        Output out;
        beat().ProcessingHeart(1, 0, 1, nullptr, 200, out.wave, &out.rate, &out.reserved, &out.quality);
    }
    CBeatMeasure& beat() { return holder_->beat; }

    // One packet with the next sequence number (mode 0).
    Output feed(std::vector<int> samples) {
        Output out;
        beat().ProcessingHeart(1, ++seq_, 0, samples.data(), 200, out.wave, &out.rate,
                               &out.reserved, &out.quality);
        return out;
    }
    // `count` packets of the signal; returns the rates reported.
    std::vector<int> run(rtm::test::EcgSignal& signal, int count) {
        std::vector<int> rates;
        for (int k = 0; k < count; ++k) rates.push_back(feed(signal.packet()).rate);
        return rates;
    }
    int& seq() { return seq_; }

private:
    std::unique_ptr<Holder> holder_;  // value-initialised: zeroed before the constructor runs
    int seq_ = 0;
};

inline rtm::test::EcgSignal signalAt(double rate, double amplitude = 250.0) {
    rtm::test::EcgSignalOptions options;
    options.ratePerMinute = rate;
    options.rAmplitude = amplitude;
    return rtm::test::EcgSignal(options);
}

}  // namespace heart_run
