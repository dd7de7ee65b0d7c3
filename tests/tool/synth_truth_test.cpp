// The generator's truth: beats and breaths come at the requested rates, the signals stay in the
// ranges a device delivers, postures come out as the library classifies them; and the frame file
// byte layout and the progress line.
#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <numeric>

#include <gtest/gtest.h>

#include "frame_file.h"
#include "host.h"
#include "progress.h"
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

TEST(SynthTruth, FixedHeartRateGivesExactlyThatBeatInterval) {
    for (double bpm : {48.0, 72.0, 150.0}) {
        SynthOptions o;
        o.seconds = 60;
        o.fixedHeartRate = bpm;
        const Recording rec = synthesize(o);
        ASSERT_GT(rec.beatTimes.size(), 40u);
        for (size_t i = 1; i < rec.beatTimes.size(); ++i)
            EXPECT_NEAR(rec.beatTimes[i] - rec.beatTimes[i - 1], 60.0 / bpm, 1e-9);
        for (size_t s = 10; s < rec.truth.size(); ++s) EXPECT_NEAR(rec.truth[s].heartRate, bpm, 1e-6);
    }
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

TEST(SynthTruth, ScheduledRatesVaryAndTrackTheSchedule) {
    SynthOptions o;  // the demo's four minutes
    const Recording rec = synthesize(o);
    ASSERT_EQ(rec.frames.size(), 240u);
    // The truth averages a trailing window (10 s of beats, 30 s of breaths), so it follows the
    // schedule's mean over that window, within the beat-to-beat and breath-to-breath variability.
    auto trailingTarget = [&](size_t s, size_t window, bool heart) {
        double sum = 0;
        for (size_t k = s + 1 - window; k <= s; ++k)
            sum += heart ? rec.truth[k].targetHeartRate : rec.truth[k].targetBreathRate;
        return sum / static_cast<double>(window);
    };
    double worstHeart = 0, worstBreath = 0;
    for (size_t s = 30; s < rec.truth.size(); ++s) {
        worstHeart = std::max(worstHeart, std::fabs(rec.truth[s].heartRate - trailingTarget(s, 10, true)));
        worstBreath = std::max(worstBreath, std::fabs(rec.truth[s].breathRate - trailingTarget(s, 30, false)));
    }
    EXPECT_LT(worstHeart, 4.0);
    EXPECT_LT(worstBreath, 2.5);
    // Heart-rate variability: beat intervals in the first minute are not all equal.
    std::vector<double> rr;
    for (size_t i = 1; i < rec.beatTimes.size() && rec.beatTimes[i] < 60; ++i)
        rr.push_back(rec.beatTimes[i] - rec.beatTimes[i - 1]);
    const double mean = std::accumulate(rr.begin(), rr.end(), 0.0) / static_cast<double>(rr.size());
    double var = 0;
    for (double v : rr) var += (v - mean) * (v - mean);
    const double sd = std::sqrt(var / static_cast<double>(rr.size()));
    EXPECT_GT(sd, 0.01);
    EXPECT_LT(sd, 0.08);
    // Walking raises the heart rate well above lying.
    double lying = 0, walking = 0;
    for (const SecondTruth& t : rec.truth) {
        if (t.activity == Activity::Supine) lying = std::max(lying, t.heartRate);
        if (t.activity == Activity::Walking) walking = std::max(walking, t.heartRate);
    }
    EXPECT_GT(walking, lying + 20);
}

TEST(SynthTruth, FixedBreathingRateGivesThatManyCycles) {
    SynthOptions o;
    o.seconds = 120;
    o.fixedBreathRate = 15;
    const Recording rec = synthesize(o);
    for (size_t i = 1; i < rec.breathOnsets.size(); ++i)
        EXPECT_NEAR(rec.breathOnsets[i] - rec.breathOnsets[i - 1], 4.0, 1e-9);
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

TEST(SynthTruth, SignalsStayInTheDeviceRanges) {
    SynthOptions o;
    o.seed = 99;
    const Recording rec = synthesize(o);
    for (size_t s = 0; s < rec.frames.size(); ++s) {
        const ParamsIn& f = rec.frames[s];
        EXPECT_EQ(f.nFrameSeq, static_cast<int32_t>(s));
        EXPECT_EQ(f.nDeviceId, 1);
        EXPECT_EQ(f.nHeartMode, 0);
        const auto [lo, hi] = std::minmax_element(f.nHeartData, f.nHeartData + 200);
        EXPECT_GE(*lo, 0);
        EXPECT_LE(*hi, 1023);
        EXPECT_LT(*hi - *lo, 950);  // never an over-range packet
        const auto [rlo, rhi] = std::minmax_element(f.nBreathChan1, f.nBreathChan1 + 25);
        EXPECT_GT(*rlo, 27000);
        EXPECT_LT(*rhi, 33000);
        for (int i = 0; i < 25; ++i) {
            EXPECT_NEAR(f.nBreathChan0[i], 30000, 3000);
            for (int32_t a : {f.nAccX[i], f.nAccY[i], f.nAccZ[i]}) EXPECT_TRUE(a >= 0 && a <= 1023);
        }
    }
    // R amplitudes: the ECG at each beat stands 150..350 counts above the frame's median, give
    // or take the noise and wander.
    for (double t : rec.beatTimes) {
        const long n = std::lround(t * 200);
        if (n < 0 || n >= 240 * 200) continue;
        const ParamsIn& f = rec.frames[static_cast<size_t>(n / 200)];
        std::vector<int32_t> sorted(f.nHeartData, f.nHeartData + 200);
        std::sort(sorted.begin(), sorted.end());
        const int32_t peak = *std::max_element(f.nHeartData + std::max(0L, n % 200 - 1),
                                               f.nHeartData + std::min(200L, n % 200 + 2));
        EXPECT_GT(peak - sorted[100], 110) << "beat at " << t;
        EXPECT_LT(peak - sorted[100], 400) << "beat at " << t;
    }
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

TEST(SynthTruth, SameSeedSameRecording) {
    SynthOptions o;
    o.seconds = 30;
    o.seed = 21;
    const Recording a = synthesize(o), b = synthesize(o);
    o.seed = 22;
    const Recording c = synthesize(o);
    ASSERT_EQ(a.frames.size(), b.frames.size());
    auto same = [](const Recording& x, const Recording& y) {
        for (size_t s = 0; s < x.frames.size(); ++s)
            if (std::memcmp(&x.frames[s], &y.frames[s], sizeof(ParamsIn)) != 0) return false;
        return true;
    };
    EXPECT_TRUE(same(a, b));
    EXPECT_FALSE(same(a, c));
}

TEST(FrameFile, WordsAreLittleEndianInRecordOrder) {
    ParamsIn f{};
    f.nDeviceId = 0x01020304;
    f.nFrameSeq = -2;
    f.nHeartData[0] = INT32_MIN;
    f.nAccZ[24] = 0x7FFFFFFF;
    unsigned char bytes[kFrameBytes];
    encodeFrame(f, bytes);
    EXPECT_EQ(bytes[0], 0x04);
    EXPECT_EQ(bytes[3], 0x01);
    EXPECT_EQ(bytes[4], 0xFE);
    EXPECT_EQ(bytes[7], 0xFF);
    EXPECT_EQ(bytes[8], 0x00);
    EXPECT_EQ(bytes[11], 0x80);
    EXPECT_EQ(bytes[1316], 0xFF);
    EXPECT_EQ(bytes[1319], 0x7F);
    const ParamsIn back = decodeFrame(bytes);
    EXPECT_EQ(std::memcmp(&back, &f, sizeof f), 0);
}

TEST(Progress, LineShowsTheShareDone) {
    EXPECT_EQ(Progress::render("x", 0, 100, 10), "x [----------] 0%");
    EXPECT_EQ(Progress::render("x", 55, 100, 10), "x [#####-----] 55%");
    EXPECT_EQ(Progress::render("x", 150, 100, 4), "x [####] 100%");
    EXPECT_EQ(Progress::render("x", 5, 0, 4), "x ...");
}

}  // namespace
}  // namespace rtmtool
