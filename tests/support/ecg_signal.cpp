// Synthetic ECG: each beat is P, Q, R, S and T Gaussians whose timing follows the RR interval
// (QT shortens with the square root of RR). Samples are rounded to integer counts.
#include "support/ecg_signal.h"

#include <cmath>

namespace rtm {
namespace test {
namespace {

struct Wave {
    double amplitude;  // fraction of the R amplitude
    double centre;     // seconds from the R peak (scaled by sqrt(RR) for P and T)
    double width;      // Gaussian sigma, seconds
    bool scaled;
};

constexpr Wave kWaves[] = {
    {0.12, -0.16, 0.025, true},    // P
    {-0.10, -0.025, 0.008, false}, // Q
    {1.00, 0.0, 0.010, false},     // R
    {-0.20, 0.025, 0.008, false},  // S
    {0.25, 0.26, 0.040, true},     // T
};

uint32_t nextRandom(uint32_t& state) {
    state = state * 1664525u + 1013904223u;
    return state;
}

}  // namespace

EcgSignal::EcgSignal(const EcgSignalOptions& options)
    : options_(options), rr_(60.0 / options.ratePerMinute), rng_(options.seed) {}

double EcgSignal::valueAt(double t) const {
    const double scale = std::sqrt(rr_);
    // Beats at firstBeat + n * RR; only the neighbours of t contribute.
    const double n = std::floor((t - options_.firstBeatSeconds) / rr_);
    double v = 0.0;
    for (int k = -1; k <= 2; ++k) {
        const double beat = options_.firstBeatSeconds + (n + k) * rr_;
        for (const Wave& w : kWaves) {
            const double centre = beat + (w.scaled ? w.centre * scale : w.centre);
            const double x = (t - centre) / w.width;
            if (std::fabs(x) < 8.0) v += w.amplitude * std::exp(-0.5 * x * x);
        }
    }
    return (options_.inverted ? -v : v) * options_.rAmplitude;
}

double EcgSignal::noise() {
    if (options_.noiseCounts <= 0.0) return 0.0;
    const double u = (nextRandom(rng_) >> 8) / 16777216.0;  // 0..1
    return (2.0 * u - 1.0) * options_.noiseCounts;
}

void EcgSignal::fill(int* out, int count) {
    for (int i = 0; i < count; ++i) {
        const double t = static_cast<double>(sample_) / 200.0;
        out[i] = static_cast<int>(std::lround(options_.baseline + valueAt(t) + noise()));
        ++sample_;
    }
}

std::vector<int> EcgSignal::packet() {
    std::vector<int> p(200);
    fill(p.data(), 200);
    return p;
}

std::vector<int> flatPacket(int value) { return std::vector<int>(200, value); }

std::vector<int> overRangePacket() {
    std::vector<int> p(200, 512);
    for (int i = 0; i < 200; i += 40) {
        p[i] = 1023;
        p[i + 1] = 0;
    }
    return p;
}

std::vector<int> randomPacket(uint32_t& state, int lo, int hi) {
    std::vector<int> p(200);
    const uint32_t span = static_cast<uint32_t>(hi - lo + 1);
    for (int& v : p) v = lo + static_cast<int>((nextRandom(state) >> 8) % span);
    return p;
}

}  // namespace test
}  // namespace rtm
