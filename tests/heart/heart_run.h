// Test helpers for the cardiac analyser: synthetic ECG at 200 samples/s in raw counts on a 512
// baseline (P, Q, R, S, T Gaussians; packet peak-to-peak stays under 950 for R up to 350 counts),
// disturbed packets, and an analyser in zeroed storage (as a value-initialised device record
// provides it) started with mode 1 and fed consecutively numbered packets.
#pragma once

#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

#include "rtmonitor/CBeatMeasure.h"

namespace heart_run {

using Packet = std::vector<int>;

struct Ecg {
    explicit Ecg(double ratePerMinute, double rCounts = 250.0) : rr(60.0 / ratePerMinute), r(rCounts) {}
    Packet packet() {
        // Height (fraction of R), centre (s from R; P and T scale with sqrt(RR)), sigma (s).
        static const double kWaves[5][3] = {
            {0.12, -0.16, 0.025}, {-0.10, -0.025, 0.008}, {1.0, 0.0, 0.010}, {-0.20, 0.025, 0.008}, {0.25, 0.26, 0.040}};
        Packet p(200);
        for (int& v : p) {
            const double t = static_cast<double>(n++) / 200.0, first = std::floor((t - 0.3) / rr);
            double sum = 0.0;
            for (int j = 0; j < 20; ++j) {  // waves w of the beats k = -1..2 around t
                const int k = j / 5 - 1, w = j % 5;
                const double scale = (w == 0 || w == 4) ? std::sqrt(rr) : 1.0;
                const double x = (t - 0.3 - (first + k) * rr - kWaves[w][1] * scale) / kWaves[w][2];
                sum += kWaves[w][0] * std::exp(-0.5 * x * x);
            }
            v = static_cast<int>(std::lround(512.0 + r * sum));
        }
        return p;
    }
    double rr, r;   // RR interval (s), R height (counts)
    int64_t n = 0;  // samples produced
};

// A flat line at `level` with a spike of `height` every 40 samples (peak-to-peak = height).
inline Packet spiky(int height, int level = 512) {
    Packet p(200, level);
    for (size_t i = 0; i < p.size(); i += 40) p[i] = level + height;
    return p;
}

struct Output { int rate = -1, reserved = -1, quality = -1, wave[200] = {}; };

class Feeder {
public:
    Feeder() : holder_(std::make_unique<Holder>()) { send(0, 1, Packet(200, 512)); }
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
    struct Holder { CBeatMeasure beat; };
    std::unique_ptr<Holder> holder_;  // value-initialised: zeroed before the constructor runs
};

}  // namespace heart_run
