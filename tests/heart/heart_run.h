// Test helpers for the cardiac analyser: synthetic ECG at 200 samples/s in raw counts on a 512
// baseline (P, Q, R, S, T Gaussians; packet peak-to-peak stays under 950 for R up to 350 counts),
// disturbed packets, and an analyser in zeroed storage (as a value-initialised device record
// provides it) started with mode 1 and fed consecutively numbered packets.
#pragma once

#include <cmath>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "rtmonitor/CBeatMeasure.h"

namespace heart_run {

using Packet = std::vector<int>;

class Ecg {
public:
    explicit Ecg(double ratePerMinute, double rCounts = 250.0) : rr_(60.0 / ratePerMinute), r_(rCounts) {}
    Packet packet() {
        // Height (fraction of R), centre (s from R; P and T scale with sqrt(RR)), sigma (s).
        static const double kWaves[5][4] = {{0.12, -0.16, 0.025, 1}, {-0.10, -0.025, 0.008, 0},
                                            {1.0, 0.0, 0.010, 0}, {-0.20, 0.025, 0.008, 0},
                                            {0.25, 0.26, 0.040, 1}};
        Packet p(200);
        for (int& v : p) {
            const double t = static_cast<double>(n_++) / 200.0;
            const double first = std::floor((t - 0.3) / rr_);
            double sum = 0.0;
            for (int k = -1; k <= 2; ++k) {
                for (const auto& w : kWaves) {
                    const double centre = 0.3 + (first + k) * rr_ + w[1] * (w[3] > 0 ? std::sqrt(rr_) : 1.0);
                    const double x = (t - centre) / w[2];
                    sum += w[0] * std::exp(-0.5 * x * x);
                }
            }
            v = static_cast<int>(std::lround(512.0 + r_ * sum));
        }
        return p;
    }

private:
    double rr_;
    double r_;
    int64_t n_ = 0;
};

// A flat line at `level` with a spike of `height` at every 40th sample (peak-to-peak = height).
inline Packet spiky(int height, int level = 512) {
    Packet p(200, level);
    for (int i = 0; i < 200; i += 40) p[static_cast<size_t>(i)] = level + height;
    return p;
}

inline Packet randomPacket(uint32_t& state, int lo, int hi) {
    Packet p(200);
    for (int& v : p) {
        state = state * 1664525u + 1013904223u;
        v = lo + static_cast<int>((state >> 8) % static_cast<uint32_t>(hi - lo + 1));
    }
    return p;
}

struct Output {
    int rate = -1, reserved = -1, quality = -1;
    int wave[200] = {};
};

class Feeder {
public:
    Feeder() : holder_(std::make_unique<Holder>()) { send(0, 1, Packet(200, 512)); }
    CBeatMeasure& beat() { return holder_->beat; }
    Output send(int seq, int mode, Packet p) {
        Output o;
        beat().ProcessingHeart(1, seq, mode, p.data(), 200, o.wave, &o.rate, &o.reserved, &o.quality);
        return o;
    }
    Output feed(Packet p) { return send(++seq, 0, std::move(p)); }
    std::vector<int> run(Ecg& ecg, int packets) {
        std::vector<int> rates;
        for (int k = 0; k < packets; ++k) rates.push_back(feed(ecg.packet()).rate);
        return rates;
    }
    int seq = 0;

private:
    struct Holder {
        CBeatMeasure beat;
    };
    std::unique_ptr<Holder> holder_;  // value-initialised: zeroed before the constructor runs
};

}  // namespace heart_run
