// The generator's truth: the R peaks in the ECG sit at the truth's beat times, a fixed breathing
// rate gives that many cycles, postures come out as the library classifies them. Fixed heart
// rates are judged end to end by the meter's table.
#include <algorithm>
#include <climits>
#include <cstring>

#include <gtest/gtest.h>

#include "host.h"
#include "synth.h"

namespace rtmtool {
namespace {

// R peaks found in the generated ECG by a plain threshold halfway between the median and the
// largest value of the surrounding two seconds, with a 250-ms refractory time; times in seconds.
std::vector<double> detectRPeaks(const Recording& rec) {
    std::vector<int32_t> x;
    for (const ParamsIn& f : rec.frames) x.insert(x.end(), f.nHeartData, f.nHeartData + 200);
    std::vector<double> peaks;
    const long n = static_cast<long>(x.size());
    for (long i = 1; i + 1 < n; ++i) {
        if (!(x[static_cast<size_t>(i)] >= x[static_cast<size_t>(i - 1)] &&
              x[static_cast<size_t>(i)] > x[static_cast<size_t>(i + 1)]))
            continue;
        const long a = std::max(0L, i - 200), b = std::min(n, i + 200);
        std::vector<int32_t> w(x.begin() + a, x.begin() + b);
        std::sort(w.begin(), w.end());
        const double threshold = w[w.size() / 2] + 0.5 * (w.back() - w[w.size() / 2]);
        const double t = static_cast<double>(i) / 200.0;
        if (x[static_cast<size_t>(i)] > threshold && (peaks.empty() || t - peaks.back() > 0.25)) peaks.push_back(t);
    }
    return peaks;
}

TEST(SynthTruth, RPeaksInTheEcgAreTheTruthBeats) {
    SynthOptions o;
    o.seconds = 60;
    o.seed = 11;
    const Recording rec = synthesize(o);
    const std::vector<double> peaks = detectRPeaks(rec);
    std::vector<double> truth;
    for (double t : rec.beatTimes)
        if (t > 0.05 && t < 59.95) truth.push_back(t);
    ASSERT_EQ(peaks.size(), truth.size());
    for (size_t i = 0; i < peaks.size(); ++i) EXPECT_NEAR(peaks[i], truth[i], 0.011) << "beat " << i;
    // So the rate seen in the signal is the truth's rate.
    const double rate = 60.0 * static_cast<double>(peaks.size() - 1) / (peaks.back() - peaks.front());
    const double truthRate = 60.0 * static_cast<double>(truth.size() - 1) / (truth.back() - truth.front());
    EXPECT_NEAR(rate, truthRate, 0.2);
}

TEST(SynthTruth, FixedBreathingRateGivesThatManyCycles) {
    SynthOptions o;
    o.seconds = 120;
    o.fixedBreathRate = 15;
    const Recording rec = synthesize(o);
    for (size_t s = 40; s < rec.truth.size(); ++s) EXPECT_NEAR(rec.truth[s].breathRate, 15.0, 1e-6);
    // Upward crossings of the mid level in the lying part: one per breath.
    std::vector<double> x;
    for (size_t s = 0; s < 30; ++s) x.insert(x.end(), rec.frames[s].nBreathChan1, rec.frames[s].nBreathChan1 + 25);
    const double lo = *std::min_element(x.begin(), x.end()), hi = *std::max_element(x.begin(), x.end());
    const double mid = 0.5 * (lo + hi);
    int crossings = 0;
    bool above = x[0] > mid;
    for (double v : x) {
        // Hysteresis of a tenth of the swing against noise at the crossing.
        if (!above && v > mid + 0.1 * (hi - lo)) above = true, ++crossings;
        if (above && v < mid - 0.1 * (hi - lo)) above = false;
    }
    EXPECT_NEAR(crossings, 30 / 4, 1);
}

TEST(SynthTruth, PostureTruthIsWhatTheLibraryClassifies) {
    SynthOptions o;
    o.seed = 4;
    const Recording rec = synthesize(o);
    Host host;
    int scored = 0, agree = 0;
    bool seen[6] = {};
    for (size_t s = 0; s < rec.frames.size(); ++s) {
        ParamsOut out{};
        size_t device = 0;
        ASSERT_TRUE(host.process(rec.frames[s], out, device));
        const int expected = rec.truth[s].posture;
        if (expected == kPostureNotScored) continue;
        ++scored;
        agree += postureAgrees(expected, out.nPosture);
        if (expected <= 5) seen[expected] = true;
    }
    EXPECT_TRUE(seen[1] && seen[2] && seen[4] && seen[5]);  // upright, back, both sides
    EXPECT_GE(agree, scored - 2);
}

}  // namespace
}  // namespace rtmtool
