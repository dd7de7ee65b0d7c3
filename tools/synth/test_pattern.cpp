// Heart-rate meter test waveforms; see test_pattern.h.
#include "synth/test_pattern.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "synth/random.h"

namespace rtm_synth {
namespace {
constexpr double kSamplesPerSecond = 200;
constexpr double kPi = 3.14159265358979323846;
}  // namespace

std::vector<double> renderTestPattern(const std::vector<Beat>& beats, const TestPatternOptions& o) {
    const std::size_t n = static_cast<std::size_t>(o.seconds * kSamplesPerSecond);
    std::vector<double> mv(n, 0.0);
    for (std::size_t i = 0; i < beats.size(); ++i) {
        const Beat& b = beats[i];
        const double rr = i + 1 < beats.size() ? beats[i + 1].time - b.time : (i > 0 ? b.time - beats[i - 1].time : 1);
        // T wave and P wave shrink into short cycles so that a beat never runs into the next one.
        const double tCentre = std::min(0.30, 0.45 * rr), tHalf = std::min(0.09, 0.18 * rr);
        const double pCentre = -std::min(0.16, 0.3 * rr), pHalf = std::min(0.04, 0.08 * rr);
        const long first = std::max(0L, static_cast<long>((b.time - 0.3) * kSamplesPerSecond));
        const long last = std::min(static_cast<long>(n) - 1, static_cast<long>((b.time + 0.5) * kSamplesPerSecond));
        for (long k = first; k <= last; ++k) {
            const double dt = static_cast<double>(k) / kSamplesPerSecond - b.time;
            double v = 0;
            if (std::fabs(dt) < b.qrsWidth / 2) v += b.qrsMv * (1 - 2 * std::fabs(dt) / b.qrsWidth);
            if (std::fabs(dt - tCentre) < tHalf) v += b.tMv * std::cos(kPi / 2 * (dt - tCentre) / tHalf);
            if (b.pWave && std::fabs(dt - pCentre) < pHalf) v += 0.1 * std::cos(kPi / 2 * (dt - pCentre) / pHalf);
            mv[static_cast<std::size_t>(k)] += v;
        }
    }
    Rng noise(o.noiseSeed);
    for (std::size_t k = 0; k < n; ++k) {
        const double t = static_cast<double>(k) / kSamplesPerSecond;
        mv[k] += o.mainsMv * std::sin(2 * kPi * o.mainsHz * t + 0.3) + o.wanderMv * std::sin(2 * kPi * o.wanderHz * t);
        if (o.noiseMv > 0) mv[k] += o.noiseMv * noise.gauss();
    }
    return mv;
}

}  // namespace rtm_synth
